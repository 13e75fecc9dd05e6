// The status record of the firmware's user interface, in this process alone: nobody asks to cancel but the process
// itself.
#include <velkor/firmware.h>
#include <velkor_host.h>

namespace {

unsigned char status_record[VELKOR_HOST_GUI_STATUS_SIZE];

}  // namespace

unsigned char *g_ptGuiSysStatus = status_record;

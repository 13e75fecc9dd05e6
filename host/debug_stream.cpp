// The firmware's debug stream. A program at the bench points it where it likes.
#include <velkor/firmware.h>

FILE *fpDebugFile = nullptr;

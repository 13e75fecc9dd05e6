// Argument checks of the public functions: report to the firmware's debug stream and go on, because a recorder
// that nobody can reach must answer a caller's mistake with a code, not with abort().
#pragma once

#include <stdio.h>
#include <time.h>

#include <velkor/firmware.h>

#include "support/civil_date.h"
#include "support/local_time.h"

namespace velkor {

// The line, with the source file and number under which the firmware's engineers know the check.
inline void report_assertion(const char *source, int line, const char *function, const char *expression) {
    if (fpDebugFile == nullptr) {
        return;
    }
    char stamp[CLOCK_TEXT_SIZE];
    format_clock_text(stamp, stamp_time(time(nullptr)));
    fprintf(fpDebugFile, "%s%s: %d: %s: Assertion '%s' failed.\r\n", stamp, source, line, function, expression);
}

}  // namespace velkor

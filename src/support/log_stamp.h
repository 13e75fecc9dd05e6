// The time stamp at the head of every line that the library writes for people.
#pragma once

#include <stdio.h>
#include <time.h>

#include "support/local_time.h"

namespace velkor {

// Six numbers of at most eleven characters, and what stands between them.
inline constexpr size_t LOG_STAMP_SIZE = 80;

// Writes "[2026/11/15 10:25:17]" in local time and answers its length. For now, not for any time: see stamp_time().
inline size_t format_log_stamp(char (&out)[LOG_STAMP_SIZE], time_t now) {
    const struct tm local = stamp_time(now);
    const int length = snprintf(out, sizeof out, "[%04d/%02d/%02d %02d:%02d:%02d]", local.tm_year + 1900,
                                local.tm_mon + 1, local.tm_mday, local.tm_hour % 24, local.tm_min, local.tm_sec);
    return length > 0 ? static_cast<size_t>(length) : 0;
}

}  // namespace velkor

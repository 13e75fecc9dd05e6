// Pauses that last their time whatever signals come: each waits for a moment, not for a length.
#pragma once

#include <errno.h>
#include <stdint.h>
#include <time.h>

namespace velkor {

// By the clock that nobody sets.
inline struct timespec moment_after_us(int64_t microseconds) {
    constexpr int64_t NANOSECONDS = 1000000000;
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t sum = int64_t{now.tv_nsec} + microseconds * 1000;
    struct timespec moment = {};
    moment.tv_sec = static_cast<time_t>(now.tv_sec + sum / NANOSECONDS);
    moment.tv_nsec = static_cast<long>(sum % NANOSECONDS);
    return moment;
}

inline void pause_for_us(int64_t microseconds) {
    const struct timespec end = moment_after_us(microseconds);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
}

}  // namespace velkor

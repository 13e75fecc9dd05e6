// What a thread that waits for a moment was told about the time before: a test that stands in for the wait takes the
// length of the pause from it, to the microsecond on the busiest machine. For one source file of a test program.
#pragma once

#include <dlfcn.h>
#include <stdint.h>
#include <time.h>

namespace asked_clock {

// The last answer to the calling thread, by the clock that nobody sets.
inline thread_local struct timespec answer = {};

inline int64_t microseconds_until(const struct timespec &moment) {
    return int64_t{moment.tv_sec - answer.tv_sec} * 1000000 + (moment.tv_nsec - answer.tv_nsec) / 1000;
}

}  // namespace asked_clock

extern "C" [[gnu::used]] inline int clock_gettime(clockid_t clock, struct timespec *out) noexcept {
    static const auto real = reinterpret_cast<int (*)(clockid_t, struct timespec *)>(dlsym(RTLD_NEXT, "clock_gettime"));
    const int result = real(clock, out);
    if (clock == CLOCK_MONOTONIC) {
        asked_clock::answer = *out;
    }
    return result;
}

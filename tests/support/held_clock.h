// The seconds of a test that listens: they stand still until the test has seen what it waits for, so that no busy
// machine is too slow for it, and no quiet one waits for nothing. For one source file of a test program.
#pragma once

#include <time.h>

#include <functional>

namespace held_clock {

// By how many seconds the calling thread's clock is off; nobody holds it when there is no function.
inline thread_local std::function<int()> offset;

}  // namespace held_clock

extern "C" [[gnu::used]] inline time_t time(time_t *out) noexcept {
    static const time_t START = 1700000000;
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t seconds = held_clock::offset ? START + held_clock::offset() : now.tv_sec;
    if (out != nullptr) {
        *out = seconds;
    }
    return seconds;
}

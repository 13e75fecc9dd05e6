// System calls that a signal must not end early.
#pragma once

#include <errno.h>
#include <poll.h>
#include <stdint.h>
#include <time.h>

#include <algorithm>

namespace velkor {

// Calls again as long as a signal was what ended the call.
template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

inline int64_t monotonic_us() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

// Waits until there is something to read, or an error to fetch. Answers as select() does: 1, 0 after the time, or -1.
// Unlike select() it takes a descriptor of any number, and a signal does not end it.
inline int wait_readable(int descriptor, int milliseconds) {
    const int64_t end = monotonic_us() + int64_t{milliseconds} * 1000;
    int rest = milliseconds;
    for (;;) {
        struct pollfd waiting = {descriptor, POLLIN, 0};
        const int result = poll(&waiting, 1, rest);
        if (result >= 0 || errno != EINTR) {
            return result;
        }
        const int64_t whole_milliseconds = (end - monotonic_us() + 999) / 1000;
        rest = static_cast<int>(std::clamp<int64_t>(whole_milliseconds, 0, milliseconds));
    }
}

}  // namespace velkor

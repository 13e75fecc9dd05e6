#include "progress.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "exit_status.h"

namespace tool {

std::string size_text(uint64_t bytes) {
    constexpr std::array UNITS = {"KiB", "MiB", "GiB", "TiB"};
    if (bytes < 1024) {
        return std::to_string(bytes) + " B";
    }
    double value = static_cast<double>(bytes) / 1024;
    size_t unit = 0;
    for (; value >= 1023.95 && unit + 1 < UNITS.size(); ++unit) {
        value /= 1024;
    }
    std::array<char, 32> text;
    snprintf(text.data(), text.size(), "%.1f %s", value, UNITS[unit]);
    return text.data();
}

std::string time_text(uint64_t seconds) {
    std::array<char, 48> text;
    const auto whole = [](uint64_t number) { return static_cast<unsigned long long>(number); };
    if (seconds < 60) {
        snprintf(text.data(), text.size(), "%llu s", whole(seconds));
    } else if (seconds < 3600) {
        snprintf(text.data(), text.size(), "%llu:%02llu", whole(seconds / 60), whole(seconds % 60));
    } else {
        snprintf(text.data(), text.size(), "%llu:%02llu:%02llu", whole(seconds / 3600), whole(seconds / 60 % 60),
                 whole(seconds % 60));
    }
    return text.data();
}

std::string bar(double fraction, unsigned width) {
    const double known = std::isfinite(fraction) ? std::clamp(fraction, 0.0, 1.0) : 0;
    const auto filled = static_cast<unsigned>(std::lround(known * width));
    return "[" + std::string(filled, '#') + std::string(width - filled, '-') + "]";
}

Descriptor ticks_every(unsigned milliseconds) {
    Descriptor ticks(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    const struct timespec period = {static_cast<time_t>(milliseconds / 1000),
                                    static_cast<long>(milliseconds % 1000) * 1000000};
    const struct itimerspec setting = {period, period};
    if (!ticks || timerfd_settime(ticks.get(), 0, &setting, nullptr) != 0) {
        fail_call("make a timer");
    }
    return ticks;
}

void take_ticks(const Descriptor &ticks) {
    uint64_t number = 0;
    (void)!read(ticks.get(), &number, sizeof number);
}

}  // namespace tool

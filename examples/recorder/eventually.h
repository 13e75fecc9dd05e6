// Waiting for what must come, and not for a time.
#pragma once

#include <chrono>
#include <thread>

namespace recorder {

using Clock = std::chrono::steady_clock;

// Many times what anything here takes, also on a busy or an emulated machine.
constexpr std::chrono::seconds PATIENCE{20};

template <typename Condition>
bool eventually(Condition condition) {
    const Clock::time_point end = Clock::now() + PATIENCE;
    while (!condition()) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace recorder

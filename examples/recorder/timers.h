// Timers on the library's one timer thread, and the soft dog that tells whether that thread lives.
#pragma once

#include <velkor/concurrency.h>

#include <atomic>

#include "subsystem.h"

namespace recorder {

// A periodic call of a part's: made on the timer thread with all timers waiting, so it must be short.
class PeriodicCall {
public:
    using Function = void (*)(void *part);

    PeriodicCall(unsigned ticks, Function function, void *part) : function_(function), part_(part) {
        entry_ = {ticks, call, this};
    }
    PeriodicCall(const PeriodicCall &) = delete;
    PeriodicCall &operator=(const PeriodicCall &) = delete;

    // Starts the timers if there are none yet.
    bool start();
    // Once this returned the call is not made any more.
    bool end() { return del_timer(&entry_) == 0; }

    // Of all periodic calls together.
    static unsigned calls();

private:
    static void *call(void *argument);

    TimerEntry entry_;
    Function function_;
    void *part_;
};

class Timers : public Subsystem {
public:
    Timers() : Subsystem("timers") {}

    void prepare() override;
    void conclude() override;
    Panel panel() const override;
    std::string tally() const override;
    std::string summary() const override;

private:
    void turn() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(10); }

    PeriodicCall tick_{1, [](void *part) { ++static_cast<Timers *>(part)->ticks_; }, this};
    std::atomic<unsigned> ticks_{0};
    std::atomic<unsigned> dog_{0};
    std::atomic<unsigned> hungriest_{0};
};

}  // namespace recorder

#include "timers.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "eventually.h"
#include "text.h"

namespace recorder {

namespace {

constexpr unsigned HUNGRY_DOG = 1000;  // turns of 10 ms: many ticks that did not come
constexpr unsigned USUAL_DOG = 40;

std::atomic<unsigned> all_calls{0};

// How many calls the library says that its timer thread has made.
int calls_by_the_library() {
    char text[256] = "";
    timer_GetDebug(text, sizeof text);
    const char *const count = strstr(text, "count = ");
    int number = -1;
    return count != nullptr && sscanf(count, "count = %d", &number) == 1 ? number : -1;
}

}  // namespace

bool PeriodicCall::start() { return init_timer(&entry_) == 0 || add_timer(&entry_) == 0; }

unsigned PeriodicCall::calls() { return all_calls; }

void *PeriodicCall::call(void *argument) {
    const auto &self = *static_cast<PeriodicCall *>(argument);
    ++all_calls;
    self.function_(self.part_);
    return nullptr;
}

void Timers::prepare() { expect(tick_.start(), "the timers start"); }

// Each tick of the timer thread feeds the dog, each turn of whoever watches makes it hungrier.
void Timers::turn() {
    timer_IncreaseDog();
    dog_ = timer_GetSoftDog();
    hungriest_ = std::max(hungriest_.load(), dog_.load());
    expect(dog_ < HUNGRY_DOG, "the timer thread is alive");
}

void Timers::conclude() {
    expect(eventually([this] { return ticks_ > 0; }), "the timer thread ticks");
    expect(tick_.end(), "the tick is deleted");
    expect(calls_by_the_library() == static_cast<int>(PeriodicCall::calls()), "the library counts every call");
}

Panel Timers::panel() const {
    return {format("dog %s %u turns hungry", bar(1.0 * dog_ / USUAL_DOG).c_str(), dog_.load()),
            format("%u ticks of 185 ms, %u calls", ticks_.load(), PeriodicCall::calls())};
}

std::string Timers::tally() const { return format("%u ticks", ticks_.load()); }

std::string Timers::summary() const {
    return format("%u ticks, %u calls as the library counts them; the dog was at most %u turns hungry", ticks_.load(),
                  PeriodicCall::calls(), hungriest_.load());
}

}  // namespace recorder

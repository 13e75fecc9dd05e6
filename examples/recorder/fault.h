// One kind of trouble, made for real, and what shows that the recorder copes with it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "eventually.h"

namespace recorder {

struct Fault {
    const char *kind;           // as people ask for it
    const char *trouble;        // what happens: "the cable is pulled"
    const char *notice;         // how the recorder takes it: "the loss of the link is seen"
    const char *relief = "";    // how it ends: "the cable is plugged in"
    const char *recovery = "";  // what shows that all is well again: "the second host answers again"
    std::function<bool()> make;
    std::function<void()> press = nullptr;  // where there is one: again and again, until it is noticed
    std::function<bool()> is_noticed;
    std::function<bool()> end = nullptr;  // none where the recorder's coping is the end of it
    std::function<bool()> is_recovered;
};

// A fault in the middle of a run: made after a third of the time, ended after two, and each of its steps waited for.
class FaultStory {
public:
    // Tells each step as it comes.
    using Tell = std::function<void(const std::string &step)>;

    // Without a fault the story is over before it begins, and all is well.
    FaultStory(const Fault *fault, Clock::time_point begin, Clock::duration length, Tell tell);

    // Goes on where it can. To be called often.
    void follow();
    // Ends the fault, wherever the story is.
    void break_off();

    bool is_over() const { return step_ == Step::RECOVERED || step_ == Step::FAILED; }
    bool is_coped_with() const { return step_ == Step::RECOVERED; }
    // What happened last, in words.
    const std::string &state() const { return state_; }

private:
    enum class Step { AHEAD, MADE, NOTICED, ENDED, RECOVERED, FAILED };

    void go_to(Step step, const std::string &words);
    void end();
    void wait_for(bool has_come, Step step, const char *words);

    const Fault *const fault_;
    const Clock::time_point make_at_;
    const Clock::time_point end_at_;
    const Tell tell_;
    Step step_;
    Clock::time_point patience_ends_;
    std::string state_;
};

}  // namespace recorder

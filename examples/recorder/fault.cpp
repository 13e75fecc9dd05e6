#include "fault.h"

#include <utility>

namespace recorder {

FaultStory::FaultStory(const Fault *fault, Clock::time_point begin, Clock::duration length, Tell tell)
    : fault_(fault),
      make_at_(begin + length / 3),
      end_at_(begin + length * 2 / 3),
      tell_(std::move(tell)),
      step_(fault == nullptr ? Step::RECOVERED : Step::AHEAD) {}

void FaultStory::go_to(Step step, const std::string &words) {
    step_ = step;
    state_ = words;
    patience_ends_ = Clock::now() + PATIENCE;
    tell_(std::string(fault_->kind) + ": " + words);
}

void FaultStory::wait_for(bool has_come, Step step, const char *words) {
    if (has_come) {
        go_to(step, words);
    } else if (Clock::now() > patience_ends_) {
        go_to(Step::FAILED, std::string("NOT so: ") + words);
    }
}

void FaultStory::end() {
    if (fault_->end == nullptr) {
        step_ = Step::ENDED;  // it is over when the recorder has coped with it
        patience_ends_ = Clock::now() + PATIENCE;
        return;
    }
    const bool is_ended = fault_->end();
    go_to(is_ended ? Step::ENDED : Step::FAILED, is_ended ? fault_->relief : "could not be ended");
}

void FaultStory::follow() {
    switch (step_) {
        case Step::AHEAD:
            if (Clock::now() >= make_at_) {
                const bool is_made = fault_->make();
                go_to(is_made ? Step::MADE : Step::FAILED, is_made ? fault_->trouble : "could not be made");
            }
            break;
        case Step::MADE:
            if (fault_->press != nullptr) {
                fault_->press();
            }
            wait_for(fault_->is_noticed(), Step::NOTICED, fault_->notice);
            break;
        case Step::NOTICED:
            if (Clock::now() >= end_at_) {
                end();
            }
            break;
        case Step::ENDED:
            wait_for(fault_->is_recovered(), Step::RECOVERED, fault_->recovery);
            break;
        case Step::RECOVERED:
        case Step::FAILED:
            break;
    }
}

void FaultStory::break_off() {
    if ((step_ == Step::MADE || step_ == Step::NOTICED) && fault_->end != nullptr) {
        fault_->end();
    }
}

}  // namespace recorder

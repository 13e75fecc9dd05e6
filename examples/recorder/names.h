// Names: resolved within a bounded time, also by a name server that never answers.
#pragma once

#include <atomic>

#include "subsystem.h"
#include "text.h"

namespace recorder {

class Names : public Subsystem {
public:
    Names() : Subsystem("names") {}

    unsigned given_up() const { return given_up_; }
    // From now on: a name server that hung may have answered a moment before.
    void forget_answers() { answers_since_ = 0; }
    bool has_answer() const { return answers_since_ > 0; }

    void conclude() override;
    Panel panel() const override;
    std::string tally() const override;
    std::string summary() const override;
    bool is_troubled() const override { return is_unanswered_; }

private:
    void turn() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(50); }

    SharedText address_;
    std::atomic<unsigned> asked_{0};
    std::atomic<unsigned> resolved_{0};
    std::atomic<unsigned> answers_since_{0};
    std::atomic<unsigned> given_up_{0};
    std::atomic<unsigned> longest_ms_{0};
    std::atomic<bool> is_unanswered_{false};
};

}  // namespace recorder

// The network: what this recorder has, whether somebody else has its address, and whether the second host is there.
#pragma once

#include <atomic>

#include "subsystem.h"
#include "text.h"

namespace recorder {

class Network : public Subsystem {
public:
    Network() : Subsystem("network") {}

    // Whether the loss of the link was seen: by the driver's word, or by silence where the driver says nothing.
    bool has_seen_loss() const { return times_down_ > 0 || (!driver_tells_ && unanswered_ > 0); }
    // From now on: what has been seen so far is no answer to a cable that is plugged in now.
    void forget_answers() { answers_since_ = 0; }
    bool has_answer() const { return is_up_ && answers_since_ > 0; }

    void prepare() override;
    void conclude() override;
    Panel panel() const override;
    std::string tally() const override;
    std::string summary() const override;
    bool is_troubled() const override { return !is_up_; }

private:
    void turn() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(150); }

    void look_at_link();
    void ping();
    void look_for_conflict();

    bool driver_tells_ = false;
    std::atomic<bool> is_up_{false};
    SharedText gateway_;
    unsigned turns_ = 0;
    std::atomic<unsigned> times_down_{0};
    std::atomic<unsigned> asked_{0};
    std::atomic<unsigned> answered_{0};
    std::atomic<unsigned> unanswered_{0};
    std::atomic<unsigned> answers_since_{0};
    std::atomic<unsigned> conflicts_{0};
    std::atomic<unsigned> delay_ms_{0};
};

}  // namespace recorder

// Tracked allocation: frames from a pool with a limit. Where the pool has no room, a frame is dropped and work goes on.
#pragma once

#include <atomic>
#include <deque>
#include <vector>

#include "subsystem.h"

namespace recorder {

class Encoder : public Subsystem {
public:
    Encoder() : Subsystem("memory") {}

    unsigned dropped() const { return dropped_; }
    // Another user of the pool, who takes what there is and keeps it until told to let go.
    void hoard();
    void release_hoard();

    void prepare() override;
    void conclude() override;
    Panel panel() const override;
    std::string tally() const override;
    std::string summary() const override;
    bool is_troubled() const override { return is_short_; }

private:
    void turn() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(40); }
    void give_back_oldest();

    std::deque<void *> frames_;
    std::atomic<unsigned> made_{0};
    std::atomic<unsigned> dropped_{0};
    std::atomic<unsigned> given_back_{0};
    std::atomic<bool> is_short_{false};

    std::vector<void *> hoard_;
    unsigned refused_to_hoard_ = 0;
    bool is_pools_empty_ = false;
};

}  // namespace recorder

// Snapshots: a timer orders them, a queue keeps the orders, the workers of the pool take them.
#pragma once

#include <velkor/concurrency.h>

#include <atomic>

#include "subsystem.h"
#include "timers.h"

namespace recorder {

class Snapshots : public Subsystem {
public:
    Snapshots() : Subsystem("snapshots") {}

    // A crowd of jobs, more than the 32 workers that a pool has: each begins at once, and ends when the crowd is let
    // go.
    static constexpr unsigned CROWD = 40;
    bool call_crowd();
    void let_crowd_go() { is_crowd_held_ = false; }
    unsigned crowd_begun() const { return crowd_begun_; }
    unsigned crowd_done() const { return crowd_done_; }

    void prepare() override;
    void conclude() override;
    Panel panel() const override;
    std::string tally() const override;
    std::string summary() const override;
    bool is_troubled() const override { return crowd_begun_ > crowd_done_; }

private:
    struct Order {
        Snapshots *all;
        unsigned number;
        const char *camera;
    };

    void turn() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(10); }

    void list_cameras();
    void order();
    void hand_out_orders();
    static void *take(void *order);

    PeriodicCall orders_by_timer_{2, [](void *part) { static_cast<Snapshots *>(part)->order(); }, this};
    sList cameras_{};
    SafeQueue orders_{};
    std::atomic<unsigned> ordered_{0};
    std::atomic<unsigned> taken_{0};
    std::atomic<unsigned> sum_of_taken_{0};  // of their numbers: none twice, none left out
    std::atomic<unsigned> at_work_{0};

    std::atomic<bool> is_crowd_held_{true};
    std::atomic<unsigned> crowd_begun_{0};
    std::atomic<unsigned> crowd_done_{0};
};

}  // namespace recorder

// Shell commands through the runner process: forked first of all, watched, and started again when it is gone.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

#include "subsystem.h"
#include "text.h"

namespace recorder {

class Commands : public Subsystem {
public:
    // Forks the runner. In the working directory, while the process is small and has one thread.
    Commands();
    // The library never ends the runner: whoever goes for good does.
    ~Commands() override;
    Commands(const Commands &) = delete;
    Commands &operator=(const Commands &) = delete;

    bool is_ready() const { return runner_ > 0; }
    pid_t runner() const { return runner_; }
    // While a call is under way that takes a while.
    bool is_waiting() const { return is_waiting_; }
    unsigned restarts() const { return restarts_; }
    unsigned answers_since_restart() const { return answers_since_restart_; }

    void prepare() override;
    void conclude() override;
    Panel panel() const override;
    std::string tally() const override;
    std::string summary() const override;
    bool is_troubled() const override { return restarts_ > 0 && answers_since_restart_ == 0; }

private:
    // A call that a worker of the pool makes. It is shared, because one whose runner died may never end.
    struct Call {
        std::function<void(Call &)> work;
        std::string output;
        int result = 0;
        bool is_broken = false;  // its output ended before it should have
        std::atomic<bool> is_done{false};
    };

    void turn() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(100); }

    bool has_runner_died();
    bool has_runner_broken(const Call &call);
    void restart();
    // Answers nothing when the runner died meanwhile.
    std::shared_ptr<Call> make(std::function<void(Call &)> work);
    void run_one(const char *command, int status);
    void look_at_disk();
    void look_for_tasks();
    void try_to_swap();

    std::atomic<pid_t> runner_{-1};
    std::atomic<bool> is_waiting_{false};
    std::atomic<unsigned> restarts_{0};
    std::atomic<unsigned> answers_since_restart_{0};
    std::atomic<unsigned> called_{0};
    std::atomic<unsigned> answered_{0};
    std::atomic<unsigned> lost_{0};
    std::atomic<int> disk_percent_{0};
    std::atomic<int> tasks_{0};
    SharedText swap_;
};

}  // namespace recorder

// For commands that run until somebody stops them and have to tidy up then.
#pragma once

#include <poll.h>
#include <signal.h>

#include <optional>
#include <span>
#include <string_view>

namespace tool {

// While it lives, SIGINT, SIGTERM and SIGHUP wait until the command waits: never in the middle of a step. A signal that
// was ignored from the start (nohup, a background job) stays ignored.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption &) = delete;
    Interruption &operator=(const Interruption &) = delete;

    static bool came();

    // poll() without a time limit; answers early, with all events 0, when somebody stops the command.
    void wait(std::span<struct pollfd> descriptors) const;

    // Writes all of it; false when the command was stopped before, or the reading end is gone. Throws a Failure when
    // the write fails otherwise.
    bool write_all(int descriptor, std::string_view text) const;

private:
    sigset_t outside_;
    struct sigaction before_[3];
};

}  // namespace tool

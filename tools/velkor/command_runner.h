// The library's command runner, for commands that need one.
#pragma once

#include <sys/types.h>

#include <string>

namespace tool {

// Forks the runner, and ends it by its id. Its shared memory is this process's own: a recorder that runs in the same
// directory is not disturbed. There is at most one at a time.
class CommandRunner {
public:
    CommandRunner();
    ~CommandRunner();
    CommandRunner(const CommandRunner &) = delete;
    CommandRunner &operator=(const CommandRunner &) = delete;

    pid_t process() const { return process_; }

private:
    pid_t process_;
};

// VkSystem(), with its refusals as Failures; answers the wait status.
int run_command(const std::string &command);

// What a shell would make of a wait status.
int exit_status_of(int wait_status);

}  // namespace tool

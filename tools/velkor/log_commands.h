// The commands of the family `log` that have a file of their own, and what they share.
#pragma once

#include <chrono>

#include "command_line.h"

namespace tool::log {

void add_follow(CLI::App &log, Run &chosen);
void add_write(CLI::App &log, Run &chosen);

// "--settle-ms": how long the switch file stays away for running processes to notice.
class Settling {
public:
    void add_to(CLI::App &command);
    std::chrono::milliseconds time() const { return std::chrono::milliseconds(milliseconds_); }

private:
    unsigned milliseconds_ = 200;
};

}  // namespace tool::log

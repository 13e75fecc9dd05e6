// The commands of the family `sys` that have a file of their own.
#pragma once

#include "command_line.h"

namespace tool::sys {

// What `velkor sys` does without a command of its own.
void add_statistics(CLI::App &sys, Run &chosen);

}  // namespace tool::sys

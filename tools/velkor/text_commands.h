// The commands of the family `text` that have a file of their own.
#pragma once

#include "command_line.h"

namespace tool::text {

void add_trigger(CLI::App &text, Run &chosen);

}  // namespace tool::text

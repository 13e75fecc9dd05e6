// A pseudo-terminal that other processes write to and this one reads.
#pragma once

#include <string>

#include "descriptor.h"

namespace tool {

// Answers the reading side; `path` is the other one's. What is written is what is read. Throws a Failure.
Descriptor open_pseudo_terminal(std::string &path);

}  // namespace tool

// What the recorder is asked to do.
#pragma once

#include <optional>
#include <string>

namespace recorder {

struct Options {
    int seconds = 8;
    std::string fault;  // empty: none
    bool help = false;
};

// Nothing when they cannot be understood; what is wrong is on standard error.
std::optional<Options> read_options(int argc, char **argv);

extern const char *const USAGE;

}  // namespace recorder

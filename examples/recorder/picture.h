// The live picture: a title, a panel for each part, and below them the last lines of the log.
#pragma once

#include <string>
#include <vector>

#include "recorder.h"
#include "screen.h"

namespace recorder {

// Exactly as many rows as the screen has, each exactly as wide as it is, colours not counted.
std::vector<std::string> picture_of(const Recorder &recorder, const std::string &title, bool is_calm, Size size,
                                    bool is_coloured);

}  // namespace recorder

// Files as texts.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

// Reads to the end; throws a Failure that names the path.
std::string read_all(int descriptor, const std::string &path);

// The lines of a text, each with its end.
std::vector<std::string> lines_of(std::string_view text);

}  // namespace tool

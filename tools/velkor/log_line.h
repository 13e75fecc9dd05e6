// One line of the log, as a person and as a program want to see it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "output.h"

namespace tool::log {

// "[2026/11/15 10:25:17] [1234 module]message". What does not look like that is all message.
struct Line {
    std::string_view stamp;  // without brackets
    std::string_view thread;
    std::string_view module;
    std::string_view message;

    explicit Line(std::string_view text);

    bool has_head() const { return !stamp.empty(); }
};

std::string for_people(const Line &line, const Palette &palette);
Json for_programs(const Line &line);

// The rule of the log itself: one of the first, if there are any, and none of the second.
class TextFilter {
public:
    TextFilter(std::vector<std::string> wanted, std::vector<std::string> unwanted);
    bool keeps(std::string_view line) const;

private:
    std::vector<std::string> wanted_;
    std::vector<std::string> unwanted_;
};

}  // namespace tool::log

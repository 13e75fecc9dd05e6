// Which lines of a text go and which come.
#pragma once

#include <string>
#include <vector>

namespace tool {

struct DiffLine {
    enum class Kind { same, removed, added };

    Kind kind;
    std::string text;

    bool operator==(const DiffLine &) const = default;
};

// Patience diff, after B. Cohen: lines that occur once on each side, in the longest run that keeps their order, hold
// the sides together; what lies between two of them is compared in the same way, and taken out as a whole in the end.
std::vector<DiffLine> difference_of(const std::vector<std::string> &before, const std::vector<std::string> &after);

}  // namespace tool

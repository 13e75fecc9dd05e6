// What becomes of an INI file's lines: in a load, and when it is written back.
#pragma once

#include <string>
#include <vector>

namespace tool::ini {

// A line that does not do what its writer may think.
struct Note {
    size_t line;
    std::string text;
    std::string why;
};

// In the order of the lines.
std::vector<Note> notes_on(const std::string &content);

}  // namespace tool::ini

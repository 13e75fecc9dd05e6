// An INI file as the library reads it: whole, and line by line. The format's rules are asked of the library, not
// repeated here.
#pragma once

#include <velkor/configuration.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool::ini {

// What the library takes for white space.
inline constexpr std::string_view WHITE = " \t\n\v\f\r";

struct Freed {
    void operator()(dictionary *d) const { iniparser_freedict(d); }
};
using Loaded = std::unique_ptr<dictionary, Freed>;

// Both throw a Failure.
std::string read_file(const std::string &path);
Loaded load_text(std::string_view content);

// What a recorder would write.
std::string written_back(const dictionary &d);

// Letters as the library lowers them, whatever the length.
std::string lower(std::string text);

struct Entry {
    std::string key;
    std::optional<std::string> value;  // none for a section

    auto operator<=>(const Entry &) const = default;  // NOLINT(modernize-use-nullptr): the check errs about this line
};

// In the order of the file.
std::vector<Entry> entries_of(const dictionary &d);

// What the library reads at a time: a line, or a part of an overlong one.
struct Piece {
    enum class Kind { blank, comment, section, setting, unreadable };

    size_t line;   // from 1
    size_t begin;  // in the file
    std::string text;
    bool goes_on;  // it does not begin its line
    Kind kind;
    std::string key;                     // of a section or setting, as the dictionary has it
    std::string value;                   // of a setting
    std::optional<std::string> comment;  // on the line, as far as it is kept

    size_t end() const { return begin + text.size(); }
};

std::vector<Piece> pieces_of(const std::string &content);

// Bytes at the begin of a file that are no text.
size_t length_of_byte_order_mark(std::string_view content);

}  // namespace tool::ini

// What a line of an INI file says.
//
// The format was defined by eight scanf() patterns, tried in this order; the first that fills the fields in
// parentheses decides:
//
//     "[%512[^]] ] %512[^\n]"               section, with text behind it          (2)
//     "[%512[^]]"                           section                               (1)
//     "%512[^=] = \"%512[^\"]\" %512[^\n]"  value in double quotes, text behind   (3)
//     "%512[^=] = \"%512[^\"]\""            value in double quotes                (2)
//     "%512[^=] = '%512[^']' %512[^\n]"     value in single quotes, text behind   (3)
//     "%512[^=] = '%512[^']'"               value in single quotes                (2)
//     "%512[^=] = %512[^;] %512[^\n]"       plain value, text from the ';' on     (3)
//     "%512[^=] = %512[^;]"                 plain value                           (2)
//
// The code below decides as they do, in one pass: a field takes at least one character and at most 512, a blank in a
// pattern skips any white space or none, and a pattern that fails keeps what its fields took before that.
#pragma once

#include <stddef.h>

#include <algorithm>
#include <string_view>

#include "iniparser/text_head.h"

namespace velkor::ini {

inline constexpr size_t FIELD_LENGTH = 512;

constexpr bool is_white(char character) { return character == ' ' || (character >= '\t' && character <= '\r'); }

constexpr std::string_view without_leading_white(std::string_view text) {
    while (!text.empty() && is_white(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

constexpr std::string_view without_trailing_white(std::string_view text) {
    while (!text.empty() && is_white(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

enum class LineType { unreadable, section, setting };

struct Line {
    LineType type;
    std::string_view name;   // of the section or setting; in an unreadable line what was taken for a key, if anything
    std::string_view value;  // as written, without its quotes
    std::string_view trailing;  // text behind; empty when there is none
};

// Reads a line from its begin on.
class LineReader {
public:
    explicit constexpr LineReader(std::string_view text) : rest_(text) {}

    constexpr Line read() {
        LineReader inside(*this);
        const std::string_view name = inside.skip('[') ? inside.take_until(']') : std::string_view();
        return !name.empty() ? inside.section(name) : setting();
    }

private:
    constexpr Line section(std::string_view name) {
        skip_white();
        return {LineType::section, name, {}, skip(']') ? text_behind() : std::string_view()};
    }

    constexpr Line setting() {
        const std::string_view key = take_until('=');
        if (key.empty()) {
            return {LineType::unreadable, {}, {}, {}};
        }
        skip_white();
        if (!skip('=')) {
            return {LineType::unreadable, key, {}, {}};
        }
        skip_white();
        for (const char quote : {'"', '\''}) {
            LineReader inside(*this);
            const std::string_view value = inside.skip(quote) ? inside.take_until(quote) : std::string_view();
            if (!value.empty()) {
                // A missing closing quote is forgiven, but nothing stands behind it then.
                return {LineType::setting, key, value, inside.skip(quote) ? inside.text_behind() : std::string_view()};
            }
        }
        const std::string_view value = take_until(';');
        if (value.empty()) {
            return {LineType::unreadable, key, {}, {}};
        }
        return {LineType::setting, key, value, text_behind()};
    }

    constexpr bool skip(char character) {
        const bool is_next = !rest_.empty() && rest_.front() == character;
        rest_.remove_prefix(is_next ? 1 : 0);
        return is_next;
    }

    constexpr void skip_white() { rest_ = without_leading_white(rest_); }

    constexpr std::string_view take_until(char stop) {
        const std::string_view taken = text_head(rest_, std::min(rest_.find(stop), FIELD_LENGTH));
        rest_.remove_prefix(taken.size());
        return taken;
    }

    constexpr std::string_view text_behind() {
        skip_white();
        return take_until('\n');
    }

    std::string_view rest_;
};

}  // namespace velkor::ini

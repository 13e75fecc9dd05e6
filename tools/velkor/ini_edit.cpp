#include "ini_edit.h"

#include <algorithm>

#include "exit_status.h"
#include "ini_file.h"

namespace tool::ini {

namespace {

using Entries = std::vector<Entry>;
using Pieces = std::vector<Piece>;

// What processes know after they read a file, but for the order.
struct Knowledge {
    Entries entries;
    std::vector<std::string> comments;

    bool operator==(const Knowledge &) const = default;
};

// Without the comments on the line of one setting, and without blank lines, which a change may add.
Knowledge knowledge_of(std::string_view content, const std::string &but_comments_of = "") {
    const Loaded d = load_text(content);
    const uint32_t anchor = dictionary_hash(but_comments_of.c_str());
    Knowledge known = {entries_of(*d), {}};
    for (int32_t slot = 0; slot < d->comment_count; ++slot) {
        const char *const text = d->comment_texts[slot];
        const bool is_left_out = d->comment_kinds[slot] == COMMENT_TRAILING && !but_comments_of.empty() &&
                                 d->comment_anchors[slot] == anchor;
        if (text != nullptr && !is_left_out) {
            known.comments.emplace_back(text);
        }
    }
    std::ranges::sort(known.entries);
    return known;
}

Entries with_entry(Entries entries, const Entry &entry) {
    std::erase_if(entries, [&](const Entry &other) { return other.key == entry.key; });
    entries.push_back(entry);
    std::ranges::sort(entries);
    return entries;
}

// ---- A line with another value ----

// A setting's line, taken apart: "  Key = ", the value as written, "  ; note\r\n".
struct Line {
    std::string head;
    std::string value;
    std::string tail;
};

Line take_apart(const Piece &piece) {
    const std::string &text = piece.text;
    const size_t equals = text.find('=');
    const size_t begin = std::min(text.find_first_not_of(WHITE, equals + 1), text.size());
    const std::string comment = piece.comment.value_or("");
    size_t end = text.size() - (text.ends_with('\n') ? 1 : 0);
    if (text.substr(0, end).ends_with(comment)) {
        end -= comment.size();
    } else {
        end = std::min(end, text.find(comment, begin));  // only the begin of a long comment is known
    }
    end = std::max(begin, text.substr(0, end).find_last_not_of(WHITE) + 1);
    return {text.substr(0, begin), text.substr(begin, end - begin), text.substr(end)};
}

// The ways to write a value, that of the old one first.
std::vector<std::string> spellings(const std::string &value, const std::string &old) {
    std::vector<std::string> ways = {value, "\"" + value + "\"", "'" + value + "'"};
    if (old.starts_with('"')) {
        std::swap(ways[0], ways[1]);
    } else if (old.starts_with('\'')) {
        std::rotate(ways.begin(), ways.begin() + 2, ways.end());
    }
    return ways;
}

// Nothing but two quotes right before a semicolon reads as an empty value.
std::string with_empty_value(const Line &line) {
    const size_t comment = line.tail.find_first_not_of(WHITE);
    const bool has_semicolon = comment != std::string::npos && line.tail[comment] == ';';
    return line.head + "\"\"" + (has_semicolon ? line.tail.substr(comment) : ";" + line.tail);
}

std::vector<std::string> lines_with_value(const Line &line, const std::string &value) {
    if (value.empty()) {
        return {with_empty_value(line)};
    }
    std::vector<std::string> lines;
    for (const std::string &spelling : spellings(value, line.value)) {
        lines.push_back(line.head + spelling + line.tail);
    }
    return lines;
}

// ---- A new line ----

std::string line_end_of(const std::string &content) {
    const size_t newline = content.find('\n');
    return newline != std::string::npos && newline > 0 && content[newline - 1] == '\r' ? "\r\n" : "\n";
}

// The key's section: the longest one that is there, or else what stands before the first colon.
std::string section_of(const std::string &key, const Pieces &pieces) {
    std::string longest = key.substr(0, key.find(':'));
    for (const Piece &piece : pieces) {
        if (piece.kind == Piece::Kind::section && lower(key).starts_with(piece.key + ":") &&
            piece.key.size() > longest.size()) {
            longest = key.substr(0, piece.key.size());
        }
    }
    return longest;
}

// Behind the last setting of the section, or its header; npos when the section is not there. Settings without section
// stand before all others.
size_t place_in_section(const std::string &section, const Pieces &pieces, size_t begin) {
    size_t place = section.empty() ? begin : std::string::npos;
    bool inside = section.empty();
    for (const Piece &piece : pieces) {
        if (piece.kind == Piece::Kind::section) {
            if (inside && place != std::string::npos) {
                break;
            }
            inside = piece.key == lower(section);
        }
        if (inside && (piece.kind == Piece::Kind::section || piece.kind == Piece::Kind::setting)) {
            place = piece.end();
        }
    }
    return place;
}

std::string with_line_at(const std::string &content, size_t place, const std::string &line, const std::string &end) {
    const bool is_open = place > length_of_byte_order_mark(content) && content[place - 1] != '\n';
    return content.substr(0, place) + (is_open ? end : "") + line + content.substr(place);
}

std::vector<std::string> contents_with_new_setting(const std::string &content, const Pieces &pieces,
                                                   const std::string &key, const std::string &value) {
    const std::string section = section_of(key, pieces);
    const std::string end = line_end_of(content);
    const size_t place = place_in_section(section, pieces, length_of_byte_order_mark(content));
    const bool is_new_section = place == std::string::npos;
    const std::string header = is_new_section ? (content.empty() ? "" : end) + "[" + section + "]" + end : "";
    std::vector<std::string> contents;
    for (const std::string &line : lines_with_value({key.substr(section.size() + 1) + " = ", "", end}, value)) {
        contents.push_back(with_line_at(content, is_new_section ? content.size() : place, header + line, end));
    }
    return contents;
}

std::vector<std::string> contents_with_setting(const std::string &content, const std::string &key,
                                               const std::string &value) {
    const Pieces pieces = pieces_of(content);
    const auto found = std::ranges::find_if(
        pieces, [&](const Piece &piece) { return piece.kind == Piece::Kind::setting && piece.key == lower(key); });
    if (found == pieces.end()) {
        return contents_with_new_setting(content, pieces, key, value);
    }
    std::vector<std::string> contents;
    for (const std::string &line : lines_with_value(take_apart(*found), value)) {
        contents.push_back(content.substr(0, found->begin) + line + content.substr(found->end()));
    }
    return contents;
}

}  // namespace

std::string with_setting(const std::string &content, const std::string &key, const std::string &value) {
    // An empty value needs a semicolon behind it, which is a comment.
    const std::string name = lower(key);
    const std::string may_change = value.empty() ? name.substr(name.starts_with(':') ? 1 : 0) : "";
    Knowledge wanted = knowledge_of(content, may_change);
    wanted.entries = with_entry(std::move(wanted.entries), {name, value});
    const Entry section = {lower(section_of(key, pieces_of(content))), std::nullopt};
    if (!section.key.empty() && std::ranges::find(wanted.entries, section.key, &Entry::key) == wanted.entries.end()) {
        wanted.entries = with_entry(std::move(wanted.entries), section);
    }
    for (const std::string &changed : contents_with_setting(content, key, value)) {
        if (knowledge_of(changed, may_change) == wanted) {
            return changed;
        }
    }
    throw Failure(NEGATIVE, "an INI file cannot hold this: a process would not read \"" + value + "\" under \"" + key +
                                "\", or not read the rest as it is");
}

std::string without_key(const std::string &content, const std::string &key) {
    const std::string wanted_key = lower(key);
    std::string changed = content.substr(0, length_of_byte_order_mark(content));
    Entries wanted = knowledge_of(content).entries;
    bool inside = false;
    bool found = false;
    for (const Piece &piece : pieces_of(content)) {
        if (piece.kind == Piece::Kind::section) {
            inside = piece.key == wanted_key;
        }
        if (inside || (piece.kind == Piece::Kind::setting && piece.key == wanted_key)) {
            found = true;
            std::erase_if(wanted, [&](const Entry &entry) { return entry.key == piece.key; });
        } else {
            changed += piece.text;
        }
    }
    if (!found) {
        throw Failure(NEGATIVE, "there is no \"" + key + "\"");
    }
    if (knowledge_of(changed).entries != wanted) {
        throw Failure(NEGATIVE, "\"" + key + "\" cannot be removed alone: a process would not read the rest as it is");
    }
    return changed;
}

}  // namespace tool::ini

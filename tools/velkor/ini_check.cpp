#include "ini_check.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>

#include "ini_file.h"

namespace tool::ini {

namespace {

constexpr size_t LONGEST_FIELD = 512;
constexpr size_t LONGEST_ANCHOR = 1023;

std::string without_end(std::string text) {
    text.resize(std::min(text.size(), text.find_last_not_of("\r\n") + 1));
    return text;
}

std::string_view without_indentation(std::string_view text) {
    text.remove_prefix(std::min(text.size(), text.find_first_not_of(WHITE)));
    return text;
}

// The first line of each name.
using FirstLines = std::map<std::string, size_t>;

class Checker {
public:
    explicit Checker(const std::string &content) : pieces_(pieces_of(content)), loaded_(load_text(content)) {}

    std::vector<Note> check() {
        for (const Piece &piece : pieces_) {
            check_reading(piece);
        }
        check_entries_after_write_back();
        check_comments_after_write_back();
        std::ranges::stable_sort(notes_, {}, &Note::line);
        return std::move(notes_);
    }

private:
    void note(const Piece &piece, const std::string &why) {
        notes_.push_back({piece.line, without_end(piece.text), why});
    }

    // ---- In a load ----

    void check_reading(const Piece &piece) {
        if (piece.goes_on) {
            note(piece, "the line is longer than 1023 characters: this rest is read as a line of its own");
        }
        if (piece.text.find('\0') != std::string::npos) {
            note(piece, "a zero byte ends the line: what follows on it is dropped");
        }
        if (piece.kind == Piece::Kind::unreadable) {
            note(piece, why_unreadable(piece) + ": kept as a blank line only");
        } else if (piece.kind == Piece::Kind::section || piece.kind == Piece::Kind::setting) {
            check_entry(piece);
        } else if (piece.kind == Piece::Kind::comment && without_indentation(piece.text).size() > LONGEST_FIELD) {
            note(piece, "a comment keeps 512 characters, and not its line end");
        }
    }

    static std::string why_unreadable(const Piece &piece) {
        const std::string_view text = without_indentation(piece.text);
        const size_t equals = text.find('=');
        if (text.starts_with('\0')) {
            return "begins with a zero byte";
        }
        if (equals == std::string_view::npos) {
            return "no \"=\"";
        }
        if (equals == 0) {
            return "no name before \"=\"";
        }
        return equals > LONGEST_FIELD ? "a name of more than 512 characters" : "no value";
    }

    void check_entry(const Piece &piece) {
        const bool is_section = piece.kind == Piece::Kind::section;
        const auto [first, is_new] = first_lines_.emplace(piece.key, piece.line);
        if (!is_new) {
            const std::string line = "line " + std::to_string(first->second);
            note(piece, is_section ? "the section of " + line + " goes on" : "dropped: repeats " + line);
        }
        if (is_section && piece.text.find(']') == std::string::npos) {
            note(piece, "no \"]\": the name runs to the end of the line");
        }
        if (is_section ? is_name_cut(piece) : is_value_cut(piece)) {
            note(piece, is_section         ? "a name keeps 512 characters"
                        : is_quoted(piece) ? "a value in quotes keeps 512 characters: the rest is dropped"
                                           : "a value keeps 512 characters: the rest is kept behind it like a comment, "
                                             "512 of it");
        } else if (is_comment_cut(piece)) {
            note(piece, "a comment keeps 512 characters");
        }
        if (piece.key.size() > 1024) {
            note(piece, "section and name have more than 1024 characters: no process finds it");
        }
    }

    static bool is_name_cut(const Piece &piece) {
        const std::string_view text = without_indentation(piece.text);
        const std::string_view rest = text.substr(std::min(text.size(), 1 + LONGEST_FIELD));  // behind "[" and the name
        return piece.key.size() == LONGEST_FIELD && !rest.starts_with(']') && !without_indentation(rest).empty();
    }

    static bool is_value_cut(const Piece &piece) {
        const std::string_view value = written_value(piece);
        if (is_quoted(piece)) {
            const std::string_view rest = value.substr(std::min(value.size(), 1 + LONGEST_FIELD));  // behind the quote
            return value.substr(1, LONGEST_FIELD + 1).find(value.front()) == std::string_view::npos &&
                   !without_indentation(rest).empty();
        }
        return piece.comment && !piece.comment->starts_with(';');
    }

    static bool is_comment_cut(const Piece &piece) {
        const std::string text = without_end(piece.text);
        const size_t comment =
            piece.comment ? text.find(*piece.comment, text.find('=') + 1 + piece.value.size()) : text.npos;
        return comment != std::string::npos && text.size() > comment + LONGEST_FIELD;
    }

    static std::string_view written_value(const Piece &piece) {
        const std::string_view text(piece.text.c_str());
        return without_indentation(text.substr(text.find('=') + 1));
    }

    // A value in quotes has something between them.
    static bool is_quoted(const Piece &piece) {
        const std::string_view value = written_value(piece);
        return value.size() > 1 && (value.front() == '"' || value.front() == '\'') && value[1] != value.front();
    }

    // ---- In a write-back ----

    void note_key(const std::string &key, const std::string &why) {
        const auto first = std::ranges::find_if(pieces_, [&](const Piece &piece) {
            return piece.key == key && (piece.kind == Piece::Kind::section || piece.kind == Piece::Kind::setting);
        });
        if (first != pieces_.end()) {
            note(*first, why);
        }
    }

    void check_entries_after_write_back() {
        const Loaded again = load_text(written_back(*loaded_));
        for (const Entry &entry : entries_of(*loaded_)) {
            if (entry.key.size() > 1024) {
                continue;  // said already
            }
            const bool is_there = iniparser_find_entry(again.get(), entry.key.c_str()) == 1;
            const char *const value = iniparser_getstr(again.get(), entry.key.c_str());
            if (!is_there) {
                note_key(entry.key, why_lost(entry));
            } else if (entry.value && (value == nullptr || *entry.value != value)) {
                note_key(entry.key,
                         std::string("reads \"") + (value != nullptr ? value : "") + "\" after a write-back");
            }
        }
    }

    std::string why_lost(const Entry &entry) const {
        if (entry.key.starts_with(':')) {
            return iniparser_getnsec(loaded_.get()) > 0
                       ? "stands before the first section: a write-back drops it"
                       : "there is no section: a write-back writes it twice, under another name";
        }
        if (!entry.value) {
            return "a section whose name holds a \":\" is no section for a write-back: it drops it";
        }
        if (entry.value->empty()) {
            return "an empty value is written as blanks, which read as nothing: a write-back loses it";
        }
        return "a write-back drops it";
    }

    // A comment is written behind the entry to whose name it is anchored.
    std::set<uint32_t> written_anchors() const {
        std::set<uint32_t> anchors = {COMMENT_ANCHOR_HEAD};
        const bool has_sections = iniparser_getnsec(loaded_.get()) > 0;
        for (const Entry &entry : entries_of(*loaded_)) {
            const size_t colon = entry.key.find(':');
            const std::string section = entry.key.substr(0, colon);
            if (!has_sections || colon == std::string::npos ||
                dictionary_get(loaded_.get(), section.c_str(), "") == nullptr) {
                anchors.insert(dictionary_hash(entry.key.c_str()));
            }
        }
        return anchors;
    }

    // Comments are stored in the order of their lines, and no line has two.
    void check_comments_after_write_back() {
        const std::set<uint32_t> anchors = written_anchors();
        int32_t slot = 0;
        for (const Piece &piece : pieces_) {
            const bool is_entry = piece.kind == Piece::Kind::section || piece.kind == Piece::Kind::setting;
            if (is_entry && !piece.comment) {
                continue;
            }
            const bool is_kept = slot >= loaded_->comment_count || anchors.contains(loaded_->comment_anchors[slot]);
            if (!is_kept && piece.comment) {
                note(piece,
                     is_entry && piece.key.size() > LONGEST_ANCHOR
                         ? "its comment is lost in a write-back: section and name are too long"
                         : "a write-back loses the comment: it does not follow a section or setting that is written");
            }
            ++slot;
        }
    }

    std::vector<Piece> pieces_;
    Loaded loaded_;
    FirstLines first_lines_;
    std::vector<Note> notes_;
};

}  // namespace

std::vector<Note> notes_on(const std::string &content) { return Checker(content).check(); }

}  // namespace tool::ini

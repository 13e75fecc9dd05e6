// INI files: reading them, and looking up and changing what they say. Writing them back is in iniparser_dump.cpp.
//
// A loaded file is a dictionary. Sections are entries without value, settings are entries "section:key", all in lower
// case. Comments are kept beside the entries, each with the hash of the name that was read last before it.
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string_view>

#include <velkor/configuration.h>

#include "iniparser/line.h"
#include "iniparser/text_head.h"
#include "support/dictionary_arrays.h"
#include "support/number_text.h"
#include "support/open_file.h"
#include "support/owners.h"
#include "support/platform.h"
#include "support/racing_bytes.h"
#include "support/uninterrupted.h"

using std::string_view;
using velkor::text_head;
using velkor::ini::FIELD_LENGTH;
using velkor::ini::without_leading_white;
using velkor::ini::without_trailing_white;

// ---- Text helpers -------------------------------------------------------------------------------------------------

namespace {

constexpr size_t TEXT_LENGTH = 1024;
constexpr size_t BLOCK = 16;
constexpr size_t TEXT_SIZE = TEXT_LENGTH + BLOCK;

void change_case_of_block(char *block, char first) {
    for (size_t i = 0; i < BLOCK; ++i) {
        const auto letter = static_cast<unsigned char>(block[i] - first);
        block[i] = static_cast<char>(letter < 26 ? block[i] ^ ('a' ^ 'A') : block[i]);
    }
}

// What a helper works on, in memory that no other thread knows. Zeros follow the text to the end of its last block.
class OwnText {
public:
    explicit OwnText(string_view text) : length_(std::min(text.size(), TEXT_LENGTH)) {
        // Of a length that it knows to be small the compiler makes one instruction, which takes long to begin.
        __asm__("" : "+r"(length_));
        memcpy(text_, text.data(), length_);
        memset(text_ + length_, 0, BLOCK);
    }

    // Turns the letters from `first` on into those of the other case, a block at a time, which the compiler turns into
    // vector operations. Letters are those of the C locale, whatever the program's locale is.
    void change_case(char first) {
        for (size_t begin = 0; begin < length_; begin += BLOCK) {
            change_case_of_block(text_ + begin, first);
        }
    }

    void crop() {
        const size_t length = without_trailing_white(view()).size();
        memset(text_ + length, 0, length_ - length);
        length_ = length;
    }

    const char *get() const { return text_; }
    string_view view() const { return {text_, length_}; }

    // The text with its terminator, in whole blocks.
    size_t size_in_blocks() const { return length_ / BLOCK * BLOCK + BLOCK; }

private:
    size_t length_;
    alignas(BLOCK) char text_[TEXT_SIZE];
};

// The buffer of a text helper, which every thread may write to at any time, without a lock. Finished texts alone are
// copied into it, and nothing that is read here decides where a thread writes next: what two of them leave is a mixture
// of both, and always ends within the buffer.
class SharedText {
public:
    // Every byte: whoever has the buffer may have written anywhere in it.
    char *show(const OwnText &text) {
        put(text, TEXT_SIZE);
        return text_;
    }

    // To clear all of the buffer would be a fifth of a look-up.
    void leave(const OwnText &text) { put(text, std::min(used_.load(std::memory_order_relaxed), TEXT_SIZE)); }

    bool holds(const char *text) const { return address(text) - address(text_) < TEXT_SIZE; }

private:
    static uintptr_t address(const char *text) { return reinterpret_cast<uintptr_t>(text); }

    void put(const OwnText &text, size_t used) {
        const size_t size = text.size_in_blocks();
        velkor::store_racing(text_, text.get(), size);
        velkor::clear_racing(text_ + size, std::max(used, size) - size);
        used_.store(size, std::memory_order_relaxed);
    }

    std::atomic<size_t> used_{0};  // bytes of the text that was put there last, in whole blocks
    alignas(BLOCK) char text_[TEXT_SIZE] = "";
};

// Side by side, so that one comparison tells whether a text is in any of them.
struct {
    SharedText lower_case;
    SharedText upper_case;
    SharedText cropped;
    SharedText stripped;
} results;

bool is_in_results(const char *text) {
    return reinterpret_cast<uintptr_t>(text) - reinterpret_cast<uintptr_t>(&results) < sizeof results;
}

// A caller's text, to be read more than once. Where it is a helper's result, which other threads may change, it is a
// copy of that. A helper clears its buffer before it reads: what lies in `cleared` is an empty text.
class Argument {
public:
    explicit Argument(const char *text, const SharedText *cleared = nullptr)
        : text_(is_in_results(text) ? copy_of_result(text, cleared) : text) {}
    Argument(const Argument &) = delete;
    Argument &operator=(const Argument &) = delete;

    const char *get() const { return text_; }
    string_view head() const { return {text_, strnlen(text_, TEXT_LENGTH)}; }

private:
    const char *copy_of_result(const char *text, const SharedText *cleared) {
        size_t length = 0;
        if (cleared == nullptr || !cleared->holds(text)) {
            while (length < TEXT_LENGTH && (copy_[length] = velkor::load_racing_byte(text + length)) != '\0') {
                ++length;
            }
        }
        copy_[length] = '\0';
        return copy_;
    }

    char copy_[TEXT_LENGTH + 1];  // used for results alone
    const char *text_;
};

OwnText in_lower_case(string_view text) {
    OwnText own(text);
    own.change_case('A');
    return own;
}

}  // namespace

char *strlwc(const char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    const Argument argument(text, &results.lower_case);
    return results.lower_case.show(in_lower_case(argument.head()));
}

char *strupc(const char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    const Argument argument(text, &results.upper_case);
    OwnText own(argument.head());
    own.change_case('a');
    return results.upper_case.show(own);
}

char *strskp(const char *text) {
    while (text != nullptr && velkor::ini::is_white(velkor::load_racing_byte(text))) {
        ++text;
    }
    return const_cast<char *>(text);
}

char *strcrop(const char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    const Argument argument(text, &results.cropped);
    OwnText own(argument.head());
    own.crop();
    return results.cropped.show(own);
}

char *strstrip(const char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    const Argument argument(text, &results.stripped);
    const char *const begin = strskp(argument.get());
    OwnText own({begin, strnlen(begin, TEXT_LENGTH)});
    own.crop();
    return results.stripped.show(own);
}

// ---- Names --------------------------------------------------------------------------------------------------------

namespace {

// A text built of pieces, which stops growing where its buffer ends.
template <size_t SIZE>
class BoundedText {
public:
    BoundedText() { text_[0] = '\0'; }
    explicit BoundedText(string_view text) { append(text); }

    void append(string_view piece) {
        piece = text_head(piece, SIZE - 1 - length_);
        std::copy(piece.begin(), piece.end(), text_ + length_);
        length_ += piece.size();
        text_[length_] = '\0';
    }

    void clear() {
        length_ = 0;
        text_[0] = '\0';
    }

    const char *get() const { return text_; }
    string_view view() const { return {text_, length_}; }

private:
    size_t length_ = 0;
    char text_[SIZE];
};

using EntryName = BoundedText<2049>;
using AnchorName = BoundedText<1024>;

// "section:key"; a section alone has no key.
EntryName entry_name(string_view section, const char *key) {
    EntryName name(section);
    if (key != nullptr) {
        name.append(":");
        name.append(key);
    }
    return name;
}

uint32_t anchor_of(string_view section, string_view key) {
    if (section.empty() && key.empty()) {
        return COMMENT_ANCHOR_HEAD;
    }
    AnchorName name(section);
    if (!section.empty() && !key.empty()) {
        name.append(":");
    }
    name.append(key);
    return dictionary_hash(name.get());
}

bool has_entry(const dictionary &d, const char *name) {
    static const char absent = '\0';
    return dictionary_get(&d, name, &absent) != &absent;
}

}  // namespace

// ---- Entries and comments -----------------------------------------------------------------------------------------

int iniparser_add_entry(dictionary *d, const char *section, const char *key, const char *value) {
    if (d == nullptr || section == nullptr) {
        return -1;
    }
    return dictionary_add(d, entry_name(section, key).get(), value) == 0 ? 0 : 1;
}

namespace {

constexpr int32_t NO_SLOT = -1;

bool has_room_for_comment(dictionary &d) {
    return velkor::comment_slots(d) > 0 &&
           (d.comment_count != d.comment_size ||
            velkor::double_arrays(d.comment_size, d.comment_texts, d.comment_anchors, d.comment_kinds));
}

int32_t lowest_free_comment(const dictionary &d) {
    const void *const free_kind = memchr(d.comment_kinds, 0, static_cast<size_t>(d.comment_size));
    return free_kind != nullptr ? static_cast<int32_t>(static_cast<const uint8_t *>(free_kind) - d.comment_kinds)
                                : NO_SLOT;
}

// False without memory for it.
bool add_comment(dictionary &d, uint32_t anchor, const char *text, unsigned char kind) {
    if (!has_room_for_comment(d)) {
        return false;
    }
    const bool is_empty = text == nullptr || *text == '\0';
    const int32_t slot = lowest_free_comment(d);
    char *const own_text = is_empty ? nullptr : velkor::own_copy(text);
    if (slot == NO_SLOT || (own_text == nullptr && !is_empty)) {
        free(own_text);
        return false;
    }
    free(d.comment_texts[slot]);
    d.comment_texts[slot] = own_text;
    d.comment_anchors[slot] = anchor;
    d.comment_kinds[slot] = kind;
    ++d.comment_count;
    return true;
}

}  // namespace

int iniparser_add_comment(dictionary *d, const char *section, const char *key, const char *text, unsigned char kind) {
    if (d == nullptr || section == nullptr || key == nullptr || kind == 0) {
        return -1;
    }
    return add_comment(*d, anchor_of(section, key), text, kind) ? 0 : -1;
}

// ---- The name that was lowered last -------------------------------------------------------------------------------

namespace {

// Names are left one at a time, and nobody waits for that: a thread that finds another one at it leaves none, as if it
// had come first and the other's name had taken the place of its own.
std::atomic<bool> is_name_being_left{false};

__attribute__((constructor)) void survive_fork() {
    velkor::when_forked([] { is_name_being_left.store(false, std::memory_order_relaxed); });
}

// strlwc()'s buffer is where callers have always found it.
void leave_name(const OwnText &name) {
    if (!is_name_being_left.exchange(true, std::memory_order_acquire)) {
        results.lower_case.leave(name);
        is_name_being_left.store(false, std::memory_order_release);
    }
}

OwnText lower_name(string_view text) {
    const OwnText name = in_lower_case(text);
    leave_name(name);
    return name;
}

}  // namespace

// ---- Loading ------------------------------------------------------------------------------------------------------

namespace {

// What is no file on a disk may have nothing to say yet, or never: a FIFO that nobody writes to, a terminal.
constexpr int LONGEST_SILENCE_MS = 5000;

// A file in pieces: up to a newline or to 1023 characters, as fgets() gives them.
class PieceReader {
public:
    explicit PieceReader(int file) : file_(file) {}

    void skip_byte_order_mark() {
        constexpr string_view MARK = "\xEF\xBB\xBF";
        fill(MARK.size());
        if (text_head(unread(), MARK.size()) == MARK) {
            begin_ += MARK.size();
        }
    }

    // Answers an empty piece at the end of the file. The piece is valid until the next call.
    string_view next() {
        size_t newline = text_head(unread(), PIECE_LENGTH).find('\n');
        if (newline == string_view::npos) {
            fill(PIECE_LENGTH);
            newline = text_head(unread(), PIECE_LENGTH).find('\n');
        }
        const string_view piece = text_head(unread(), std::min(newline, PIECE_LENGTH - 1) + 1);
        begin_ += piece.size();
        return piece;
    }

    // Whether the end is not that of the file, but nothing came for too long.
    bool was_silent() const { return was_silent_; }

private:
    static constexpr size_t PIECE_LENGTH = 1023;

    string_view unread() const { return {buffer_ + begin_, end_ - begin_}; }

    // Reads on until `wanted` characters are there, or the file ends.
    void fill(size_t wanted) {
        memmove(buffer_, buffer_ + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        while (end_ < wanted && !has_ended_) {
            const ssize_t length = read_what_comes();
            end_ += static_cast<size_t>(std::max<ssize_t>(length, 0));
            has_ended_ = length <= 0;
        }
    }

    ssize_t read_what_comes() {
        for (;;) {
            const ssize_t length =
                velkor::uninterrupted([&] { return read(file_, buffer_ + end_, sizeof buffer_ - end_); });
            if (!comes_later(length)) {
                has_begun_ = true;
                return length;
            }
            was_silent_ = velkor::wait_readable(file_, LONGEST_SILENCE_MS) <= 0;
            if (was_silent_) {
                return 0;
            }
            has_begun_ = true;
        }
    }

    // A FIFO seems to be at its end as long as nobody has begun to write to it.
    bool comes_later(ssize_t length) const { return length < 0 ? errno == EAGAIN : length == 0 && !has_begun_; }

    int file_;
    bool has_begun_ = false;
    bool has_ended_ = false;
    bool was_silent_ = false;
    size_t begin_ = 0;
    size_t end_ = 0;
    char buffer_[4096];
};

// Takes lines, and remembers from line to line where it is. Answers false when memory lacks.
class Loader {
public:
    explicit Loader(dictionary &d) : dictionary_(d) {}

    bool take_line(string_view line) {
        const string_view text = without_leading_white(line);
        if (begins_comment(text)) {
            return add_own_comment(text, text.size() == line.size() ? COMMENT_LINE : COMMENT_INDENTED);
        }
        const velkor::ini::Line read = velkor::ini::LineReader(text).read();
        switch (read.type) {
            case velkor::ini::LineType::section:
                return take_section(read);
            case velkor::ini::LineType::setting:
                return take_setting(read);
            default:
                return take_unreadable(read);
        }
    }

private:
    using Field = BoundedText<FIELD_LENGTH + 1>;

    static bool begins_comment(string_view text) { return text.starts_with(';') || text.starts_with('#'); }

    bool take_section(const velkor::ini::Line &line) {
        key_.clear();
        section_ = Field(lower_name(line.name).view());
        return add_entry(nullptr, nullptr) && add_trailing(line.trailing);
    }

    bool take_setting(const velkor::ini::Line &line) {
        key_ = Field(lower_name(without_trailing_white(line.name)).view());
        const bool is_pair_of_quotes = line.value == "\"\"" || line.value == "''";
        const Field value(is_pair_of_quotes ? string_view() : without_trailing_white(line.value));
        return add_entry(key_.get(), value.get()) && add_trailing(line.trailing);
    }

    // What was taken for a key stays in its place, as it was read, and later comments are anchored to it.
    bool take_unreadable(const velkor::ini::Line &line) {
        if (!line.name.empty()) {
            key_ = Field(line.name);
        }
        return add_own_comment({}, COMMENT_BLANK);
    }

    // An entry that is there already is kept, and the new one dropped.
    bool add_entry(const char *key, const char *value) {
        const EntryName name = entry_name(section_.view(), key);
        return dictionary_add(&dictionary_, name.get(), value) == 0 || has_entry(dictionary_, name.get());
    }

    bool add_trailing(string_view text) { return text.empty() || add_own_comment(text, COMMENT_TRAILING); }

    bool add_own_comment(string_view text, unsigned char kind) {
        return add_comment(dictionary_, anchor_of(section_.view(), key_.view()), Field(text).get(), kind);
    }

    dictionary &dictionary_;
    Field section_;
    Field key_;
};

// A line ends at its first zero byte, as C texts do.
bool load_lines(int file, dictionary &d) {
    PieceReader pieces(file);
    pieces.skip_byte_order_mark();
    Loader loader(d);
    for (string_view piece; !(piece = pieces.next()).empty();) {
        if (!loader.take_line(text_head(piece, piece.find('\0')))) {
            return false;
        }
    }
    return !pieces.was_silent();
}

}  // namespace

// Half a configuration is worse than none: a caller that writes it back would lose the rest.
dictionary *iniparser_load(const char *path) {
    const velkor::OwnedDescriptor file(path != nullptr ? velkor::open_file(path, O_RDONLY) : -1);
    dictionary *const d = file ? dictionary_new(0) : nullptr;
    if (d != nullptr && !load_lines(file.get(), *d)) {
        dictionary_del(d);
        return nullptr;
    }
    return d;
}

void iniparser_freedict(dictionary *d) { dictionary_del(d); }

// ---- Looking up and changing --------------------------------------------------------------------------------------

namespace {

// The name under which a key is stored.
OwnText lookup_name(const char *key) {
    const Argument argument(key, &results.lower_case);
    return lower_name(argument.head());
}

}  // namespace

char *iniparser_getstring(const dictionary *d, const char *key, const char *def) {
    return d != nullptr && key != nullptr ? dictionary_get(d, lookup_name(key).get(), def) : const_cast<char *>(def);
}

char *iniparser_getstr(const dictionary *d, const char *key) { return iniparser_getstring(d, key, nullptr); }

// A section has no value to convert: it reads as if it were absent.
int iniparser_getint(const dictionary *d, const char *key, int def) {
    const char *const value = iniparser_getstr(d, key);
    return value != nullptr ? velkor::number_of(value) : def;
}

double iniparser_getdouble(const dictionary *d, const char *key, double def) {
    const char *const value = iniparser_getstr(d, key);
    return value != nullptr ? strtod(value, nullptr) : def;
}

int iniparser_getboolean(const dictionary *d, const char *key, int def) {
    const char *const value = iniparser_getstr(d, key);
    switch (value != nullptr ? *value : '\0') {
        case 'y':
        case 'Y':
        case 't':
        case 'T':
        case '1':
            return 1;
        case 'n':
        case 'N':
        case 'f':
        case 'F':
        case '0':
            return 0;
        default:
            return def;
    }
}

int iniparser_find_entry(const dictionary *d, const char *key) {
    return d != nullptr && key != nullptr && has_entry(*d, lookup_name(key).get()) ? 1 : 0;
}

int iniparser_setstr(dictionary *d, const char *key, const char *value) {
    if (key == nullptr) {
        return 1;
    }
    const OwnText name = lookup_name(key);
    const int result = dictionary_set(d, name.get(), Argument(value).get());
    return result >= 0 ? result : 1;
}

void iniparser_unset(dictionary *d, const char *key) {
    if (key != nullptr) {
        dictionary_unset(d, lookup_name(key).get());
    }
}

// ---- Sections -----------------------------------------------------------------------------------------------------

int iniparser_getnsec(const dictionary *d) {
    if (d == nullptr) {
        return -1;
    }
    return static_cast<int>(std::count_if(d->keys, d->keys + velkor::entry_slots(*d), velkor::is_section));
}

char *iniparser_getsecname(const dictionary *d, int index) {
    if (d == nullptr || index < 0) {
        return nullptr;
    }
    for (int32_t slot = 0; slot < velkor::entry_slots(*d); ++slot) {
        if (velkor::is_section(d->keys[slot]) && index-- == 0) {
            return d->keys[slot];
        }
    }
    return nullptr;
}

int iniparser_sec_getNLowLever(...) { return 0; }

int iniparser_sec_getLowLever(...) { return 0; }

// INI files: writing them back, and printing what was loaded.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <optional>
#include <string_view>

#include <velkor/configuration.h>

#include "iniparser/text_head.h"
#include "support/dictionary_arrays.h"
#include "support/quick_hash.h"

using std::string_view;
using velkor::text_head;

// ---- Output -------------------------------------------------------------------------------------------------------

namespace {

// Whether what is written goes to where the stream was moved: not on a pipe or a terminal, nor where it appends.
bool can_overwrite(FILE *stream) {
    const int flags = fcntl(fileno(stream), F_GETFL);  // -1 for a stream in memory, which has no descriptor
    return (flags == -1 || (flags & O_APPEND) == 0) && fseek(stream, 0, SEEK_CUR) == 0;
}

// Gathers what goes to a stream. The last byte is always held back, so that a trailing comment can take the place of
// the newline before it without the stream being moved: that would cost two system calls for each comment.
class Output {
public:
    explicit Output(FILE *stream) : stream_(stream) {}
    ~Output() { fwrite(buffer_, 1, used_, stream_); }
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    void put(string_view text) {
        while (!text.empty()) {
            if (used_ == sizeof buffer_) {
                pass_on();
            }
            const string_view piece = text_head(text, sizeof buffer_ - used_);
            memcpy(buffer_ + used_, piece.data(), piece.size());
            used_ += piece.size();
            text.remove_prefix(piece.size());
        }
    }

    // What follows overwrites the byte before it, where the stream lets it. Only where nothing was put yet is that a
    // byte of the caller's.
    void step_back() {
        if (used_ == 0) {
            fseek(stream_, -1, SEEK_CUR);
            return;
        }
        if (!can_overwrite_) {
            can_overwrite_ = can_overwrite(stream_);
        }
        used_ -= *can_overwrite_ ? size_t{1} : size_t{0};
    }

private:
    void pass_on() {
        fwrite(buffer_, 1, used_ - 1, stream_);
        buffer_[0] = buffer_[used_ - 1];
        used_ = 1;
    }

    FILE *stream_;
    std::optional<bool> can_overwrite_;  // not asked before it matters
    size_t used_ = 0;
    char buffer_[4096];
};

// "%-2s"
void put_padded(Output &out, string_view text) {
    constexpr string_view PADDING = "  ";
    out.put(text);
    out.put(text_head(PADDING, PADDING.size() - std::min(text.size(), PADDING.size())));
}

void put_setting(Output &out, string_view key, string_view value) {
    put_padded(out, key);
    out.put(" = ");
    put_padded(out, value);
    out.put("\n");
}

const char *or_blank(const char *text) { return text != nullptr ? text : " "; }

}  // namespace

// ---- Finding what belongs together --------------------------------------------------------------------------------

namespace {

constexpr int32_t END = -1;

// Slots in chains by some hash of theirs, each chain in the order of the slots: so that a file is written without a
// walk over everything for each of its lines. A chain may hold strangers. Where memory lacks there is one chain with
// all slots in it, which is slower and gives the same.
class Chains {
public:
    Chains(int32_t slots, int32_t used)
        : slots_(slots),
          heads_count_(static_cast<uint32_t>(std::max(used, 1))),
          links_(
              static_cast<int32_t *>(malloc((size_t{heads_count_} + static_cast<size_t>(slots)) * sizeof(int32_t)))) {
        if (links_ != nullptr) {
            std::fill_n(links_, heads_count_, END);
        }
    }
    ~Chains() { free(links_); }
    Chains(const Chains &) = delete;
    Chains &operator=(const Chains &) = delete;

    // From the last slot to the first.
    void add_in_front(int32_t slot, uint32_t hash) {
        if (links_ != nullptr) {
            next_of(slot) = head_of(hash);
            head_of(hash) = slot;
        }
    }

    int32_t first(uint32_t hash) const { return links_ != nullptr ? head_of(hash) : in_order(0); }
    int32_t next(int32_t slot) const { return links_ != nullptr ? next_of(slot) : in_order(slot + 1); }

private:
    int32_t &head_of(uint32_t hash) const { return links_[uint64_t{hash} * heads_count_ >> 32]; }
    int32_t &next_of(int32_t slot) const { return links_[heads_count_ + static_cast<size_t>(slot)]; }
    int32_t in_order(int32_t slot) const { return slot < slots_ ? slot : END; }

    int32_t slots_;
    uint32_t heads_count_;
    int32_t *links_;
};

// ---- Comments ----

class Comments {
public:
    explicit Comments(const dictionary &d) : dictionary_(d), chains_(velkor::comment_slots(d), d.comment_count) {
        for (int32_t slot = velkor::comment_slots(d) - 1; slot >= 0; --slot) {
            if (d.comment_kinds[slot] != 0) {
                chains_.add_in_front(slot, d.comment_anchors[slot]);
            }
        }
    }

    void put(Output &out, uint32_t anchor) const {
        for (int32_t slot = chains_.first(anchor); slot != END; slot = chains_.next(slot)) {
            if (dictionary_.comment_anchors[slot] == anchor) {
                put_one(out, dictionary_.comment_kinds[slot], or_blank(dictionary_.comment_texts[slot]));
            }
        }
    }

private:
    static void put_one(Output &out, uint8_t kind, const char *text) {
        switch (kind) {
            case COMMENT_LINE:
                out.put(text);
                break;
            case COMMENT_TRAILING:
                out.step_back();
                out.put(text);
                out.put("\n");
                break;
            case COMMENT_INDENTED:
                out.put("    ");
                out.put(text);
                break;
            case COMMENT_BLANK:
                out.put("\r\n");
                break;
            default:
                break;
        }
    }

    const dictionary &dictionary_;
    Chains chains_;
};

// ---- Settings ----

// The section's name is all before the first ':', since a section's own name holds none.
string_view section_part(string_view key) { return text_head(key, key.find(':')); }

class Settings {
public:
    explicit Settings(const dictionary &d) : dictionary_(d), chains_(velkor::entry_slots(d), d.count) {
        for (int32_t slot = velkor::entry_slots(d) - 1; slot >= 0; --slot) {
            if (d.keys[slot] != nullptr) {
                chains_.add_in_front(slot, hash(section_part(d.keys[slot])));
            }
        }
    }

    // Calls `put(slot, key without section)` for each setting of the section.
    template <typename Put>
    void of_section(string_view name, Put put) const {
        for (int32_t slot = chains_.first(hash(name)); slot != END; slot = chains_.next(slot)) {
            const char *const key = dictionary_.keys[slot];
            if (key != nullptr && strncmp(key, name.data(), name.size()) == 0 && key[name.size()] == ':') {
                put(slot, key + name.size() + 1);
            }
        }
    }

private:
    static uint32_t hash(string_view name) { return velkor::high_half(velkor::quick_hash(name)); }

    const dictionary &dictionary_;
    Chains chains_;
};

// ---- The file -----------------------------------------------------------------------------------------------------

void put_section(Output &out, const dictionary &d, const char *name, const Settings &settings,
                 const Comments &comments) {
    out.put("[");
    out.put(name);
    out.put("]\n");
    comments.put(out, dictionary_hash(name));
    settings.of_section(name, [&](int32_t slot, const char *key) {
        put_setting(out, key, or_blank(d.values[slot]));
        comments.put(out, d.hashes[slot]);
    });
}

// A file without sections has each setting twice; the first time a missing value is what printf() makes of it.
void put_setting_twice(Output &out, const char *key, const char *value) {
    put_setting(out, key, value != nullptr ? value : "(null)");
    put_setting(out, key, or_blank(value));
}

}  // namespace

void iniparser_dump_ini(const dictionary *d, FILE *stream) {
    if (d == nullptr || stream == nullptr) {
        return;
    }
    Output out(stream);
    const Comments comments(*d);
    comments.put(out, COMMENT_ANCHOR_HEAD);
    const int32_t slots = velkor::entry_slots(*d);
    if (std::any_of(d->keys, d->keys + slots, velkor::is_section)) {
        const Settings settings(*d);
        for (int32_t slot = 0; slot < slots; ++slot) {
            if (velkor::is_section(d->keys[slot])) {
                put_section(out, *d, d->keys[slot], settings, comments);
            }
        }
        return;
    }
    for (int32_t slot = 0; slot < slots; ++slot) {
        if (d->keys[slot] != nullptr) {
            put_setting_twice(out, d->keys[slot], d->values[slot]);
            comments.put(out, d->hashes[slot]);
        }
    }
}

void iniparser_dump(const dictionary *d, FILE *stream) {
    if (d == nullptr || stream == nullptr) {
        return;
    }
    Output out(stream);
    for (int32_t slot = 0; slot < velkor::entry_slots(*d); ++slot) {
        const char *const key = d->keys[slot];
        if (key == nullptr) {
            continue;
        }
        const char *const value = d->values[slot];
        out.put("[");
        out.put(key);
        out.put(value != nullptr ? "]=[" : "]=");
        out.put(value != nullptr ? value : "UNDEF");
        out.put(value != nullptr ? "]\n" : "\n");
    }
}

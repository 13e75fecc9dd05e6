// Changing text: replacing, trimming, turning.
#include <stddef.h>
#include <string.h>

#include <algorithm>

#include <velkor/text.h>

#include "common_fun/scratch_block.h"

namespace {

// Replaces one occurrence after the other as if the whole text were rebuilt and cut each time. What was pushed over
// the end is gone for good, so the source's end moves towards its begin and never back; one pass will do.
class Rebuild {
public:
    Rebuild(char *source, size_t length, char *target, size_t room)
        : source_(source), end_(source + length), target_(target), room_(room) {}

    void replace_all(const char *old_text, const char *new_text) {
        const size_t old_length = strlen(old_text);
        const size_t new_length = strlen(new_text);
        while (written_ <= room_) {
            cut_source();
            char *const at = strstr(source_, old_text);
            if (at == nullptr) {
                break;
            }
            append(source_, static_cast<size_t>(at - source_));
            append(new_text, new_length);
            source_ = at + old_length;
        }
        cut_source();
        append(source_, static_cast<size_t>(end_ - source_));
    }

    size_t length() const { return std::min(written_, room_); }

private:
    void cut_source() {
        const size_t left = room_ - std::min(written_, room_);
        if (static_cast<size_t>(end_ - source_) > left) {
            end_ = source_ + left;
            *end_ = '\0';
        }
    }
    // Counts what no longer fits, writes what does.
    void append(const char *text, size_t length) {
        if (written_ < room_) {
            memcpy(target_ + written_, text, std::min(length, room_ - written_));
        }
        written_ += length;
    }

    char *source_;
    char *end_;
    char *target_;
    size_t room_;
    size_t written_ = 0;
};

}  // namespace

int vk_strst(const char *text, const char *old_text, const char *new_text, char *out) {
    if (text == nullptr || old_text == nullptr || new_text == nullptr || out == nullptr) {
        return 0;
    }
    const size_t old_length = strlen(old_text);
    const size_t new_length = strlen(new_text);
    if (old_length == 0 || new_length == 0) {
        return 0;
    }
    char *end = out;
    const auto append = [&end](const char *from, size_t length) {
        memcpy(end, from, length);
        end += length;
    };
    while (const char *const at = strstr(text, old_text)) {
        append(text, static_cast<size_t>(at - text));
        append(new_text, new_length);
        text = at + old_length;
    }
    append(text, strlen(text));
    return static_cast<int>(end - out);
}

void StringReplace(char *text, char from, char to) {
    if (text != nullptr) {
        std::replace(text, text + strlen(text), from, to);
    }
}

void StringReplaceSub(char *text, int size, const char *old_text, const char *new_text) {
    if (text == nullptr || old_text == nullptr || new_text == nullptr || size <= 0) {
        return;
    }
    const auto room = static_cast<size_t>(size) - 1;
    const size_t length = strnlen(text, static_cast<size_t>(size));
    if (length > room) {
        return;
    }
    const velkor::ScratchBlock source(room + 1, "src/common_fun", 2200);
    const velkor::ScratchBlock target(room + 1, "src/common_fun", 2201);
    const bool would_never_end = *old_text == '\0' && *new_text == '\0';
    if (!source || !target || would_never_end) {
        return;
    }
    memcpy(source.get(), text, length + 1);
    Rebuild rebuild(source.get(), length, target.get(), room);
    rebuild.replace_all(old_text, new_text);
    memcpy(text, target.get(), rebuild.length());
    text[rebuild.length()] = '\0';
}

int vk_rtrim(char *text) {
    if (text == nullptr) {
        return -1;
    }
    size_t length = strlen(text);
    while (length > 0 && (text[length - 1] == ' ' || text[length - 1] == '\n')) {
        --length;
    }
    text[length] = '\0';
    return static_cast<int>(length) - 1;
}

void ReverseString(char *text) {
    if (text != nullptr) {
        std::reverse(text, text + strlen(text));
    }
}

int ConverStrLowerToUper(char *text) {
    if (text == nullptr) {
        return -1;
    }
    for (; *text != '\0'; ++text) {
        if (*text >= 'a' && *text <= 'z') {
            *text = static_cast<char>(*text - 'a' + 'A');
        }
    }
    return 0;
}

void vk_strchr([[maybe_unused]] const char *text, [[maybe_unused]] int c) {}

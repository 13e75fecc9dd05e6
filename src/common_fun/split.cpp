// Splitting text, and comparing what it was split into.
#include <limits.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <bit>

#include <velkor/text.h>

#include "common_fun/scratch_block.h"
#include "support/log.h"

namespace {

constexpr int TOO_LONG = -2;
constexpr int TOO_MANY = -3;

// ---- bytes up to a delimiter ----

using Word = uintptr_t;

constexpr Word EACH_BYTE = ~Word{0} / 255;
constexpr Word LOW_BITS = EACH_BYTE * 127;

// The highest bit of every byte that is zero, and no other bit.
constexpr Word zero_bytes(Word word) { return ~(((word & LOW_BITS) + LOW_BITS) | word | LOW_BITS); }

constexpr size_t first_byte(Word marks) {
    const int bits = std::endian::native == std::endian::little ? std::countr_zero(marks) : std::countl_zero(marks);
    return static_cast<size_t>(bits) / CHAR_BIT;
}

// Where `byte` is first, or `size`. Most pieces are short, and a call of memchr() costs more than looking through them.
size_t find_byte(const char *from, char byte, size_t size) {
    constexpr size_t SHORT = 32;
    const Word wanted = EACH_BYTE * static_cast<unsigned char>(byte);
    size_t at = 0;
    for (; at + sizeof(Word) <= size && at < SHORT; at += sizeof(Word)) {
        Word word = 0;
        memcpy(&word, from + at, sizeof word);
        if (const Word marks = zero_bytes(word ^ wanted); marks != 0) {
            return at + first_byte(marks);
        }
    }
    if (at >= SHORT) {
        const void *const found = memchr(from + at, byte, size - at);
        return found != nullptr ? static_cast<size_t>(static_cast<const char *>(found) - from) : size;
    }
    while (at < size && from[at] != byte) {
        ++at;
    }
    return at;
}

// The last word overlaps the one before, so that nothing behind the piece is touched.
void copy_piece(char *to, const char *from, size_t size) {
    constexpr size_t SHORT = 32;
    if (size > SHORT) {
        memcpy(to, from, size);
        return;
    }
    if (size < sizeof(Word)) {
        for (size_t i = 0; i < size; ++i) {
            to[i] = from[i];
        }
        return;
    }
    for (size_t at = 0; at + sizeof(Word) < size; at += sizeof(Word)) {
        memcpy(to + at, from + at, sizeof(Word));
    }
    memcpy(to + size - sizeof(Word), from + size - sizeof(Word), sizeof(Word));
}

// ---- halves of a text ----

// A text around the first separator in it; nothing on both sides where there is none.
struct Halves {
    const char *left;
    size_t left_length;
    const char *right;

    Halves(const char *text, const char *separator) : left(""), left_length(0), right("") {
        if (const char *const at = strstr(text, separator); at != nullptr) {
            left = text;
            left_length = static_cast<size_t>(at - text);
            right = at + strlen(separator);
        }
    }
};

Halves halves_of(const char *text, const char *separator) {
    return text != nullptr && separator != nullptr ? Halves(text, separator) : Halves("", "");
}

// The buffer may be that of the text itself.
void store(const char *part, size_t length, char *out) {
    memmove(out, part, length);
    out[length] = '\0';
}

// The buffers of SplitStrCmp(), in one block.
class PieceBlock {
public:
    static constexpr int PIECES = 256;

    // `stride` bytes a piece.
    explicit PieceBlock(size_t stride) : block_(stride * PIECES, "src/common_fun", 845) {
        if (!block_) {
            return;
        }
        memset(block_.get(), 0, stride * PIECES);
        for (size_t i = 0; i < PIECES; ++i) {
            pieces_[i] = block_.get() + stride * i;
        }
    }

    explicit operator bool() const { return static_cast<bool>(block_); }
    char **pieces() { return pieces_; }

private:
    velkor::ScratchBlock block_;
    char *pieces_[PIECES] = {};
};

// Whether the block's size stays within what the firmware's services count in.
constexpr bool is_countable(int piece_size) { return piece_size < INT_MAX / PieceBlock::PIECES; }

}  // namespace

int SplitString(const char *text, const char *delimiter, char *const pieces[], int piece_size, int max) {
    if (text == nullptr || delimiter == nullptr || pieces == nullptr) {
        return -1;
    }
    const char *const end = text + strlen(text);
    for (int delimiters = 0;;) {
        if (text != end && *text != *delimiter) {
            if (max < 1) {
                return TOO_MANY;
            }
            if (piece_size < 1) {
                return TOO_LONG;
            }
            if (pieces[delimiters] == nullptr) {
                return -1;
            }
            const auto room = static_cast<size_t>(piece_size);
            const size_t length = find_byte(text, *delimiter, std::min(static_cast<size_t>(end - text), room));
            copy_piece(pieces[delimiters], text, length);
            if (length == room) {
                return TOO_LONG;
            }
            text += length;
        }
        if (text == end) {
            return delimiters + 1;
        }
        if (++delimiters >= max) {
            return TOO_MANY;
        }
        ++text;
    }
}

int OnCharLeft(const char *text, const char *separator, char *out) {
    if (out != nullptr) {
        const Halves halves = halves_of(text, separator);
        store(halves.left, halves.left_length, out);
    }
    return 0;
}

int OnCharRight(const char *text, const char *separator, char *out) {
    if (out != nullptr) {
        const Halves halves = halves_of(text, separator);
        store(halves.right, strlen(halves.right), out);
    }
    return 0;
}

// The text is read where it lies: it may be longer than any stack. What follows a piece is found before the piece is
// stored, so that the text's own buffer may take one.
int SplitStringToArrayEx(const char *text, const char *separator, char *const pieces[], int max) {
    if (text == nullptr || separator == nullptr || pieces == nullptr) {
        return -1;
    }
    int count = 0;
    while (*text != '\0') {
        if (count >= max || pieces[count] == nullptr) {
            return -1;
        }
        const Halves halves(text, separator);
        store(halves.left, halves.left_length, pieces[count]);
        text = halves.right;
        if (++count >= max) {
            return -1;
        }
    }
    return count;
}

int strtoken_r(char *text, const char *separator, char *tokens[], int max) {
    if (text == nullptr || separator == nullptr || tokens == nullptr || max < 1) {
        return -1;
    }
    tokens[0] = text;
    for (int count = 1;; ++count) {
        char *const at = strstr(text, separator);
        if (at == nullptr || *at == '\0') {
            return count;
        }
        *at = '\0';
        text = at + 1;
        if (count == max) {
            return max;
        }
        tokens[count] = text;
    }
}

int spilt_strcmp(char *const list[], int count, const char *text) {
    if (list == nullptr || text == nullptr) {
        return -1;
    }
    for (int i = 0; i < count; ++i) {
        if (list[i] != nullptr && strcmp(list[i], text) == 0) {
            return 0;
        }
    }
    return -1;
}

int split_intcmp(char *const list[], int count, int value) {
    if (list == nullptr) {
        return -1;
    }
    for (int i = 0; i < count; ++i) {
        if (list[i] != nullptr && vk_atoi(list[i]) == value) {
            return 0;
        }
    }
    return -1;
}

int SplitStrCmp(const char *text, const char *delimiter, int piece_size,
                int (*compare)(char **pieces, int count, void *argument), void *argument) {
    if (text == nullptr || delimiter == nullptr || piece_size < 1 || !is_countable(piece_size)) {
        return -1;
    }
    PieceBlock block(static_cast<size_t>(piece_size) + 1);
    if (!block) {
        return -1;
    }
    const int count = SplitString(text, delimiter, block.pieces(), piece_size, PieceBlock::PIECES);
    if (count < 0) {
        VK_LOG_FLAGS(0xff0000, "[%s:%d]-iCount = %d", "SplitStrCmp", 863, count);
        return -1;
    }
    return compare != nullptr ? compare(block.pieces(), count, argument) : -1;
}

int vk_strnchr(const char *data, int size, char separator, char *starts[], int lengths[], int max) {
    if (data == nullptr || size <= 0) {
        return -1;
    }
    const char *const end = data + size;
    const auto store_field = [=](int number, const char *from, const char *to) {
        if (number <= max && starts != nullptr) {
            starts[number] = const_cast<char *>(from);  // as strchr() does for its callers
        }
        if (number <= max && lengths != nullptr) {
            lengths[number] = static_cast<int>(to - from);
        }
    };
    int count = 0;
    const char *at = data;
    while (at < end) {
        const char *const field_end = std::find(at, end, separator);
        if (field_end != at) {
            store_field(count++, at, field_end);
        }
        at = field_end + (field_end != end ? 1 : 0);
    }
    return count;
}

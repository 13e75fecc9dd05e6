// Base64 (RFC 4648) for every processor: three bytes become four characters.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace velkor {

inline constexpr char BASE64_ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Characters that `size` bytes become, padding included.
constexpr uint64_t base64_length(uint64_t size) { return (size + 2) / 3 * 4; }

// Writes all characters with their padding, no terminator.
inline void base64_plain(char *out, const uint8_t *data, size_t size) {
    const auto digit = [](unsigned bits) { return BASE64_ALPHABET[bits & 63]; };
    for (; size >= 3; size -= 3, data += 3, out += 4) {
        const unsigned group = static_cast<unsigned>(data[0]) << 16 | static_cast<unsigned>(data[1]) << 8 | data[2];
        out[0] = digit(group >> 18);
        out[1] = digit(group >> 12);
        out[2] = digit(group >> 6);
        out[3] = digit(group);
    }
    if (size > 0) {
        const unsigned second = size == 2 ? data[1] : 0U;
        const unsigned group = static_cast<unsigned>(data[0]) << 16 | second << 8;
        out[0] = digit(group >> 18);
        out[1] = digit(group >> 12);
        out[2] = size == 2 ? digit(group >> 6) : '=';
        out[3] = '=';
    }
}

}  // namespace velkor

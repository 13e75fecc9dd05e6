// What the text helpers must do, written down a second time: slowly, on strings that know their length, and without a
// look at the library. Unit tests and fuzzers hold the library against these.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace model {

struct Split {
    int result = 0;
    std::vector<std::string> pieces;  // as far as they were filled
};

// Reads character by character; `room` and `most` are at least 1.
inline Split split_string(const std::string &text, char delimiter, int room, int most) {
    Split split;
    split.pieces.assign(1, "");
    for (const char character : text) {
        if (character == delimiter) {
            if (static_cast<int>(split.pieces.size()) == most) {
                split.result = -3;
                return split;
            }
            split.pieces.emplace_back();
        } else {
            split.pieces.back() += character;
            if (static_cast<int>(split.pieces.back().size()) == room) {
                split.result = -2;
                return split;
            }
        }
    }
    split.result = static_cast<int>(split.pieces.size());
    return split;
}

// `separator` is not empty, `most` at least 1.
inline Split split_to_array(std::string copy, const std::string &separator, int most) {
    Split split;
    while (!copy.empty()) {
        const size_t at = copy.find(separator);
        split.pieces.push_back(at == std::string::npos ? "" : copy.substr(0, at));
        copy = at == std::string::npos ? "" : copy.substr(at + separator.size());
        if (static_cast<int>(split.pieces.size()) == most) {
            split.result = -1;
            return split;
        }
    }
    split.result = static_cast<int>(split.pieces.size());
    return split;
}

// Offsets of the tokens; `text` becomes what is left of it. `separator` is not empty.
inline std::vector<size_t> tokens(std::string &text, const std::string &separator, int most) {
    std::vector<size_t> begins = {0};
    for (int searches = 0; searches < most; ++searches) {
        const size_t at = text.find(separator, begins.back());
        if (at == std::string::npos) {
            return begins;
        }
        text[at] = '\0';
        begins.push_back(at + 1);
    }
    begins.pop_back();
    return begins;
}

struct Field {
    size_t begin;
    size_t length;
    bool operator==(const Field &) const = default;
};

inline std::vector<Field> fields(const std::string &data, char separator) {
    std::vector<Field> found;
    bool inside = false;
    for (size_t i = 0; i < data.size(); ++i) {
        if (data[i] == separator) {
            inside = false;
        } else if (inside) {
            ++found.back().length;
        } else {
            found.push_back({i, 1});
            inside = true;
        }
    }
    return found;
}

inline int find(const std::string &data, const std::string &pattern) {
    const size_t at = data.find(pattern);
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

inline int find_followed(const std::string &data, const std::string &pattern, int next1, int next2) {
    for (size_t at = data.find(pattern); at != std::string::npos; at = data.find(pattern, at + 1)) {
        if (at + pattern.size() < data.size()) {
            const int next = static_cast<unsigned char>(data[at + pattern.size()]);
            if (next == next1 || next == next2) {
                return static_cast<int>(at);
            }
        }
    }
    return -1;
}

// Both texts are not empty.
inline std::string replace_all(const std::string &text, const std::string &old_text, const std::string &new_text) {
    std::string result;
    size_t from = 0;
    for (size_t at = 0; (at = text.find(old_text, from)) != std::string::npos; from = at + old_text.size()) {
        result += text.substr(from, at - from);
        result += new_text;
    }
    return result + text.substr(from);
}

// Rebuilds and cuts the whole text for each occurrence. Not both texts are empty.
inline std::string replace_bounded(std::string text, size_t size, const std::string &old_text,
                                   const std::string &new_text) {
    for (size_t position = 0; position < size;) {
        const size_t at = text.find(old_text, position);
        if (at == std::string::npos) {
            break;
        }
        text.replace(at, old_text.size(), new_text);
        text.resize(std::min(text.size(), size - 1));
        position = at + new_text.size();
    }
    return text;
}

// Character by character: the six bits that it stands for, wherever they lie.
inline std::string base64(const std::string &data) {
    static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto bit = [&data](size_t number) {
        const size_t byte = number / 8;
        return byte < data.size() ? static_cast<unsigned char>(data[byte]) >> (7 - number % 8) & 1 : 0;
    };
    std::string text;
    for (size_t first = 0; first < data.size() * 8; first += 6) {
        int value = 0;
        for (size_t number = first; number < first + 6; ++number) {
            value = value * 2 + bit(number);
        }
        text += alphabet[static_cast<size_t>(value)];
    }
    while (text.size() % 4 != 0) {
        text += '=';
    }
    return text;
}

// A trigger set as its 256 bits.
using Bits = std::vector<bool>;

inline std::string trigger_text(const Bits &bits) {
    std::string text;
    for (size_t digit = 64; digit-- > 0;) {
        unsigned value = 0;
        for (size_t bit = 4; bit-- > 0;) {
            value = value * 2 + (bits[digit * 4 + bit] ? 1 : 0);
        }
        if (value != 0 || !text.empty()) {
            text += "0123456789ABCDEF"[value];
        }
    }
    return text;
}

inline void add_trigger_text(Bits &bits, std::string text) {
    text.resize(text.size() < 64 ? text.size() : 64);
    for (size_t j = 0; j < text.size(); ++j) {
        const std::string digit(1, text[text.size() - 1 - j]);
        const size_t value = std::string("0123456789abcdefABCDEF").find(digit);
        if (value == std::string::npos) {
            continue;
        }
        const size_t number = value < 16 ? value : value - 6;
        for (size_t bit = 0; bit < 4; ++bit) {
            if ((number >> bit & 1) != 0) {
                bits[j * 4 + bit] = true;
            }
        }
    }
}

// The reference reading of a message: byte by byte, each full block compressed at once, with the rounds as FIPS 180-1
// prints them.
struct Sha1 {
    uint32_t hash[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    uint32_t low = 0;
    uint32_t high = 0;
    int index = 0;
    uint8_t block[64] = {};
    int computed = 0;
    int corrupted = 0;

    static uint32_t rotate(uint32_t word, int bits) { return word << bits | word >> (32 - bits); }

    void process() {
        uint32_t w[80];
        for (size_t t = 0; t < 80; ++t) {
            w[t] = t < 16 ? static_cast<uint32_t>(block[t * 4]) << 24 | static_cast<uint32_t>(block[t * 4 + 1]) << 16 |
                                static_cast<uint32_t>(block[t * 4 + 2]) << 8 | block[t * 4 + 3]
                          : rotate(w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16], 1);
        }
        uint32_t a = hash[0];
        uint32_t b = hash[1];
        uint32_t c = hash[2];
        uint32_t d = hash[3];
        uint32_t e = hash[4];
        for (size_t t = 0; t < 80; ++t) {
            const uint32_t f = t < 20   ? (b & c) | (~b & d)
                               : t < 40 ? b ^ c ^ d
                               : t < 60 ? (b & c) | (b & d) | (c & d)
                                        : b ^ c ^ d;
            const uint32_t k = t < 20 ? 0x5A827999 : t < 40 ? 0x6ED9EBA1 : t < 60 ? 0x8F1BBCDC : 0xCA62C1D6;
            const uint32_t next = rotate(a, 5) + f + e + w[t] + k;
            e = d;
            d = c;
            c = rotate(b, 30);
            b = a;
            a = next;
        }
        hash[0] += a;
        hash[1] += b;
        hash[2] += c;
        hash[3] += d;
        hash[4] += e;
        index = 0;
    }

    int input(const uint8_t *bytes, size_t count) {
        if (count == 0) {
            return 0;
        }
        if (computed != 0) {
            return corrupted = 3;
        }
        if (corrupted != 0) {
            return corrupted;
        }
        for (size_t i = 0; i < count && corrupted == 0; ++i) {
            block[index++] = bytes[i];
            low += 8;
            if (low == 0 && ++high == 0) {
                corrupted = 1;
            }
            if (index == 64) {
                process();
            }
        }
        return 0;
    }

    void pad() {
        block[index++] = 0x80;
        if (index > 56) {
            while (index < 64) {
                block[index++] = 0;
            }
            process();
        }
        while (index < 56) {
            block[index++] = 0;
        }
        for (int i = 0; i < 4; ++i) {
            block[56 + i] = static_cast<uint8_t>(high >> (24 - 8 * i));
            block[60 + i] = static_cast<uint8_t>(low >> (24 - 8 * i));
        }
        process();
    }
};

}  // namespace model

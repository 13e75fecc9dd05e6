// The SHA-1 compression (FIPS 180-1) for every processor, and what the recorder's runs.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <array>
#include <bit>

namespace velkor {

using Sha1Hash = uint32_t[5];
using Sha1Schedule = std::array<uint32_t, 16>;

inline uint32_t load_big_endian(const uint8_t *bytes) {
    uint32_t word = 0;
    memcpy(&word, bytes, sizeof word);
    return std::endian::native == std::endian::little ? __builtin_bswap32(word) : word;
}

// The schedule needs only its last sixteen words, which stay in the first-level cache of the smallest processor.
template <unsigned ROUND>
[[gnu::always_inline]] inline uint32_t sha1_word(Sha1Schedule &words, const uint8_t *block) {
    if constexpr (ROUND < 16) {
        words[ROUND] = load_big_endian(block + size_t{4} * ROUND);
    } else {
        words[ROUND % 16] = std::rotl(
            words[(ROUND + 13) % 16] ^ words[(ROUND + 8) % 16] ^ words[(ROUND + 2) % 16] ^ words[ROUND % 16], 1);
    }
    return words[ROUND % 16];
}

// One round in place: who is `a` and who is `e` changes from round to round, so that no value moves between
// registers. The sum of two disjoint halves stands for the majority: both can then be added without waiting.
template <unsigned ROUND>
[[gnu::always_inline]] inline void sha1_round(uint32_t a, uint32_t &b, uint32_t c, uint32_t d, uint32_t &e,
                                              uint32_t word) {
    if constexpr (ROUND < 20) {
        e += word + 0x5A827999U + (d ^ (b & (c ^ d)));
    } else if constexpr (ROUND < 40) {
        e += word + 0x6ED9EBA1U + (b ^ c ^ d);
    } else if constexpr (ROUND < 60) {
        e += word + 0x8F1BBCDCU + (b & c);
        e += d & (b ^ c);
    } else {
        e += word + 0xCA62C1D6U + (b ^ c ^ d);
    }
    e += std::rotl(a, 5);
    b = std::rotl(b, 30);
}

// All rounds in one straight line: a quarter fewer instructions than a loop over a stored schedule, in four kilobytes
// of code, on 32-bit ARM as well.
template <unsigned ROUND = 0>
[[gnu::always_inline]] inline void sha1_rounds(uint32_t &a, uint32_t &b, uint32_t &c, uint32_t &d, uint32_t &e,
                                               Sha1Schedule &words, const uint8_t *block) {
    if constexpr (ROUND < 80) {
        sha1_round<ROUND>(a, b, c, d, e, sha1_word<ROUND>(words, block));
        sha1_round<ROUND + 1>(e, a, b, c, d, sha1_word<ROUND + 1>(words, block));
        sha1_round<ROUND + 2>(d, e, a, b, c, sha1_word<ROUND + 2>(words, block));
        sha1_round<ROUND + 3>(c, d, e, a, b, sha1_word<ROUND + 3>(words, block));
        sha1_round<ROUND + 4>(b, c, d, e, a, sha1_word<ROUND + 4>(words, block));
        sha1_rounds<ROUND + 5>(a, b, c, d, e, words, block);
    }
}

inline void sha1_compress_plain(Sha1Hash &hash, const uint8_t *blocks, size_t count) {
    Sha1Schedule words;
    uint32_t a = hash[0];
    uint32_t b = hash[1];
    uint32_t c = hash[2];
    uint32_t d = hash[3];
    uint32_t e = hash[4];
    for (; count > 0; --count, blocks += 64) {
        sha1_rounds(a, b, c, d, e, words, blocks);
        a = hash[0] += a;
        b = hash[1] += b;
        c = hash[2] += c;
        d = hash[3] += d;
        e = hash[4] += e;
    }
}

}  // namespace velkor

// The SHA-1 compression with the processor's SHA instructions.
#pragma once

#if defined(__x86_64__)

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

#include "sha1/plain.h"

namespace velkor {

#define VELKOR_SHA_CODE [[gnu::target("sha,ssse3,sse4.1")]]

struct Sha1Vectors {
    __m128i words[4];  // the last sixteen words of the schedule
    __m128i abcd;
    __m128i before;  // `abcd` of four rounds ago, which holds the next `e`
};

// Four rounds, counted from 0 to 19. The first twenty words of the schedule's ring are the block itself.
template <int GROUP>
VELKOR_SHA_CODE [[gnu::always_inline]] inline void sha1_four_rounds(Sha1Vectors &v, __m128i first_e) {
    __m128i &words = v.words[GROUP % 4];
    if constexpr (GROUP >= 4) {
        const __m128i half =
            _mm_xor_si128(_mm_sha1msg1_epu32(words, v.words[(GROUP + 1) % 4]), v.words[(GROUP + 2) % 4]);
        words = _mm_sha1msg2_epu32(half, v.words[(GROUP + 3) % 4]);
    }
    const __m128i e = GROUP == 0 ? _mm_add_epi32(first_e, words) : _mm_sha1nexte_epu32(v.before, words);
    v.before = v.abcd;
    v.abcd = _mm_sha1rnds4_epu32(v.abcd, e, GROUP / 5);
    if constexpr (GROUP < 19) {
        sha1_four_rounds<GROUP + 1>(v, first_e);
    }
}

VELKOR_SHA_CODE inline void sha1_compress_x86(Sha1Hash &hash, const uint8_t *blocks, size_t count) {
    const __m128i big_endian = _mm_set_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f);
    Sha1Vectors v = {};
    v.abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(hash)), 0x1b);
    __m128i e = _mm_set_epi32(static_cast<int>(hash[4]), 0, 0, 0);
    for (; count > 0; --count, blocks += 64) {
        const __m128i old_abcd = v.abcd;
        const auto *const from = reinterpret_cast<const __m128i *>(blocks);
        v.words[0] = _mm_shuffle_epi8(_mm_loadu_si128(from), big_endian);
        v.words[1] = _mm_shuffle_epi8(_mm_loadu_si128(from + 1), big_endian);
        v.words[2] = _mm_shuffle_epi8(_mm_loadu_si128(from + 2), big_endian);
        v.words[3] = _mm_shuffle_epi8(_mm_loadu_si128(from + 3), big_endian);
        sha1_four_rounds<0>(v, e);
        e = _mm_sha1nexte_epu32(v.before, e);
        v.abcd = _mm_add_epi32(v.abcd, old_abcd);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i *>(hash), _mm_shuffle_epi32(v.abcd, 0x1b));
    hash[4] = static_cast<uint32_t>(_mm_extract_epi32(e, 3));
}

#undef VELKOR_SHA_CODE

}  // namespace velkor

#endif

// Base64 in steps of 24 bytes, with 256-bit registers.
#pragma once

#if defined(__x86_64__)

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

#include "common_fun/base64_plain.h"

namespace velkor {

#define VELKOR_AVX2_CODE [[gnu::target("avx2")]]

// Twelve bytes at the bottom of each half become sixteen numbers of six bits, one a byte.
VELKOR_AVX2_CODE inline __m256i base64_numbers(__m256i bytes) {
    // Each group of bytes 0 1 2 is laid out as 1 0 2 1, so that every number lies within 16 bits; multiplying shifts
    // each into its place.
    const __m256i layout = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10,  //
                                            1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    const __m256i groups = _mm256_shuffle_epi8(bytes, layout);
    const __m256i even = _mm256_and_si256(groups, _mm256_set1_epi32(0x0fc0fc00));
    const __m256i odd = _mm256_and_si256(groups, _mm256_set1_epi32(0x003f03f0));
    return _mm256_or_si256(_mm256_mulhi_epu16(even, _mm256_set1_epi32(0x04000040)),
                           _mm256_mullo_epi16(odd, _mm256_set1_epi32(0x01000010)));
}

// The alphabet is five runs: what is to be added to a number depends on its run alone.
VELKOR_AVX2_CODE inline __m256i base64_characters(__m256i numbers) {
    // By run: 0 = "a" to "z", 1 to 10 = the digits, 11 = "+", 12 = "/", 13 = "A" to "Z".
    const __m256i offsets = _mm256_setr_epi8(71, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 65, 0, 0,  //
                                             71, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 65, 0, 0);
    const __m256i behind_letters = _mm256_subs_epu8(numbers, _mm256_set1_epi8(51));
    const __m256i is_upper = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), numbers);
    const __m256i run = _mm256_or_si256(behind_letters, _mm256_and_si256(is_upper, _mm256_set1_epi8(13)));
    return _mm256_add_epi8(numbers, _mm256_shuffle_epi8(offsets, run));
}

VELKOR_AVX2_CODE inline void base64_x86(char *out, const uint8_t *data, size_t size) {
    constexpr size_t STEP = 24;
    constexpr size_t LOOKED_AT = 28;  // the upper half is read from byte 12 on, whole
    for (; size >= LOOKED_AT; size -= STEP, data += STEP, out += STEP / 3 * 4) {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i *>(data));
        const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i *>(data + STEP / 2));
        const __m256i numbers = base64_numbers(_mm256_set_m128i(high, low));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), base64_characters(numbers));
    }
    base64_plain(out, data, size);
}

#undef VELKOR_AVX2_CODE

}  // namespace velkor

#endif

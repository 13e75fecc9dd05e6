// A hash for look-ups inside this process: as quick as it gets, different on each platform, never stored outside.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <bit>
#include <string_view>

namespace velkor {

// Multiplicative hashing: D. E. Knuth, The Art of Computer Programming, volume 3, section 6.4. The high bits are the
// good ones.
inline constexpr uintptr_t GOLDEN = static_cast<uintptr_t>(sizeof(uintptr_t) == 8 ? 0x9E3779B97F4A7C15U : 0x9E3779B9U);

constexpr uintptr_t stir(uintptr_t hash, uintptr_t word) { return (std::rotl(hash, 5) ^ word) * GOLDEN; }

// The best 32 bits of a hash.
constexpr uint32_t high_half(uintptr_t hash) { return static_cast<uint32_t>(hash >> (sizeof hash * 8 - 32)); }

// A word at a time; the last one of a longer text overlaps the one before it.
inline uintptr_t quick_hash(std::string_view text) {
    uintptr_t hash = text.size();
    uintptr_t word = 0;
    if (text.size() < sizeof word) {
        memcpy(&word, text.data(), text.size());
        return stir(hash, word);
    }
    const char *const last = text.data() + text.size() - sizeof word;
    for (const char *at = text.data(); at < last; at += sizeof word) {
        memcpy(&word, at, sizeof word);
        hash = stir(hash, word);
    }
    memcpy(&word, last, sizeof word);
    return stir(hash, word);
}

}  // namespace velkor

// Bytes that one thread rewrites while others read them: every access is a relaxed atomic load or store, so that
// there is no data race. What was read may be a mixture; whoever reads must notice that by other means.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace velkor {

// The bytes are an array of characters to everybody else.
using RacingWord [[gnu::may_alias]] = uintptr_t;

inline char load_racing_byte(const char *from) { return __atomic_load_n(from, __ATOMIC_RELAXED); }

// Both places are aligned for a word and `size` is a multiple of one.
inline void store_racing(char *to, const char *from, size_t size) {
    for (size_t i = 0; i < size; i += sizeof(RacingWord)) {
        const RacingWord word = *reinterpret_cast<const RacingWord *>(from + i);
        __atomic_store_n(reinterpret_cast<RacingWord *>(to + i), word, __ATOMIC_RELAXED);
    }
}

inline void clear_racing(char *to, size_t size) {
    for (size_t i = 0; i < size; i += sizeof(RacingWord)) {
        __atomic_store_n(reinterpret_cast<RacingWord *>(to + i), 0, __ATOMIC_RELAXED);
    }
}

inline void load_racing(char *to, const char *from, size_t size) {
    for (size_t i = 0; i < size; i += sizeof(RacingWord)) {
        const RacingWord word = __atomic_load_n(reinterpret_cast<const RacingWord *>(from + i), __ATOMIC_RELAXED);
        *reinterpret_cast<RacingWord *>(to + i) = word;
    }
}

}  // namespace velkor

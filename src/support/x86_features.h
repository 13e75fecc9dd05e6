// What this processor has beyond the instructions that every x86-64 has. Asking costs microseconds on a virtual
// machine, so whoever asks remembers what it chose.
#pragma once

#if defined(__x86_64__)

#include <cpuid.h>
#include <stdint.h>

namespace velkor {

struct CpuLeaf {
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
};

inline CpuLeaf cpu_leaf(unsigned number) {
    CpuLeaf leaf;
    __get_cpuid_count(number, 0, &leaf.a, &leaf.b, &leaf.c, &leaf.d);
    return leaf;
}

inline bool cpu_has_sha() {
    const bool has_shuffles = (cpu_leaf(1).c & bit_SSSE3) != 0 && (cpu_leaf(1).c & bit_SSE4_1) != 0;
    return has_shuffles && (cpu_leaf(7).b & (1U << 29)) != 0;
}

// The kernel must save the wide registers as well as the processor have them.
inline bool cpu_has_avx2() {
    constexpr unsigned SAVED_BY_KERNEL = 6;  // the halves of a 256-bit register
    if ((cpu_leaf(1).c & bit_OSXSAVE) == 0) {
        return false;
    }
    unsigned low = 0;
    unsigned high = 0;
    __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return (low & SAVED_BY_KERNEL) == SAVED_BY_KERNEL && (cpu_leaf(7).b & bit_AVX2) != 0;
}

}  // namespace velkor

#endif

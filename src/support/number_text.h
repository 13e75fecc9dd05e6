// Numbers out of configuration texts, the same on both platforms.
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <limits>

namespace velkor {

// atoi() as the recorder's C library has it, whose `long` has 32 bits: a number out of range becomes the nearest one
// that fits, where a 64-bit C library would cut bits off.
inline int number_of(const char *text) {
    using Range = std::numeric_limits<int32_t>;
    return static_cast<int>(std::clamp<long long>(strtoll(text, nullptr, 10), Range::min(), Range::max()));
}

}  // namespace velkor

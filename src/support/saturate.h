// Wide numbers in 32 bits: what does not fit becomes the nearest that does, and what is no number becomes 0.
#pragma once

#include <limits.h>
#include <stdint.h>

#include <algorithm>

namespace velkor {

inline int to_int(int64_t value) { return static_cast<int>(std::clamp<int64_t>(value, INT_MIN, INT_MAX)); }

inline int to_int(double value) {
    if (value != value) {
        return 0;
    }
    return static_cast<int>(std::clamp(value, static_cast<double>(INT_MIN), static_cast<double>(INT_MAX)));
}

}  // namespace velkor

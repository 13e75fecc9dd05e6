// A text into a file, past the streams of the C library: those of a small one do not tell each failure.
#pragma once

#include <unistd.h>

#include "support/uninterrupted.h"

namespace velkor {

// Answers whether all of it was taken.
inline bool write_whole(int descriptor, const char *text, size_t length) {
    while (length > 0) {
        const ssize_t taken = uninterrupted([&] { return write(descriptor, text, length); });
        if (taken <= 0) {
            return false;
        }
        text += taken;
        length -= static_cast<size_t>(taken);
    }
    return true;
}

}  // namespace velkor

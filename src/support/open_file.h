// Files that the library opens by their paths. Who starts a command at the same moment must not leave them to it, so
// they are closed on exec from their birth; and whatever is at a path, a FIFO that nobody writes to or a line that
// nobody answers, opening and reading it does not wait: it has nothing to say then.
#pragma once

#include <fcntl.h>
#include <stdio.h>

#include "support/owners.h"

namespace velkor {

inline int open_file(const char *path, int flags) {
    constexpr mode_t ANYBODY = 0666;
    return open(path, flags | O_NOCTTY | O_CLOEXEC | O_NONBLOCK, ANYBODY);
}

// Takes the descriptor where there is a stream of it.
inline FILE *stream_of(OwnedDescriptor &descriptor, const char *mode) {
    FILE *const stream = descriptor ? fdopen(descriptor.get(), mode) : nullptr;
    if (stream != nullptr) {
        descriptor.release();
    }
    return stream;
}

inline FILE *open_file_stream(const char *path, int flags, const char *mode) {
    OwnedDescriptor descriptor(open_file(path, flags));
    return stream_of(descriptor, mode);
}

}  // namespace velkor

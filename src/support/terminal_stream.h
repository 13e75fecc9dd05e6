// Terminals that the library writes to.
#pragma once

#include <fcntl.h>
#include <stdio.h>

#include "support/owners.h"

namespace velkor {

// A command started by the recorder has no business with the terminal, and a daemon that leads a session must not get
// it for its controlling terminal, whose hang-up would end it.
inline FILE *open_terminal_stream(const char *path, int flags, const char *mode) {
    constexpr mode_t ANYBODY = 0666;
    OwnedDescriptor descriptor(open(path, flags | O_NOCTTY | O_CLOEXEC, ANYBODY));
    FILE *const stream = descriptor ? fdopen(descriptor.get(), mode) : nullptr;
    if (stream != nullptr) {
        descriptor.release();
    }
    return stream;
}

}  // namespace velkor

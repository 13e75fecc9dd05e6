// Terminals that the library writes to.
#pragma once

#include <fcntl.h>
#include <stdio.h>

#include "support/open_file.h"
#include "support/owners.h"

namespace velkor {

// A daemon that leads a session must not get the terminal for its controlling terminal, whose hang-up would end it. The
// open does not wait for the other end of a line; what is written does wait until it is taken.
inline FILE *open_terminal_stream(const char *path, int flags, const char *mode) {
    OwnedDescriptor descriptor(open_file(path, flags));
    const int status = descriptor ? fcntl(descriptor.get(), F_GETFL) : -1;
    if (status < 0 || fcntl(descriptor.get(), F_SETFL, status & ~O_NONBLOCK) != 0) {
        return nullptr;
    }
    return stream_of(descriptor, mode);
}

}  // namespace velkor

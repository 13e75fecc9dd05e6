// The record in which the kernel is asked about an interface.
#pragma once

#include <net/if.h>
#include <string.h>

#include <velkor/text.h>

namespace velkor {

// Of a longer name the first 15 characters; no name is an empty one, which no interface has.
inline struct ifreq interface_request(const char *name) {
    struct ifreq request;
    memset(&request, 0, sizeof request);
    strncopy(request.ifr_name, name, IFNAMSIZ - 1);
    return request;
}

}  // namespace velkor

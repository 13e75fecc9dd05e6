// The IPv6 addresses of this machine's interfaces, as the kernel lists them.
#include <arpa/inet.h>
#include <linux/if_addr.h>
#include <netinet/in.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <iterator>

#include <velkor/firmware.h>
#include <velkor_host.h>

namespace {

struct Line {
    struct in6_addr address;
    unsigned interface;
    unsigned prefix_length;
    unsigned flags;
};

// "fe80000000000000020000fffe000001 02 40 20 80 eth0": address, interface, prefix length, scope, flags, name.
bool parse_line(const char *text, Line &line) {
    unsigned scope = 0;
    int length = 0;
    for (unsigned char &byte : line.address.s6_addr) {
        unsigned value = 0;
        if (sscanf(text, "%2x%n", &value, &length) != 1 || length != 2) {
            return false;
        }
        byte = static_cast<unsigned char>(value);
        text += length;
    }
    return sscanf(text, "%x %x %x %x", &line.interface, &line.prefix_length, &scope, &line.flags) == 4;
}

template <typename Take>
void for_each_address(uintptr_t device, Take take) {
    FILE *const file = fopen("/proc/net/if_inet6", "re");
    if (file == nullptr) {
        return;
    }
    char text[256];
    Line line = {};
    while (fgets(text, sizeof text, file) != nullptr) {
        if (parse_line(text, line) && line.interface == device) {
            take(line);
        }
    }
    fclose(file);
}

int32_t method_of(const Line &line) {
    if (IN6_IS_ADDR_LINKLOCAL(&line.address)) {
        return VELKOR_HOST_IPV6_LINK_LOCAL;
    }
    return (line.flags & IFA_F_PERMANENT) != 0 ? VELKOR_HOST_IPV6_STATIC : VELKOR_HOST_IPV6_AUTOMATIC;
}

}  // namespace

int NetDevice_GetIpv6AddressList(uintptr_t device, void *list) {
    if (list == nullptr) {
        return -1;
    }
    auto &filled = *static_cast<NetIpv6AddressList *>(list);
    filled = {};
    for_each_address(device, [&](const Line &line) {
        if (filled.count == static_cast<int32_t>(std::size(filled.entries))) {
            return;
        }
        NetIpv6Address &entry = filled.entries[filled.count++];
        entry.method = method_of(line);
        entry.attribute = line.prefix_length;
        inet_ntop(AF_INET6, &line.address, entry.address, sizeof entry.address);
    });
    return 0;
}

int NetGetCurIpv6Method(uintptr_t device) {
    int32_t greatest = VELKOR_HOST_IPV6_LINK_LOCAL;
    for_each_address(device, [&](const Line &line) { greatest = std::max(greatest, method_of(line)); });
    return greatest;
}

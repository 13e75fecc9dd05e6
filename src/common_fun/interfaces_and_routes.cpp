// What the kernel, or the firmware's network device library, knows about an interface.
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <span>

#include <velkor/firmware.h>
#include <velkor/network.h>
#include <velkor/text.h>

#include "common_fun/route_dump.h"
#include "support/interface_request.h"
#include "support/lock_guard.h"
#include "support/log.h"
#include "support/owners.h"
#include "support/platform.h"

static_assert(sizeof(NetIpv6AddressList) == 1220);

char g_cIpcConnectCheck[257];

namespace {

// ---- Addresses of an interface ----

void write_ipv4(char *out, uint32_t address) { inet_ntop(AF_INET, &address, out, INET_ADDRSTRLEN); }

bool ask_ipv4(int socket, unsigned long question, struct ifreq &request, char *out) {
    if (ioctl(socket, question, &request) != 0) {
        return false;
    }
    struct sockaddr_in address;
    memcpy(&address, &request.ifr_addr, sizeof address);
    write_ipv4(out, address.sin_addr.s_addr);
    return true;
}

// ---- Routes ----

// The dump is asked for under the number 0 and read as an answer to number 1: it ends with its end, and nowhere before.
constexpr uint32_t ASKED_SEQUENCE = 0;
constexpr uint32_t AWAITED_SEQUENCE = 1;

bool ask_for_routes(int socket, uint32_t port) {
    struct {
        struct nlmsghdr header;
        struct rtmsg message;
    } request;
    memset(&request, 0, sizeof request);
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETROUTE;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.header.nlmsg_seq = ASKED_SEQUENCE;
    request.header.nlmsg_pid = port;
    static_assert(sizeof request == 28);
    return velkor::uninterrupted([&] { return send(socket, &request, sizeof request, 0); }) >= 0;
}

// The kernel knows the interface by its number; one that is gone by now, or was not told, has no name.
bool leaves_through(const velkor::Route &route, const char *interface) {
    char name[IF_NAMESIZE] = "";
    if (route.interface != 0) {
        if_indextoname(route.interface, name);
    }
    return strcmp(name, interface) == 0;
}

// ---- IPv6 addresses ----

std::span<NetIpv6Address> entries_of(NetIpv6AddressList &list) {
    const int32_t room = static_cast<int32_t>(std::size(list.entries));
    return std::span(list.entries).first(static_cast<size_t>(std::clamp(list.count, 0, room)));
}

// The entry of this method whose text comes first.
NetIpv6Address *find_first(std::span<NetIpv6Address> entries, int32_t method) {
    NetIpv6Address *first = nullptr;
    for (NetIpv6Address &entry : entries) {
        entry.address[sizeof entry.address - 1] = '\0';
        if (entry.method == method && (first == nullptr || strcmp(entry.address, first->address) < 0)) {
            first = &entry;
        }
    }
    return first;
}

}  // namespace

int get_local_address(char *address, char *mask, const char *interface) {
    const velkor::OwnedDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket) {
        return -1;
    }
    struct ifreq request = velkor::interface_request(interface);
    if (address != nullptr && !ask_ipv4(socket.get(), SIOCGIFADDR, request, address)) {
        return -1;
    }
    if (mask != nullptr && !ask_ipv4(socket.get(), SIOCGIFNETMASK, request, mask)) {
        return -1;
    }
    return 0;
}

int GetNetInterFaceMac(char *out, const char *interface) {
    const velkor::OwnedDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    struct ifreq request = velkor::interface_request(interface);
    if (!socket || out == nullptr || ioctl(socket.get(), SIOCGIFHWADDR, &request) != 0) {
        return -1;
    }
    memcpy(out, request.ifr_hwaddr.sa_data, 6);
    out[6] = '\0';
    return 0;
}

int get_gateway(char *gateway, const char *interface) {
    if (gateway == nullptr || interface == nullptr) {
        return -1;
    }
    const velkor::OwnedDescriptor socket(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!socket) {
        perror("Socket Creation: ");
        return -1;
    }
    const uint32_t port = static_cast<uint32_t>(getpid());
    if (!ask_for_routes(socket.get(), port)) {
        return -1;
    }
    velkor::RouteBuffer buffer = {};
    const int length = velkor::RouteDumpReader(buffer, AWAITED_SEQUENCE, port).read(socket.get());
    if (length < 0) {
        return -1;
    }
    char name[IF_NAMESIZE];
    strncopy(name, interface, IF_NAMESIZE - 1);
    velkor::for_each_route(velkor::Bytes(buffer).first(static_cast<size_t>(length)), [&](const velkor::Route &route) {
        if (velkor::looks_like_default(route.destination) && leaves_through(route, name)) {
            write_ipv4(gateway, route.gateway);
        }
    });
    return 0;
}

int NetDevice_GetIpv6AddressUsed(char *address, uint32_t *attribute, uintptr_t device) {
    if (device == 0) {
        VK_LOG("%s %d PARA is NULL.", "NetDevice_GetIpv6AddressUsed", 167);
        return -1;
    }
    NetIpv6AddressList list;
    memset(&list, 0, sizeof list);
    NetDevice_GetIpv6AddressList(device, &list);
    const int32_t method = NetGetCurIpv6Method(device);
    if (list.count != 0) {
        VK_LOG("%s %d CurIpv6AddrCnt:%d", "NetDevice_GetIpv6AddressUsed", 176, list.count);
    }
    const NetIpv6Address *const used = find_first(entries_of(list), method);
    if (used == nullptr) {
        return -1;
    }
    if (address != nullptr) {
        vk_strncpy(address, sizeof used->address, used->address, sizeof used->address);
    }
    if (attribute != nullptr) {
        *attribute = used->attribute;
    }
    return 0;
}

namespace {

// The C library's generator has a lock of its own, which a forked child would inherit locked, and wait for ever. So it
// is used under this lock, and a fork holds it.
pthread_mutex_t generator_lock = PTHREAD_MUTEX_INITIALIZER;

__attribute__((constructor)) void survive_fork() { velkor::hold_over_fork<generator_lock>(); }

int seeded_number() {
    const velkor::LockGuard guard(generator_lock);
    srand(static_cast<unsigned>(getpid()) + static_cast<unsigned>(time(nullptr)));
    return rand();  // NOLINT(concurrency-mt-unsafe,cert-msc30-c,cert-msc50-cpp): for a port, no secret
}

}  // namespace

uint16_t GetRandomPort(uint16_t lower) {
    const int port = seeded_number() & 0xffff;
    return static_cast<uint16_t>(port < lower ? port + lower : port);
}

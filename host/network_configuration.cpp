// The network part of the firmware's configuration: what this machine has now. Its Ethernet interfaces, in the kernel's
// order, are the cards; bonding is on when there are interfaces of those names.
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <stddef.h>
#include <string.h>

#include <algorithm>

#include <velkor/firmware.h>

namespace {

// Each thread has answers of its own, so that one can be read while another thread asks.
thread_local CfgNetConfig network;
thread_local CfgMediaDevice device;

const struct sockaddr_ll *link_of(const struct ifaddrs &entry) {
    const bool has_link = entry.ifa_addr != nullptr && entry.ifa_addr->sa_family == AF_PACKET;
    return has_link ? reinterpret_cast<const struct sockaddr_ll *>(entry.ifa_addr) : nullptr;
}

bool is_card(const struct ifaddrs &entry) {
    const struct sockaddr_ll *const link = link_of(entry);
    return link != nullptr && link->sll_hatype == ARPHRD_ETHER && link->sll_halen == sizeof network.mac[0] &&
           (entry.ifa_flags & IFF_LOOPBACK) == 0 && strncmp(entry.ifa_name, "bond", 4) != 0;
}

template <typename Take>
void for_each_card(Take take) {
    struct ifaddrs *first = nullptr;
    if (getifaddrs(&first) != 0) {
        return;
    }
    for (const struct ifaddrs *entry = first; entry != nullptr; entry = entry->ifa_next) {
        if (is_card(*entry)) {
            take(link_of(*entry)->sll_addr);
        }
    }
    freeifaddrs(first);
}

bool exists(const char *interface) { return if_nametoindex(interface) != 0; }

}  // namespace

const CfgNetConfig *Cfg_gNetConfig(int number) {
    if (number != 0) {
        return nullptr;
    }
    network = {};
    network.bonding = exists("bond0") ? 1 : 0;
    network.secondBond = exists("bond1") ? 1 : 0;
    size_t card = 0;
    for_each_card([&](const unsigned char *mac) {
        if (card < VELKOR_CARDS) {
            std::reverse_copy(mac, mac + sizeof network.mac[0], network.mac[card++]);
        }
    });
    return &network;
}

const CfgMediaDevice *Cfg_gMediaDevice(int number) {
    if (number != 0) {
        return nullptr;
    }
    device = {};
    for_each_card([](const unsigned char *) { ++device.cardCount; });
    return &device;
}

// One ARP question on one interface, and listening for what comes of it.
#pragma once

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "net_check/arp_packet.h"
#include "support/interface_request.h"
#include "support/owners.h"
#include "support/uninterrupted.h"

namespace velkor {

// How a question is asked. Both conflict checks leave it as it is here: as duplicate address detection.
struct ArpManner {
    bool detects_duplicates = true;  // ask from no address
    bool is_unsolicited = false;     // otherwise: ask from the very address asked for
    bool advertises = false;         // tell instead of ask
};

class ArpProbe {
public:
    explicit ArpProbe(ArpManner manner = {})
        : manner_(manner), socket_(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

    // Sends the question. False when it cannot be asked; a packet that the system did not take is only not counted.
    bool ask(const char *interface, const char *address) {
        if (!socket_ || !find_interface(interface) || !find_target(address) || !find_source(interface) || !bind()) {
            return false;
        }
        send();
        return true;
    }

    int descriptor() const { return socket_.get(); }
    int sent() const { return sent_; }
    const ArpQuestion &question() const { return question_; }

    // Whether a packet answers the question.
    bool is_answered_by(ArpBytes packet, unsigned char packet_type) const {
        return is_well_formed(packet, packet_type, question_.own) &&
               is_answer(packet, question_, manner_.detects_duplicates);
    }

private:
    bool find_interface(const char *name) {
        struct ifreq request = interface_request(name);
        if (ioctl(socket_.get(), SIOCGIFINDEX, &request) != 0) {
            return false;
        }
        index_ = request.ifr_ifindex;
        if (ioctl(socket_.get(), SIOCGIFFLAGS, &request) != 0) {
            return false;
        }
        return (request.ifr_flags & (IFF_UP | IFF_LOOPBACK | IFF_NOARP)) == IFF_UP;
    }

    bool find_target(const char *address) {
        struct in_addr target;
        if (inet_aton(address, &target) != 0) {
            question_.target = target.s_addr;
            return true;
        }
        struct addrinfo hints = {};
        hints.ai_family = AF_INET;
        struct addrinfo *result = nullptr;
        if (getaddrinfo(address, nullptr, &hints, &result) != 0 || result == nullptr) {
            return false;
        }
        question_.target = reinterpret_cast<const struct sockaddr_in *>(result->ai_addr)->sin_addr.s_addr;
        freeaddrinfo(result);
        return true;
    }

    bool find_source(const char *interface) {
        if (manner_.detects_duplicates) {
            return true;
        }
        if (manner_.is_unsolicited) {
            question_.source = question_.target;
            return true;
        }
        return find_route_source(interface);
    }

    // The address from which this interface would talk to the target.
    bool find_route_source(const char *interface) {
        const OwnedDescriptor route(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        const struct ifreq device = interface_request(interface);
        if (!route || setsockopt(route.get(), SOL_SOCKET, SO_BINDTODEVICE, device.ifr_name, IFNAMSIZ) != 0) {
            return false;
        }
        const int on = 1;
        if (setsockopt(route.get(), SOL_SOCKET, SO_DONTROUTE, &on, sizeof on) != 0) {
            perror("WARNING: setsockopt(SO_DONTROUTE)");
        }
        struct sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(1025);
        address.sin_addr.s_addr = question_.target;
        socklen_t size = sizeof address;
        auto *const generic = reinterpret_cast<struct sockaddr *>(&address);
        if (connect(route.get(), generic, size) != 0 || getsockname(route.get(), generic, &size) != 0) {
            return false;
        }
        question_.source = address.sin_addr.s_addr;
        return true;
    }

    // From here on the socket hears the interface's ARP packets, and knows its hardware address.
    bool bind() {
        struct sockaddr_ll &own = question_.own;
        own.sll_family = AF_PACKET;
        own.sll_protocol = htons(ETH_P_ARP);
        own.sll_ifindex = index_;
        socklen_t size = sizeof own;
        auto *const generic = reinterpret_cast<struct sockaddr *>(&own);
        if (::bind(socket_.get(), generic, size) != 0 || getsockname(socket_.get(), generic, &size) != 0 ||
            own.sll_halen == 0) {
            return false;
        }
        own.sll_halen = std::min<unsigned char>(own.sll_halen, sizeof own.sll_addr);
        return question_.source != 0 || manner_.detects_duplicates;
    }

    void send() {
        question_.advertises = manner_.advertises;
        const ArpPacket packet = write_arp(question_);
        struct sockaddr_ll everybody = question_.own;
        memset(everybody.sll_addr, 0xff, everybody.sll_halen);
        const ssize_t length = uninterrupted([&] {
            return sendto(socket_.get(), packet.bytes.data(), packet.size, 0,
                          reinterpret_cast<const struct sockaddr *>(&everybody), sizeof everybody);
        });
        sent_ += length == static_cast<ssize_t>(packet.size) ? 1 : 0;
    }

    const ArpManner manner_;
    const OwnedDescriptor socket_;
    ArpQuestion question_ = {};
    int index_ = 0;
    int sent_ = 0;
};

// The whole seconds by the clock since the listening began, until they reach a number. A clock that is set back ends
// it.
class ListeningTime {
public:
    explicit ListeningTime(int seconds) : seconds_(seconds) {}
    bool is_over() const {
        const time_t now = time(nullptr);
        return now < start_ || now - start_ >= seconds_;
    }

private:
    const int seconds_;
    const time_t start_ = time(nullptr);
};

// Where a packet is read to: room for the longest, and cleared before each, so that a field beyond a short one reads 0.
using ArpRoom = std::array<unsigned char, 4096>;

// One look at the socket, of a millisecond at most. Answers the length of what came, 0 when nothing did.
inline size_t receive_arp(int socket, ArpRoom &room, unsigned char &packet_type) {
    if (wait_readable(socket, 1) <= 0) {
        return 0;
    }
    room.fill(0);
    struct sockaddr_ll from = {};
    socklen_t size = sizeof from;
    const ssize_t length = uninterrupted([&] {
        return recvfrom(socket, room.data(), room.size(), MSG_DONTWAIT, reinterpret_cast<struct sockaddr *>(&from),
                        &size);
    });
    packet_type = from.sll_pkttype;
    return length > 0 ? static_cast<size_t>(length) : 0;
}

// Hands every packet that comes to `take`, until that is `enough` or the time is over, which is looked at after each
// look at the socket.
template <typename Take, typename Enough>
void listen_for_arp(int socket, int seconds, Take take, Enough enough) {
    const ListeningTime time(std::max(seconds, 1));
    ArpRoom room;
    do {
        unsigned char packet_type = PACKET_HOST;
        if (const size_t length = receive_arp(socket, room, packet_type); length > 0) {
            take(room, length, packet_type);
        }
    } while (!enough() && !time.is_over());
}

}  // namespace velkor

// ARP packets over a packet socket, which adds and takes off the link layer (RFC 826). A packet from the network is
// held against its length before a field of it is read.
#pragma once

#include <linux/if_packet.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <array>
#include <span>

namespace velkor {

using ArpBytes = std::span<const unsigned char>;

// Where the fields are behind the eight bytes that every packet has.
struct ArpLayout {
    size_t hardware_length;

    static constexpr size_t HEADER_SIZE = 8;
    constexpr size_t sender_hardware() const { return HEADER_SIZE; }
    constexpr size_t sender_protocol() const { return HEADER_SIZE + hardware_length; }
    constexpr size_t target_hardware() const { return sender_protocol() + 4; }
    constexpr size_t target_protocol() const { return target_hardware() + hardware_length; }
    constexpr size_t size() const { return target_protocol() + 4; }
};

// A 32-bit address as it lies in a packet, in network order.
inline uint32_t address_at(ArpBytes packet, size_t offset) {
    uint32_t address;
    memcpy(&address, &packet[offset], sizeof address);
    return address;
}

inline unsigned number_at(ArpBytes packet, size_t offset) {
    return static_cast<unsigned>(packet[offset]) << 8 | packet[offset + 1];
}

// ---- Sending ----

// Who asks for what. Addresses are in network order; 0 is no address.
struct ArpQuestion {
    struct sockaddr_ll own;  // its address is at most the eight bytes that there is room for
    uint32_t source;
    uint32_t target;
    bool advertises;
};

struct ArpPacket {
    std::array<unsigned char, ArpLayout{sizeof(sockaddr_ll::sll_addr)}.size()> bytes;
    size_t size;
};

inline ArpPacket write_arp(const ArpQuestion &question) {
    const ArpLayout layout = {question.own.sll_halen};
    const unsigned char operation = question.advertises ? ARPOP_REPLY : ARPOP_REQUEST;
    ArpPacket packet = {{0, ARPHRD_ETHER, 0x08, 0x00, question.own.sll_halen, 4, 0, operation}, layout.size()};
    unsigned char *const bytes = packet.bytes.data();
    memcpy(bytes + layout.sender_hardware(), question.own.sll_addr, layout.hardware_length);
    memcpy(bytes + layout.sender_protocol(), &question.source, sizeof question.source);
    if (question.advertises) {
        memcpy(bytes + layout.target_hardware(), question.own.sll_addr, layout.hardware_length);
    } else {
        memset(bytes + layout.target_hardware(), 0xff, layout.hardware_length);
    }
    memcpy(bytes + layout.target_protocol(), &question.target, sizeof question.target);
    return packet;
}

// ---- Receiving ----

// Whether a packet is an ARP packet for IPv4 as this interface would send one.
inline bool is_well_formed(ArpBytes packet, unsigned char packet_type, const struct sockaddr_ll &own) {
    if (packet.size() < ArpLayout::HEADER_SIZE || packet_type > PACKET_MULTICAST) {
        return false;
    }
    const unsigned hardware_type = number_at(packet, 0);
    const unsigned operation = number_at(packet, 6);
    const bool has_hardware_type =
        hardware_type == own.sll_hatype || (own.sll_hatype == ARPHRD_FDDI && hardware_type == ARPHRD_ETHER);
    return (operation == ARPOP_REQUEST || operation == ARPOP_REPLY) && has_hardware_type &&
           number_at(packet, 2) == 0x0800 && packet[4] == own.sll_halen && packet[5] == 4 &&
           packet.size() >= ArpLayout{packet[4]}.size();
}

// Whether a well-formed packet answers the question.
inline bool is_answer(ArpBytes packet, const ArpQuestion &question, bool detects_duplicates) {
    const ArpLayout layout = {question.own.sll_halen};
    const auto is_own = [&](size_t offset) {
        return memcmp(&packet[offset], question.own.sll_addr, layout.hardware_length) == 0;
    };
    const bool tells_target = address_at(packet, layout.sender_protocol()) == question.target;
    const bool is_to_source = address_at(packet, layout.target_protocol()) == question.source;
    if (detects_duplicates) {
        return tells_target && !is_own(layout.sender_hardware()) && (question.source == 0 || is_to_source);
    }
    return tells_target && is_to_source && is_own(layout.target_hardware());
}

}  // namespace velkor

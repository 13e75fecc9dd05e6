// ICMP echo as a raw socket sees it (RFC 792): what is sent begins with the ICMP header, what comes with the IP header.
#pragma once

#include <netinet/ip_icmp.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <array>
#include <optional>
#include <span>

namespace velkor {

inline constexpr size_t ECHO_SIZE = 64;

// RFC 1071. An odd last byte counts as a word whose other byte is 0.
inline uint16_t internet_checksum(std::span<const unsigned char> bytes) {
    uint32_t sum = 0;
    size_t at = 0;
    for (; at + 1 < bytes.size(); at += 2) {
        uint16_t word;
        memcpy(&word, &bytes[at], sizeof word);
        sum += word;
    }
    if (at < bytes.size()) {
        uint16_t word = 0;
        memcpy(&word, &bytes[at], 1);
        sum += word;
    }
    sum = (sum & 0xffff) + (sum >> 16);
    sum += sum >> 16;
    return static_cast<uint16_t>(~sum);
}

// The identifier lies in the packet as this machine stores it, sequence number and data are 0.
inline std::array<unsigned char, ECHO_SIZE> write_echo_request(uint16_t identifier) {
    struct icmphdr header = {};
    header.type = ICMP_ECHO;
    header.un.echo.id = identifier;
    std::array<unsigned char, ECHO_SIZE> packet = {};
    memcpy(packet.data(), &header, sizeof header);
    header.checksum = internet_checksum(packet);
    memcpy(packet.data(), &header, sizeof header);
    return packet;
}

struct IcmpHead {
    uint8_t type;
    uint16_t identifier;
};

// Behind an IP header of the length that it says; nothing when fewer bytes than an ICMP header has are left.
inline std::optional<IcmpHead> icmp_head_of(std::span<const unsigned char> packet) {
    const size_t ip_length = packet.empty() ? 0 : size_t{packet[0]} % 16 * 4;
    struct icmphdr header;
    if (packet.size() < ip_length + sizeof header) {
        return std::nullopt;
    }
    memcpy(&header, packet.data() + ip_length, sizeof header);
    return IcmpHead{header.type, header.un.echo.id};
}

}  // namespace velkor

// The kernel's routes as it tells them over a netlink socket (RFC 3549). What comes is held against its own lengths
// before it is looked at: a header against what was received, an attribute against its message.
#pragma once

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <optional>
#include <span>

#include "support/uninterrupted.h"

namespace velkor {

using Bytes = std::span<const char>;

// A whole dump lies in here, or none.
using RouteBuffer = std::array<char, 16384>;

// The record at the head of some bytes, which may lie anywhere; nothing when they are too few.
template <typename Record>
std::optional<Record> head_of(Bytes bytes) {
    if (bytes.size() < sizeof(Record)) {
        return std::nullopt;
    }
    Record record;
    memcpy(&record, bytes.data(), sizeof record);
    return record;
}

// ---- Reading a dump ----

// Collects messages until one of them is the end. `total` counts what the messages say of their lengths, `received`
// what came; they differ when a message lies.
class RouteDumpReader {
public:
    RouteDumpReader(RouteBuffer &buffer, uint32_t sequence, uint32_t port)
        : buffer_(buffer), sequence_(sequence), port_(port) {}

    // Answers the length of all messages, or -1.
    int read(int socket) {
        for (;;) {
            const size_t room = buffer_.size() - std::max(total_, received_);
            const ssize_t length =
                uninterrupted([&] { return recv(socket, buffer_.data() + received_, room, MSG_DONTWAIT); });
            if (length < 0) {
                perror("SOCK READ: ");
                return -1;
            }
            const Bytes block(buffer_.data() + received_, static_cast<size_t>(length));
            received_ += block.size();
            if (const std::optional<int> result = walk(block)) {
                return *result;
            }
        }
    }

private:
    // Answers the result when this block ends the dump.
    std::optional<int> walk(Bytes block) {
        struct nlmsghdr last = {};
        last.nlmsg_seq = ~sequence_;
        for (size_t at = 0; at < block.size();) {
            const std::optional<struct nlmsghdr> header = head_of<struct nlmsghdr>(block.subspan(at));
            last = header.value_or(last);
            if (!header || header->nlmsg_len < sizeof *header || header->nlmsg_len > block.size() ||
                header->nlmsg_type == NLMSG_ERROR) {
                return refuse(last);
            }
            if (header->nlmsg_type == NLMSG_DONE) {
                return static_cast<int>(total_);
            }
            total_ += header->nlmsg_len;
            if (total_ > buffer_.size()) {
                return -1;
            }
            if ((header->nlmsg_flags & NLM_F_MULTI) == 0) {
                return static_cast<int>(total_);
            }
            at += header->nlmsg_len;
        }
        return block.empty() ? refuse(last) : ends_with(last);
    }

    std::optional<int> refuse(const struct nlmsghdr &last) const {
        perror("Error in recieved packet");
        return ends_with(last);
    }

    std::optional<int> ends_with(const struct nlmsghdr &last) const {
        const bool is_ours = last.nlmsg_seq == sequence_ && last.nlmsg_pid == port_;
        return is_ours ? std::optional<int>(static_cast<int>(total_)) : std::nullopt;
    }

    RouteBuffer &buffer_;
    const uint32_t sequence_;
    const uint32_t port_;
    size_t total_ = 0;
    size_t received_ = 0;
};

// ---- Taking a dump apart ----

// What a message told of a route; what it did not tell is 0. Addresses are in network order.
struct Route {
    uint32_t destination = 0;
    uint32_t gateway = 0;
    uint32_t interface = 0;
};

// Hands each piece of `bytes` on that begins with a `Header` and is as long as `length_of` it says, rounded up to four,
// until one lies about its length.
template <typename Header, typename Length, typename Take>
void for_each_piece(Bytes bytes, Length length_of, Take take) {
    while (const std::optional<Header> header = head_of<Header>(bytes)) {
        const size_t length = length_of(*header);
        if (length < sizeof(Header) || length > bytes.size()) {
            return;
        }
        take(*header, bytes.subspan(sizeof(Header), length - sizeof(Header)));
        bytes = bytes.subspan(std::min(bytes.size(), (length + 3) & ~size_t{3}));
    }
}

inline void take_attribute(Route &route, uint16_t type, Bytes content) {
    const std::optional<uint32_t> word = head_of<uint32_t>(content);
    if (!word) {
        return;
    }
    switch (type) {
        case RTA_DST:
            route.destination = *word;
            break;
        case RTA_OIF:
            route.interface = *word;
            break;
        case RTA_GATEWAY:
            route.gateway = *word;
            break;
        default:
            break;
    }
}

// The route that a message's content tells of, if it is an IPv4 route of the main table.
inline std::optional<Route> parse_route(Bytes content) {
    const std::optional<struct rtmsg> message = head_of<struct rtmsg>(content);
    if (!message || message->rtm_family != AF_INET || message->rtm_table != RT_TABLE_MAIN) {
        return std::nullopt;
    }
    Route route;
    for_each_piece<struct rtattr>(
        content.subspan(sizeof *message), [](const struct rtattr &header) { return size_t{header.rta_len}; },
        [&](const struct rtattr &header, Bytes value) { take_attribute(route, header.rta_type, value); });
    return route;
}

// Hands on every IPv4 route of the main table.
template <typename Take>
void for_each_route(Bytes dump, Take take) {
    for_each_piece<struct nlmsghdr>(
        dump, [](const struct nlmsghdr &header) { return size_t{header.nlmsg_len}; },
        [&](const struct nlmsghdr &, Bytes content) {
            if (const std::optional<Route> route = parse_route(content)) {
                take(*route);
            }
        });
}

// Whether the text of an address contains "0.0.0.0", without writing it: the first number ends in the digit 0, the
// others are 0.
inline bool looks_like_default(uint32_t destination) {
    const uint32_t address = ntohl(destination);
    return (address & 0x00ffffff) == 0 && (address >> 24) % 10 == 0;
}

}  // namespace velkor

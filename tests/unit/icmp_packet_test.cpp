#include "net_check/icmp_packet.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes packet(size_t header_words, size_t icmp_bytes) {
    Bytes bytes(header_words * 4);
    bytes.resize(bytes.size() + icmp_bytes);
    if (!bytes.empty()) {
        bytes[0] = static_cast<unsigned char>(0x40 | header_words);
    }
    return bytes;
}

TEST(IcmpHead, FollowsAnIpHeaderOfAnyLength) {
    for (size_t words = 1; words <= 15; ++words) {
        Bytes bytes = packet(words, 8);
        bytes[words * 4] = 3;
        bytes[words * 4 + 4] = 0x34;
        bytes[words * 4 + 5] = 0x12;
        const std::optional<velkor::IcmpHead> head = velkor::icmp_head_of(bytes);
        ASSERT_TRUE(head) << words;
        EXPECT_EQ(head->type, 3);
        EXPECT_EQ(head->identifier, 0x1234);
    }
}

TEST(IcmpHead, OfFewerThanEightBytesIsNone) {
    for (size_t words = 1; words <= 15; ++words) {
        for (size_t rest = 0; rest < 8; ++rest) {
            EXPECT_FALSE(velkor::icmp_head_of(packet(words, rest))) << words << " " << rest;
        }
    }
    EXPECT_FALSE(velkor::icmp_head_of(Bytes()));
    EXPECT_FALSE(velkor::icmp_head_of(Bytes{0x4f}));
}

TEST(EchoRequest, IsZeroBehindItsIdentifier) {
    const auto request = velkor::write_echo_request(0x1234);
    Bytes expected(64);
    expected[0] = 8;
    expected[2] = 0xc3;  // not (0x0008 + 0x1234), low byte first
    expected[3] = 0xed;
    expected[4] = 0x34;
    expected[5] = 0x12;
    EXPECT_EQ(Bytes(request.begin(), request.end()), expected);
}

}  // namespace

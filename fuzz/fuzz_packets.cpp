// Any bytes as an ARP packet and as an ICMP packet, each in a block of exactly its size: no field is read beyond it,
// and what is accepted has every property that it must have.
#include <arpa/inet.h>
#include <net/if_arp.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzzer.h"
#include "net_check/arp_packet.h"
#include "net_check/icmp_packet.h"

namespace {

void look_at_arp(const std::vector<uint8_t> &packet, uint8_t packet_type, uint8_t hardware_length, uint16_t type) {
    velkor::ArpQuestion question = {};
    question.own.sll_halen = hardware_length % (sizeof question.own.sll_addr + 1);
    question.own.sll_hatype = type;
    question.target = inet_addr("10.7.0.9");
    if (!velkor::is_well_formed(packet, packet_type, question.own)) {
        return;
    }
    EXPECT_TRUE(packet_type <= 2);
    EXPECT_TRUE(packet[2] == 8 && packet[3] == 0);
    EXPECT_TRUE(packet[4] == question.own.sll_halen);
    EXPECT_TRUE(packet[5] == 4);
    EXPECT_TRUE(packet[6] == 0 && (packet[7] == 1 || packet[7] == 2));
    EXPECT_TRUE(packet.size() >= 8u + 2 * (question.own.sll_halen + 4u));
    for (const bool detects_duplicates : {true, false}) {
        if (velkor::is_answer(packet, question, detects_duplicates)) {
            EXPECT_TRUE(memcmp(&packet[8u + question.own.sll_halen], &question.target, 4) == 0);
        }
    }
}

void look_at_icmp(const std::vector<uint8_t> &packet) {
    const std::optional<velkor::IcmpHead> head = velkor::icmp_head_of(packet);
    const size_t header = packet.empty() ? 0 : (packet[0] & 15u) * 4;
    EXPECT_TRUE(head.has_value() == (packet.size() >= header + 8));
    if (head) {
        EXPECT_TRUE(head->type == packet[header]);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 4) {
        return 0;
    }
    const std::vector<uint8_t> packet(data + 4, data + size);
    look_at_arp(packet, data[0], data[1], static_cast<uint16_t>(data[2] | data[3] << 8));
    look_at_icmp(packet);
    // The checksum of anything with its own checksum put in is 0.
    std::vector<uint8_t> summed(packet);
    summed.resize(std::max<size_t>(4, (summed.size() + 1) / 2 * 2));
    memset(&summed[2], 0, 2);
    const uint16_t sum = velkor::internet_checksum(summed);
    memcpy(&summed[2], &sum, sizeof sum);
    EXPECT_TRUE(summed.size() > 65536 || velkor::internet_checksum(summed) == 0);
    return 0;
}

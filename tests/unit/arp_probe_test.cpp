#include "net_check/arp_probe.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <net/if_arp.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/place.h"
#include "support/second_host.h"
#include "support/wire.h"

namespace {

using wire::Bytes;

constexpr bool DETECTS = true;

int refused_option = 0;

}  // namespace

// What a kernel does not refuse.
extern "C" int setsockopt(int socket, int level, int option, const void *value, socklen_t size) noexcept {
    if (option == refused_option) {
        errno = EPERM;
        return -1;
    }
    return static_cast<int>(syscall(SYS_setsockopt, socket, level, option, value, size));
}

namespace {

velkor::ArpQuestion question(unsigned short hardware_type = ARPHRD_ETHER, unsigned char length = 6) {
    velkor::ArpQuestion asked = {};
    asked.own.sll_hatype = hardware_type;
    asked.own.sll_halen = length;
    memcpy(asked.own.sll_addr, "\x02\x00\x00\x00\x00\x01\x77\x88", 8);
    asked.source = inet_addr("10.7.0.1");
    asked.target = inet_addr("10.7.0.9");
    return asked;
}

// An answer to that question, without its Ethernet header.
Bytes answer(unsigned hardware_type = ARPHRD_ETHER) {
    wire::ArpFrame frame;
    frame.hardware_type = hardware_type;
    frame.target_mac = wire::mac("02:00:00:00:00:01");
    frame.target = wire::ipv4("10.7.0.1");
    Bytes bytes = frame.bytes();
    bytes.erase(bytes.begin(), bytes.begin() + 14);
    return bytes;
}

TEST(ArpPacket, IsWrittenForAddressesOfUpToEightBytes) {
    const velkor::ArpPacket packet = velkor::write_arp(question(ARPHRD_ETHER, 8));
    const Bytes own = {2, 0, 0, 0, 0, 1, 0x77, 0x88};
    EXPECT_EQ(
        Bytes(packet.bytes.begin(), packet.bytes.begin() + static_cast<ptrdiff_t>(packet.size)),
        wire::joined({{0, 1, 8, 0, 8, 4, 0, 1}, own, wire::ipv4("10.7.0.1"), Bytes(8, 0xff), wire::ipv4("10.7.0.9")}));
}

TEST(ArpPacket, TellsOfItselfWhenItAdvertises) {
    velkor::ArpQuestion asked = question();
    asked.advertises = true;
    const velkor::ArpPacket packet = velkor::write_arp(asked);
    const Bytes own = wire::mac("02:00:00:00:00:01");
    EXPECT_EQ(Bytes(packet.bytes.begin(), packet.bytes.begin() + static_cast<ptrdiff_t>(packet.size)),
              wire::joined({{0, 1, 8, 0, 6, 4, 0, 2}, own, wire::ipv4("10.7.0.1"), own, wire::ipv4("10.7.0.9")}));
}

TEST(ArpForm, AcceptsHostBroadcastAndMulticastPackets) {
    for (const int type : {PACKET_HOST, PACKET_BROADCAST, PACKET_MULTICAST}) {
        EXPECT_TRUE(velkor::is_well_formed(answer(), static_cast<unsigned char>(type), question().own));
    }
    for (const int type : {PACKET_OTHERHOST, PACKET_OUTGOING, 5, 255}) {
        EXPECT_FALSE(velkor::is_well_formed(answer(), static_cast<unsigned char>(type), question().own));
    }
}

TEST(ArpForm, AcceptsEthernetPacketsOnFddi) {
    EXPECT_TRUE(velkor::is_well_formed(answer(ARPHRD_ETHER), PACKET_HOST, question(ARPHRD_FDDI).own));
    EXPECT_TRUE(velkor::is_well_formed(answer(ARPHRD_FDDI), PACKET_HOST, question(ARPHRD_FDDI).own));
    EXPECT_FALSE(velkor::is_well_formed(answer(ARPHRD_FDDI), PACKET_HOST, question(ARPHRD_ETHER).own));
    EXPECT_FALSE(velkor::is_well_formed(answer(ARPHRD_ETHER), PACKET_HOST, question(ARPHRD_IEEE802).own));
}

TEST(ArpForm, NeedsAllTheBytesOfItsFields) {
    const Bytes whole = answer();
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(velkor::is_well_formed(velkor::ArpBytes(whole).first(size), PACKET_HOST, question().own)) << size;
    }
    EXPECT_TRUE(velkor::is_well_formed(whole, PACKET_HOST, question().own));
    Bytes long_address = whole;
    long_address[4] = 8;
    EXPECT_FALSE(velkor::is_well_formed(long_address, PACKET_HOST, question(ARPHRD_ETHER, 8).own));
}

TEST(ArpAnswer, ToADuplicateDetectionIsFromTheTargetAndNotFromItself) {
    velkor::ArpQuestion asked = question();
    asked.source = 0;
    EXPECT_TRUE(velkor::is_answer(answer(), asked, DETECTS));
    Bytes own = answer();
    memcpy(&own[8], asked.own.sll_addr, 6);
    EXPECT_FALSE(velkor::is_answer(own, asked, DETECTS));
    asked.target = inet_addr("10.7.0.8");
    EXPECT_FALSE(velkor::is_answer(answer(), asked, DETECTS));
}

TEST(ArpAnswer, ToADuplicateDetectionWithASourceIsForTheSource) {
    velkor::ArpQuestion asked = question();
    EXPECT_TRUE(velkor::is_answer(answer(), asked, DETECTS));
    asked.source = inet_addr("10.7.0.3");
    EXPECT_FALSE(velkor::is_answer(answer(), asked, DETECTS));
}

TEST(ArpAnswer, ToAnOrdinaryQuestionIsForTheAskersAddresses) {
    EXPECT_TRUE(velkor::is_answer(answer(), question(), !DETECTS));
    velkor::ArpQuestion asked = question();
    asked.source = inet_addr("10.7.0.3");
    EXPECT_FALSE(velkor::is_answer(answer(), asked, !DETECTS));
    asked = question();
    asked.target = inet_addr("10.7.0.8");
    EXPECT_FALSE(velkor::is_answer(answer(), asked, !DETECTS));
    asked = question();
    asked.own.sll_addr[5] = 2;
    EXPECT_FALSE(velkor::is_answer(answer(), asked, !DETECTS));
}

TEST(ArpProbe, AsksFromTheAddressThatLeadsToTheTargetWhenItIsNoDuplicateDetection) {
    const SecondHost far("eth0", "10.7.0.1/24", "10.7.0.2/24");
    const wire::Tap tap(0x0806);
    velkor::ArpProbe probe({.detects_duplicates = false});
    EXPECT_TRUE(probe.ask("eth0", "10.7.0.9"));
    EXPECT_EQ(probe.sent(), 1);
    EXPECT_EQ(probe.question().source, inet_addr("10.7.0.1"));
    const std::vector<wire::Tap::Sent> sent = tap.take();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(Bytes(sent[0].packet.begin() + 14, sent[0].packet.begin() + 18), wire::ipv4("10.7.0.1"));
}

TEST(ArpProbe, AsksFromTheTargetWhenItIsUnsolicited) {
    const SecondHost far("eth0", "10.7.0.1/24", "10.7.0.2/24");
    velkor::ArpProbe probe({.detects_duplicates = false, .is_unsolicited = true});
    EXPECT_TRUE(probe.ask("eth0", "10.7.0.9"));
    EXPECT_EQ(probe.question().source, inet_addr("10.7.0.9"));
    velkor::ArpProbe nobody({.detects_duplicates = false, .is_unsolicited = true});
    EXPECT_FALSE(nobody.ask("eth0", "0.0.0.0"));  // with neither a source nor a duplicate to detect
}

TEST(ArpProbe, WarnsOfAndOutlivesARouteThatCannotBeKeptDirect) {
    const SecondHost far("eth0", "10.7.0.1/24", "10.7.0.2/24");
    refused_option = SO_DONTROUTE;
    testing::internal::CaptureStderr();
    velkor::ArpProbe probe({.detects_duplicates = false});
    EXPECT_TRUE(probe.ask("eth0", "10.7.0.9"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "WARNING: setsockopt(SO_DONTROUTE): Operation not permitted\n");
    EXPECT_EQ(probe.question().source, inet_addr("10.7.0.1"));
    refused_option = SO_BINDTODEVICE;
    velkor::ArpProbe unbound({.detects_duplicates = false});
    EXPECT_FALSE(unbound.ask("eth0", "10.7.0.9"));
}

TEST(ArpProbe, FailsWithoutASource) {
    const SecondHost far("eth0", "10.7.0.1/24", "10.7.0.2/24");
    place::output_of("ip address flush dev eth0");
    velkor::ArpProbe probe({.detects_duplicates = false});
    EXPECT_FALSE(probe.ask("eth0", "10.7.0.9"));
}

}  // namespace

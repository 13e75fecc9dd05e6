#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <velkor/network.h>

#include <string>
#include <vector>

#include "support/held_clock.h"
#include "support/log_capture.h"
#include "support/place.h"
#include "support/second_host.h"
#include "support/wire.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using wire::ArpFrame;

constexpr int FOR_EVER = 1000;

bool says_that_packets_are_own = false;
int packets_read = 0;

}  // namespace

// A kernel does not show a socket bound to ARP what the interface itself sends.
extern "C" ssize_t recvfrom(int socket, void *data, size_t size, int flags, struct sockaddr *address,
                            socklen_t *address_size) {
    const ssize_t length = syscall(SYS_recvfrom, socket, data, size, flags, address, address_size);
    packets_read += length >= 0 ? 1 : 0;
    if (says_that_packets_are_own && length >= 0) {
        reinterpret_cast<struct sockaddr_ll *>(address)->sll_pkttype = PACKET_OUTGOING;
    }
    return length;
}

namespace {

// A recorder at 10.7.0.1 whose "eth0" has a MAC that a second host uses, too.
class CheckMacTest : public testing::Test {
protected:
    CheckMacTest() { place::output_of("ip link set eth0 address 42:41:43:44:45:46"); }
    void TearDown() override { EXPECT_EQ(wire::open_descriptors(), descriptors_); }

    // A frame with the interface's own MAC in it.
    static ArpFrame frame(const std::string &sender, const std::string &target) {
        ArpFrame one;
        one.sender_mac = wire::mac_of("eth0");
        one.sender = wire::ipv4(sender);
        one.target = wire::ipv4(target);
        return one;
    }

    const size_t descriptors_ = wire::open_descriptors();
    SecondHost far_{"eth0", "10.7.0.1/24", "10.7.0.2/24"};
    char found_[17] = "";
};

TEST_F(CheckMacTest, AnswersMinusTwoAfterItsProbeUntilListeningIsSwitchedOn) {
    const wire::Tap tap(0x0806);
    EXPECT_EQ(CheckMac("10.7.0.1", "eth0", found_, FOR_EVER), -2);
    const std::vector<wire::Tap::Sent> sent = tap.take();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].packet, wire::joined({{0, 1, 8, 0, 6, 4, 0, 1},
                                            wire::mac_of("eth0"),
                                            wire::ipv4("0.0.0.0"),
                                            wire::mac("ff:ff:ff:ff:ff:ff"),
                                            wire::ipv4("10.7.0.1")}));
    IfIRecvArp(1);
    EXPECT_EQ(CheckMac("10.7.0.1", "eth0", found_, 1), 0);
    IfIRecvArp(0);
    EXPECT_EQ(CheckMac("10.7.0.1", "eth0", found_, FOR_EVER), -2);
}

TEST_F(CheckMacTest, FindsAnotherStationAndItsAddress) {
    IfIRecvArp(-1);
    const LogCapture log;
    const wire::ArpStation station(far_, std::vector{frame("10.7.0.5", "10.7.0.77")});
    EXPECT_EQ(CheckMac("10.7.0.1", "eth0", found_, FOR_EVER), 1);
    EXPECT_STREQ(found_, "10.7.0.5");
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre("check mac: _csrcIp== 10.7.0.5  _cdstIp == 10.7.0.77 ", "mac check:B", "mac check:A",
                            "mac check:C", "mac check:D", "mac check:E", "mac check:F", "mac check dev:eth0"));
}

TEST_F(CheckMacTest, CountsNothingAboutTheAddressThatItAskedFor) {
    IfIRecvArp(1);
    const wire::ArpStation station(far_, std::vector{frame("10.7.0.5", "10.7.0.1"), frame("10.7.0.6", "10.7.0.77")});
    EXPECT_EQ(CheckMac("10.7.0.1", "eth0", found_, FOR_EVER), 1);
    EXPECT_STREQ(found_, "10.7.0.6");
}

TEST_F(CheckMacTest, IgnoresOtherMacsNoSenderAndItsOwnAddress) {
    IfIRecvArp(1);
    ArpFrame other = frame("10.7.0.4", "10.7.0.77");
    other.sender_mac[5] ^= 1;
    const wire::ArpStation station(far_, std::vector{other, frame("0.0.0.0", "10.7.0.77"),
                                                     frame("10.7.0.1", "10.7.0.77"), frame("10.7.0.8", "10.7.0.77")});
    EXPECT_EQ(CheckMac("10.7.0.200", "eth0", found_, FOR_EVER), 1);
    EXPECT_STREQ(found_, "10.7.0.8");
}

TEST_F(CheckMacTest, WritesWhatHarmlessPacketsAreAbout) {
    IfIRecvArp(1);
    const wire::ArpStation station(far_, std::vector{frame("0.0.0.0", "10.7.0.77")});
    held_clock::offset = [this] { return found_[0] != '\0' ? 1 : 0; };
    EXPECT_EQ(CheckMac("10.7.0.200", "eth0", found_, 1), 0);
    EXPECT_STREQ(found_, "10.7.0.77");
}

TEST_F(CheckMacTest, DoesNotClearWhatTheCallerLeftInTheBuffer) {
    IfIRecvArp(1);
    snprintf(found_, sizeof found_, "10.7.0.200");
    held_clock::offset = [seconds = 0]() mutable { return seconds++; };
    EXPECT_EQ(CheckMac("10.7.0.200", "eth0", found_, 1), 0);
    EXPECT_STREQ(found_, "10.7.0.200");
}

TEST_F(CheckMacTest, LooksAtPacketsOfAnyFormAndReadsZerosBehindShortOnes) {
    IfIRecvArp(1);
    ArpFrame odd = frame("10.7.0.5", "10.7.0.77");
    odd.hardware_type = 99;
    odd.protocol_length = 0;
    odd.operation = 777;
    ArpFrame cut_off = frame("10.7.0.6", "10.7.0.88");
    cut_off.cut_off = 14;  // ends behind the sender's MAC: its addresses read 0.0.0.0
    ArpFrame tiny = frame("10.7.0.7", "10.7.0.88");
    tiny.cut_off = 27;
    const wire::ArpStation station(far_, std::vector{tiny, cut_off, odd});
    EXPECT_EQ(CheckMac("10.7.0.1", "eth0", found_, FOR_EVER), 1);
    EXPECT_STREQ(found_, "10.7.0.5");
}

TEST_F(CheckMacTest, WritesNoMoreThanSixteenBytes) {
    IfIRecvArp(1);
    found_[16] = '#';
    const wire::ArpStation station(far_, std::vector{frame("210.207.200.255", "210.207.200.254")});
    EXPECT_EQ(CheckMac("10.7.0.1", "eth0", found_, FOR_EVER), 1);
    EXPECT_STREQ(std::string(found_, 16).c_str(), "210.207.200.255");
    EXPECT_EQ(found_[16], '#');
}

TEST_F(CheckMacTest, CountsNothingForAnInterfaceWithoutAddress) {
    IfIRecvArp(1);
    place::output_of("ip address flush dev eth0");
    const wire::ArpStation station(far_, std::vector{frame("10.7.0.5", "10.7.0.77")});
    held_clock::offset = [before = packets_read] { return packets_read > before ? 1 : 0; };
    EXPECT_EQ(CheckMac("10.7.0.1", "eth0", found_, 1), 0);
    EXPECT_STREQ(found_, "");
}

TEST_F(CheckMacTest, LooksAtFramesThatTheInterfaceItselfSends) {
    IfIRecvArp(1);
    says_that_packets_are_own = true;
    const wire::ArpStation station(far_, std::vector{frame("10.7.0.5", "10.7.0.77")});
    EXPECT_EQ(CheckMac("10.7.0.1", "eth0", found_, FOR_EVER), 1);
}

TEST_F(CheckMacTest, TakesATimeBelowOneSecondAsOne) {
    IfIRecvArp(1);
    for (const int timeout : {1, 0, -7}) {
        int looks = 0;
        held_clock::offset = [&looks] { return looks++; };
        EXPECT_EQ(CheckMac("10.7.0.200", "eth0", found_, timeout), 0);
        EXPECT_EQ(looks, 2);  // when it begins, and after the first look at the socket
    }
}

TEST_F(CheckMacTest, FailsWithoutDescriptors) {
    const wire::NoDescriptors none;
    EXPECT_EQ(CheckMac("10.7.0.1", "eth0", found_, 1), -1);
}

TEST_F(CheckMacTest, DoesWithoutABuffer) {
    IfIRecvArp(1);
    const wire::ArpStation station(far_, std::vector{frame("10.7.0.5", "10.7.0.77")});
    EXPECT_EQ(CheckMac("10.7.0.1", "eth0", nullptr, FOR_EVER), 1);
}

TEST_F(CheckMacTest, RefusesNoAddressAndAnInterfaceThatCannotAsk) {
    IfIRecvArp(1);
    const wire::Tap tap(0x0806);
    EXPECT_EQ(CheckMac(nullptr, "eth0", found_, 1), -1);
    EXPECT_EQ(CheckMac("10.7.0.1", nullptr, found_, 1), -1);
    EXPECT_EQ(CheckMac("10.7.0.1", "eth9", found_, 1), -1);
    EXPECT_EQ(CheckMac("10.7.0.1", "lo", found_, 1), -1);
    EXPECT_EQ(CheckMac("no such name", "eth0", found_, 1), -1);
    place::output_of("ip link set eth0 arp off");
    EXPECT_EQ(CheckMac("10.7.0.1", "eth0", found_, 1), -1);
    EXPECT_THAT(tap.take(), IsEmpty());
}

TEST_F(CheckMacTest, CutsALongInterfaceName) {
    place::output_of(
        "ip link set eth0 down && ip link set eth0 name abcdefghijklmno && ip link set abcdefghijklmno up");
    EXPECT_EQ(CheckMac("10.7.0.1", "abcdefghijklmnopqrstuvwxyz", found_, 1), -2);
}

}  // namespace

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/firmware.h>
#include <velkor/network.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "net_check/arp_answers.h"
#include "support/held_clock.h"
#include "support/log_capture.h"
#include "support/place.h"
#include "support/second_host.h"
#include "support/wire.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using wire::ArpFrame;

std::optional<CfgNetConfig> network{CfgNetConfig{}};
std::optional<CfgMediaDevice> device{CfgMediaDevice{}};

}  // namespace

// Calls that fail, when a test wants them to.
namespace {
std::function<void()> instead_of_sending;
std::vector<int> reception_errors;         // one for each time that something is read, from the last
std::optional<unsigned char> link_length;  // of an interface's hardware address; 255: it cannot be had
}  // namespace

extern "C" ssize_t sendto(int socket, const void *data, size_t size, int flags, const struct sockaddr *address,
                          socklen_t address_size) {
    if (instead_of_sending) {
        instead_of_sending();
        errno = ENOBUFS;
        return -1;
    }
    return syscall(SYS_sendto, socket, data, size, flags, address, address_size);
}

extern "C" ssize_t recvfrom(int socket, void *data, size_t size, int flags, struct sockaddr *address,
                            socklen_t *address_size) {
    if (!reception_errors.empty()) {
        errno = reception_errors.back();
        reception_errors.pop_back();
        return -1;
    }
    return syscall(SYS_recvfrom, socket, data, size, flags, address, address_size);
}

extern "C" int getsockname(int socket, struct sockaddr *address, socklen_t *size) noexcept {
    const int result = static_cast<int>(syscall(SYS_getsockname, socket, address, size));
    if (link_length) {
        reinterpret_cast<struct sockaddr_ll *>(address)->sll_halen = *link_length;
    }
    return link_length == 255 ? -1 : result;
}

const CfgNetConfig *Cfg_gNetConfig(int number) { return number == 0 && network ? &*network : nullptr; }
const CfgMediaDevice *Cfg_gMediaDevice(int number) { return number == 0 && device ? &*device : nullptr; }

namespace {

// Long enough to be reached only by a listening that does not stop when it should.
constexpr int FOR_EVER = 1000;

// A recorder at 10.7.0.1 whose "eth0" leads to a second host at 10.7.0.2, and which leaves no descriptor open.
class CheckIpTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(wire::open_descriptors(), descriptors_); }

    static std::string slot(size_t number) { return slots[number]; }

    const size_t descriptors_ = wire::open_descriptors();
    SecondHost far_{"eth0", "10.7.0.1/24", "10.7.0.2/24"};
    static inline char slots[VELKOR_CHECK_IP_SLOTS][VELKOR_CHECK_IP_SLOT_SIZE];
};

ArpFrame answer_of(const std::string &mac) {
    ArpFrame frame;
    frame.from = frame.sender_mac = wire::mac(mac);
    return frame;
}

TEST_F(CheckIpTest, SendsOneProbeOfTheDescribedBytesToEverybody) {
    const wire::Tap tap(0x0806);
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], 1, 0), 0);
    const std::vector<wire::Tap::Sent> sent = tap.take();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].interface, "eth0");
    EXPECT_EQ(sent[0].to, wire::mac("ff:ff:ff:ff:ff:ff"));
    EXPECT_EQ(sent[0].packet, wire::joined({{0, 1, 8, 0, 6, 4, 0, 1},
                                            wire::mac_of("eth0"),
                                            wire::ipv4("0.0.0.0"),
                                            wire::mac("ff:ff:ff:ff:ff:ff"),
                                            wire::ipv4("10.7.0.9")}));
}

TEST_F(CheckIpTest, AnswersZeroWhenNobodyAnswersInTime) {
    memset(slots, '#', sizeof slots);
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], 1, 8), 0);
    EXPECT_EQ(slots[0][0], '#');
}

// After how many looks at a clock that advances by `step` seconds each time a listening ends.
int looks(int timeout, int step) {
    int count = 0;
    held_clock::offset = [&count, step] { return step * count++; };
    EXPECT_EQ(CheckIp(0, "10.7.0.9", nullptr, timeout, 8), 0);
    held_clock::offset = nullptr;
    return count - 1;  // the first is when it begins
}

TEST_F(CheckIpTest, ListensUntilTheSecondsReachItsTimeWhichIsOneAtLeast) {
    EXPECT_EQ(looks(3, 1), 3);
    EXPECT_EQ(looks(1, 1), 1);
    EXPECT_EQ(looks(0, 1), 1);
    EXPECT_EQ(looks(-7, 1), 1);
}

TEST_F(CheckIpTest, EndsWhenTheClockIsSetBack) { EXPECT_EQ(looks(FOR_EVER, -1), 1); }

TEST_F(CheckIpTest, RecordsARealHostAndStopsAtOnce) {
    memset(slots, '#', sizeof slots);
    far_.run("ip link set eth0 address 02:0a:00:b0:0c:01");
    EXPECT_EQ(CheckIp(0, "10.7.0.2", slots[0], FOR_EVER, 1), 1);
    EXPECT_EQ(slot(0), "2:a:0:b0:c:1");
    EXPECT_EQ(std::string(slots[0] + 12, 20), std::string(20, '\0'));
    EXPECT_EQ(slots[1][0], '#');
}

TEST_F(CheckIpTest, AnswersTwoForMoreThanOne) {
    const wire::ArpStation station(far_, std::vector{answer_of("02:00:00:00:00:01"), answer_of("02:00:00:00:00:02")});
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 2), 2);
    EXPECT_EQ(slot(0), "2:0:0:0:0:1");
    EXPECT_EQ(slot(1), "2:0:0:0:0:2");
}

TEST_F(CheckIpTest, FillsEightSlots) {
    std::vector<ArpFrame> frames;
    for (int i = 1; i <= 9; ++i) {
        frames.push_back(answer_of("02:00:00:00:00:0" + std::to_string(i)));
    }
    const wire::ArpStation station(far_, frames);
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 8), 2);
    EXPECT_EQ(slot(7), "2:0:0:0:0:8");
}

TEST_F(CheckIpTest, CountsAStationOnceAndLogsTheRepetition) {
    const LogCapture log;
    const wire::ArpStation station(far_, std::vector{answer_of("02:00:00:00:00:01"), answer_of("02:00:00:00:00:01"),
                                                     answer_of("02:00:00:00:00:02")});
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 2), 2);
    EXPECT_EQ(slot(1), "2:0:0:0:0:2");
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre("recv_pack,234,received = 0,mac = 2:0:0:0:0:1 ", "recv_pack,304,received=0 +1",
                            "recv_pack,234,received = 1,mac = 2:0:0:0:0:1 ", "recv_pack,240,same same same!!!",
                            "recv_pack,234,received = 1,mac = 2:0:0:0:0:2 ", "recv_pack,304,received=1 +1"));
}

TEST_F(CheckIpTest, TakesAMacThatBeginsWithARecordedTextForTheSame) {
    const wire::ArpStation station(far_, std::vector{answer_of("02:00:00:00:00:01"), answer_of("02:00:00:00:00:12"),
                                                     answer_of("02:00:00:00:00:21")});
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 2), 2);
    EXPECT_EQ(slot(1), "2:0:0:0:0:21");
}

TEST_F(CheckIpTest, CountsEachStationOnceWithoutABuffer) {
    const wire::ArpStation station(far_, std::vector{answer_of("02:00:00:00:00:01"), answer_of("02:00:00:00:00:01"),
                                                     answer_of("02:00:00:00:00:02")});
    EXPECT_EQ(CheckIp(0, "10.7.0.9", nullptr, FOR_EVER, 2), 2);
}

// Every frame but the last is no answer. Each comes from a MAC of its own, so that a wrong one is seen in the slot.
TEST_F(CheckIpTest, IgnoresWhatIsNoAnswer) {
    std::vector<ArpFrame> frames;
    const auto add = [&](auto change) {
        ArpFrame frame = answer_of("02:00:00:00:01:" + std::to_string(10 + frames.size()));
        change(frame);
        frames.push_back(frame);
    };
    add([](ArpFrame &frame) { frame.to = wire::mac("02:00:00:00:77:77"); });  // for another host
    add([](ArpFrame &frame) { frame.operation = 0; });
    add([](ArpFrame &frame) { frame.operation = 3; });
    add([](ArpFrame &frame) { frame.operation = 0x0102; });
    add([](ArpFrame &frame) { frame.hardware_type = 6; });
    add([](ArpFrame &frame) { frame.hardware_type = 0x0100; });
    add([](ArpFrame &frame) { frame.protocol = 0x86dd; });
    add([](ArpFrame &frame) { frame.protocol_length = 16; });
    add([](ArpFrame &frame) { frame.hardware_length = 5; });
    add([](ArpFrame &frame) { frame.hardware_length = 255; });
    add([](ArpFrame &frame) { frame.cut_off = 1; });
    add([](ArpFrame &frame) { frame.cut_off = 14; });
    add([](ArpFrame &frame) { frame.cut_off = 21; });
    add([](ArpFrame &frame) { frame.cut_off = 28; });
    add([](ArpFrame &frame) { frame.sender = wire::ipv4("10.7.0.8"); });
    add([](ArpFrame &frame) { frame.sender_mac = wire::mac_of("eth0"); });
    frames.push_back(answer_of("02:00:00:00:00:77"));
    const wire::ArpStation station(far_, frames);
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 1), 1);
    EXPECT_EQ(slot(0), "2:0:0:0:0:77");
}

TEST_F(CheckIpTest, TakesAnswersHoweverTheyAreSent) {
    std::vector<ArpFrame> frames(4, answer_of("02:00:00:00:00:01"));
    frames[1].from = frames[1].sender_mac = wire::mac("02:00:00:00:00:02");
    frames[1].to = wire::mac_of("eth0");
    frames[2].from = frames[2].sender_mac = wire::mac("02:00:00:00:00:03");
    frames[2].to = wire::mac("01:00:5e:00:00:01");
    frames[3].sender_mac = wire::mac("02:00:00:00:00:04");  // another than the frame's
    frames[3].operation = 1;
    frames[3].target = wire::ipv4("10.7.0.200");
    const wire::ArpStation station(far_, frames);
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 4), 2);
    EXPECT_EQ(slot(2), "2:0:0:0:0:3");
    EXPECT_EQ(slot(3), "2:0:0:0:0:4");
}

TEST_F(CheckIpTest, TakesAnOversizedFrame) {
    wire::Bytes frame = answer_of("02:00:00:00:00:01").bytes();
    frame.resize(1500, 0xee);
    const wire::ArpStation station(far_, std::vector<wire::Bytes>{frame});
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 1), 1);
}

// The MAC 02:00:00:00:00:05, last byte first.
CfgNetConfig with_own_card() {
    CfgNetConfig config = {};
    const uint8_t mac[6] = {0x05, 0, 0, 0, 0, 0x02};
    memcpy(config.mac[1], mac, sizeof mac);
    return config;
}

TEST_F(CheckIpTest, DoesNotCountAnOwnCardWhoseTextIsOverwrittenByTheNext) {
    network = with_own_card();
    device = CfgMediaDevice{2};
    const LogCapture log;
    const wire::ArpStation station(far_, std::vector{answer_of("02:00:00:00:00:05"), answer_of("02:00:00:00:00:05"),
                                                     answer_of("02:00:00:00:00:06")});
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 1), 1);
    EXPECT_EQ(slot(0), "2:0:0:0:0:6");
    // The second was compared with counted answers only: with none.
    EXPECT_THAT(
        LogCapture::take_messages(),
        ElementsAre("recv_pack,234,received = 0,mac = 2:0:0:0:0:5 ", "recv_pack,234,received = 0,mac = 2:0:0:0:0:5 ",
                    "recv_pack,234,received = 0,mac = 2:0:0:0:0:6 ", "recv_pack,304,received=0 +1"));
}

TEST_F(CheckIpTest, LeavesAnOwnCardsTextInTheNextFreeSlot) {
    network = with_own_card();
    device = CfgMediaDevice{2};
    const wire::ArpStation station(far_, std::vector{answer_of("02:00:00:00:00:06"), answer_of("02:00:00:00:00:05")});
    held_clock::offset = [] { return slots[1][0] != 0 ? 1 : 0; };
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], 1, 2), 1);
    EXPECT_EQ(slot(0), "2:0:0:0:0:6");
    EXPECT_EQ(slot(1), "2:0:0:0:0:5");
}

TEST_F(CheckIpTest, CountsTheOnlyCardsMac) {
    network = with_own_card();
    memcpy(network->mac[0], network->mac[1], 6);
    device = CfgMediaDevice{1};
    const wire::ArpStation station(far_, std::vector{answer_of("02:00:00:00:00:05")});
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 1), 1);
}

TEST_F(CheckIpTest, TakesMoreThanEightCardsAsEight) {
    network = with_own_card();
    device = CfgMediaDevice{1000};
    const wire::ArpStation station(far_, std::vector{answer_of("02:00:00:00:00:05"), answer_of("02:00:00:00:00:06")});
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 1), 1);
    EXPECT_EQ(slot(0), "2:0:0:0:0:6");
}

TEST_F(CheckIpTest, WorksWithoutAConfiguration) {
    network.reset();
    device.reset();
    EXPECT_EQ(CheckIp(0, "10.7.0.2", slots[0], FOR_EVER, 1), 1);
}

TEST_F(CheckIpTest, RefusesNoAddressAnUnknownNameAndMoreThanEightSlots) {
    EXPECT_EQ(CheckIp(0, nullptr, slots[0], 1, 1), -1);
    EXPECT_EQ(CheckIp(0, "no such name", slots[0], 1, 1), -1);
    EXPECT_EQ(CheckIp(0, "10.7.0.2", slots[0], 1, 9), -1);
}

TEST_F(CheckIpTest, ListensForOneLookWithoutSlots) {
    EXPECT_EQ(CheckIp(0, "10.7.0.9", nullptr, FOR_EVER, 0), 0);
    EXPECT_EQ(CheckIp(0, "10.7.0.9", nullptr, FOR_EVER, -3), 0);
}

TEST_F(CheckIpTest, ResolvesAName) {
    const wire::Tap tap(0x0806);
    EXPECT_EQ(CheckIp(0, "localhost", slots[0], 1, 0), 0);
    const std::vector<wire::Tap::Sent> sent = tap.take();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(wire::Bytes(sent[0].packet.end() - 4, sent[0].packet.end()), wire::ipv4("127.0.0.1"));
}

TEST_F(CheckIpTest, RefusesAnInterfaceThatCannotAsk) {
    const wire::Tap tap(0x0806);
    EXPECT_EQ(CheckIp(7, "10.7.0.9", slots[0], 1, 1), -1);  // no such interface
    place::output_of("ip link set eth0 arp off");
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], 1, 1), -1);
    place::output_of("ip link set eth0 arp on && ip link set eth0 down");
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], 1, 1), -1);
    place::output_of("ip link del eth0 && ip link set lo down && ip link set lo name eth0 && ip link set eth0 up");
    EXPECT_EQ(CheckIp(0, "127.0.0.1", slots[0], 1, 1), -1);
    EXPECT_THAT(tap.take(), IsEmpty());
}

TEST_F(CheckIpTest, TakesEachInterfaceAsItIsNow) {
    const SecondHost other("eth1", "10.8.0.1/24", "10.8.0.2/24");
    EXPECT_EQ(CheckIp(1, "10.8.0.2", slots[0], FOR_EVER, 1), 1);
    // The same name, another index.
    place::output_of(
        "ip link set eth0 down && ip link set eth0 name old && ip link set eth1 down && "
        "ip link set eth1 name eth0 && ip link set eth0 up");
    other.wait_for_links();
    EXPECT_EQ(CheckIp(0, "10.8.0.2", slots[0], FOR_EVER, 1), 1);
}

TEST_F(CheckIpTest, RefusesAnInterfaceWithoutAHardwareAddress) {
    const wire::Tap tap(0x0806);
    for (const int length : {0, 255}) {
        link_length = static_cast<unsigned char>(length);
        EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], 1, 1), -1);
    }
    link_length.reset();
    EXPECT_THAT(tap.take(), IsEmpty());
}

TEST_F(CheckIpTest, FailsWithoutDescriptors) {
    const wire::NoDescriptors none;
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], 1, 1), -1);
}

TEST_F(CheckIpTest, LosesNoMoreThanALookByAReceptionThatFails) {
    reception_errors = {ENETDOWN, EAGAIN, EINTR, ENETDOWN};
    EXPECT_EQ(CheckIp(0, "10.7.0.2", slots[0], FOR_EVER, 1), 1);
    EXPECT_TRUE(reception_errors.empty());
}

TEST_F(CheckIpTest, IsNotDisturbedBySignals) {
    const wire::ArpStation station(far_, std::vector{answer_of("02:00:00:00:00:01")},
                                   wire::ArpStation::Begin::WHEN_TOLD);
    static std::atomic<int> signals{0};
    signals = 0;
    struct sigaction counting = {};
    counting.sa_handler = [](int) { ++signals; };
    sigaction(SIGALRM, &counting, nullptr);
    const struct itimerval often = {{0, 500}, {0, 500}};
    setitimer(ITIMER_REAL, &often, nullptr);
    held_clock::offset = [&] {
        if (signals >= 20) {
            station.tell();
        }
        return 0;
    };
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 1), 1);
    const struct itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
}

TEST_F(CheckIpTest, FindsEachOfSeveralHostsBehindABridge) {
    const SecondHost second("b1", "10.9.0.101/24", "10.7.0.3/24");
    const SecondHost third("b2", "10.9.0.102/24", "10.7.0.3/24");
    place::output_of(
        "ip link add here type veth peer name bridged && ip link add lan type bridge && ip link set eth0 down && "
        "ip link set eth0 name b0 && ip link set here name eth0 && ip addr add 10.7.0.4/24 dev eth0 && "
        "for i in b0 b1 b2 bridged; do ip link set $i master lan && ip link set $i up; done && "
        "ip link set eth0 up && ip link set lan up");
    second.wait_for_links();
    third.wait_for_links();
    EXPECT_TRUE(
        place::eventually([] { return place::output_of("bridge link | grep -c forwarding || true") == "4\n"; }));
    EXPECT_EQ(CheckIp(0, "10.7.0.3", slots[0], FOR_EVER, 2), 2);
    EXPECT_NE(slot(0), slot(1));
}

TEST_F(CheckIpTest, ListensOnADescriptorAbove1024) {
    const wire::HighDescriptors high;
    EXPECT_EQ(CheckIp(0, "10.7.0.2", slots[0], FOR_EVER, 1), 1);
}

TEST_F(CheckIpTest, RunsOneProbeAtATime) {
    const wire::ArpStation station(far_, std::vector{answer_of("02:00:00:00:00:01")},
                                   wire::ArpStation::Begin::WHEN_TOLD);
    const wire::Tap tap(0x0806);
    std::thread first([] { EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 1), 1); });
    EXPECT_TRUE(place::eventually([&] { return tap.take().size() == 1; }));
    std::atomic<bool> is_second_back{false};
    std::thread second([&] {
        EXPECT_EQ(CheckIp(0, nullptr, slots[0], 1, 1), -1);
        is_second_back = true;
    });
    usleep(50000);  // room for the second to err
    EXPECT_FALSE(is_second_back);
    station.tell();
    first.join();
    second.join();
}

TEST_F(CheckIpTest, WorksInAChildForkedWhileAnotherThreadProbes) {
    static std::atomic<bool> is_held{true};
    static std::atomic<bool> is_sending{false};
    instead_of_sending = [] {
        is_sending = true;
        is_sending.notify_all();
        is_held.wait(true);
    };
    std::thread prober([] { CheckIp(0, "10.7.0.9", slots[0], 1, 0); });
    is_sending.wait(false);
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);  // a child that hangs is a failure, not a wait for ever
        instead_of_sending = nullptr;
        _exit(CheckIp(0, "10.7.0.2", slots[0], FOR_EVER, 1));
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    is_held = false;
    is_held.notify_all();
    prober.join();
    instead_of_sending = nullptr;
}

// Which interface asks, for a card from 0.
std::string asked(int number, int bonding, int second_bond) {
    network->bonding = bonding;
    network->secondBond = second_bond;
    const wire::Tap tap(0x0806);
    const int result = CheckIp(number, "10.7.0.9", nullptr, 1, 0);
    const std::vector<wire::Tap::Sent> sent = tap.take();
    EXPECT_EQ(result, sent.empty() ? -1 : 0);
    return sent.empty() ? "none" : sent[0].interface;
}

TEST_F(CheckIpTest, TakesTheBondsForTheirCardsFromZero) {
    add_interfaces({"eth3", "eth4", "eth5", "bond0", "bond1"});
    const struct {
        int number, bonding, second;
        const char *interface;
    } cases[] = {{0, 0, 0, "eth0"},  {3, 0, 0, "eth3"},  {4, 0, 0, "eth4"},  {3, 0, 1, "eth3"},   {4, 0, 1, "bond1"},
                 {5, 0, 1, "bond1"}, {0, 1, 0, "bond0"}, {3, 1, 0, "bond0"}, {-1, 1, 0, "bond0"}, {4, 1, 0, "eth4"},
                 {5, 1, 0, "eth5"},  {3, 1, 1, "bond0"}, {4, 1, 1, "bond1"}, {9, 0, 0, "none"},   {-1, 0, 0, "none"}};
    for (const auto &one : cases) {
        EXPECT_EQ(asked(one.number, one.bonding, one.second), one.interface)
            << one.number << " " << one.bonding << " " << one.second;
    }
}

TEST_F(CheckIpTest, AnswersTwoForOneAnswerToAProbeThatWasNotSent) {
    const wire::ArpStation station(far_, std::vector{answer_of("02:00:00:00:00:01")},
                                   wire::ArpStation::Begin::WHEN_TOLD);
    instead_of_sending = [&] { station.tell(); };
    EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 1), 2);
    instead_of_sending = nullptr;
}

TEST_F(CheckIpTest, IsReachedThroughItsWorkerToo) {
    char address[] = "10.7.0.2";
    char *const arguments[] = {address, address, nullptr};
    EXPECT_EQ(arping_main(0, arguments), 1);
    EXPECT_EQ(arping_main(9, arguments), -1);
    char *const too_few[] = {address, nullptr};
    EXPECT_EQ(arping_main(0, too_few), -1);
    EXPECT_EQ(arping_main(0, nullptr), -1);
}

TEST_F(CheckIpTest, DoesNotKeepItsWorkerFromBeingCalledAlone) {
    const wire::ArpStation station(far_, std::vector{answer_of("02:00:00:00:00:01")},
                                   wire::ArpStation::Begin::WHEN_TOLD);
    const wire::Tap tap(0x0806);
    std::atomic<bool> is_first_back{false};
    std::thread first([&] {
        EXPECT_EQ(CheckIp(0, "10.7.0.9", slots[0], FOR_EVER, 1), 1);
        is_first_back = true;
    });
    EXPECT_TRUE(place::eventually([&] { return tap.take().size() == 1; }));
    char address[] = "10.7.0.2";
    char *const arguments[] = {address, address, nullptr};
    EXPECT_EQ(arping_main(0, arguments), 1);
    EXPECT_FALSE(is_first_back);
    station.tell();
    first.join();
}

// A caller has eight slots at most, and listening ends when they are full; the count itself has no end.
TEST(ArpAnswers, CountANinthStationWithoutRecordingIt) {
    char buffer[8][VELKOR_CHECK_IP_SLOT_SIZE] = {};
    velkor::ArpAnswers answers(buffer[0], 8);
    const LogCapture log;
    unsigned char mac[6] = {2, 0, 0, 0, 0, 0};
    for (int i = 1; i <= 10; ++i) {
        mac[5] = static_cast<unsigned char>(i * 0x10);
        answers.take(mac, false);
        EXPECT_EQ(answers.count(), i);
        EXPECT_EQ(answers.is_enough(), i >= 8);
    }
    EXPECT_STREQ(buffer[7], "2:0:0:0:0:80");
    const std::vector<std::string> messages = LogCapture::take_messages();
    ASSERT_EQ(messages.size(), 18U);
    EXPECT_EQ(messages[16], "recv_pack,304,received=8 +1");
    EXPECT_EQ(messages[17], "recv_pack,304,received=9 +1");
    answers.take(mac, true);
    EXPECT_EQ(answers.count(), 10);
}

}  // namespace

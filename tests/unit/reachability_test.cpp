#include <arpa/inet.h>
#include <dlfcn.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>
#include <velkor/firmware.h>
#include <velkor/network.h>

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "support/place.h"
#include "support/second_host.h"
#include "support/wire.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using wire::Bytes;
using wire::EchoStation;
using Answers = std::vector<EchoStation::Answer>;

std::optional<CfgNetConfig> network{CfgNetConfig{}};

// What the kernel cannot be brought to do: calls that fail, packets cut off, waits that are over at once.
std::vector<int> waits;
int first_empty_wait = 0;  // from this look on nothing comes; 0: never
int forced_error = 0;
std::optional<ssize_t> forced_length;
int refused_option = 0;
std::vector<struct timeval> times_of_day;  // what the clock says, from the last

template <typename Function>
Function real(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int setsockopt(int socket, int level, int option, const void *value, socklen_t size) noexcept {
    if (option == refused_option) {
        errno = EINVAL;
        return -1;
    }
    return real<int (*)(int, int, int, const void *, socklen_t)>("setsockopt")(socket, level, option, value, size);
}

// C libraries differ in how they declare the second argument, so that this one has another name until it is linked.
extern "C" int held_gettimeofday(struct timeval *time, void *zone) noexcept __asm__("gettimeofday");

extern "C" int held_gettimeofday(struct timeval *time, void *zone) noexcept {
    if (times_of_day.empty()) {
        return real<int (*)(struct timeval *, void *)>("gettimeofday")(time, zone);
    }
    *time = times_of_day.back();
    times_of_day.pop_back();
    return 0;
}

const CfgNetConfig *Cfg_gNetConfig(int number) { return number == 0 && network ? &*network : nullptr; }

extern "C" int poll(struct pollfd *descriptors, nfds_t count, int milliseconds) {
    waits.push_back(milliseconds);
    if (first_empty_wait != 0 && static_cast<int>(waits.size()) >= first_empty_wait) {
        return 0;
    }
    return real<int (*)(struct pollfd *, nfds_t, int)>("poll")(descriptors, count, milliseconds);
}

extern "C" ssize_t recvfrom(int socket, void *buffer, size_t size, int flags, struct sockaddr *address,
                            socklen_t *address_size) {
    const ssize_t length = real<ssize_t (*)(int, void *, size_t, int, struct sockaddr *, socklen_t *)>("recvfrom")(
        socket, buffer, size, flags, address, address_size);
    if (forced_error != 0) {
        errno = forced_error;
        return -1;
    }
    return forced_length.value_or(length);
}

namespace {

// A recorder at 10.7.0.1 whose "eth0" leads to a second host at 10.7.0.2, and which leaves no descriptor open.
class CheckNetDelayTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(wire::open_descriptors(), descriptors_); }

    const size_t descriptors_ = wire::open_descriptors();
    SecondHost far_{"eth0", "10.7.0.1/24", "10.7.0.2/24"};
    uint32_t delay_ = 7;
    uint32_t replies_ = 100;
};

Bytes reply_to(const Bytes &request) {
    Bytes reply = request;
    reply[0] = 0;
    return reply;
}

std::string own_head(int type) {
    return "ip:10.7.0.2,icmp->icmp_type:" + std::to_string(type) +
           ",icmp->icmp_id:" + std::to_string(getpid() & 0xffff);
}

TEST_F(CheckNetDelayTest, CountsAnswersOfAHost) {
    const LogCapture log;
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 1, 1), 0);
    EXPECT_EQ(replies_, 101U);
    EXPECT_LT(delay_, 1007U);
    EXPECT_GE(delay_, 7U);
    EXPECT_THAT(LogCapture::take_messages(), ElementsAre("CheckNetDelay _cIp=10.7.0.2", own_head(0)));
}

TEST_F(CheckNetDelayTest, SendsTheSameDescribedBytesEachTime) {
    const wire::Tap tap(0x0800);
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", nullptr, nullptr, 2, 1), 0);
    const std::vector<wire::Tap::Sent> sent = tap.take();
    ASSERT_EQ(sent.size(), 2U);
    Bytes expected(64);
    expected[0] = 8;
    const uint16_t identifier = static_cast<uint16_t>(getpid());
    memcpy(&expected[4], &identifier, sizeof identifier);
    const uint16_t sum = cal_chksum(reinterpret_cast<const uint16_t *>(expected.data()), 64);
    memcpy(&expected[2], &sum, sizeof sum);
    for (const wire::Tap::Sent &one : sent) {
        EXPECT_EQ(one.interface, "eth0");
        EXPECT_EQ(Bytes(one.packet.begin() + 20, one.packet.end()), expected);
        EXPECT_EQ(cal_chksum(reinterpret_cast<const uint16_t *>(&one.packet[20]), 64), 0);
    }
}

TEST_F(CheckNetDelayTest, NeverSucceedsForMoreThanFourRequests) {
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 4, 1), 0);
    EXPECT_EQ(replies_, 104U);
    const LogCapture log;
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 5, 1), -1);
    EXPECT_EQ(replies_, 108U);  // what was added stays
    EXPECT_THAT(LogCapture::take_messages(), ElementsAre("CheckNetDelay _cIp=10.7.0.2", own_head(0), own_head(0),
                                                         own_head(0), own_head(0), "too many icmp packet 5 "));
}

TEST_F(CheckNetDelayTest, AddsTheTimeSinceTheFirstRequestForEachAnswer) {
    const EchoStation station(
        far_, [](const Bytes &request) -> Answers { return {{.packet = reply_to(request), .delay_ms = 50}}; });
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 3, 1), 0);
    EXPECT_GE(delay_, 7U + 50 + 100 + 150);
}

TEST_F(CheckNetDelayTest, GivesUpAHostThatNeverAnswersAfterOneSecond) {
    far_.run("echo 1 >/proc/sys/net/ipv4/icmp_echo_ignore_all");
    const LogCapture log;
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 1, 1), -1);
    EXPECT_EQ(waits, std::vector{1000});
    EXPECT_EQ(replies_, 100U);
    EXPECT_EQ(delay_, 7U);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre("CheckNetDelay _cIp=10.7.0.2", "CheckNetDelay select error 0"));
}

// What is no answer, each said of one of a request's four looks.
TEST_F(CheckNetDelayTest, TriesAgainAfterWhatIsNoAnswerAsOftenAsItMay) {
    far_.run("ip address add 10.7.0.3/24 dev eth0");
    const EchoStation station(far_, [](const Bytes &request) -> Answers {
        Bytes wrong_type = reply_to(request);
        wrong_type[0] = 13;
        Bytes wrong_identifier = reply_to(request);
        wrong_identifier[4] = static_cast<unsigned char>(wrong_identifier[4] + 1);
        return {{.packet = reply_to(request), .from = "10.7.0.3"},
                {.packet = wrong_type},
                {.packet = wrong_identifier},
                {.packet = reply_to(request)}};
    });
    const LogCapture log;
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 1, 1), 0);
    EXPECT_EQ(replies_, 101U);
    const int identifier = getpid() & 0xffff;
    const int wrong = (identifier & 0xff00) | ((identifier + 1) & 0xff);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre("CheckNetDelay _cIp=10.7.0.2", "CheckNetDelay receive 10.7.0.3 data", own_head(13),
                            "ip:10.7.0.2,icmp->icmp_type:0,icmp->icmp_id:" + std::to_string(wrong), own_head(0)));
    EXPECT_THAT(waits, ElementsAre(1000, 2000, 3000, 4000));
}

TEST_F(CheckNetDelayTest, GivesUpAfterFourPacketsThatAreNoAnswer) {
    const EchoStation station(far_, [](const Bytes &request) -> Answers {
        Bytes wrong = reply_to(request);
        wrong[0] = 14;
        return Answers(5, {.packet = wrong});
    });
    const LogCapture log;
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 1, 1), -1);
    EXPECT_THAT(LogCapture::take_messages(), ElementsAre("CheckNetDelay _cIp=10.7.0.2", own_head(14), own_head(14),
                                                         own_head(14), own_head(14), "too many icmp packet 5 "));
}

TEST_F(CheckNetDelayTest, HasFewerLooksLeftForTheNextRequestAfterAStrayPacket) {
    const EchoStation station(far_, [](const Bytes &request) -> Answers {
        Bytes wrong = reply_to(request);
        wrong[0] = 14;
        return {{.packet = wrong}, {.packet = reply_to(request)}};
    });
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 3, 1), -1);
    EXPECT_EQ(replies_, 102U);
}

TEST_F(CheckNetDelayTest, CountsTheLookBehindTheFourthWithoutAPacket) {
    first_empty_wait = 4;
    const LogCapture log;
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 4, 1), -1);
    EXPECT_EQ(replies_, 103U);
    EXPECT_THAT(waits, ElementsAre(1000, 2000, 3000, 4000));
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre("CheckNetDelay _cIp=10.7.0.2", own_head(0), own_head(0), own_head(0),
                            "CheckNetDelay select error 0", "too many icmp packet 5 "));
}

TEST_F(CheckNetDelayTest, SkipsAnIpHeaderWithOptions) {
    const EchoStation station(
        far_, [](const Bytes &request) -> Answers { return {{.packet = reply_to(request), .has_options = true}}; });
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 1, 1), 0);
}

TEST_F(CheckNetDelayTest, LogsAPacketWithoutAWholeIcmpHeader) {
    first_empty_wait = 2;
    forced_length = 27;
    const LogCapture log;
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 1, 1), -1);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre("CheckNetDelay _cIp=10.7.0.2", "CheckNetDelay icmp packet size err",
                            "CheckNetDelay select error 0"));
}

TEST_F(CheckNetDelayTest, EndsWhenReceivingFails) {
    const LogCapture log;
    forced_error = ENETDOWN;
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 1, 1), -1);
    forced_error = 0;
    forced_length = 0;
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 1, 1), -1);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre("CheckNetDelay _cIp=10.7.0.2", "CheckNetDelay recv data error -1",
                            "CheckNetDelay _cIp=10.7.0.2", "CheckNetDelay recv data error 0"));
}

TEST_F(CheckNetDelayTest, SendsTextThatIsNoAddressToTheBroadcastAddressWhichFails) {
    const LogCapture log;
    EXPECT_EQ(CheckNetDelay(1, "far away", &delay_, &replies_, 1, 1), -1);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre("CheckNetDelay _cIp=far away", "CheckNetDelay send data error -1"));
}

TEST_F(CheckNetDelayTest, ComparesTheTextOfTheAddress) {
    first_empty_wait = 2;
    const LogCapture log;
    EXPECT_EQ(CheckNetDelay(1, "10.7.2", &delay_, &replies_, 1, 1), -1);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre("CheckNetDelay _cIp=10.7.2", "CheckNetDelay receive 10.7.0.2 data",
                            "CheckNetDelay select error 0"));
}

TEST_F(CheckNetDelayTest, RefusesNoAddressInSilence) {
    const LogCapture log;
    EXPECT_EQ(CheckNetDelay(1, nullptr, &delay_, &replies_, 1, 1), -1);
    EXPECT_THAT(LogCapture::take_messages(), IsEmpty());
}

TEST_F(CheckNetDelayTest, SucceedsWithoutRequests) {
    const wire::Tap tap(0x0800);
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, 0, 1), 0);
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, &replies_, -1, 1), 0);
    EXPECT_EQ(CheckNetDelay(9, "10.7.0.2", &delay_, &replies_, 0, 1), -1);  // the interface is looked for all the same
    EXPECT_THAT(tap.take(), IsEmpty());
}

TEST_F(CheckNetDelayTest, TakesAnySendTimeout) {
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", nullptr, nullptr, 1, 0), 0);
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", nullptr, nullptr, 1, UINT32_MAX), 0);
}

TEST_F(CheckNetDelayTest, ReadsADescriptorAbove1024) {
    const wire::HighDescriptors high;
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", nullptr, nullptr, 1, 1), 0);
}

TEST_F(CheckNetDelayTest, FailsWithoutDescriptorsOrASendTimeout) {
    {
        const wire::NoDescriptors none;
        EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", nullptr, nullptr, 0, 1), -1);
    }
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", nullptr, nullptr, 0, 1), 0);
    refused_option = SO_SNDTIMEO;
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", nullptr, nullptr, 0, 1), -1);
    refused_option = SO_RCVBUF;  // whose failure does not matter
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", nullptr, nullptr, 0, 1), 0);
}

TEST_F(CheckNetDelayTest, DividesTheMicrosecondsTowardZero) {
    times_of_day = {{12, 100000}, {10, 900500}};
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", &delay_, nullptr, 1, 1), 0);
    EXPECT_EQ(delay_, 7U + 2000 - 800);
}

TEST_F(CheckNetDelayTest, IsNotCutShortBySignals) {
    const EchoStation station(
        far_, [](const Bytes &request) -> Answers { return {{.packet = reply_to(request), .delay_ms = 200}}; });
    struct sigaction nothing = {};
    nothing.sa_handler = [](int) {};
    sigaction(SIGALRM, &nothing, nullptr);
    const struct itimerval often = {{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", nullptr, &replies_, 1, 1), 0);
    const struct itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_GT(waits.size(), 1U);
}

// Which interface asks, for a card from 1.
std::string asked(int card, int bonding, int second_bond) {
    network->bonding = bonding;
    network->secondBond = second_bond;
    const wire::Tap tap(0x0800);
    first_empty_wait = 1;
    CheckNetDelay(card, "10.50.0.9", nullptr, nullptr, 1, 1);
    const std::vector<wire::Tap::Sent> sent = tap.take();
    return sent.empty() ? "none" : sent[0].interface;
}

TEST_F(CheckNetDelayTest, TakesTheBondsForTheirCardsFromOne) {
    std::string routes;
    for (const char *const name : {"eth0", "eth3", "eth4", "eth5", "bond0", "bond1"}) {
        routes += std::string("route add 10.50.0.0/16 dev ") + name + " metric 1" + std::to_string(routes.size()) +
                  "\nneigh add 10.50.0.9 lladdr 02:00:00:00:00:09 dev " + name + "\n";
    }
    add_interfaces({"eth3", "eth4", "eth5", "bond0", "bond1"});
    place::output_of("ip -batch - <<END\n" + routes + "END");
    const struct {
        int card, bonding, second;
        const char *interface;
    } cases[] = {{1, 0, 0, "eth0"},  {4, 0, 0, "eth3"},  {5, 0, 0, "eth4"},  {4, 0, 1, "eth3"},  {5, 0, 1, "bond1"},
                 {6, 0, 1, "bond1"}, {1, 1, 0, "bond0"}, {4, 1, 0, "bond0"}, {0, 1, 0, "bond0"}, {5, 1, 0, "eth4"},
                 {6, 1, 0, "eth5"},  {4, 1, 1, "bond0"}, {5, 1, 1, "bond1"}, {9, 0, 0, "none"},  {0, 0, 0, "none"}};
    for (const auto &one : cases) {
        EXPECT_EQ(asked(one.card, one.bonding, one.second), one.interface)
            << one.card << " " << one.bonding << " " << one.second;
    }
    network.reset();
    EXPECT_EQ(CheckNetDelay(1, "10.7.0.2", nullptr, nullptr, 0, 1), 0);
    network = CfgNetConfig{};
    EXPECT_EQ(asked(INT32_MIN, 0, 0), "none");
}

uint16_t checksum(const Bytes &bytes) {
    return cal_chksum(reinterpret_cast<const uint16_t *>(bytes.data()), static_cast<int>(bytes.size()));
}

TEST(CalChksum, IsTheInternetChecksum) {
    // The example of RFC 1071, section 3: the sum is 0xddf2 in network order.
    const Bytes example = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
    EXPECT_EQ(ntohs(checksum(example)), 0xffff - 0xddf2);
    EXPECT_EQ(checksum({}), 0xffff);
    EXPECT_EQ(checksum(Bytes(64, 0xff)), 0);
}

TEST(CalChksum, TakesAnOddLastByteAsAWordWithAZero) {
    EXPECT_EQ(checksum({0x12, 0x34, 0x56}), checksum({0x12, 0x34, 0x56, 0x00}));
    EXPECT_EQ(ntohs(checksum({0xab})), 0xffff - 0xab00);
}

TEST(CalChksum, FoldsTheCarryTwice) {
    Bytes many(131072, 0xff);
    EXPECT_EQ(checksum(many), 0);
    many.resize(131070);
    EXPECT_EQ(checksum(many), 0);
}

TEST(CalChksum, TakesNothingAsNoBytes) {
    EXPECT_EQ(cal_chksum(nullptr, 8), 0xffff);
    const uint16_t word = 1;
    EXPECT_EQ(cal_chksum(&word, 0), 0xffff);
    EXPECT_EQ(cal_chksum(&word, -2), 0xffff);
}

}  // namespace

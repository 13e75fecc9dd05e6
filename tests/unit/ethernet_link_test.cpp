#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/mii.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <stdarg.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <velkor/system_info.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "support/place.h"
#include "support/second_host.h"
#include "support/wire.h"

namespace {

// A transceiver, which no driver in a namespace has; and which requests went to it.
struct Transceiver {
    bool has_address = true;
    bool has_registers = true;
    uint16_t status = 0;
    std::vector<std::string> asked;  // names of interfaces
    int registers = -1;              // the register number that was asked for
    int address = -1;
};
std::optional<Transceiver> transceiver;

std::optional<int> private_result;
std::vector<std::string> private_requests;
bool has_sockets = true;
int sockets_made = 0;
std::vector<int> closed;

template <typename Function>
Function real(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int answer(Transceiver &phy, unsigned long request, struct ifreq &record) {
    auto &registers = reinterpret_cast<struct mii_ioctl_data &>(record.ifr_ifru);
    phy.asked.push_back(std::string(record.ifr_name, strnlen(record.ifr_name, IFNAMSIZ)));
    if (request == SIOCGMIIPHY && phy.has_address) {
        registers.phy_id = 9;
        return 0;
    }
    if (request == SIOCGMIIREG && phy.has_registers) {
        phy.address = registers.phy_id;
        phy.registers = registers.reg_num;
        registers.val_out = phy.status;
        return 0;
    }
    errno = EOPNOTSUPP;
    return -1;
}

}  // namespace

extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void *const record = va_arg(arguments, void *);
    va_end(arguments);
    if (transceiver && (request == SIOCGMIIPHY || request == SIOCGMIIREG)) {
        return answer(*transceiver, request, *static_cast<struct ifreq *>(record));
    }
    if (private_result && request == SIOCDEVPRIVATE) {
        const auto &asked = *static_cast<struct ifreq *>(record);
        uint32_t words[2];
        memcpy(words, asked.ifr_data, sizeof words);
        private_requests.push_back(std::string(asked.ifr_name) + " " + std::to_string(words[0]) + " " +
                                   std::to_string(words[1]));
        return *private_result;
    }
    return real<int (*)(int, unsigned long, void *)>("ioctl")(descriptor, request, record);
}

extern "C" int socket(int domain, int type, int protocol) noexcept {
    if (!has_sockets) {
        errno = EMFILE;
        return -1;
    }
    ++sockets_made;
    return real<int (*)(int, int, int)>("socket")(domain, type, protocol);
}

extern "C" int close(int descriptor) {
    closed.push_back(descriptor);
    return real<int (*)(int)>("close")(descriptor);
}

namespace {

int open_socket() { return socket(AF_INET, SOCK_DGRAM, 0); }
bool is_open(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

class EthernetLink : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(wire::open_descriptors(), descriptors_); }
    const size_t descriptors_ = wire::open_descriptors();
};

// The emulator of the recorder's processor does not hand the drivers' requests on, so these run on the bench alone.
using EthernetLinkOfARealDriver = EthernetLink;

TEST_F(EthernetLinkOfARealDriver, FollowsTheCarrier) {
    const SecondHost far("eth3", "10.7.0.1/24", "10.7.0.2/24");
    EXPECT_EQ(DetectEth0(3), VELKOR_LINK_UP);
    far.run("ip link set eth0 down");
    EXPECT_EQ(DetectEth0(3), VELKOR_LINK_DOWN);
    far.run("ip link set eth0 up");
    EXPECT_EQ(DetectEth0(3), VELKOR_LINK_UP);
}

TEST_F(EthernetLinkOfARealDriver, IsToldForAnyInterface) {
    const SecondHost far("camera", "10.7.0.1/24", "10.7.0.2/24");
    const int socket = open_socket();
    EXPECT_EQ(detect_ethtool(socket, "camera"), VELKOR_LINK_UP);
    EXPECT_EQ(detect_ethtool(socket, "nothing"), VELKOR_LINK_UNKNOWN);
    EXPECT_EQ(detect_ethtool(socket, nullptr), VELKOR_LINK_UNKNOWN);
    EXPECT_EQ(detect_ethtool(-1, "camera"), VELKOR_LINK_UNKNOWN);
    EXPECT_TRUE(is_open(socket));
    close(socket);
}

TEST_F(EthernetLinkOfARealDriver, TakesFifteenCharactersOfAName) {
    const SecondHost far("abcdefghijklmno", "10.7.0.1/24", "10.7.0.2/24");
    const int socket = open_socket();
    EXPECT_EQ(detect_ethtool(socket, "abcdefghijklmnopq"), VELKOR_LINK_UP);
    close(socket);
}

TEST_F(EthernetLink, RefusesPortsAboveEightWithoutASocket) {
    sockets_made = 0;
    EXPECT_EQ(DetectEth0(9), -1);
    EXPECT_EQ(DetectEth0(1000), -1);
    EXPECT_EQ(sockets_made, 0);
    transceiver.emplace();
    transceiver->status = BMSR_LSTATUS;
    EXPECT_EQ(DetectEth0(8), VELKOR_LINK_UP);
    EXPECT_EQ(transceiver->asked.back(), "eth8");
}

TEST_F(EthernetLink, AnswersTheSocketsFailure) {
    has_sockets = false;
    EXPECT_EQ(DetectEth0(0), -1);
    EXPECT_EQ(DetectEth0Ex(), -1);
    has_sockets = true;
}

TEST_F(EthernetLink, IsAskedOfTheTransceiverWhenTheDriverDoesNotKnow) {
    transceiver.emplace();
    transceiver->status = BMSR_LSTATUS | BMSR_100FULL;
    EXPECT_EQ(DetectEth0(-1), VELKOR_LINK_UP);
    EXPECT_EQ(transceiver->asked, (std::vector<std::string>{"eth-1", "eth-1"}));
    EXPECT_EQ(transceiver->registers, 1);
    EXPECT_EQ(transceiver->address, 9);
    EXPECT_EQ(DetectEth0(INT32_MIN), VELKOR_LINK_UP);
    EXPECT_EQ(transceiver->asked.back(), "eth-21474");  // as much as ten bytes hold
}

TEST_F(EthernetLink, OfATransceiverIsUpWithTheLinkBitAndWithoutJabberAndRemoteFault) {
    transceiver.emplace();
    const int socket = open_socket();
    const struct {
        uint16_t status;
        int link;
    } cases[] = {{0x0004, 0}, {0xffed, 0}, {0x0000, 1}, {0x0014, 1},
                 {0x0006, 1}, {0x0010, 1}, {0x0012, 1}, {0xffff, 1}};
    for (const auto &[status, link] : cases) {
        transceiver->status = status;
        EXPECT_EQ(detect_mii(socket, "eth0"), link) << status;
    }
    EXPECT_TRUE(is_open(socket));
    close(socket);
}

TEST_F(EthernetLink, OfATransceiverTakesSixteenCharactersOfAName) {
    transceiver.emplace();
    const int socket = open_socket();
    detect_mii(socket, "abcdefghijklmnopqrs");
    EXPECT_EQ(transceiver->asked[0], "abcdefghijklmnop");
    close(socket);
}

TEST_F(EthernetLink, ClosesTheSocketWhenTheTransceiverHasNoAddress) {
    transceiver.emplace();
    transceiver->has_address = false;
    const int socket = open_socket();
    testing::internal::CaptureStderr();
    EXPECT_EQ(detect_mii(socket, "eth0"), VELKOR_LINK_UNKNOWN);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "SIOCGMIIPHY on eth0 failed: Operation not supported\n");
    EXPECT_FALSE(is_open(socket));
}

TEST_F(EthernetLink, LeavesTheSocketOpenWhenTheRegisterCannotBeRead) {
    transceiver.emplace();
    transceiver->has_registers = false;
    const int socket = open_socket();
    testing::internal::CaptureStderr();
    EXPECT_EQ(detect_mii(socket, "eth0"), VELKOR_LINK_UNKNOWN);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "SIOCGMIIREG on eth0 failed: Operation not supported\n");
    EXPECT_TRUE(is_open(socket));
    close(socket);
}

TEST_F(EthernetLink, OfAPortThatNobodyKnowsClosesItsSocketTwice) {
    transceiver.emplace();
    transceiver->has_address = false;
    testing::internal::CaptureStderr();
    closed.clear();
    EXPECT_EQ(DetectEth0(5), VELKOR_LINK_UNKNOWN);
    const std::vector<int> closes = closed;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "SIOCGMIIPHY on eth5 failed: Operation not supported\n");
    ASSERT_EQ(closes.size(), 2U);
    EXPECT_EQ(closes[0], closes[1]);
}

TEST_F(EthernetLink, PrivateRequestGoesToEth0WithItsTwoWords) {
    private_result = 0;
    EXPECT_EQ(DetectEth0Ex(), 0);
    EXPECT_EQ(private_requests, std::vector<std::string>{"eth0 10 0"});
    private_result = -1;
    EXPECT_EQ(DetectEth0Ex(), -1);
}

TEST_F(EthernetLink, PrivateRequestIsRefusedByADriverWithoutIt) {
    const SecondHost far("eth0", "10.7.0.1/24", "10.7.0.2/24");
    EXPECT_EQ(DetectEth0Ex(), -1);
}

}  // namespace

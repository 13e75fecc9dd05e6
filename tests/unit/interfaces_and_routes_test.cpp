#include <arpa/inet.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <velkor/firmware.h>
#include <velkor/network.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "support/place.h"
#include "support/second_host.h"
#include "support/wire.h"

namespace {

NetIpv6AddressList list_of_device;
int32_t method_of_device = 0;
uintptr_t device_asked = 0;

// What a kernel does not refuse.
unsigned long refused_question = 0;
bool refuses_to_send = false;

}  // namespace

extern "C" int ioctl(int descriptor, unsigned long question, ...) noexcept {
    va_list arguments;
    va_start(arguments, question);
    void *const record = va_arg(arguments, void *);
    va_end(arguments);
    if (question == refused_question) {
        errno = EADDRNOTAVAIL;
        return -1;
    }
    return static_cast<int>(syscall(SYS_ioctl, descriptor, question, record));
}

extern "C" ssize_t send(int socket, const void *data, size_t size, int flags) {
    if (refuses_to_send) {
        errno = ENOBUFS;
        return -1;
    }
    return syscall(SYS_sendto, socket, data, size, flags, nullptr, 0);
}

int NetDevice_GetIpv6AddressList(uintptr_t device, void *list) {
    device_asked = device;
    EXPECT_EQ(static_cast<NetIpv6AddressList *>(list)->count, 0);  // cleared
    memcpy(list, &list_of_device, sizeof list_of_device);
    return 0;
}

int NetGetCurIpv6Method(uintptr_t) { return method_of_device; }

namespace {

// A recorder at 10.7.0.1 whose "eth0" leads to a second host at 10.7.0.2, and which leaves no descriptor open.
class Interfaces : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(wire::open_descriptors(), descriptors_); }

    const size_t descriptors_ = wire::open_descriptors();
    SecondHost far_{"eth0", "10.7.0.1/20", "10.7.0.2/20"};
    char address_[17] = "untouched";
    char mask_[17] = "untouched";
};

TEST_F(Interfaces, HaveAnAddressAndAMask) {
    EXPECT_EQ(get_local_address(address_, mask_, "eth0"), 0);
    EXPECT_STREQ(address_, "10.7.0.1");
    EXPECT_STREQ(mask_, "255.255.240.0");
    EXPECT_EQ(get_local_address(nullptr, mask_, "lo"), 0);
    EXPECT_STREQ(mask_, "255.0.0.0");
    EXPECT_EQ(get_local_address(address_, nullptr, "lo"), 0);
    EXPECT_STREQ(address_, "127.0.0.1");
}

TEST_F(Interfaces, AreNotAskedWhenNothingIsWanted) {
    EXPECT_EQ(get_local_address(nullptr, nullptr, "no such"), 0);
    EXPECT_EQ(get_local_address(nullptr, nullptr, nullptr), 0);
}

TEST_F(Interfaces, WithoutAddressLeaveTheBuffersAlone) {
    place::output_of("ip address flush dev eth0");
    EXPECT_EQ(get_local_address(address_, mask_, "eth0"), -1);
    EXPECT_EQ(get_local_address(address_, mask_, "no such"), -1);
    EXPECT_EQ(get_local_address(address_, mask_, nullptr), -1);
    EXPECT_STREQ(address_, "untouched");
    EXPECT_STREQ(mask_, "untouched");
    EXPECT_EQ(get_local_address(nullptr, mask_, "eth0"), -1);
}

TEST_F(Interfaces, WithoutMaskHaveTheirAddressWritten) {
    refused_question = SIOCGIFNETMASK;
    EXPECT_EQ(get_local_address(address_, mask_, "eth0"), -1);
    EXPECT_STREQ(address_, "10.7.0.1");
    EXPECT_STREQ(mask_, "untouched");
    refused_question = 0;
}

TEST_F(Interfaces, AreNamedByFifteenCharacters) {
    place::output_of(
        "ip link set eth0 down && ip link set eth0 name abcdefghijklmno && ip link set abcdefghijklmno up");
    EXPECT_EQ(get_local_address(address_, mask_, "abcdefghijklmno"), 0);
    EXPECT_EQ(get_local_address(address_, mask_, "abcdefghijklmnopqrst"), 0);
    EXPECT_EQ(get_local_address(address_, mask_, "abcdefghijklmn"), -1);
    char mac[7];
    EXPECT_EQ(GetNetInterFaceMac(mac, "abcdefghijklmnopqrst"), 0);
    place::output_of("ip route add default via 10.7.0.2");
    EXPECT_EQ(get_gateway(address_, "abcdefghijklmnopqrst"), 0);
    EXPECT_STREQ(address_, "10.7.0.2");
}

TEST_F(Interfaces, HaveAMacOfSixRawBytesAndATerminator) {
    place::output_of("ip link set eth0 address 02:00:0a:00:ff:25");
    char mac[8];
    memset(mac, '#', sizeof mac);
    EXPECT_EQ(GetNetInterFaceMac(mac, "eth0"), 0);
    EXPECT_EQ(std::string(mac, 8), std::string("\x02\0\x0a\0\xff\x25\0#", 8));
    memset(mac, '#', sizeof mac);
    EXPECT_EQ(GetNetInterFaceMac(mac, "no such"), -1);
    EXPECT_EQ(GetNetInterFaceMac(mac, nullptr), -1);
    EXPECT_EQ(mac[0], '#');
    EXPECT_EQ(GetNetInterFaceMac(nullptr, "eth0"), -1);
}

TEST_F(Interfaces, AreAskedByManyThreadsAtOnce) {
    place::output_of("ip route add default via 10.7.0.2");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            const char *const interface = i % 2 == 0 ? "eth0" : "lo";
            const std::string expected = i % 2 == 0 ? "10.7.0.1" : "127.0.0.1";
            for (int round = 0; round < 200; ++round) {
                char address[16] = "";
                ASSERT_EQ(get_local_address(address, nullptr, interface), 0);
                ASSERT_EQ(address, expected);
                char gateway[16] = "";
                ASSERT_EQ(get_gateway(gateway, "eth0"), 0);
                ASSERT_STREQ(gateway, "10.7.0.2");
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

// ---- Routes ----

class Gateway : public Interfaces {
protected:
    // What the gateway of an interface is said to be.
    std::string of(const char *interface) {
        strcpy(address_, "untouched");
        EXPECT_EQ(get_gateway(address_, interface), 0);
        return address_;
    }
};

TEST_F(Gateway, IsNotWrittenWithoutADefaultRoute) {
    EXPECT_EQ(of("eth0"), "untouched");
    EXPECT_EQ(of("no such"), "untouched");
}

TEST_F(Gateway, IsThatOfTheDefaultRouteOfTheInterface) {
    const SecondHost other("eth1", "10.8.0.1/24", "10.8.0.2/24");
    place::output_of(
        "ip route add default via 10.7.0.2 && ip route add default via 10.8.0.2 metric 9 && "
        "ip route add 172.16.0.0/12 via 10.7.0.3");
    EXPECT_EQ(of("eth0"), "10.7.0.2");
    EXPECT_EQ(of("eth1"), "10.8.0.2");
    EXPECT_EQ(of("lo"), "untouched");
}

TEST_F(Gateway, IsThatOfTheLastMatchingRoute) {
    place::output_of("ip route add default via 10.7.0.2 metric 1 && ip route add default via 10.7.0.3 metric 2");
    EXPECT_EQ(of("eth0"), "10.7.0.3");
}

TEST_F(Gateway, IsTakenFromARouteToTenZeroZeroZeroToo) {
    place::output_of("ip route add default via 10.7.0.2 && ip route add 10.0.0.0/8 via 10.7.0.7");
    EXPECT_EQ(of("eth0"), "10.7.0.7");
    place::output_of("ip route del 10.0.0.0/8 && ip route add 20.0.0.0/8 via 10.7.0.8");
    EXPECT_EQ(of("eth0"), "10.7.0.8");
    place::output_of("ip route del 20.0.0.0/8 && ip route add 11.0.0.0/8 via 10.7.0.9");
    EXPECT_EQ(of("eth0"), "10.7.0.2");
}

TEST_F(Gateway, IsZeroForARouteWithoutOne) {
    place::output_of("ip route add default dev eth0");
    EXPECT_EQ(of("eth0"), "0.0.0.0");
}

TEST_F(Gateway, IsLookedForInTheMainTableOnly) {
    place::output_of("ip route add default via 10.7.0.2 table 100 && ip route add default via 10.7.0.3 table 253");
    EXPECT_EQ(of("eth0"), "untouched");
}

TEST_F(Gateway, IsThatOfARouteWithoutInterfaceForNoName) {
    place::output_of("ip route add unreachable default");
    EXPECT_EQ(of(""), "0.0.0.0");
    EXPECT_EQ(of("lo"), "untouched");
    EXPECT_EQ(of("eth0"), "untouched");
}

void add_routes(int count) {
    std::string batch;
    for (int i = 0; i < count; ++i) {
        batch += "route add 172.16." + std::to_string(i / 250) + "." + std::to_string(i % 250) + "/32 via 10.7.0.5\n";
    }
    place::write_file("/tmp/batch", batch);
    place::output_of("ip -batch /tmp/batch");
}

TEST_F(Gateway, IsFoundAmongAsManyRoutesAsTheBufferHolds) {
    add_routes(240);
    place::output_of("ip route add default via 10.7.0.2");
    EXPECT_EQ(of("eth0"), "10.7.0.2");
}

TEST_F(Gateway, IsNotLookedForInADumpAboveTheBuffer) {
    add_routes(400);
    place::output_of("ip route add default via 10.7.0.2");
    testing::internal::CaptureStderr();
    EXPECT_EQ(get_gateway(address_, "eth0"), -1);
    testing::internal::GetCapturedStderr();
    EXPECT_STREQ(address_, "untouched");
}

TEST_F(Gateway, IsAskedForWhileRoutesComeAndGo) {
    place::output_of("ip route add default via 10.7.0.2");
    std::atomic<bool> stop{false};
    std::thread changer([&] {
        while (!stop) {
            add_routes(60);
            place::output_of("ip route flush 172.16.0.0/12 && ip route flush root 172.16.0.0/12");
        }
    });
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(of("eth0"), "10.7.0.2");
    }
    stop = true;
    changer.join();
}

TEST_F(Gateway, NeedsBothArguments) {
    EXPECT_EQ(get_gateway(nullptr, "eth0"), -1);
    EXPECT_EQ(get_gateway(address_, nullptr), -1);
}

TEST_F(Gateway, FailsInSilenceWhenItCannotBeAskedFor) {
    refuses_to_send = true;
    testing::internal::CaptureStderr();
    EXPECT_EQ(get_gateway(address_, "eth0"), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_STREQ(address_, "untouched");
    refuses_to_send = false;
}

TEST_F(Gateway, FailsWithoutDescriptors) {
    testing::internal::CaptureStderr();
    {
        const wire::NoDescriptors none;
        EXPECT_EQ(get_gateway(address_, "eth0"), -1);
        EXPECT_EQ(get_local_address(address_, mask_, "eth0"), -1);
        EXPECT_EQ(get_local_address(nullptr, nullptr, "eth0"), -1);
        char mac[7];
        EXPECT_EQ(GetNetInterFaceMac(mac, "eth0"), -1);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Socket Creation: : Too many open files\n");
}

// ---- IPv6 addresses ----

class Ipv6Address : public testing::Test {
protected:
    static void add(int32_t method, const std::string &address, uint32_t attribute) {
        NetIpv6Address &entry = list_of_device.entries[list_of_device.count++];
        entry.method = method;
        snprintf(entry.address, sizeof entry.address, "%s", address.c_str());
        entry.attribute = attribute;
    }

    char address_[65] = "untouched";
    uint32_t attribute_ = 7;
};

TEST_F(Ipv6Address, IsTheFirstByTextOfTheCurrentMethod) {
    method_of_device = 2;
    add(1, "2001:db8::1", 10);
    add(2, "fd00::2", 11);
    add(2, "2001:db8::9", 12);
    add(2, "2001:db8::a", 13);
    EXPECT_EQ(NetDevice_GetIpv6AddressUsed(address_, &attribute_, 42), 0);
    EXPECT_STREQ(address_, "2001:db8::9");
    EXPECT_EQ(attribute_, 12U);
    EXPECT_EQ(device_asked, 42U);
}

TEST_F(Ipv6Address, OfEqualTextIsTheFirstEntry) {
    add(0, "fd00::1", 1);
    add(0, "fd00::1", 2);
    EXPECT_EQ(NetDevice_GetIpv6AddressUsed(address_, &attribute_, 1), 0);
    EXPECT_EQ(attribute_, 1U);
}

TEST_F(Ipv6Address, IsNoneWithoutAnEntryOfTheMethod) {
    EXPECT_EQ(NetDevice_GetIpv6AddressUsed(address_, &attribute_, 1), -1);
    method_of_device = 3;
    add(1, "fd00::1", 1);
    EXPECT_EQ(NetDevice_GetIpv6AddressUsed(address_, &attribute_, 1), -1);
    EXPECT_STREQ(address_, "untouched");
    EXPECT_EQ(attribute_, 7U);
}

TEST_F(Ipv6Address, IsWrittenWhereItIsWanted) {
    add(0, "fd00::1", 5);
    EXPECT_EQ(NetDevice_GetIpv6AddressUsed(nullptr, nullptr, 1), 0);
    EXPECT_EQ(NetDevice_GetIpv6AddressUsed(nullptr, &attribute_, 1), 0);
    EXPECT_EQ(attribute_, 5U);
    EXPECT_EQ(NetDevice_GetIpv6AddressUsed(address_, nullptr, 1), 0);
    EXPECT_STREQ(address_, "fd00::1");
}

TEST_F(Ipv6Address, LogsTheCountAndTheMissingDevice) {
    const LogCapture log;
    EXPECT_EQ(NetDevice_GetIpv6AddressUsed(address_, &attribute_, 0), -1);
    NetDevice_GetIpv6AddressUsed(address_, &attribute_, 1);
    add(0, "fd00::1", 5);
    NetDevice_GetIpv6AddressUsed(address_, &attribute_, 1);
    EXPECT_EQ(LogCapture::take_messages(),
              (std::vector<std::string>{"NetDevice_GetIpv6AddressUsed 167 PARA is NULL.",
                                        "NetDevice_GetIpv6AddressUsed 176 CurIpv6AddrCnt:1"}));
}

TEST_F(Ipv6Address, IsLookedForInsideTheListWhateverItSays) {
    for (int i = 0; i < 16; ++i) {
        add(0, "fd00::" + std::to_string(10 + i), 5);
    }
    memset(list_of_device.entries[15].address, '0', sizeof list_of_device.entries[15].address);  // no terminator
    list_of_device.count = INT32_MAX;
    address_[64] = '#';
    EXPECT_EQ(NetDevice_GetIpv6AddressUsed(address_, &attribute_, 1), 0);
    EXPECT_EQ(std::string(address_, 64).c_str(), std::string(63, '0'));
    EXPECT_EQ(address_[64], '#');
    list_of_device.count = -1;
    EXPECT_EQ(NetDevice_GetIpv6AddressUsed(address_, &attribute_, 1), -1);
}

// ---- The rest ----

TEST(RandomPort, IsTheLowHalfOfTheSeededGeneratorRaisedOnceToTheLowerBound) {
    bool is_predicted = false;
    for (int round = 0; round < 3 && !is_predicted; ++round) {  // the second may change in between
        srand(static_cast<unsigned>(getpid()) + static_cast<unsigned>(time(nullptr)));
        const int low = rand() & 0xffff;  // NOLINT(cert-msc30-c,cert-msc50-cpp): the very generator that is seeded
        is_predicted = GetRandomPort(0) == low &&
                       GetRandomPort(0xffff) == static_cast<uint16_t>(low + (low < 0xffff ? 0xffff : 0)) &&
                       GetRandomPort(static_cast<uint16_t>(low)) == low;
    }
    EXPECT_TRUE(is_predicted);
}

TEST(IpcConnectCheck, IsAnEmptyBufferOf257Bytes) {
    EXPECT_EQ(sizeof g_cIpcConnectCheck, 257U);
    EXPECT_EQ(std::string(g_cIpcConnectCheck, sizeof g_cIpcConnectCheck), std::string(257, '\0'));
}

}  // namespace

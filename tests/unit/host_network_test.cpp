#include <gtest/gtest.h>
#include <net/if.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

#include <set>
#include <string>

#include "support/place.h"
#include "support/second_host.h"
#include "support/wire.h"

namespace {

wire::Bytes reversed(const uint8_t (&mac)[6]) { return {std::rbegin(mac), std::rend(mac)}; }

TEST(HostNetworkConfiguration, HasThisMachinesCardsWithTheirMacsLastByteFirst) {
    EXPECT_EQ(Cfg_gMediaDevice(0)->cardCount, 0);  // loopback is none
    const SecondHost first("eth0", "10.7.0.1/24", "10.7.0.2/24");
    const SecondHost second("eth1", "10.8.0.1/24", "10.8.0.2/24");
    EXPECT_EQ(Cfg_gMediaDevice(0)->cardCount, 2);
    const CfgNetConfig *const config = Cfg_gNetConfig(0);
    EXPECT_EQ(reversed(config->mac[0]), wire::mac_of("eth0"));
    EXPECT_EQ(reversed(config->mac[1]), wire::mac_of("eth1"));
    EXPECT_EQ(reversed(config->mac[2]), wire::Bytes(6));
    EXPECT_EQ(config->bonding, 0);
    EXPECT_EQ(config->secondBond, 0);
}

TEST(HostNetworkConfiguration, KnowsBondsByTheirNames) {
    const SecondHost first("bond0", "10.7.0.1/24", "10.7.0.2/24");
    EXPECT_EQ(Cfg_gNetConfig(0)->bonding, 1);
    EXPECT_EQ(Cfg_gNetConfig(0)->secondBond, 0);
    EXPECT_EQ(Cfg_gMediaDevice(0)->cardCount, 0);
    const SecondHost second("bond1", "10.8.0.1/24", "10.8.0.2/24");
    EXPECT_EQ(Cfg_gNetConfig(0)->secondBond, 1);
}

TEST(HostNetworkConfiguration, CountsMoreCardsThanItHasMacsFor) {
    for (int i = 0; i < 5; ++i) {
        place::output_of("ip link add type veth");
    }
    EXPECT_EQ(Cfg_gMediaDevice(0)->cardCount, 10);
    EXPECT_NE(reversed(Cfg_gNetConfig(0)->mac[7]), wire::Bytes(6));
}

TEST(HostNetworkConfiguration, HasNoOtherNumberThanZero) {
    EXPECT_EQ(Cfg_gNetConfig(1), nullptr);
    EXPECT_EQ(Cfg_gMediaDevice(-1), nullptr);
}

std::set<std::string> addresses_of(uintptr_t device) {
    NetIpv6AddressList list;
    EXPECT_EQ(NetDevice_GetIpv6AddressList(device, &list), 0);
    std::set<std::string> texts;
    for (int i = 0; i < list.count; ++i) {
        const NetIpv6Address &entry = list.entries[i];
        texts.insert(std::string(entry.address) + "/" + std::to_string(entry.attribute) + " " +
                     std::to_string(entry.method));
    }
    return texts;
}

TEST(HostNetworkDevice, ListsTheAddressesOfAnInterfaceAndHowTheyCameAbout) {
    const SecondHost far("eth0", "10.7.0.1/24", "10.7.0.2/24");
    place::output_of("ip address flush dev eth0 && ip address add fe80::7/64 dev eth0 nodad");
    const uintptr_t device = if_nametoindex("eth0");
    EXPECT_EQ(addresses_of(device), std::set<std::string>{"fe80::7/64 0"});
    EXPECT_EQ(NetGetCurIpv6Method(device), VELKOR_HOST_IPV6_LINK_LOCAL);
    place::output_of("ip address add 2001:db8::5/48 dev eth0 nodad");
    EXPECT_EQ(NetGetCurIpv6Method(device), VELKOR_HOST_IPV6_STATIC);
    place::output_of("ip address add 2001:db8::6/64 dev eth0 nodad valid_lft 1000 preferred_lft 900");
    EXPECT_EQ(NetGetCurIpv6Method(device), VELKOR_HOST_IPV6_AUTOMATIC);
    EXPECT_EQ(addresses_of(device), (std::set<std::string>{"fe80::7/64 0", "2001:db8::5/48 1", "2001:db8::6/64 2"}));
}

TEST(HostNetworkDevice, ListsSixteenAddressesAtMost) {
    for (int i = 1; i <= 20; ++i) {
        place::output_of("ip address add fd00::" + std::to_string(i) + "/64 dev lo");
    }
    EXPECT_EQ(addresses_of(if_nametoindex("lo")).size(), 16U);
}

TEST(HostNetworkDevice, KnowsNothingOfAnInterfaceThatIsNotThere) {
    EXPECT_EQ(addresses_of(9999), std::set<std::string>{});
    EXPECT_EQ(NetDevice_GetIpv6AddressList(1, nullptr), -1);
}

}  // namespace

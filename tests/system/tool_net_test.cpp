// velkor net, command by command, beside a second host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/place.h"
#include "support/second_host.h"
#include "support/tool.h"
#include "support/wire.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class ToolNet : public testing::Test {
protected:
    ToolNet() {
        place::output_of(
            "ip link set eth0 address 02:fc:00:00:00:01 && ip link set lo down && ip link set lo up && "
            "ip -6 address flush dev eth0");
        far_.run("ip link set eth0 address 02:fc:00:00:00:02");
    }

    // Without its rights the tool is what an ordinary user runs.
    static tool::Outcome run_without_rights(const std::string &arguments) {
        tool::Running running(arguments, "/dev/null", "setpriv --bounding-set -all --inh-caps -all ");
        const int status = running.wait();
        return {status, running.out(), running.err()};
    }

    SecondHost far_{"eth0", "10.7.0.1/24", "10.7.0.2/24"};
};

TEST_F(ToolNet, AddrShowsAddressesAndFailsWithoutOne) {
    tool::Outcome outcome = tool::run("net addr eth0");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "eth0  10.7.0.1, mask 255.255.255.0\n");
    outcome = tool::run("net addr");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr("127.0.0.1, mask 255.0.0.0"));
    outcome = tool::run("net addr eth0 eth7");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "eth0  10.7.0.1, mask 255.255.255.0\neth7  no IPv4 address\n");
    place::output_of("ip address add 2001:db8::7/64 dev eth0 nodad");
    EXPECT_THAT(tool::run("net addr eth0 --json").out,
                AllOf(HasSubstr("\"interface\": \"eth0\""), HasSubstr("\"ipv6\": \"2001:db8::7\"")));
}

TEST_F(ToolNet, MacShowsWhatARecorderMayHave) {
    tool::Outcome outcome = tool::run("net mac eth0");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "eth0  02:fc:00:00:00:01\n");
    outcome = tool::run("net mac lo nothing");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "lo       00:00:00:00:00:00, not fit for a recorder\nnothing  no such interface\n");
}

TEST_F(ToolNet, RouteShowsTheGateway) {
    tool::Outcome outcome = tool::run("net route eth0");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "eth0  no gateway\n");
    place::output_of("ip route add default via 10.7.0.2");
    outcome = tool::run("net route --json");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr("\"gateway\": \"10.7.0.2\""));
}

TEST_F(ToolNet, LinkOfARealDriverIsUpOrDown) {
    EXPECT_EQ(tool::run("net link eth0").out, "eth0: up\n");
    far_.run("ip link set eth0 down");
    const tool::Outcome outcome = tool::run("net link eth0");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "eth0: down\n");
}

TEST_F(ToolNet, LinkThatNobodyKnowsIsUnknown) {
    const tool::Outcome outcome = tool::run("net link nothing");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "nothing: unknown\n");
    EXPECT_THAT(outcome.err, StartsWith("SIOCGMIIPHY on nothing failed: "));
}

TEST_F(ToolNet, ValidateSaysWhatKindAndFailsForOneThatIsNotToBeUsed) {
    tool::Outcome outcome = tool::run("net validate 10.0.0.1 2001:db8::1");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "10.0.0.1     IPv4 unicast (IsValidIP: 1)\n2001:db8::1  IPv6, usable (IsValidIPv6: 0)\n");
    outcome = tool::run("net validate 0.0.0.0 1.2.3.4.5 fe80::1 ::1 ff02::1 ::");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out,
              "0.0.0.0    IPv4, all zero (IsValidIP: 3)\n1.2.3.4.5  no IP address (IsValidIP: -1)\n"
              "fe80::1    IPv6 link-local (IsValidIPv6: -3)\n::1        IPv6 loopback (IsValidIPv6: -4)\n"
              "ff02::1    IPv6 multicast (IsValidIPv6: -2)\n::         IPv6 unspecified (IsValidIPv6: -5)\n");
    outcome = tool::run("net validate --gateway fe80::1");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "fe80::1  IPv6 gateway, usable (IsValidIpv6Gw: 0)\n");
    outcome = tool::run("net validate --gateway ''");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("no gateway (IsValidIpv6Gw: 255)"));
}

TEST_F(ToolNet, ResolveShowsTheAddressThatARecorderTakesFirst) {
    // Each takes a second, so they run side by side.
    tool::Running plain("net resolve localhost");
    tool::Running json("net resolve localhost --json");
    tool::Running unknown("net resolve 'no such name' --timeout 1");
    EXPECT_EQ(plain.wait(), 0);
    EXPECT_THAT(plain.out(), StartsWith("127.0.0.1\n"));
    EXPECT_EQ(json.wait(), 0);
    EXPECT_THAT(json.out(), HasSubstr("\"chosen\": \"127.0.0.1\""));
    EXPECT_EQ(unknown.wait(), 1);
    EXPECT_EQ(unknown.err(), "velkor: GetIpByNameAsync: -1, the resolver knows no address of no such name\n");
}

TEST_F(ToolNet, PingHasALineAnAnswerAndASummary) {
    tool::Outcome outcome = tool::run("net ping 10.7.0.2 -c 3 --interval 0");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, MatchesRegex("(answer from 10.7.0.2 after [0-9]+ ms\n){3}"
                                          "3 sent, 3 answered; [0-9]+ to [0-9]+ ms, [0-9.e+]+ on average\n"));
    far_.run("echo 1 >/proc/sys/net/ipv4/icmp_echo_ignore_all");
    outcome = tool::run("net ping 10.7.0.2 -c 1");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "no answer from 10.7.0.2\n1 sent, 0 answered\n");
}

TEST_F(ToolNet, PingSaysWhichCardHasNoInterface) {
    const tool::Outcome outcome = tool::run("net ping 10.7.0.2 --card 5");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
              "velkor: CheckNetDelay: -1, card 5 has no interface (card 1 is eth0; with bonding, bond0)\n");
}

TEST_F(ToolNet, ArpSaysWhoAnswers) {
    tool::Running nobody("net arp 10.7.0.9 --timeout 1");  // takes its time
    tool::Outcome outcome = tool::run("net arp 10.7.0.2 --timeout 1");
    EXPECT_EQ(outcome.out, "10.7.0.2 is at 2:fc:0:0:0:2\n");
    EXPECT_EQ(outcome.status, 0);
    outcome = tool::run("net arp 10.7.0.9 --card 3");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, StartsWith("velkor: CheckIp: -1, "));
    EXPECT_EQ(nobody.wait(), 1);
    EXPECT_EQ(nobody.out(), "nobody has 10.7.0.9\n");
}

TEST_F(ToolNet, ConflictSaysWhoUsesTheMac) {
    tool::Outcome outcome = tool::run("net conflict --mac eth0 --timeout 1");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "no other station was seen to use 02:fc:00:00:00:01\n");
    wire::ArpFrame frame;
    frame.sender_mac = wire::mac("02:fc:00:00:00:01");
    frame.sender = wire::ipv4("10.7.0.5");
    frame.target = wire::ipv4("10.7.0.77");
    const wire::ArpStation station(far_, std::vector{frame});
    outcome = tool::run("net conflict --mac eth0");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "another station uses 02:fc:00:00:00:01, with the address 10.7.0.5\n");
    EXPECT_EQ(tool::run("net conflict --mac eth7").status, 1);
}

TEST_F(ToolNet, SaysInOneLineWhichRightIsMissing) {
    for (const char *const command : {"ping 10.7.0.2", "arp 10.7.0.2", "conflict --mac eth0"}) {
        const tool::Outcome outcome = run_without_rights(std::string("net ") + command);
        EXPECT_EQ(outcome.status, 2) << command;
        EXPECT_THAT(outcome.err,
                    MatchesRegex("velkor: net [a-z]+ needs the capability CAP_NET_RAW: run it with sudo, or "
                                 "once: sudo setcap cap_net_raw\\+ep \\$\\(command -v velkor\\)\n"));
        EXPECT_EQ(outcome.out, "");
    }
}

TEST_F(ToolNet, PortIsANumber) {
    EXPECT_THAT(tool::run("net port").out, MatchesRegex("[0-9]+\n"));
    EXPECT_THAT(tool::run("net port --json").out, HasSubstr("\"port\": "));
    EXPECT_EQ(tool::run("net port --lower 70000").status, 2);
}

TEST_F(ToolNet, RefusesWhatCannotBeMeant) {
    for (const char *const arguments :
         {"net", "net nothing", "net ping", "net arp", "net conflict", "net resolve", "net validate", "net link",
          "net ping 10.7.0.2 -c 0", "net resolve localhost --timeout 0"}) {
        const tool::Outcome outcome = tool::run(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.out, "") << arguments;
    }
}

}  // namespace

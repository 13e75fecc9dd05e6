#include <gtest/gtest.h>
#include <velkor/network.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/log_capture.h"

namespace {

using Messages = std::vector<std::string>;

struct Verdict {
    const char *text;
    int result;
};

TEST(IsValidIP, TellsUnicastMulticastAndZero) {
    for (const auto &[text, result] :
         std::vector<Verdict>{{"1.0.0.0", 1},    {"192.168.1.64", 1},    {"127.0.0.1", 1},  {"223.255.255.255", 1},
                              {"224.0.0.1", 2},  {"239.255.255.255", 2}, {"240.0.0.1", 1},  {"255.255.255.255", 1},
                              {"0.0.0.0", 3},    {"0.0.0.1", -1},        {"0.1.0.0", -1},   {"256.1.1.1", -1},
                              {"1.2.3.256", -1}, {"1.256.3.4", -1},      {"1.2.256.4", -1}, {"-1.2.3.4", -1},
                              {"1.-2.3.4", -1},  {"1.2.3", -1},          {"", -1},          {"velkor", -1},
                              {"::1", -1}}) {
        EXPECT_EQ(IsValidIP(text), result) << text;
    }
    EXPECT_EQ(IsValidIP(nullptr), -1);
}

TEST(IsValidIP, TakesWhatFollowsTheFourthNumberUnlessItIsAFifth) {
    EXPECT_EQ(IsValidIP("1.2.3.4abc"), 1);
    EXPECT_EQ(IsValidIP("1.2.3.4."), 1);
    EXPECT_EQ(IsValidIP("1.2.3.4.x"), 1);
    EXPECT_EQ(IsValidIP("1.2.3.4 5"), 1);
    EXPECT_EQ(IsValidIP("1.2.3.4.5"), -1);
    EXPECT_EQ(IsValidIP("1.2.3.4.5.6"), -1);
}

TEST(IsValidIP, TakesBlanksAndSignsBeforeANumber) {
    EXPECT_EQ(IsValidIP(" 1.\t+2.3. 4"), 1);
    EXPECT_EQ(IsValidIP("001.002.003.004"), 1);
    EXPECT_EQ(IsValidIP("1 .2.3.4"), -1);
}

TEST(IsValidIP, DoesNotLetANumberThroughThatWouldWrapOn64Bit) {
    EXPECT_EQ(IsValidIP("4294967297.2.3.4"), -1);
    EXPECT_EQ(IsValidIP("1.2.3.18446744073709551617"), -1);
    EXPECT_EQ(IsValidIP("4294967296.0.0.0"), -1);
}

TEST(IsValidIPv6, TellsWhatMayNotBeUsed) {
    for (const auto &[text, result] : std::vector<Verdict>{{"2001:db8::1", 0},
                                                           {"ff02::1", -2},
                                                           {"ff00::", -2},
                                                           {"fe80::1", -3},
                                                           {"febf::1", -3},
                                                           {"fec0::1", 0},
                                                           {"fe7f::1", 0},
                                                           {"::1", -4},
                                                           {"::", -5},
                                                           {"::2", 0},
                                                           {"::1.2.3.4", 0},
                                                           {"::100:1", 0},
                                                           {"::ffff:1.2.3.4", 0},
                                                           {"fe80::1%eth0", -1},
                                                           {"1.2.3.4", -1},
                                                           {"2001:db8::g", -1},
                                                           {"", -1}}) {
        EXPECT_EQ(IsValidIPv6(text), result) << text;
    }
    EXPECT_EQ(IsValidIPv6(nullptr), -1);
}

TEST(IsValidIPv6, LogsItsResult) {
    const LogCapture log;
    IsValidIPv6("::1");
    IsValidIPv6(nullptr);
    EXPECT_EQ(LogCapture::take_messages(), (Messages{"IsValidIPv6 1156 iRet = -4", "IsValidIPv6 1156 iRet = -1"}));
}

TEST(IsValidIpv6Gw, AcceptsLinkLocalAndNumbersTheRestInItsOwnWay) {
    for (const auto &[text, result] : std::vector<Verdict>{{"2001:db8::1", 0},
                                                           {"", 255},
                                                           {"gateway", -1},
                                                           {"ff02::1", -2},
                                                           {"fe80::1", 0},
                                                           {"::1", -3},
                                                           {"::", -4},
                                                           {"::2", 0}}) {
        EXPECT_EQ(IsValidIpv6Gw(text), result) << text;
    }
    EXPECT_EQ(IsValidIpv6Gw(nullptr), -1);
}

TEST(IsValidIpv6Gw, LogsItsResult) {
    const LogCapture log;
    IsValidIpv6Gw("");
    IsValidIpv6Gw("::");
    EXPECT_EQ(LogCapture::take_messages(),
              (Messages{"IsValidIpv6Gw 1211 ##### iRet = [255]  ", "IsValidIpv6Gw 1211 ##### iRet = [-4]  "}));
}

TEST(DetectIpType, TellsTheFamily) {
    EXPECT_EQ(detect_ip_type("10.0.0.1"), 0);
    EXPECT_EQ(detect_ip_type("fe80::1"), 1);
    EXPECT_EQ(detect_ip_type("10.0.0"), -1);
    EXPECT_EQ(detect_ip_type("010.0.0.1"), -1);
    EXPECT_EQ(detect_ip_type(""), -1);
    EXPECT_EQ(detect_ip_type(nullptr), -2);
}

TEST(IpString2U32, PutsTheFirstNumberIntoTheMostSignificantByte) {
    EXPECT_EQ(ipstring2u32("192.168.0.1"), 0xC0A80001U);
    EXPECT_EQ(ipstring2u32("255.255.255.255"), 0xFFFFFFFFU);
    EXPECT_EQ(ipstring2u32(nullptr), 0U);
}

TEST(IpString2U32, LetsLargeNumbersSpillIntoTheNextByte) {
    EXPECT_EQ(ipstring2u32("1.2.3.256"), 0x01020400U);
    EXPECT_EQ(ipstring2u32("1.2.3.-1"), 0x010202FFU);
    EXPECT_EQ(ipstring2u32("256.0.0.0"), 0U);
    EXPECT_EQ(ipstring2u32("0.0.0.9999999999"), 0x7FFFFFFFU);
}

TEST(IpString2U32, TakesMissingNumbersAsZero) {
    EXPECT_EQ(ipstring2u32("1.2"), 0x01020000U);
    EXPECT_EQ(ipstring2u32("x"), 0U);
    EXPECT_EQ(ipstring2u32(""), 0U);
}

TEST(IPAddressU32ToChar, TakesTheFirstNumberFromTheLeastSignificantByte) {
    char text[17];
    memset(text, '#', sizeof text);
    EXPECT_EQ(IPAddressU32ToChar(0x0100A8C0, text), 0);
    EXPECT_STREQ(text, "192.168.0.1");
    EXPECT_EQ(std::string(text + 11, 5), std::string(5, '\0'));
    EXPECT_EQ(text[16], '#');
    IPAddressU32ToChar(0xC0A80001, text);
    EXPECT_STREQ(text, "1.0.168.192");
    IPAddressU32ToChar(0xFFFFFFFF, text);
    EXPECT_STREQ(text, "255.255.255.255");
}

TEST(IPAddressU32ToChar, WritesZeroAsAnEmptyText) {
    char text[16];
    memset(text, '#', sizeof text);
    EXPECT_EQ(IPAddressU32ToChar(0, text), 0);
    EXPECT_EQ(std::string(text, sizeof text), std::string(16, '\0'));
    EXPECT_EQ(IPAddressU32ToChar(1, nullptr), 0);
}

std::string changed(const std::string &text, int result) {
    std::string copy = text;
    EXPECT_EQ(ChangeIpAddr(copy.data()), result) << text;
    copy.resize(strlen(copy.data()));
    return copy;
}

TEST(ChangeIpAddr, DropsLeadingZeros) {
    EXPECT_EQ(changed("010.001.000.005", 1), "10.1.0.5");
    EXPECT_EQ(changed("1.2.3.4", 1), "1.2.3.4");
    EXPECT_EQ(changed("999.2.3.4", 1), "999.2.3.4");
}

TEST(ChangeIpAddr, DropsAFifthPieceAndWhatFollowsDigits) {
    EXPECT_EQ(changed("1.2.3.4.5", 1), "1.2.3.4");
    EXPECT_EQ(changed("1a.2b.3c.4d", 1), "1.2.3.4");
}

TEST(ChangeIpAddr, LeavesATextWithAPieceThatDoesNotBeginWithADigit) {
    for (const char *const text : {"a.1.2.3", "1.2.3.x", "1.2.3", "1..2.3", "", "-1.2.3.4", " 1.2.3.4"}) {
        EXPECT_EQ(changed(text, 0), text);
    }
    EXPECT_EQ(ChangeIpAddr(nullptr), 0);
}

TEST(ChangeIpAddr, StaysInsideALongPiece) {
    // Sixteen characters and more: the piece is full, and nothing behind it is read.
    EXPECT_EQ(changed("1.2.3.0000000000000004", 1), "1.2.3.4");
    EXPECT_EQ(changed("1.2.3.00000000000000040000", 1), "1.2.3.4");
    EXPECT_EQ(changed("0000000000000001.2.3.4", 0), "0000000000000001.2.3.4");
    EXPECT_EQ(changed("1.2.3.999999999999999", 1), "1.2.3.2147483647");
}

// Callers keep a MAC last byte first, so that byte 5 is the first octet, whose low bit is that of a group.
TEST(CheckMacRationality, RefusesTheLowBitOfByteFourAndTheEmptyMac) {
    const unsigned char good[6] = {0x01, 0xff, 0xff, 0xff, 0x02, 0x00};
    EXPECT_EQ(Check_Mac_Rationality(good), 0);
    const unsigned char group[6] = {0x01, 0, 0, 0x5e, 0x00, 0x01};
    EXPECT_EQ(Check_Mac_Rationality(group), 0);
    const unsigned char odd[6] = {0x02, 0, 0, 0, 0x01, 0};
    EXPECT_EQ(Check_Mac_Rationality(odd), -1);
    const unsigned char empty[6] = {};
    EXPECT_EQ(Check_Mac_Rationality(empty), -1);
    EXPECT_EQ(Check_Mac_Rationality(nullptr), -1);
}

TEST(CheckMacRationality, LogsTheBytesLastFirstAndARefusal) {
    const LogCapture log;
    const unsigned char odd[6] = {0x1, 0x22, 0x3, 0x44, 0x5, 0xab};
    Check_Mac_Rationality(odd);
    Check_Mac_Rationality(nullptr);
    EXPECT_EQ(LogCapture::take_messages(),
              (Messages{"Autotest mac ab: 5:44: 3:22: 1", "Check_Mac_Rationality 2029 address is illegality "}));
}

// The text behind the call, and its result.
std::pair<std::string, int> reversed(const std::string &text, size_t size) {
    std::vector<char> buffer(std::max(size, text.size() + 1), '#');
    memcpy(buffer.data(), text.c_str(), text.size() + 1);
    const int result = ReverseMAC(buffer.data(), static_cast<int>(size));
    return {buffer.data(), result};
}

using Reversed = std::pair<std::string, int>;

TEST(ReverseMAC, ReversesTheGroups) { EXPECT_EQ(reversed("00:11:22:33:44:55", 18), Reversed("55:44:33:22:11:00", 17)); }

TEST(ReverseMAC, AlwaysWritesSixGroups) {
    EXPECT_EQ(reversed("aa:bb", 18), Reversed("::::bb:aa", 9));
    EXPECT_EQ(reversed("aa:", 18), Reversed(":::::aa", 7));
    EXPECT_EQ(reversed("1:2:3:4:5:6:7:8", 18), Reversed("6:5:4:3:2:1", 11));
}

TEST(ReverseMAC, CutsGroupsAndTheBuffer) {
    EXPECT_EQ(reversed("0123456789abcdefXYZ:b", 64), Reversed("::::b:0123456789abcdef", 22));
    EXPECT_EQ(reversed("aa:bb", 8), Reversed("::::bb:", 9));
}

TEST(ReverseMAC, LeavesATextThatFillsItsBuffer) {
    EXPECT_EQ(reversed("00:11:22:33:44:55", 17), Reversed("00:11:22:33:44:55", 17));
    EXPECT_EQ(reversed("00:11:22:33:44:55", 3), Reversed("00:11:22:33:44:55", 17));
}

TEST(ReverseMAC, LeavesATextWithoutClosedGroups) {
    EXPECT_EQ(reversed("aabb", 18), Reversed("aabb", 4));
    EXPECT_EQ(reversed("", 18), Reversed("", 0));
    EXPECT_EQ(reversed(":", 18), Reversed(":", 0));
    EXPECT_EQ(reversed("::::bb", 18), Reversed("::::bb", 0));
}

TEST(ReverseMAC, RefusesNothingAndNoRoom) {
    char text[] = "aa:bb";
    EXPECT_EQ(ReverseMAC(nullptr, 18), -1);
    EXPECT_EQ(ReverseMAC(text, 0), -1);
    EXPECT_EQ(ReverseMAC(text, -5), -1);
    EXPECT_STREQ(text, "aa:bb");
}

TEST(ConverseMAC, ChangesExactlySeventeenBytesWhereverTheTextEnds) {
    char text[20] = "ab:cz\0`{zzzzzzzzzzz";
    EXPECT_EQ(ConverseMAC(text), text + 17);
    EXPECT_EQ(std::string(text, 20), std::string("AB:CZ\0`{ZZZZZZZZZzz\0", 20));
    char low[20] = "AB:CZ\0@[ZZZZZZZZZZZ";
    EXPECT_EQ(ConverseLowMAC(low), low + 17);
    EXPECT_EQ(std::string(low, 20), std::string("ab:cz\0@[zzzzzzzzzZZ\0", 20));
    EXPECT_EQ(ConverseMAC(nullptr), nullptr);
    EXPECT_EQ(ConverseLowMAC(nullptr), nullptr);
}

}  // namespace

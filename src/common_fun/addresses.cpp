// Checks and conversions of address text: IPv4, IPv6, MAC.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>

#include <velkor/network.h>
#include <velkor/text.h>

#include "support/log.h"
#include "support/saturate.h"

namespace {

// ---- IPv4 ----

constexpr size_t IPV4_TEXT_SIZE = 16;

// Up to five numbers of a dotted text. Scanned as wide numbers and clamped, as an `int` of the recorder is; scanned as
// an `int` where `long` has 64 bits, 4294967297 would pass as 1.
struct DottedNumbers {
    int count;
    std::array<int, 5> values;
};

DottedNumbers scan_numbers(const char *text) {
    std::array<long long, 5> wide = {};
    const int count = text != nullptr ? sscanf(text, "%lld.%lld.%lld.%lld.%lld", wide.data(), &wide[1], &wide[2],
                                               &wide[3], &wide[4])  // NOLINT
                                      : 0;
    DottedNumbers numbers = {count, {}};
    std::transform(wide.begin(), wide.end(), numbers.values.begin(),
                   [](long long value) { return velkor::to_int(int64_t{value}); });
    return numbers;
}

bool is_byte(int number) { return number >= 0 && number <= 255; }

// ---- IPv6 ----

using Ipv6Bytes = std::array<unsigned char, sizeof(struct in6_addr)>;

bool parse_ipv6(const char *text, Ipv6Bytes &bytes) {
    return text != nullptr && inet_pton(AF_INET6, text, bytes.data()) == 1;
}

bool is_multicast(const Ipv6Bytes &bytes) { return bytes[0] == 0xff; }
bool is_link_local(const Ipv6Bytes &bytes) { return bytes[0] == 0xfe && (bytes[1] & 0xc0) == 0x80; }

// ::, ::1, and so on: all zero but the last byte.
bool is_small_number(const Ipv6Bytes &bytes, unsigned char last) {
    return std::all_of(bytes.begin(), bytes.end() - 1, [](unsigned char byte) { return byte == 0; }) &&
           bytes.back() == last;
}

bool is_loopback(const Ipv6Bytes &bytes) { return is_small_number(bytes, 1); }
bool is_unspecified(const Ipv6Bytes &bytes) { return is_small_number(bytes, 0); }

int classify_ipv6(const char *text) {
    Ipv6Bytes bytes;
    if (!parse_ipv6(text, bytes)) {
        return -1;
    }
    if (is_multicast(bytes)) {
        return -2;
    }
    if (is_link_local(bytes)) {
        return -3;
    }
    if (is_loopback(bytes)) {
        return -4;
    }
    return is_unspecified(bytes) ? -5 : 0;
}

int classify_ipv6_gateway(const char *text) {
    if (text != nullptr && *text == '\0') {
        return 255;
    }
    Ipv6Bytes bytes;
    if (!parse_ipv6(text, bytes)) {
        return -1;
    }
    if (is_multicast(bytes)) {
        return -2;
    }
    if (is_loopback(bytes)) {
        return -3;
    }
    return is_unspecified(bytes) ? -4 : 0;
}

// ---- MAC ----

constexpr size_t MAC_GROUPS = 6;
constexpr size_t MAC_GROUP_LENGTH = 16;
constexpr size_t MAC_TEXT_LENGTH = 17;

// The groups of a MAC text, as much of them as there is room for.
struct MacGroups {
    char texts[MAC_GROUPS][MAC_GROUP_LENGTH + 1] = {};
    size_t closed_length = 0;  // characters in groups that a colon ends
    bool has_colon = false;

    explicit MacGroups(const char *text) {
        size_t group = 0;
        size_t length = 0;
        for (; *text != '\0'; ++text) {
            if (*text == ':') {
                has_colon = true;
                closed_length += length;
                length = 0;
                ++group;
            } else if (group < MAC_GROUPS && length < MAC_GROUP_LENGTH) {
                texts[group][length++] = *text;
            }
        }
    }
};

// Letters from `first` on, 26 of them, move by `distance`.
char *move_letters(char *text, char first, int distance) {
    if (text == nullptr) {
        return nullptr;
    }
    for (char *at = text; at != text + MAC_TEXT_LENGTH; ++at) {
        if (*at >= first && *at <= first + 25) {
            *at = static_cast<char>(*at + distance);
        }
    }
    return text + MAC_TEXT_LENGTH;
}

}  // namespace

int IsValidIP(const char *text) {
    const DottedNumbers numbers = scan_numbers(text);
    const auto &[first, second, third, fourth, fifth] = numbers.values;
    if (numbers.count != 4) {
        return -1;
    }
    if (first >= 1 && first <= 255 && is_byte(second) && is_byte(third) && is_byte(fourth)) {
        return first >= 224 && first <= 239 ? 2 : 1;
    }
    return first == 0 && second == 0 && third == 0 && fourth == 0 ? 3 : -1;
}

int IsValidIPv6(const char *text) {
    const int result = classify_ipv6(text);
    VK_LOG("%s %d iRet = %d", "IsValidIPv6", 1156, result);
    return result;
}

int IsValidIpv6Gw(const char *text) {
    const int result = classify_ipv6_gateway(text);
    VK_LOG("%s %d ##### iRet = [%d] \n", "IsValidIpv6Gw", 1211, result);
    return result;
}

int detect_ip_type(const char *text) {
    if (text == nullptr) {
        return -2;
    }
    struct in6_addr address;
    if (inet_pton(AF_INET, text, &address) == 1) {
        return 0;
    }
    return inet_pton(AF_INET6, text, &address) == 1 ? 1 : -1;
}

uint32_t ipstring2u32(const char *text) {
    const DottedNumbers numbers = scan_numbers(text);
    const auto term = [&](size_t i) { return static_cast<uint32_t>(numbers.values[i]); };
    return (term(0) << 24) + (term(1) << 16) + (term(2) << 8) + term(3);
}

int IPAddressU32ToChar(uint32_t value, char *out) {
    if (out == nullptr) {
        return 0;
    }
    memset(out, 0, IPV4_TEXT_SIZE);
    if (value != 0) {
        snprintf(out, IPV4_TEXT_SIZE, "%u.%u.%u.%u", value & 0xff, value >> 8 & 0xff, value >> 16 & 0xff, value >> 24);
    }
    return 0;
}

int ChangeIpAddr(char *text) {
    constexpr int PIECE_SIZE = 16;
    // One byte more: the splitter writes no terminator behind the character that reaches the size.
    char pieces[4][PIECE_SIZE + 1] = {};
    char *const places[4] = {pieces[0], pieces[1], pieces[2], pieces[3]};
    SplitString(text, ".", places, PIECE_SIZE, 4);
    int numbers[4];
    for (size_t i = 0; i < 4; ++i) {
        if (pieces[i][0] < '0' || pieces[i][0] > '9') {
            return 0;
        }
        numbers[i] = velkor::to_int(int64_t{strtoll(pieces[i], nullptr, 10)});
    }
    // No number is longer than the piece that it came from.
    snprintf(text, strlen(text) + 1, "%d.%d.%d.%d", numbers[0], numbers[1], numbers[2], numbers[3]);
    return 1;
}

int Check_Mac_Rationality(const unsigned char mac[6]) {
    if (mac == nullptr) {
        return -1;
    }
    VK_LOG("Autotest mac %2x:%2x:%2x:%2x:%2x:%2x", mac[5], mac[4], mac[3], mac[2], mac[1], mac[0]);
    const bool is_odd = (mac[4] & 1) != 0;  // the second octet of a MAC that is kept last byte first
    const bool is_empty = std::all_of(mac, mac + 6, [](unsigned char byte) { return byte == 0; });
    if (is_odd || is_empty) {
        VK_LOG("%s %d address is illegality ", "Check_Mac_Rationality", 2029);
        return -1;
    }
    return 0;
}

int ReverseMAC(char *text, int size) {
    if (text == nullptr || size < 1) {
        return -1;
    }
    const size_t length = strlen(text);
    if (length >= static_cast<size_t>(size)) {
        return static_cast<int>(length);
    }
    const MacGroups groups(text);
    if (groups.closed_length == 0) {
        return groups.has_colon ? 0 : static_cast<int>(length);
    }
    return snprintf(text, static_cast<size_t>(size), "%s:%s:%s:%s:%s:%s", groups.texts[5], groups.texts[4],
                    groups.texts[3], groups.texts[2], groups.texts[1], groups.texts[0]);
}

char *ConverseMAC(char *text) { return move_letters(text, 'a', 'A' - 'a'); }

char *ConverseLowMAC(char *text) { return move_letters(text, 'A', 'a' - 'A'); }

// Any text as an address: no check reads or writes beyond it, and the checks agree with each other.
#include <arpa/inet.h>
#include <velkor/network.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "fuzzer.h"

namespace {

// A copy in a block of exactly its size.
std::unique_ptr<char[]> exact(const std::string &text, size_t size) {
    std::unique_ptr<char[]> copy(new char[size]());
    memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

void check(const char *text) {
    const int ipv4 = IsValidIP(text);
    EXPECT_TRUE(ipv4 == -1 || (ipv4 >= 1 && ipv4 <= 3));
    EXPECT_TRUE(ipv4 != 3 || ipstring2u32(text) == 0);
    struct in_addr address;
    if (inet_pton(AF_INET, text, &address) == 1) {
        EXPECT_TRUE(detect_ip_type(text) == 0);
        EXPECT_TRUE(ipstring2u32(text) == ntohl(address.s_addr));
        EXPECT_TRUE((ipv4 == -1) == (ipstring2u32(text) >> 24 == 0 && ipstring2u32(text) != 0));
    }
    const int ipv6 = IsValidIPv6(text);
    EXPECT_TRUE(ipv6 <= 0 && ipv6 >= -5);
    EXPECT_TRUE((detect_ip_type(text) == 1) == (ipv6 != -1));
    const int gateway = IsValidIpv6Gw(text);
    EXPECT_TRUE(gateway == 255 ? *text == '\0' : gateway == (ipv6 == -3 ? 0 : ipv6 < -3 ? ipv6 + 1 : ipv6));
}

void rewrite(const std::string &text) {
    const std::unique_ptr<char[]> copy = exact(text, text.size() + 1);
    if (ChangeIpAddr(copy.get()) == 0) {
        EXPECT_TRUE(text == copy.get());
    } else {
        const std::string once = copy.get();
        EXPECT_TRUE(ChangeIpAddr(copy.get()) == 1);
        EXPECT_TRUE(once == copy.get());
    }
}

void reverse(const std::string &text, int room) {
    const size_t size = text.size() + 1 + static_cast<size_t>(room);
    const std::unique_ptr<char[]> copy = exact(text, size);
    ReverseMAC(copy.get(), static_cast<int>(size));
    EXPECT_TRUE(strnlen(copy.get(), size) < size);
    if (size >= 17) {
        EXPECT_TRUE(ConverseMAC(copy.get()) == copy.get() + 17);
        EXPECT_TRUE(ConverseLowMAC(copy.get()) == copy.get() + 17);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const int room = input.number(0, 40);
    const std::string text = input.text();
    check(exact(text, text.size() + 1).get());
    rewrite(text);
    reverse(text, room);
    return 0;
}

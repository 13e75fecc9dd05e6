#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <velkor/text.h>

#include <limits>
#include <random>
#include <string>

#include "support/log_capture.h"

namespace {

std::string bytes(const char *buffer, size_t size) { return {buffer, size}; }

TEST(Strncopy, TerminatesBehindTheCopiedCharacters) {
    char buffer[6] = {'x', 'x', 'x', 'x', 'x', 'x'};
    strncopy(buffer, "abcdef", 3);
    EXPECT_EQ(bytes(buffer, 6), std::string("abc\0xx", 6));
}

TEST(Strncopy, PadsWithZerosLikeStrncpy) {
    char buffer[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
    strncopy(buffer, "a", 5);
    EXPECT_EQ(bytes(buffer, 8), std::string("a\0\0\0\0\0xx", 8));
}

TEST(Strncopy, CopiesNothingButTheTerminatorForZero) {
    char buffer[3] = {'x', 'x', 'x'};
    strncopy(buffer, "abc", 0);
    EXPECT_EQ(bytes(buffer, 3), std::string("\0xx", 3));
}

TEST(Strncopy, DoesNothingForNullOrNegative) {
    char buffer[3] = {'x', 'y', 'z'};
    strncopy(nullptr, "abc", 1);
    strncopy(buffer, nullptr, 1);
    strncopy(buffer, "abc", -1);
    strncopy(buffer, "abc", INT_MIN);
    EXPECT_EQ(bytes(buffer, 3), "xyz");
}

TEST(VkStrncpy, IsBoundedByTheDestination) {
    char buffer[5] = {'x', 'x', 'x', 'x', 'x'};
    vk_strncpy(buffer, 4, "abcdefghijkl", 10);
    EXPECT_EQ(bytes(buffer, 5), std::string("abc\0x", 5));
}

TEST(VkStrncpy, IsBoundedByTheCount) {
    char buffer[5] = {'x', 'x', 'x', 'x', 'x'};
    vk_strncpy(buffer, 5, "abcdef", 2);
    EXPECT_EQ(bytes(buffer, 5), std::string("ab\0xx", 5));
}

TEST(VkStrncpy, DoesNotReadPastAShorterText) {
    char *const text = strdup("ab");  // on the heap, where a read past the end is noticed
    char buffer[8];
    memset(buffer, 'x', sizeof buffer);
    vk_strncpy(buffer, 8, text, 6);
    free(text);
    EXPECT_STREQ(buffer, "ab");
}

TEST(VkStrncpy, LeavesARoomlessDestinationAlone) {
    char buffer[2] = {'x', 'y'};
    vk_strncpy(buffer, 0, "abc", 1);
    vk_strncpy(buffer, -1, "abc", 1);
    vk_strncpy(buffer, INT_MIN, "abc", INT_MAX);
    vk_strncpy(buffer, 2, "abc", -1);
    vk_strncpy(buffer, 2, nullptr, 1);
    vk_strncpy(nullptr, 2, "abc", 1);
    EXPECT_EQ(bytes(buffer, 2), "xy");
}

TEST(VkStrncpy, HoldsOnlyTheTerminatorInOneByte) {
    char buffer[2] = {'x', 'y'};
    vk_strncpy(buffer, 1, "abc", 5);
    EXPECT_EQ(bytes(buffer, 2), std::string("\0y", 2));
}

TEST(VkAtoll, ParsesAsStrtollDoes) {
    EXPECT_EQ(vk_atoll("0"), 0);
    EXPECT_EQ(vk_atoll(" \t\n-42xyz"), -42);
    EXPECT_EQ(vk_atoll("+7"), 7);
    EXPECT_EQ(vk_atoll("0x10"), 0);
    EXPECT_EQ(vk_atoll("010"), 10);
    EXPECT_EQ(vk_atoll(""), 0);
    EXPECT_EQ(vk_atoll("abc"), 0);
    EXPECT_EQ(vk_atoll("9223372036854775807"), INT64_MAX);
    EXPECT_EQ(vk_atoll("-9223372036854775808"), INT64_MIN);
}

TEST(VkAtoll, GivesZeroForNullAndLeavesErrno) {
    errno = EBUSY;
    EXPECT_EQ(vk_atoll(nullptr), 0);
    EXPECT_EQ(errno, EBUSY);
}

TEST(VkAtoll, ClearsErrno) {
    errno = EBUSY;
    EXPECT_EQ(vk_atoll("12"), 12);
    EXPECT_EQ(errno, 0);
}

TEST(VkAtoll, LogsOverflowAndReturnsTheClampedValue) {
    const LogCapture log;
    errno = 0;
    EXPECT_EQ(vk_atoll("9223372036854775808"), INT64_MAX);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(vk_atoll("-9223372036854775809"), INT64_MIN);
    EXPECT_EQ(errno, ERANGE);
    const std::string line = "[vk_atoll:895]-under/over flow occurs ";  // its newline flattened to a blank
    EXPECT_EQ(LogCapture::take_messages(), (std::vector<std::string>{line, line}));
}

TEST(VkAtoll, DoesNotLogTheExtremesThemselves) {
    const LogCapture log;
    vk_atoll("9223372036854775807");
    vk_atoll("-9223372036854775808");
    vk_atoll("nonsense");
    EXPECT_EQ(LogCapture::take_messages(), std::vector<std::string>{});
}

TEST(VkAtoll, AgreesWithStrtollOnRandomText) {
    std::mt19937 random(20261121);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts every time
    const std::string alphabet = "0123456789+- \tx";
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (size_t length = random() % 24; length > 0; --length) {
            text += alphabet[random() % alphabet.size()];
        }
        ASSERT_EQ(vk_atoll(text.c_str()), strtoll(text.c_str(), nullptr, 10)) << text;
    }
}

TEST(VkAtoi, KeepsTheLow32Bits) {
    EXPECT_EQ(vk_atoi("-5"), -5);
    EXPECT_EQ(vk_atoi("4294967296"), 0);
    EXPECT_EQ(vk_atoi("4294967297"), 1);
    EXPECT_EQ(vk_atoi("2147483648"), INT_MIN);
    EXPECT_EQ(vk_atoi("9223372036854775807"), -1);
    EXPECT_EQ(vk_atoi("99999999999999999999"), -1);
    EXPECT_EQ(vk_atoi(nullptr), 0);
}

TEST(VkAtou8, KnowsOnlyZeroTo255) {
    EXPECT_EQ(vk_atou8("0"), 0);
    EXPECT_EQ(vk_atou8("255"), 255);
    EXPECT_EQ(vk_atou8("256"), 0);
    EXPECT_EQ(vk_atou8("-1"), 0);
    EXPECT_EQ(vk_atou8(" 17 apples"), 17);
    EXPECT_EQ(vk_atou8("apples"), 0);
    EXPECT_EQ(vk_atou8(nullptr), 0);
}

TEST(VkAtou8, GivesZeroForNumbersThatWouldWrapOn64Bit) {
    EXPECT_EQ(vk_atou8("4294967297"), 0);
    EXPECT_EQ(vk_atou8("18446744073709551617"), 0);
}

}  // namespace

#include "support/plain_format.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>
#include <velkor/api.h>

#include <optional>
#include <random>
#include <string>

namespace {

struct Result {
    std::optional<size_t> length;
    std::string text;
};

VELKOR_FORMAT(2, 3)
Result format_into(size_t size, const char *format, ...) {
    std::string out(size, '?');
    va_list arguments;
    va_start(arguments, format);
    const std::optional<size_t> length = velkor::format_plainly(out.data(), size, format, arguments);
    va_end(arguments);
    return {length, out.substr(0, length.value_or(0))};
}

#define EXPECT_LIKE_PRINTF(size, ...)                                             \
    do {                                                                          \
        std::string expected((size), '?');                                        \
        const int full = snprintf(expected.data(), (size), __VA_ARGS__);          \
        expected.resize(std::min(static_cast<size_t>(full), size_t{(size)} - 1)); \
        const Result result = format_into((size), __VA_ARGS__);                   \
        ASSERT_TRUE(result.length.has_value());                                   \
        ASSERT_EQ(result.text, expected);                                         \
    } while (false)

TEST(PlainFormat, PrintsEachDirectiveAsTheCLibraryDoes) {
    EXPECT_LIKE_PRINTF(100, "nothing");
    EXPECT_LIKE_PRINTF(100, "all of %s", "text");
    EXPECT_LIKE_PRINTF(100, "%d %i %u", INT_MIN, INT_MAX, UINT_MAX);
    EXPECT_LIKE_PRINTF(100, "%ld %lu", LONG_MIN, ULONG_MAX);
    EXPECT_LIKE_PRINTF(100, "%x %lx %x", UINT_MAX, ULONG_MAX, 0U);
    EXPECT_LIKE_PRINTF(100, "%d%d%d", 0, -1, 7);
    EXPECT_LIKE_PRINTF(100, "%s", "");
}

TEST(PlainFormat, PrintsANullText) {
    const char *volatile none = nullptr;  // as a caller's mistake, unknown to the compiler
    const Result result = format_into(100, "<%s>", none);
    EXPECT_EQ(result.text, "<(null)>");
}

TEST(PlainFormat, IsCutWhereTheCLibraryCuts) {
    // With nothing but plain characters behind the cut.
    for (size_t size = 1; size < 30; ++size) {
        const Result result = format_into(size, "ab %d and some more", 12345);
        char expected[30];
        snprintf(expected, size, "ab %d and some more", 12345);
        if (result.length) {
            ASSERT_EQ(result.text, expected) << size;
        } else {
            ASSERT_LE(size, 4U);  // cut before the number was reached
        }
    }
}

TEST(PlainFormat, LeavesTheRestToTheCLibrary) {
    EXPECT_FALSE(format_into(100, "100%%").length);
    EXPECT_FALSE(format_into(100, "%ls", L"x").length);
    EXPECT_FALSE(format_into(100, "%5d", 1).length);
    EXPECT_FALSE(format_into(100, "%-s", "x").length);
    EXPECT_FALSE(format_into(100, "%.3s", "x").length);
    EXPECT_FALSE(format_into(100, "%c", 'x').length);
    EXPECT_FALSE(format_into(100, "%f", 1.0).length);
    EXPECT_FALSE(format_into(100, "%p", static_cast<void *>(nullptr)).length);
    EXPECT_FALSE(format_into(100, "%lld", 1LL).length);
    EXPECT_FALSE(format_into(100, "%hd", static_cast<short>(1)).length);
    EXPECT_FALSE(format_into(100, "%zu", sizeof(int)).length);
}

TEST(PlainFormat, LeavesABrokenDirectiveToTheCLibrary) {
    const std::string broken = "text %";
    va_list none = {};
    char out[20];
    EXPECT_FALSE(velkor::format_plainly(out, sizeof out, broken.c_str(), none));
}

TEST(PlainFormat, DoesNotReadATextPastTheRoom) {
    const char endless[3] = {'x', 'y', 'z'};  // not terminated: only as much is read as fits
    EXPECT_EQ(format_into(4, "%s", endless).text, "xyz");
}

TEST(PlainFormat, AgreesWithTheCLibraryOnRandomArguments) {
    std::mt19937 random(20261121);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same lines every time
    for (int i = 0; i < 20000; ++i) {
        const int number = static_cast<int>(random()) >> (random() % 32);
        const long wide = static_cast<long>(static_cast<unsigned long>(random()) * random()) >> (random() % 32);
        const std::string text(random() % 40, 'a');
        EXPECT_LIKE_PRINTF(1000, "%s: %d, %u, %x; %ld %lu %lx %i", text.c_str(), number, static_cast<unsigned>(number),
                           static_cast<unsigned>(number), wide, static_cast<unsigned long>(wide),
                           static_cast<unsigned long>(wide), -number / 2);
    }
}

}  // namespace

#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <velkor/text.h>
#include <velkor_host.h>

#include <string>
#include <thread>
#include <vector>

#include "support/exact_bytes.h"
#include "support/random_text.h"

namespace {

// "Camera at the gate", in both sets.
constexpr const char *IN_UTF8 = "\xe9\x97\xa8\xe5\x8f\xa3\xe6\x91\x84\xe5\x83\x8f\xe6\x9c\xba";
constexpr const char *IN_GB2312 = "\xc3\xc5\xbf\xda\xc9\xe3\xcf\xf1\xbb\xfa";

struct Converted {
    int result;
    std::string text;
    bool operator==(const Converted &) const = default;
};

Converted to_utf8(const std::string &in, size_t size = 100) {
    const ExactText text(in);
    ExactBytes out(size, 'x');
    const int result = GB2312ToUTF8(text.get(), out.get(), static_cast<int>(size), 1);
    return {result, out.text()};
}

Converted to_gb2312(const std::string &in, size_t size = 100) {
    const ExactText text(in);
    ExactBytes out(size, 'x');
    const int result = UTF8ToGB2312(text.get(), out.get(), static_cast<int>(size));
    return {result, out.text()};
}

TEST(HostCharacterSets, ConvertBothWays) {
    EXPECT_EQ(to_utf8(IN_GB2312), (Converted{15, IN_UTF8}));
    EXPECT_EQ(to_gb2312(IN_UTF8), (Converted{10, IN_GB2312}));
    EXPECT_EQ(to_utf8("plain"), (Converted{5, "plain"}));
    EXPECT_EQ(to_gb2312(""), (Converted{0, ""}));
}

TEST(HostCharacterSets, AnswerBadSequencesByACode) {
    const std::string good = std::string(IN_GB2312, 2);
    const Converted bad = {VELKOR_HOST_TEXT_BAD_SEQUENCE, std::string(IN_UTF8, 3)};
    EXPECT_EQ(to_utf8(good + "\xff\xff"), bad);
    EXPECT_EQ(to_utf8(good + "\xbf"), bad);       // half a character at the end
    EXPECT_EQ(to_utf8(good + "\xbf(and)"), bad);  // half a character within
    EXPECT_EQ(to_utf8(good + "\xaa\xa1"), bad);   // a place of the set that is empty
    const std::string good_utf8 = std::string(IN_UTF8, 3);
    const Converted bad_utf8 = {VELKOR_HOST_TEXT_BAD_SEQUENCE, good};
    EXPECT_EQ(to_gb2312(good_utf8 + "\xe5\x8f"), bad_utf8);
    EXPECT_EQ(to_gb2312(good_utf8 + "\xc0\x80"), bad_utf8);          // too long a way to write 0
    EXPECT_EQ(to_gb2312(good_utf8 + "\xed\xa0\x80"), bad_utf8);      // half a surrogate pair
    EXPECT_EQ(to_gb2312(good_utf8 + "\xf0\x9f\x93\xb7"), bad_utf8);  // a camera, which the set lacks
}

TEST(HostCharacterSets, WriteNoHalfCharacter) {
    for (size_t size = 1; size <= 16; ++size) {
        const size_t whole = (size - 1) / 3;
        const Converted expected = {size == 16 ? 15 : VELKOR_HOST_TEXT_NO_ROOM, std::string(IN_UTF8, whole * 3)};
        EXPECT_EQ(to_utf8(IN_GB2312, size), expected) << size;
    }
    for (size_t size = 1; size <= 11; ++size) {
        const size_t whole = (size - 1) / 2;
        const Converted expected = {size == 11 ? 10 : VELKOR_HOST_TEXT_NO_ROOM, std::string(IN_GB2312, whole * 2)};
        EXPECT_EQ(to_gb2312(IN_UTF8, size), expected) << size;
    }
}

TEST(HostCharacterSets, AnswerBadArgumentsByACode) {
    char out[4] = "xyz";
    EXPECT_EQ(GB2312ToUTF8(nullptr, out, 4, 1), VELKOR_HOST_TEXT_BAD_ARGUMENT);
    EXPECT_EQ(GB2312ToUTF8("a", nullptr, 4, 1), VELKOR_HOST_TEXT_BAD_ARGUMENT);
    EXPECT_EQ(GB2312ToUTF8("a", out, 0, 1), VELKOR_HOST_TEXT_BAD_ARGUMENT);
    EXPECT_EQ(GB2312ToUTF8("a", out, INT_MIN, 1), VELKOR_HOST_TEXT_BAD_ARGUMENT);
    EXPECT_EQ(GB2312ToUTF8("a", out, 4, 2), VELKOR_HOST_TEXT_BAD_ARGUMENT);
    EXPECT_EQ(UTF8ToGB2312(nullptr, out, 4), VELKOR_HOST_TEXT_BAD_ARGUMENT);
    EXPECT_EQ(UTF8ToGB2312("a", nullptr, 4), VELKOR_HOST_TEXT_BAD_ARGUMENT);
    EXPECT_EQ(UTF8ToGB2312("a", out, -1), VELKOR_HOST_TEXT_BAD_ARGUMENT);
    EXPECT_STREQ(out, "xyz");
}

TEST(HostCharacterSets, ServeTheLibrarysHelpers) {
    ExactText text(IN_GB2312, 40);
    EXPECT_EQ(vk_TextGB2312ToUtf8(1, text.get(), 40), 15);
    EXPECT_EQ(text.text(), IN_UTF8);
    EXPECT_EQ(vk_TextUtf8ToGB2312(1, text.get(), 40), 10);
    EXPECT_EQ(text.text(), IN_GB2312);
    ExactText bad("ab\xff", 40);
    EXPECT_EQ(vk_TextGB2312ToUtf8(1, bad.get(), 40), VELKOR_HOST_TEXT_BAD_SEQUENCE);
    EXPECT_EQ(bad.text(), "ab");
}

// Byte 2047 is the first half of a character: the helper cuts it off from the second.
TEST(HostCharacterSets, AnswerACharacterThatTheLibraryCutByACode) {
    std::string long_text = "a";
    while (long_text.size() < 2100) {
        long_text += std::string(IN_GB2312, 2);
    }
    ExactText even(long_text, 8000);
    EXPECT_EQ(vk_TextGB2312ToUtf8(1, even.get(), 8000), 1 + 1023 * 3);
    ExactText odd(long_text.substr(1), 8000);
    EXPECT_EQ(vk_TextGB2312ToUtf8(1, odd.get(), 8000), VELKOR_HOST_TEXT_BAD_SEQUENCE);
    EXPECT_EQ(odd.text().size(), 1023U * 3U);
}

TEST(HostCharacterSets, EveryCharacterComesBack) {
    size_t characters = 0;
    for (int high = 0xa1; high <= 0xf7; ++high) {
        for (int low = 0xa1; low <= 0xfe; ++low) {
            const std::string character = {static_cast<char>(high), static_cast<char>(low)};
            const Converted there = to_utf8(character);
            if (there.result > 0) {
                ++characters;
                ASSERT_EQ(to_gb2312(there.text), (Converted{2, character}));
            }
        }
    }
    EXPECT_GE(characters, 7445U);  // the whole set
}

TEST(HostCharacterSets, NeverCrashOnRandomBytes) {
    RandomText random(27);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const std::string bytes = random.text(12);
        const size_t size = random.number(20) + 1;
        for (const Converted &converted : {to_utf8(bytes, size), to_gb2312(bytes, size)}) {
            ASSERT_LT(converted.text.size(), size);
            if (converted.result >= 0) {
                ASSERT_EQ(static_cast<size_t>(converted.result), converted.text.size());
            } else {
                ASSERT_GE(converted.result, VELKOR_HOST_TEXT_NO_ROOM);
            }
        }
    }
}

TEST(HostCharacterSets, ServeSeveralThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 200; ++round) {
                ASSERT_EQ(to_utf8(IN_GB2312).text, IN_UTF8);
                ASSERT_EQ(to_gb2312(IN_UTF8).text, IN_GB2312);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

}  // namespace

// How texts reach the firmware's converters. The test brings converters of its own that note what they get: the
// recorder's are not here, and what the host's answer is in host_character_sets_test.cpp.
#include <gtest/gtest.h>
#include <string.h>
#include <velkor/firmware.h>
#include <velkor/text.h>

#include <string>

#include "support/exact_bytes.h"
#include "support/random_text.h"

namespace {

struct Call {
    std::string in;
    std::string buffer;  // as it was handed over
    int size = 0;
    int mode = 0;
    int times = 0;
};

Call to_utf8;
Call to_gb2312;
constexpr int ANSWER = 77;

// The sizes of the tests are those of their buffers.
int note(Call &call, const char *in, char *out, int size, int mode) {
    ++call.times;
    call.in = in;
    call.buffer.assign(out, size > 0 ? static_cast<size_t>(size) : 0);
    call.size = size;
    call.mode = mode;
    if (size > 4) {
        strcpy(out, "done");
    }
    return ANSWER;
}

}  // namespace

int GB2312ToUTF8(const char *in, char *out, int size, int mode) { return note(to_utf8, in, out, size, mode); }
int UTF8ToGB2312(const char *in, char *out, int size) { return note(to_gb2312, in, out, size, 1); }

namespace {

TEST(TextConversion, ReachesTheFirmwaresConverters) {
    ExactText text("abc", 6);
    EXPECT_EQ(vk_TextGB2312ToUtf8(1, text.get(), 6), ANSWER);
    EXPECT_EQ(to_utf8.in, "abc");
    EXPECT_EQ(to_utf8.size, 6);
    EXPECT_EQ(to_utf8.mode, 1);
    EXPECT_EQ(text.text(), "done");
    EXPECT_EQ(vk_TextUtf8ToGB2312(1, text.get(), 6), ANSWER);
    EXPECT_EQ(to_gb2312.in, "done");
    EXPECT_EQ(to_gb2312.size, 6);
}

TEST(TextConversion, ClearsTheTextBefore) {
    ExactBytes text(std::string("ab\0xyz", 6));
    vk_TextGB2312ToUtf8(1, text.get(), 6);
    EXPECT_EQ(to_utf8.buffer, std::string("\0\0\0xyz", 6));  // its length and the terminator, no more
}

TEST(TextConversion, LeavesTheTextInOtherModes) {
    for (const int mode : {0, 2, -1, 100}) {
        ExactText text("abcde");
        EXPECT_EQ(vk_TextGB2312ToUtf8(mode, text.get(), 6), 5);
        EXPECT_EQ(vk_TextUtf8ToGB2312(mode, text.get(), 6), 5);
        EXPECT_EQ(text.text(), "abcde");
    }
    EXPECT_EQ(to_utf8.times + to_gb2312.times, 0);
}

TEST(TextConversion, TakesTheFirst2047BytesAndClearsAll) {
    for (const size_t length : {2046U, 2047U, 2048U, 5000U}) {
        ExactText text(std::string(length, 'q'));
        vk_TextGB2312ToUtf8(1, text.get(), static_cast<int>(length + 1));
        EXPECT_EQ(to_utf8.in, std::string(std::min<size_t>(length, 2047), 'q'));
        EXPECT_EQ(to_utf8.buffer, std::string(length + 1, '\0'));
    }
}

TEST(TextConversion, AnswersMinusOneForNull) {
    EXPECT_EQ(vk_TextGB2312ToUtf8(1, nullptr, 6), -1);
    EXPECT_EQ(vk_TextUtf8ToGB2312(1, nullptr, 6), -1);
    EXPECT_EQ(vk_TextGB2312ToUtf8(0, nullptr, 6), -1);
    EXPECT_EQ(to_utf8.times + to_gb2312.times, 0);
}

TEST(TextConversion, HandsOnSizesAsTheyAre) {
    ExactText text("abc");
    EXPECT_EQ(vk_TextGB2312ToUtf8(1, text.get(), -5), ANSWER);
    EXPECT_EQ(to_utf8.size, -5);
    EXPECT_EQ(text.bytes(), std::string(4, '\0'));
}

TEST(TextConversion, HandsOnRandomTexts) {
    RandomText random(26);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const std::string bytes = random.text(i % 100 == 0 ? 3000 : 30);
        ExactText text(bytes);
        const int mode = static_cast<int>(random.number(2));
        const int size = static_cast<int>(text.size());
        const int expected = mode == 1 ? ANSWER : static_cast<int>(bytes.size());
        const bool is_to_utf8 = random.number(1) == 0;
        ASSERT_EQ((is_to_utf8 ? vk_TextGB2312ToUtf8 : vk_TextUtf8ToGB2312)(mode, text.get(), size), expected);
        if (mode == 1) {
            const Call &call = is_to_utf8 ? to_utf8 : to_gb2312;
            ASSERT_EQ(call.in, bytes.substr(0, 2047));
            ASSERT_EQ(call.buffer, std::string(text.size(), '\0'));
        } else {
            ASSERT_EQ(text.text(), bytes);
        }
    }
}

}  // namespace

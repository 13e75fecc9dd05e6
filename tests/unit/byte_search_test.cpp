#include <gtest/gtest.h>
#include <limits.h>
#include <velkor/text.h>

#include <string>
#include <vector>

#include "common_fun/find_plain.h"
#include "common_fun/find_x86.h"
#include "support/exact_bytes.h"
#include "support/random_text.h"
#include "support/text_models.h"
#include "support/x86_features.h"

namespace {

using namespace std::string_literals;

int find(const std::string &data, const std::string &pattern) {
    const ExactBytes exact(data);
    const ExactBytes sought(pattern);
    return FindPosByFlag(exact.get(), static_cast<int>(data.size()), sought.get(), static_cast<int>(pattern.size()));
}

int find_followed(const std::string &data, const std::string &pattern, int next1, int next2) {
    const ExactBytes exact(data);
    const ExactBytes sought(pattern);
    return FindPosByFlag_Fast(exact.get(), static_cast<int>(data.size()), sought.get(),
                              static_cast<int>(pattern.size()), next1, next2);
}

// Data that repeats itself, and patterns taken out of it or nearly: what makes searches slow makes them wrong too.
struct Case {
    std::string data;
    std::string pattern;
};

Case random_case(RandomText &random) {
    const std::string alphabet = random.number(1) == 0 ? "ab"s : "\0\1\xff"s;
    std::string data = random.text(alphabet, random.number(1) == 0 ? 400 : 60);
    if (random.number(3) == 0) {  // repetitive
        const std::string unit = random.text(alphabet, 9) + "a";
        for (std::string filled; data.size() > filled.size(); filled += unit) {
            data.replace(filled.size(), unit.size(), unit);
        }
    }
    std::string pattern = random.text(alphabet, 6);
    if (random.number(1) == 0 && !data.empty()) {
        const size_t from = random.number(static_cast<unsigned>(data.size() - 1));
        pattern = data.substr(from, random.number(static_cast<unsigned>(data.size() - from)));
        if (random.number(1) == 0 && !pattern.empty()) {
            pattern[random.number(static_cast<unsigned>(pattern.size() - 1))] ^= 1;
        }
    }
    return {data, pattern};
}

TEST(FindPosByFlag, FindsTheFirstOccurrence) {
    EXPECT_EQ(find("\x10\0\0\1\x67\0\0\1\x68"s, "\0\0\1"s), 1);
    EXPECT_EQ(find("abcabc", "abc"), 0);
    EXPECT_EQ(find("xxabc", "abc"), 2);
    EXPECT_EQ(find("aaab", "aab"), 1);
    EXPECT_EQ(find("abc", "abd"), -1);
    EXPECT_EQ(find("xyz", "z"), 2);
}

TEST(FindPosByFlag, NeedsTheWholePatternInside) {
    EXPECT_EQ(find("ab", "abc"), -1);
    EXPECT_EQ(FindPosByFlag("xabc", 3, "abc", 3), -1);
    EXPECT_EQ(FindPosByFlag("xabc", 4, "abc", 3), 1);
    EXPECT_EQ(find("", "a"), -1);
}

TEST(FindPosByFlag, FindsAnEmptyPatternAtTheBegin) {
    EXPECT_EQ(find("abc", ""), 0);
    EXPECT_EQ(find("", ""), 0);
}

TEST(FindPosByFlag, AnswersMinusOneForBadArguments) {
    EXPECT_EQ(FindPosByFlag(nullptr, 3, "abc", 3), -1);
    EXPECT_EQ(FindPosByFlag("abc", 3, nullptr, 3), -1);
    EXPECT_EQ(FindPosByFlag("abc", -1, "a", 1), -1);
    EXPECT_EQ(FindPosByFlag("abc", 3, "a", -1), -1);
    EXPECT_EQ(FindPosByFlag("abc", INT_MIN, "a", INT_MIN), -1);
    EXPECT_EQ(FindPosByFlag("abc", 3, "a", INT_MAX), -1);
}

TEST(FindPosByFlag, AgreesWithTheModelOnRandomBytes) {
    RandomText random(7);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const Case made = random_case(random);
        ASSERT_EQ(find(made.data, made.pattern), model::find(made.data, made.pattern)) << made.data.size();
    }
}

TEST(FindPosByFlag, FindsAPatternAtEveryPlace) {
    for (const size_t length : {1U, 2U, 4U, 7U, 31U, 33U, 100U}) {
        for (size_t at = 0; at < 300; ++at) {
            std::string data(300 + length, 'x');
            data.replace(at, length, std::string(length, 'y'));
            ASSERT_EQ(find(data, std::string(length, 'y')), static_cast<int>(at)) << length;
        }
    }
}

TEST(FindPosByFlagFast, WantsOneOfTwoNextBytes) {
    const std::string video = "\0\0\1\x41..\0\0\1\x67..\0\0\1\x68"s;
    EXPECT_EQ(find_followed(video, "\0\0\1"s, 0x67, 0x68), 6);
    EXPECT_EQ(find_followed(video, "\0\0\1"s, 0x68, 0x68), 12);
    EXPECT_EQ(find_followed(video, "\0\0\1"s, 0x65, 0x66), -1);
    EXPECT_EQ(find_followed("a\xff"s, "a", 0xff, 0), 0);
}

TEST(FindPosByFlagFast, DoesNotCountAMatchAtTheVeryEnd) {
    EXPECT_EQ(find_followed("xabc", "abc", 0, 0), -1);
    EXPECT_EQ(FindPosByFlag_Fast("xabcd", 4, "abc", 3, 'd', 'd'), -1);  // the byte is there, but not the caller's
    EXPECT_EQ(FindPosByFlag_Fast("xabcd", 5, "abc", 3, 'd', 'd'), 1);
}

TEST(FindPosByFlagFast, KnowsNoByteOutsideZeroTo255) {
    EXPECT_EQ(find_followed("a\xff", "a", -1, -1), -1);
    EXPECT_EQ(find_followed("a\xff", "a", -1, 0xff), 0);
    EXPECT_EQ(find_followed("a\xff", "a", 0xff, 256), 0);
    EXPECT_EQ(find_followed("ab", "a", 'b' + 256, INT_MIN), -1);
}

TEST(FindPosByFlagFast, LooksForTheNextByteAloneWithoutAPattern) {
    EXPECT_EQ(find_followed("abc", "", 'c', 'b'), 1);
    EXPECT_EQ(find_followed("abc", "", 'x', 'y'), -1);
    EXPECT_EQ(find_followed("", "", 'x', 'y'), -1);
}

TEST(FindPosByFlagFast, AnswersMinusOneForBadArguments) {
    EXPECT_EQ(FindPosByFlag_Fast(nullptr, 3, "abc", 3, 0, 0), -1);
    EXPECT_EQ(FindPosByFlag_Fast("abc", 3, nullptr, 3, 0, 0), -1);
    EXPECT_EQ(FindPosByFlag_Fast("abc", -1, "a", 1, 0, 0), -1);
    EXPECT_EQ(FindPosByFlag_Fast("abc", 3, "a", -1, 'a', 'a'), -1);
}

TEST(FindPosByFlagFast, AgreesWithTheModelOnRandomBytes) {
    RandomText random(8);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const Case made = random_case(random);
        const int next1 = random.number(3) == 0 ? 'c' : 'a' + static_cast<int>(random.number(1));
        const int next2 = static_cast<int>(random.number(2)) - 1;
        ASSERT_EQ(find_followed(made.data, made.pattern, next1, next2),
                  model::find_followed(made.data, made.pattern, next1, next2))
            << made.data.size();
    }
}

velkor::Sought sought_of(const std::string &pattern, RandomText &random) {
    velkor::Sought sought = {reinterpret_cast<const uint8_t *>(pattern.data()), pattern.size()};
    sought.has_next = random.number(1) == 0;
    sought.next[0] = static_cast<uint8_t>('a' + random.number(1));
    sought.next[1] = static_cast<uint8_t>(random.number(1));
    return sought;
}

using Find = ptrdiff_t(const uint8_t *, size_t, const velkor::Sought &);

ptrdiff_t find_two_way(const uint8_t *data, size_t size, const velkor::Sought &sought) {
    return size < sought.length ? -1 : velkor::TwoWay(sought).find(data, size);
}

// What the library chooses from on this processor, and the part of it that is left out in short data.
std::vector<Find *> versions() {
    std::vector<Find *> found = {velkor::find_plain, find_two_way};
#if defined(__x86_64__)
    if (velkor::cpu_has_avx2()) {
        found.push_back(velkor::find_x86);
    }
#endif
    return found;
}

TEST(FindBytes, AgreeWithTheModelInEachOfTheirVersions) {
    const std::vector<Find *> here = versions();
    RandomText random(9);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const Case made = random_case(random);
        if (made.pattern.empty()) {
            continue;
        }
        const velkor::Sought sought = sought_of(made.pattern, random);
        const ExactBytes data(made.data);
        const auto *const bytes = reinterpret_cast<const uint8_t *>(data.get());
        const int expected = sought.has_next
                                 ? model::find_followed(made.data, made.pattern, sought.next[0], sought.next[1])
                                 : model::find(made.data, made.pattern);
        for (Find *const version : here) {
            ASSERT_EQ(version(bytes, data.size(), sought), expected);
        }
    }
}

// Long enough for the wide search to give up and leave the rest to the linear one.
TEST(FindBytes, FindsBehindManyNearMatches) {
    RandomText random(10);
    for (const size_t length : {20U, 70U, 300U, 5000U}) {
        std::string pattern(length, 'a');
        for (char &byte : pattern) {
            byte = static_cast<char>('a' + random.number(1));
        }
        std::string data;
        while (data.size() < 200000) {
            std::string copy = pattern;
            copy[random.number(static_cast<unsigned>(length - 1))] ^= 3;
            data += copy;
        }
        EXPECT_EQ(find(data, pattern), model::find(data, pattern)) << length;
        EXPECT_EQ(find(data + pattern, pattern), model::find(data + pattern, pattern)) << length;
        EXPECT_EQ(find_followed(data + pattern + "x", pattern, 'x', 'y'), static_cast<int>(data.size())) << length;
    }
    const std::string zeros(300000, '\0');
    EXPECT_EQ(find_followed(zeros + "\1"s, std::string(100, '\0'), 1, 1), 299900);
}

}  // namespace

#include <gtest/gtest.h>
#include <limits.h>
#include <velkor/text.h>

#include <algorithm>
#include <string>

#include "support/exact_bytes.h"
#include "support/pool_accounts.h"
#include "support/random_text.h"
#include "support/text_models.h"

namespace {

// ---- vk_strst ----

std::string strst(const std::string &text, const std::string &old_text, const std::string &new_text) {
    const std::string expected =
        old_text.empty() || new_text.empty() ? "" : model::replace_all(text, old_text, new_text);
    const ExactText source(text);
    ExactBytes out(expected.size() + 1, '#');
    const int written = vk_strst(source.get(), old_text.c_str(), new_text.c_str(), out.get());
    EXPECT_EQ(static_cast<size_t>(written), expected.size());
    EXPECT_EQ(out.get()[expected.size()], '#') << "wrote a terminator";
    return {out.get(), static_cast<size_t>(written)};
}

TEST(VkStrst, ReplacesEveryOccurrence) {
    EXPECT_EQ(strst("a-b-c", "-", "+"), "a+b+c");
    EXPECT_EQ(strst("aaa", "aa", "b"), "ba");
    EXPECT_EQ(strst("abc", "abc", "x"), "x");
    EXPECT_EQ(strst("a b", " ", "%20"), "a%20b");
    EXPECT_EQ(strst("abc", "x", "y"), "abc");
    EXPECT_EQ(strst("aXa", "a", "aa"), "aaXaa");
}

TEST(VkStrst, CopiesNothingForAnEmptyOldOrNew) {
    EXPECT_EQ(strst("abc", "", "x"), "");
    EXPECT_EQ(strst("abc", "b", ""), "");
    EXPECT_EQ(strst("abc", "", ""), "");
    EXPECT_EQ(strst("", "a", "b"), "");
}

TEST(VkStrst, WritesNothingForNull) {
    char out[] = "untouched";
    EXPECT_EQ(vk_strst(nullptr, "a", "b", out), 0);
    EXPECT_EQ(vk_strst("a", nullptr, "b", out), 0);
    EXPECT_EQ(vk_strst("a", "a", nullptr, out), 0);
    EXPECT_EQ(vk_strst("a", "a", "b", nullptr), 0);
    EXPECT_STREQ(out, "untouched");
}

TEST(VkStrst, AgreesWithTheModelOnRandomText) {
    RandomText random(22);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const std::string text = random.text("abc", 30);
        const std::string old_text = random.text("ab", 2) + "a";
        const std::string new_text = random.text("abX", 4) + "b";
        ASSERT_EQ(strst(text, old_text, new_text), model::replace_all(text, old_text, new_text));
    }
}

// ---- StringReplace ----

std::string replaced(const std::string &text, char from, char to) {
    ExactText exact(text);
    StringReplace(exact.get(), from, to);
    return exact.bytes().substr(0, text.size());
}

TEST(StringReplace, ReplacesEveryCharacter) {
    EXPECT_EQ(replaced("a/b/c", '/', '\\'), "a\\b\\c");
    EXPECT_EQ(replaced("abc", 'x', 'y'), "abc");
    EXPECT_EQ(replaced("", 'x', 'y'), "");
    StringReplace(nullptr, 'a', 'b');
}

TEST(StringReplace, GoesOnBehindTerminatorsThatItWrote) {
    EXPECT_EQ(replaced("a,b,c", ',', '\0'), std::string("a\0b\0c", 5));
}

TEST(StringReplace, LeavesTheTextsOwnTerminator) {
    ExactText text("abc");
    StringReplace(text.get(), '\0', 'x');
    EXPECT_EQ(text.bytes(), std::string("abc\0", 4));
}

TEST(StringReplace, AgreesWithStringsOnRandomText) {
    RandomText random(23);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        std::string text = random.text("ab\xff", 20);
        const char to = "ax\0"[random.number(2)];
        const std::string result = replaced(text, 'b', to);
        std::ranges::replace(text, 'b', to);
        ASSERT_EQ(result, text);
    }
}

// ---- StringReplaceSub ----

std::string replaced_sub(const std::string &text, size_t size, const std::string &old_text,
                         const std::string &new_text) {
    ExactText buffer(text, size);
    StringReplaceSub(buffer.get(), static_cast<int>(size), old_text.c_str(), new_text.c_str());
    return buffer.text();
}

TEST(StringReplaceSub, ReplacesFromLeftToRight) {
    EXPECT_EQ(replaced_sub("one two one", 40, "one", "three"), "three two three");
    EXPECT_EQ(replaced_sub("aaaa", 40, "aa", "b"), "bb");
    EXPECT_EQ(replaced_sub("abc", 40, "b", ""), "ac");
    EXPECT_EQ(replaced_sub("abc", 40, "x", "y"), "abc");
    EXPECT_EQ(replaced_sub("", 40, "x", "y"), "");
}

TEST(StringReplaceSub, GoesOnBehindWhatItInserted) {
    EXPECT_EQ(replaced_sub("a.a", 40, "a", "aa"), "aa.aa");
    EXPECT_EQ(replaced_sub("xab", 40, "xa", "x"), "xb");
    EXPECT_EQ(replaced_sub("aabb", 40, "ab", ""), "ab");  // what falls together in front of the position stays
}

TEST(StringReplaceSub, CutsTheTextAtTheSize) {
    EXPECT_EQ(replaced_sub("a,b", 6, ",", "<->"), "a<->b");
    EXPECT_EQ(replaced_sub("a,b", 5, ",", "<->"), "a<->");
    EXPECT_EQ(replaced_sub("a,b", 4, ",", "<->"), "a<-");
    EXPECT_EQ(replaced_sub("a,,,", 8, ",", "1234"), "a123412");
}

// The last "ab" is pushed over the end by the first replacement; one pass over the text would have found it.
TEST(StringReplaceSub, DoesNotFindWhatWasPushedOverTheEnd) {
    EXPECT_EQ(replaced_sub("x.ab", 5, ".", ".."), "x..a");
    EXPECT_EQ(replaced_sub("ab12ab", 7, "ab", "abc"), "abc12a");
    EXPECT_EQ(model::replace_all("ab12ab", "ab", "abc").substr(0, 6), "abc12a");
    EXPECT_EQ(replaced_sub("a12aa", 6, "a", "xyz"), "xyz12");
    EXPECT_EQ(replaced_sub("a1b--a", 7, "a", "ccc"), "ccc1b-");
}

TEST(StringReplaceSub, FillsTheBufferForAnEmptyOld) {
    EXPECT_EQ(replaced_sub("zz", 8, "", "ab"), "abababa");
    EXPECT_EQ(replaced_sub("", 4, "", "x"), "xxx");
}

TEST(StringReplaceSub, EndsWithBothEmpty) { EXPECT_EQ(replaced_sub("abc", 8, "", ""), "abc"); }

TEST(StringReplaceSub, TakesTwoBlocksOfItsSizeAndReturnsThem) {
    const PoolAccounts accounts("src/common_fun");
    EXPECT_EQ(replaced_sub("a", 100, "b", "c"), "a");
    EXPECT_EQ(accounts.now().peak_bytes, 200U);
    EXPECT_EQ(accounts.now().blocks, 0U);
}

TEST(StringReplaceSub, LeavesTheTextAloneWithoutMemory) {
    const PoolAccounts accounts("src/common_fun", 1);  // KiB: enough for the first block alone
    EXPECT_EQ(replaced_sub("abc", 1000, "b", "x"), "abc");
    EXPECT_EQ(replaced_sub("abc", 2000, "b", "x"), "abc");
    EXPECT_EQ(accounts.now().failures, 3U);
    EXPECT_EQ(accounts.now().blocks, 0U);
}

TEST(StringReplaceSub, LeavesTheTextAloneForBadArguments) {
    ExactText text("abc");
    StringReplaceSub(nullptr, 4, "a", "b");
    StringReplaceSub(text.get(), 4, nullptr, "b");
    StringReplaceSub(text.get(), 4, "a", nullptr);
    StringReplaceSub(text.get(), 0, "a", "b");
    StringReplaceSub(text.get(), -1, "a", "b");
    StringReplaceSub(text.get(), INT_MIN, "a", "b");
    EXPECT_EQ(text.text(), "abc");
    ExactBytes endless(std::string("aaa"));
    StringReplaceSub(endless.get(), 3, "a", "b");
    EXPECT_EQ(endless.bytes(), "aaa");
}

TEST(StringReplaceSub, AgreesWithTheModelOnRandomText) {
    RandomText random(24);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const std::string text = random.text("ab.", 16);
        const size_t size = text.size() + 1 + random.number(12);
        const std::string old_text = random.text("ab", 2);
        std::string new_text = random.text("abX", 4);
        if (old_text.empty()) {
            new_text += "c";
        }
        ASSERT_EQ(replaced_sub(text, size, old_text, new_text), model::replace_bounded(text, size, old_text, new_text))
            << text << " " << size << " " << old_text << " " << new_text;
    }
}

// ---- trimming, turning, upper case ----

TEST(VkRtrim, RemovesBlanksAndLineFeedsOnly) {
    const auto trimmed = [](const std::string &text) {
        ExactText exact(text);
        const int last = vk_rtrim(exact.get());
        EXPECT_EQ(static_cast<size_t>(last + 1), exact.text().size());
        return exact.text();
    };
    EXPECT_EQ(trimmed("abc \n \n"), "abc");
    EXPECT_EQ(trimmed("abc\t \n"), "abc\t");
    EXPECT_EQ(trimmed("abc\r\n"), "abc\r");
    EXPECT_EQ(trimmed(" a b"), " a b");
    EXPECT_EQ(trimmed(" \n "), "");
    EXPECT_EQ(trimmed(""), "");
}

TEST(VkRtrim, AnswersTheIndexOfTheLastCharacter) {
    ExactText text("ab  ");
    EXPECT_EQ(vk_rtrim(text.get()), 1);
    ExactText blanks("  \n");
    EXPECT_EQ(vk_rtrim(blanks.get()), -1);
    ExactText empty("");
    EXPECT_EQ(vk_rtrim(empty.get()), -1);
    EXPECT_EQ(vk_rtrim(nullptr), -1);
}

TEST(ReverseString, TurnsTheTextRound) {
    for (const std::string text : {"", "a", "ab", "abc", "abcd"}) {
        ExactText exact(text);
        ReverseString(exact.get());
        EXPECT_EQ(exact.text(), std::string(text.rbegin(), text.rend()));
    }
    ReverseString(nullptr);
}

TEST(ConverStrLowerToUper, RaisesAsciiLettersOnly) {
    ExactText text("aZz09\xe4{`");
    EXPECT_EQ(ConverStrLowerToUper(text.get()), 0);
    EXPECT_EQ(text.text(), "AZZ09\xe4{`");
    EXPECT_EQ(ConverStrLowerToUper(nullptr), -1);
}

TEST(VkStrchr, DoesNothing) {
    ExactText text("abc");
    vk_strchr(text.get(), 'b');
    vk_strchr(nullptr, 'b');
    EXPECT_EQ(text.text(), "abc");
}

TEST(Editing, AgreesWithStringsOnRandomText) {
    RandomText random(25);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const std::string text = random.text("aZ \n\t\xff", 12);
        ExactText trimmed(text);
        const size_t last = text.find_last_not_of(" \n");
        ASSERT_EQ(vk_rtrim(trimmed.get()), last == std::string::npos ? -1 : static_cast<int>(last));
        ASSERT_EQ(trimmed.text(), last == std::string::npos ? "" : text.substr(0, last + 1));
        ExactText turned(text);
        ReverseString(turned.get());
        ASSERT_EQ(turned.text(), std::string(text.rbegin(), text.rend()));
        ExactText raised(text);
        ASSERT_EQ(ConverStrLowerToUper(raised.get()), 0);
        std::string expected = text;
        std::ranges::replace(expected, 'a', 'A');
        ASSERT_EQ(raised.text(), expected);
    }
}

}  // namespace

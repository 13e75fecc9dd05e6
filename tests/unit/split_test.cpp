#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <velkor/text.h>

#include <string>
#include <vector>

#include "support/exact_bytes.h"
#include "support/log_capture.h"
#include "support/pool_accounts.h"
#include "support/random_text.h"
#include "support/text_models.h"

namespace {

using Texts = std::vector<std::string>;

// Piece buffers as a caller hands them in, each a block of its own.
class Pieces {
public:
    Pieces(size_t count, size_t size, char filler = '\0') : buffers_(count, std::string(size, filler)) {
        for (std::string &buffer : buffers_) {
            blocks_.emplace_back(buffer);
            pointers_.push_back(blocks_.back().get());
        }
    }
    char **get() { return pointers_.data(); }
    std::string bytes(size_t i) const { return blocks_[i].bytes(); }
    // Up to the first terminator.
    std::string text(size_t i) const { return blocks_[i].text(); }
    Texts texts(size_t count) const {
        Texts found;
        for (size_t i = 0; i < count; ++i) {
            found.push_back(text(i));
        }
        return found;
    }

private:
    Texts buffers_;
    std::vector<ExactBytes> blocks_;
    std::vector<char *> pointers_;
};

// ---- SplitString ----

TEST(SplitString, CountsDelimitersAndOne) {
    Pieces pieces(4, 16);
    EXPECT_EQ(SplitString("a.b.c", ".", pieces.get(), 16, 4), 3);
    EXPECT_EQ(pieces.texts(4), (Texts{"a", "b", "c", ""}));
    EXPECT_EQ(SplitString("a.b.c", ".", pieces.get(), 16, 3), 3);
    EXPECT_EQ(SplitString("", ".", pieces.get(), 16, 1), 1);
}

TEST(SplitString, KeepsEmptyPieces) {
    Pieces pieces(5, 16);
    EXPECT_EQ(SplitString("..x.", ".", pieces.get(), 16, 5), 4);
    EXPECT_EQ(pieces.texts(5), (Texts{"", "", "x", "", ""}));
}

TEST(SplitString, LooksAtTheFirstDelimiterOnly) {
    Pieces pieces(2, 16);
    EXPECT_EQ(SplitString("a,b.c", ".,", pieces.get(), 16, 2), 2);
    EXPECT_EQ(pieces.texts(2), (Texts{"a,b", "c"}));
    Pieces whole(1, 16);
    EXPECT_EQ(SplitString("a.b", "", whole.get(), 16, 1), 1);
    EXPECT_EQ(whole.text(0), "a.b");
}

TEST(SplitString, WritesNoTerminator) {
    Pieces pieces(2, 4, 'x');
    EXPECT_EQ(SplitString("a.bc", ".", pieces.get(), 4, 2), 2);
    EXPECT_EQ(pieces.bytes(0), "axxx");
    EXPECT_EQ(pieces.bytes(1), "bcxx");
}

TEST(SplitString, AnswersMinusThreeWhenTheDelimitersReachTheMost) {
    Pieces pieces(2, 16);
    EXPECT_EQ(SplitString("a.b.c", ".", pieces.get(), 16, 2), -3);
    EXPECT_EQ(pieces.texts(2), (Texts{"a", "b"}));  // what was filled stays
    Pieces one(1, 16);
    EXPECT_EQ(SplitString("ab.", ".", one.get(), 16, 1), -3);
    EXPECT_EQ(one.text(0), "ab");
}

TEST(SplitString, AnswersMinusTwoWhenAPieceReachesItsSize) {
    Pieces pieces(2, 4);
    EXPECT_EQ(SplitString("ab.cdef.g", ".", pieces.get(), 4, 2), -2);
    EXPECT_EQ(pieces.bytes(0), std::string("ab\0\0", 4));
    EXPECT_EQ(pieces.bytes(1), "cdef");  // the character that reached the size stays too
    Pieces exactly(1, 3);
    EXPECT_EQ(SplitString("abc", ".", exactly.get(), 3, 1), -2);
    EXPECT_EQ(SplitString("ab", ".", exactly.get(), 3, 1), 1);
}

TEST(SplitString, MeetsItsLimitsInTheOrderOfTheText) {
    Pieces pieces(2, 3);
    EXPECT_EQ(SplitString("abcd.e.f", ".", pieces.get(), 3, 2), -2);
    EXPECT_EQ(SplitString("a.b.cdef", ".", pieces.get(), 3, 2), -3);
}

TEST(SplitString, AnswersMinusOneForNull) {
    Pieces pieces(2, 4);
    EXPECT_EQ(SplitString(nullptr, ".", pieces.get(), 4, 2), -1);
    EXPECT_EQ(SplitString("a", nullptr, pieces.get(), 4, 2), -1);
    EXPECT_EQ(SplitString("a", ".", nullptr, 4, 2), -1);
    pieces.get()[1] = nullptr;
    EXPECT_EQ(SplitString("a.", ".", pieces.get(), 4, 2), 2);  // an empty piece needs no buffer
    EXPECT_EQ(SplitString("a.b", ".", pieces.get(), 4, 2), -1);
    EXPECT_EQ(pieces.text(0), "a");
}

TEST(SplitString, WritesNothingWithoutRoom) {
    Pieces pieces(1, 4, 'x');
    EXPECT_EQ(SplitString("a", ".", pieces.get(), 4, 0), -3);
    EXPECT_EQ(SplitString("a.b", ".", pieces.get(), 4, INT_MIN), -3);
    EXPECT_EQ(SplitString(".", ".", pieces.get(), 4, 0), -3);
    EXPECT_EQ(SplitString("", ".", pieces.get(), 4, 0), 1);
    EXPECT_EQ(SplitString("a", ".", pieces.get(), 0, 1), -2);
    EXPECT_EQ(SplitString("a", ".", pieces.get(), INT_MIN, 1), -2);
    EXPECT_EQ(SplitString("", ".", pieces.get(), 0, 1), 1);
    EXPECT_EQ(pieces.bytes(0), "xxxx");
}

TEST(SplitString, TakesPiecesOfEveryLength) {
    for (size_t length = 0; length < 100; ++length) {
        Pieces pieces(2, length + 1, '#');
        const ExactText text(std::string(length, 'a') + ";" + std::string(length, 'b'));
        ASSERT_EQ(SplitString(text.get(), ";", pieces.get(), static_cast<int>(length + 1), 2), 2);
        ASSERT_EQ(pieces.bytes(0), std::string(length, 'a') + "#");
        ASSERT_EQ(pieces.bytes(1), std::string(length, 'b') + "#");
    }
}

TEST(SplitString, AgreesWithTheModelOnRandomText) {
    RandomText random(16);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const ExactText text(random.text(random.number(1) == 0 ? "ab," : "abcdefghijk\xff,", 60));
        const size_t room = random.number(40) + 1;
        const size_t most = random.number(8) + 1;
        Pieces pieces(most, room);
        const model::Split expected =
            model::split_string(text.text(), ',', static_cast<int>(room), static_cast<int>(most));
        ASSERT_EQ(SplitString(text.get(), ",;", pieces.get(), static_cast<int>(room), static_cast<int>(most)),
                  expected.result)
            << text.text();
        ASSERT_EQ(pieces.texts(expected.pieces.size()), expected.pieces) << text.text();
    }
}

// ---- OnCharLeft, OnCharRight, SplitStringToArrayEx ----

std::string left_of(const std::string &text, const std::string &separator) {
    Pieces out(1, text.size() + 1, 'x');
    EXPECT_EQ(OnCharLeft(text.c_str(), separator.c_str(), out.get()[0]), 0);
    return out.text(0);
}

std::string right_of(const std::string &text, const std::string &separator) {
    Pieces out(1, text.size() + 1, 'x');
    EXPECT_EQ(OnCharRight(text.c_str(), separator.c_str(), out.get()[0]), 0);
    return out.text(0);
}

TEST(OnChar, CutsAtTheFirstOccurrence) {
    EXPECT_EQ(left_of("key=value=x", "="), "key");
    EXPECT_EQ(right_of("key=value=x", "="), "value=x");
    EXPECT_EQ(left_of("a::b::c", "::"), "a");
    EXPECT_EQ(right_of("a::b::c", "::"), "b::c");
    EXPECT_EQ(left_of("=b", "="), "");
    EXPECT_EQ(right_of("a=", "="), "");
}

TEST(OnChar, GivesAnEmptyTextWithoutAnOccurrence) {
    EXPECT_EQ(left_of("abc", "="), "");
    EXPECT_EQ(right_of("abc", "="), "");
}

TEST(OnChar, FindsAnEmptySeparatorAtTheBegin) {
    EXPECT_EQ(left_of("abc", ""), "");
    EXPECT_EQ(right_of("abc", ""), "abc");
}

TEST(OnChar, GivesAnEmptyTextForNull) {
    char out[2] = "x";
    EXPECT_EQ(OnCharLeft(nullptr, "=", out), 0);
    EXPECT_STREQ(out, "");
    out[0] = 'x';
    EXPECT_EQ(OnCharRight("a=b", nullptr, out), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(OnCharLeft("a=b", "=", nullptr), 0);
    EXPECT_EQ(OnCharRight("a=b", "=", nullptr), 0);
}

TEST(OnChar, MayWriteOverItsText) {
    ExactText left("key=value");
    OnCharLeft(left.get(), "=", left.get());
    EXPECT_EQ(left.text(), "key");
    ExactText right("key=value");
    OnCharRight(right.get(), "=", right.get());
    EXPECT_EQ(right.text(), "value");
}

TEST(OnChar, AgreesWithStringsOnRandomText) {
    RandomText random(17);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const std::string text = random.text("ab,", 20);
        const std::string separator = random.text("b,", 2);
        const size_t at = text.find(separator);
        ASSERT_EQ(left_of(text, separator), at == std::string::npos ? "" : text.substr(0, at));
        ASSERT_EQ(right_of(text, separator), at == std::string::npos ? "" : text.substr(at + separator.size()));
    }
}

TEST(SplitStringToArrayEx, StoresTheLastFieldAsAnEmptyPiece) {
    Pieces pieces(4, 16, 'x');
    EXPECT_EQ(SplitStringToArrayEx("a,b", ",", pieces.get(), 4), 2);
    EXPECT_EQ(pieces.texts(2), (Texts{"a", ""}));
    EXPECT_EQ(SplitStringToArrayEx("abc", ",", pieces.get(), 4), 1);
    EXPECT_EQ(pieces.texts(1), (Texts{""}));
    EXPECT_EQ(SplitStringToArrayEx("", ",", pieces.get(), 4), 0);
}

TEST(SplitStringToArrayEx, LosesNothingOfATextThatEndsInASeparator) {
    Pieces pieces(4, 16, 'x');
    EXPECT_EQ(SplitStringToArrayEx("one::two::", "::", pieces.get(), 4), 2);
    EXPECT_EQ(pieces.texts(2), (Texts{"one", "two"}));
    EXPECT_EQ(SplitStringToArrayEx(",,", ",", pieces.get(), 4), 2);
    EXPECT_EQ(pieces.texts(2), (Texts{"", ""}));
}

TEST(SplitStringToArrayEx, FailsWhenTheCountReachesTheMost) {
    Pieces pieces(2, 16, 'x');
    EXPECT_EQ(SplitStringToArrayEx("a,b", ",", pieces.get(), 2), -1);
    EXPECT_EQ(pieces.texts(2), (Texts{"a", ""}));
    EXPECT_EQ(SplitStringToArrayEx("ab,", ",", pieces.get(), 1), -1);
    EXPECT_EQ(pieces.text(0), "ab");
    EXPECT_EQ(SplitStringToArrayEx("ab,", ",", pieces.get(), 2), 1);
}

TEST(SplitStringToArrayEx, WritesNothingWithoutRoom) {
    Pieces pieces(1, 4, 'x');
    EXPECT_EQ(SplitStringToArrayEx("a,b", ",", pieces.get(), 0), -1);
    EXPECT_EQ(SplitStringToArrayEx("a,b", ",", pieces.get(), INT_MIN), -1);
    EXPECT_EQ(SplitStringToArrayEx("", ",", pieces.get(), 0), 0);
    EXPECT_EQ(pieces.bytes(0), "xxxx");
}

TEST(SplitStringToArrayEx, EndsWithAnEmptySeparator) {
    Pieces pieces(5, 4, 'x');
    EXPECT_EQ(SplitStringToArrayEx("abc", "", pieces.get(), 5), -1);
    EXPECT_EQ(pieces.texts(5), (Texts{"", "", "", "", ""}));
}

TEST(SplitStringToArrayEx, AnswersMinusOneForNull) {
    Pieces pieces(2, 4);
    EXPECT_EQ(SplitStringToArrayEx(nullptr, ",", pieces.get(), 2), -1);
    EXPECT_EQ(SplitStringToArrayEx("a", nullptr, pieces.get(), 2), -1);
    EXPECT_EQ(SplitStringToArrayEx("a", ",", nullptr, 2), -1);
    pieces.get()[0] = nullptr;
    EXPECT_EQ(SplitStringToArrayEx("a", ",", pieces.get(), 2), -1);
}

TEST(SplitStringToArrayEx, TakesATextLongerThanAnyStack) {
    const std::string text = std::string(size_t{16} << 20, 'a') + ",";
    Pieces pieces(2, text.size());
    EXPECT_EQ(SplitStringToArrayEx(text.c_str(), ",", pieces.get(), 2), 1);
    EXPECT_EQ(pieces.text(0).size(), text.size() - 1);
}

TEST(SplitStringToArrayEx, MayStoreAPieceOverItsText) {
    for (size_t over = 0; over < 3; ++over) {
        ExactText text("one,two,three,");
        Pieces pieces(4, 16);
        pieces.get()[over] = text.get();
        EXPECT_EQ(SplitStringToArrayEx(text.get(), ",", pieces.get(), 4), 3);
        EXPECT_EQ(text.text(), (Texts{"one", "two", "three"})[over]);
    }
}

TEST(SplitStringToArrayEx, AgreesWithTheModelOnRandomText) {
    RandomText random(18);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const ExactText text(random.text("ab,", 30));
        const std::string separator = random.text("b,", 1) + ",";
        const size_t most = random.number(8) + 1;
        Pieces pieces(most, text.size(), 'x');
        const model::Split expected = model::split_to_array(text.text(), separator, static_cast<int>(most));
        ASSERT_EQ(SplitStringToArrayEx(text.get(), separator.c_str(), pieces.get(), static_cast<int>(most)),
                  expected.result)
            << text.text();
        ASSERT_EQ(pieces.texts(expected.pieces.size()), expected.pieces) << text.text();
    }
}

// ---- strtoken_r ----

TEST(Strtoken, CutsInPlace) {
    ExactText text("a,b,c");
    char *tokens[4] = {};
    EXPECT_EQ(strtoken_r(text.get(), ",", tokens, 4), 3);
    EXPECT_EQ(tokens[0], text.get());
    EXPECT_STREQ(tokens[0], "a");
    EXPECT_STREQ(tokens[1], "b");
    EXPECT_STREQ(tokens[2], "c");
    EXPECT_EQ(tokens[3], nullptr);
}

TEST(Strtoken, LeavesTheRestOfALongerSeparator) {
    ExactText text("a::b::c");
    char *tokens[4] = {};
    EXPECT_EQ(strtoken_r(text.get(), "::", tokens, 4), 3);
    EXPECT_STREQ(tokens[0], "a");
    EXPECT_STREQ(tokens[1], ":b");
    EXPECT_STREQ(tokens[2], ":c");
}

TEST(Strtoken, StopsAtTheMostAndStoresNoMoreThanThat) {
    ExactText text("a,b,c,d");
    char *tokens[3] = {};
    EXPECT_EQ(strtoken_r(text.get(), ",", tokens, 2), 2);
    EXPECT_STREQ(tokens[0], "a");
    EXPECT_STREQ(tokens[1], "b");  // the last one is cut too, though what follows has no place
    EXPECT_EQ(tokens[2], nullptr);
    ExactText exactly("a,b");
    EXPECT_EQ(strtoken_r(exactly.get(), ",", tokens, 2), 2);
    EXPECT_STREQ(tokens[1], "b");
}

TEST(Strtoken, AnswersMinusOneForBadArguments) {
    ExactText text("a,b");
    char *tokens[1] = {};
    EXPECT_EQ(strtoken_r(text.get(), ",", tokens, 0), -1);
    EXPECT_EQ(strtoken_r(text.get(), ",", tokens, INT_MIN), -1);
    EXPECT_EQ(strtoken_r(nullptr, ",", tokens, 1), -1);
    EXPECT_EQ(strtoken_r(text.get(), nullptr, tokens, 1), -1);
    EXPECT_EQ(strtoken_r(text.get(), ",", nullptr, 1), -1);
    EXPECT_EQ(text.text(), "a,b");
    EXPECT_EQ(tokens[0], nullptr);
}

// An empty separator occurs at the begin of every token, the last of which is the empty one at the text's end.
TEST(Strtoken, DoesNotWalkOutOfTheTextWithAnEmptySeparator) {
    ExactText text("abc");
    char *tokens[10] = {};
    EXPECT_EQ(strtoken_r(text.get(), "", tokens, 10), 4);
    EXPECT_EQ(tokens[3], text.get() + 3);
    ExactText longer("abc");
    EXPECT_EQ(strtoken_r(longer.get(), "", tokens, 2), 2);
    EXPECT_EQ(longer.bytes(), std::string("\0\0c\0", 4));
}

TEST(Strtoken, AgreesWithTheModelOnRandomText) {
    RandomText random(19);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        ExactText text(random.text("ab,", 30));
        const std::string separator = random.text("b,", 1) + ",";
        const size_t most = random.number(8) + 1;
        std::string expected_text = text.text();
        const std::vector<size_t> expected = model::tokens(expected_text, separator, static_cast<int>(most));
        std::vector<char *> tokens(most);
        const int count = strtoken_r(text.get(), separator.c_str(), tokens.data(), static_cast<int>(most));
        ASSERT_EQ(static_cast<size_t>(count), expected.size());
        for (size_t token = 0; token < expected.size(); ++token) {
            ASSERT_EQ(tokens[token], text.get() + expected[token]);
        }
        ASSERT_EQ(text.bytes(), expected_text + '\0');
    }
}

// ---- spilt_strcmp, split_intcmp ----

class List {
public:
    explicit List(const Texts &texts) {
        for (const std::string &text : texts) {
            texts_.emplace_back(text);
        }
        for (ExactText &text : texts_) {
            pointers_.push_back(text.get());
        }
    }
    char **get() { return pointers_.data(); }
    int count() const { return static_cast<int>(pointers_.size()); }

private:
    std::vector<ExactText> texts_;
    std::vector<char *> pointers_;
};

TEST(SpiltStrcmp, LooksForAnEqualEntry) {
    List list({"alpha", "beta", ""});
    EXPECT_EQ(spilt_strcmp(list.get(), 3, "beta"), 0);
    EXPECT_EQ(spilt_strcmp(list.get(), 3, ""), 0);
    EXPECT_EQ(spilt_strcmp(list.get(), 3, "bet"), -1);
    EXPECT_EQ(spilt_strcmp(list.get(), 1, "beta"), -1);
    EXPECT_EQ(spilt_strcmp(list.get(), 0, "alpha"), -1);
}

TEST(SpiltStrcmp, PassesOverNullEntries) {
    List list({"alpha", "beta"});
    list.get()[0] = nullptr;
    EXPECT_EQ(spilt_strcmp(list.get(), 2, "beta"), 0);
    EXPECT_EQ(spilt_strcmp(list.get(), 2, "alpha"), -1);
}

TEST(SpiltStrcmp, AnswersMinusOneForBadArguments) {
    List list({"alpha"});
    EXPECT_EQ(spilt_strcmp(nullptr, 1, "alpha"), -1);
    EXPECT_EQ(spilt_strcmp(list.get(), 1, nullptr), -1);
    EXPECT_EQ(spilt_strcmp(list.get(), -1, "alpha"), -1);
    EXPECT_EQ(spilt_strcmp(list.get(), INT_MIN, "alpha"), -1);
}

TEST(SplitIntcmp, ReadsEntriesAsNumbers) {
    List list({"7", " -3 apples", "x", "4294967297"});
    EXPECT_EQ(split_intcmp(list.get(), 4, 7), 0);
    EXPECT_EQ(split_intcmp(list.get(), 4, -3), 0);
    EXPECT_EQ(split_intcmp(list.get(), 4, 0), 0);  // what is no number counts as 0
    EXPECT_EQ(split_intcmp(list.get(), 4, 1), 0);  // cut to 32 bits, as vk_atoi() does
    EXPECT_EQ(split_intcmp(list.get(), 4, 8), -1);
    EXPECT_EQ(split_intcmp(list.get(), 1, -3), -1);
}

TEST(SplitIntcmp, PassesOverNullEntriesAndBadArguments) {
    List list({"7", "8"});
    list.get()[0] = nullptr;
    EXPECT_EQ(split_intcmp(list.get(), 2, 8), 0);
    EXPECT_EQ(split_intcmp(list.get(), 2, 0), -1);
    EXPECT_EQ(split_intcmp(nullptr, 2, 8), -1);
    EXPECT_EQ(split_intcmp(list.get(), -1, 8), -1);
}

TEST(SplitComparisons, AgreeWithStringsOnRandomLists) {
    RandomText random(30);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        Texts texts(random.number(4));
        for (std::string &text : texts) {
            text = random.text("12", 2);
        }
        List list(texts);
        const std::string wanted = random.text("12", 2);
        const int value = static_cast<int>(random.number(22));
        bool is_text_there = false;
        bool is_value_there = false;
        for (const std::string &text : texts) {
            is_text_there = is_text_there || text == wanted;
            is_value_there = is_value_there || (text.empty() ? 0 : std::stoi(text)) == value;
        }
        ASSERT_EQ(spilt_strcmp(list.get(), list.count(), wanted.c_str()), is_text_there ? 0 : -1);
        ASSERT_EQ(split_intcmp(list.get(), list.count(), value), is_value_there ? 0 : -1);
    }
}

// ---- SplitStrCmp ----

struct Seen {
    Texts pieces;
    int answer = 0;
};

int look(char **pieces, int count, void *argument) {
    auto *const seen = static_cast<Seen *>(argument);
    seen->pieces.assign(pieces, pieces + count);
    return seen->answer;
}

TEST(SplitStrCmp, HandsThePiecesToTheComparison) {
    Seen seen;
    seen.answer = 42;
    EXPECT_EQ(SplitStrCmp("alpha,beta,,x", ",", 16, look, &seen), 42);
    EXPECT_EQ(seen.pieces, (Texts{"alpha", "beta", "", "x"}));
    seen.answer = -7;
    EXPECT_EQ(SplitStrCmp("", ",", 1, look, &seen), -7);
    EXPECT_EQ(seen.pieces, (Texts{""}));
}

TEST(SplitStrCmp, TakesOneBlockOf256PiecesAndReturnsIt) {
    const PoolAccounts accounts("src/common_fun");
    Seen seen;
    EXPECT_EQ(SplitStrCmp("a,b", ",", 15, look, &seen), 0);
    const velkor_host_pool pool = accounts.now();
    EXPECT_EQ(pool.peak_bytes, 256U * 16U);
    EXPECT_EQ(pool.blocks, 0U);
    EXPECT_EQ(pool.bytes, 0U);
}

TEST(SplitStrCmp, TakesAtMost256Pieces) {
    Seen seen;
    EXPECT_EQ(SplitStrCmp(std::string(255, ',').c_str(), ",", 4, look, &seen), 0);
    EXPECT_EQ(seen.pieces.size(), 256U);
    const LogCapture log;
    EXPECT_EQ(SplitStrCmp(std::string(256, ',').c_str(), ",", 4, look, &seen), -1);
    EXPECT_EQ(LogCapture::take_messages(), Texts{"[SplitStrCmp:863]-iCount = -3"});
}

TEST(SplitStrCmp, LogsATextThatCannotBeSplitAndReturnsItsBlock) {
    const PoolAccounts accounts("src/common_fun");
    const LogCapture log;
    Seen seen;
    seen.pieces = {"untouched"};
    EXPECT_EQ(SplitStrCmp("abcd", ",", 4, look, &seen), -1);
    EXPECT_EQ(SplitStrCmp("abcd", ",", 4, nullptr, nullptr), -1);
    EXPECT_EQ(LogCapture::take_messages(), (Texts{"[SplitStrCmp:863]-iCount = -2", "[SplitStrCmp:863]-iCount = -2"}));
    EXPECT_EQ(seen.pieces, Texts{"untouched"});
    EXPECT_EQ(accounts.now().blocks, 0U);
}

TEST(SplitStrCmp, AnswersMinusOneForBadArgumentsInSilence) {
    const PoolAccounts accounts("src/common_fun");
    const LogCapture log;
    Seen seen;
    EXPECT_EQ(SplitStrCmp(nullptr, ",", 4, look, &seen), -1);
    EXPECT_EQ(SplitStrCmp("a", nullptr, 4, look, &seen), -1);
    EXPECT_EQ(SplitStrCmp("a", ",", 0, look, &seen), -1);
    EXPECT_EQ(SplitStrCmp("a", ",", INT_MIN, look, &seen), -1);
    EXPECT_EQ(SplitStrCmp("a", ",", 4, nullptr, &seen), -1);
    EXPECT_EQ(LogCapture::take_messages(), Texts{});
    EXPECT_EQ(accounts.now().blocks, 0U);
}

TEST(SplitStrCmp, AnswersMinusOneForABlockThatAnIntCannotCount) {
    const PoolAccounts accounts("src/common_fun");
    Seen seen;
    EXPECT_EQ(SplitStrCmp("a", ",", INT_MAX, look, &seen), -1);
    EXPECT_EQ(SplitStrCmp("a", ",", 0x800000, look, &seen), -1);
    EXPECT_EQ(SplitStrCmp("a", ",", 0xFFFFFF, look, &seen), -1);  // 256 * (size + 1) is 0 in 32 bits
    EXPECT_EQ(accounts.now().peak_bytes, 0U);
    EXPECT_TRUE(seen.pieces.empty());
}

TEST(SplitStrCmp, AnswersMinusOneWithoutMemory) {
    const PoolAccounts accounts("src/common_fun", 1);  // KiB
    Seen seen;
    EXPECT_EQ(SplitStrCmp("a", ",", 100, look, &seen), -1);
    EXPECT_TRUE(seen.pieces.empty());
    EXPECT_EQ(accounts.now().failures, 1U);
    EXPECT_EQ(SplitStrCmp("a", ",", 3, look, &seen), 0);  // just fits
}

TEST(SplitStrCmp, AgreesWithTheModelOnRandomText) {
    RandomText random(20);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const ExactText text(random.text("abc,", i % 50 == 0 ? 1500 : 40));
        const int room = static_cast<int>(random.number(12)) + 1;
        const model::Split expected = model::split_string(text.text(), ',', room, 256);
        Seen seen;
        seen.answer = 5;
        ASSERT_EQ(SplitStrCmp(text.get(), ",", room, look, &seen), expected.result < 0 ? -1 : 5);
        if (expected.result > 0) {
            ASSERT_EQ(seen.pieces, expected.pieces);
        }
    }
}

// ---- vk_strnchr ----

TEST(VkStrnchr, FindsRunsBetweenSeparators) {
    const ExactBytes data(std::string("aa  b c"));
    char *starts[4] = {};
    int lengths[4] = {};
    EXPECT_EQ(vk_strnchr(data.get(), 7, ' ', starts, lengths, 3), 3);
    EXPECT_EQ(starts[0], data.get());
    EXPECT_EQ(lengths[0], 2);
    EXPECT_EQ(starts[1], data.get() + 4);
    EXPECT_EQ(lengths[1], 1);
    EXPECT_EQ(starts[2], data.get() + 6);
    EXPECT_EQ(lengths[2], 1);  // open at the end: up to the size
    EXPECT_EQ(starts[3], nullptr);
}

TEST(VkStrnchr, StoresMaxPlusOneFieldsAndCountsTheRest) {
    char *starts[4] = {};
    int lengths[4] = {-1, -1, -1, -1};
    EXPECT_EQ(vk_strnchr("a b c d e", 9, ' ', starts, lengths, 2), 5);
    EXPECT_STREQ(starts[2], "c d e");
    EXPECT_EQ(lengths[2], 1);
    EXPECT_EQ(starts[3], nullptr);
    EXPECT_EQ(lengths[3], -1);
    EXPECT_EQ(vk_strnchr("a b c d e", 9, ' ', starts, lengths, 0), 5);
    EXPECT_EQ(vk_strnchr("a b", 3, ' ', starts + 3, lengths + 3, -1), 2);
    EXPECT_EQ(starts[3], nullptr);
}

TEST(VkStrnchr, ReadsZeroBytesLikeAnyOther) {
    const ExactBytes data(std::string("a\0b,c", 5));
    char *starts[2] = {};
    int lengths[2] = {};
    EXPECT_EQ(vk_strnchr(data.get(), 5, ',', starts, lengths, 1), 2);
    EXPECT_EQ(lengths[0], 3);
    EXPECT_EQ(vk_strnchr(data.get(), 5, '\0', starts, lengths, 1), 2);
    EXPECT_EQ(lengths[1], 3);
}

TEST(VkStrnchr, AnswersMinusOneForNoBytes) {
    char *starts[1] = {};
    int lengths[1] = {};
    EXPECT_EQ(vk_strnchr(nullptr, 3, ' ', starts, lengths, 0), -1);
    EXPECT_EQ(vk_strnchr("abc", 0, ' ', starts, lengths, 0), -1);
    EXPECT_EQ(vk_strnchr("abc", -1, ' ', starts, lengths, 0), -1);
    EXPECT_EQ(vk_strnchr("abc", INT_MIN, ' ', starts, lengths, 0), -1);
    EXPECT_EQ(vk_strnchr("   ", 3, ' ', starts, lengths, 0), 0);
}

TEST(VkStrnchr, OnlyCountsWithoutArrays) {
    char *starts[1] = {};
    int lengths[1] = {};
    EXPECT_EQ(vk_strnchr("a b", 3, ' ', nullptr, nullptr, 5), 2);
    EXPECT_EQ(vk_strnchr("ab", 2, ' ', starts, nullptr, 0), 1);
    EXPECT_EQ(vk_strnchr("ab", 2, ' ', nullptr, lengths, 0), 1);
    EXPECT_STREQ(starts[0], "ab");
    EXPECT_EQ(lengths[0], 2);
}

TEST(VkStrnchr, AgreesWithTheModelOnRandomBytes) {
    RandomText random(21);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const ExactBytes data(random.text(std::string("a\0 \xff", 4), 40) + " ");
        const size_t max = random.number(6);
        std::vector<char *> starts(max + 1);
        std::vector<int> lengths(max + 1);
        const std::vector<model::Field> expected = model::fields(data.bytes(), ' ');
        ASSERT_EQ(vk_strnchr(data.get(), static_cast<int>(data.size()), ' ', starts.data(), lengths.data(),
                             static_cast<int>(max)),
                  static_cast<int>(expected.size()));
        for (size_t field = 0; field < expected.size() && field <= max; ++field) {
            ASSERT_EQ(starts[field], data.get() + expected[field].begin);
            ASSERT_EQ(static_cast<size_t>(lengths[field]), expected[field].length);
        }
    }
}

}  // namespace

#include <gtest/gtest.h>
#include <string.h>
#include <velkor/text.h>

#include <string>

#include "support/exact_bytes.h"
#include "support/random_text.h"
#include "support/text_models.h"

namespace {

struct Set {
    uint64_t words[VELKOR_TRIGGER_WORDS] = {};

    Set() = default;
    explicit Set(const std::string &text) { db_Str2Trigger(words, text.c_str()); }
    bool operator==(const Set &) const = default;

    std::string text() const {
        char out[VELKOR_TRIGGER_TEXT_SIZE] = "";
        EXPECT_EQ(db_Trigger2Str(words, out), 0);
        return out;
    }
    model::Bits bits() const {
        model::Bits bits(VELKOR_TRIGGER_BITS);
        for (size_t i = 0; i < bits.size(); ++i) {
            bits[i] = (words[i / 64] >> (i % 64) & 1) != 0;
        }
        return bits;
    }
};

TEST(TriggerBits, LieWhereTheyAreSaidTo) {
    for (unsigned bit = 0; bit < VELKOR_TRIGGER_BITS; ++bit) {
        Set set;
        EXPECT_EQ(db_SetTriggerBit(set.words, bit), 0);
        for (unsigned word = 0; word < VELKOR_TRIGGER_WORDS; ++word) {
            EXPECT_EQ(set.words[word], word == bit / 64 ? uint64_t{1} << (bit % 64) : 0U);
        }
        for (unsigned other = 0; other < VELKOR_TRIGGER_BITS; ++other) {
            ASSERT_EQ(db_GetTriggerBit(set.words, other), other == bit ? 1 : 0);
        }
        EXPECT_EQ(db_ClrTriggerBit(set.words, bit), 0);
        EXPECT_EQ(set, Set());
    }
}

TEST(TriggerBits, LeaveTheOthersAlone) {
    Set set(std::string(64, 'F'));
    db_ClrTriggerBit(set.words, 70);
    EXPECT_EQ(set.words[1], ~(uint64_t{1} << 6));
    db_SetTriggerBit(set.words, 70);
    db_SetTriggerBit(set.words, 70);
    EXPECT_EQ(set, Set(std::string(64, 'F')));
}

TEST(TriggerBits, IgnoreNumbersFrom256Up) {
    for (const uint64_t number : {uint64_t{256}, uint64_t{257}, uint64_t{320}, uint64_t{1} << 32, UINT64_MAX}) {
        Set set;
        EXPECT_EQ(db_SetTriggerBit(set.words, number), 0);
        EXPECT_EQ(set, Set());
        Set full(std::string(64, 'F'));
        EXPECT_EQ(db_ClrTriggerBit(full.words, number), 0);
        EXPECT_EQ(full, Set(std::string(64, 'F')));
        EXPECT_EQ(db_GetTriggerBit(full.words, number), 0);
    }
}

TEST(TriggerSets, AnswerZeroForNull) {
    Set set;
    char out[VELKOR_TRIGGER_TEXT_SIZE] = "untouched";
    EXPECT_EQ(db_SetTriggerBit(nullptr, 1), 0);
    EXPECT_EQ(db_ClrTriggerBit(nullptr, 1), 0);
    EXPECT_EQ(db_GetTriggerBit(nullptr, 1), 0);
    EXPECT_EQ(db_Str2Trigger(nullptr, "1"), 0);
    EXPECT_EQ(db_Str2Trigger(set.words, nullptr), 0);
    EXPECT_EQ(set, Set());
    EXPECT_EQ(db_Trigger2Str(nullptr, out), 0);
    EXPECT_EQ(db_Trigger2Str(set.words, nullptr), 0);
    EXPECT_STREQ(out, "untouched");
}

TEST(TriggerText, ReadsWithTheLastDigitFirst) {
    EXPECT_EQ(Set("1F").words[0], 0x1FU);
    EXPECT_EQ(Set("abcDEF").words[0], 0xABCDEFU);
    EXPECT_EQ(Set("10000000000000000").words[1], 1U);
    EXPECT_EQ(Set("8" + std::string(63, '0')).words[3], uint64_t{1} << 63);
    EXPECT_EQ(Set(""), Set());
}

TEST(TriggerText, AddsToTheSet) {
    Set set("F0");
    EXPECT_EQ(db_Str2Trigger(set.words, "0F"), 0);
    EXPECT_EQ(set.words[0], 0xFFU);
    EXPECT_EQ(db_Str2Trigger(set.words, "000"), 0);
    EXPECT_EQ(set.words[0], 0xFFU);
}

TEST(TriggerText, CountsWhatIsNoDigitAsZero) {
    EXPECT_EQ(Set("1G1").words[0], 0x101U);
    EXPECT_EQ(Set("-1").words[0], 1U);
    EXPECT_EQ(Set("+ x1").words[0], 1U);
    EXPECT_EQ(Set("\xff\x80").words[0], 0U);
}

TEST(TriggerText, ReadsTheFirst64CharactersOfALongerText) {
    const Set set("1" + std::string(63, '0') + "FFFF");
    EXPECT_EQ(set.words[3], uint64_t{1} << 60);
    EXPECT_EQ(set.words[0], 0U);
    const ExactBytes unterminated(std::string(64, '1'));  // the 65th character is not looked at
    Set other;
    db_Str2Trigger(other.words, unterminated.get());
    EXPECT_EQ(other, Set(std::string(64, '1')));
}

TEST(TriggerText, WritesNoLeadingZeros) {
    Set set;
    db_SetTriggerBit(set.words, 0);
    EXPECT_EQ(set.text(), "1");
    db_SetTriggerBit(set.words, 255);
    EXPECT_EQ(set.text(), "8" + std::string(62, '0') + "1");
    Set high;
    db_SetTriggerBit(high.words, 255);
    EXPECT_EQ(high.text(), "8" + std::string(63, '0'));
    EXPECT_EQ(Set("fedcba9876543210").text(), "FEDCBA9876543210");
    EXPECT_EQ(Set("0abcdef0123456789abcdef").text(), "ABCDEF0123456789ABCDEF");
}

TEST(TriggerText, LeavesTheBufferOfAnEmptySetUntouched) {
    const Set set;
    ExactBytes out(VELKOR_TRIGGER_TEXT_SIZE, 'x');
    EXPECT_EQ(db_Trigger2Str(set.words, out.get()), 0);
    EXPECT_EQ(out.bytes(), std::string(VELKOR_TRIGGER_TEXT_SIZE, 'x'));
}

TEST(TriggerText, WritesDigitsAndATerminatorAndNoMore) {
    const Set set("12");
    ExactBytes out(VELKOR_TRIGGER_TEXT_SIZE, 'x');
    db_Trigger2Str(set.words, out.get());
    EXPECT_EQ(out.bytes(), std::string("12\0", 3) + std::string(VELKOR_TRIGGER_TEXT_SIZE - 3, 'x'));
    const Set full(std::string(64, 'F'));
    db_Trigger2Str(full.words, out.get());
    EXPECT_EQ(out.bytes(), std::string(64, 'F') + std::string(1, '\0'));
}

TEST(TriggerText, AgreesWithTheModelOnRandomSets) {
    RandomText random(11);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        Set set;
        for (uint64_t &word : set.words) {
            word = random.number(2) == 0 ? 0 : random.word() >> random.number(63);
        }
        const std::string text = set.text();
        ASSERT_EQ(text, model::trigger_text(set.bits()));
        ASSERT_EQ(Set(text), set);
    }
}

TEST(TriggerText, AgreesWithTheModelOnRandomTexts) {
    RandomText random(12);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        Set set(random.text("0123456789abcdefABCDEF", 5));
        model::Bits bits = set.bits();
        const ExactText text(random.text("0123456789abcdefABCDEFgG -+x", 70));
        db_Str2Trigger(set.words, text.get());
        model::add_trigger_text(bits, text.text());
        ASSERT_EQ(set.bits(), bits) << text.text();
    }
}

}  // namespace

#include <gtest/gtest.h>
#include <limits.h>
#include <velkor/text.h>

#include <string>

#include "support/exact_bytes.h"
#include "support/random_text.h"

namespace {

std::string decimal(unsigned value) {
    ExactBytes out(11, 'x');
    itoa(value, out.get());
    return out.get();
}

TEST(Itoa, WritesPlainDecimals) {
    EXPECT_EQ(decimal(0), "0");
    EXPECT_EQ(decimal(9), "9");
    EXPECT_EQ(decimal(10), "10");
    EXPECT_EQ(decimal(1234567890), "1234567890");
}

TEST(Itoa, KnowsNoSign) {
    EXPECT_EQ(decimal(UINT_MAX), "4294967295");
    EXPECT_EQ(decimal(static_cast<unsigned>(INT_MIN)), "2147483648");
}

TEST(Itoa, WritesNothingBehindTheTerminator) {
    ExactBytes out(4, 'x');
    itoa(42, out.get());
    EXPECT_EQ(out.bytes(), std::string("42\0x", 4));
    itoa(7, nullptr);
}

TEST(Itoa, AgreesWithTheLibraryOnRandomNumbers) {
    RandomText random(14);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const auto value = static_cast<unsigned>(random.word() >> (32 + random.number(31)));
        ASSERT_EQ(decimal(value), std::to_string(value));
    }
}

TEST(Pow1, Multiplies) {
    EXPECT_EQ(pow1(2, 10), 1024);
    EXPECT_EQ(pow1(10, 9), 1000000000);
    EXPECT_EQ(pow1(7, 1), 7);
    EXPECT_EQ(pow1(0, 5), 0);
    EXPECT_EQ(pow1(1, INT_MAX), 1);
}

TEST(Pow1, GivesOneForExponentZero) {
    EXPECT_EQ(pow1(5, 0), 1);
    EXPECT_EQ(pow1(0, 0), 1);
}

TEST(Pow1, GivesZeroForNegatives) {
    EXPECT_EQ(pow1(-2, 2), 0);
    EXPECT_EQ(pow1(2, -2), 0);
    EXPECT_EQ(pow1(-1, 0), 0);
    EXPECT_EQ(pow1(INT_MIN, INT_MIN), 0);
}

TEST(Pow1, WrapsIn32Bits) {
    EXPECT_EQ(pow1(2, 31), INT_MIN);
    EXPECT_EQ(pow1(2, 32), 0);
    EXPECT_EQ(pow1(10, 10), 1410065408);
    EXPECT_EQ(pow1(INT_MAX, 2), 1);
    EXPECT_EQ(pow1(3, INT_MAX), static_cast<int>(2863311531U));  // at once, not after two thousand million steps
}

TEST(Pow1, AgreesWithRepeatedMultiplication) {
    RandomText random(15);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const auto base = static_cast<int>(random.number(INT_MAX) >> random.number(30));
        const auto exponent = static_cast<int>(random.number(60));
        uint32_t expected = 1;
        for (int step = 0; step < exponent; ++step) {
            expected *= static_cast<uint32_t>(base);
        }
        ASSERT_EQ(pow1(base, exponent), static_cast<int>(expected)) << base << "^" << exponent;
    }
}

}  // namespace

#include <gtest/gtest.h>
#include <velkor/network.h>

#include <array>
#include <vector>

namespace {

constexpr uint32_t UNTOUCHED = 7;

TEST(Decimal2Binary, WritesUpToTheHighestBit) {
    std::array<uint32_t, 64> bits;
    bits.fill(UNTOUCHED);
    EXPECT_EQ(decimal2binary(6, 0, bits.data()), 3);
    EXPECT_EQ(std::vector<uint32_t>(bits.begin(), bits.begin() + 4), (std::vector<uint32_t>{0, 1, 1, UNTOUCHED}));
}

TEST(Decimal2Binary, TakesTheUpperWord) {
    std::array<uint32_t, 65> bits;
    bits.fill(UNTOUCHED);
    EXPECT_EQ(decimal2binary(0, 1, bits.data()), 33);
    EXPECT_EQ(bits[31], 0U);
    EXPECT_EQ(bits[32], 1U);
    EXPECT_EQ(decimal2binary(-1, 0xffffffff, bits.data()), 64);
    EXPECT_EQ(bits[64], UNTOUCHED);
    EXPECT_EQ(decimal2binary(-1, 0, bits.data()), 32);
}

TEST(Decimal2Binary, WritesNothingForZero) {
    uint32_t bit = UNTOUCHED;
    EXPECT_EQ(decimal2binary(0, 0, &bit), 0);
    EXPECT_EQ(bit, UNTOUCHED);
    EXPECT_EQ(decimal2binary(1, 0, nullptr), -2);
}

TEST(Binary2Decimal, CountsPositionThirtyOneAsNegative) {
    std::array<uint32_t, 40> bits = {};
    bits[0] = 1;
    bits[30] = 1;
    EXPECT_EQ(binary2decimal(31, bits.data()), 0x40000001);
    bits[31] = 1;
    EXPECT_EQ(binary2decimal(32, bits.data()), int64_t{0x40000001} - 0x80000000LL);
}

TEST(Binary2Decimal, CountsNothingFromPositionThirtyTwoOn) {
    std::array<uint32_t, 40> bits;
    bits.fill(1);
    EXPECT_EQ(binary2decimal(40, bits.data()), -1);
    EXPECT_EQ(binary2decimal(0, bits.data()), 0);
    EXPECT_EQ(binary2decimal(-3, bits.data()), 0);
    EXPECT_EQ(binary2decimal(3, nullptr), -1);
}

TEST(Binary2Decimal, ShiftsWholeWordsIn32Bits) {
    const uint32_t words[2] = {3, 0x80000001};
    EXPECT_EQ(binary2decimal(2, words), 5);
}

TEST(Decimal2BinaryEx, WritesEachWordUpToItsHighestBit) {
    const uint32_t words[16] = {2, 0, 1};
    std::array<uint32_t, 96> bits;
    bits.fill(UNTOUCHED);
    EXPECT_EQ(decimal2binaryEx(words, bits.data(), 65), 3);
    EXPECT_EQ(bits[0], 0U);
    EXPECT_EQ(bits[1], 1U);
    EXPECT_EQ(bits[2], UNTOUCHED);
    EXPECT_EQ(bits[32], UNTOUCHED);
    EXPECT_EQ(bits[64], 1U);
    EXPECT_EQ(bits[65], UNTOUCHED);
}

TEST(Decimal2BinaryEx, RoundsTheWordsUpAndTakesSixteen) {
    uint32_t words[16] = {};
    words[15] = 0x80000000;
    std::array<uint32_t, 512> bits = {};
    EXPECT_EQ(decimal2binaryEx(words, bits.data(), 512), 16);
    EXPECT_EQ(bits[511], 1U);
    EXPECT_EQ(decimal2binaryEx(words, bits.data(), 513), -3);
    EXPECT_EQ(decimal2binaryEx(words, nullptr, 513), -2);
    EXPECT_EQ(decimal2binaryEx(nullptr, bits.data(), 1), -2);
    EXPECT_EQ(decimal2binaryEx(words, bits.data(), 32), 1);
    EXPECT_EQ(decimal2binaryEx(words, bits.data(), 33), 2);
    EXPECT_EQ(decimal2binaryEx(words, bits.data(), 0), 0);
    EXPECT_EQ(decimal2binaryEx(words, bits.data(), -40), 0);
    EXPECT_EQ(decimal2binaryEx(words, bits.data(), INT32_MAX), -3);
}

TEST(Decimal2BinaryEx, WritesTheBitsWhereTheWordsWereToo) {
    std::array<uint32_t, 64> place = {0x5, 0x80000003};
    EXPECT_EQ(decimal2binaryEx(place.data(), place.data(), 64), 2);
    EXPECT_EQ(std::vector<uint32_t>(place.begin(), place.begin() + 3), (std::vector<uint32_t>{1, 0, 1}));
    EXPECT_EQ(std::vector<uint32_t>(place.begin() + 32, place.begin() + 35), (std::vector<uint32_t>{1, 1, 0}));
    EXPECT_EQ(place[63], 1U);
}

TEST(Netbinary2DecimalEx, IsTheInverseOfDecimal2BinaryEx) {
    const uint32_t words[16] = {0xdeadbeef, 0, 1, 0x80000000, 5, 6};
    std::array<uint32_t, 192> bits = {};
    ASSERT_EQ(decimal2binaryEx(words, bits.data(), 192), 6);
    uint32_t back[6] = {};
    EXPECT_EQ(Netbinary2decimalEx(192, bits.data(), back), 0);
    for (size_t w = 0; w < 6; ++w) {
        EXPECT_EQ(back[w], words[w]);
    }
}

TEST(Netbinary2DecimalEx, AddsTheLowestBitsToTheWords) {
    std::array<uint32_t, 32> bits = {3, 2, 5};
    uint32_t word = 100;
    EXPECT_EQ(Netbinary2decimalEx(1, bits.data(), &word), 0);
    EXPECT_EQ(word, 105U);
    EXPECT_EQ(Netbinary2decimalEx(0, bits.data(), &word), 0);
    EXPECT_EQ(word, 105U);
    EXPECT_EQ(Netbinary2decimalEx(1, nullptr, &word), -1);
    EXPECT_EQ(Netbinary2decimalEx(1, bits.data(), nullptr), -1);
}

TEST(Netbinary2DecimalEx, HasNoUpperLimit) {
    const std::vector<uint32_t> bits(640, 1);
    std::array<uint32_t, 20> words = {};
    EXPECT_EQ(Netbinary2decimalEx(640, bits.data(), words.data()), 0);
    EXPECT_EQ(words[19], 0xffffffffU);
}

TEST(Binary2DecimalEx, TransposesTheFirst32Elements) {
    std::array<uint32_t, 32> bits = {};
    bits[0] = 0b00001;
    bits[1] = 0b10010;
    bits[31] = 0b00010;
    uint32_t words[5] = {10, 0, 0, 0, 0};
    EXPECT_EQ(binary2decimalEx(160, bits.data(), words), 0);
    EXPECT_EQ(std::vector<uint32_t>(words, words + 5), (std::vector<uint32_t>{11, 0x80000002, 0, 0, 2}));
}

TEST(Binary2DecimalEx, TakesFiveWordsAtMost) {
    const std::array<uint32_t, 32> bits = {};
    uint32_t words[5] = {};
    EXPECT_EQ(binary2decimalEx(161, bits.data(), words), -1);
    EXPECT_EQ(binary2decimalEx(160, nullptr, words), -1);
    EXPECT_EQ(binary2decimalEx(160, bits.data(), nullptr), -1);
    EXPECT_EQ(binary2decimalEx(0, bits.data(), words), 0);
}

}  // namespace

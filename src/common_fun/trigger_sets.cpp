// Trigger sets: 256 numbered bits and their hexadecimal text.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <array>
#include <bit>

#include <velkor/text.h>

namespace {

constexpr size_t DIGITS = VELKOR_TRIGGER_BITS / 4;
constexpr size_t DIGITS_OF_WORD = DIGITS / VELKOR_TRIGGER_WORDS;

constexpr bool is_bit(uint64_t bit) { return bit < VELKOR_TRIGGER_BITS; }
constexpr uint64_t mask_of(uint64_t bit) { return uint64_t{1} << (bit % 64); }

// What each character counts: nothing but a hexadecimal digit counts anything.
constexpr std::array<uint8_t, 256> DIGIT_VALUES = [] {
    std::array<uint8_t, 256> values = {};
    for (uint8_t i = 0; i < 10; ++i) {
        values[size_t{'0'} + i] = i;
    }
    for (uint8_t i = 0; i < 6; ++i) {
        values[size_t{'a'} + i] = values[size_t{'A'} + i] = static_cast<uint8_t>(10 + i);
    }
    return values;
}();

uint64_t value_of(const char *digits, size_t count) {
    uint64_t value = 0;
    for (size_t i = 0; i < count; ++i) {
        value = value << 4 | DIGIT_VALUES[static_cast<unsigned char>(digits[i])];
    }
    return value;
}

// Spreads the eight digits of `half` over eight bytes, the first digit into the highest byte.
constexpr uint64_t spread(uint32_t half) {
    uint64_t digits = half;
    digits = (digits | digits << 16) & 0x0000FFFF0000FFFF;
    digits = (digits | digits << 8) & 0x00FF00FF00FF00FF;
    return (digits | digits << 4) & 0x0F0F0F0F0F0F0F0F;
}

// Eight digits at a time: "A" stands seven places behind the character that follows "9".
void write_half(char *out, uint32_t half) {
    constexpr uint64_t EACH = 0x0101010101010101;
    const uint64_t digits = spread(half);
    const uint64_t is_letter = (digits + 6 * EACH) >> 4 & EACH;
    uint64_t characters = digits + '0' * EACH + is_letter * ('A' - '9' - 1);
    if constexpr (std::endian::native == std::endian::little) {
        characters = __builtin_bswap64(characters);
    }
    memcpy(out, &characters, sizeof characters);
}

void write_word(char *out, uint64_t word) {
    write_half(out, static_cast<uint32_t>(word >> 32));
    write_half(out + DIGITS_OF_WORD / 2, static_cast<uint32_t>(word));
}

}  // namespace

int db_SetTriggerBit(uint64_t set[VELKOR_TRIGGER_WORDS], uint64_t bit) {
    if (set != nullptr && is_bit(bit)) {
        set[bit / 64] |= mask_of(bit);
    }
    return 0;
}

int db_ClrTriggerBit(uint64_t set[VELKOR_TRIGGER_WORDS], uint64_t bit) {
    if (set != nullptr && is_bit(bit)) {
        set[bit / 64] &= ~mask_of(bit);
    }
    return 0;
}

int db_GetTriggerBit(const uint64_t set[VELKOR_TRIGGER_WORDS], uint64_t bit) {
    return set != nullptr && is_bit(bit) ? static_cast<int>(set[bit / 64] >> (bit % 64) & 1) : 0;
}

int db_Str2Trigger(uint64_t set[VELKOR_TRIGGER_WORDS], const char *text) {
    if (set == nullptr || text == nullptr) {
        return 0;
    }
    size_t left = strnlen(text, DIGITS);
    for (size_t word = 0; left > 0; ++word) {
        const size_t count = left < DIGITS_OF_WORD ? left : DIGITS_OF_WORD;
        left -= count;
        set[word] |= value_of(text + left, count);
    }
    return 0;
}

int db_Trigger2Str(const uint64_t set[VELKOR_TRIGGER_WORDS], char *out) {
    if (set == nullptr || out == nullptr) {
        return 0;
    }
    size_t words = VELKOR_TRIGGER_WORDS;
    while (words > 0 && set[words - 1] == 0) {
        --words;
    }
    if (words == 0) {
        return 0;
    }
    char digits[DIGITS + 1];
    for (size_t i = 0; i < words; ++i) {
        write_word(digits + i * DIGITS_OF_WORD, set[words - 1 - i]);
    }
    digits[words * DIGITS_OF_WORD] = '\0';
    const size_t zeros = static_cast<size_t>(std::countl_zero(set[words - 1])) / 4;
    memcpy(out, digits + zeros, words * DIGITS_OF_WORD + 1 - zeros);
    return 0;
}

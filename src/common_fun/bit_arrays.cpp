// Numbers as arrays of one word a bit.
#include <stddef.h>
#include <stdint.h>

#include <algorithm>

#include <velkor/network.h>

namespace {

constexpr int WORD_BITS = 32;
constexpr int MOST_WORDS = 16;

int words_of(int bits) { return bits > 0 ? (bits - 1) / WORD_BITS + 1 : 0; }

// Stores the bits up to the highest that is set; answers how many that are.
int store_bits(uint64_t value, uint32_t *bits) {
    int count = 0;
    for (; value != 0; value >>= 1) {
        bits[count++] = static_cast<uint32_t>(value & 1);
    }
    return count;
}

}  // namespace

int decimal2binary(int32_t low, uint32_t high, uint32_t *bits) {
    if (bits == nullptr) {
        return -2;
    }
    return store_bits(uint64_t{high} << WORD_BITS | static_cast<uint32_t>(low), bits);
}

int64_t binary2decimal(int count, const uint32_t *bits) {
    if (bits == nullptr) {
        return -1;
    }
    int64_t sum = 0;
    for (int i = 0; i < count && i < WORD_BITS; ++i) {
        sum += static_cast<int32_t>(bits[i] << i);
    }
    return sum;
}

int decimal2binaryEx(const uint32_t words[16], uint32_t *bits, int count) {
    if (bits == nullptr || words == nullptr) {
        return -2;
    }
    const int number = words_of(count);
    if (number > MOST_WORDS) {
        return -3;
    }
    // A copy, so that the bits may take the place of the words.
    uint32_t copy[MOST_WORDS];
    std::copy_n(words, number, copy);
    for (int w = 0; w < number; ++w) {
        store_bits(copy[w], bits + ptrdiff_t{w} * WORD_BITS);
    }
    return number;
}

int binary2decimalEx(int count, const uint32_t *bits, uint32_t *words) {
    const int number = words_of(count);
    if (number > 5 || bits == nullptr || words == nullptr) {
        return -1;
    }
    for (int w = 0; w < number; ++w) {
        for (int k = 0; k < WORD_BITS; ++k) {
            words[w] += (bits[k] >> w & 1) << k;
        }
    }
    return 0;
}

int Netbinary2decimalEx(int count, const uint32_t *bits, uint32_t *words) {
    if (bits == nullptr || words == nullptr) {
        return -1;
    }
    const int number = words_of(count);
    for (int w = 0; w < number; ++w) {
        for (int k = 0; k < WORD_BITS; ++k) {
            words[w] += (bits[ptrdiff_t{w} * WORD_BITS + k] & 1) << k;
        }
    }
    return 0;
}

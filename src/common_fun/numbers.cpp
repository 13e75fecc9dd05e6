// Numbers as text, and powers.
#include <stdint.h>

#include <charconv>
#include <limits>

#include <velkor/text.h>

void itoa(unsigned value, char *out) {
    if (out != nullptr) {
        *std::to_chars(out, out + std::numeric_limits<unsigned>::digits10 + 1, value).ptr = '\0';
    }
}

int pow1(int base, int exponent) {
    if (base < 0 || exponent < 0) {
        return 0;
    }
    // Squares instead of one multiplication after the other: the same low 32 bits, at once for any exponent.
    uint32_t power = 1;
    uint32_t square = static_cast<uint32_t>(base);
    for (auto left = static_cast<uint32_t>(exponent); left != 0; left >>= 1) {
        if ((left & 1) != 0) {
            power *= square;
        }
        square *= square;
    }
    return static_cast<int>(power);
}

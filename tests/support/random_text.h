// Random inputs that are the same every time.
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "support/sweep.h"

class RandomText {
public:
    static constexpr int INPUTS = sweep::cases(100000);  // of a sweep

    explicit RandomText(unsigned seed) : random_(seed) {}  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable on purpose

    // From 0 to `most`.
    unsigned number(unsigned most) { return static_cast<unsigned>(random_() % (uint64_t{most} + 1)); }

    uint64_t word() { return uint64_t{random_()} << 32 | random_(); }

    std::string text(const std::string &alphabet, size_t longest) {
        std::string made(number(static_cast<unsigned>(longest)), '\0');
        for (char &character : made) {
            character = alphabet[number(static_cast<unsigned>(alphabet.size() - 1))];
        }
        return made;
    }

    // Any bytes but zeros.
    std::string text(size_t longest) {
        std::string made(number(static_cast<unsigned>(longest)), '\0');
        for (char &byte : made) {
            byte = static_cast<char>(number(UINT8_MAX - 1) + 1);
        }
        return made;
    }

    std::string bytes(size_t longest) {
        std::string made(number(static_cast<unsigned>(longest)), '\0');
        for (char &byte : made) {
            byte = static_cast<char>(random_());
        }
        return made;
    }

private:
    std::mt19937 random_;
};

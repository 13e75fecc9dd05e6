// Random inputs that are the same every time.
#pragma once

#include <random>
#include <string>

class RandomText {
public:
    // Inputs of a sweep. Where each step is watched or emulated a run takes many times as long, and finds the same.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
    static constexpr int INPUTS = 100000 / 20;
#else
    static constexpr int INPUTS = 100000;
#endif

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

// What every fuzzer needs: to take its input apart, and to stop where an answer is wrong.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace fuzz {

inline void expect(bool holds, const char *what) {
    if (!holds) {
        fprintf(stderr, "wrong: %s\n", what);
        abort();
    }
}

// The input as small numbers and texts, one after the other; zeros and empty texts where it has ended.
class Input {
public:
    Input(const uint8_t *data, size_t size) : data_(data), left_(size) {}

    // From `least` to `most`.
    int number(int least, int most) {
        const unsigned byte = left_ > 0 ? *data_ : 0;
        skip(1);
        return least + static_cast<int>(byte % static_cast<unsigned>(most - least + 1));
    }

    // Up to a line feed; at most `most` bytes.
    std::string bytes(size_t most = SIZE_MAX) {
        const size_t room = std::min(left_, most);
        const size_t length = static_cast<size_t>(std::find(data_, data_ + room, '\n') - data_);
        std::string text(reinterpret_cast<const char *>(data_), length);
        skip(length + 1);
        return text;
    }

    // The same, ended by a zero as well.
    std::string text(size_t most = SIZE_MAX) { return bytes(most).c_str(); }

    std::string rest() { return {reinterpret_cast<const char *>(data_), left_}; }

private:
    void skip(size_t size) {
        size = std::min(size, left_);
        data_ += size;
        left_ -= size;
    }

    const uint8_t *data_;
    size_t left_;
};

}  // namespace fuzz

#define EXPECT_TRUE(condition) fuzz::expect(condition, #condition)

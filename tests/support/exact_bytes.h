// Bytes in a block of exactly their size, where the sanitizers notice a step beside it.
#pragma once

#include <cstring>
#include <memory>
#include <string>

class ExactBytes {
public:
    ExactBytes(const char *bytes, size_t size) : size_(size), bytes_(new char[size]) {
        memcpy(bytes_.get(), bytes, size);
    }
    explicit ExactBytes(const std::string &bytes) : ExactBytes(bytes.data(), bytes.size()) {}
    explicit ExactBytes(size_t size, char filler = '\0') : ExactBytes(std::string(size, filler)) {}

    char *get() { return bytes_.get(); }
    const char *get() const { return bytes_.get(); }
    size_t size() const { return size_; }
    std::string bytes() const { return {bytes_.get(), size_}; }
    // Up to the first terminator.
    std::string text() const {
        const std::string all = bytes();
        return all.substr(0, all.find('\0'));
    }

private:
    size_t size_;
    std::unique_ptr<char[]> bytes_;
};

// A text and its terminator, or a buffer that holds one.
class ExactText : public ExactBytes {
public:
    explicit ExactText(const std::string &text) : ExactBytes(text.c_str(), text.size() + 1) {}

    // The same text at the begin of a buffer of `size` bytes.
    ExactText(const std::string &text, size_t size) : ExactBytes(padded(text, size)) {}

private:
    static std::string padded(std::string text, size_t size) {
        text.resize(size, '\0');
        return text;
    }
};

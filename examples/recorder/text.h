// Texts for people, and a text that one thread writes and others read.
#pragma once

#include <velkor/api.h>

#include <mutex>
#include <string>
#include <utility>

namespace recorder {

// As printf() writes it.
std::string format(const char *format, ...) VELKOR_FORMAT(1, 2);

// "[####------]"; anything outside 0 to 1 counts as the nearest of them.
std::string bar(double fraction, unsigned width = 10);

class SharedText {
public:
    void set(std::string text) {
        const std::lock_guard guard(lock_);
        text_ = std::move(text);
    }
    std::string get() const {
        const std::lock_guard guard(lock_);
        return text_;
    }

private:
    mutable std::mutex lock_;
    std::string text_;
};

}  // namespace recorder

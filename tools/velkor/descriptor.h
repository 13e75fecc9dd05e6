// An open descriptor, closed when it goes out of scope.
#pragma once

#include <unistd.h>

#include <utility>

namespace tool {

class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { reset(); }

    explicit operator bool() const { return number_ >= 0; }
    int get() const { return number_; }
    void reset() {
        if (number_ >= 0) {
            close(std::exchange(number_, -1));
        }
    }

private:
    int number_;
};

}  // namespace tool

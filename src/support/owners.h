// Owners of a descriptor and of a stream: closed when they go out of scope.
#pragma once

#include <stdio.h>
#include <unistd.h>

namespace velkor {

class OwnedDescriptor {
public:
    explicit OwnedDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~OwnedDescriptor() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    OwnedDescriptor(const OwnedDescriptor &) = delete;
    OwnedDescriptor &operator=(const OwnedDescriptor &) = delete;

    explicit operator bool() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }
    int release() {
        const int released = descriptor_;
        descriptor_ = -1;
        return released;
    }

private:
    int descriptor_;
};

class OwnedStream {
public:
    explicit OwnedStream(FILE *stream) : stream_(stream) {}
    ~OwnedStream() {
        if (stream_ != nullptr) {
            fclose(stream_);
        }
    }
    OwnedStream(const OwnedStream &) = delete;
    OwnedStream &operator=(const OwnedStream &) = delete;

    explicit operator bool() const { return stream_ != nullptr; }
    FILE *get() const { return stream_; }
    FILE *release() {
        FILE *released = stream_;
        stream_ = nullptr;
        return released;
    }

private:
    FILE *stream_;
};

}  // namespace velkor

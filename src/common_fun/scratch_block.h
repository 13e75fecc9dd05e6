// A block of tracked memory that is gone when it goes out of scope.
#pragma once

#include <stddef.h>

#include <velkor/allocation.h>

namespace velkor {

class ScratchBlock {
public:
    ScratchBlock(size_t size, const char *file, int line) : block_(static_cast<char *>(dvrMalloc(size, file, line))) {}
    ~ScratchBlock() {
        if (block_ != nullptr) {
            dvrFree(block_);
        }
    }
    ScratchBlock(const ScratchBlock &) = delete;
    ScratchBlock &operator=(const ScratchBlock &) = delete;

    explicit operator bool() const { return block_ != nullptr; }
    char *get() const { return block_; }

private:
    char *block_;
};

}  // namespace velkor

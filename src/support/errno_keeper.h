// A report must not change what its caller is about to look at.
#pragma once

#include <errno.h>

namespace velkor {

class ErrnoKeeper {
public:
    ErrnoKeeper() : kept_(errno) {}
    ~ErrnoKeeper() { restore(); }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

    void restore() const { errno = kept_; }

private:
    int kept_;
};

}  // namespace velkor

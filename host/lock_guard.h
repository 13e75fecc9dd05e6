// The one way in which the stand-ins lock. No lock of theirs is taken under another one, and none is kept for long: so
// a fork can hold all of them while it copies the process, and a child finds nothing half done. Each file with a lock
// tells pthread_atfork().
#pragma once

#include <pthread.h>

namespace velkor_host {

class LockGuard {
public:
    explicit LockGuard(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~LockGuard() { pthread_mutex_unlock(&mutex_); }
    LockGuard(const LockGuard &) = delete;
    LockGuard &operator=(const LockGuard &) = delete;

private:
    pthread_mutex_t &mutex_;
};

}  // namespace velkor_host

// The one way in which this library locks.
#pragma once

#include <pthread.h>

namespace velkor {

class LockGuard {
public:
    explicit LockGuard(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~LockGuard() { pthread_mutex_unlock(&mutex_); }
    LockGuard(const LockGuard &) = delete;
    LockGuard &operator=(const LockGuard &) = delete;

private:
    pthread_mutex_t &mutex_;
};

}  // namespace velkor

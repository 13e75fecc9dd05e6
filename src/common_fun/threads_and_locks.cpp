// Thread creation, one at a time, and reader-writer locks that prefer writers.
#include <errno.h>
#include <pthread.h>

#include <velkor/concurrency.h>

#include "support/lock_guard.h"
#include "support/log.h"
#include "support/platform.h"

namespace {

pthread_mutex_t creation_lock = PTHREAD_MUTEX_INITIALIZER;

__attribute__((constructor)) void survive_fork() {
    velkor::when_forked([] { creation_lock = PTHREAD_MUTEX_INITIALIZER; });
}

int init_writer_preferring(pthread_rwlock_t *lock) {
    if (lock == nullptr) {
        return EINVAL;
    }
    pthread_rwlockattr_t attribute;
    pthread_rwlockattr_init(&attribute);
    pthread_rwlockattr_setkind_np(&attribute, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
    const int result = pthread_rwlock_init(lock, &attribute);
    pthread_rwlockattr_destroy(&attribute);
    return result;
}

}  // namespace

int __pthread_create(pthread_t *thread, const pthread_attr_t *attribute, void *(*start)(void *), void *argument) {
    const velkor::LockGuard guard(creation_lock);
    return pthread_create(thread, attribute, start, argument);
}

int vk_RWLockInit(pthread_rwlock_t *lock, [[maybe_unused]] const void *ignored, const char *name, int line) {
    const int result = init_writer_preferring(lock);
    if (result != 0) {
        VK_LOG("[%s:%d]-%s error. iRet=%d", name, line, "vk_RWLockInit", result);
    }
    return result;
}

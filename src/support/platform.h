// What differs between the recorder and the bench, in one place.
#pragma once

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace velkor {

// The C library of the recorder has no gettid(); the number is 224 there and the platform's own elsewhere.
inline long kernel_thread_id() { return syscall(SYS_gettid); }

// Between two looks at a word that is about to change: lets the other side of a shared core go on.
inline void relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    __asm__ volatile("yield" ::: "memory");
#endif
}

// A forked child holds only the thread that forked, but every lock that any thread held at that moment. Each file
// with a lock that a child may need registers here how to make it usable again.
inline void when_forked(void (*in_child)()) { pthread_atfork(nullptr, nullptr, in_child); }

// The same where the lock can be held across the fork instead: nothing is called under it that takes another.
inline void around_fork(void (*before)(), void (*in_parent)(), void (*in_child)()) {
    pthread_atfork(before, in_parent, in_child);
}

template <pthread_mutex_t &lock>
void hold_over_fork() {
    around_fork([] { pthread_mutex_lock(&lock); }, [] { pthread_mutex_unlock(&lock); },
                [] { pthread_mutex_unlock(&lock); });
}

}  // namespace velkor

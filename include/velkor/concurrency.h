/**
 * @file concurrency.h
 * Threads and locks.
 */
#ifndef VELKOR_CONCURRENCY_H
#define VELKOR_CONCURRENCY_H

#include <pthread.h>

#include <velkor/api.h>

VELKOR_BEGIN_C

/**
 * pthread_create(), one at a time in the whole process. Thread-safe.
 *
 * @param thread     where the new thread's id goes
 * @param attribute  as for pthread_create(); NULL means the defaults
 * @param start      the thread's body
 * @param argument   handed to @p start
 * @return pthread_create()'s result: 0, or an error number
 */
VELKOR_API int __pthread_create(pthread_t *thread, const pthread_attr_t *attribute, void *(*start)(void *),
                                void *argument);

#ifdef PTHREAD_RWLOCK_INITIALIZER
typedef pthread_rwlock_t velkor_rwlock;
#else
typedef void velkor_rwlock; /* strict ISO C hides the type; a pointer to the lock can still be handed on */
#endif

/**
 * Initialise a reader-writer lock that prefers writers: a waiting writer holds back new readers, so a thread
 * must not take the lock for reading twice.
 *
 * @param lock     the lock; NULL gives EINVAL
 * @param ignored  accepted for the callers' sake; any value
 * @param name     the caller's name, for the log
 * @param line     the caller's line, for the log
 * @return pthread_rwlock_init()'s result: 0, or an error number, which is logged with the caller's name and line
 */
VELKOR_API int vk_RWLockInit(velkor_rwlock *lock, const void *ignored, const char *name, int line);

VELKOR_END_C

#endif

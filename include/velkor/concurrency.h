/**
 * @file concurrency.h
 * What the threads of a process share: creation and locks, a queue, timers, workers, and a list of strings.
 *
 * - @ref __pthread_create "Threads and locks": creation one at a time, reader-writer locks that prefer writers.
 * - @ref sq_construct "Safe circular queue": a linked list whose entries are locked one by one, so that a thread can
 *   work on an entry that it found while others use the rest.
 * - @ref init_timer "Timers": periodic calls on one thread of their own, and a counter that tells whether it lives.
 * - @ref CreateThreadInPool "Thread pool": up to 32 workers for short jobs.
 * - @ref sList "String list": a growing array of strings, for one thread.
 *
 * A bad argument of a queue function is reported to the firmware's debug stream (`fpDebugFile`, firmware.h), with the
 * parameter's name as it stands here.
 */
#ifndef VELKOR_CONCURRENCY_H
#define VELKOR_CONCURRENCY_H

#include <pthread.h>
#include <stdint.h>

#include <velkor/api.h>

VELKOR_BEGIN_C

/** @name Threads and locks
 * @{ */

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
/** A reader-writer lock. */
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
/** @} */

/** @name Safe circular queue
 * A queue of entries that sqe_new() allocates and that are known by the address of the caller's data in them. A lock
 * guards the queue, and one guards each entry:
 *
 *     SafeQueue queue;
 *     sq_construct(&queue);
 *
 *     struct Job *job = sqe_new(sizeof *job);   // fill it in
 *     sq_insert_tail(&queue, job);
 *
 *     job = sq_find(&queue, has_number, &number);   // locked: nobody else finds or removes it
 *     if (job != NULL) {
 *         work_on(job);
 *         sqe_unlock(job);
 *     }
 *
 *     job = sq_remove(&queue, has_number, &number);   // unlocked, and the caller's
 *     if (job != NULL)
 *         sqe_delete(job);
 *
 * All functions but sq_construct() and sq_destruct() are thread-safe. They take the queue's lock, then an entry's, and
 * wait for both as long as it takes: a walk that comes to an entry that somebody holds waits there with the queue
 * locked. So a thread that holds a found entry must sqe_unlock() it before it calls any function on that queue.
 *
 * Nothing checks that an entry is in the queue that it is said to be in, that it is in no other, or that the two
 * entries of an insertion are different ones. @{ */

/** One entry: a lock, two links, and behind them the caller's data. Only the address of the data is handed around. */
typedef struct SafeQueueEntry SafeQueueEntry;

/**
 * A queue. The caller owns the record and calls sq_construct() before anything else. To look at the links, hold the
 * lock; a link that equals the address of @c first is the end of the queue in either direction.
 */
typedef struct SafeQueue {
    pthread_mutex_t lock;  /**< guards the links of the queue and of every entry in it */
    SafeQueueEntry *first; /**< the first entry, or the address of this member when there is none */
    SafeQueueEntry *last;  /**< the last entry, or the address of @c first when there is none */
} SafeQueue;

/**
 * Make an empty queue of a record, whatever the record held.
 *
 * @return pthread_mutex_init()'s result: 0, or an error number; -1 when @p _pThis is NULL
 */
VELKOR_API int sq_construct(SafeQueue *_pThis);

/**
 * End a queue that no thread uses any more, and clear its record. Entries that are still in it are neither freed nor
 * looked at: remove and delete them first.
 *
 * @return pthread_mutex_destroy()'s result: 0, or an error number (the record is cleared all the same); -1 when
 *         @p _pThis is NULL
 */
VELKOR_API int sq_destruct(SafeQueue *_pThis);

/**
 * Put an entry right behind one that is in the queue.
 *
 * @param _pThis           the queue
 * @param _pListEntryData  data of an entry in the queue
 * @param _pNewEntryData   data of another entry, which is in no queue
 * @retval 0   inserted
 * @retval -1  @p _pThis is NULL
 * @retval -2  @p _pListEntryData is NULL
 * @retval -3  @p _pNewEntryData is NULL
 */
VELKOR_API int sq_insert_after(SafeQueue *_pThis, void *_pListEntryData, void *_pNewEntryData);

/** Put an entry right before one that is in the queue. Otherwise as sq_insert_after(). */
VELKOR_API int sq_insert_before(SafeQueue *_pThis, void *_pListEntryData, void *_pNewEntryData);

/**
 * Make an entry the first of the queue.
 *
 * @param _pThis          the queue
 * @param _pNewEntryData  data of an entry that is in no queue
 * @retval 0   inserted
 * @retval -1  @p _pThis is NULL
 * @retval -2  @p _pNewEntryData is NULL
 */
VELKOR_API int sq_insert_head(SafeQueue *_pThis, void *_pNewEntryData);

/** Make an entry the last of the queue. Otherwise as sq_insert_head(). */
VELKOR_API int sq_insert_tail(SafeQueue *_pThis, void *_pNewEntryData);

/**
 * Take the first entry that a callback selects out of the queue.
 *
 * @param _pThis    the queue
 * @param _pcbk     asked with the data of one entry after the other, first to last, and @p context; 0 selects the
 *                  entry, anything else goes on. It runs with the queue and that entry locked: it must not call a
 *                  function on this queue, nor wait for a thread that does
 * @param context   handed to @p _pcbk as it is
 * @return the entry's data, unlocked and now the caller's; NULL when none was selected, or @p _pThis or @p _pcbk is
 * NULL
 */
VELKOR_API void *sq_remove(SafeQueue *_pThis, int (*_pcbk)(void *data, void *context), void *context);

/**
 * Find the first entry that a callback selects, and hold it.
 *
 * @return the entry's data, to be released by sqe_unlock(): while it is held nobody else finds or removes it; NULL when
 *         none was selected, or @p _pThis or @p _pcbk is NULL. Parameters as for sq_remove()
 */
VELKOR_API void *sq_find(SafeQueue *_pThis, int (*_pcbk)(void *data, void *context), void *context);

/** sq_find() from the last entry to the first. */
VELKOR_API void *sq_find_reverse(SafeQueue *_pThis, int (*_pcbk)(void *data, void *context), void *context);

/**
 * Allocate an entry through dvrMalloc() (allocation.h).
 *
 * @param _uSize  bytes of data
 * @return the data, not cleared, aligned for pointers and 64-bit numbers; NULL when @p _uSize is 0, or there is no
 *         memory for it, which is logged. To be freed by sqe_delete()
 */
VELKOR_API void *sqe_new(unsigned _uSize);

/**
 * Free an entry that is in no queue (any more) and that nobody holds.
 *
 * @param _p  the entry's data; NULL is reported and changes nothing
 */
VELKOR_API void sqe_delete(void *_p);

/**
 * Release an entry that sq_find() or sq_find_reverse() found, on the thread that found it.
 *
 * @param _p  the entry's data
 * @retval 0   released
 * @retval -1  @p _p is NULL
 */
VELKOR_API int sqe_unlock(void *_p);
/** @} */

/** @name Timers
 * One list of periodic timers for the whole process. The first timer, by init_timer(), starts a thread that ticks every
 * 185 milliseconds and calls what is due, one after the other in the order of the list: a timer of interval N runs for
 * the first time N ticks after the thread started, and then every N ticks. What takes long delays all the others and
 * the next tick; signals neither delay nor hasten it.
 *
 * A timer's function runs on that thread with the list locked. It may call search_timer() and the soft dog's functions,
 * but not init_timer(), add_timer(), del_timer() or timer_schedule(): they would wait for ever.
 *
 * All functions are thread-safe; they wait while timers run, except search_timer(), the soft dog's and
 * timer_GetDebug(), which never wait. A forked child has the list but no thread to run it: when it deletes every timer,
 * init_timer() starts afresh. @{ */

/** One timer: the list stores a copy of it. */
typedef struct TimerEntry {
    uint32_t interval;     /**< ticks from call to call, at least 1 */
    void *(*func)(void *); /**< what to call; its result is ignored */
    void *arg;             /**< handed to @c func as it is */
} TimerEntry;

/**
 * Start the list with its first timer, and the timer thread.
 *
 * When every timer has been deleted, the list is gone and may be started again. That starts one more timer thread: the
 * former goes on, with ticks of its own, so that every timer is then called by both.
 *
 * @param entry  the first timer
 * @retval 0   started
 * @retval -1  @p entry is NULL, its interval is 0 or its function NULL
 * @retval -2  there is a list already
 * @retval -3  no thread could be started, or there was no memory; nothing has changed
 */
VELKOR_API int init_timer(const TimerEntry *entry);

/**
 * Add a timer behind the others. Equal timers may be added; each is called.
 *
 * @param entry  the timer. When it is one that search_timer() answered, a copy of it takes the place of all timers
 *               behind it: these are gone from the list, and their memory is not used again
 * @retval 0   added; also when there was no memory for it
 * @retval -1  @p entry is NULL, its interval is 0 or its function NULL
 * @retval -2  there is no list
 */
VELKOR_API int add_timer(const TimerEntry *entry);

/**
 * Delete the first timer that equals an entry in all three members. Once this returned, the timer thread neither runs
 * it nor will; a call that timer_schedule() started may still be running.
 *
 * @param entry  the timer
 * @retval 0   deleted, or there was none
 * @retval -1  @p entry is NULL, its interval is 0 or its function NULL
 * @retval -2  there is no list
 */
VELKOR_API int del_timer(const TimerEntry *entry);

/**
 * Find the first timer that equals an entry in all three members. Takes no lock, so a timer's function may call it.
 *
 * @param entry  the timer
 * @return the list's own copy, valid until that timer is deleted; NULL when there is none, @p entry is NULL or its
 *         function is NULL. A timer's function may change it, and so may any thread that stores its members as atomics;
 *         an interval of 0 then keeps a timer from running
 */
VELKOR_API TimerEntry *search_timer(const TimerEntry *entry);

/**
 * Drive the list from a loop of the caller's: each call is one tick of a counter of its own, independent of the timer
 * thread, and each timer that is due by it runs on a new detached thread. A thread that cannot be started is skipped.
 *
 * @return always 0
 */
VELKOR_API int timer_schedule(void);

/** How often timer_IncreaseDog() was called since the timer thread's last tick: a supervisor's sign that it hangs. */
VELKOR_API uint32_t timer_GetSoftDog(void);

/** Add one to the soft dog, which the timer thread sets to 0 at each tick. */
VELKOR_API void timer_IncreaseDog(void);

/**
 * Write how many calls the timer thread has made, and the address of the function that it called last:
 *
 *     ------------------- timer start -------------------
 *     count = 12, func = 0x1c40
 *     -------------------- timer end --------------------
 *
 * @param text  where to; NULL changes nothing
 * @param size  bytes that @p text holds; what does not fit is cut off, and nothing is written when it is not positive
 */
VELKOR_API void timer_GetDebug(char *text, int size);
/** @} */

/** @name Thread pool
 * @{ */

/**
 * Run a short job on a thread of the pool, which has up to 32 of them. They are started when they are needed, and each
 * ends when it had nothing to do for 30 seconds. A job that finds all of them at work gets an ordinary detached thread.
 *
 * The job starts at once on an idle worker. Afterwards the calling thread has no record in the firmware's thread
 * registry (ThrInfo_Clear(), firmware.h). Thread-safe; a job may call it. A job must return: a worker that its job ends
 * by pthread_exit() is lost to the pool. A forked child starts with an empty pool.
 *
 * @param out   where the thread's id goes: all ones when a worker of the pool has the job; unchanged on failure
 * @param func  the job; its result is ignored
 * @param arg   handed to @p func as it is
 * @retval 0   the job was handed over
 * @retval -1  @p out or @p func is NULL, or no thread could be started
 */
VELKOR_API int CreateThreadInPool(pthread_t *out, void *(*func)(void *), void *arg);
/** @} */

/** @name String list
 * A growing array of strings that knows its own functions:
 *
 *     sList names;
 *     sList_Init(&names);
 *     names.Add(&names, "eth0");
 *     names.Insert(&names, "bond0", 0);
 *     if (names.IndexOf(&names, "eth0") >= 0) ...
 *     names.Destroy(&names);
 *
 * Not thread-safe. Memory comes from malloc(). All functions answer -1 when the list or the text is NULL, and those
 * that need memory when there is none; the list is then as it was. @{ */

/** A list, see below. */
typedef struct sList sList;

/** A list. The caller owns the record; the strings and the array are the list's. */
struct sList {
    int32_t count;                                     /**< number of strings */
    char **items;                                      /**< the strings, first to last */
    int (*Add)(sList *list, const char *text);         /**< sList_Add() */
    int (*Clear)(sList *list);                         /**< sList_Clear() */
    int (*Insert)(sList *list, const char *text, int); /**< sList_Insert() */
    int (*Delete)(sList *list, int index);             /**< sList_Delete() */
    int (*Init)(sList *list);                          /**< sList_Init() */
    int (*Destroy)(sList *list);                       /**< sList_Destroy() */
    int (*IndexOf)(const sList *list, const char *);   /**< sList_IndexOf() */
};

/** Make an empty list of the record @p list, whatever it held. Answers 0. */
VELKOR_API int sList_Init(sList *list);

/** Append a copy of @p text to @p list. Answers 0. */
VELKOR_API int sList_Add(sList *list, const char *text);

/**
 * Insert a copy of a text.
 *
 * @param list   the list
 * @param text   the text
 * @param index  what its index shall be, 0 to count; a negative one counts as 0
 * @retval 0   inserted
 * @retval -1  @p index is greater than count
 */
VELKOR_API int sList_Insert(sList *list, const char *text, int index);

/**
 * Remove a string.
 *
 * @param list   the list
 * @param index  its index, 0 to count - 1. A negative one counts as 0, and count itself removes the last string
 * @retval 0   removed
 * @retval -1  @p index is greater than count, or the list is empty; or the array could not be resized afterwards (the
 *             string is removed then)
 */
VELKOR_API int sList_Delete(sList *list, int index);

/** The index of the first string of @p list that equals @p text, or -1. */
VELKOR_API int sList_IndexOf(const sList *list, const char *text);

/** Free every string of @p list. It is empty then and can be used on. Answers 0. */
VELKOR_API int sList_Clear(sList *list);

/** sList_Clear() of @p list, and free its array. Answers 0. The list may be filled again all the same. */
VELKOR_API int sList_Destroy(sList *list);
/** @} */

VELKOR_END_C

#endif

// A circular list whose entries are locked one by one: a thread holds an entry that it found and works on it, while
// others use the rest.
//
// Locks, from the outside in: the queue's, then an entry's; of two entries the one that is in the list before the new
// one. The queue's lock guards every link. An entry's lock says that somebody is at work on its data.
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <velkor/allocation.h>
#include <velkor/concurrency.h>

#include "support/assertion_report.h"
#include "support/lock_guard.h"
#include "support/log.h"

// In front of the caller's data, in the same block.
struct SafeQueueEntry {
    pthread_mutex_t lock;
    SafeQueueEntry *next;
    SafeQueueEntry *prev;
};
static_assert(sizeof(SafeQueueEntry) == sizeof(pthread_mutex_t) + 2 * sizeof(void *));

namespace {

using Entry = SafeQueueEntry;
using Callback = int (*)(void *data, void *context);

constexpr const char *SOURCE = "src/safe_circle_queue";

// The report names the function and the line that ask.
bool holds(bool condition, const char *expression, const char *function = __builtin_FUNCTION(),
           int line = __builtin_LINE()) {
    if (!condition) [[unlikely]] {
        velkor::report_assertion(SOURCE, line, function, expression);
    }
    return condition;
}

Entry *entry_of(void *data) { return static_cast<Entry *>(data) - 1; }

void *data_of(Entry *entry) { return entry + 1; }

// The end of the queue in both directions: an address that no entry has. Nothing is ever read through it.
Entry *sentinel_of(SafeQueue &queue) { return reinterpret_cast<Entry *>(&queue.first); }

// ---- Links, under the queue's lock ----
//
// The link that leads to an entry from its neighbour, or from the queue where there is no neighbour.

Entry *&link_to_next(SafeQueue &queue, Entry *prev) { return prev == sentinel_of(queue) ? queue.first : prev->next; }

Entry *&link_to_prev(SafeQueue &queue, Entry *next) { return next == sentinel_of(queue) ? queue.last : next->prev; }

void link_between(SafeQueue &queue, Entry *prev, Entry *entry, Entry *next) {
    entry->next = next;
    entry->prev = prev;
    link_to_prev(queue, next) = entry;
    link_to_next(queue, prev) = entry;
}

// The entry's own links are left as they were.
void unlink_entry(SafeQueue &queue, Entry *entry) {
    link_to_prev(queue, entry->next) = entry->prev;
    link_to_next(queue, entry->prev) = entry->next;
}

struct Gap {
    Entry *prev;
    Entry *next;
};

// `gap_at` answers where beside the listed entry the new one goes. The locks are taken in the order that is part of
// the interface.
template <typename GapAt>
void insert_beside(SafeQueue &queue, void *listed_data, void *new_data, GapAt gap_at) {
    Entry *const listed = entry_of(listed_data);
    Entry *const entry = entry_of(new_data);
    const velkor::LockGuard queue_guard(queue.lock);
    const velkor::LockGuard listed_guard(listed->lock);
    const velkor::LockGuard entry_guard(entry->lock);
    const Gap gap = gap_at(listed);
    link_between(queue, gap.prev, entry, gap.next);
}

// ---- Searches, under the queue's lock ----

// The entry that is found stays locked, for the caller to release.
template <Entry *SafeQueue::*begin, Entry *Entry::*step>
Entry *search(SafeQueue &queue, Callback callback, void *context) {
    for (Entry *entry = queue.*begin; entry != sentinel_of(queue); entry = entry->*step) {
        pthread_mutex_lock(&entry->lock);
        if (callback(data_of(entry), context) == 0) {
            return entry;
        }
        pthread_mutex_unlock(&entry->lock);
    }
    return nullptr;
}

constexpr auto search_forward = search<&SafeQueue::first, &Entry::next>;
constexpr auto search_reverse = search<&SafeQueue::last, &Entry::prev>;

}  // namespace

int sq_construct(SafeQueue *_pThis) {
    if (!holds(_pThis != nullptr, "NULL != _pThis")) {
        return -1;
    }
    memset(_pThis, 0, sizeof *_pThis);
    _pThis->first = sentinel_of(*_pThis);
    _pThis->last = sentinel_of(*_pThis);
    return pthread_mutex_init(&_pThis->lock, nullptr);
}

int sq_destruct(SafeQueue *_pThis) {
    if (!holds(_pThis != nullptr, "NULL != _pThis")) {
        return -1;
    }
    const int result = pthread_mutex_destroy(&_pThis->lock);
    memset(_pThis, 0, sizeof *_pThis);
    return result;
}

int sq_insert_after(SafeQueue *_pThis, void *_pListEntryData, void *_pNewEntryData) {
    if (!holds(_pThis != nullptr, "NULL != _pThis")) {
        return -1;
    }
    if (!holds(_pListEntryData != nullptr, "NULL != _pListEntryData")) {
        return -2;
    }
    if (!holds(_pNewEntryData != nullptr, "NULL != _pNewEntryData")) {
        return -3;
    }
    insert_beside(*_pThis, _pListEntryData, _pNewEntryData, [](Entry *listed) { return Gap{listed, listed->next}; });
    return 0;
}

int sq_insert_before(SafeQueue *_pThis, void *_pListEntryData, void *_pNewEntryData) {
    if (!holds(_pThis != nullptr, "NULL != _pThis")) {
        return -1;
    }
    if (!holds(_pListEntryData != nullptr, "NULL != _pListEntryData")) {
        return -2;
    }
    if (!holds(_pNewEntryData != nullptr, "NULL != _pNewEntryData")) {
        return -3;
    }
    insert_beside(*_pThis, _pListEntryData, _pNewEntryData, [](Entry *listed) { return Gap{listed->prev, listed}; });
    return 0;
}

int sq_insert_head(SafeQueue *_pThis, void *_pNewEntryData) {
    if (!holds(_pThis != nullptr, "NULL != _pThis")) {
        return -1;
    }
    if (!holds(_pNewEntryData != nullptr, "NULL != _pNewEntryData")) {
        return -2;
    }
    Entry *const entry = entry_of(_pNewEntryData);
    const velkor::LockGuard queue_guard(_pThis->lock);
    const velkor::LockGuard entry_guard(entry->lock);
    link_between(*_pThis, sentinel_of(*_pThis), entry, _pThis->first);
    return 0;
}

int sq_insert_tail(SafeQueue *_pThis, void *_pNewEntryData) {
    if (!holds(_pThis != nullptr, "NULL != _pThis")) {
        return -1;
    }
    if (!holds(_pNewEntryData != nullptr, "NULL != _pNewEntryData")) {
        return -2;
    }
    Entry *const entry = entry_of(_pNewEntryData);
    const velkor::LockGuard queue_guard(_pThis->lock);
    const velkor::LockGuard entry_guard(entry->lock);
    link_between(*_pThis, _pThis->last, entry, sentinel_of(*_pThis));
    return 0;
}

void *sq_remove(SafeQueue *_pThis, Callback _pcbk, void *context) {
    if (!holds(_pThis != nullptr, "NULL != _pThis") || !holds(_pcbk != nullptr, "NULL != _pcbk")) {
        return nullptr;
    }
    const velkor::LockGuard queue_guard(_pThis->lock);
    Entry *const found = search_forward(*_pThis, _pcbk, context);
    if (found == nullptr) {
        return nullptr;
    }
    unlink_entry(*_pThis, found);
    pthread_mutex_unlock(&found->lock);
    return data_of(found);
}

void *sq_find(SafeQueue *_pThis, Callback _pcbk, void *context) {
    if (!holds(_pThis != nullptr, "NULL != _pThis") || !holds(_pcbk != nullptr, "NULL != _pcbk")) {
        return nullptr;
    }
    const velkor::LockGuard queue_guard(_pThis->lock);
    Entry *const found = search_forward(*_pThis, _pcbk, context);
    return found != nullptr ? data_of(found) : nullptr;
}

void *sq_find_reverse(SafeQueue *_pThis, Callback _pcbk, void *context) {
    if (!holds(_pThis != nullptr, "NULL != _pThis") || !holds(_pcbk != nullptr, "NULL != _pcbk")) {
        return nullptr;
    }
    const velkor::LockGuard queue_guard(_pThis->lock);
    Entry *const found = search_reverse(*_pThis, _pcbk, context);
    return found != nullptr ? data_of(found) : nullptr;
}

namespace {

// NULL also for a size that wraps with the header on 32 bits: a smaller block than asked for must not come of it.
Entry *allocate_entry(unsigned size) {
    size_t whole = 0;
    if (__builtin_add_overflow(sizeof(Entry), size_t{size}, &whole)) {
        return nullptr;
    }
    return static_cast<Entry *>(dvrMalloc(whole, SOURCE, __LINE__));
}

}  // namespace

void *sqe_new(unsigned _uSize) {
    if (!holds(_uSize != 0, "0 != _uSize")) {
        return nullptr;
    }
    Entry *const entry = allocate_entry(_uSize);
    if (entry == nullptr) {
        VK_LOG_FLAGS(0xff0000, "Error. -[%s:%d]-", "sqe_new", __LINE__);
        return nullptr;
    }
    memset(entry, 0, sizeof *entry);
    pthread_mutex_init(&entry->lock, nullptr);
    return data_of(entry);
}

void sqe_delete(void *_p) {
    if (!holds(_p != nullptr, "NULL != _p")) {
        return;
    }
    Entry *const entry = entry_of(_p);
    pthread_mutex_destroy(&entry->lock);
    dvrFree(entry);
}

int sqe_unlock(void *_p) {
    if (!holds(_p != nullptr, "NULL != _p")) {
        return -1;
    }
    pthread_mutex_unlock(&entry_of(_p)->lock);
    return 0;
}

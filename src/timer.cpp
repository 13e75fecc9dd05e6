// The process's list of periodic timers, the thread that runs it, and the soft dog that tells whether that thread
// lives.
//
// One lock guards the list, and timers run with it held. Looking for a timer takes no lock, because timers do it, too:
// so a node that leaves the list is freed only when nobody is looking.
#include <inttypes.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <optional>

#include <velkor/concurrency.h>
#include <velkor/firmware.h>

#include "support/lock_guard.h"
#include "support/pause.h"
#include "support/platform.h"

static_assert(sizeof(void *) != 4 || sizeof(TimerEntry) == 12);

namespace {

constexpr int64_t TICK_US = 185000;

struct Node {
    TimerEntry *entry;
    std::atomic<Node *> next;
    Node *next_gone;
};

// Never initialised afresh: a former timer thread may hold it when the list starts again.
pthread_mutex_t timer_lock = PTHREAD_MUTEX_INITIALIZER;
std::atomic<Node *> list_head{nullptr};

std::atomic<uint32_t> schedule_ticks{0};
std::atomic<uint32_t> soft_dog{0};
std::atomic<int32_t> call_count{0};
std::atomic<uintptr_t> last_function{0};

bool has_list() { return list_head.load() != nullptr; }

// The program may change a timer that is in the list while others look at it: each word is read once.
TimerEntry read(const TimerEntry &entry) {
    return {__atomic_load_n(&entry.interval, __ATOMIC_RELAXED), __atomic_load_n(&entry.func, __ATOMIC_RELAXED),
            __atomic_load_n(&entry.arg, __ATOMIC_RELAXED)};
}

std::optional<TimerEntry> read_valid(const TimerEntry *entry) {
    if (entry == nullptr) {
        return std::nullopt;
    }
    const TimerEntry seen = read(*entry);
    return seen.interval != 0 && seen.func != nullptr ? std::optional(seen) : std::nullopt;
}

bool equal(const TimerEntry &one, const TimerEntry &other) {
    return one.arg == other.arg && one.interval == other.interval && one.func == other.func;
}

// ---- Nodes ----

void free_node(Node *node) {
    free(node->entry);
    free(node);
}

Node *make_node(const TimerEntry &entry) {
    Node *const node = static_cast<Node *>(malloc(sizeof(Node)));
    if (node == nullptr) {
        return nullptr;
    }
    node->entry = static_cast<TimerEntry *>(malloc(sizeof(TimerEntry)));
    if (node->entry == nullptr) {
        free(node);
        return nullptr;
    }
    *node->entry = entry;
    node->next.store(nullptr);
    node->next_gone = nullptr;
    return node;
}

// ---- Nodes that left the list, under the lock ----
//
// They keep their link into the list, for a search that stands on them. A search counts itself before it reads the
// first link, and a deletion changes a link before it reads the count, in one order for everybody: when the count is 0,
// no search can come upon what was deleted before.

std::atomic<uint32_t> searches{0};
Node *deleted = nullptr;

void bury(Node *node) {
    node->next_gone = deleted;
    deleted = node;
    if (searches.load() != 0) {
        return;  // the next deletion comes by again
    }
    while (deleted != nullptr) {
        Node *const gone = deleted;
        deleted = gone->next_gone;
        free_node(gone);
    }
}

// What add_timer() dropped was never deleted: whoever found it before may still read it. So it is kept for good, where
// a leak checker sees it: each node here is the first of a list of them.
Node *dropped = nullptr;

void keep_dropped(Node *first) {
    if (first != nullptr) {
        first->next_gone = dropped;
        dropped = first;
    }
}

// ---- What is due ----

void run_due(uint32_t tick, void (*run)(const TimerEntry &)) {
    const velkor::LockGuard guard(timer_lock);
    for (const Node *node = list_head.load(); node != nullptr; node = node->next.load()) {
        const TimerEntry entry = read(*node->entry);
        if (entry.interval != 0 && tick % entry.interval == 0) {
            run(entry);
        }
    }
}

// ---- The timer thread ----

void call(const TimerEntry &entry) {
    last_function.store(reinterpret_cast<uintptr_t>(entry.func), std::memory_order_relaxed);
    call_count.fetch_add(1, std::memory_order_relaxed);
    entry.func(entry.arg);
}

[[noreturn]] void *run_timers(void *) {
    ThrInfo_DoRecord("pthread_timer", 240, nullptr);
    for (uint32_t tick = 1;; ++tick) {
        soft_dog.store(0, std::memory_order_relaxed);
        velkor::pause_for_us(TICK_US);
        run_due(tick, call);
    }
}

bool start_detached(void *(*body)(void *), void *argument) {
    pthread_t thread;
    return pthread_create(&thread, nullptr, body, argument) == 0 && pthread_detach(thread) == 0;
}

}  // namespace

// The list can be seen only when its thread is there.
int init_timer(const TimerEntry *entry) {
    const std::optional<TimerEntry> first = read_valid(entry);
    if (!first) {
        return -1;
    }
    if (has_list()) {
        return -2;
    }
    const velkor::LockGuard guard(timer_lock);
    if (has_list()) {
        return -2;  // another thread was first
    }
    Node *const node = make_node(*first);
    if (node == nullptr) {
        return -3;
    }
    if (!start_detached(run_timers, nullptr)) {
        free_node(node);
        return -3;
    }
    list_head.store(node);
    return 0;
}

int add_timer(const TimerEntry *entry) {
    const std::optional<TimerEntry> added = read_valid(entry);
    if (!added) {
        return -1;
    }
    if (!has_list()) {
        return -2;
    }
    Node *const node = make_node(*added);
    if (node == nullptr) {
        return 0;
    }
    const velkor::LockGuard guard(timer_lock);
    Node *last = list_head.load();
    if (last == nullptr) {
        free_node(node);
        return -2;  // deleted meanwhile
    }
    // A timer of the list's own ends the walk: the new one takes the place of all behind it.
    while (last->entry != entry && last->next.load() != nullptr) {
        last = last->next.load();
    }
    keep_dropped(last->next.exchange(node));
    return 0;
}

int del_timer(const TimerEntry *entry) {
    const std::optional<TimerEntry> unwanted = read_valid(entry);
    if (!unwanted) {
        return -1;
    }
    if (!has_list()) {
        return -2;
    }
    const velkor::LockGuard guard(timer_lock);
    std::atomic<Node *> *link = &list_head;
    for (Node *node = link->load(); node != nullptr; node = link->load()) {
        if (equal(read(*node->entry), *unwanted)) {
            link->store(node->next.load());
            bury(node);
            return 0;
        }
        link = &node->next;
    }
    return 0;
}

namespace {

TimerEntry *find_stored(const TimerEntry &entry) {
    for (const Node *node = list_head.load(); node != nullptr; node = node->next.load()) {
        if (equal(read(*node->entry), entry)) {
            return node->entry;
        }
    }
    return nullptr;
}

}  // namespace

TimerEntry *search_timer(const TimerEntry *entry) {
    if (entry == nullptr) {
        return nullptr;
    }
    const TimerEntry wanted = read(*entry);
    if (wanted.func == nullptr) {
        return nullptr;
    }
    searches.fetch_add(1);
    TimerEntry *const found = find_stored(wanted);
    searches.fetch_sub(1);
    return found;
}

// ---- Ticks of the caller's own ------------------------------------------------------------------------------------

namespace {

struct Call {
    void *(*func)(void *);
    void *arg;
};

void *pthread_fuc(void *argument) {
    Call *const call = static_cast<Call *>(argument);
    call->func(call->arg);
    free(call);
    return nullptr;
}

void run_on_own_thread(const TimerEntry &entry) {
    Call *const call = static_cast<Call *>(malloc(sizeof(Call)));
    if (call == nullptr) {
        return;
    }
    *call = {entry.func, entry.arg};
    if (!start_detached(pthread_fuc, call)) {
        free(call);
    }
}

}  // namespace

int timer_schedule() {
    run_due(schedule_ticks.fetch_add(1, std::memory_order_relaxed) + 1, run_on_own_thread);
    return 0;
}

// ---- The soft dog and the debugging values ------------------------------------------------------------------------

uint32_t timer_GetSoftDog() { return soft_dog.load(std::memory_order_relaxed); }

void timer_IncreaseDog() { soft_dog.fetch_add(1, std::memory_order_relaxed); }

void timer_GetDebug(char *text, int size) {
    if (text == nullptr || size <= 0) {
        return;
    }
    snprintf(text, static_cast<size_t>(size),
             "------------------- timer start -------------------\n"
             "count = %d, func = 0x%" PRIxPTR
             "\n"
             "-------------------- timer end --------------------\n",
             static_cast<int>(call_count.load(std::memory_order_relaxed)),
             last_function.load(std::memory_order_relaxed));
}

namespace {

// The child has the list, whole at any moment, but none of the threads that run it or search it. What was deleted
// before may be half freed: the child lets it be.
__attribute__((constructor)) void survive_fork() {
    velkor::when_forked([] {
        timer_lock = PTHREAD_MUTEX_INITIALIZER;
        searches.store(0);
        deleted = nullptr;
    });
}

}  // namespace

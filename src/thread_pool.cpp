// Up to 32 workers for short jobs, started when they are needed and retired by a scheduler when they are not.
//
// A slot changes hands by its func word alone. Whoever gives a job or retires a worker does so under the lock, and only
// when the word says that the worker is idle; the worker takes its job without the lock and says that it is idle when
// it has done it. So no job can be lost between the two.
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include <atomic>
#include <optional>

#include <velkor/concurrency.h>
#include <velkor/firmware.h>

#include "support/lock_guard.h"
#include "support/pause.h"
#include "support/platform.h"
#include "support/polled_word.h"

namespace {

using Job = void *(*)(void *);

constexpr size_t SLOTS = 32;
constexpr long POLL_US = 1000;
constexpr int LOOKS_BEFORE_SLEEP = 50;
constexpr int64_t SCHEDULER_PAUSE_US = 2000000;
constexpr int32_t KEPT_IDLE_S = 29;

// What a func word holds beside the address of a job.
constexpr uintptr_t IDLE = 0;
constexpr uintptr_t FREE = static_cast<uintptr_t>(-1);
constexpr uintptr_t STARTING = static_cast<uintptr_t>(-2);
constexpr uintptr_t RETIRING = static_cast<uintptr_t>(-3);

// The id that is told for a job on a worker.
constexpr pthread_t ON_A_WORKER = static_cast<pthread_t>(-1);

struct Slot {
    std::atomic<int32_t> alive{0};
    std::atomic<int32_t> last_time{0};  // of the last assignment, or of the end of the last job
    pthread_t thread{};
    std::atomic<uintptr_t> func{FREE};
    std::atomic<void *> arg{nullptr};
};
static_assert(sizeof(void *) != 4 || sizeof(Slot) == 20);

struct Pool {
    int32_t count = 0;  // workers alive, for the engineer with a debugger
    Slot slots[SLOTS];
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
};

constinit Pool pool;
std::atomic<bool> initialised{false};

// Who sleeps on its func word, and must be woken when it changes. Whoever changes the word looks here afterwards, and
// the kernel compares the word again after this was set: so nobody is left asleep.
std::atomic<bool> asleep[SLOTS];

std::atomic<bool> &is_asleep(const Slot &slot) { return asleep[&slot - pool.slots]; }

int32_t seconds_now() { return static_cast<int32_t>(time(nullptr)); }

// ---- Workers ----

bool is_job(uintptr_t func) { return func != IDLE && func != FREE && func != STARTING && func != RETIRING; }

void do_job(Slot &slot, uintptr_t func) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the word holds states, too
    reinterpret_cast<Job>(func)(slot.arg.load(std::memory_order_relaxed));
    slot.last_time.store(seconds_now(), std::memory_order_relaxed);
    slot.func.store(IDLE, std::memory_order_release);
}

// The next job often comes at once. Then neither side needs the kernel: the worker is not yet asleep.
void linger(const Slot &slot) {
    for (int look = 0; look < LOOKS_BEFORE_SLEEP && slot.func.load(std::memory_order_relaxed) == IDLE; ++look) {
        velkor::relax();
    }
}

void sleep_while(Slot &slot, uintptr_t func) {
    is_asleep(slot).store(true);
    velkor::pause_while(slot.func, func, POLL_US);
    is_asleep(slot).store(false);
}

void *MyThreadTask(void *argument) {
    ThrInfo_DoRecord("MyThreadTask", 118, nullptr);
    Slot &slot = *static_cast<Slot *>(argument);
    while (slot.func.load(std::memory_order_acquire) == STARTING) {
        sleep_while(slot, STARTING);
    }
    while (slot.alive.load(std::memory_order_acquire) != 0) {
        const uintptr_t func = slot.func.load(std::memory_order_acquire);
        if (func == RETIRING) {
            break;
        }
        if (is_job(func)) {
            do_job(slot, func);
            linger(slot);
        } else {
            sleep_while(slot, func);
        }
    }
    slot.func.store(FREE, std::memory_order_release);  // from here on the slot is another worker's
    ThrInfo_Clear();
    return nullptr;
}

// ---- The scheduler ----

// The clock may be set while a worker is idle: the difference of the two words is what counts, across their wrapping
// in 2038, too.
bool was_idle_long(const Slot &slot, int32_t now) {
    const uint32_t idle = static_cast<uint32_t>(now) - static_cast<uint32_t>(slot.last_time.load());
    return static_cast<int32_t>(idle) > KEPT_IDLE_S;
}

void retire_idle_workers() {
    const velkor::LockGuard guard(pool.lock);
    const int32_t now = seconds_now();
    for (Slot &slot : pool.slots) {
        if (slot.func.load(std::memory_order_acquire) == IDLE && was_idle_long(slot, now)) {
            slot.func.store(RETIRING, std::memory_order_relaxed);
            // Behind the word above for the worker, too: or its "free" could come before the "retiring", for ever.
            slot.alive.store(0, std::memory_order_release);
            --pool.count;
        }
    }
}

[[noreturn]] void *ThrPoolSchld(void *) {
    ThrInfo_DoRecord("ThrPoolSchld", 69, nullptr);
    for (;;) {
        velkor::pause_for_us(SCHEDULER_PAUSE_US);
        retire_idle_workers();
    }
}

// A scheduler that could not be started is tried again by the next call: without it workers would poll for ever.
void initialise_once() {
    if (initialised.load(std::memory_order_acquire)) {
        return;
    }
    const velkor::LockGuard guard(pool.lock);
    pthread_t scheduler;
    if (!initialised.load(std::memory_order_relaxed) && pthread_create(&scheduler, nullptr, ThrPoolSchld, &pool) == 0) {
        initialised.store(true, std::memory_order_release);
    }
}

// ---- Assignment, under the lock ----

// The first idle worker, or else the last free slot.
Slot *find_slot() {
    Slot *free_slot = nullptr;
    for (Slot &slot : pool.slots) {
        const uintptr_t func = slot.func.load(std::memory_order_acquire);
        if (func == IDLE) {
            return &slot;
        }
        if (func == FREE) {
            free_slot = &slot;
        }
    }
    return free_slot;
}

bool start_worker(Slot &slot) {
    slot.alive.store(1, std::memory_order_relaxed);
    slot.func.store(STARTING, std::memory_order_relaxed);
    if (pthread_create(&slot.thread, nullptr, MyThreadTask, &slot) != 0) {
        slot.func.store(FREE, std::memory_order_relaxed);
        return false;
    }
    pthread_detach(slot.thread);
    ++pool.count;
    return true;
}

void assign(Slot &slot, Job func, void *arg) {
    slot.last_time.store(seconds_now(), std::memory_order_relaxed);
    slot.arg.store(arg, std::memory_order_relaxed);
    slot.func.store(reinterpret_cast<uintptr_t>(func));
    if (is_asleep(slot).load()) {
        velkor::wake_poller(slot.func);
    }
}

std::optional<pthread_t> start_detached(Job func, void *arg) {
    pthread_t thread;
    if (pthread_create(&thread, nullptr, func, arg) != 0) {
        return std::nullopt;
    }
    pthread_detach(thread);
    return thread;
}

// Answers what the caller is told about the job's thread, if there is one.
std::optional<pthread_t> hand_over(Job func, void *arg) {
    const velkor::LockGuard guard(pool.lock);
    Slot *const slot = find_slot();
    if (slot == nullptr) {
        return start_detached(func, arg);
    }
    const bool is_new = slot->func.load(std::memory_order_relaxed) == FREE;
    if (is_new && !start_worker(*slot)) {
        return std::nullopt;
    }
    assign(*slot, func, arg);
    return ON_A_WORKER;
}

// A forked child has none of the workers. Or one, when it was a job that forked: that one goes on.
void keep_own_worker() {
    pool.count = 0;
    for (Slot &slot : pool.slots) {
        if (is_job(slot.func.load()) && pthread_equal(slot.thread, pthread_self()) != 0) {
            ++pool.count;
        } else {
            slot.func.store(FREE);
        }
    }
}

__attribute__((constructor)) void survive_fork() {
    velkor::when_forked([] {
        pool.lock = PTHREAD_MUTEX_INITIALIZER;
        initialised.store(false);
        keep_own_worker();
    });
}

}  // namespace

int CreateThreadInPool(pthread_t *out, Job func, void *arg) {
    initialise_once();
    if (out == nullptr || func == nullptr) {
        return -1;
    }
    const std::optional<pthread_t> thread = hand_over(func, arg);
    ThrInfo_Clear();
    if (!thread) {
        return -1;
    }
    *out = *thread;
    return 0;
}

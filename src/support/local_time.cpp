#include "support/local_time.h"

#include <pthread.h>
#include <string.h>
#include <sys/stat.h>

#include <atomic>

#include "support/civil_date.h"
#include "support/errno_keeper.h"
#include "support/lock_guard.h"
#include "support/platform.h"
#include "support/zone_words.h"

namespace {

using velkor::ZoneWords;

pthread_mutex_t clock_lock = PTHREAD_MUTEX_INITIALIZER;

// ---- What a forked child goes by ----

// Seconds that local time was ahead of UTC at the fork, and the zone's words as the child found them. Threads read them
// without a lock: another one may be stuck in the C library with the clock lock.
std::atomic<bool> goes_by_fork{false};
std::atomic<long> offset_at_fork{0};
std::atomic<long> west_at_fork{0};
std::atomic<int> summer_time_at_fork{0};

ZoneWords words_at_fork() {
    return {west_at_fork.load(std::memory_order_relaxed), summer_time_at_fork.load(std::memory_order_relaxed)};
}

// Somebody has been through the C library's lock in this process, so nobody who is not here holds it.
void go_by_the_c_library() {
    if (goes_by_fork.load(std::memory_order_relaxed)) {
        goes_by_fork.store(false, std::memory_order_relaxed);
    }
}

bool still_goes_by_fork() {
    if (!goes_by_fork.load(std::memory_order_acquire)) {
        return false;
    }
    if (velkor::zone_words() == words_at_fork()) {
        return true;
    }
    go_by_the_c_library();
    return false;
}

// ---- The C library's conversions: with the clock lock ----

struct tm convert(time_t instant) {
    struct tm date;
    memset(&date, 0, sizeof date);
    localtime_r(&instant, &date);
    go_by_the_c_library();
    return date;
}

}  // namespace

namespace velkor {

struct tm local_time(time_t instant) {
    const LockGuard guard(clock_lock);
    return convert(instant);
}

time_t instant_of(struct tm &date) {
    const LockGuard guard(clock_lock);
    const time_t instant = mktime(&date);
    go_by_the_c_library();
    return instant;
}

struct tm stamp_time(time_t now) {
    if (still_goes_by_fork()) {
        return date_of_seconds(int64_t{now} + offset_at_fork.load(std::memory_order_relaxed));
    }
    return local_time(now);
}

}  // namespace velkor

// ---- A fork -------------------------------------------------------------------------------------------------------

namespace {

// Whether the child may use the C library at once. From before the fork until after it, with the clock lock.
bool child_converts = true;

// A process has a directory for each of its threads there; besides these, a directory has two links. Whatever does not
// look so counts as several threads.
bool has_one_thread() {
    struct stat tasks;
    return stat("/proc/self/task", &tasks) == 0 && tasks.st_nlink == 2 + 1;
}

void note_offset() {
    const time_t now = time(nullptr);
    offset_at_fork.store(static_cast<long>(velkor::seconds_of_date(convert(now)) - now), std::memory_order_relaxed);
}

// The only thread that there is cannot be in a conversion while it forks. Where there are others, the offset is asked
// for here, in the parent: its threads leave the C library sooner or later.
void before_fork() {
    const velkor::ErrnoKeeper caller;
    pthread_mutex_lock(&clock_lock);
    const bool may_convert = !still_goes_by_fork();
    child_converts = may_convert && has_one_thread();
    if (may_convert && !child_converts) {
        note_offset();
    }
}

void after_fork() { pthread_mutex_unlock(&clock_lock); }

// The words are looked at here: what other threads of the parent did to them before the fork tells nothing about the
// child.
void in_child() {
    if (!child_converts) {
        const ZoneWords words = velkor::zone_words();
        west_at_fork.store(words.west, std::memory_order_relaxed);
        summer_time_at_fork.store(words.has_summer_time, std::memory_order_relaxed);
        goes_by_fork.store(true, std::memory_order_release);
    }
    after_fork();
}

__attribute__((constructor)) void survive_fork() { velkor::around_fork(before_fork, after_fork, in_child); }

}  // namespace

// Who runs: a table of the threads that said so.
//
// A thread that ends without a word leaves its record behind, marked as ended, for the engineer who looks for it. Such
// records give way, oldest first, when the table is full.
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <velkor/firmware.h>
#include <velkor_host.h>

#include "lock_guard.h"

namespace {

struct Record {
    uint64_t order;  // 0: free. Otherwise the number of the registration
    bool running;
    int number;
    long thread;
    double since;
    char name[VELKOR_HOST_NAME_SIZE];
};

pthread_mutex_t table_lock = PTHREAD_MUTEX_INITIALIZER;
Record table[VELKOR_HOST_THREADS];
uint64_t last_order = 0;

// The calling thread's record. The key's destructor is what notices the end of a thread that never cleared: it ran
// when the thread can be joined, and a kernel thread id that is used again does not deceive it.
pthread_key_t own_record;
bool has_key = false;

Record *calling_threads_record() { return static_cast<Record *>(pthread_getspecific(own_record)); }

double uptime_seconds() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// ---- Under the lock ----

Record *free_record() {
    Record *oldest_ended = nullptr;
    for (Record &record : table) {
        if (record.order == 0) {
            return &record;
        }
        if (!record.running && (oldest_ended == nullptr || record.order < oldest_ended->order)) {
            oldest_ended = &record;
        }
    }
    return oldest_ended;
}

const Record *next_record(uint64_t order) {
    const Record *next = nullptr;
    for (const Record &record : table) {
        if (record.order > order && (next == nullptr || record.order < next->order)) {
            next = &record;
        }
    }
    return next;
}

void describe(const Record &record, velkor_host_thread &out) {
    memcpy(out.name, record.name, sizeof out.name);
    out.number = record.number;
    out.thread = record.thread;
    out.seconds = uptime_seconds() - record.since;
    out.running = record.running ? 1 : 0;
}

// ---- Changes ----

void note_end(void *record) {
    const velkor_host::LockGuard guard(table_lock);
    static_cast<Record *>(record)->running = false;
}

// The child's other threads are not there. It starts with nobody registered, itself included.
void empty_in_child() {
    for (Record &record : table) {
        record.order = 0;
    }
    pthread_setspecific(own_record, nullptr);
    pthread_mutex_unlock(&table_lock);
}

__attribute__((constructor)) void begin() {
    has_key = pthread_key_create(&own_record, note_end) == 0;
    if (has_key) {
        pthread_atfork([] { pthread_mutex_lock(&table_lock); }, [] { pthread_mutex_unlock(&table_lock); },
                       empty_in_child);
    }
}

}  // namespace

void ThrInfo_DoRecord(const char *name, int number, [[maybe_unused]] void *arg) {
    if (!has_key) {
        return;
    }
    const velkor_host::LockGuard guard(table_lock);
    Record *const registered = calling_threads_record();
    Record *const record = registered != nullptr ? registered : free_record();
    if (record == nullptr || pthread_setspecific(own_record, record) != 0) {
        return;
    }
    record->order = ++last_order;
    record->running = true;
    record->number = number;
    record->thread = syscall(SYS_gettid);
    record->since = uptime_seconds();
    snprintf(record->name, sizeof record->name, "%s", name != nullptr ? name : "");
}

void ThrInfo_Clear() {
    Record *const record = has_key ? calling_threads_record() : nullptr;
    if (record == nullptr) {
        return;
    }
    const velkor_host::LockGuard guard(table_lock);
    record->order = 0;
    pthread_setspecific(own_record, nullptr);
}

int velkor_host_thread_get(unsigned index, struct velkor_host_thread *out) {
    if (out == nullptr) {
        return -1;
    }
    const velkor_host::LockGuard guard(table_lock);
    const Record *record = next_record(0);
    for (; record != nullptr && index > 0; --index) {
        record = next_record(record->order);
    }
    if (record == nullptr) {
        return -1;
    }
    describe(*record, *out);
    return 0;
}

namespace {

// Answers the number of the registration, 0 when there is none after `order`.
uint64_t get_next(uint64_t order, velkor_host_thread &out) {
    const velkor_host::LockGuard guard(table_lock);
    const Record *const record = next_record(order);
    if (record == nullptr) {
        return 0;
    }
    describe(*record, out);
    return record->order;
}

}  // namespace

// From registration to registration, not from index to index: threads come and go while the stream takes its time.
void velkor_host_thread_report(FILE *out) {
    if (out == nullptr) {
        return;
    }
    fprintf(out, "%10s %7s %12s %-7s %s\n", "thread", "number", "seconds", "state", "name");
    struct velkor_host_thread thread;
    for (uint64_t order = get_next(0, thread); order != 0; order = get_next(order, thread)) {
        fprintf(out, "%10ld %7d %12.1f %-7s %s\n", thread.thread, thread.number, thread.seconds,
                thread.running != 0 ? "running" : "ended", thread.name);
    }
}

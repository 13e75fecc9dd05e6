// The log's ring buffer: whole writes from any thread, taken out by one.
//
// The bytes of the writes lie one behind the other without a frame, so that a ring of 512 records holds 512 records.
// How long each write was is kept beside them, because a full ring drops its oldest write as a whole. Equal lengths in
// a row are one run: a log, whose records are all of one size, needs a single entry of the table.
#include <limits.h>
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>

#include <velkor/firmware.h>
#include <velkor_host.h>

#include "lock_guard.h"

namespace {

constexpr size_t CACHE_LINE = 64;
constexpr int DROPS_OLDEST = 1;
constexpr int NOT_MADE = -1;

struct Run {
    unsigned length;  // bytes of one write
    unsigned count;   // writes, never 0
};

// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): the reader has a cache line of its own, see below
struct Ring {
    // Held no longer than a record is copied: who finds it taken looks again for a moment before it sleeps.
    alignas(CACHE_LINE) pthread_mutex_t lock = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
    bool drops_oldest = false;
    char *bytes = nullptr;
    unsigned capacity = 0;
    unsigned oldest = 0;  // where the oldest byte lies
    unsigned used = 0;
    Run *runs = nullptr;
    unsigned run_capacity = 0;
    unsigned oldest_run = 0;
    unsigned run_count = 0;
    unsigned taken = 0;  // what was already read of the oldest write
    uint64_t written = 0;
    uint64_t read = 0;
    uint64_t dropped = 0;
    uint64_t refused = 0;

    // The reader asks without pause: on a line of its own this does not disturb those who lock.
    alignas(CACHE_LINE) std::atomic<int> held{NOT_MADE};
};

constinit Ring rings[VELKOR_HOST_RINGS];
pthread_mutex_t creation_lock = PTHREAD_MUTEX_INITIALIZER;
unsigned ring_count = 0;

// Both indexes are below 2^31, and only one lap is ever made.
unsigned wrap(unsigned index, unsigned capacity) { return index < capacity ? index : index - capacity; }

Ring *find(unsigned number) {
    const unsigned index = number - 1;
    const bool made = index < VELKOR_HOST_RINGS && rings[index].held.load(std::memory_order_acquire) != NOT_MADE;
    return made ? &rings[index] : nullptr;
}

// ---- Under the ring's lock ----

void publish_held(Ring &ring) { ring.held.store(static_cast<int>(ring.used), std::memory_order_release); }

Run &newest_run(const Ring &ring) { return ring.runs[wrap(ring.oldest_run + ring.run_count - 1, ring.run_capacity)]; }

void note_write(Ring &ring, unsigned length) {
    if (ring.run_count > 0 && newest_run(ring).length == length) {
        ++newest_run(ring).count;
        return;
    }
    ++ring.run_count;
    newest_run(ring) = {length, 1};
}

void copy_in(Ring &ring, const char *data, unsigned length) {
    const unsigned begin = wrap(ring.oldest + ring.used, ring.capacity);
    const unsigned before_end = std::min(length, ring.capacity - begin);
    memcpy(ring.bytes + begin, data, before_end);
    memcpy(ring.bytes, data + before_end, length - before_end);
    ring.used += length;
}

void copy_out(const Ring &ring, char *buffer, unsigned length) {
    const unsigned before_end = std::min(length, ring.capacity - ring.oldest);
    memcpy(buffer, ring.bytes + ring.oldest, before_end);
    memcpy(buffer + before_end, ring.bytes, length - before_end);
}

// Bytes from the old end, across as many writes as they make up.
void remove_oldest(Ring &ring, unsigned length) {
    ring.oldest = wrap(ring.oldest + length, ring.capacity);
    ring.used -= length;
    ring.taken += length;
    while (ring.run_count > 0 && ring.taken >= ring.runs[ring.oldest_run].length) {
        Run &run = ring.runs[ring.oldest_run];
        ring.taken -= run.length;
        if (--run.count == 0) {
            ring.oldest_run = wrap(ring.oldest_run + 1, ring.run_capacity);
            --ring.run_count;
        }
    }
}

void drop_oldest_write(Ring &ring) {
    remove_oldest(ring, ring.runs[ring.oldest_run].length - ring.taken);
    ++ring.dropped;
}

bool has_room(const Ring &ring, unsigned length) {
    const bool has_run = ring.run_count < ring.run_capacity || newest_run(ring).length == length;
    return has_run && length <= ring.capacity - ring.used;
}

// An empty ring has room for all that is not longer than itself, so the dropping ends.
bool make_room(Ring &ring, unsigned length) {
    if (length > ring.capacity) {
        return false;
    }
    while (ring.drops_oldest && !has_room(ring, length)) {
        drop_oldest_write(ring);
    }
    return has_room(ring, length);
}

}  // namespace

unsigned ringbuf_Create(unsigned size, int mode) {
    if (size == 0 || size > INT_MAX) {
        return 0;
    }
    const velkor_host::LockGuard guard(creation_lock);
    if (ring_count == VELKOR_HOST_RINGS) {
        return 0;
    }
    Ring &ring = rings[ring_count];
    ring.capacity = size;
    ring.run_capacity = std::min<unsigned>(size, VELKOR_HOST_RING_RUNS);
    ring.drops_oldest = mode == DROPS_OLDEST;
    ring.bytes = static_cast<char *>(malloc(size));
    ring.runs = static_cast<Run *>(malloc(ring.run_capacity * sizeof(Run)));
    if (ring.bytes == nullptr || ring.runs == nullptr) {
        free(ring.bytes);
        free(ring.runs);
        return 0;
    }
    publish_held(ring);
    return ++ring_count;
}

int ringbuf_Write(unsigned length, const void *data, unsigned ring) {
    Ring *const target = find(ring);
    if (target == nullptr || data == nullptr || length == 0) {
        return -1;
    }
    const velkor_host::LockGuard guard(target->lock);
    if (!make_room(*target, length)) {
        ++target->refused;
        return -1;
    }
    copy_in(*target, static_cast<const char *>(data), length);
    note_write(*target, length);
    ++target->written;
    publish_held(*target);
    return static_cast<int>(length);
}

int ringbuf_Read(unsigned length, void *buffer, unsigned ring) {
    Ring *const source = find(ring);
    if (source == nullptr || buffer == nullptr || length == 0) {
        return -1;
    }
    const velkor_host::LockGuard guard(source->lock);
    if (length > source->used) {
        return -1;
    }
    copy_out(*source, static_cast<char *>(buffer), length);
    remove_oldest(*source, length);
    ++source->read;
    publish_held(*source);
    return static_cast<int>(length);
}

int ringbuf_DataSize(unsigned ring) {
    const unsigned index = ring - 1;
    return index < VELKOR_HOST_RINGS ? rings[index].held.load(std::memory_order_acquire) : NOT_MADE;
}

int velkor_host_ring_get(unsigned ring, struct velkor_host_ring *out) {
    Ring *const shown = find(ring);
    if (shown == nullptr || out == nullptr) {
        return -1;
    }
    const velkor_host::LockGuard guard(shown->lock);
    *out = {shown->capacity, shown->used, shown->written, shown->read, shown->dropped, shown->refused};
    return 0;
}

// ---- A fork -------------------------------------------------------------------------------------------------------

namespace {

// A child that was copied in the middle of a write would log from a torn ring. The fork waits for the writes under way
// instead, each no longer than the copying of a record.
void hold_all() {
    pthread_mutex_lock(&creation_lock);
    for (unsigned index = 0; index < ring_count; ++index) {
        pthread_mutex_lock(&rings[index].lock);
    }
}

void release_all() {
    for (unsigned index = ring_count; index > 0; --index) {
        pthread_mutex_unlock(&rings[index - 1].lock);
    }
    pthread_mutex_unlock(&creation_lock);
}

__attribute__((constructor)) void survive_fork() { pthread_atfork(hold_all, release_all, release_all); }

}  // namespace

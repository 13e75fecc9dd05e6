// Pools of memory by name, over malloc(): every block is a block of the C library's with a small header, so that the
// tools that watch malloc() watch the recorder's memory too.
//
// Two promises shape this file. A pointer that is not a live block is recognised without a look at what it points to.
// And the service costs a few nanoseconds more than malloc() alone: no lock, one atomic step for the accounts.
#include <inttypes.h>
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>

#include <velkor/firmware.h>
#include <velkor_host.h>

#include "lock_guard.h"

namespace {

// While the process has one thread, an atomic step need not be atomic. The C library knows, and saves itself the same.
bool is_single_threaded() {
#if __has_include(<sys/single_threaded.h>)
    return __libc_single_threaded != 0;
#else
    return false;
#endif
}

template <typename Word>
bool replace(std::atomic<Word> &word, Word &seen, Word wanted) {
    if (is_single_threaded()) {
        word.store(wanted, std::memory_order_relaxed);
        return true;
    }
    return word.compare_exchange_weak(seen, wanted, std::memory_order_relaxed);
}

}  // namespace

// ---- Which blocks are live ----------------------------------------------------------------------------------------
//
// One byte for every address at which malloc() may begin a block, in a tree whose tables are made when an address
// below them is first used and never released. Setting a byte needs no atomic step, since nobody else has the block
// yet. Clearing does: of two threads that free the same block, one wins and the other is told.

namespace {

constexpr size_t GRANULE = alignof(max_align_t);
constexpr unsigned ADDRESS_BITS = sizeof(void *) == 8 ? 48 : 32;
constexpr unsigned LEAF_BITS = 16;
constexpr unsigned ROOT_BITS = sizeof(void *) == 8 ? 15 : 0;
constexpr unsigned MIDDLE_BITS = ADDRESS_BITS - std::bit_width(GRANULE - 1) - LEAF_BITS - ROOT_BITS;

struct Leaf {
    std::atomic<unsigned char> live[size_t{1} << LEAF_BITS];
};

struct Middle {
    std::atomic<Leaf *> leaves[size_t{1} << MIDDLE_BITS];
};

std::atomic<Middle *> root[size_t{1} << ROOT_BITS];

// Where the byte of an address is in the tree.
struct Place {
    explicit Place(const void *address) {
        const uint64_t granule = reinterpret_cast<uintptr_t>(address) / GRANULE;
        leaf = granule % (size_t{1} << LEAF_BITS);
        middle = (granule >> LEAF_BITS) % (size_t{1} << MIDDLE_BITS);
        root = static_cast<size_t>(granule >> (LEAF_BITS + MIDDLE_BITS));
    }
    bool exists() const { return root < size_t{1} << ROOT_BITS; }

    size_t root;
    size_t middle;
    size_t leaf;
};

// Straight from the kernel: cleared, and only the pages that are used cost memory.
template <typename Table>
Table *make_table(std::atomic<Table *> &slot) {
    void *const memory = mmap(nullptr, sizeof(Table), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        return nullptr;
    }
    Table *const made = static_cast<Table *>(memory);
    Table *others = nullptr;
    if (!slot.compare_exchange_strong(others, made, std::memory_order_acq_rel, std::memory_order_acquire)) {
        munmap(memory, sizeof(Table));
        return others;
    }
    return made;
}

template <typename Table>
Table *get_table(std::atomic<Table *> &slot) {
    Table *const table = slot.load(std::memory_order_acquire);
    return table != nullptr ? table : make_table(slot);
}

// Answers whether there was memory for it.
bool mark_live(const void *block) {
    const Place place(block);
    Middle *const middle = place.exists() ? get_table(root[place.root]) : nullptr;
    Leaf *const leaf = middle != nullptr ? get_table(middle->leaves[place.middle]) : nullptr;
    if (leaf == nullptr) {
        return false;
    }
    leaf->live[place.leaf].store(1, std::memory_order_release);
    return true;
}

// Answers whether it was a live block. It is the caller's alone then.
bool claim(const void *block) {
    const Place place(block);
    if (reinterpret_cast<uintptr_t>(block) % GRANULE != 0 || !place.exists()) {
        return false;
    }
    Middle *const middle = root[place.root].load(std::memory_order_acquire);
    Leaf *const leaf = middle != nullptr ? middle->leaves[place.middle].load(std::memory_order_acquire) : nullptr;
    if (leaf == nullptr) {
        return false;
    }
    std::atomic<unsigned char> &live = leaf->live[place.leaf];
    if (is_single_threaded()) {
        const bool was_live = live.load(std::memory_order_relaxed) != 0;
        live.store(0, std::memory_order_relaxed);
        return was_live;
    }
    return live.exchange(0, std::memory_order_acq_rel) != 0;
}

}  // namespace

// ---- Pools and their accounts -------------------------------------------------------------------------------------

namespace {

// Bytes and blocks in use share a word, so that both change in one step: 256 GiB in 67 million blocks.
constexpr unsigned BYTES_BITS = 38;
constexpr uint64_t ONE_BLOCK = uint64_t{1} << BYTES_BITS;
constexpr uint64_t MOST_BYTES = ONE_BLOCK - 1;
constexpr uint64_t MOST_BLOCKS = UINT64_MAX / ONE_BLOCK;

constexpr uint64_t bytes_of(uint64_t in_use) { return in_use % ONE_BLOCK; }
constexpr uint64_t blocks_of(uint64_t in_use) { return in_use / ONE_BLOCK; }
constexpr uint64_t one_block_of(size_t size) { return ONE_BLOCK + size; }

struct Pool {
    alignas(64) std::atomic<uint64_t> in_use;
    std::atomic<uint64_t> peak_bytes;
    std::atomic<uint64_t> failures;
    uint64_t limit;  // 0: none
    char name[VELKOR_HOST_NAME_SIZE];
};

struct alignas(GRANULE) Header {
    size_t size;
    Pool *pool;
};
static_assert(sizeof(Header) % GRANULE == 0, "a block begins where malloc() could begin one");

constexpr size_t MOST_SIZE = std::min<uint64_t>(PTRDIFF_MAX - sizeof(Header), MOST_BYTES);

Pool pools[VELKOR_HOST_POOLS];
std::atomic<unsigned> pool_count{0};
pthread_mutex_t opening_lock = PTHREAD_MUTEX_INITIALIZER;

thread_local int last_error = VELKOR_HOST_MEMORY_OK;

Pool *find_pool(unsigned handle) {
    return handle < pool_count.load(std::memory_order_acquire) ? &pools[handle] : nullptr;
}

std::nullptr_t fail(velkor_host_memory_error error) {
    last_error = error;
    return nullptr;
}

std::nullptr_t fail(Pool &pool, velkor_host_memory_error error) {
    pool.failures.fetch_add(1, std::memory_order_relaxed);
    return fail(error);
}

// Charge a block of `size` bytes while `given_back` is given back, in one step. A block is charged before the system
// is asked for it, so a limit is never passed, not even for a moment; `in_use` is what is in use with it.
velkor_host_memory_error charge(Pool &pool, size_t size, uint64_t given_back, uint64_t &in_use) {
    if (size > MOST_SIZE) {
        return VELKOR_HOST_MEMORY_EXHAUSTED;
    }
    uint64_t before = pool.in_use.load(std::memory_order_relaxed);
    do {
        const uint64_t others = before - given_back;
        const uint64_t bytes = bytes_of(others) + size;
        if (pool.limit != 0 && bytes > pool.limit) {
            return VELKOR_HOST_MEMORY_LIMIT;
        }
        if (bytes > MOST_BYTES || blocks_of(others) == MOST_BLOCKS) {
            return VELKOR_HOST_MEMORY_EXHAUSTED;
        }
        in_use = others + one_block_of(size);
    } while (!replace(pool.in_use, before, in_use));
    return VELKOR_HOST_MEMORY_OK;
}

void discharge(Pool &pool, uint64_t given_back) {
    if (is_single_threaded()) {
        const uint64_t before = pool.in_use.load(std::memory_order_relaxed);
        pool.in_use.store(before - given_back, std::memory_order_relaxed);
    } else {
        pool.in_use.fetch_sub(given_back, std::memory_order_relaxed);
    }
}

void note_peak(Pool &pool, uint64_t in_use) {
    const uint64_t bytes = bytes_of(in_use);
    uint64_t peak = pool.peak_bytes.load(std::memory_order_relaxed);
    while (bytes > peak && !replace(pool.peak_bytes, peak, bytes)) {
    }
}

// ---- Opening ----

int open_pool(const char *name, unsigned limit_kib) {
    const velkor_host::LockGuard guard(opening_lock);
    const unsigned count = pool_count.load(std::memory_order_relaxed);
    for (unsigned handle = 0; handle < count; ++handle) {
        if (strncmp(pools[handle].name, name, sizeof pools[handle].name - 1) == 0) {
            return static_cast<int>(handle);
        }
    }
    if (count == VELKOR_HOST_POOLS) {
        fail(VELKOR_HOST_MEMORY_TOO_MANY);
        return -1;
    }
    snprintf(pools[count].name, sizeof pools[count].name, "%s", name);
    pools[count].limit = uint64_t{limit_kib} * 1024;
    pool_count.store(count + 1, std::memory_order_release);
    return static_cast<int>(count);
}

__attribute__((constructor)) void survive_fork() {
    pthread_atfork([] { pthread_mutex_lock(&opening_lock); }, [] { pthread_mutex_unlock(&opening_lock); },
                   [] { pthread_mutex_unlock(&opening_lock); });
}

}  // namespace

int VkMem_Open(const char *name, [[maybe_unused]] int zero, unsigned parameter) {
    if (name == nullptr || *name == '\0') {
        fail(VELKOR_HOST_MEMORY_BAD_NAME);
        return -1;
    }
    return open_pool(name, parameter);
}

// ---- Blocks -------------------------------------------------------------------------------------------------------

namespace {

Header *header_of(void *block) { return static_cast<Header *>(block) - 1; }

// From the C library's memory to a block; nullptr when it could not be told from a stranger's later.
void *begin_life(Header *header, Pool &pool, size_t size) {
    header->size = size;
    header->pool = &pool;
    void *const block = header + 1;
    return mark_live(block) ? block : nullptr;
}

// A block of no bytes has one, which is on nobody's account: who releases it may clear its first byte.
constexpr size_t room_for(size_t size) { return std::max<size_t>(size, 1); }

// `get_memory` is malloc(), or calloc() for one element.
template <typename GetMemory>
void *allocate(Pool &pool, size_t size, GetMemory get_memory) {
    uint64_t in_use;
    const velkor_host_memory_error error = charge(pool, size, 0, in_use);
    if (error != VELKOR_HOST_MEMORY_OK) {
        return fail(pool, error);
    }
    Header *const header = static_cast<Header *>(get_memory(sizeof(Header) + room_for(size)));
    void *const block = header != nullptr ? begin_life(header, pool, size) : nullptr;
    if (block == nullptr) {
        free(header);
        discharge(pool, one_block_of(size));
        return fail(pool, VELKOR_HOST_MEMORY_EXHAUSTED);
    }
    note_peak(pool, in_use);
    return block;
}

void *allocate(Pool &pool, size_t size) {
    return allocate(pool, size, [](size_t whole) { return malloc(whole); });
}

void release_claimed(void *block) {
    Header *const header = header_of(block);
    discharge(*header->pool, one_block_of(header->size));
    free(header);
}

// The block is claimed: until it is live again, nobody can free it from under realloc().
void *resize_claimed(Pool &pool, void *block, size_t size) {
    const Header before = *header_of(block);
    const uint64_t old_charge = one_block_of(before.size);
    const uint64_t given_back = before.pool == &pool ? old_charge : 0;
    uint64_t in_use;
    const velkor_host_memory_error error = charge(pool, size, given_back, in_use);
    if (error != VELKOR_HOST_MEMORY_OK) {
        mark_live(block);
        return fail(pool, error);
    }
    Header *const header = static_cast<Header *>(realloc(header_of(block), sizeof(Header) + size));
    if (header == nullptr) {
        discharge(pool, one_block_of(size) - given_back);
        mark_live(block);
        return fail(pool, VELKOR_HOST_MEMORY_EXHAUSTED);
    }
    if (before.pool != &pool) {
        discharge(*before.pool, old_charge);
    }
    note_peak(pool, in_use);
    // If the last page of the system was needed for the block itself, and none is left to mark it, the caller keeps
    // its contents all the same; the block can no longer be freed then.
    begin_life(header, pool, size);
    return header + 1;
}

}  // namespace

void *VkMem_Alloc(unsigned short pool, size_t size) {
    Pool *const charged = find_pool(pool);
    return charged != nullptr ? allocate(*charged, size) : fail(VELKOR_HOST_MEMORY_NO_POOL);
}

void *VkMem_Calloc(unsigned short pool, size_t count, size_t size) {
    Pool *const charged = find_pool(pool);
    if (charged == nullptr) {
        return fail(VELKOR_HOST_MEMORY_NO_POOL);
    }
    size_t total;
    if (__builtin_mul_overflow(count, size, &total)) {
        return fail(*charged, VELKOR_HOST_MEMORY_EXHAUSTED);
    }
    return allocate(*charged, total, [](size_t whole) { return calloc(1, whole); });
}

// NULL allocates, size 0 releases and answers NULL: as realloc() does.
void *VkMem_Realloc(unsigned short pool, void *block, size_t size) {
    Pool *const charged = find_pool(pool);
    if (charged == nullptr) {
        return fail(VELKOR_HOST_MEMORY_NO_POOL);
    }
    if (block == nullptr) {
        return allocate(*charged, size);
    }
    if (!claim(block)) {
        return fail(*charged, VELKOR_HOST_MEMORY_NO_BLOCK);
    }
    if (size == 0) {
        release_claimed(block);
        return nullptr;
    }
    return resize_claimed(*charged, block, size);
}

char *VkMem_Dup(unsigned short pool, const char *text) {
    Pool *const charged = find_pool(pool);
    if (charged == nullptr) {
        return fail(VELKOR_HOST_MEMORY_NO_POOL);
    }
    if (text == nullptr) {
        return fail(*charged, VELKOR_HOST_MEMORY_NO_TEXT);
    }
    const size_t size = strlen(text) + 1;
    char *const copy = static_cast<char *>(allocate(*charged, size));
    if (copy != nullptr) {
        memcpy(copy, text, size);
    }
    return copy;
}

int VkMem_Free(void *block) {
    if (!claim(block)) {
        fail(VELKOR_HOST_MEMORY_NO_BLOCK);
        return -1;
    }
    release_claimed(block);
    return 0;
}

int VkMem_Error() { return last_error; }

void *VkMem_Copy(void *to, const void *from, size_t size) { return size != 0 ? memcpy(to, from, size) : to; }

// ---- Blocks outside the pools -------------------------------------------------------------------------------------

void *vkmem_GlobalAlloc(size_t size, [[maybe_unused]] const char *file, [[maybe_unused]] int line) {
    static std::atomic<int> global_pool{-1};
    int handle = global_pool.load(std::memory_order_acquire);
    if (handle < 0) {
        handle = open_pool("global", 0);
        if (handle < 0) {
            return nullptr;
        }
        global_pool.store(handle, std::memory_order_release);
    }
    return allocate(pools[handle], size);
}

void vkmem_GlobalFree(void *block) {
    if (claim(block)) {
        release_claimed(block);
    }
}

// ---- The accounts, to look at -------------------------------------------------------------------------------------

int velkor_host_pool_get(unsigned pool, struct velkor_host_pool *out) {
    const Pool *const shown = find_pool(pool);
    if (shown == nullptr || out == nullptr) {
        return -1;
    }
    memcpy(out->name, shown->name, sizeof out->name);
    const uint64_t in_use = shown->in_use.load(std::memory_order_relaxed);
    out->limit = shown->limit;
    out->bytes = bytes_of(in_use);
    out->blocks = blocks_of(in_use);
    // A block may be charged whose peak is not noted yet.
    out->peak_bytes = std::max(out->bytes, shown->peak_bytes.load(std::memory_order_relaxed));
    out->failures = shown->failures.load(std::memory_order_relaxed);
    return 0;
}

void velkor_host_pool_report(FILE *out) {
    if (out == nullptr) {
        return;
    }
    fprintf(out, "%4s %10s %13s %13s %13s %10s %s\n", "pool", "blocks", "bytes", "peak", "limit", "failures", "name");
    struct velkor_host_pool pool;
    for (unsigned handle = 0; velkor_host_pool_get(handle, &pool) == 0; ++handle) {
        char limit[24] = "none";
        if (pool.limit != 0) {
            snprintf(limit, sizeof limit, "%" PRIu64, pool.limit);
        }
        fprintf(out, "%4u %10" PRIu64 " %13" PRIu64 " %13" PRIu64 " %13s %10" PRIu64 " %s\n", handle, pool.blocks,
                pool.bytes, pool.peak_bytes, limit, pool.failures, pool.name);
    }
}

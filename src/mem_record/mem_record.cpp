// The tracked allocator: each block is charged to the memory pool of the module whose source file asked for it.
//
// The registry of modules is read and changed under one lock. The memory service opens a pool under that lock, so
// that no pool is opened twice, and is asked for blocks outside it. Most allocations never come as far as the lock:
// they are made by source files whose pool is remembered.
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <optional>
#include <string_view>

#include <velkor/allocation.h>
#include <velkor/firmware.h>
#include <velkor/text.h>

#include "mem_record/modules.h"
#include "support/lock_guard.h"
#include "support/log.h"
#include "support/platform.h"
#include "support/quick_hash.h"
#include "support/released_block.h"

// ---- The registry -------------------------------------------------------------------------------------------------

namespace {

constexpr int32_t CAPACITY = 255;
constexpr int32_t NOT_OPEN = -1;
constexpr int NAME_LENGTH = 255;

struct PoolRecord {
    int32_t handle;  // negative: not open, or the last try to open it failed
    uint32_t parameter;
    char name[NAME_LENGTH + 1];
};
static_assert(sizeof(PoolRecord) == 264);

constexpr PoolRecord unopened(std::string_view name) {
    PoolRecord record = {NOT_OPEN, 0, {}};
    std::copy(name.begin(), name.end(), record.name);
    return record;
}

constexpr std::array<PoolRecord, CAPACITY> recorders_modules() {
    std::array<PoolRecord, CAPACITY> records = {};
    records.fill(unopened(""));
    std::transform(velkor::MODULE_NAMES.begin(), velkor::MODULE_NAMES.end(), records.begin(),
                   [](std::string_view name) { return unopened(name); });
    return records;
}

pthread_mutex_t registry_lock = PTHREAD_MUTEX_INITIALIZER;
constinit std::array<PoolRecord, CAPACITY> modules = recorders_modules();
constinit PoolRecord general = unopened("generalDvr");

// Changed under the lock, and looked at without it.
constinit std::atomic<int32_t> module_count{velkor::MODULE_NAMES.size()};

PoolRecord *find_module(const char *file) {
    const auto end = modules.begin() + module_count.load(std::memory_order_relaxed);
    const auto found = std::find_if(modules.begin(), end,
                                    [file](const PoolRecord &record) { return strstr(file, record.name) != nullptr; });
    return found != end ? &*found : nullptr;
}

// A pool that could not be opened is tried again by the next allocation.
bool open_once(PoolRecord &pool, int number) {
    if (pool.handle >= 0) {
        return true;
    }
    pool.handle = VkMem_Open(pool.name, 0, pool.parameter);
    if (pool.handle < 0) {
        VK_LOG("%s %d err code = %d", "dvrGetMemHd", number, VkMem_Error());
    }
    return pool.handle >= 0;
}

}  // namespace

// ---- Source files seen before -------------------------------------------------------------------------------------
//
// Searching a path for up to 255 names takes microseconds, so the pool of a path is remembered with the path's text.
// Modules are only ever added behind the others: the module of a path never changes, and a path without one can only
// get one by a later registration. A path is remembered once its pool is open, and for good; those that are too long,
// or too many, are searched for each time.
//
// Readers take no lock. A path's text and its place do not change once they can be seen.

namespace {

// The low half is the pool, as the memory service's calls take it. The high half is the number of modules with which
// this holds, or ANY_COUNT.
using Charge = uint32_t;
using Pool = unsigned short;
constexpr Charge ANY_COUNT = 0xFFFF;

constexpr Pool low_half(int32_t handle) { return static_cast<Pool>(handle & 0xFFFF); }

Charge charge_to_module(int32_t handle) { return ANY_COUNT << 16 | low_half(handle); }

Charge charge_to_general(int32_t handle) {
    return static_cast<Charge>(module_count.load(std::memory_order_relaxed)) << 16 | low_half(handle);
}

bool still_holds(Charge charge) {
    const Charge count = charge >> 16;
    return count == ANY_COUNT || count == static_cast<Charge>(module_count.load(std::memory_order_relaxed));
}

struct alignas(64) SeenFile {
    std::atomic<Charge> charge;
    char path[124];
};
static_assert(sizeof(SeenFile) == 128);

constexpr size_t SEEN_FILES = 512;
constexpr int SLOT_BITS = 10;
constexpr size_t SLOTS = size_t{1} << SLOT_BITS;
static_assert(SEEN_FILES < SLOTS);  // a search by path always ends at an empty slot

using Slot = std::atomic<SeenFile *>;
constinit std::array<SeenFile, SEEN_FILES> seen_files = {};
constinit std::array<Slot, SLOTS> by_path = {};
constinit std::array<Slot, SLOTS> by_address = {};
size_t seen_count = 0;  // under the registry's lock

constexpr size_t slot_number(uintptr_t hash) { return hash >> (std::numeric_limits<uintptr_t>::digits - SLOT_BITS); }

// The slot that holds a path, or the empty one where it belongs; NULL for a path that is too long to be remembered.
Slot *slot_of_path(const char *path) {
    const size_t length = strnlen(path, sizeof SeenFile::path);
    if (length == sizeof SeenFile::path) {
        return nullptr;
    }
    for (size_t number = slot_number(velkor::quick_hash({path, length}));; number = (number + 1) % SLOTS) {
        const SeenFile *const file = by_path[number].load(std::memory_order_acquire);
        if (file == nullptr || strcmp(file->path, path) == 0) {
            return &by_path[number];
        }
    }
}

SeenFile *find_by_path(const char *path) {
    const Slot *const slot = slot_of_path(path);
    return slot != nullptr ? slot->load(std::memory_order_acquire) : nullptr;
}

// A caller's __FILE__ stays where it is, so its address says where to look; the text says whether it is still that.
SeenFile *find_seen(const char *path) {
    Slot &slot = by_address[slot_number(velkor::stir(0, reinterpret_cast<uintptr_t>(path)))];
    SeenFile *file = slot.load(std::memory_order_acquire);
    if (file != nullptr && strcmp(file->path, path) == 0) {
        return file;
    }
    file = find_by_path(path);
    if (file != nullptr) {
        slot.store(file, std::memory_order_release);
    }
    return file;
}

std::optional<Pool> remembered_pool(const char *path) {
    const SeenFile *const file = find_seen(path);
    if (file == nullptr) {
        return std::nullopt;
    }
    const Charge charge = file->charge.load(std::memory_order_relaxed);
    return still_holds(charge) ? std::optional(static_cast<Pool>(charge & 0xFFFF)) : std::nullopt;
}

// Under the registry's lock. The record is taken before it is filled, so that a child forked in between never fills
// it again while readers see it.
void remember(const char *path, Charge charge) {
    Slot *const slot = slot_of_path(path);
    if (slot == nullptr) {
        return;
    }
    SeenFile *const known = slot->load(std::memory_order_relaxed);
    if (known != nullptr) {
        known->charge.store(charge, std::memory_order_relaxed);
    } else if (seen_count < SEEN_FILES) {
        SeenFile &file = seen_files[seen_count++];
        strncopy(file.path, path, sizeof file.path - 1);
        file.charge.store(charge, std::memory_order_relaxed);
        slot->store(&file, std::memory_order_release);
    }
}

}  // namespace

// ---- The pool of a source file ------------------------------------------------------------------------------------

int dvrRegMem(const char *name, unsigned parameter) {
    const velkor::LockGuard guard(registry_lock);
    const int32_t count = module_count.load(std::memory_order_relaxed);
    if (name == nullptr || count >= CAPACITY) {
        return -1;
    }
    PoolRecord &record = modules[static_cast<size_t>(count)];
    strncopy(record.name, name, NAME_LENGTH);
    record.parameter = parameter;
    module_count.store(count + 1, std::memory_order_relaxed);
    return 0;
}

namespace {

int32_t dvrGetMemHd(const char *file) {
    const velkor::LockGuard guard(registry_lock);
    if (file == nullptr) {
        return -1;
    }
    if (PoolRecord *const found = find_module(file)) {
        if (!open_once(*found, 91)) {
            return -1;
        }
        remember(file, charge_to_module(found->handle));
        return found->handle;
    }
    if (!open_once(general, 112)) {
        return -1;
    }
    remember(file, charge_to_general(general.handle));
    return general.handle;
}

std::optional<Pool> pool_of(const char *file) {
    if (file != nullptr) {
        if (const std::optional<Pool> pool = remembered_pool(file)) {
            return pool;
        }
    }
    const int32_t handle = dvrGetMemHd(file);
    return handle >= 0 ? std::optional(low_half(handle)) : std::nullopt;
}

// The child has one thread. What the others were in the middle of was not to be seen yet, and can be done again.
__attribute__((constructor)) void survive_fork() {
    velkor::when_forked([] { registry_lock = PTHREAD_MUTEX_INITIALIZER; });
}

}  // namespace

// ---- Blocks -------------------------------------------------------------------------------------------------------

namespace {

// Where a call was made, and under which name and number the library reports that it failed.
struct Call {
    const char *function;
    int number;
    const char *file;
    int line;
};

template <typename Service>
auto allocate(const Call &call, Service service) -> decltype(service(Pool{})) {
    const std::optional<Pool> pool = pool_of(call.file);
    if (!pool) {
        return nullptr;
    }
    auto *const block = service(*pool);
    if (block == nullptr) {
        VK_LOG("%s %d fname:%s, line=%d, err code = %d", call.function, call.number, call.file, call.line,
               VkMem_Error());
    }
    return block;
}

}  // namespace

void *dvrMalloc(size_t size, const char *file, int line) {
    return allocate({"dvrMalloc", 172, file, line}, [=](Pool pool) { return VkMem_Alloc(pool, size); });
}

void *dvrRealloc(void *ptr, size_t size, const char *file, int line) {
    return allocate({"dvrRealloc", 195, file, line}, [=](Pool pool) { return VkMem_Realloc(pool, ptr, size); });
}

void *dvrCalloc(size_t count, size_t size, const char *file, int line) {
    return allocate({"dvrCalloc", 222, file, line}, [=](Pool pool) { return VkMem_Calloc(pool, count, size); });
}

char *dvrStrdup(const char *text, const char *file, int line) {
    return allocate({"dvrStrdup", 264, file, line}, [=](Pool pool) { return VkMem_Dup(pool, text); });
}

int dvrFree(void *ptr) {
    const int result = velkor::release_block(ptr);
    return result >= 0 ? result : velkor::report_refused_block(ptr);
}

void *dvrMalloc_libc(size_t size) { return malloc(size); }

void dvrFree_libc(void *ptr) { free(ptr); }

int debug_memrecord_enable() {
    struct stat status;
    stat("/dvrfile/memrecord", &status);
    return 0;
}

/*
 * A board's own memory service: the functions below "Memory service" in velkor/firmware.h, brought by the program
 * itself.
 *
 * All memory is one region that is set aside when the program is linked, so that what the recorder's modules use is
 * known before it starts, and no module can take what another one needs: a pool that was registered with a number is
 * limited to that many KiB.
 *
 * A block is a header and the caller's bytes behind it, and the region is a row of blocks from its first byte to its
 * last. Looking for room walks that row. That is quick enough for some hundred blocks; a board with more keeps lists of
 * the free ones.
 */
#include "memory_service.h"

#include <pthread.h>
#include <stdbool.h>
#include <stdint.h>
#include <string.h>
#include <velkor/firmware.h>

/* As large as the strictest alignment, so that what follows a header may hold anything. */
typedef union header {
    struct {
        size_t units; /* of the whole block, counted in headers */
        size_t bytes; /* what the caller asked for */
        int pool;     /* FREE, or who is charged */
    } is;
    long double strictest;
} header;

typedef struct pool {
    char name[64];
    size_t limit; /* bytes, 0 = none */
    size_t used;
} pool;

enum { FREE = -1, POOLS = 64, REGION_UNITS = 1024 * 1024 / (int)sizeof(header) };

enum error { NO_ERROR, TOO_MANY_POOLS, NO_SUCH_POOL, POOL_IS_FULL, NO_ROOM, NO_BLOCK, NO_TEXT };

static header region[REGION_UNITS];
static pool pools[POOLS];
static int pool_count;
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static __thread int last_error;

static void *refuse(enum error error) {
    last_error = (int)error;
    return NULL;
}

/* ---- The row of blocks. All with the lock held. ---- */

static header *first_block(void) {
    if (region[0].is.units == 0) {
        region[0].is.units = REGION_UNITS;
        region[0].is.pool = FREE;
    }
    return region;
}

static header *next_block(const header *block) {
    header *const next = region + (block - region) + block->is.units;
    return next < region + REGION_UNITS ? next : NULL;
}

static void join_with_free_neighbours(header *block) {
    for (header *next = next_block(block); next != NULL && next->is.pool == FREE; next = next_block(block)) {
        block->is.units += next->is.units;
    }
}

static header *find_room(size_t units) {
    for (header *block = first_block(); block != NULL; block = next_block(block)) {
        if (block->is.pool == FREE) {
            join_with_free_neighbours(block);
            if (block->is.units >= units) {
                return block;
            }
        }
    }
    return NULL;
}

/* What is left behind the block becomes a free one. */
static void cut(header *block, size_t units) {
    if (block->is.units > units) {
        block[units].is.units = block->is.units - units;
        block[units].is.pool = FREE;
        block->is.units = units;
    }
}

/* The block of a caller's pointer. Nothing behind the pointer is looked at before it is known to be one of ours: it may
 * be NULL, another service's, or released before. */
static header *block_of(const void *memory) {
    for (header *block = first_block(); block != NULL; block = next_block(block)) {
        if (block + 1 == memory) {
            return block->is.pool == FREE ? NULL : block;
        }
    }
    return NULL;
}

static void *take(int number, size_t bytes) {
    pool *const charged = &pools[number];
    if (charged->limit != 0 && (bytes > charged->limit || charged->used > charged->limit - bytes)) {
        return refuse(POOL_IS_FULL);
    }
    if (bytes > sizeof region - sizeof(header)) {
        return refuse(NO_ROOM);
    }
    const size_t room = bytes == 0 ? 1 : bytes; /* dvrFree() clears the first byte of any block */
    const size_t units = 1 + (room + sizeof(header) - 1) / sizeof(header);
    header *const block = find_room(units);
    if (block == NULL) {
        return refuse(NO_ROOM);
    }
    cut(block, units);
    block->is.pool = number;
    block->is.bytes = bytes;
    charged->used += bytes;
    return block + 1;
}

static void give_back(header *block) {
    pools[block->is.pool].used -= block->is.bytes;
    block->is.pool = FREE;
}

/* ---- Pools ---- */

static int find_pool(const char *name) {
    for (int number = 0; number < pool_count; ++number) {
        if (strncmp(pools[number].name, name, sizeof pools[number].name - 1) == 0) {
            return number;
        }
    }
    return -1;
}

static int open_pool(const char *name, size_t limit) {
    const int known = find_pool(name);
    if (known >= 0 || pool_count == POOLS) {
        last_error = known >= 0 ? NO_ERROR : TOO_MANY_POOLS;
        return known;
    }
    strncpy(pools[pool_count].name, name, sizeof pools[pool_count].name - 1);
    pools[pool_count].limit = limit;
    return pool_count++;
}

/* ---- What libvelkor calls ---- */

int VkMem_Open(const char *name, int zero, unsigned parameter) {
    (void)zero;
    pthread_mutex_lock(&lock);
    const int number = open_pool(name, (size_t)parameter * 1024);
    pthread_mutex_unlock(&lock);
    return number;
}

void *VkMem_Alloc(unsigned short number, size_t size) {
    pthread_mutex_lock(&lock);
    void *const memory = number < pool_count ? take(number, size) : refuse(NO_SUCH_POOL);
    pthread_mutex_unlock(&lock);
    return memory;
}

void *VkMem_Calloc(unsigned short number, size_t count, size_t size) {
    if (size != 0 && count > SIZE_MAX / size) {
        return refuse(NO_ROOM);
    }
    void *const memory = VkMem_Alloc(number, count * size);
    return memory == NULL ? NULL : memset(memory, 0, count * size);
}

void *VkMem_Realloc(unsigned short number, void *block, size_t size) {
    if (block == NULL) {
        return VkMem_Alloc(number, size);
    }
    pthread_mutex_lock(&lock);
    header *const former = block_of(block);
    void *const memory = former == NULL        ? refuse(NO_BLOCK)
                         : number < pool_count ? take(number, size)
                                               : refuse(NO_SUCH_POOL);
    if (memory != NULL) {
        memcpy(memory, block, former->is.bytes < size ? former->is.bytes : size);
        give_back(former);
    }
    pthread_mutex_unlock(&lock);
    return memory;
}

char *VkMem_Dup(unsigned short number, const char *text) {
    if (text == NULL) {
        return refuse(NO_TEXT);
    }
    const size_t size = strlen(text) + 1;
    char *const copy = VkMem_Alloc(number, size);
    return copy == NULL ? NULL : memcpy(copy, text, size);
}

int VkMem_Free(void *memory) {
    pthread_mutex_lock(&lock);
    header *const block = block_of(memory);
    if (block != NULL) {
        give_back(block);
    } else {
        last_error = NO_BLOCK;
    }
    pthread_mutex_unlock(&lock);
    return block != NULL ? 0 : -1;
}

int VkMem_Error(void) { return last_error; }

void *VkMem_Copy(void *to, const void *from, size_t size) { return memcpy(to, from, size); }

void *vkmem_GlobalAlloc(size_t size, const char *file, int line) {
    (void)file;
    (void)line;
    const int number = VkMem_Open("global", 0, 0);
    return number < 0 ? NULL : VkMem_Alloc((unsigned short)number, size);
}

void vkmem_GlobalFree(void *block) { VkMem_Free(block); }

/* ---- Around it ---- */

void board_memory_report(FILE *out) {
    pthread_mutex_lock(&lock);
    for (int number = 0; number < pool_count; ++number) {
        fprintf(out, "%s: %zu bytes in use, limit %zu\n", pools[number].name, pools[number].used, pools[number].limit);
    }
    pthread_mutex_unlock(&lock);
}

/* libvelkor's allocation is usable in a forked child, so the service must be: no thread that is not in the child may
 * have left the lock taken, or a block half made. */
static void before_fork(void) { pthread_mutex_lock(&lock); }
static void after_fork(void) { pthread_mutex_unlock(&lock); }

__attribute__((constructor)) static void survive_fork(void) { pthread_atfork(before_fork, after_fork, after_fork); }

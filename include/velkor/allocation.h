/**
 * @file allocation.h
 * Tracked allocation: every block is charged to the memory pool of the module that asked for it.
 *
 * The module is found by the caller's source file name: the first registered module name that occurs anywhere
 * in it wins; a file that matches none is charged to the pool "generalDvr". 43 modules of the recorder are
 * registered from the start, 255 is the most. Pools belong to the firmware's memory service (firmware.h); they
 * are opened at the first allocation that needs them and never closed.
 *
 * All functions are thread-safe, and usable in a forked child. The handle and the failure code are the service's;
 * a failed allocation is logged with the caller's file and line.
 *
 * File names are compared as texts, so they may stand anywhere, also in a buffer that is used again; they are not
 * kept. The pools of the first 512 names of at most 123 characters are remembered, and found again in a few
 * nanoseconds without a lock; for any other name all modules are searched each time, under a lock.
 *
 *     char *frame = dvrMalloc(size, __FILE__, __LINE__);
 *     ...
 *     dvrFree(frame);
 */
#ifndef VELKOR_ALLOCATION_H
#define VELKOR_ALLOCATION_H

#include <stddef.h>

#include <velkor/api.h>

VELKOR_BEGIN_C

/**
 * Register a module name behind those that are registered. Names are not checked for repetition; the earlier
 * record wins. A short name registered early takes every path that contains it, an empty one every path at all.
 * Blocks that a file already has stay on the account where they are.
 *
 * @param name       its first 255 characters are kept
 * @param parameter  handed to the memory service when the pool is opened
 * @retval 0   registered
 * @retval -1  @p name is NULL, or 255 modules are registered
 */
VELKOR_API int dvrRegMem(const char *name, unsigned parameter);

/**
 * Allocate @p size bytes from the pool of @p file.
 *
 * @param size  bytes; what 0 gives is the service's to say: a block of its own that can be released, or NULL
 * @param file  the caller's source file (__FILE__); NULL has no pool
 * @param line  the caller's line, for the log
 * @return the block, to be released with dvrFree(); NULL when the pool cannot be opened (tried again by the
 *         next call) or the service refused
 */
VELKOR_API void *dvrMalloc(size_t size, const char *file, int line);

/**
 * Change the size of a block, in the pool of @p file. As dvrMalloc() when @p ptr is NULL; the old block stays valid on
 * failure.
 */
VELKOR_API void *dvrRealloc(void *ptr, size_t size, const char *file, int line);

/** Allocate @p count elements of @p size bytes, cleared. Otherwise as dvrMalloc(). */
VELKOR_API void *dvrCalloc(size_t count, size_t size, const char *file, int line);

/** Copy @p text into a new block. Otherwise as dvrMalloc(); what a NULL text gives is the service's to say. */
VELKOR_API char *dvrStrdup(const char *text, const char *file, int line);

/**
 * Release a block. Its first byte becomes 0 before that: whoever still holds a freed string reads an empty one.
 *
 * @param ptr  a block of this service, or NULL (the service is asked all the same)
 * @return what the service answers when that is 0 or greater; otherwise the result of the log call that
 *         reports the failure (0 accepted, -1 dropped), or 0 when the log is off
 */
VELKOR_API int dvrFree(void *ptr);

/** malloc() of @p size bytes, past the service. */
VELKOR_API void *dvrMalloc_libc(size_t size);

/** free() of @p ptr, past the service. */
VELKOR_API void dvrFree_libc(void *ptr);

/**
 * Kept for callers of old: looks for "/dvrfile/memrecord" and switches nothing.
 *
 * @return always 0
 */
VELKOR_API int debug_memrecord_enable(void);

VELKOR_END_C

#endif

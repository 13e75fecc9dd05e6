/**
 * @file firmware.h
 * What libvelkor calls in the recorder's other libraries. On a board the firmware provides these functions; on a
 * PC libvelkor-host does. libvelkor leaves them undefined, and a program may define any of them itself.
 *
 * Read this page to port the library: each function says what the library relies on. All must be thread-safe
 * unless said otherwise.
 */
#ifndef VELKOR_FIRMWARE_H
#define VELKOR_FIRMWARE_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <velkor/api.h>

VELKOR_BEGIN_C

/** @name Ring buffer
 * Holds the log. Any number of threads write, one thread reads, and nobody else locks: the ring itself must keep
 * each write whole. A handle is a number, 0 = none. @{ */

/**
 * Make a ring buffer of @p size bytes.
 *
 * @param size  bytes that it holds
 * @param mode  1: a write that finds it full drops the oldest whole write to make room
 * @return the handle, or 0
 */
unsigned ringbuf_Create(unsigned size, int mode);

/** Store @p length bytes. The library ignores the result. Called for every log line: it should be fast. */
int ringbuf_Write(unsigned length, const void *data, unsigned ring);

/** Take out the oldest @p length bytes. The library asks ringbuf_DataSize() first and ignores the result. */
int ringbuf_Read(unsigned length, void *buffer, unsigned ring);

/** Number of bytes held. Called without pause while the log is on: it should cost next to nothing. */
int ringbuf_DataSize(unsigned ring);
/** @} */

/** @name Thread registry
 * Knows which threads run, for the watchdog and the engineer. @{ */

/**
 * Note that the calling thread runs under @p name.
 *
 * @param name    the thread's name; a literal
 * @param number  a number of the caller's choice, in this library a source line
 * @param arg     the thread's argument, or NULL
 */
void ThrInfo_DoRecord(const char *name, int number, void *arg);

/** Note that the calling thread is about to end. */
void ThrInfo_Clear(void);
/** @} */

/** @name Debug stream
 * Where failed argument checks are reported; NULL = nowhere. @{ */
extern FILE *fpDebugFile;
/** @} */

/** @name Memory service
 * Pools of memory by name. A pool is a 16-bit handle for the allocating calls. @{ */

/**
 * Open the pool @p name. Called with the library's registry locked: it must not allocate through dvrMalloc() and its
 * like.
 *
 * @param name       pool name
 * @param zero       always 0
 * @param parameter  the value that the module was registered with
 * @return a handle of 0 or greater, or a negative value; the library tries again at the next allocation
 */
int VkMem_Open(const char *name, int zero, unsigned parameter);

/** Allocate from a pool; NULL on failure. */
void *VkMem_Alloc(unsigned short pool, size_t size);

/** Allocate @p count elements of @p size bytes, cleared; NULL on failure. */
void *VkMem_Calloc(unsigned short pool, size_t count, size_t size);

/** Change the size of a block; NULL on failure, with the old block untouched. */
void *VkMem_Realloc(unsigned short pool, void *block, size_t size);

/** Copy a text into a new block; NULL on failure. */
char *VkMem_Dup(unsigned short pool, const char *text);

/** Release a block. Negative for NULL and for anything that is not a live block of this service: never a crash. */
int VkMem_Free(void *block);

/** The code of the calling thread's last failure. */
int VkMem_Error(void);

/** memcpy(). */
void *VkMem_Copy(void *to, const void *from, size_t size);

/** Allocate outside the pools, charged to @p file and @p line; NULL on failure. */
void *vkmem_GlobalAlloc(size_t size, const char *file, int line);

/** Release a block of vkmem_GlobalAlloc(). */
void vkmem_GlobalFree(void *block);
/** @} */

/** @name Character sets
 * Texts are NUL-terminated. The library hands in at most 2047 bytes and returns what these answer. @{ */

/**
 * Convert @p in from GB2312 to UTF-8 into @p out of @p size bytes.
 *
 * @param mode  always 1
 */
int GB2312ToUTF8(const char *in, char *out, int size, int mode);

/** Convert @p in from UTF-8 to GB2312 into @p out of @p size bytes. */
int UTF8ToGB2312(const char *in, char *out, int size);
/** @} */

/** @name Factory test
 * @{ */

/** The state of the factory test. The library hands its caller's arguments on as they are. */
int vk_cmd_gAutoTestState(uintptr_t first, uintptr_t second, uintptr_t third, uintptr_t fourth);
/** @} */

VELKOR_END_C

#endif

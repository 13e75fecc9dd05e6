/**
 * @file files.h
 * Files: copying a recording to a disk, directories, path texts, physical memory and files as memory.
 *
 * The library is built with 64-bit file sizes on every platform: a file above 2 GiB is copied, measured and removed
 * like any other, and HI_MMap() takes an offset of 64 bits however wide the caller's own `off_t` is.
 */
#ifndef VELKOR_FILES_H
#define VELKOR_FILES_H

#include <stddef.h>
#include <stdint.h>

#include <velkor/api.h>

VELKOR_BEGIN_C

/** Longest destination that Set_Dir() keeps; Get_Dir() needs one byte more. */
#define VELKOR_TARGET_LENGTH 64

/** A path of the functions below has at most this many characters. */
#define VELKOR_PATH_LENGTH 255

/** @name Copying
 * @{ */

/** Results of copy_file(). */
enum velkor_copy_result {
    VELKOR_COPY_OK = 0,                /**< copied; or cancelled by the user, and the part removed */
    VELKOR_COPY_NO_SOURCE = -1,        /**< the source could not be opened */
    VELKOR_COPY_NO_DESTINATION = -2,   /**< the destination could not be opened */
    VELKOR_COPY_WRITE_FAILED = -3,     /**< ten attempts to write fell short, one after the other */
    VELKOR_COPY_READ_FAILED = -4,      /**< a read failed */
    VELKOR_COPY_NO_MEMORY = -5,        /**< no buffer of 512 KiB */
    VELKOR_COPY_SOURCE_MODE = -6,      /**< direct I/O could not be switched off for the source's tail */
    VELKOR_COPY_DESTINATION_MODE = -7, /**< direct I/O could not be switched off for the destination's tail */
    VELKOR_COPY_NO_STATUS = -8         /**< the source could not be examined */
};

/**
 * Copy a file through the firmware's file layer, in blocks of 512 KiB past the page cache where both sides can, with a
 * sync every 10 MiB. Blocks its caller for as long as that takes.
 *
 * A write that falls short is tried again after 90 ms, at most ten times a block. After a failure the part that was
 * written stays; only a cancelled copy removes it. What was copied gets mode 0777. A source that turns out shorter
 * than @p size is copied as far as it goes, and that is success. Source and destination must not be the same file: the
 * destination is emptied first.
 *
 * @p dst is remembered for Get_Dir() once it is open. Any number of threads may copy at the same time; they share the
 * one cancel request and the one remembered destination.
 *
 * @param src         path of the source; NULL gives -8, at once and without a line in the log
 * @param dst         path of the destination; created, or emptied. NULL gives -2 in the same way
 * @param dst_info    for a destination that contains "/dev/scsi/host": the file layer's record of 96 bytes, or NULL to
 *                    have one made from the source's status. Ignored for any other destination
 * @param size        bytes to copy; negative: the whole file, whatever its size
 * @param cancelable  not 0: stop when GetCopyCtrlStatus() says so, remove the destination, reset the request
 * @return 0 or a negative code, see velkor_copy_result; each failure but that of a NULL path is logged with the
 *         system's error number
 */
VELKOR_API int copy_file(const char *src, const char *dst, void *dst_info, int size, int cancelable);

/**
 * Whether the user asked to cancel: 1 or 0. Reads the user interface's status record (`g_ptGuiSysStatus` in
 * firmware.h); 0 where there is none. Thread-safe, and shared with other processes.
 */
VELKOR_API int GetCopyCtrlStatus(void);

/** Ask to cancel (1), or take that back (0); any other @p value changes nothing. Async-signal-safe. */
VELKOR_API void SetCopyCtrlStatus(unsigned value);

/**
 * Remember the destination of a copy. Thread-safe.
 *
 * @param path  its first 64 characters are kept
 * @retval 0   remembered
 * @retval -1  @p path is NULL
 */
VELKOR_API int Set_Dir(const char *path);

/**
 * Take the remembered destination: it can be read once. Thread-safe.
 *
 * @param out  65 bytes
 * @retval 0   @p out holds it, filled up with zeros
 * @retval -1  @p out is NULL, or nothing is remembered; @p out is untouched
 */
VELKOR_API int Get_Dir(char *out);

/** vfs_Read() of @p length bytes from @p fd into @p buffer, repeated while it fails with EINTR. */
VELKOR_API int safe_read(int fd, void *buffer, int length);

/** vfs_Write() of @p length bytes of @p buffer to @p fd, repeated while it fails with EINTR. */
VELKOR_API int safe_write(int fd, const void *buffer, int length);

/**
 * Set @p size as the one at which files are deleted. 64 at the start; smaller values than 16 become 16, larger ones
 * than 1024 become 1024. Thread-safe.
 *
 * @return always 0
 */
VELKOR_API int SetDeletelFileSize(int size);
/** @} */

/** @name Directories
 * Paths are at most 255 characters long. An entry whose path would be longer is a failure of that entry, but for
 * is_empty_dir(). All are reentrant, but a tree should not be changed by others meanwhile. @{ */

/**
 * Remove a file, a link (never what it points at), or a directory with all that is in it. Goes on after a failure.
 *
 * @retval 0   it is gone, or was not there
 * @retval -1  @p path is NULL, or something could not be removed
 */
VELKOR_API int remove_file(const char *path);

/**
 * Disk space taken by a file, or by a directory with all that is in it. Files with several names count once a name.
 *
 * @param path   the root of the walk; what cannot be examined is logged and counts nothing
 * @param flags  1: follow links (a directory inside which the walk already is counts its own blocks alone); and one of
 *               0x200, 0x400, 0x800: count in KiB, MiB, GiB, rounded to the nearest, else in bytes
 * @return the size, cut to its low 32 bits; 0 for NULL
 */
VELKOR_API int du(const char *path, int flags);

/**
 * Have a directory with mode 0755. Does not make its parents.
 *
 * @retval 0   it is there
 * @retval -1  @p path is NULL or empty, or it could not be made
 */
VELKOR_API int make_dir(const char *path);

/** 1 when @p path is a directory, 0 for anything else: also for a link to one, and for NULL. */
VELKOR_API int is_dir(const char *path);

/**
 * Whether a tree holds nothing but directories.
 *
 * @param path  its root. **The first 256 characters count,** of an entry's path, too; an entry's name is put behind the
 *              first 255 of its directory's path. What is longer is looked for under a path that is cut, where there
 *              usually is nothing
 * @retval 1  it holds nothing but directories
 * @retval 0  it holds something else, or a part of it cannot be looked at; @p path is no directory, or NULL
 */
VELKOR_API int is_empty_dir(const char *path);
/** @} */

/** @name Path texts
 * All are reentrant. @{ */

/**
 * Cut a path down to what follows its last "/". A text without one loses its first character: "abc" becomes "bc". What
 * is behind the new end is cleared, up to the old end.
 *
 * @param path  changed in place
 * @retval 0   done
 * @retval -1  @p path is NULL or longer than 255 characters
 */
VELKOR_API int extract_file_name(char *path);

/**
 * Cut a path down to its directory, the "/" included. A path of a directory only gets a "/" at its end. A text without
 * a "/" keeps its first character. What is behind the new end is cleared, up to the old end.
 *
 * @param path  changed in place; needs a byte more than it takes
 * @retval 0   done
 * @retval -1  @p path is NULL, longer than 255 characters, or would become so
 */
VELKOR_API int extract_file_path(char *path);

/**
 * Join a directory and a name with exactly the "/" between them that is missing; those at the head of @p name go.
 *
 * @param dir   NULL counts as empty
 * @param name  the name
 * @return a block of 256 bytes, for vkmem_GlobalFree(); NULL without memory, for a NULL @p name, and for a path longer
 *         than 255 characters
 */
VELKOR_API char *concat_path_file(const char *dir, const char *name);

/** concat_path_file(), but NULL for "." and "..". */
VELKOR_API char *concat_subpath_file(const char *dir, const char *name);

/** The last character of @p s when it is @p c, else NULL: also for a NULL or empty text. */
VELKOR_API char *last_char_is(const char *s, int c);
/** @} */

/** @name System calls
 * Stand between the functions below and the system, so that a program can trace them in one place. @{ */

/** open() of @p path with @p flags; @p mode is used when the file is created. */
VELKOR_API int HI_Open(const char *path, int flags, unsigned mode);

/** close() of @p fd. */
VELKOR_API int HI_Close(int fd);

/**
 * mmap() with @p addr, @p length, @p prot, @p flags and @p fd as the system has them; @p offset has 64 bits on every
 * platform.
 */
VELKOR_API void *HI_MMap(void *addr, size_t length, int prot, int flags, int fd, int64_t offset);

/** munmap() of @p length bytes at @p addr. */
VELKOR_API int HI_MUnMap(void *addr, size_t length);
/** @} */

/** @name Physical memory
 * Through "/dev/mem", which is opened at the first need and stays open. Requests inside one mapping share it. Not
 * thread-safe: for one thread of a process, or callers that take turns. @{ */

/** One mapping. */
typedef struct velkor_mapping {
    uint32_t physical_base; /**< physical address of its first page */
    uintptr_t virtual_base; /**< where it is mapped */
    uint32_t length;        /**< bytes, whole pages of 4096 */
    int32_t users;          /**< requests that share it */
    struct velkor_mapping *next;
} velkor_mapping;

/** The first of the mappings, in the order of their making. */
extern VELKOR_API velkor_mapping *pMMAPNode;

/**
 * Map physical memory, or share a mapping that holds all of it.
 *
 * @param physical  physical address
 * @param size      bytes
 * @return the address of @p physical in this process; 0 when @p size is 0, when the range passes the end of the 32-bit
 *         address space, or when it cannot be mapped
 */
VELKOR_API uintptr_t memmap(unsigned physical, unsigned size);

/**
 * Let go of a mapping. The last user unmaps it. Unmapping the first of the list empties the list: the others stay
 * mapped, but are found no more.
 *
 * @param virtual_address  anywhere from the first byte of a mapping to one past its last
 * @retval 0   let go
 * @retval -1  no mapping holds the address
 */
VELKOR_API int memunmap(uintptr_t virtual_address);
/** @} */

/** @name Files as memory
 * The caller releases with HI_MUnMap(). A file must be as long as what is used of it: memory behind its end cannot be
 * touched. Thread-safe. @{ */

/**
 * Map @p length bytes of a file for reading and writing, shared; it is created, with mode 0770, when it is not there.
 *
 * @return the address; NULL when @p path is NULL or cannot be opened; MAP_FAILED when it cannot be mapped
 */
VELKOR_API void *mmapfile(const char *path, size_t length);

/** The same for reading only, @p length bytes of @p path; the file must be there. */
VELKOR_API void *mmapfile_r(const char *path, size_t length);
/** @} */

VELKOR_END_C

#endif

/**
 * @file velkor_host.h
 * libvelkor-host: stand-ins for the recorder's other libraries, so that a program built on a PC works for real.
 * The functions that libvelkor calls are declared in velkor/firmware.h; this header is what a person at the bench
 * asks them: what the ring holds, who runs, what each pool has in use. All functions are thread-safe.
 */
#ifndef VELKOR_HOST_H
#define VELKOR_HOST_H

#include <stdint.h>
#include <stdio.h>

#include <velkor/firmware.h>

VELKOR_BEGIN_C

/** Most ring buffers of a process; ringbuf_Create() answers 0 for one more. */
#define VELKOR_HOST_RINGS 32

/**
 * Most runs that one ring tells apart: writes of equal length, one after the other, are one run. A write that would
 * need one more finds the ring full, although it may have bytes left.
 */
#define VELKOR_HOST_RING_RUNS 4096

/** What one ring buffer holds, and what went through it. */
struct velkor_host_ring {
    unsigned capacity; /**< bytes that it can hold */
    unsigned held;     /**< bytes that it holds now */
    uint64_t written;  /**< writes stored since it was made */
    uint64_t read;     /**< successful reads since it was made */
    uint64_t dropped;  /**< oldest writes dropped to make room (mode 1) */
    uint64_t refused;  /**< writes refused: too long, or no room (any other mode) */
};

/**
 * Look at ring number @p ring. Rings are numbered from 1 in the order of their making.
 *
 * @retval 0   @p out is filled
 * @retval -1  there is no such ring, or @p out is NULL
 */
VELKOR_API int velkor_host_ring_get(unsigned ring, struct velkor_host_ring *out);

/** Longest name of a pool or a thread that is kept, its terminator included. */
#define VELKOR_HOST_NAME_SIZE 256

/** What the memory service answers through VkMem_Error(). */
enum velkor_host_memory_error {
    VELKOR_HOST_MEMORY_OK = 0,
    VELKOR_HOST_MEMORY_BAD_NAME = 1,  /**< VkMem_Open(): NULL or empty name */
    VELKOR_HOST_MEMORY_TOO_MANY = 2,  /**< VkMem_Open(): no room for another pool */
    VELKOR_HOST_MEMORY_NO_POOL = 3,   /**< the handle is no open pool */
    VELKOR_HOST_MEMORY_LIMIT = 4,     /**< the pool's limit would be passed */
    VELKOR_HOST_MEMORY_EXHAUSTED = 5, /**< the system has no memory, or the size is absurd */
    VELKOR_HOST_MEMORY_NO_BLOCK = 6,  /**< not a live block of this service: NULL, a stranger's, freed before */
    VELKOR_HOST_MEMORY_NO_TEXT = 7    /**< VkMem_Dup(): NULL text */
};

/** Most pools of a process. */
#define VELKOR_HOST_POOLS 512

/**
 * The accounts of one memory pool. The blocks of vkmem_GlobalAlloc() are charged to a pool named "global", without
 * their file and line.
 */
struct velkor_host_pool {
    char name[VELKOR_HOST_NAME_SIZE];
    uint64_t limit;      /**< most bytes in use at a time, 0 = no limit: the parameter of VkMem_Open() in KiB */
    uint64_t bytes;      /**< bytes in use: what callers asked for, not what the system took for it */
    uint64_t blocks;     /**< blocks in use */
    uint64_t peak_bytes; /**< most bytes that were in use at a time */
    uint64_t failures;   /**< allocating calls on this pool that failed, for whatever reason */
};

/**
 * Look at the accounts of pool number @p pool (a handle of VkMem_Open(); they count from 0).
 *
 * @retval 0   @p out is filled
 * @retval -1  there is no such pool, or @p out is NULL
 */
VELKOR_API int velkor_host_pool_get(unsigned pool, struct velkor_host_pool *out);

/** Write a table of all pools to @p out (NULL = nowhere): a line of titles, then one line a pool. */
VELKOR_API void velkor_host_pool_report(FILE *out);

/**
 * Most threads that the registry holds. One more takes the place of the oldest that ended without ThrInfo_Clear();
 * when there is none such, it is not registered.
 */
#define VELKOR_HOST_THREADS 256

/** One registered thread. */
struct velkor_host_thread {
    char name[VELKOR_HOST_NAME_SIZE];
    int number;     /**< as given to ThrInfo_DoRecord() */
    long thread;    /**< kernel thread id */
    double seconds; /**< since it was registered, or registered again */
    int running;    /**< 0: it ended without ThrInfo_Clear() */
};

/**
 * Look at registered thread number @p index, counted from 0 in the order of registration. A thread that registers
 * again replaces its record and comes last. A forked child begins with an empty registry.
 *
 * @retval 0   @p out is filled
 * @retval -1  there are not so many, or @p out is NULL
 */
VELKOR_API int velkor_host_thread_get(unsigned index, struct velkor_host_thread *out);

/** Write a table of all registered threads to @p out (NULL = nowhere): a line of titles, then one line a thread. */
VELKOR_API void velkor_host_thread_report(FILE *out);

/**
 * What a person at the bench sets for the stand-ins. Read each time something is asked; absent means that there are no
 * disks. Lines of "name = value" below "[section]"; "#" and ";" begin a line that is not read. A line is at most 511
 * characters long. The first line of a name counts.
 *
 *     [disk 0]
 *     path = /mnt/disk0       where it is mounted, at most 63 characters
 *     state = 3               instead of what the path looks like (see below)
 *
 *     [swap]
 *     max_size = 64           MiB of the swap file
 *     high_level = 32         MiB in use from which on the recorder is quietened first
 *
 * A disk's state is 0 when it is not in the file, 1 when its path is no directory, 2 when it cannot be written, 3 when
 * it can. The sizes above are those that hold without the file.
 */
#define VELKOR_HOST_SETTINGS_FILE "/dvrfile/velkor-host.ini"

/** Where the shared daylight setting (`g_stDaylightSaving`) is kept. It is read when a process starts. */
#define VELKOR_HOST_DAYLIGHT_FILE "/dvrfile/daylight"

/**
 * Read the shared daylight setting again. Values that the file does not name stay as they are.
 *
 * @retval 0   read
 * @retval -1  the file cannot be read: the setting stays as it is
 */
VELKOR_API int velkor_host_daylight_load(void);

/** @p enable is what Cfg_GetCalenderEnable() answers from now on; 0 at the start of a process. */
VELKOR_API void velkor_host_set_calendar(int enable);

/**
 * Let this process's local time be what "/etc/TZ" says, as the recorder's C library does by itself. Sets the
 * environment variable TZ: call it while the process has one thread.
 *
 * @retval 0   done
 * @retval -1  the file cannot be read or says nothing: local time stays as it is
 */
VELKOR_API int velkor_host_follow_zone_file(void);

/** @p name is logged in from now on; NULL or an empty name: nobody, as at the start of a process. */
VELKOR_API void velkor_host_set_user(const char *name);

/** Where log_Write() appends its entries: "[stamp] handle major minor code text", a line each. */
#define VELKOR_HOST_OPERATION_LOG "/dvrfile/operation.log"

/** What the recording control was asked to do. */
struct velkor_host_recording {
    int paused;          /**< 1 while recording is paused */
    uint64_t pauses;     /**< calls of rec_PauseAllFile() */
    uint64_t restarts;   /**< calls of rec_RestartAllFile() */
    int channels_paused; /**< 1 while the recorder's channels are, by vk_cmd_UpgradeSetChnStat() */
};

/**
 * Look at the recording control.
 *
 * @retval 0   @p out is filled
 * @retval -1  @p out is NULL
 */
VELKOR_API int velkor_host_recording_get(struct velkor_host_recording *out);

/** What GB2312ToUTF8() and UTF8ToGB2312() answer but for the number of bytes written, the terminator not counted. */
enum velkor_host_text_error {
    VELKOR_HOST_TEXT_BAD_ARGUMENT = -1, /**< a NULL pointer, no room for a terminator, or a mode other than 1 */
    VELKOR_HOST_TEXT_BAD_SEQUENCE = -2, /**< a byte sequence that is no character, or one that the other set lacks */
    VELKOR_HOST_TEXT_NO_ROOM = -3,      /**< the result does not fit */
    VELKOR_HOST_TEXT_NO_CONVERTER = -4  /**< the C library has no such conversion here */
};

/* After BAD_SEQUENCE and NO_ROOM the whole characters before the fault are there, terminated. */

/**
 * @p state is what vk_cmd_gAutoTestState() answers in this process from now on, whatever it is asked; 0 at the start.
 */
VELKOR_API void velkor_host_factory_test_set(int state);

/**
 * How an IPv6 address of this machine came about. The network device service knows a device by its interface number
 * (if_nametoindex()), and answers the greatest of its addresses' methods as the current one. An address's attribute is
 * its prefix length.
 */
enum velkor_host_ipv6_method {
    VELKOR_HOST_IPV6_LINK_LOCAL = 0, /**< by the kernel, for this link alone */
    VELKOR_HOST_IPV6_STATIC = 1,     /**< set by somebody */
    VELKOR_HOST_IPV6_AUTOMATIC = 2   /**< learned from a router, for a time */
};

/** The configuration directory of Cfg_gConfigPath() until velkor_host_set_config_path(). */
#define VELKOR_HOST_CONFIG_PATH "/dvrfile/"

/**
 * Choose the configuration directory; a "/" is added at its end when it is missing.
 *
 * @retval 0   chosen
 * @retval -1  @p path is NULL, empty, or too long
 */
VELKOR_API int velkor_host_set_config_path(const char *path);

/** Bytes of the user interface's status record, to which `g_ptGuiSysStatus` points at the start of a process. */
#define VELKOR_HOST_GUI_STATUS_SIZE 2048

VELKOR_END_C

#endif

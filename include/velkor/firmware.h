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
#include <velkor/calendar.h>

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

/**
 * Store @p length bytes of @p data in @p ring. The library ignores the result. Called for every log line: it should be
 * fast.
 */
int ringbuf_Write(unsigned length, const void *data, unsigned ring);

/**
 * Take the oldest @p length bytes out of @p ring into @p buffer. The library asks ringbuf_DataSize() first and ignores
 * the result.
 */
int ringbuf_Read(unsigned length, void *buffer, unsigned ring);

/** Number of bytes that @p ring holds. Called without pause while the log is on: it should cost next to nothing. */
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

/** @name Debug flags
 * Called with the message buffer locked. @{ */
struct RtMsgBuf;

/** 1 when bit number @p bit is set in the flags of @p buffer, else 0. */
int RtMsgEx_gFlag(struct RtMsgBuf *buffer, int bit);

/** Set (@p value 1) or clear (0) bit number @p bit of the flags of @p buffer. */
void RtMsgEx_sFlag(struct RtMsgBuf *buffer, int bit, int value);
/** @} */

/** @name Debug stream
 * @{ */

/** Where failed argument checks are reported; NULL = nowhere. */
extern FILE *fpDebugFile;
/** @} */

/** @name Configuration directory
 * @{ */

/** The configuration directory, with a "/" at its end. It stays valid. */
const char *Cfg_gConfigPath(void);
/** @} */

/** @name Network configuration
 * Asked at each call that needs it; the answers must stay readable while the caller looks at them. @{ */

/** Cards that a configuration describes. */
#define VELKOR_CARDS 8

/** How the recorder's cards are used. */
typedef struct CfgNetConfig {
    int32_t bonding;              /**< not 0: the first four cards work together as "bond0" */
    int32_t secondBond;           /**< not 0: the cards behind them work together as "bond1" */
    uint8_t mac[VELKOR_CARDS][6]; /**< each card's MAC, **last byte first** */
} CfgNetConfig;

/** What the recorder is made of. */
typedef struct CfgMediaDevice {
    int32_t cardCount; /**< number of network cards; more than 8 count as 8 */
} CfgMediaDevice;

/** The network configuration; the library asks for @p number 0. NULL means no bonding and no card. */
const CfgNetConfig *Cfg_gNetConfig(int number);

/** The device description; the library asks for @p number 0. NULL means no card. */
const CfgMediaDevice *Cfg_gMediaDevice(int number);
/** @} */

/** @name Network device
 * Knows a device by a number or handle of its own; 0 means none and never gets here. @{ */

/** One IPv6 address of a device. */
typedef struct NetIpv6Address {
    uint32_t reserved;
    int32_t method;     /**< how it was configured, comparable with NetGetCurIpv6Method() */
    char address[64];   /**< its text */
    uint32_t attribute; /**< handed to the library's caller as it is */
} NetIpv6Address;

/** The IPv6 addresses of a device: 1220 bytes. */
typedef struct NetIpv6AddressList {
    int32_t count; /**< entries in use; the library looks at no more than there are */
    NetIpv6Address entries[16];
} NetIpv6AddressList;

/** Fill @p list, a NetIpv6AddressList which is cleared, for @p device. The library ignores the result. */
int NetDevice_GetIpv6AddressList(uintptr_t device, void *list);

/** The current IPv6 configuration method of @p device. */
int NetGetCurIpv6Method(uintptr_t device);
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

/**
 * Allocate @p size bytes from @p pool; NULL on failure. For 0 bytes a block must have room for one all the same, here
 * and below: dvrFree() clears the first byte of whatever it releases.
 */
void *VkMem_Alloc(unsigned short pool, size_t size);

/** Allocate @p count elements of @p size bytes from @p pool, cleared; NULL on failure. */
void *VkMem_Calloc(unsigned short pool, size_t count, size_t size);

/**
 * Change the size of @p block to @p size bytes of @p pool; NULL on failure, with the old block untouched. 0 bytes may
 * also release the block, and give NULL.
 */
void *VkMem_Realloc(unsigned short pool, void *block, size_t size);

/** Copy @p text into a new block of @p pool; NULL on failure. */
char *VkMem_Dup(unsigned short pool, const char *text);

/** Release @p block. Negative for NULL and for anything that is not a live block of this service: never a crash. */
int VkMem_Free(void *block);

/** The code of the calling thread's last failure. */
int VkMem_Error(void);

/** memcpy() of @p size bytes at @p from, to the place @p to. */
void *VkMem_Copy(void *to, const void *from, size_t size);

/** Allocate @p size bytes outside the pools, charged to @p file and @p line; NULL on failure. */
void *vkmem_GlobalAlloc(size_t size, const char *file, int line);

/** Release @p block, which is one of vkmem_GlobalAlloc(). */
void vkmem_GlobalFree(void *block);
/** @} */

/** @name Time service
 * @{ */

/**
 * Uptime, into @p seconds, by a clock that nobody sets: it never goes back, or the time-out of a name resolution would
 * never come, and never jumps, or it would come too early. The library ignores the result.
 */
int vkt_get_uptime(int64_t *seconds);

/** Uptime, into @p milliseconds. The library clears the value before and ignores the result. */
int vkt_get_uptime_ms(int64_t *milliseconds);

/** The @p seconds that local time is ahead of UTC now. The library clears the value before and ignores the result. */
int vkt_get_time_diff(int64_t *seconds);

/**
 * The zone's text as the C library reads it from "/etc/TZ": POSIX TZ form, without a line end.
 *
 * @param config  the setting, its zone a long code
 * @param buffer  cleared; the library takes the text up to a 0 or @p size
 * @param size    bytes of @p buffer
 * @return ignored
 */
int vkt_tzset_to_tzstr(const DaylightConfig *config, char *buffer, int size);
/** @} */

/** @name Time configuration
 * @{ */

/** The shared daylight setting. A rule is packed as in velkor_packed_daylight, but its week counts from 0. */
typedef struct CfgDaylightSaving {
    int32_t enable;
    int32_t zone; /**< zone code */
    uint32_t start;
    uint32_t stop;
    int32_t offset; /**< minutes */
} CfgDaylightSaving;

/**
 * Read by the library word by word, each in one step, and only the zone is ever changed by it, in the same way: the
 * firmware may change words at any moment, in one step each. Where it changes several, a reader may see some of them
 * changed.
 */
extern CfgDaylightSaving g_stDaylightSaving;

/** Save @p setting. Called under the library's daylight lock: it must not call back. The result is ignored. */
int Cfg_sDaylightSaving(const CfgDaylightSaving *setting);

/** Whether the Persian calendar is chosen for display. @p argument is whatever the library's caller gave. */
int Cfg_GetCalenderEnable(void *argument);
/** @} */

/** @name Users and operation log
 * @{ */

/** The name of the user who is logged in, or NULL. It must stay valid until log_Write() returned. */
const char *UKCmd_GetUser(void);

/**
 * Write an entry into the operation log. The library ignores the result.
 *
 * @param handle  as given by the library's caller
 * @param major   3 here
 * @param minor   0xFFF0 here
 * @param code    3223: text and user, 3018: text
 * @param format  printf() form
 */
int log_Write(int handle, int major, int minor, int code, const char *format, ...) VELKOR_FORMAT(5, 6);
/** @} */

/** @name Disks and swap settings
 * Asked when swap is started or stopped, by one thread at a time. @{ */

/** Number of disks of @p kind; the library asks for kind 1, and relies on whether it is greater than 0. */
int disk_GetDiskNum(int kind);

/** State of disk @p disk, 0 to 23, whether or not there is one; above 2: fit to hold a swap file. */
int disk_GetState(int disk);

/**
 * Where a disk is mounted.
 *
 * @param disk  0 to 23
 * @param kind  1
 * @param path  64 bytes, cleared, the terminator included
 * @return 1001 when @p path is filled, anything else when there is no such disk or it is not mounted
 */
int disk_GetSataMntPath(int disk, int kind, char *path);

/** Size of the swap file, in the unit of the script "/dvr/swap_ctrl.sh". */
int cfg_gSwapMaxsize(void);

/** Megabytes of swap in use from which on the recorder is quietened before swap is taken away. */
int cfg_gSwapHighLv(void);

/** Pause (@p flag 0) or resume (1) the recorder's channel activity. The library ignores the result. */
int vk_cmd_UpgradeSetChnStat(int flag);
/** @} */

/** @name Recording control
 * The results are ignored; every pause is followed by a restart. @{ */

/** Pause recording: no file is written from now on. */
int rec_PauseAllFile(void);

/** Go on recording. */
int rec_RestartAllFile(void);
/** @} */

/** @name Character sets
 * Texts are NUL-terminated. The library hands in at most 2047 bytes and returns what these answer. @{ */

/**
 * Convert @p in from GB2312 to UTF-8 into @p out of @p size bytes.
 *
 * @param in    the text
 * @param out   @p size bytes
 * @param size  room in @p out, with the terminator
 * @param mode  always 1
 */
int GB2312ToUTF8(const char *in, char *out, int size, int mode);

/** Convert @p in from UTF-8 to GB2312 into @p out of @p size bytes. */
int UTF8ToGB2312(const char *in, char *out, int size);
/** @} */

/** @name Factory test
 * @{ */

/**
 * The state of the factory test. The arguments @p first, @p second, @p third and @p fourth are those of the library's
 * caller, as they are.
 */
int vk_cmd_gAutoTestState(uintptr_t first, uintptr_t second, uintptr_t third, uintptr_t fourth);
/** @} */

/** @name File layer
 * What a copy reads and writes through. Numbers are the layer's own on every platform: flags are 0x1 to write (else to
 * read), 0x40 to create, 0x200 to empty, 0x10000 to go past the page cache. Results are as those of the system's calls:
 * negative on failure, with `errno` set.
 *
 * A status record has 160 bytes and is cleared before each call: at byte 48 the file's size (64 bits), at bytes 104,
 * 120 and 128 three words that go into a destination record as they are. Such a record has 96 bytes: at bytes 0, 4 and
 * 16 the words from 104, 128 and 120, at byte 8 the number 2, at byte 24 the destination's first 22 characters, at byte
 * 88 the text "sdv". What these words mean is between the layer and itself. @{ */

/** Examine the file @p path, into @p record. */
int vfs_Stat(const char *path, void *record);

/** The same in the recorder's view, of @p path into @p record: a file that is still being recorded. Asked first. */
int rec_Stat(const char *path, void *record);

/** Open the file @p path with @p flags; @p record is a destination record, or NULL. Refuses 0x10000 where there is no
 * such way. */
int vfs_Open(void *record, const char *path, int flags);

/** read() of @p length bytes from @p fd into @p buffer. */
int vfs_Read(int fd, void *buffer, int length);

/** write() of @p length bytes of @p buffer to @p fd. */
int vfs_Write(int fd, const void *buffer, int length);

/** Only @p command 4 is used, which sets the status flags of @p fd to @p value: what matters is that 0x10000 is no
 * longer set. */
int vfs_fcntl(int fd, int command, int value);

/** fsync() of @p fd. */
int vfs_fsync(int fd);

/** close() of @p fd. */
int vfs_Close(int fd);

/** unlink() of @p path. */
int vfs_Unlink(const char *path);
/** @} */

/** @name User interface
 * @{ */

/**
 * The status record that the user interface publishes, perhaps in memory shared with its process; NULL = absent. The
 * library reads and writes one little-endian 32-bit word of it, at bytes 1523 to 1526: 256 asks to cancel a copy.
 */
extern unsigned char *g_ptGuiSysStatus;
/** @} */

VELKOR_END_C

#endif

/**
 * @file system_info.h
 * What the recorder is busy with (processor, memory, flash, and a process's memory, read from the kernel), and the
 * links of its Ethernet ports.
 *
 * There are three ways to the processor's load. They keep their own state and do not disturb each other:
 *
 * - SwitchCpuTimer(1), then GetCpuTimer() from a timer and GetCpuInfoNew(): idle and waiting per cent between two
 * ticks. It costs some microseconds a tick, and is the way to prefer.
 * - CalCPUDataTimer(), then GetCpuInfo(): busy per cent of one second, which its caller sleeps.
 * - GetCpuIdle(): idle per cent since the last time. It costs some microseconds, and **a descriptor for good each
 *   time**: it never closes the stream that it opens. At once a second a process with the usual limit of 1024
 *   descriptors has none left after a quarter of an hour, and then every other part of it fails as well.
 *
 * Percentages are doubles, -1.0 where it is said that a value could not be read. **A share of nothing is what the
 * division gives:** with a total of 0, or counters that stood still, no number (NaN) or infinity. Ask isfinite() before
 * printing one.
 *
 * The kernel's counters have 64 bits; where a record here has 32, it holds the low ones, on every platform.
 */
#ifndef VELKOR_SYSTEM_INFO_H
#define VELKOR_SYSTEM_INFO_H

#include <stdint.h>

#include <velkor/api.h>

VELKOR_BEGIN_C

/** @name Memory and flash
 * All are reentrant. A file that cannot be opened is reported by perror("fopen"). @{ */

/** Words that GetMemInfoV2() writes. */
#define VELKOR_MEMORY_WORDS 6

/**
 * How much memory is taken: all that is not free, caches too.
 *
 * @param out  six words in KiB: [0] total, [1] 0, [2] free, [3] 0, [4] and [5] the fourth and fifth line of
 *             /proc/meminfo (buffers and cache). NULL is allowed
 * @return per cent; -1.0 when /proc/meminfo cannot be opened. When it names no total, or one of 0, no number, or
 *         infinity where it names something free
 */
VELKOR_API double GetMemInfoV2(uint32_t *out);

/** GetMemInfoV2() with two words of its six, in KiB: @p total and @p free_kib. Both may be NULL. */
VELKOR_API double GetMemInfo(uint32_t *total, uint32_t *free_kib);

/**
 * Per cent of the root file system that an ordinary user cannot write to any more.
 *
 * @return per cent; -1.0 when the system cannot tell, or tells a block size of 0. No number for a file system without
 *         blocks, such as that of a container may be
 */
VELKOR_API double GetFlashInfo(void);

/**
 * GetMemInfo() into @p memory, GetCpuInfo() into @p cpu and GetFlashInfo() into @p flash, per cent. Thread-safe. What
 * is NULL is not written.
 */
VELKOR_API void GetSystemInfo(double *cpu, double *memory, double *flash);

/**
 * Add the resident size of a process, in KiB, to the eighth 32-bit word of a record: called for several processes it
 * sums them up. Reentrant.
 *
 * @param process  process id
 * @param record   32 bytes or more, of which bytes 28 to 31 are read and written
 * @retval 0   done, also when the process has no memory of its own (a kernel thread)
 * @retval -1  @p record is NULL, or there is no such process (which is logged)
 */
VELKOR_API int GetProcRss(int process, void *record);

/** The first character of @p text that is neither a blank nor one of the control characters 9 to 13. NULL for NULL. */
VELKOR_API char *skip_whitespace(const char *text);
/** @} */

/** @name A sample of one second
 * @{ */

/** Words that GetCpuData() writes. */
#define VELKOR_CPU_WORDS 7

/**
 * The processor's counters since the start: user, nice, system, idle, iowait, irq, softirq. Reentrant.
 *
 * @param out  seven words: the low 32 bits of each
 * @retval 0   read; a line of another shape gives zeros from there on
 * @retval -1  @p out is NULL, /proc/stat cannot be opened, or holds four bytes or fewer (reported by perror())
 */
VELKOR_API int GetCpuData(uint32_t *out);

/** Busy per cent of the last CalCPUDataTimer(), 0 before the first. May be no number. */
extern VELKOR_API double g_dCpuUsage;

/**
 * Measure for a second, in which the caller sleeps whatever signals come, and leave the result in #g_dCpuUsage: no
 * number when neither the busy nor the idle counters went on.
 *
 * **The result is stored after a failure, too:** a reading that failed counts as zeros, so that the stored number means
 * nothing.
 *
 * @return what the second GetCpuData() answered
 */
VELKOR_API int CalCPUDataTimer(void);

/** #g_dCpuUsage. Thread-safe. */
VELKOR_API double GetCpuInfo(void);
/** @} */

/** @name Two samples, driven by a timer
 * @{ */

/** The kernel's counters, in the order of this record. */
typedef struct velkor_cpu_counters {
    uint64_t user;
    uint64_t nice;
    uint64_t system;
    uint64_t idle;
    uint64_t iowait;
    uint64_t steal;
    uint64_t irq;
    uint64_t softirq;
    uint64_t guest;
    uint64_t guest_nice;
} velkor_cpu_counters;

/** The last two samples. */
typedef struct velkor_cpu_timer {
    velkor_cpu_counters samples[2];
    int32_t next; /**< 0: the second sample is taken next, else the first */
    int32_t on;   /**< not 0: sampling is on */
} velkor_cpu_timer;

/** What GetCpuTimer() fills. Change it through SwitchCpuTimer(). */
extern VELKOR_API velkor_cpu_timer g_stCpuInfo;

/**
 * Read the counters. Reentrant. They stay as they were when /proc/stat cannot be read (reported by perror()).
 *
 * @param sample  NULL reads nothing
 * @return always 0
 */
VELKOR_API int _GetCpuStats(velkor_cpu_counters *sample);

/** Take a sample in place of the older one, if sampling is on. For a periodic timer: one thread at a time. */
VELKOR_API void GetCpuTimer(void);

/**
 * Forget both samples and switch sampling on (@p on is not 0) or off. Thread-safe; a sample that is taken meanwhile may
 * stay.
 *
 * @return always 0
 */
VELKOR_API int SwitchCpuTimer(int on);

/** What SwitchCpuTimer() was given last; 0 at the start. Thread-safe. */
VELKOR_API int GetCpuTimerSwitchState(void);

/**
 * What the processor did between the two samples; since its start, when there is only one. Thread-safe: a sample that
 * is taken at the same moment may be seen in part.
 *
 * @param idle    idle per cent; NULL is allowed
 * @param iowait  per cent spent waiting for disks; NULL is allowed
 * @retval 0   written
 * @retval -1  there is no sample yet, or no time between the two
 */
VELKOR_API int GetCpuInfoNew(double *idle, double *iowait);
/** @} */

/** @name Since the last time
 * @{ */

/**
 * Idle per cent since the last call that took a sample; since the processor's start at the first. At most one sample
 * is taken in each second of uptime.
 *
 * Leaves one stream open for each sample: see the head of this page. Callers on several threads may mix their samples.
 *
 * @param idle  0 to 100; NULL is allowed. Not written when the call came in the same second as the last sample, and
 *              when /proc/stat cannot be opened (which is logged)
 * @retval 0   in all these cases; also when the first line of /proc/stat is not the processor's, which counts as zeros
 * @retval -1  that line ends before its first number: it is "cpu", or the beginning of that word, and white space at
 *             most (which is logged)
 */
VELKOR_API int GetCpuIdle(uint32_t *idle);
/** @} */

/** @name Ethernet links
 * Whether there is a link: asked of the driver first, then of the transceiver's status register. Thread-safe but for
 * the closing described at detect_mii(). @{ */

/** What the detectors answer. */
enum velkor_link {
    VELKOR_LINK_UP = 0,
    VELKOR_LINK_DOWN = 1,
    VELKOR_LINK_UNKNOWN = 2 /**< cannot be told in this way */
};

/**
 * The link of port ethN.
 *
 * **When the driver tells neither the link nor the transceiver's address, the socket is closed twice:** by
 * detect_mii(), and here. A descriptor of the same number that another thread opens between the two is closed instead.
 * When the address is known and the status cannot be read, the socket is closed once.
 *
 * @param number  N, at most 8; a negative one makes a name such as "eth-1"
 * @return ::velkor_link
 * @retval -1  @p number is above 8, or there is no socket
 */
VELKOR_API int DetectEth0(int number);

/**
 * The link as the driver knows it (ETHTOOL_GLINK).
 *
 * @param socket     any socket; stays open
 * @param interface  the interface's name, of which the first 15 characters count
 * @return ::velkor_link
 */
VELKOR_API int detect_ethtool(int socket, const char *interface);

/**
 * The link as the transceiver's basic status register has it (IEEE 802.3, 22.2.4.2): up when it reports a link and
 * neither jabber nor a remote fault.
 *
 * **Closes the socket when the driver does not tell the transceiver's address,** and leaves it open in every other
 * case. Every failure is told on standard error.
 *
 * @param socket     any socket
 * @param interface  the interface's name, of which the first 16 characters count
 * @return ::velkor_link
 */
VELKOR_API int detect_mii(int socket, const char *interface);

/**
 * Send the first driver-private request to "eth0"; what it does is the driver's business.
 *
 * @retval 0   the driver took it
 * @retval -1  it did not, or there is no socket
 */
VELKOR_API int DetectEth0Ex(void);
/** @} */

VELKOR_END_C

#endif

/**
 * @file diagnostics.h
 * The log pipeline: every module of a recorder process reports through one call.
 *
 * A line is stamped with local time, kernel thread id and module, held against two lists of substrings,
 * flattened to one line of at most 1023 characters and written as one 1024-byte record into the firmware's
 * ring buffer (firmware.h). One detached thread drains the ring into the terminal "/tmp/tty.logman".
 *
 * The pipeline is switched from outside the process by the file "/dvrfile/logman":
 *
 *     dbgprint=1          any number but 0 switches printing on
 *     filter=libvelkor    keep a line that contains one of the filter texts (none: keep every line)
 *     invert=err code     drop a line that contains one of the invert texts, whatever the filters say
 *
 * Keys stand at the start of their line; blanks after "=" belong to the value; at most eight texts of each
 * kind of at most 255 characters are kept. The file is read once each time it appears after having been
 * absent, and at once: to change a running process, remove it, write the new one beside it, and rename that
 * into its place.
 *
 * A forked child logs whatever the threads of its parent were doing. Where the parent had several threads, the child
 * stamps all lines of this page by the offset from UTC that held at the fork, until its zone changes (tzset()) or
 * one of its threads comes back from a function of calendar.h that converts local time. A child that lives on may
 * call one when it begins, TimeToString() say, and follows daylight time from then on; calendar.h says what that needs.
 * A child of a process with one thread follows it anyway.
 *
 * The call at every site asks first, so that a process whose log is off does not even evaluate arguments:
 *
 *     if (vk_GetLogmanEnable())
 *         vk_printftomem(0, "encoder", 0, "%s %d channel=%d", __func__, __LINE__, channel);
 *
 * Beside the log there are the debug print channel, which keeps recent text in memory buffers of the callers', and the
 * upgrade log, which survives a power cut.
 */
#ifndef VELKOR_DIAGNOSTICS_H
#define VELKOR_DIAGNOSTICS_H

#include <pthread.h>
#include <stdint.h>

#include <velkor/api.h>

VELKOR_BEGIN_C

/** Number of filter texts, and of invert texts. */
#define VELKOR_LOGMAN_SLOTS 8
/** Bytes of one text, its terminator included. */
#define VELKOR_LOGMAN_SLOT_SIZE 256
/** Bytes of one record in the ring: the line and its zero padding. */
#define VELKOR_LOGMAN_RECORD_SIZE 1024

/**
 * The texts of which a line must contain one: eight slots of 256 bytes, a slot whose first byte is 0 is empty.
 * Change them through logman_set_filter(), which other threads may read past at any moment.
 */
extern VELKOR_API char g_logman_filter[VELKOR_LOGMAN_SLOTS * VELKOR_LOGMAN_SLOT_SIZE];

/** The texts of which a line must contain none: laid out as g_logman_filter, changed through logman_set_invert(). */
extern VELKOR_API char g_logman_invert[VELKOR_LOGMAN_SLOTS * VELKOR_LOGMAN_SLOT_SIZE];

/**
 * Write one line into the log.
 *
 * The line reads "[2026/11/15 10:25:17] [1234 module]message": local time, kernel thread id, module, and the
 * message right after the bracket. CR, TAB and LF become blanks. The message is cut at 1022 characters, the
 * line at 1023; the record is padded with zeros to 1024 bytes.
 *
 * Thread-safe, and usable in a forked child. Allocates nothing. Leaves `errno` as it was; "%m" prints the
 * caller's.
 *
 * @param level   accepted and ignored; 0 by custom
 * @param module  name of the reporting module; NULL prints as "(null)"
 * @param flags   accepted and ignored; 0 by custom
 * @param format  message in printf() form
 * @retval 0   the line was accepted, even where no ring buffer exists yet to hold it
 * @retval -1  the log is disabled or printing is off, @p format is NULL, or the filters dropped the line
 */
VELKOR_API int vk_printftomem(int level, const char *module, int flags, const char *format, ...) VELKOR_FORMAT(4, 5);

/**
 * Write one stamped line straight to "/dev/console", past the switch, the filters and the ring buffer.
 *
 * The line reads "[stamp] [thread module] source:line message"; control characters stay. The console is opened
 * at the first call and stays open. Thread-safe; can block as long as the console does.
 *
 * @param module  NULL prints as nothing
 * @param source  source file name; NULL prints as nothing
 * @param line    source line
 * @param format  message in printf() form, cut at 1022 characters; NULL prints as nothing
 * @retval 0   written (or buffered by the console's stream)
 * @retval -1  "/dev/console" could not be opened; the next call tries again
 */
VELKOR_API int vk_printf_tocon(const char *module, const char *source, int line, const char *format, ...)
    VELKOR_FORMAT(4, 5);

/** Whether "/dvrfile/logman" is known to exist: 1 or 0. Thread-safe: one load. */
VELKOR_API int vk_GetLogmanEnable(void);

/**
 * Look whether "/dvrfile/logman" appeared or disappeared, and follow it. The draining thread does this all the
 * time; a process without that thread may do it itself. Thread-safe; a call that finds a change reads a file.
 *
 * @retval 0   this call switched the log on: it found the file and read it
 * @retval -1  the file is absent (the log is now off), or the log was on already
 */
VELKOR_API int vk_OutLogToLogmanEnable(void);

/**
 * Start the log of this process: follow "/dvrfile/logman" once, then start the detached draining thread.
 * Call it once, at start-up; a second call starts a second draining thread.
 *
 * @return always 0, also where no thread could be started
 */
VELKOR_API int logman_init(void);

/**
 * The draining thread's body: writes at most one record to "/tmp/tty.logman" a pass and looks for the switch
 * file every hundredth pass. Never returns; for programs that bring their own thread.
 *
 * @param arg  handed to the thread registry as it is; may be NULL
 */
VELKOR_API void *logman_thread(void *arg);

/**
 * Read "/dvrfile/logman" now, whether or not it is new. Thread-safe; blocks while the file is read.
 *
 * Opens "/tmp/tty.logman", which must exist, when printing is on and it is not open; the ring buffer is made
 * the first time that succeeds. Closes it when printing is off and no thread is inside the ring.
 *
 * @retval 0   the file was read
 * @retval -1  it could not be opened: printing is off, the texts stay
 */
VELKOR_API int logman_read_config(void);

/**
 * Hold one line against the texts. Thread-safe, never waits for a change of the texts in progress: it sees
 * them as they were before or as they are after, not in between.
 *
 * @param line  a complete line, stamp included; may be NULL
 * @retval 1  keep it
 * @retval 0  drop it (also a NULL line)
 */
VELKOR_API int logman_match_filter(char *line);

/**
 * Set one filter text. Thread-safe.
 *
 * @param index  slot, 0 to 7; anything else changes nothing
 * @param text   its first 255 characters are kept; NULL empties the slot
 * @return always 0
 */
VELKOR_API int logman_set_filter(unsigned index, const char *text);

/**
 * Set one invert text. Thread-safe.
 *
 * @param index  slot, 0 to 7; anything else changes nothing
 * @param text   its first 255 characters are kept; NULL changes nothing (unlike logman_set_filter())
 * @return always 0
 */
VELKOR_API int logman_set_invert(unsigned index, const char *text);

/** @name Debug print channel
 * Recent debug text of a process, in up to eight buffers of 64 KiB that it registers, to be read back in one piece.
 * Tagged lines can be copied live to a pseudo-terminal.
 *
 *     static RtMsgBuf messages = {.lock = PTHREAD_MUTEX_INITIALIZER};
 *     int slot = find_empty_pointer();
 *     insert_global_pointer(slot, &messages);
 *     g_iRtGlobalfd = slot + 1;
 *     rt_JudgePrintEn();                                  // from now on every second or so
 *     rt_printf(slot + 1, "disk %d is full", disk);
 *     Rt_PrintfNoGlobalfd("alarm", "input %d closed", input);
 *
 * It is on while the directory "./rt_debug" exists in the process's working directory. A file "./rt_debug/mode.txt" in
 * it restricts and redirects what Rt_PrintfNoGlobalfd() prints:
 *
 * | the file | tags | live copy |
 * |---|---|---|
 * | is absent | every tag matches | as it was |
 * | reads `alarm disk` | those that occur in this text | as it was |
 * | reads `/dev/pts/3:alarm` | those that occur in "alarm" | to /dev/pts/3 |
 *
 * Up to 128 bytes of the file are read, and only when its modification time changed. The live copy ends with the
 * directory, or with a file that names another terminal.
 *
 * A line is "[2026/11/15 10:25:17 1234]" (local time, kernel thread id), the message right behind it, and its end: CR
 * LF is added; a final LF without a CR gets one behind it (LF CR), a final CR without a LF gets one. Stamp and message
 * are cut at 4093 characters.
 *
 * All functions are thread-safe. @{ */

/** Bytes of a message buffer's text; the last is always 0. */
#define VELKOR_MESSAGE_TEXT_SIZE 65536
/** Number of message buffers of a process. */
#define VELKOR_MESSAGE_SLOTS 8

/**
 * A message buffer. Whoever registers it owns it, clears it first, and keeps it until the process ends. A forked child
 * makes the lock anew, as a default mutex, where a thread holds it that is not there; what that thread was writing is
 * not part of the text.
 */
typedef struct RtMsgBuf {
    pthread_mutex_t lock;   /**< guards what follows; a default mutex */
    uint32_t flags;         /**< bit 0: has wrapped, bit 1: may wrap; through RtMsgEx_gFlag() and RtMsgEx_sFlag() */
    int32_t write_position; /**< index of the 0 behind the newest text */
    char text[VELKOR_MESSAGE_TEXT_SIZE]; /**< the text area */
} RtMsgBuf;

/** 1 while "./rt_debug" existed at the last rt_JudgePrintEn(). */
extern VELKOR_API int32_t g_iRtPrintEn;

/** The channel (1 to 8) of Rt_PrintfNoGlobalfd(). The process sets it. */
extern VELKOR_API int32_t g_iRtGlobalfd;

/** The first slot (0 to 7) without a buffer, or -1. The channel is the slot plus 1. */
VELKOR_API int find_empty_pointer(void);

/** Put @p buffer, or NULL, into slot @p index, whatever was there. A slot above 7 changes nothing. */
VELKOR_API void insert_global_pointer(unsigned index, RtMsgBuf *buffer);

/**
 * Keep a line in a message buffer, or log it where that cannot be.
 *
 * A full buffer that may wrap starts again at its beginning; one that may not drops the line in silence.
 *
 * @param channel  1 to 8
 * @param format   message in printf() form; NULL prints as nothing
 * @return 0 when the channel is on and has a buffer. Else the line goes to vk_printftomem(), whose result this is; 0
 * when the log is off, too
 */
VELKOR_API int rt_printf(unsigned channel, const char *format, ...) VELKOR_FORMAT(2, 3);

/**
 * Keep a line in the buffer of channel #g_iRtGlobalfd if its tag matches, and copy it live. Blocks as long as the
 * terminal of the live copy does.
 *
 * @param tag     matches when it occurs in the tag text of the mode file; NULL occurs nowhere
 * @param format  message in printf() form; NULL prints as nothing
 * @return when nothing is kept (off, no channel, no buffer, no match): 1 if the tag matches, else 0. Else the result of
 *         flushing the terminal, 0 without one
 */
VELKOR_API int Rt_PrintfNoGlobalfd(const char *tag, const char *format, ...) VELKOR_FORMAT(2, 3);

/** Follow "./rt_debug" and its mode file. Call it periodically, from one thread. @return always 0 */
VELKOR_API int rt_JudgePrintEn(void);

/**
 * Read a whole message buffer: get_msg0() that of channel 1, and so on.
 *
 * Of a buffer that has wrapped this is what is left of the older text, then the newest.
 *
 * @param out   @p size bytes; all of it is written, what is behind the text with zeros
 * @param size  65536 or more
 * @retval 0   read; also when there is no buffer, and @p out is untouched
 * @retval -1  @p size is too small
 * @retval -2  @p out is NULL (reported to the debug stream, `fpDebugFile` in firmware.h)
 */
VELKOR_API int get_msg0(char *out, int size);
VELKOR_API int get_msg1(char *out, int size); /**< channel 2, see get_msg0() */
VELKOR_API int get_msg2(char *out, int size); /**< channel 3, see get_msg0() */
VELKOR_API int get_msg3(char *out, int size); /**< channel 4, see get_msg0() */
VELKOR_API int get_msg4(char *out, int size); /**< channel 5, see get_msg0() */
VELKOR_API int get_msg5(char *out, int size); /**< channel 6, see get_msg0() */
VELKOR_API int get_msg6(char *out, int size); /**< channel 7, see get_msg0() */
VELKOR_API int get_msg7(char *out, int size); /**< channel 8, see get_msg0() */
/** @} */

/** @name Upgrade log
 * "log/upgrade.log" in the directory that Cfg_gConfigPath() (firmware.h) names; its path is cut at 63 characters. @{ */

/**
 * Append @p a, @p b and @p c as "[2026-1-5 9:3:7][a][b][c]" (local time, numbers without leading zeros) and a line end,
 * and see it onto the disk. Stamp and fields are cut at 511 characters in all. Thread-safe; lines of several processes
 * do not mix.
 *
 * @return not negative when the line was written; -1 when a field is NULL, the file could not be opened, or the line
 *         not written whole (the last two are logged)
 */
VELKOR_API int upgrade_WriteLog(const char *a, const char *b, const char *c);

/** Remove the upgrade log, if it is there. @return always 0 */
VELKOR_API int upgrade_UnlinkLog(void);
/** @} */

VELKOR_END_C

#endif

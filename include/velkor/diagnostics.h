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
 * The call at every site asks first, so that a process whose log is off does not even evaluate arguments:
 *
 *     if (vk_GetLogmanEnable())
 *         vk_printftomem(0, "encoder", 0, "%s %d channel=%d", __func__, __LINE__, channel);
 */
#ifndef VELKOR_DIAGNOSTICS_H
#define VELKOR_DIAGNOSTICS_H

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

VELKOR_END_C

#endif

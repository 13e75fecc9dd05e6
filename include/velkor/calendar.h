/**
 * @file calendar.h
 * Time and calendars: `timespec` arithmetic, dates as text, remembered clocks, daylight saving and the time zone, the
 * Persian solar calendar, and the astronomy that it stands on.
 *
 * Persian dates are exact, which means that a day has one date in each calendar and that both ways agree, from
 * 1 January of Gregorian year 1 on, and as long as the astronomy means anything: some ten thousand years. Years,
 * months and days beyond that give numbers without meaning, but never a hang or a crash: from Julian day -10000000
 * or +10000000 on the mean tropical year stands in for the equinox, and what no integer holds becomes the nearest one
 * that there is (0 for what is no number).
 *
 * A year's equinox costs some microseconds. Those of the Gregorian years 1 to 4095 are remembered: each is computed
 * once in a process, and later conversions of dates of the same year take nanoseconds. Outside these years every
 * conversion computes what it needs. All functions are reentrant unless said otherwise.
 *
 * A `time_t` is as wide as it was when the library was compiled: 32 bits on the recorder. Where a C library has both
 * widths, a program is compiled with the library's (no `_TIME_BITS=64` there).
 */
#ifndef VELKOR_CALENDAR_H
#define VELKOR_CALENDAR_H

#include <stdint.h>
#include <time.h>

#include <velkor/api.h>

VELKOR_BEGIN_C

struct timespec; /* strict ISO C hides the type; a pointer to one can still be handed on */

/** A date in either calendar: month 1 to 12, day 1 to 31. */
typedef struct velkor_date {
    int32_t year;
    int32_t month;
    int32_t day;
} velkor_date;

/** @name timespec arithmetic
 * Values are normalised: 0 to 999999999 nanoseconds. The result may be one of the arguments. A NULL argument is
 * reported to the debug stream (`fpDebugFile` in firmware.h). @{ */

/**
 * @p a minus @p b, for @p a not earlier than @p b.
 *
 * @retval 0   @p result is set
 * @retval -1  @p a is NULL, or earlier than @p b; @p result is untouched
 * @retval -2  @p b is NULL
 * @retval -3  @p result is NULL
 */
VELKOR_API int vk_timespec_AsubB(const struct timespec *a, const struct timespec *b, struct timespec *result);

/**
 * @p a plus @p b. One second at most is carried: arguments that are not normalised give a result that is not.
 *
 * @retval 0           @p result is set
 * @retval -1, -2, -3  @p a, @p b, @p result is NULL
 */
VELKOR_API int vk_timespec_AaddB(const struct timespec *a, const struct timespec *b, struct timespec *result);

/**
 * Compare two times.
 *
 * @retval 1   @p a is later
 * @retval 0   equal
 * @retval -1  @p a is earlier, or NULL: whoever may pass NULL must look first
 * @retval -2  @p b is NULL
 */
VELKOR_API int vk_timespec_cmp(const struct timespec *a, const struct timespec *b);
/** @} */

/** @name Dates as text
 * Local time, as the C library has it. All functions of this page that convert local time, these and those of daylight
 * saving, do so one thread at a time, and none is at it while a thread forks: a forked child can convert. That does not
 * hold for what the program calls itself. Where one of its threads is in localtime(), mktime() or their like while
 * another forks, every conversion of the child waits for ever. @{ */

/** The week days' abbreviations from "Sun" on. */
extern VELKOR_API const char *const g_pcWday[7];

/** Entry @p weekday of g_pcWday, or NULL above 6. */
VELKOR_API const char *vk_ascWeek(unsigned weekday);

/**
 * Read "20261115102517": year (four digits), month, day, hour, minute, second (two digits each), local time.
 *
 * The C library decides whether daylight time holds, and takes numbers out of range as it always does (32 October is
 * 1 November). What is missing at the end counts as the first of January and as 0:00:00.
 *
 * @param text  the digits; NULL gives -1
 * @return mktime()'s result: -1 for a date that it cannot represent, and for a text without a number
 */
VELKOR_API time_t StrToTime(const char *text);

/**
 * StrToTime() of the digits of a text, whatever stands between them: "2026-11-15 10:25:17". Writes a log line.
 *
 * @param text  at most 31 digits; more are left out. NULL gives -1
 */
VELKOR_API time_t StrToTimeEx(const char *text);

/**
 * Write a time by a template.
 *
 * | letter | becomes |
 * |---|---|
 * | Y | the year, four places |
 * | y | the year modulo 100 |
 * | M, m | the month, 01 to 12 |
 * | D, d | the day of the month |
 * | H, h | the hour, 00 to 23 |
 * | I, i | the minute |
 * | S, s | the second |
 *
 * Numbers have leading zeros and, but for Y, two places; a longer number is cut behind its places. Every other
 * byte stands for itself. "Y-M-D H:I:S" gives "2026-11-05 08:03:09".
 *
 * @param format   the template; NULL writes nothing
 * @param out      as many bytes as the text takes and 32 more; NULL writes nothing
 * @param seconds  since the epoch; below 1 means now
 */
VELKOR_API void TimeToString(const char *format, char *out, time_t seconds);

/** TimeToString() with year, month and day of the Persian calendar. Writes two log lines. */
VELKOR_API void CalTimeToString(const char *format, char *out, time_t seconds);

/**
 * Whether Persian dates are to be shown. The text functions do not look at this.
 *
 * @param argument  handed on as it is
 * @return what Cfg_GetCalenderEnable() (firmware.h) answers
 */
VELKOR_API int GetNvrSalorCalenderEnable(void *argument);
/** @} */

/** @name Clocks
 * A process that reads the clock very often lets one thread refresh the remembered readings. Thread-safe; a remembered
 * reading is one word, 32 bits wide on the recorder. @{ */

/**
 * The remembered time, or the current one while none is remembered.
 *
 * @param out  receives it as well; may be NULL
 * @return seconds since the epoch
 */
VELKOR_API time_t getmytime(time_t *out);

/** Remember the current time, for good or until the next call; answers it. */
VELKOR_API time_t setmytime(void);

/**
 * Remember the system's uptime.
 *
 * @return sysinfo()'s result: 0, or -1 with the reading before left as it was
 */
VELKOR_API int set_uptime(void);

/** The remembered uptime in seconds, or the current one while none (or 0) is remembered. */
VELKOR_API int get_uptime(void);

/** Uptime in milliseconds, from vkt_get_uptime_ms() (firmware.h); 0 when that fills nothing. */
VELKOR_API int64_t get_uptime_ms(void);

/** The low 32 bits of what vkt_get_time_diff() (firmware.h) fills: seconds of local time ahead of UTC, or 0. */
VELKOR_API int get_localtz_timediff(void);
/** @} */

/** @name Persian calendar
 * Its year begins on the day, at the meridian 52.5 degrees east, on which the March equinox falls before noon. A Julian
 * day is a double; days begin at midnight, at .5. Thread-safe. A NULL result pointer changes nothing. @{ */

/** 1 when the Gregorian @p year is a leap year, else 0. */
VELKOR_API int leap_gregorian(int year);

/** The same as leap_gregorian(). */
VELKOR_API int MiladiIsLeap(int year);

/**
 * Julian day of the Gregorian date @p year, @p month, @p day at 0:00: 2451544.5 for 1 January 2000. Exact for years
 * from 1 on.
 */
VELKOR_API double gregorian_to_jd(int year, int month, int day);

/** Gregorian date of the Julian day @p jd, into @p out. Exact for years from 1 on. */
VELKOR_API void jd_to_gregorian(velkor_date *out, double jd);

/**
 * March equinox of a Gregorian year in Tehran's apparent time, as a Julian day.
 *
 * Dynamical time by Meeus (Astronomical Algorithms, chapter 27), Delta T, equationOfTime(), the meridian.
 *
 * @param year  a fraction is left out
 */
VELKOR_API double tehran_equinox(double year);

/** tehran_equinox() rounded down: the noon before the first day of the Persian year. */
VELKOR_API double tehran_equinox_jd(int year);

/**
 * The Persian year of a day.
 *
 * @param year     receives the year
 * @param equinox  receives tehran_equinox_jd() of the equinox that the year begins with
 * @param jd       Julian day
 */
VELKOR_API void persiana_year(double *year, double *equinox, double jd);

/**
 * Julian day of the noon before the Persian date @p year, @p month, @p day. Months and days out of range are counted
 * on.
 */
VELKOR_API double persiana_to_jd(double year, double month, double day);

/**
 * Persian date of the Julian day @p jd, from midnight (.5) up to noon, into @p out. From noon on it is the next day's
 * date, because whole Julian days begin then.
 */
VELKOR_API void jd_to_persiana(velkor_date *out, double jd);

/** Julian day of the Persian date @p year, @p month, @p day at 0:00. */
VELKOR_API double persian_to_jd(int year, int month, int day);

/** The same as jd_to_persiana(). */
VELKOR_API void jd_to_persian(velkor_date *out, double jd);

/** 1 when the Persian @p year has 366 days, else 0. */
VELKOR_API int leap_persiana(int year);

/** The same as leap_persiana(). */
VELKOR_API int leap_persian(int year);

/** The Gregorian date @p year, @p month, @p day as a Persian date, into @p out. */
VELKOR_API void MiladiToShamsi(velkor_date *out, int year, int month, int day);

/**
 * The Persian date @p year, @p month, @p day as a Gregorian date, into @p out. A negative month counts back from the
 * end of the year before.
 */
VELKOR_API void ShamsiToMiladi(velkor_date *out, int year, int month, int day);

/**
 * Convert year, month and day of a record in place.
 *
 * @param date  with the year as people write it and the month from 1 on, not as localtime_r() leaves them
 * @retval 0   converted
 * @retval -1  @p date is NULL
 */
VELKOR_API int MiladiToShamsi_tm(struct tm *date);

/** As MiladiToShamsi_tm(), from the Persian calendar to the Gregorian. */
VELKOR_API int ShamsiToMiladi_tm(struct tm *date);

/** The calendar in which a date is given. */
enum velkor_calendar { VELKOR_GREGORIAN = 1, VELKOR_PERSIAN = 2 };

/**
 * The same day in the other calendar.
 *
 * @param type              calendar of the date given, see velkor_calendar
 * @param year, month, day  the date
 * @param out               receives the date in the other calendar
 * @retval 0     @p out is set
 * @retval -1    @p out is NULL, or a Persian date falls into Gregorian year -9999
 * @retval -103  unknown @p type
 */
VELKOR_API int conversionDate(int type, int year, int month, int day, velkor_date *out);

/**
 * Week day of a date.
 *
 * @param type              calendar of the date given, see velkor_calendar
 * @param year, month, day  the date
 * @param out               receives the result as well
 * @return 0 (Sunday) to 6; -1 when @p out is NULL or @p type is unknown
 */
VELKOR_API int getWeekByDate(int type, int year, int month, int day, int *out);

/** Days in month @p month of the Persian @p year (31 up to month 6, 30 up to 11, and 30 or 29 in month 12). */
VELKOR_API int GuiGetShamsiMaxDaysForMon(int year, int month);

/** A week day by its number in a month, as daylight rules have it. */
typedef struct velkor_month_week_day {
    int32_t year;
    int32_t month;   /**< 1 to 12 */
    int32_t week;    /**< 1 to 5 */
    int32_t weekday; /**< 1 (Monday) to 7 (Sunday) */
} velkor_month_week_day;

/**
 * A daylight rule given in the Persian calendar, as a Gregorian one of the same day. Writes five log lines.
 *
 * @param year     Persian year
 * @param month    1 to 12
 * @param week     1 to 5
 * @param weekday  1 (Monday) to 7 (Sunday)
 * @param out      receives the rule
 * @retval 0   @p out is set
 * @retval -1  @p out is NULL
 */
VELKOR_API int ShamsiToMiladi_DaylightSaving(int year, int month, int week, int weekday, velkor_month_week_day *out);

/**
 * How often a week day occurs in a Persian month. Writes two log lines.
 *
 * Two traits that callers know: month 12 has 30 days when the Gregorian leap rule holds for the Persian year, and week
 * days past Saturday are not counted on from Sunday (a month of 30 days that starts on a Saturday answers 5 for
 * Saturday only).
 *
 * @param year     Persian year
 * @param month    1 to 12
 * @param weekday  0 (Sunday) to 6
 * @return 4 or 5
 */
VELKOR_API int MiladiMonthNUM(int year, int month, int weekday);
/** @} */

/** @name Daylight saving and time zone
 * A zone code is an hour code, 88 to 113 for UTC + (code - 100) hours, or a long code, 8800 to 11400 for 10000 plus or
 * minus (hours times 100 plus minutes): 10530 is UTC+05:30. @{ */

/** When daylight time starts or stops. */
typedef struct velkor_daylight_rule {
    int32_t month;       /**< 1 to 12 */
    int32_t week;        /**< 1 to 5, 5 meaning the last */
    int32_t weekday;     /**< 0 (Sunday) to 6 */
    int32_t hour;        /**< 0 to 23, by the clock of the moment before */
    int32_t reserved[3]; /**< never touched */
} velkor_daylight_rule;

/** The daylight setting, unpacked. */
typedef struct DaylightConfig {
    int32_t zone;   /**< zone code */
    int32_t enable; /**< 0: off */
    int32_t offset; /**< minutes that daylight time is ahead */
    velkor_daylight_rule dst_start;
    velkor_daylight_rule dst_stop;
} DaylightConfig;

/**
 * A daylight setting as the recorder's messages carry it. A rule is packed into four bytes from the most
 * significant on: month - 1, week, week day, hour. The week is 1 to 5, and 0 also means the last.
 */
typedef struct velkor_packed_daylight {
    int32_t enable;
    int32_t offset; /**< minutes */
    uint32_t start;
    uint32_t stop;
} velkor_packed_daylight;

/** The transitions of a year. */
typedef struct velkor_daylight_transitions {
    int32_t offset; /**< seconds that daylight time is ahead */
    int32_t start;  /**< seconds since the epoch, the low 32 bits */
    int32_t stop;
} velkor_daylight_transitions;

/**
 * Day of the month of a week day.
 *
 * @param week           1 to 5; a week that the month does not have gives the one before
 * @param weekday        the wanted week day, 0 (Sunday) to 6
 * @param first_weekday  week day of the 1st
 * @param days           days in the month
 */
VELKOR_API int time_GetMdayByWeekAndWdayEx(int week, int weekday, int first_weekday, int days);

/**
 * mktime() of a date. A negative result is tried again with daylight flag 0.
 *
 * @param year, month, day, hour, minute, second  the date as people write it
 * @param dst  1, 0, or -1 to let the C library decide
 * @param out  receives the normalised record; may be NULL
 */
VELKOR_API time_t time_GetUtcByDate(int year, int month, int day, int hour, int minute, int second, int dst,
                                    struct tm *out);

/**
 * Unpack a daylight setting. Thread-safe.
 *
 * @param out     filled but for its reserved words; its zone is 0 for a packed setting
 * @param packed  the setting, or NULL for the shared one (`g_stDaylightSaving` in firmware.h), whose weeks count from 0
 * @retval 0   filled
 * @retval -1  @p out is NULL
 */
VELKOR_API int time_GetDaylightConfigV2(DaylightConfig *out, const velkor_packed_daylight *packed);

/** time_GetDaylightConfigV2() of the shared setting. */
VELKOR_API int time_GetDaylightConfig(DaylightConfig *out);

/**
 * When daylight time starts and stops in a year. The start is read without daylight time, the stop with it.
 *
 * @param year    Gregorian year
 * @param out     the transitions
 * @param config  the setting
 * @retval 0   @p out is filled
 * @retval -2  a NULL argument, or a month that is none (the start may be set already); logged
 * @retval -5  daylight saving is off; logged
 */
VELKOR_API int time_GetDaylightTransPosV2(int year, velkor_daylight_transitions *out, const DaylightConfig *config);

/** time_GetDaylightTransPosV2() of the shared setting. */
VELKOR_API int time_GetDaylightTransPos(int year, velkor_daylight_transitions *out);

/** 1 when the clock is not at the zone's standard time now, else 0 (also for a bad zone code, which is logged). */
VELKOR_API int vk_time_isInDaylight(void);

/**
 * Change the time zone: pause recording, write "/etc/TZ", save the setting, close the file, write an operation log
 * entry, restart recording. Thread-safe; blocks while the recording control pauses and while the file is written.
 *
 * When "/etc/TZ" cannot be written whole, the setting stays as it was, the file gets back what it held as far
 * as the disk allows, and everything else goes on.
 *
 * @param zone    zone code
 * @param handle  for the operation log
 * @param text    what the operation log shall say; NULL is written as "(null)"
 * @retval 0   done, also when "/etc/TZ" could not be written
 * @retval -1  bad zone code: nothing happened
 */
VELKOR_API int vk_setCurTimeZone(int zone, int handle, const char *text);

/**
 * The zone code of the shared setting. Thread-safe.
 *
 * @param flag  other than 0: answer a long code of whole hours as an hour code, 108 for 10800
 */
VELKOR_API int vk_getCurTimeZone(int flag);

/**
 * Ask for a change of the zone: at most 20 are granted in a period of 86400 seconds of uptime, which begins with the
 * first. Thread-safe: callers at the same moment are granted no more.
 *
 * @retval 0   granted, and counted
 * @retval -1  refused
 */
VELKOR_API int vk_isSetZoneEnable(void);

/** A daylight rule in the Persian calendar. */
typedef struct velkor_persian_rule {
    int32_t year;
    int32_t month;   /**< 1 to 12 */
    int32_t week;    /**< 0 to 4, 4 also meaning the last */
    int32_t weekday; /**< 0 (Sunday) to 6 */
    int32_t hour;    /**< 0 to 23 */
} velkor_persian_rule;

/**
 * The instant of a daylight rule, without daylight time.
 *
 * @param rule  the rule
 * @param out   receives mktime()'s result
 * @retval 0   @p out is set
 * @retval -1  a NULL argument, or a number of the rule is too large (or the month below 1)
 * @retval -2  no week day
 * @retval -3  no such day
 * @retval -4  no such date
 */
VELKOR_API int getTimeByDSTParam(const velkor_persian_rule *rule, time_t *out);
/** @} */

/** @name Astronomy
 * Jean Meeus, Astronomical Algorithms, 2nd edition. Angles are degrees, instants Julian days, unless said otherwise. @{
 */

/** @p arc_seconds in radians. */
VELKOR_API double astor(double arc_seconds);

/** @p degrees in radians. */
VELKOR_API double dtr(double degrees);

/** @p radians in degrees. */
VELKOR_API double rtd(double radians);

/** An angle of @p degrees reduced to 0 up to 360. */
VELKOR_API double fixangle(double degrees);

/** An angle of @p radians reduced to 0 up to 2 pi. */
VELKOR_API double fixangr(double radians);

/** Sine of an angle of @p degrees. */
VELKOR_API double dsin(double degrees);

/** Cosine of an angle of @p degrees. */
VELKOR_API double dcos(double degrees);

/** Remainder of @p a by @p b, with the sign of @p b: mod(-1, 7) is 6. Not a number for @p b = 0. */
VELKOR_API double mod(double a, double b);

/** Remainder of @p a by @p b, from 1 to @p b: amod(7, 7) is 7. */
VELKOR_API double amod(double a, double b);

/**
 * Mean obliquity of the ecliptic at the instant @p jd by Laskar's polynomial (chapter 22). More than 10000 years from
 * 2000 it is the obliquity of 2000.
 */
VELKOR_API double obliqeq(double jd);

/**
 * Nutation by the 63 largest terms of the IAU 1980 series (chapter 22). Writes nothing when a pointer is NULL.
 *
 * @param jd         instant, dynamical time
 * @param longitude  receives the nutation in longitude
 * @param obliquity  receives the nutation in obliquity
 */
VELKOR_API void nutation(double jd, double *longitude, double *obliquity);

/**
 * Equatorial coordinates of a point by its ecliptical ones (chapter 13). Writes nothing when a pointer is NULL.
 *
 * @param jd               instant whose mean obliquity is used
 * @param longitude        ecliptical longitude
 * @param latitude         ecliptical latitude
 * @param right_ascension  receives the right ascension, 0 up to 360
 * @param declination      receives the declination, -90 to 90
 */
VELKOR_API void ecliptoeq(double jd, double longitude, double latitude, double *right_ascension, double *declination);

/**
 * Dynamical time minus universal time in @p year, in seconds: a table for 1620 to 2000, polynomials elsewhere
 * (chapter 10).
 */
VELKOR_API double deltat(int year);

/** Number of values that sunpos() writes. */
#define VELKOR_SUNPOS_VALUES 12

/**
 * Position of the Sun, low precision (chapter 25).
 *
 * @param jd   instant, dynamical time
 * @param out  receives, in this order: mean longitude, mean anomaly, eccentricity of the Earth's orbit, equation of the
 *             centre, true longitude, true anomaly, distance in astronomical units, apparent longitude, right
 *             ascension, declination, apparent right ascension, apparent declination. NULL writes nothing
 */
VELKOR_API void sunpos(double jd, double out[VELKOR_SUNPOS_VALUES]);

/**
 * Equation of time at the instant @p jd as the Persian calendar of this recorder has it, in days (chapter 28, reduced
 * in a way of its own): near the March equinox some 25 minutes more than apparent minus mean time.
 */
VELKOR_API double equationOfTime(double jd);

/**
 * March equinox (chapter 27).
 *
 * @param year   Gregorian year (astronomical: year 0 is 1 BC)
 * @param which  0 = March; no other is known: not a number
 * @return the instant in dynamical time
 */
VELKOR_API double equinox(int year, int which);
/** @} */

VELKOR_END_C

#endif

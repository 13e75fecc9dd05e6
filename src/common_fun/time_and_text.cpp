// Time arithmetic, dates as text, and remembered clocks.
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/sysinfo.h>
#include <time.h>

#include <array>
#include <atomic>

#include <velkor/calendar.h>
#include <velkor/firmware.h>

#include "support/assertion_report.h"
#include "support/local_time.h"
#include "support/log.h"

const char *const g_pcWday[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

namespace {

constexpr const char *SOURCE = "src/common_fun";
constexpr long NANOSECONDS = 1000000000;

// Numbers that callers made up may be too large for their type. They wrap, as on the recorder.
template <typename Number>
Number wrapping_sum(Number a, Number b) {
    Number sum;
    (void)__builtin_add_overflow(a, b, &sum);
    return sum;
}

template <typename Number>
Number wrapping_difference(Number a, Number b) {
    Number difference;
    (void)__builtin_sub_overflow(a, b, &difference);
    return difference;
}

bool is_earlier(const struct timespec &a, const struct timespec &b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

// Looks for the first argument that is missing and reports it under its line, which follow each other. Answers -1, -2
// or -3 by its place; 0 when all are there.
int missing(const char *function, int first_line, const void *a, const void *b, const void *result) {
    constexpr std::array EXPRESSIONS = {"NULL != _pA", "NULL != _pB", "NULL != _pRes"};
    const std::array arguments = {a, b, result};
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == nullptr) {
            velkor::report_assertion(SOURCE, first_line + static_cast<int>(i), function, EXPRESSIONS[i]);
            return -1 - static_cast<int>(i);
        }
    }
    return 0;
}

}  // namespace

// ---- timespec -----------------------------------------------------------------------------------------------------

int vk_timespec_AsubB(const struct timespec *a, const struct timespec *b, struct timespec *result) {
    if (const int code = missing("vk_timespec_AsubB", 1755, a, b, result)) {
        return code;
    }
    if (is_earlier(*a, *b)) {
        return -1;
    }
    const bool borrows = a->tv_nsec < b->tv_nsec;
    const time_t seconds = wrapping_difference(a->tv_sec, b->tv_sec);
    const long nanoseconds = wrapping_difference(a->tv_nsec, b->tv_nsec);
    result->tv_sec = borrows ? wrapping_difference<time_t>(seconds, 1) : seconds;
    result->tv_nsec = borrows ? wrapping_sum(nanoseconds, NANOSECONDS) : nanoseconds;
    return 0;
}

int vk_timespec_AaddB(const struct timespec *a, const struct timespec *b, struct timespec *result) {
    if (const int code = missing("vk_timespec_AaddB", 1794, a, b, result)) {
        return code;
    }
    const time_t seconds = wrapping_sum(a->tv_sec, b->tv_sec);
    const long nanoseconds = wrapping_sum(a->tv_nsec, b->tv_nsec);
    const bool carries = nanoseconds > NANOSECONDS - 1;
    result->tv_sec = carries ? wrapping_sum<time_t>(seconds, 1) : seconds;
    result->tv_nsec = carries ? nanoseconds - NANOSECONDS : nanoseconds;
    return 0;
}

int vk_timespec_cmp(const struct timespec *a, const struct timespec *b) {
    if (const int code = missing("vk_timespec_cmp", 1827, a, b, a)) {
        return code;
    }
    if (is_earlier(*a, *b)) {
        return -1;
    }
    return is_earlier(*b, *a) ? 1 : 0;
}

// ---- From text ----------------------------------------------------------------------------------------------------

namespace {

constexpr size_t DIGITS_SIZE = 32;

struct Digits {
    char text[DIGITS_SIZE];
};

// What does not fit is left out.
Digits digits_of(const char *text) {
    Digits digits = {};
    size_t length = 0;
    for (; *text != '\0' && length < DIGITS_SIZE - 1; ++text) {
        if (*text >= '0' && *text <= '9') {
            digits.text[length++] = *text;
        }
    }
    return digits;
}

}  // namespace

time_t StrToTime(const char *text) {
    struct tm date;
    memset(&date, 0, sizeof date);
    date.tm_mon = 1;
    date.tm_mday = 1;
    if (text == nullptr || sscanf(text, "%4d%2d%2d%2d%2d%2d", &date.tm_year, &date.tm_mon, &date.tm_mday, &date.tm_hour,
                                  &date.tm_min, &date.tm_sec) < 1) {
        return -1;
    }
    date.tm_year -= 1900;
    date.tm_mon -= 1;
    date.tm_isdst = -1;
    return velkor::instant_of(date);
}

time_t StrToTimeEx(const char *text) {
    if (text == nullptr) {
        return -1;
    }
    const Digits digits = digits_of(text);
    VK_LOG("%d:%s _strTm==%s,cBuf==%s", 1697, "StrToTimeEx", text, digits.text);
    return StrToTime(digits.text);
}

const char *vk_ascWeek(unsigned weekday) { return weekday <= 6 ? g_pcWday[weekday] : nullptr; }

// ---- To text ------------------------------------------------------------------------------------------------------

namespace {

// Year and month as people write them.
struct tm local_date(time_t seconds) {
    struct tm date = velkor::local_time(seconds < 1 ? time(nullptr) : seconds);
    date.tm_year = wrapping_sum(date.tm_year, 1900);
    date.tm_mon += 1;
    return date;
}

// "00" to "99".
constexpr std::array<char, 200> TWO_DIGITS = [] {
    std::array<char, 200> digits = {};
    for (size_t i = 0; i < 100; ++i) {
        digits[2 * i] = static_cast<char>('0' + i / 10);
        digits[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return digits;
}();

// A number as printf() would write it with this width and blanks, the blanks then replaced: "00-5". Of a longer one the
// first places stay.
char *append_odd_number(char *out, int number, size_t places) {
    char text[16];
    snprintf(text, sizeof text, "%*d", static_cast<int>(places), number);
    for (size_t i = 0; i < places; ++i) {
        out[i] = text[i] == ' ' ? '0' : text[i];
    }
    return out + places;
}

char *append_two(char *out, int number) {
    if (number < 0 || number > 99) {
        return append_odd_number(out, number, 2);
    }
    memcpy(out, &TWO_DIGITS[static_cast<size_t>(number) * 2], 2);
    return out + 2;
}

char *append_four(char *out, int number) {
    if (number < 0 || number > 9999) {
        return append_odd_number(out, number, 4);
    }
    return append_two(append_two(out, number / 100), number % 100);
}

// What a letter of a template stands for.
enum Field : uint8_t { ITSELF, LONG_YEAR, SHORT_YEAR, MONTH, DAY, HOUR, MINUTE, SECOND, FIELDS };

// By letter. A table, because a switch that jumps by each letter costs as much as all the rest.
constexpr std::array<Field, 256> FIELD_OF_LETTER = [] {
    std::array<Field, 256> fields = {};
    fields['Y'] = LONG_YEAR;
    fields['y'] = SHORT_YEAR;
    fields['M'] = fields['m'] = MONTH;
    fields['D'] = fields['d'] = DAY;
    fields['H'] = fields['h'] = HOUR;
    fields['I'] = fields['i'] = MINUTE;
    fields['S'] = fields['s'] = SECOND;
    return fields;
}();

void write_by_template(const char *format, char *out, const struct tm &date) {
    const std::array<int, FIELDS> values = {
        0, date.tm_year, date.tm_year % 100, date.tm_mon, date.tm_mday, date.tm_hour, date.tm_min, date.tm_sec};
    for (; *format != '\0'; ++format) {
        const Field field = FIELD_OF_LETTER[static_cast<unsigned char>(*format)];
        if (field == ITSELF) {
            *out++ = *format;
        } else if (field == LONG_YEAR) {
            out = append_four(out, values[field]);
        } else {
            out = append_two(out, values[field]);
        }
    }
    *out = '\0';
}

}  // namespace

void TimeToString(const char *format, char *out, time_t seconds) {
    if (format == nullptr || out == nullptr) {
        return;
    }
    write_by_template(format, out, local_date(seconds));
}

void CalTimeToString(const char *format, char *out, time_t seconds) {
    if (format == nullptr || out == nullptr) {
        return;
    }
    struct tm date = local_date(seconds);
    VK_LOG("%s %d before year=%d, mon=%d, mday=%d", "CalTimeToString", 2342, date.tm_year, date.tm_mon, date.tm_mday);
    MiladiToShamsi_tm(&date);
    VK_LOG("%s %d after year=%d, mon=%d, mday=%d", "CalTimeToString", 2344, date.tm_year, date.tm_mon, date.tm_mday);
    write_by_template(format, out, date);
}

int GetNvrSalorCalenderEnable(void *argument) { return Cfg_GetCalenderEnable(argument); }

// ---- Clocks -------------------------------------------------------------------------------------------------------

namespace {

// One word each: written by the process's refreshing thread, read by all. 32 bits on the recorder; where words are
// wider a remembered time still holds after 2038.
std::atomic<long> saved_time{0};
std::atomic<int> saved_uptime{0};

}  // namespace

time_t getmytime(time_t *out) {
    const time_t saved = saved_time.load(std::memory_order_relaxed);
    const time_t now = saved != 0 ? saved : time(nullptr);
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

time_t setmytime() {
    const time_t now = time(nullptr);
    saved_time.store(static_cast<long>(now), std::memory_order_relaxed);
    return now;
}

int set_uptime() {
    struct sysinfo info;
    const int result = sysinfo(&info);
    if (result == 0) {
        saved_uptime.store(static_cast<int>(info.uptime), std::memory_order_relaxed);
    }
    return result;
}

int get_uptime() {
    const int saved = saved_uptime.load(std::memory_order_relaxed);
    if (saved != 0) {
        return saved;
    }
    struct sysinfo info;
    return sysinfo(&info) == 0 ? static_cast<int>(info.uptime) : 0;
}

int64_t get_uptime_ms() {
    int64_t milliseconds = 0;
    vkt_get_uptime_ms(&milliseconds);
    return milliseconds;
}

int get_localtz_timediff() {
    int64_t difference = 0;
    vkt_get_time_diff(&difference);
    return static_cast<int32_t>(difference);
}

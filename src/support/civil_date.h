// Dates of the Gregorian calendar by arithmetic alone, for who must not wait for the C library's lock of the time zone.
//
// Howard Hinnant, "chrono-Compatible Low-Level Date Algorithms", days_from_civil() and civil_from_days(): the year
// begins in March, so that the leap day is its last, and 400 years (an era) are 146097 days.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

namespace velkor {

inline constexpr int64_t SECONDS_OF_A_DAY = 86400;
inline constexpr int64_t DAYS_OF_AN_ERA = 146097;
inline constexpr int64_t DAYS_BEFORE_1970 = 719468;  // from 1 March of year 0

// Rounded down, also below 0.
constexpr int64_t quotient(int64_t a, int64_t b) { return a / b - (a % b < 0 ? 1 : 0); }

// Days since 1 January 1970. The month is 1 to 12.
constexpr int64_t days_of_date(int64_t year, int month, int day) {
    const int64_t years = year - (month <= 2 ? 1 : 0);
    const int64_t era = quotient(years, 400);
    const int64_t year_of_era = years - era * 400;
    const int64_t month_from_march = (month + 9) % 12;
    const int64_t day_of_year = (153 * month_from_march + 2) / 5 + day - 1;
    const int64_t day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
    return era * DAYS_OF_AN_ERA + day_of_era - DAYS_BEFORE_1970;
}

// Year, month, day and week day of a day since 1 January 1970, as the C library's records have them.
inline void set_date(struct tm &out, int64_t days) {
    const int64_t shifted = days + DAYS_BEFORE_1970;
    const int64_t era = quotient(shifted, DAYS_OF_AN_ERA);
    const int64_t day_of_era = shifted - era * DAYS_OF_AN_ERA;
    const int64_t year_of_era = (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const int64_t day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const int64_t month_from_march = (5 * day_of_year + 2) / 153;
    const int64_t month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
    const int64_t year = era * 400 + year_of_era + (month <= 2 ? 1 : 0);
    out.tm_mday = static_cast<int>(day_of_year - (153 * month_from_march + 2) / 5 + 1);
    out.tm_mon = static_cast<int>(month - 1);
    out.tm_year = static_cast<int>(year - 1900);
    out.tm_wday = static_cast<int>(days + 4 - quotient(days + 4, 7) * 7);  // 1 January 1970 was a Thursday
}

// The seconds since the epoch at which a clock of UTC shows this date.
inline int64_t seconds_of_date(const struct tm &date) {
    const int64_t days = days_of_date(int64_t{date.tm_year} + 1900, date.tm_mon + 1, date.tm_mday);
    return days * SECONDS_OF_A_DAY + date.tm_hour * int64_t{3600} + date.tm_min * int64_t{60} + date.tm_sec;
}

// What a clock of UTC shows. The day of the year is not told.
inline struct tm date_of_seconds(int64_t seconds) {
    struct tm date;
    memset(&date, 0, sizeof date);
    const int64_t days = quotient(seconds, SECONDS_OF_A_DAY);
    const auto rest = static_cast<int>(seconds - days * SECONDS_OF_A_DAY);
    set_date(date, days);
    date.tm_hour = rest / 3600;
    date.tm_min = rest / 60 % 60;
    date.tm_sec = rest % 60;
    return date;
}

inline constexpr size_t CLOCK_TEXT_SIZE = 26;

// "Tue Nov 14 22:13:20 2023" and a line end, as ctime() writes it; nothing where that has no room for the year.
inline void format_clock_text(char (&out)[CLOCK_TEXT_SIZE], const struct tm &date) {
    constexpr const char *DAYS = "SunMonTueWedThuFriSat";
    constexpr const char *MONTHS = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const int length = snprintf(out, sizeof out, "%.3s %.3s%3d %02d:%02d:%02d %d\n", DAYS + 3 * ptrdiff_t{date.tm_wday},
                                MONTHS + 3 * ptrdiff_t{date.tm_mon}, date.tm_mday, date.tm_hour, date.tm_min,
                                date.tm_sec, date.tm_year + 1900);
    if (length < 0 || static_cast<size_t>(length) >= sizeof out) {
        out[0] = '\0';
    }
}

}  // namespace velkor

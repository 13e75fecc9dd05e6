// The Persian solar calendar in its astronomical form, and the Gregorian calendar beside it.
//
// A Persian year begins on the day on which, at Tehran's meridian, the March equinox falls before noon. To find an
// equinox takes some four hundred sines and cosines, and a conversion needs two to a dozen: so the noon before each
// equinox is remembered by Gregorian year. Where the years are remembered a conversion works on whole days; everywhere
// else it takes the steps of the astronomical calendar as they are. Both ways give the same dates.
#include <math.h>
#include <stdint.h>

#include <algorithm>
#include <array>
#include <atomic>

#include <velkor/calendar.h>

#include "support/log.h"
#include "support/mean_equinox.h"
#include "support/saturate.h"

namespace {

using velkor::to_int;

constexpr double GREGORIAN_EPOCH = 1721425.5;
constexpr double PERSIAN_EPOCH = 1948320.5;
constexpr double TROPICAL_YEAR = 365.24219878;
constexpr double TEHRAN_MERIDIAN = 0.14583333333333334;  // 52.5 degrees east, in days
constexpr double SECONDS_IN_DAY = 86400.0;

constexpr int FAILED_CONVERSION_YEAR = -9999;
constexpr int UNKNOWN_TYPE = -103;

// ---- The Gregorian calendar, in whole days ----

constexpr int DAYS_IN_400_YEARS = 146097;
constexpr int DAYS_IN_100_YEARS = 36524;
constexpr int DAYS_IN_4_YEARS = 1461;
constexpr int DAYS_IN_YEAR = 365;

// Days are counted from here: 1 January of year 1 is day 0.
constexpr double DAY_ZERO = GREGORIAN_EPOCH;

// Days from here on, in either direction, are taken for this one, whose year still fits 32 bits.
constexpr double MOST_DAYS = 7.8e11;

// Four times as many days fit 32 bits.
constexpr double MOST_QUICK_DAYS = 1e9;

// Of the years of a century only those that 16 divides are leap, of the others those that 4 divides.
bool is_gregorian_leap(int year) { return year % 25 == 0 ? year % 16 == 0 : year % 4 == 0; }

// Whether a date of such numbers has a day that 32 bits hold. On the recorder a 64-bit division is a function call.
bool is_small(int number) { return number > -1000000 && number < 1000000; }

// The divisions drop the fraction, also of years before year 1, whose days are therefore not in step.
template <typename Integer>
Integer days_before_year(Integer year) {
    const Integer before = year - 1;
    const Integer centuries = before / 100;
    return 365 * before + before / 4 - centuries + centuries / 4;
}

template <typename Integer>
Integer days_before_month(Integer month, bool is_leap) {
    const Integer correction = month <= 2 ? 0 : (is_leap ? -1 : -2);
    return (367 * month - 362) / 12 + correction;
}

// Of which 1 January of year 1 is number 0. What a conversion calls is marked inline here, and so inlined at -O2: the
// calls were a third of its time.
template <typename Integer>
inline Integer gregorian_day(Integer year, Integer month, Integer day) {
    return days_before_year(year) + days_before_month(month, is_gregorian_leap(static_cast<int>(year))) + day - 1;
}

struct Division {
    int64_t quotient;
    int64_t remainder;
};

// Rounded down.
template <int BY>
Division divide(int64_t value) {
    const int64_t quotient = value / BY - (value % BY < 0 ? 1 : 0);
    return {quotient, value - quotient * BY};
}

velkor_date gregorian_date_by_steps(int64_t day) {
    const Division four_centuries = divide<DAYS_IN_400_YEARS>(day);
    const Division century = divide<DAYS_IN_100_YEARS>(four_centuries.remainder);
    const Division four_years = divide<DAYS_IN_4_YEARS>(century.remainder);
    const int64_t year_of_four = four_years.remainder / DAYS_IN_YEAR;
    const bool is_last_day_of_leap_year = century.quotient == 4 || year_of_four == 4;
    const int64_t year = 400 * four_centuries.quotient + 100 * century.quotient + 4 * four_years.quotient +
                         year_of_four + (is_last_day_of_leap_year ? 0 : 1);
    const bool is_leap = is_gregorian_leap(to_int(year));
    const int day_of_year = to_int(day - days_before_year(year));
    const int leap_days = day_of_year < days_before_month(3, is_leap) ? 0 : (is_leap ? 1 : 2);
    const int month = to_int(divide<367>((day_of_year + leap_days) * 12 + 373).quotient);
    return {to_int(year), month, day_of_year - days_before_month(month, is_leap) + 1};
}

// From day 0 on the steps come to the same as this, which takes a fifth of their time: years begin in March, so that
// the leap day is the last, and divisions are multiplications (C. Neri, L. Schneider: Euclidean affine functions and
// their application to calendar algorithms, Software: Practice and Experience 53, 2023).
velkor_date gregorian_date_from_day_zero(uint32_t day) {
    constexpr uint32_t DAYS_FROM_MARCH = 306;  // 1 March of year 0 to 1 January of year 1
    const uint32_t quarters = 4 * (day + DAYS_FROM_MARCH) + 3;
    const uint32_t century = quarters / DAYS_IN_400_YEARS;
    const uint32_t quarters_of_century = quarters % DAYS_IN_400_YEARS | 3;
    const uint64_t years = uint64_t{2939745} * quarters_of_century;
    const uint32_t year = 100 * century + static_cast<uint32_t>(years >> 32);
    const uint32_t day_of_year = static_cast<uint32_t>(years) / 2939745 / 4;
    const uint32_t months = 2141 * day_of_year + 197913;
    const uint32_t month = months >> 16;
    const bool is_next_year = day_of_year >= DAYS_FROM_MARCH;
    return {static_cast<int>(is_next_year ? year + 1 : year), static_cast<int>(is_next_year ? month - 12 : month),
            static_cast<int>((months & 0xffff) / 2141) + 1};
}

// ---- Remembered equinoxes ----

// Gregorian years whose equinoxes are remembered: every year that a recorder will ever show, and some to spare. The
// pages of years that nobody asks for take no memory.
constexpr int FIRST_REMEMBERED = 1;
constexpr int LAST_REMEMBERED = 4095;

// In these years the Persian year that begins with the equinox has this much less.
constexpr int PERSIAN_YEAR_OFFSET = 621;

// Julian day number of the noon before the equinox; 0 = not known yet. A thread that finds none computes it, and all
// that do store the same number: no order between them is needed.
std::array<std::atomic<int32_t>, LAST_REMEMBERED + 1> equinox_noons;

bool is_remembered(int gregorian_year) {
    return gregorian_year >= FIRST_REMEMBERED && gregorian_year <= LAST_REMEMBERED;
}

double computed_noon(int gregorian_year) { return floor(tehran_equinox(gregorian_year)); }

// The noon before an equinox that is known but for this deviation; 0 where another noon is as near as that.
double noon_before(double equinox, double deviation) {
    const double noon = floor(equinox - deviation);
    return noon == floor(equinox + deviation) ? noon : 0.0;
}

// The series moves an equinox of these years by less than 0.0134 day from its mean, and the equation of time then has
// 0.0125 to 0.0131 day. So the mean tells the noon of 29 years in 30, and the series most others; for one year in 500
// the whole computation must.
double noon_of_year(int gregorian_year) {
    constexpr double USUAL_EQUATION = 0.0128;
    const double shift = USUAL_EQUATION + TEHRAN_MERIDIAN - deltat(gregorian_year) / SECONDS_IN_DAY;
    double noon = noon_before(velkor::mean_march_equinox(gregorian_year) + shift, 0.0145);
    if (noon == 0.0) {
        noon = noon_before(equinox(gregorian_year, 0) + shift, 0.001);
    }
    return noon != 0.0 ? noon : computed_noon(gregorian_year);
}

[[gnu::noinline]] int32_t compute_and_remember(int gregorian_year) {
    const auto noon = static_cast<int32_t>(noon_of_year(gregorian_year));
    equinox_noons[static_cast<size_t>(gregorian_year)].store(noon, std::memory_order_relaxed);
    return noon;
}

int32_t remembered_noon(int gregorian_year) {
    const int32_t noon = equinox_noons[static_cast<size_t>(gregorian_year)].load(std::memory_order_relaxed);
    return noon != 0 ? noon : compute_and_remember(gregorian_year);
}

// A Persian year: its number and the Julian day number of the noon before its first day.
struct PersianYear {
    int year;
    int32_t noon;
};

constexpr int DAY_ZERO_NUMBER = 1721425;  // of DAY_ZERO, rounded down

// Julian day numbers of which the year, and the years around it, are remembered.
constexpr int FIRST_FAST_DAY = DAY_ZERO_NUMBER + 3 * 366;
constexpr int LAST_FAST_DAY = DAY_ZERO_NUMBER + (LAST_REMEMBERED - 3) * 365;

template <typename Number>
bool is_fast(Number day) {
    return day >= FIRST_FAST_DAY && day < LAST_FAST_DAY;
}

// `year` is where to begin: the Gregorian year of the day, or about that.
inline PersianYear remembered_year_of(int32_t day, int year) {
    while (remembered_noon(year) > day) {
        --year;
    }
    while (remembered_noon(year + 1) <= day) {
        ++year;
    }
    return {year - PERSIAN_YEAR_OFFSET, remembered_noon(year)};
}

PersianYear remembered_year_of(int32_t day) {
    return remembered_year_of(day, (day - DAY_ZERO_NUMBER) * 33 / 12053 + 1);  // the calendar's mean year, near enough
}

// ---- The steps of the astronomical calendar ----

// The walk from equinox to equinox ends as long as the computed ones follow each other as years do.
constexpr double MOST_JULIAN_DAY = 1e7;

bool is_walkable(double jd) { return fabs(jd) < MOST_JULIAN_DAY; }

double year_number(double noon) { return round((noon - PERSIAN_EPOCH) / TROPICAL_YEAR) + 1.0; }

void walk_to_year(double &year, double &noon, double jd) {
    velkor_date date;
    jd_to_gregorian(&date, jd);
    int trial = date.year - 2;
    double last = tehran_equinox_jd(trial);
    while (last > jd) {
        --trial;
        last = tehran_equinox_jd(trial);
    }
    double next = last - 1.0;
    while (!(last <= jd && jd < next)) {
        last = next;
        ++trial;
        next = tehran_equinox_jd(trial);
    }
    year = year_number(last);
    noon = last;
}

double walk_to_first_noon(double year) {
    double trial = PERSIAN_EPOCH - 1.0 + TROPICAL_YEAR * (year - 2.0);
    double found = year - 1.0;
    double noon = 0.0;
    while (found < year) {
        persiana_year(&found, &noon, trial);
        trial = noon + (TROPICAL_YEAR + 2.0);
    }
    return noon;
}

double mean_first_noon(double year) { return floor(PERSIAN_EPOCH + TROPICAL_YEAR * (year - 1.0)); }

double first_noon(double year) {
    const double gregorian_year = year + PERSIAN_YEAR_OFFSET;
    if (gregorian_year >= FIRST_REMEMBERED && gregorian_year <= LAST_REMEMBERED) {
        const int whole = static_cast<int>(gregorian_year);
        return remembered_noon(whole < gregorian_year ? whole + 1 : whole);
    }
    const double mean = mean_first_noon(year);
    return fabs(mean) < MOST_JULIAN_DAY - 1000.0 ? walk_to_first_noon(year) : mean;
}

// ---- Dates in a Persian year ----

constexpr int DAYS_IN_FIRST_HALF = 186;

inline velkor_date date_in_year(const PersianYear &found, int32_t day) {
    const int year = found.year;
    const int day_of_year = day - found.noon + 1;
    if (day_of_year <= DAYS_IN_FIRST_HALF) {
        const int month = (day_of_year - 1) / 31;
        return {year, month + 1, day_of_year - month * 31};
    }
    const int month = (day_of_year - 7) / 30;
    return {year, month + 1, day_of_year - 6 - month * 30};
}

velkor_date persian_date_by_steps(double jd) {
    const double day = floor(jd);
    double year = 0.0;
    double noon = 0.0;
    persiana_year(&year, &noon, day + 0.5);
    const double day_of_year = day - persiana_to_jd(year, 1.0, 1.0) + 1.0;
    const double month =
        day_of_year <= DAYS_IN_FIRST_HALF ? ceil(day_of_year / 31.0) : ceil((day_of_year - 6.0) / 30.0);
    return {to_int(year), to_int(month), to_int(day - persiana_to_jd(year, month, 1.0) + 1.0)};
}

int days_in_persian_month(int month, int leap) {
    if (month < 7) {
        return 31;
    }
    return month < 12 || leap == 1 ? 30 : 29;
}

int sunday_as_7(int weekday) { return weekday == 0 ? 7 : weekday; }

// In 32 bits, whatever the numbers are.
int first_of_week(int week, int weekday, int first_weekday) {
    const int64_t first = int64_t{weekday} - first_weekday + (weekday < first_weekday ? 8 : 1);
    return to_int((int64_t{week} - 1) * 7 + first);
}

}  // namespace

// ---- Gregorian dates ----------------------------------------------------------------------------------------------

int leap_gregorian(int year) { return is_gregorian_leap(year) ? 1 : 0; }

int MiladiIsLeap(int year) { return leap_gregorian(year); }

double gregorian_to_jd(int year, int month, int day) {
    if (is_small(year) && is_small(month) && is_small(day)) {
        return DAY_ZERO + gregorian_day<int>(year, month, day);
    }
    return DAY_ZERO + static_cast<double>(gregorian_day<int64_t>(year, month, day));
}

void jd_to_gregorian(velkor_date *out, double jd) {
    if (out == nullptr) {
        return;
    }
    const double day = jd - DAY_ZERO;
    if (day >= 0.0 && day < MOST_QUICK_DAYS) {
        *out = gregorian_date_from_day_zero(static_cast<uint32_t>(day));
    } else if (day == day) {
        const double whole = floor(jd - 0.5) + 0.5 - DAY_ZERO;
        *out = gregorian_date_by_steps(static_cast<int64_t>(std::clamp(whole, -MOST_DAYS, MOST_DAYS)));
    } else {
        *out = {0, 0, 0};
    }
}

// ---- Persian years ------------------------------------------------------------------------------------------------

double tehran_equinox(double year) {
    if (year != year) {
        return year;
    }
    const int whole = to_int(year);
    const double dynamical = equinox(whole, 0);
    const double universal = dynamical - deltat(whole) / SECONDS_IN_DAY;
    const double apparent = universal + equationOfTime(dynamical);
    return apparent + TEHRAN_MERIDIAN;
}

double tehran_equinox_jd(int year) { return is_remembered(year) ? remembered_noon(year) : computed_noon(year); }

void persiana_year(double *year, double *equinox, double jd) {
    if (year == nullptr || equinox == nullptr) {
        return;
    }
    if (is_fast(jd)) {
        const PersianYear found = remembered_year_of(static_cast<int32_t>(jd));
        *year = found.year;
        *equinox = found.noon;
    } else if (is_walkable(jd)) {
        walk_to_year(*year, *equinox, jd);
    } else {
        *year = year_number(jd);
        *equinox = mean_first_noon(*year);
    }
}

double persiana_to_jd(double year, double month, double day) {
    const double days_before = month <= 7.0 ? 31.0 * (month - 1.0) : 30.0 * (month - 1.0) + 6.0;
    return first_noon(year) + days_before + (day - 1.0);
}

void jd_to_persiana(velkor_date *out, double jd) {
    if (out == nullptr) {
        return;
    }
    if (is_fast(jd)) {
        const auto day = static_cast<int32_t>(jd);
        *out = date_in_year(remembered_year_of(day), day);
    } else {
        *out = persian_date_by_steps(jd);
    }
}

double persian_to_jd(int year, int month, int day) { return persiana_to_jd(year, month, day + 0.5); }

void jd_to_persian(velkor_date *out, double jd) { jd_to_persiana(out, jd); }

int leap_persiana(int year) {
    return persiana_to_jd(year + 1.0, 1.0, 1.0) - persiana_to_jd(year, 1.0, 1.0) > 365.0 ? 1 : 0;
}

int leap_persian(int year) { return leap_persiana(year); }

// ---- From one calendar to the other -------------------------------------------------------------------------------

void MiladiToShamsi(velkor_date *out, int year, int month, int day) {
    if (out != nullptr && is_remembered(year) && year < LAST_REMEMBERED && is_small(month) && is_small(day)) {
        const int number = DAY_ZERO_NUMBER + gregorian_day(year, month, day);
        if (is_fast(number)) {
            *out = date_in_year(remembered_year_of(number, year), number);
            return;
        }
    }
    jd_to_persian(out, gregorian_to_jd(year, month, day));
}

void ShamsiToMiladi(velkor_date *out, int year, int month, int day) {
    if (month >= 0) {
        jd_to_gregorian(out, persian_to_jd(year, month, day));
        return;
    }
    const double days_back = leap_persian(to_int(year - 1.0)) != 0 ? 30.0 : 29.0;
    jd_to_gregorian(out, persian_to_jd(year, month + 1, day) - days_back);
}

namespace {

int convert_in_place(struct tm *date, void (*convert)(velkor_date *, int, int, int)) {
    if (date == nullptr) {
        return -1;
    }
    velkor_date converted;
    convert(&converted, date->tm_year, date->tm_mon, date->tm_mday);
    date->tm_year = converted.year;
    date->tm_mon = converted.month;
    date->tm_mday = converted.day;
    return 0;
}

}  // namespace

int MiladiToShamsi_tm(struct tm *date) { return convert_in_place(date, MiladiToShamsi); }

int ShamsiToMiladi_tm(struct tm *date) { return convert_in_place(date, ShamsiToMiladi); }

int conversionDate(int type, int year, int month, int day, velkor_date *out) {
    if (out == nullptr) {
        return -1;
    }
    switch (type) {
        case VELKOR_GREGORIAN:
            MiladiToShamsi(out, year, month, day);
            return 0;
        case VELKOR_PERSIAN:
            ShamsiToMiladi(out, year, month, day);
            return out->year == FAILED_CONVERSION_YEAR ? -1 : 0;
        default:
            return UNKNOWN_TYPE;
    }
}

int getWeekByDate(int type, int year, int month, int day, int *out) {
    if (out == nullptr || (type != VELKOR_GREGORIAN && type != VELKOR_PERSIAN)) {
        return -1;
    }
    const double jd = type == VELKOR_GREGORIAN ? gregorian_to_jd(year, month, day) : persian_to_jd(year, month, day);
    *out = to_int(mod(floor(jd + 1.5), 7.0));
    return *out;
}

int GuiGetShamsiMaxDaysForMon(int year, int month) {
    return days_in_persian_month(month, month > 11 ? leap_persian(year) : 0);
}

// ---- Daylight rules in Persian terms ------------------------------------------------------------------------------

int ShamsiToMiladi_DaylightSaving(int year, int month, int week, int weekday, velkor_month_week_day *out) {
    constexpr const char *NAME = "ShamsiToMiladi_DaylightSaving";
    if (out == nullptr) {
        return -1;
    }
    VK_LOG("%s[%d]:taiyang time=%d-%d-%d-%d\n", NAME, 1198, year, month, week, weekday);
    int first_weekday = 0;
    getWeekByDate(VELKOR_PERSIAN, year, month, 1, &first_weekday);
    VK_LOG("%s[%d]:iweek=%d", NAME, 1205, first_weekday);
    const int day = first_of_week(week, weekday, sunday_as_7(first_weekday));
    VK_LOG("%s[%d]:taiyang data=%d-%d-%d\n", NAME, 1219, year, month, day);
    velkor_date date;
    conversionDate(VELKOR_PERSIAN, year, month, day, &date);
    VK_LOG("%s[%d]:gongli data=%d-%d-%d\n", NAME, 1222, date.year, date.month, date.day);
    getWeekByDate(VELKOR_GREGORIAN, date.year, date.month, 1, &first_weekday);
    first_weekday = sunday_as_7(first_weekday);
    VK_LOG("%s[%d]:iweek=%d", NAME, 1232, first_weekday);
    *out = {date.year, date.month, (date.day - 1) / 7 + 1, sunday_as_7((date.day + first_weekday - 1) % 7)};
    VK_LOG("%s[%d]:taiyang time=%d-%d-%d-%d\n", NAME, 1242, out->year, out->month, out->week, out->weekday);
    return 0;
}

namespace {

// Past Saturday (6) the second and third days are not counted on from Sunday, but for one that becomes Monday: callers
// know these answers.
bool occurs_five_times(int days, int first_weekday, int weekday) {
    const int third = first_weekday == 6 ? 1 : first_weekday + 2;
    return weekday == first_weekday || (days >= 30 && weekday == first_weekday + 1) || (days == 31 && weekday == third);
}

}  // namespace

int MiladiMonthNUM(int year, int month, int weekday) {
    constexpr const char *NAME = "MiladiMonthNUM";
    VK_LOG("%s[%d]:%d-%d-%d\n", NAME, 1254, year, month, weekday);
    const int days = days_in_persian_month(month, MiladiIsLeap(year));  // the Gregorian rule, as callers know it
    int first_weekday = 0;
    getWeekByDate(VELKOR_PERSIAN, year, month, 1, &first_weekday);
    const int times = occurs_five_times(days, first_weekday, weekday) ? 5 : 4;
    VK_LOG("%s[%d]:iNum=%d\n", NAME, 1297, times);
    return times;
}

#include <velkor/calendar.h>
#include <velkor/firmware.h>

#include <atomic>
#include <ctime>

#include "support/export_table.h"

namespace exports {
namespace {

constexpr time_t INSTANT = 1793000000;  // in October 2026
constexpr double JULIAN_DAY = 2461364.5;

// Daylight time from the last Sunday of March to that of October, packed as the firmware keeps it.
constexpr uint32_t START = 0x02040002;
constexpr uint32_t STOP = 0x09040003;

std::shared_ptr<void> prepare() {
    g_stDaylightSaving = {1, 10000, START, STOP, 60};
    return nullptr;
}

// ---- timespec ----

constexpr struct timespec LATER = {5, 100};
constexpr struct timespec EARLIER = {2, 999999999};

template <typename Call>
std::string span_of(Call call) {
    struct timespec result = {};
    const int code = call(&result);
    return text_of(code, result.tv_sec, result.tv_nsec);
}

// ---- Dates ----

std::string text_of_date(const velkor_date &date) { return text_of(date.year, date.month, date.day); }
std::string text_of_date(const struct tm &date) { return text_of(date.tm_year, date.tm_mon, date.tm_mday); }

template <typename Call>
std::string date_of(Call call) {
    velkor_date date = {};
    if constexpr (std::is_void_v<decltype(call(&date))>) {
        call(&date);
        return text_of_date(date);
    } else {
        const int code = call(&date);
        return text_of(code, text_of_date(date));
    }
}

template <typename Call>
std::string converted(int year, Call call) {
    struct tm date = {};
    date.tm_year = year;
    date.tm_mon = 2;
    date.tm_mday = 3;
    const int code = call(&date);
    return text_of(code, text_of_date(date));
}

std::string persian_year() {
    double year = 0;
    double equinox = 0;
    persiana_year(&year, &equinox, JULIAN_DAY);
    return text_of(year, equinox);
}

std::string week_day() {
    int day = -1;
    const int result = getWeekByDate(VELKOR_PERSIAN, 1405, 8, 1, &day);
    return text_of(result, day);
}

// The first day of a year that nobody has asked for yet: its equinox is computed, and remembered.
std::string new_year() {
    static std::atomic<int> last_year{0};
    const int year = ++last_year % 3000 + 1;
    velkor_date date = {};
    jd_to_persian(&date, persian_to_jd(year, 1, 1));
    return text_of(date.year == year, date.month, date.day);
}

std::string persian_rule() {
    velkor_month_week_day rule = {};
    const int result = ShamsiToMiladi_DaylightSaving(1405, 1, 2, 5, &rule);
    return text_of(result, rule.year, rule.month, rule.week, rule.weekday);
}

// ---- Clocks ----

bool is_now(time_t seconds) { return seconds > 0 && seconds <= time(nullptr); }

std::string remembered_time() {
    time_t stored = 0;
    const time_t result = getmytime(&stored);
    return text_of(is_now(result), result == stored);
}

// ---- Daylight ----

std::string text_of_config(const DaylightConfig &config) {
    return text_of(config.zone, config.enable, config.offset, config.dst_start.month, config.dst_stop.hour);
}

std::string shared_setting() {
    DaylightConfig config = {};
    const int result = time_GetDaylightConfig(&config);
    return text_of(result, text_of_config(config));
}

std::string setting_of_a_message() {
    const velkor_packed_daylight packed = {1, 60, START, STOP};
    DaylightConfig config = {};
    const int result = time_GetDaylightConfigV2(&config, &packed);
    return text_of(result, text_of_config(config));
}

template <typename Call>
std::string transitions(Call call) {
    velkor_daylight_transitions out = {};
    const int result = call(&out);
    return text_of(result, out.offset, out.start, out.stop);
}

int transitions_of_a_config(velkor_daylight_transitions *out) {
    const DaylightConfig config = {10000, 1, 60, {3, 5, 0, 2, {}}, {10, 5, 0, 3, {}}};
    return time_GetDaylightTransPosV2(2026, out, &config);
}

std::string instant_of_a_date() {
    struct tm date = {};
    const time_t result = time_GetUtcByDate(2026, 11, 15, 10, 25, 17, -1, &date);
    return text_of(result, date.tm_wday);
}

std::string instant_of_a_rule() {
    const velkor_persian_rule rule = {1405, 1, 1, 5, 2};
    time_t instant = 0;
    const int result = getTimeByDSTParam(&rule, &instant);
    return text_of(result, instant);
}

// Twenty times a day, and no more.
std::string granted() {
    static std::atomic<int> grants{0};
    const int result = vk_isSetZoneEnable();
    grants += result == 0 ? 1 : 0;
    return text_of(result == 0 || result == -1, grants <= 20);
}

// ---- Astronomy ----

std::string nutation_in_both() {
    double longitude = 0;
    double obliquity = 0;
    nutation(JULIAN_DAY, &longitude, &obliquity);
    return text_of(longitude, obliquity);
}

std::string equatorial() {
    double ascension = 0;
    double declination = 0;
    ecliptoeq(JULIAN_DAY, 120, 5, &ascension, &declination);
    return text_of(ascension, declination);
}

std::string sun() {
    double values[VELKOR_SUNPOS_VALUES] = {};
    sunpos(JULIAN_DAY, values);
    return text_of(values[0], values[7], values[11]);
}

constexpr Row ROWS[] = {
    {"vk_timespec_AsubB", [] { return span_of([](auto *out) { return vk_timespec_AsubB(&LATER, &EARLIER, out); }); },
     PLAIN},
    {"vk_timespec_AaddB", [] { return span_of([](auto *out) { return vk_timespec_AaddB(&LATER, &EARLIER, out); }); },
     PLAIN},
    {"vk_timespec_cmp", [] { return text_of(vk_timespec_cmp(&LATER, &EARLIER)); }, PLAIN},
    {"vk_timespec_cmp (of NULL, which is reported)", [] { return text_of(vk_timespec_cmp(nullptr, &EARLIER)); }},

    {"vk_ascWeek", [] { return text_of(vk_ascWeek(3)); }, PLAIN},
    {"StrToTime", [] { return text_of(StrToTime("20261115102517")); }},
    {"StrToTimeEx", [] { return text_of(StrToTimeEx("2026-11-15 10:25:17")); }},
    {"TimeToString", [] { return filled([](char *out) { TimeToString("Y-M-D H:I:S", out, INSTANT); }); }},
    {"CalTimeToString", [] { return filled([](char *out) { CalTimeToString("Y-M-D H:I:S", out, INSTANT); }); }},
    {"GetNvrSalorCalenderEnable", [] { return text_of(GetNvrSalorCalenderEnable(nullptr)); }, PLAIN},

    {"getmytime", remembered_time, PLAIN},
    {"setmytime", [] { return text_of(is_now(setmytime())); }, PLAIN},
    {"set_uptime", [] { return text_of(set_uptime()); }},
    {"get_uptime", [] { return text_of(get_uptime() > 0); }},
    {"get_uptime_ms", [] { return text_of(get_uptime_ms() > 0); }, PLAIN},
    {"get_localtz_timediff", [] { return text_of(get_localtz_timediff()); }},

    {"leap_gregorian", [] { return text_of(leap_gregorian(2028)); }, PLAIN},
    {"MiladiIsLeap", [] { return text_of(MiladiIsLeap(2028)); }, PLAIN},
    {"gregorian_to_jd", [] { return text_of(gregorian_to_jd(2026, 11, 15)); }, PLAIN},
    {"jd_to_gregorian", [] { return date_of([](auto *out) { jd_to_gregorian(out, JULIAN_DAY); }); }, PLAIN},
    {"tehran_equinox", [] { return text_of(tehran_equinox(2026)); }, PLAIN},
    {"tehran_equinox_jd", [] { return text_of(tehran_equinox_jd(2026)); }, PLAIN},
    {"persiana_year", persian_year, PLAIN},
    {"persiana_to_jd", [] { return text_of(persiana_to_jd(1405, 8, 1)); }, PLAIN},
    {"jd_to_persiana", [] { return date_of([](auto *out) { jd_to_persiana(out, JULIAN_DAY); }); }, PLAIN},
    {"persian_to_jd", [] { return text_of(persian_to_jd(1405, 8, 1)); }, PLAIN},
    {"jd_to_persian", [] { return date_of([](auto *out) { jd_to_persian(out, JULIAN_DAY); }); }, PLAIN},
    {"jd_to_persian persian_to_jd (of a new year each time)", new_year, PLAIN},
    {"leap_persiana", [] { return text_of(leap_persiana(1403)); }, PLAIN},
    {"leap_persian", [] { return text_of(leap_persian(1403)); }, PLAIN},
    {"MiladiToShamsi", [] { return date_of([](auto *out) { MiladiToShamsi(out, 2026, 11, 15); }); }, PLAIN},
    {"ShamsiToMiladi", [] { return date_of([](auto *out) { ShamsiToMiladi(out, 1405, 8, 24); }); }, PLAIN},
    {"MiladiToShamsi_tm", [] { return converted(2026, MiladiToShamsi_tm); }, PLAIN},
    {"ShamsiToMiladi_tm", [] { return converted(1405, ShamsiToMiladi_tm); }, PLAIN},
    {"conversionDate", [] { return date_of([](auto *out) { return conversionDate(2, 1405, 8, 24, out); }); }, PLAIN},
    {"getWeekByDate", week_day, PLAIN},
    {"GuiGetShamsiMaxDaysForMon", [] { return text_of(GuiGetShamsiMaxDaysForMon(1403, 12)); }, PLAIN},
    {"ShamsiToMiladi_DaylightSaving", persian_rule},
    {"MiladiMonthNUM", [] { return text_of(MiladiMonthNUM(1405, 8, 6)); }},

    {"time_GetMdayByWeekAndWdayEx", [] { return text_of(time_GetMdayByWeekAndWdayEx(5, 0, 3, 31)); }, PLAIN},
    {"time_GetUtcByDate", instant_of_a_date},
    {"time_GetDaylightConfig", shared_setting},
    {"time_GetDaylightConfigV2", setting_of_a_message, PLAIN},
    {"time_GetDaylightTransPos",
     [] { return transitions([](auto *out) { return time_GetDaylightTransPos(2026, out); }); }},
    {"time_GetDaylightTransPosV2", [] { return transitions(transitions_of_a_config); }},
    {"vk_time_isInDaylight", [] { return text_of(vk_time_isInDaylight()); }},
    {"vk_setCurTimeZone", [] { return text_of(vk_setCurTimeZone(100, 1, "storm")); }},
    {"vk_getCurTimeZone", [] { return text_of(vk_getCurTimeZone(1)); }, PLAIN},
    {"vk_isSetZoneEnable", granted},
    {"getTimeByDSTParam", instant_of_a_rule},

    {"astor", [] { return text_of(astor(3600)); }, PLAIN},
    {"dtr", [] { return text_of(dtr(90)); }, PLAIN},
    {"rtd", [] { return text_of(rtd(1)); }, PLAIN},
    {"fixangle", [] { return text_of(fixangle(-30)); }, PLAIN},
    {"fixangr", [] { return text_of(fixangr(-1)); }, PLAIN},
    {"dsin", [] { return text_of(dsin(30)); }, PLAIN},
    {"dcos", [] { return text_of(dcos(30)); }, PLAIN},
    {"mod", [] { return text_of(mod(-1, 7)); }, PLAIN},
    {"amod", [] { return text_of(amod(7, 7)); }, PLAIN},
    {"obliqeq", [] { return text_of(obliqeq(JULIAN_DAY)); }, PLAIN},
    {"nutation", nutation_in_both, PLAIN},
    {"ecliptoeq", equatorial, PLAIN},
    {"deltat", [] { return text_of(deltat(2026)); }, PLAIN},
    {"sunpos", sun, PLAIN},
    {"equationOfTime", [] { return text_of(equationOfTime(JULIAN_DAY)); }, PLAIN},
    {"equinox", [] { return text_of(equinox(2026, 0)); }, PLAIN},
};

}  // namespace

const Group CALENDAR = {ROWS, prepare};

}  // namespace exports

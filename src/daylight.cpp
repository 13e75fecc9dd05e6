// Daylight saving and the time zone: from the recorder's setting to instants, and from a new zone to "/etc/TZ".
#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>

#include <velkor/calendar.h>
#include <velkor/firmware.h>

#include "support/local_time.h"
#include "support/lock_guard.h"
#include "support/log.h"
#include "support/open_file.h"
#include "support/owners.h"
#include "support/platform.h"
#include "support/saturate.h"
#include "support/uninterrupted.h"
#include "support/write_whole.h"

namespace {

using velkor::to_int;

constexpr int INVALID_PARAMETER = -2;
constexpr int DAYLIGHT_DISABLED = -5;

// ---- The shared setting ----

// Held while the shared setting is read or changed here. Whoever wants but the zone reads that word alone.
pthread_mutex_t daylight_mutex = PTHREAD_MUTEX_INITIALIZER;

// The zone last set or asked for, where an engineer finds it in a core dump: nothing reads it.
std::atomic<int> current_zone{0};

// The setting is the firmware's, which changes it without that lock: each word is read once, in one step.
template <typename Word>
Word shared_word(const Word &word) {
    return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

int shared_zone() { return shared_word(g_stDaylightSaving.zone); }

void set_shared_zone(int zone) { __atomic_store_n(&g_stDaylightSaving.zone, zone, __ATOMIC_RELAXED); }

int byte_of(uint32_t packed, unsigned number) { return static_cast<int>((packed >> (8 * number)) & 0xffU); }

// All but the week, which the two sources of a setting count differently.
void unpack_rule(velkor_daylight_rule &rule, uint32_t packed, int week) {
    rule.month = byte_of(packed, 3) + 1;
    rule.week = week;
    rule.weekday = byte_of(packed, 1);
    rule.hour = byte_of(packed, 0);
}

int week_of_message(uint32_t packed) {
    const int week = byte_of(packed, 2);
    return week != 0 ? week : 5;
}

int week_of_setting(uint32_t packed) { return byte_of(packed, 2) + 1; }

void unpack_shared_setting(DaylightConfig &out) {
    const uint32_t start = shared_word(g_stDaylightSaving.start);
    const uint32_t stop = shared_word(g_stDaylightSaving.stop);
    out.enable = shared_word(g_stDaylightSaving.enable);
    out.offset = shared_word(g_stDaylightSaving.offset);
    out.zone = shared_zone();
    unpack_rule(out.dst_start, start, week_of_setting(start));
    unpack_rule(out.dst_stop, stop, week_of_setting(stop));
}

// ---- Zone codes ----

bool is_hour_code(int code) { return code >= 88 && code <= 113; }

bool is_long_code(int code) { return code >= 8800 && code <= 11400; }

int zone_seconds(int code) {
    if (is_hour_code(code)) {
        return 3600 * (code - 100);
    }
    const int difference = code - 10000;
    return 3600 * (difference / 100) + 60 * (difference % 100);
}

// ---- Days of a month ----

bool is_month(int month) { return month >= 1 && month <= 12; }

int days_in_month(int year, int month) {
    constexpr std::array<int, 12> DAYS = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return DAYS[static_cast<size_t>(month - 1)] + (month == 2 ? leap_gregorian(year) : 0);
}

int32_t transition(int year, const velkor_daylight_rule &rule, int dst) {
    struct tm first = {};
    time_GetUtcByDate(year, rule.month, 1, 0, 0, 0, 0, &first);
    const int day =
        time_GetMdayByWeekAndWdayEx(rule.week, rule.weekday, first.tm_wday, days_in_month(year, rule.month));
    return static_cast<int32_t>(time_GetUtcByDate(year, rule.month, day, rule.hour, 0, 0, dst, nullptr));
}

// Month 12 has a 30th in every year here, leap or not.
bool is_persian_day(int month, int64_t day) { return day >= 1 && day <= (month <= 6 ? 31 : 30); }

}  // namespace

// ---- Transitions --------------------------------------------------------------------------------------------------

int time_GetMdayByWeekAndWdayEx(int week, int weekday, int first_weekday, int days) {
    const int64_t first = int64_t{weekday} - first_weekday + (weekday >= first_weekday ? 1 : 8);
    const int64_t day = (int64_t{week} - 1) * 7 + first;
    return to_int(day > days ? day - 7 : day);
}

time_t time_GetUtcByDate(int year, int month, int day, int hour, int minute, int second, int dst, struct tm *out) {
    struct tm date;
    memset(&date, 0, sizeof date);
    date.tm_year = to_int(int64_t{year} - 1900);
    date.tm_mon = to_int(int64_t{month} - 1);
    date.tm_mday = day;
    date.tm_hour = hour;
    date.tm_min = minute;
    date.tm_sec = second;
    date.tm_isdst = dst;
    time_t seconds = velkor::instant_of(date);
    if (seconds < 0) {
        date.tm_isdst = 0;
        seconds = velkor::instant_of(date);
    }
    if (out != nullptr) {
        VkMem_Copy(out, &date, sizeof date);
    }
    return seconds;
}

int time_GetDaylightConfigV2(DaylightConfig *out, const velkor_packed_daylight *packed) {
    if (out == nullptr) {
        return -1;
    }
    if (packed == nullptr) {
        const velkor::LockGuard guard(daylight_mutex);
        unpack_shared_setting(*out);
        return 0;
    }
    out->zone = 0;
    out->enable = packed->enable;
    out->offset = packed->offset;
    unpack_rule(out->dst_start, packed->start, week_of_message(packed->start));
    unpack_rule(out->dst_stop, packed->stop, week_of_message(packed->stop));
    return 0;
}

int time_GetDaylightConfig(DaylightConfig *out) { return time_GetDaylightConfigV2(out, nullptr); }

int time_GetDaylightTransPosV2(int year, velkor_daylight_transitions *out, const DaylightConfig *config) {
    constexpr const char *NAME = "time_GetDaylightTransPosV2";
    if (out == nullptr || config == nullptr) {
        VK_LOG_FLAGS(0xff0000, "Error. -[%s:%d]-Invalid param", NAME, 237);
        return INVALID_PARAMETER;
    }
    if (config->enable == 0) {
        VK_LOG_FLAGS(0xff0000, "Error. -[%s:%d]-Daylight disable", NAME, 240);
        return DAYLIGHT_DISABLED;
    }
    if (!is_month(config->dst_start.month)) {
        VK_LOG("[%s:%d]stDaylight->dst_start.month = %d ERR", NAME, 250, config->dst_start.month);
        return INVALID_PARAMETER;
    }
    out->start = transition(year, config->dst_start, 0);
    if (!is_month(config->dst_stop.month)) {
        VK_LOG("[%s:%d]stDaylight->dst_stop.month = %d ERR", NAME, 268, config->dst_stop.month);
        return INVALID_PARAMETER;
    }
    out->stop = transition(year, config->dst_stop, 1);
    out->offset = static_cast<int32_t>(int64_t{config->offset} * 60);
    return 0;
}

int time_GetDaylightTransPos(int year, velkor_daylight_transitions *out) {
    DaylightConfig config = {};
    time_GetDaylightConfig(&config);
    return time_GetDaylightTransPosV2(year, out, &config);
}

int vk_time_isInDaylight() {
    int64_t difference = 0;
    vkt_get_time_diff(&difference);
    const int zone = shared_zone();
    if (!is_hour_code(zone) && !is_long_code(zone)) {
        VK_LOG("%s %d err: zone:%d", "vk_time_isInDaylight", 321, zone);
        return 0;
    }
    const int64_t standard = zone_seconds(zone);
    if (difference == standard) {
        return 0;
    }
    VK_LOG("%s %d now:%lld zone:%lld", "vk_time_isInDaylight", 328, static_cast<long long>(difference),
           static_cast<long long>(standard));
    return 1;
}

// ---- Setting the zone ---------------------------------------------------------------------------------------------

namespace {

constexpr const char *ZONE_FILE = "/etc/TZ";
constexpr int ZONE_TEXT_SIZE = 128;

// The zone's text and its line end. A text that fills what the time service is given still has room for both.
struct ZoneLine {
    char text[ZONE_TEXT_SIZE + 2] = {};
    size_t length = 0;

    explicit ZoneLine(const DaylightConfig &config) {
        vkt_tzset_to_tzstr(&config, text, ZONE_TEXT_SIZE);
        length = strnlen(text, ZONE_TEXT_SIZE);
        text[length++] = '\n';
        text[length] = '\0';
    }
};

// What the file held, as far as it is a zone's text at all.
struct FormerZone {
    char text[1024];
    size_t length = 0;

    FormerZone() {
        const velkor::OwnedDescriptor file(velkor::open_file(ZONE_FILE, O_RDONLY));
        const ssize_t taken =
            file ? velkor::uninterrupted([&] { return read(file.get(), text, sizeof text); }) : ssize_t{0};
        length = taken > 0 ? static_cast<size_t>(taken) : 0;
    }
};

// Half a zone is worse than the former one.
void put_back(int file, const FormerZone &former) {
    if (ftruncate(file, 0) == 0 && lseek(file, 0, SEEK_SET) == 0) {
        (void)velkor::write_whole(file, former.text, former.length);
    }
}

// The file is closed when the setting is saved.
void change_zone(int zone) {
    const velkor::LockGuard guard(daylight_mutex);
    DaylightConfig config = {};
    unpack_shared_setting(config);
    config.zone = zone;
    const ZoneLine line(config);
    const FormerZone former;
    const velkor::OwnedDescriptor file(velkor::open_file(ZONE_FILE, O_WRONLY | O_CREAT | O_TRUNC));
    if (!file) {
        return;
    }
    if (!velkor::write_whole(file.get(), line.text, line.length)) {
        put_back(file.get(), former);
        return;
    }
    set_shared_zone(zone);
    current_zone.store(zone, std::memory_order_relaxed);
    Cfg_sDaylightSaving(&g_stDaylightSaving);
}

void note_operation(int handle, const char *text) {
    const char *const user = UKCmd_GetUser();
    if (user != nullptr) {
        log_Write(handle, 3, 0xFFF0, 3223, "%s\t%s", text, user);
    } else {
        log_Write(handle, 3, 0xFFF0, 3018, "%s", text);
    }
}

}  // namespace

int vk_setCurTimeZone(int zone, int handle, const char *text) {
    const int long_code = is_hour_code(zone) ? zone * 100 : zone;
    if (!is_long_code(long_code)) {
        return -1;
    }
    const char *const shown = text != nullptr ? text : "(null)";
    rec_PauseAllFile();
    change_zone(long_code);
    VK_LOG(" %s %d cBuf = %s", "vk_setCurTimeZone", 447, shown);
    note_operation(handle, shown);
    rec_RestartAllFile();
    return 0;
}

int vk_getCurTimeZone(int flag) {
    const int zone = shared_zone();
    current_zone.store(zone, std::memory_order_relaxed);
    const bool is_whole_hours = zone >= 8800 && zone <= 11399 && zone % 100 == 0;
    return flag != 0 && is_whole_hours ? zone / 100 : zone;
}

namespace {

constexpr int MOST_ZONE_CHANGES = 20;
constexpr int LAST_SECOND_OF_PERIOD = 86399;

// Under the lock: nobody else counts between a look and a step. A fork holds it.
pthread_mutex_t count_lock = PTHREAD_MUTEX_INITIALIZER;
int zone_changes = 0;
int period_begin = 0;

struct Permission {
    int result;
    int changes;
};

Permission ask_for_change(int now) {
    const velkor::LockGuard guard(count_lock);
    if (zone_changes == 0 || int64_t{now} - period_begin > LAST_SECOND_OF_PERIOD) {
        zone_changes = 0;
        period_begin = now;
    }
    if (zone_changes == MOST_ZONE_CHANGES) {
        return {-1, zone_changes};
    }
    return {0, ++zone_changes};
}

}  // namespace

int vk_isSetZoneEnable() {
    const Permission permission = ask_for_change(get_uptime());
    VK_LOG("%s %d g_iZoneDayCnt = %d iRet = %d \n", "vk_isSetZoneEnable", 413, permission.changes, permission.result);
    return permission.result;
}

// ---- Rules of the Persian calendar --------------------------------------------------------------------------------

int getTimeByDSTParam(const velkor_persian_rule *rule, time_t *out) {
    if (rule == nullptr || out == nullptr || !is_month(rule->month) || rule->week >= 5 || rule->weekday >= 7 ||
        rule->hour >= 24) {
        return -1;
    }
    int first_weekday = 0;
    if (getWeekByDate(VELKOR_PERSIAN, rule->year, rule->month, 1, &first_weekday) > 6) {
        return -2;
    }
    int64_t day = int64_t{1} + rule->weekday - first_weekday;
    day += (day < 1 ? 7 : 0) + int64_t{rule->week} * 7;
    if (!is_persian_day(rule->month, day)) {
        day -= 7;
    }
    if (!is_persian_day(rule->month, day)) {
        return -3;
    }
    velkor_date date;
    if (conversionDate(VELKOR_PERSIAN, rule->year, rule->month, static_cast<int>(day), &date) != 0) {
        return -4;
    }
    struct tm instant;
    memset(&instant, 0, sizeof instant);
    instant.tm_year = to_int(int64_t{date.year} - 1900);
    instant.tm_mon = date.month - 1;
    instant.tm_mday = date.day;
    instant.tm_hour = rule->hour;
    *out = velkor::instant_of(instant);
    return 0;
}

// ---- A forked child -----------------------------------------------------------------------------------------------

namespace {

__attribute__((constructor)) void survive_fork() {
    velkor::when_forked([] { daylight_mutex = PTHREAD_MUTEX_INITIALIZER; });
    velkor::hold_over_fork<count_lock>();
}

}  // namespace

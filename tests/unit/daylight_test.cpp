#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <velkor/calendar.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/forked.h"
#include "support/log_capture.h"
#include "support/place.h"

namespace {

std::atomic<long> pretended_uptime{0};

// As many threads must ask for the uptime before one of them is told.
std::atomic<int> awaited_readers{0};

// A zone text of a test's choice; NULL lets the time service make one.
const char *chosen_zone_text = nullptr;
std::atomic<bool> zone_text_waits{false};
std::atomic<bool> zone_text_is_made{false};

void let_zone_text_go() {
    zone_text_waits = false;
    zone_text_waits.notify_all();
}

int64_t chosen_difference = 0;
std::vector<std::string> steps;
bool keeps_steps = false;
bool was_open_when_saved = false;

void note(const std::string &step) {
    if (keeps_steps) {
        steps.push_back(step);
    }
}

}  // namespace

extern "C" int sysinfo(struct sysinfo *info) noexcept {
    if (awaited_readers > 0) {
        --awaited_readers;
        while (awaited_readers > 0) {
            std::this_thread::yield();
        }
    }
    memset(info, 0, sizeof *info);
    info->uptime = pretended_uptime;
    return 0;
}

int vkt_get_time_diff(int64_t *seconds) {
    *seconds = chosen_difference;
    return 0;
}

int vkt_tzset_to_tzstr(const DaylightConfig *config, char *buffer, int size) {
    note("zone text of " + std::to_string(config->zone) + " into " + std::to_string(size));
    zone_text_is_made = true;
    zone_text_waits.wait(true);
    if (chosen_zone_text != nullptr) {
        std::string(chosen_zone_text).copy(buffer, static_cast<size_t>(size));
        return 0;
    }
    snprintf(buffer, static_cast<size_t>(size), "ZONE%d", config->zone);
    return 0;
}

int rec_PauseAllFile() {
    note("pause");
    return 0;
}

int rec_RestartAllFile() {
    note("restart");
    return 0;
}

int Cfg_sDaylightSaving(const CfgDaylightSaving *setting) {
    if (keeps_steps) {
        note("save " + std::to_string(setting->zone) + ", file " + place::read_file("/etc/TZ"));
        was_open_when_saved = forked::is_open_here("/etc/TZ");
    }
    return 0;
}

int log_Write(int handle, int major, int minor, int code, const char *format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    note("log " + std::to_string(handle) + " " + std::to_string(major) + " " + std::to_string(minor) + " " +
         std::to_string(code) + " " + format + " " + text);
    return 0;
}

namespace {

using Steps = std::vector<std::string>;

void set_zone(const char *zone) {
    setenv("TZ", zone, 1);  // NOLINT(concurrency-mt-unsafe): one thread
    tzset();
}

constexpr const char *BERLIN = "CET-1CEST,M3.5.0,M10.5.0/3";

uint32_t packed(unsigned month, unsigned week, unsigned weekday, unsigned hour) {
    return month << 24 | week << 16 | weekday << 8 | hour;
}

velkor_daylight_rule rule(int month, int week, int weekday, int hour) {
    velkor_daylight_rule result = {};
    result.month = month;
    result.week = week;
    result.weekday = weekday;
    result.hour = hour;
    return result;
}

DaylightConfig berlin() {
    DaylightConfig config = {};
    config.zone = 10100;
    config.enable = 1;
    config.offset = 60;
    config.dst_start = rule(3, 5, 0, 2);
    config.dst_stop = rule(10, 5, 0, 3);
    return config;
}

// ---- Days and instants ----

TEST(DayOfWeekDay, IsCountedByWeeks) {
    // September 2026 starts on a Tuesday (2).
    EXPECT_EQ(time_GetMdayByWeekAndWdayEx(1, 2, 2, 30), 1);
    EXPECT_EQ(time_GetMdayByWeekAndWdayEx(1, 3, 2, 30), 2);
    EXPECT_EQ(time_GetMdayByWeekAndWdayEx(1, 1, 2, 30), 7);
    EXPECT_EQ(time_GetMdayByWeekAndWdayEx(4, 0, 2, 30), 27);
}

TEST(DayOfWeekDay, OfAFifthWeekThatIsNotThereIsTheLast) {
    EXPECT_EQ(time_GetMdayByWeekAndWdayEx(5, 0, 2, 30), 27);
    EXPECT_EQ(time_GetMdayByWeekAndWdayEx(5, 2, 2, 30), 29);
    EXPECT_EQ(time_GetMdayByWeekAndWdayEx(5, 4, 2, 30), 24);
}

TEST(DayOfWeekDay, GoesBackOnlyOneWeek) {
    EXPECT_EQ(time_GetMdayByWeekAndWdayEx(9, 2, 2, 30), 50);
    EXPECT_EQ(time_GetMdayByWeekAndWdayEx(0, 2, 2, 30), -6);
}

TEST(DayOfWeekDay, TakesAnyNumbers) {
    EXPECT_EQ(time_GetMdayByWeekAndWdayEx(INT_MAX, INT_MAX, INT_MIN, INT_MIN), INT_MAX);
    EXPECT_EQ(time_GetMdayByWeekAndWdayEx(INT_MIN, INT_MIN, INT_MAX, INT_MAX), INT_MIN);
}

TEST(InstantOfDate, IsMktimes) {
    set_zone("UTC0");
    struct tm date;
    EXPECT_EQ(time_GetUtcByDate(2026, 11, 15, 10, 25, 17, 0, &date), 1794738317);
    EXPECT_EQ(date.tm_year, 126);
    EXPECT_EQ(date.tm_mon, 10);
    EXPECT_EQ(date.tm_wday, 0);
    EXPECT_EQ(time_GetUtcByDate(2026, 13, 1, 0, 0, 0, 0, nullptr), time_GetUtcByDate(2027, 1, 1, 0, 0, 0, 0, nullptr));
}

TEST(InstantOfDate, ReadsTheClockByItsFlag) {
    set_zone(BERLIN);
    const time_t summer = time_GetUtcByDate(2026, 7, 1, 12, 0, 0, 1, nullptr);
    EXPECT_EQ(time_GetUtcByDate(2026, 7, 1, 12, 0, 0, 0, nullptr) - summer, 3600);
    EXPECT_EQ(time_GetUtcByDate(2026, 7, 1, 12, 0, 0, -1, nullptr), summer);
}

TEST(InstantOfDate, IsTriedAgainWithoutDaylightWhenNegative) {
    set_zone(BERLIN);
    struct tm date;
    // With daylight time it is 31 December, 23:00, before the epoch: tried again from the normalised record.
    const time_t seconds = time_GetUtcByDate(1970, 1, 1, 0, 30, 0, 1, &date);
    EXPECT_LT(seconds, 0);
    EXPECT_EQ(date.tm_isdst, 0);
    EXPECT_EQ(date.tm_mday, 31);
    EXPECT_EQ(time_GetUtcByDate(1969, 12, 31, 23, 0, 0, 0, nullptr), -7200);
}

TEST(InstantOfDate, TakesAnyNumbers) {
    set_zone("UTC0");
    struct tm date;
    for (const int number : {INT_MIN, INT_MAX}) {
        EXPECT_LT(time_GetUtcByDate(INT_MIN, number, number, number, number, number, number, &date), 0);
        time_GetUtcByDate(number, number, number, number, number, number, number, nullptr);
    }
}

// ---- The setting ----

TEST(DaylightSetting, OfTheSharedRecordCountsWeeksFromZero) {
    g_stDaylightSaving = {1, 10530, packed(2, 4, 0, 2), packed(9, 0, 6, 3), 60};
    DaylightConfig config;
    memset(&config, 0x55, sizeof config);
    EXPECT_EQ(time_GetDaylightConfig(&config), 0);
    EXPECT_EQ(config.zone, 10530);
    EXPECT_EQ(config.enable, 1);
    EXPECT_EQ(config.offset, 60);
    EXPECT_EQ(config.dst_start.month, 3);
    EXPECT_EQ(config.dst_start.week, 5);
    EXPECT_EQ(config.dst_start.weekday, 0);
    EXPECT_EQ(config.dst_start.hour, 2);
    EXPECT_EQ(config.dst_stop.month, 10);
    EXPECT_EQ(config.dst_stop.week, 1);
    EXPECT_EQ(config.dst_stop.weekday, 6);
    EXPECT_EQ(config.dst_stop.hour, 3);
    for (const int32_t reserved : config.dst_stop.reserved) {
        EXPECT_EQ(reserved, 0x55555555);
    }
    EXPECT_EQ(config.dst_start.reserved[0], 0x55555555);
}

TEST(DaylightSetting, OfAPackedRecordCountsWeeksFromOne) {
    const velkor_packed_daylight message = {1, 30, packed(2, 4, 0, 2), packed(9, 0, 6, 3)};
    DaylightConfig config;
    memset(&config, 0x55, sizeof config);
    EXPECT_EQ(time_GetDaylightConfigV2(&config, &message), 0);
    EXPECT_EQ(config.zone, 0);
    EXPECT_EQ(config.enable, 1);
    EXPECT_EQ(config.offset, 30);
    EXPECT_EQ(config.dst_start.month, 3);
    EXPECT_EQ(config.dst_start.week, 4);
    EXPECT_EQ(config.dst_stop.week, 5);  // 0 is the last
    EXPECT_EQ(config.dst_stop.weekday, 6);
    EXPECT_EQ(config.dst_stop.hour, 3);
    EXPECT_EQ(config.dst_start.reserved[2], 0x55555555);
}

TEST(DaylightSetting, UnpacksEveryByteUnsigned) {
    const velkor_packed_daylight message = {1, 0, 0xffffffffU, 0x80808080U};
    DaylightConfig config;
    EXPECT_EQ(time_GetDaylightConfigV2(&config, &message), 0);
    EXPECT_EQ(config.dst_start.month, 256);
    EXPECT_EQ(config.dst_start.week, 255);
    EXPECT_EQ(config.dst_stop.month, 129);
    EXPECT_EQ(config.dst_stop.hour, 128);
}

TEST(DaylightSetting, NeedsAPlace) {
    const velkor_packed_daylight message = {};
    EXPECT_EQ(time_GetDaylightConfigV2(nullptr, &message), -1);
    EXPECT_EQ(time_GetDaylightConfigV2(nullptr, nullptr), -1);
    EXPECT_EQ(time_GetDaylightConfig(nullptr), -1);
}

// ---- Transitions ----

TEST(Transitions, OfAYearAreThoseOfTheCLibrary) {
    set_zone(BERLIN);
    const DaylightConfig config = berlin();
    for (int year = 2000; year < 2038; ++year) {
        velkor_daylight_transitions found;
        ASSERT_EQ(time_GetDaylightTransPosV2(year, &found, &config), 0);
        EXPECT_EQ(found.offset, 3600);
        const struct {
            time_t instant;
            int after;
        } changes[] = {{found.start, 1}, {found.stop, 0}};
        for (const auto &change : changes) {
            struct tm before;
            struct tm after;
            const time_t second_before = change.instant - 1;
            localtime_r(&second_before, &before);
            localtime_r(&change.instant, &after);
            EXPECT_EQ(after.tm_isdst, change.after) << year;
            EXPECT_EQ(before.tm_isdst, 1 - change.after) << year;
        }
    }
}

TEST(Transitions, ReadTheStartWithoutAndTheStopWithDaylightTime) {
    set_zone(BERLIN);
    const DaylightConfig config = berlin();
    velkor_daylight_transitions found;
    ASSERT_EQ(time_GetDaylightTransPosV2(2026, &found, &config), 0);
    EXPECT_EQ(found.start, 1774746000);  // 29 March, 2:00 without daylight time
    EXPECT_EQ(found.stop, 1792890000);   // 25 October, 3:00 with it
}

TEST(Transitions, KnowFebruaryInLeapYears) {
    set_zone("UTC0");
    DaylightConfig config = berlin();
    config.dst_start = rule(2, 5, 4, 0);  // the last Thursday of February
    velkor_daylight_transitions found;
    ASSERT_EQ(time_GetDaylightTransPosV2(2024, &found, &config), 0);
    EXPECT_EQ(found.start, time_GetUtcByDate(2024, 2, 29, 0, 0, 0, 0, nullptr));
    ASSERT_EQ(time_GetDaylightTransPosV2(2023, &found, &config), 0);
    EXPECT_EQ(found.start, time_GetUtcByDate(2023, 2, 23, 0, 0, 0, 0, nullptr));
}

TEST(Transitions, RefuseNull) {
    const LogCapture log;
    const DaylightConfig config = berlin();
    velkor_daylight_transitions found;
    EXPECT_EQ(time_GetDaylightTransPosV2(2026, nullptr, &config), -2);
    EXPECT_EQ(time_GetDaylightTransPosV2(2026, &found, nullptr), -2);
    const std::string line = "Error. -[time_GetDaylightTransPosV2:237]-Invalid param";
    EXPECT_EQ(LogCapture::take_messages(), (Steps{line, line}));
}

TEST(Transitions, RefuseASettingThatIsOff) {
    const LogCapture log;
    DaylightConfig config = berlin();
    config.enable = 0;
    velkor_daylight_transitions found;
    EXPECT_EQ(time_GetDaylightTransPosV2(2026, &found, &config), -5);
    EXPECT_EQ(LogCapture::take_messages(), Steps{"Error. -[time_GetDaylightTransPosV2:240]-Daylight disable"});
}

TEST(Transitions, RefuseAMonthThatIsNone) {
    set_zone(BERLIN);
    const LogCapture log;
    DaylightConfig config = berlin();
    config.dst_start.month = 13;
    velkor_daylight_transitions found = {1, 2, 3};
    EXPECT_EQ(time_GetDaylightTransPosV2(2026, &found, &config), -2);
    EXPECT_EQ(found.start, 2);
    config = berlin();
    config.dst_stop.month = 0;
    EXPECT_EQ(time_GetDaylightTransPosV2(2026, &found, &config), -2);
    EXPECT_EQ(found.start, 1774746000);  // found before
    EXPECT_EQ(found.stop, 3);
    EXPECT_EQ(found.offset, 1);
    EXPECT_EQ(LogCapture::take_messages(),
              (Steps{"[time_GetDaylightTransPosV2:250]stDaylight->dst_start.month = 13 ERR",
                     "[time_GetDaylightTransPosV2:268]stDaylight->dst_stop.month = 0 ERR"}));
}

TEST(Transitions, TakeAnyNumbers) {
    set_zone("UTC0");
    for (const int number : {INT_MIN, -1, 0, 7, INT_MAX}) {
        DaylightConfig config = berlin();
        config.offset = number;
        config.dst_start = rule(3, number, number, number);
        config.dst_stop = rule(10, number, number, number);
        velkor_daylight_transitions found;
        EXPECT_EQ(time_GetDaylightTransPosV2(number, &found, &config), 0);
    }
}

TEST(Transitions, OfTheSharedSetting) {
    set_zone(BERLIN);
    g_stDaylightSaving = {1, 10100, packed(2, 4, 0, 2), packed(9, 4, 0, 3), 60};
    velkor_daylight_transitions found;
    EXPECT_EQ(time_GetDaylightTransPos(2026, &found), 0);
    EXPECT_EQ(found.start, 1774746000);
    EXPECT_EQ(found.stop, 1792890000);
    g_stDaylightSaving.enable = 0;
    EXPECT_EQ(time_GetDaylightTransPos(2026, &found), -5);
}

// ---- In daylight time or not ----

TEST(InDaylight, IsADifferenceFromTheZone) {
    const struct {
        int code;
        int64_t standard;
    } zones[] = {{108, 28800},   {100, 0},       {88, -43200},   {113, 46800},
                 {10530, 19800}, {9670, -12600}, {8800, -43200}, {11400, 50400}};
    for (const auto &zone : zones) {
        g_stDaylightSaving.zone = zone.code;
        chosen_difference = zone.standard;
        EXPECT_EQ(vk_time_isInDaylight(), 0) << zone.code;
        chosen_difference = zone.standard + 3600;
        EXPECT_EQ(vk_time_isInDaylight(), 1) << zone.code;
    }
}

TEST(InDaylight, IsLogged) {
    const LogCapture log;
    g_stDaylightSaving.zone = 9670;
    chosen_difference = -9000;
    EXPECT_EQ(vk_time_isInDaylight(), 1);
    g_stDaylightSaving.zone = 120;
    EXPECT_EQ(vk_time_isInDaylight(), 0);
    g_stDaylightSaving.zone = 11401;
    EXPECT_EQ(vk_time_isInDaylight(), 0);
    EXPECT_EQ(LogCapture::take_messages(),
              (Steps{"vk_time_isInDaylight 328 now:-9000 zone:-12600", "vk_time_isInDaylight 321 err: zone:120",
                     "vk_time_isInDaylight 321 err: zone:11401"}));
}

// ---- Changing the zone ----

TEST(ZoneChange, TakesItsStepsInOrder) {
    keeps_steps = true;
    EXPECT_EQ(vk_setCurTimeZone(108, 17, "zone set"), 0);
    EXPECT_EQ(steps, (Steps{"pause", "zone text of 10800 into 128", "save 10800, file ZONE10800\n",
                            "log 17 3 65520 3018 %s zone set", "restart"}));
    EXPECT_EQ(g_stDaylightSaving.zone, 10800);
    EXPECT_EQ(place::read_file("/etc/TZ"), "ZONE10800\n");
}

TEST(ZoneChange, ClosesItsFileAfterTheSettingWasSaved) {
    keeps_steps = true;
    EXPECT_EQ(vk_setCurTimeZone(108, 17, "zone set"), 0);
    EXPECT_TRUE(was_open_when_saved);
    EXPECT_FALSE(forked::is_open_here("/etc/TZ"));
}

TEST(ZoneChange, DoesNotWaitForAFifo) {
    g_stDaylightSaving.zone = 10100;
    unlink("/etc/TZ");
    ASSERT_EQ(mkfifo("/etc/TZ", 0666), 0);
    const auto stays = [] { return vk_setCurTimeZone(108, 17, "zone set") == 0 && vk_getCurTimeZone(0) == 10100; };
    EXPECT_TRUE(forked::succeeds(stays));
    const int full = open("/etc/TZ", O_RDWR | O_NONBLOCK | O_CLOEXEC);
    char page[4096] = "";
    while (write(full, page, sizeof page) > 0) {
    }
    EXPECT_TRUE(forked::succeeds(stays));
    close(full);
}

TEST(ZoneChange, DoesNotLeaveItsFileToACommandByABusyFork) {
    EXPECT_EQ(forked::commands_that_hold("/etc/TZ", [] { vk_setCurTimeZone(108, 17, "zone set"); }), 0);
}

TEST(ZoneChange, NamesTheUser) {
    keeps_steps = true;
    velkor_host_set_user("admin");
    EXPECT_EQ(vk_setCurTimeZone(10530, 17, "zone set"), 0);
    ASSERT_EQ(steps.size(), 5U);
    EXPECT_EQ(steps[3], "log 17 3 65520 3223 %s\t%s zone set\tadmin");
}

TEST(ZoneChange, LogsItsText) {
    const LogCapture log;
    EXPECT_EQ(vk_setCurTimeZone(10530, 17, "zone set"), 0);
    EXPECT_EQ(vk_setCurTimeZone(10530, 17, nullptr), 0);
    EXPECT_EQ(LogCapture::take_messages(),
              (Steps{" vk_setCurTimeZone 447 cBuf = zone set", " vk_setCurTimeZone 447 cBuf = (null)"}));
}

TEST(ZoneChange, RefusesABadCodeBeforeAnything) {
    keeps_steps = true;
    const LogCapture log;
    for (const int code : {0, 87, 114, 120, 8799, 11401, 12000, -108, INT_MIN, INT_MAX}) {
        EXPECT_EQ(vk_setCurTimeZone(code, 17, "zone set"), -1) << code;
    }
    EXPECT_EQ(steps, Steps{});
    EXPECT_EQ(LogCapture::take_messages(), Steps{});
    for (const int code : {88, 113, 8800, 11400}) {
        EXPECT_EQ(vk_setCurTimeZone(code, 17, "zone set"), 0) << code;
    }
}

TEST(ZoneChange, WithoutItsFileChangesNothingButGoesOn) {
    g_stDaylightSaving.zone = 10100;
    keeps_steps = true;
    unlink("/etc/TZ");
    ASSERT_EQ(mkdir("/etc/TZ", 0755), 0);  // even the superuser cannot write that
    EXPECT_EQ(vk_setCurTimeZone(108, 17, "zone set"), 0);
    EXPECT_EQ(steps, (Steps{"pause", "zone text of 10800 into 128", "log 17 3 65520 3018 %s zone set", "restart"}));
    EXPECT_EQ(g_stDaylightSaving.zone, 10100);
    EXPECT_EQ(vk_getCurTimeZone(0), 10100);
}

TEST(ZoneChange, OnAFullDiskChangesNothingButGoesOn) {
    g_stDaylightSaving.zone = 10100;
    keeps_steps = true;
    {
        const place::BoundPath full("/etc/TZ", "/dev/full");
        EXPECT_EQ(vk_setCurTimeZone(108, 17, "zone set"), 0);
    }
    EXPECT_EQ(steps, (Steps{"pause", "zone text of 10800 into 128", "log 17 3 65520 3018 %s zone set", "restart"}));
    EXPECT_EQ(g_stDaylightSaving.zone, 10100);
}

TEST(ZoneChange, ThatIsCutShortLeavesTheFormerZone) {
    g_stDaylightSaving.zone = 10100;
    place::write_file("/etc/TZ", "UTC0\n");
    chosen_zone_text = "<+0800>-08:00";
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit former;
    getrlimit(RLIMIT_FSIZE, &former);
    const struct rlimit narrow = {6, former.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &narrow), 0);
    EXPECT_EQ(vk_setCurTimeZone(108, 17, "zone set"), 0);
    setrlimit(RLIMIT_FSIZE, &former);
    EXPECT_EQ(place::read_file("/etc/TZ"), "UTC0\n");
    EXPECT_EQ(g_stDaylightSaving.zone, 10100);
}

TEST(ZoneChange, HasRoomForALineEndBehindATextThatFillsItsBuffer) {
    const std::string longest(127, 'x');
    chosen_zone_text = longest.c_str();
    EXPECT_EQ(vk_setCurTimeZone(108, 17, "zone set"), 0);
    EXPECT_EQ(place::read_file("/etc/TZ"), longest + "\n");
    const std::string without_end(128, 'y');
    chosen_zone_text = without_end.c_str();
    EXPECT_EQ(vk_setCurTimeZone(108, 17, "zone set"), 0);
    EXPECT_EQ(place::read_file("/etc/TZ"), without_end + "\n");
}

TEST(ZoneChange, WritesTheFileAnewEachTime) {
    EXPECT_EQ(vk_setCurTimeZone(10530, 17, "zone set"), 0);
    chosen_zone_text = "X";
    EXPECT_EQ(vk_setCurTimeZone(108, 17, "zone set"), 0);
    EXPECT_EQ(place::read_file("/etc/TZ"), "X\n");
    unlink("/etc/TZ");
    EXPECT_EQ(vk_setCurTimeZone(108, 17, "zone set"), 0);
    EXPECT_EQ(place::read_file("/etc/TZ"), "X\n");
}

TEST(ZoneChange, KeepsReadersOfTheSettingOut) {
    zone_text_waits = true;
    std::thread changer([] { vk_setCurTimeZone(108, 17, "zone set"); });
    ASSERT_TRUE(place::eventually([] { return zone_text_is_made.load(); }));
    std::atomic<bool> is_read{false};
    int zone = 0;
    std::thread reader([&] {
        DaylightConfig config;
        time_GetDaylightConfig(&config);
        zone = config.zone;
        is_read = true;
    });
    EXPECT_NE(vk_getCurTimeZone(0), 10800);  // not kept out
    usleep(20000);                           // room for the reader to err
    EXPECT_FALSE(is_read);
    let_zone_text_go();
    changer.join();
    reader.join();
    EXPECT_EQ(zone, 10800);
}

TEST(ZoneChange, WorksInAChildForkedMeanwhile) {
    zone_text_waits = true;
    std::thread changer([] { vk_setCurTimeZone(108, 17, "zone set"); });
    ASSERT_TRUE(place::eventually([] { return zone_text_is_made.load(); }));
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);  // a child that hangs is a failure, not a wait for ever
        DaylightConfig config;
        _exit(time_GetDaylightConfig(&config));
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    let_zone_text_go();
    changer.join();
}

TEST(ZoneChange, ByManyThreadsLeavesOneWholeFile) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int round = 0; round < 25; ++round) {
                vk_setCurTimeZone(100 + i, 17, "zone set");
                vk_getCurTimeZone(1);
                vk_time_isInDaylight();
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(place::read_file("/etc/TZ"), "ZONE" + std::to_string(vk_getCurTimeZone(0)) + "\n");
}

TEST(CurrentZone, IsReducedToAnHourCodeWhereItCanBe) {
    const struct {
        int code;
        int reduced;
    } zones[] = {{10800, 108}, {10530, 10530}, {8800, 88}, {11300, 113}, {11400, 11400}, {108, 108}, {8700, 8700}};
    for (const auto &zone : zones) {
        g_stDaylightSaving.zone = zone.code;
        EXPECT_EQ(vk_getCurTimeZone(0), zone.code);
        EXPECT_EQ(vk_getCurTimeZone(1), zone.reduced);
        EXPECT_EQ(vk_getCurTimeZone(-7), zone.reduced);
    }
}

// ---- Twenty changes a day ----

TEST(ZoneChangeLimit, GrantsTwentyADay) {
    pretended_uptime = 1000;
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(vk_isSetZoneEnable(), 0) << i;
        pretended_uptime = pretended_uptime + 1;
    }
    EXPECT_EQ(vk_isSetZoneEnable(), -1);
    pretended_uptime = 1000 + 86399;
    EXPECT_EQ(vk_isSetZoneEnable(), -1);
    pretended_uptime = 1000 + 86400;
    EXPECT_EQ(vk_isSetZoneEnable(), 0);
    for (int i = 1; i < 20; ++i) {
        EXPECT_EQ(vk_isSetZoneEnable(), 0) << i;
    }
    EXPECT_EQ(vk_isSetZoneEnable(), -1);
}

TEST(ZoneChangeLimit, BeginsItsDayWithTheFirstChange) {
    pretended_uptime = 500000;
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(vk_isSetZoneEnable(), 0) << i;
    }
    pretended_uptime = 500000 + 86399;
    EXPECT_EQ(vk_isSetZoneEnable(), -1);
}

TEST(ZoneChangeLimit, GrantsTheLastChangeToOneOfManyThreads) {
    constexpr int THREADS = 6;
    pretended_uptime = 1000;
    for (int i = 0; i < 19; ++i) {
        EXPECT_EQ(vk_isSetZoneEnable(), 0) << i;
    }
    awaited_readers = THREADS;
    std::atomic<int> granted{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&] { granted += vk_isSetZoneEnable() == 0 ? 1 : 0; });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(granted, 1);
}

TEST(ZoneChangeLimit, WorksInTheChildrenOfABusyFork) {
    pretended_uptime = 1000;
    const auto ask = [] {
        pretended_uptime = pretended_uptime + 40000;
        vk_isSetZoneEnable();
        return true;
    };
    EXPECT_EQ(forked::first_that_fails(60, ask, ask), -1);
}

TEST(ZoneChangeLimit, IsLogged) {
    const LogCapture log;
    for (int i = 0; i < 21; ++i) {
        vk_isSetZoneEnable();
    }
    const Steps messages = LogCapture::take_messages();
    ASSERT_EQ(messages.size(), 21U);
    EXPECT_EQ(messages.front(), "vk_isSetZoneEnable 413 g_iZoneDayCnt = 1 iRet = 0  ");
    EXPECT_EQ(messages[19], "vk_isSetZoneEnable 413 g_iZoneDayCnt = 20 iRet = 0  ");
    EXPECT_EQ(messages.back(), "vk_isSetZoneEnable 413 g_iZoneDayCnt = 20 iRet = -1  ");
}

TEST(ZoneChangeLimit, GoesByTheRememberedUptime) {
    pretended_uptime = 1000;
    set_uptime();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(vk_isSetZoneEnable(), 0);
    }
    pretended_uptime = 200000;
    EXPECT_EQ(vk_isSetZoneEnable(), -1);
    set_uptime();
    EXPECT_EQ(vk_isSetZoneEnable(), 0);
}

// ---- Rules of the Persian calendar ----

time_t instant_of(const velkor_persian_rule &persian_rule) {
    time_t instant = -17;
    EXPECT_EQ(getTimeByDSTParam(&persian_rule, &instant), 0);
    return instant;
}

TEST(PersianRule, BecomesAnInstant) {
    set_zone("<+0330>-3:30");
    // 1 Farvardin 1403 is Wednesday, 20 March 2024: the first Friday is the 22nd, the first Wednesday the 20th.
    EXPECT_EQ(instant_of({1403, 1, 0, 5, 1}), time_GetUtcByDate(2024, 3, 22, 1, 0, 0, 0, nullptr));
    EXPECT_EQ(instant_of({1403, 1, 0, 3, 0}), time_GetUtcByDate(2024, 3, 20, 0, 0, 0, 0, nullptr));
    EXPECT_EQ(instant_of({1403, 1, 0, 2, 23}), time_GetUtcByDate(2024, 3, 26, 23, 0, 0, 0, nullptr));
    EXPECT_EQ(instant_of({1403, 1, 1, 5, 1}), time_GetUtcByDate(2024, 3, 29, 1, 0, 0, 0, nullptr));
}

TEST(PersianRule, GoesBackAWeekWhereTheFifthIsMissing) {
    set_zone("UTC0");
    // Days of 1403-01: Fridays 3, 10, 17, 24, 31; Saturdays 4, 11, 18, 25 only.
    EXPECT_EQ(instant_of({1403, 1, 4, 5, 0}), time_GetUtcByDate(2024, 4, 19, 0, 0, 0, 0, nullptr));
    EXPECT_EQ(instant_of({1403, 1, 4, 6, 0}), time_GetUtcByDate(2024, 4, 13, 0, 0, 0, 0, nullptr));
}

TEST(PersianRule, AllowsA30thOfMonth12InEveryYear) {
    set_zone("UTC0");
    ASSERT_EQ(leap_persian(1402), 0);
    int first = -1;
    getWeekByDate(2, 1402, 12, 1, &first);
    // The fifth week of the day after the first's is the 30th, which 1402 does not have: it is 1 Farvardin 1403.
    EXPECT_EQ(instant_of({1402, 12, 4, (first + 1) % 7, 0}), time_GetUtcByDate(2024, 3, 20, 0, 0, 0, 0, nullptr));
}

TEST(PersianRule, NeedsNumbersInRange) {
    const velkor_persian_rule good = {1403, 1, 0, 5, 1};
    time_t instant = 17;
    EXPECT_EQ(getTimeByDSTParam(nullptr, &instant), -1);
    EXPECT_EQ(getTimeByDSTParam(&good, nullptr), -1);
    for (const velkor_persian_rule bad : {velkor_persian_rule{1403, 0, 0, 5, 1},
                                          {1403, 13, 0, 5, 1},
                                          {1403, 1, 5, 5, 1},
                                          {1403, 1, 0, 7, 1},
                                          {1403, 1, 0, 5, 24}}) {
        EXPECT_EQ(getTimeByDSTParam(&bad, &instant), -1);
    }
    EXPECT_EQ(instant, 17);
}

TEST(PersianRule, HasNoSuchDayForNegativeNumbers) {
    time_t instant = 17;
    for (const velkor_persian_rule bad :
         {velkor_persian_rule{1403, 1, -3, 5, 1}, {1403, 1, INT_MIN, INT_MIN, 1}, {1403, 1, 0, -100, 1}}) {
        EXPECT_EQ(getTimeByDSTParam(&bad, &instant), -3);
    }
    EXPECT_EQ(instant, 17);
}

TEST(PersianRule, FailsWithItsConversion) {
    time_t instant = 17;
    const velkor_persian_rule rule_of_failure = {-10620, 6, 0, 5, 1};
    EXPECT_EQ(getTimeByDSTParam(&rule_of_failure, &instant), -4);
    EXPECT_EQ(instant, 17);
    for (const int year : {INT_MIN, INT_MAX}) {
        const velkor_persian_rule absurd = {year, 6, 0, 5, 1};
        getTimeByDSTParam(&absurd, &instant);
    }
}

TEST(PersianRule, OfIranBefore2022IsTheSystemsTransition) {
    // Daylight time began at 0:00 on 2 Farvardin (22 March 2021, a Monday) and ended at 24:00 of 30 Shahrivar.
    set_zone("Asia/Tehran");
    const time_t start = instant_of({1400, 1, 0, 1, 0});
    struct tm before;
    struct tm after;
    const time_t second_before = start - 1;
    localtime_r(&second_before, &before);
    localtime_r(&start, &after);
    EXPECT_EQ(before.tm_gmtoff, 12600);
    EXPECT_EQ(after.tm_gmtoff, 16200);
}

}  // namespace

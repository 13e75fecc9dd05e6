#include <dlfcn.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/sysinfo.h>
#include <time.h>
#include <velkor/calendar.h>
#include <velkor/firmware.h>

#include <atomic>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"

namespace {

// What the system's clocks answer, when a test says so: uptimes pass by, and readings fail.
std::atomic<long> pretended_uptime{0};
std::atomic<bool> uptime_fails{false};
std::atomic<time_t> pretended_time{0};

// What the time service fills, and whether it does.
bool service_fills = true;
int64_t chosen_uptime_ms = 0;
int64_t chosen_difference = 0;

void *calendar_argument = nullptr;
int chosen_calendar = 0;

}  // namespace

int vkt_get_uptime_ms(int64_t *milliseconds) {
    if (service_fills) {
        *milliseconds = chosen_uptime_ms;
    }
    return -1;  // ignored
}

int vkt_get_time_diff(int64_t *seconds) {
    if (service_fills) {
        *seconds = chosen_difference;
    }
    return -1;  // ignored
}

int Cfg_GetCalenderEnable(void *argument) {
    calendar_argument = argument;
    return chosen_calendar;
}

extern "C" int sysinfo(struct sysinfo *info) noexcept {
    if (uptime_fails) {
        return -1;
    }
    using Function = int (*)(struct sysinfo *);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "sysinfo"));
    const int result = real(info);
    if (pretended_uptime != 0) {
        info->uptime = pretended_uptime;
    }
    return result;
}

extern "C" time_t time(time_t *out) noexcept {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t seconds = pretended_time != 0 ? pretended_time.load() : now.tv_sec;
    if (out != nullptr) {
        *out = seconds;
    }
    return seconds;
}

namespace {

void set_zone(const char *zone) {
    setenv("TZ", zone, 1);  // NOLINT(concurrency-mt-unsafe): one thread
    tzset();
}

time_t local_time(int year, int month, int day, int hour, int minute, int second) {
    struct tm date = {};
    date.tm_year = year - 1900;
    date.tm_mon = month - 1;
    date.tm_mday = day;
    date.tm_hour = hour;
    date.tm_min = minute;
    date.tm_sec = second;
    date.tm_isdst = -1;
    return mktime(&date);
}

struct Pair {
    long seconds;
    long nanoseconds;
};

struct timespec time_of(Pair pair) {
    struct timespec result = {};
    result.tv_sec = pair.seconds;
    result.tv_nsec = pair.nanoseconds;
    return result;
}

void expect_time(const struct timespec &value, Pair expected) {
    EXPECT_EQ(value.tv_sec, expected.seconds);
    EXPECT_EQ(value.tv_nsec, expected.nanoseconds);
}

// ---- timespec ----

TEST(TimespecDifference, BorrowsASecond) {
    struct timespec a = time_of({5, 100});
    const struct timespec b = time_of({3, 200});
    struct timespec result;
    EXPECT_EQ(vk_timespec_AsubB(&a, &b, &result), 0);
    expect_time(result, {1, 999999900});
    EXPECT_EQ(vk_timespec_AsubB(&a, &b, &a), 0);
    expect_time(a, {1, 999999900});
    EXPECT_EQ(vk_timespec_AsubB(&b, &b, &result), 0);
    expect_time(result, {0, 0});
}

TEST(TimespecDifference, OfAnEarlierTimeLeavesTheResultAlone) {
    const struct timespec a = time_of({3, 0});
    const struct timespec b = time_of({3, 1});
    const struct timespec c = time_of({4, 0});
    struct timespec result = time_of({77, 88});
    EXPECT_EQ(vk_timespec_AsubB(&a, &b, &result), -1);
    EXPECT_EQ(vk_timespec_AsubB(&a, &c, &result), -1);
    expect_time(result, {77, 88});
}

TEST(TimespecDifference, HasSignedSeconds) {
    const struct timespec a = time_of({-3, 0});
    const struct timespec b = time_of({-5, 1});
    struct timespec result;
    EXPECT_EQ(vk_timespec_AsubB(&a, &b, &result), 0);
    expect_time(result, {1, 999999999});
    EXPECT_EQ(vk_timespec_AsubB(&b, &a, &result), -1);
}

TEST(TimespecSum, CarriesASecond) {
    const struct timespec a = time_of({1, 600000000});
    const struct timespec b = time_of({2, 500000000});
    struct timespec result;
    EXPECT_EQ(vk_timespec_AaddB(&a, &b, &result), 0);
    expect_time(result, {4, 100000000});
    const struct timespec c = time_of({2, 399999999});
    EXPECT_EQ(vk_timespec_AaddB(&a, &c, &result), 0);
    expect_time(result, {3, 999999999});
    const struct timespec d = time_of({2, 400000000});
    EXPECT_EQ(vk_timespec_AaddB(&a, &d, &result), 0);
    expect_time(result, {4, 0});
}

TEST(TimespecSum, CarriesOnlyOneSecond) {
    const struct timespec a = time_of({1, 1900000000});
    const struct timespec b = time_of({1, 200000000});
    struct timespec result;
    EXPECT_EQ(vk_timespec_AaddB(&a, &b, &result), 0);
    expect_time(result, {3, 1100000000});
}

TEST(TimespecSum, WrapsWhatNoSecondsHold) {
    struct timespec a = {};
    a.tv_sec = std::numeric_limits<time_t>::max();
    struct timespec result;
    EXPECT_EQ(vk_timespec_AaddB(&a, &a, &result), 0);
    EXPECT_EQ(result.tv_sec, -2);
    struct timespec b = {};
    b.tv_sec = std::numeric_limits<time_t>::min();
    EXPECT_EQ(vk_timespec_AsubB(&a, &b, &result), 0);
    EXPECT_EQ(result.tv_sec, -1);
}

TEST(TimespecComparison, OrdersSecondsThenNanoseconds) {
    const struct timespec a = time_of({7, 1});
    const struct timespec b = time_of({7, 0});
    const struct timespec c = time_of({8, 0});
    const struct timespec d = time_of({-1, 5});
    EXPECT_EQ(vk_timespec_cmp(&a, &b), 1);
    EXPECT_EQ(vk_timespec_cmp(&b, &a), -1);
    EXPECT_EQ(vk_timespec_cmp(&a, &a), 0);
    EXPECT_EQ(vk_timespec_cmp(&a, &c), -1);
    EXPECT_EQ(vk_timespec_cmp(&c, &a), 1);
    EXPECT_EQ(vk_timespec_cmp(&d, &b), -1);
}

// What a call writes to the debug stream, without its time.
template <typename Call>
std::string report_of(Call call) {
    char *text = nullptr;
    size_t size = 0;
    fpDebugFile = open_memstream(&text, &size);
    call();
    fclose(fpDebugFile);
    fpDebugFile = nullptr;
    const std::string report(text, size);
    free(text);
    const size_t line_end = report.find('\n');
    return line_end == std::string::npos ? report : report.substr(line_end + 1);
}

std::string assertion(int line, const std::string &function, const std::string &expression) {
    return "src/common_fun: " + std::to_string(line) + ": " + function + ": Assertion '" + expression + "' failed.\r\n";
}

TEST(TimespecArguments, ThatAreNullAreReportedInOrder) {
    struct timespec t = time_of({1, 2});
    EXPECT_EQ(report_of([&] { EXPECT_EQ(vk_timespec_AsubB(nullptr, nullptr, nullptr), -1); }),
              assertion(1755, "vk_timespec_AsubB", "NULL != _pA"));
    EXPECT_EQ(report_of([&] { EXPECT_EQ(vk_timespec_AsubB(&t, nullptr, nullptr), -2); }),
              assertion(1756, "vk_timespec_AsubB", "NULL != _pB"));
    EXPECT_EQ(report_of([&] { EXPECT_EQ(vk_timespec_AsubB(&t, &t, nullptr), -3); }),
              assertion(1757, "vk_timespec_AsubB", "NULL != _pRes"));
    EXPECT_EQ(report_of([&] { EXPECT_EQ(vk_timespec_AaddB(nullptr, nullptr, nullptr), -1); }),
              assertion(1794, "vk_timespec_AaddB", "NULL != _pA"));
    EXPECT_EQ(report_of([&] { EXPECT_EQ(vk_timespec_AaddB(&t, nullptr, nullptr), -2); }),
              assertion(1795, "vk_timespec_AaddB", "NULL != _pB"));
    EXPECT_EQ(report_of([&] { EXPECT_EQ(vk_timespec_AaddB(&t, &t, nullptr), -3); }),
              assertion(1796, "vk_timespec_AaddB", "NULL != _pRes"));
    EXPECT_EQ(report_of([&] { EXPECT_EQ(vk_timespec_cmp(nullptr, nullptr), -1); }),
              assertion(1827, "vk_timespec_cmp", "NULL != _pA"));
    EXPECT_EQ(report_of([&] { EXPECT_EQ(vk_timespec_cmp(&t, nullptr), -2); }),
              assertion(1828, "vk_timespec_cmp", "NULL != _pB"));
    EXPECT_EQ(report_of([&] { vk_timespec_cmp(&t, &t); }), "");
}

TEST(TimespecArguments, ThatAreNullAreSilentWithoutADebugStream) {
    struct timespec t = time_of({1, 2});
    EXPECT_EQ(vk_timespec_AsubB(nullptr, &t, &t), -1);
    EXPECT_EQ(vk_timespec_cmp(&t, nullptr), -2);
}

// ---- Week days ----

TEST(WeekDayName, StartsWithSunday) {
    const char *const names[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    for (unsigned i = 0; i < 7; ++i) {
        EXPECT_STREQ(vk_ascWeek(i), names[i]);
        EXPECT_EQ(vk_ascWeek(i), g_pcWday[i]);
    }
    EXPECT_EQ(vk_ascWeek(7), nullptr);
    EXPECT_EQ(vk_ascWeek(static_cast<unsigned>(-1)), nullptr);
}

// ---- From text ----

TEST(TimeFromText, ReadsSixNumbers) {
    set_zone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(StrToTime("20261115102517"), local_time(2026, 11, 15, 10, 25, 17));
    EXPECT_EQ(StrToTime("20260715102517"), local_time(2026, 7, 15, 10, 25, 17));
    set_zone("UTC0");
    EXPECT_EQ(StrToTime("20261115102517"), 1794738317);
    EXPECT_EQ(StrToTime("19700101000000"), 0);
    EXPECT_EQ(StrToTime("19691231235958"), -2);
}

TEST(TimeFromText, NormalisesNumbersOutOfRange) {
    set_zone("UTC0");
    EXPECT_EQ(StrToTime("20261032000000"), local_time(2026, 11, 1, 0, 0, 0));
    EXPECT_EQ(StrToTime("20261399990000"), local_time(2027, 1, 99, 99, 0, 0));
}

TEST(TimeFromText, TakesTheBeginningForWhatIsMissing) {
    set_zone("UTC0");
    EXPECT_EQ(StrToTime("2026"), local_time(2026, 1, 1, 0, 0, 0));
    EXPECT_EQ(StrToTime("202611"), local_time(2026, 11, 1, 0, 0, 0));
    EXPECT_EQ(StrToTime("2026111510"), local_time(2026, 11, 15, 10, 0, 0));
    EXPECT_EQ(StrToTime("20261115 x"), local_time(2026, 11, 15, 0, 0, 0));
}

TEST(TimeFromText, IsMinusOneWithoutANumber) {
    EXPECT_EQ(StrToTime(""), -1);
    EXPECT_EQ(StrToTime("yesterday"), -1);
    EXPECT_EQ(StrToTime(nullptr), -1);
    EXPECT_EQ(StrToTimeEx(""), -1);
    EXPECT_EQ(StrToTimeEx(":-/"), -1);
    EXPECT_EQ(StrToTimeEx(nullptr), -1);
}

TEST(TimeFromText, LeavesGapsAndOverlapsOfAZoneToTheCLibrary) {
    const struct {
        const char *zone;
        const char *text;
        time_t change;
        long width;  // of the gap, or of the overlap
    } clocks[] = {
        {"Europe/Berlin", "20260329023000", 1774746000, 3600},
        {"Europe/Berlin", "20261025023000", 1792890000, 3600},
        {"Asia/Tehran", "20220322003000", 1647894600, 3600},
        {"Australia/Lord_Howe", "20261004021500", 1791041400, 1800},
        {"Africa/Casablanca", "20260215023000", 1771120800, 3600},
    };
    for (const auto &clock : clocks) {
        set_zone(clock.zone);
        EXPECT_NEAR(static_cast<double>(StrToTime(clock.text) - clock.change), 0, static_cast<double>(clock.width))
            << clock.zone << ' ' << clock.text;
    }
}

TEST(TimeFromText, IsMinusOneForADateThatTimeCannotHold) {
    set_zone("UTC0");
    if (sizeof(time_t) == 4) {
        EXPECT_EQ(StrToTime("20380119031407"), std::numeric_limits<time_t>::max());
        EXPECT_EQ(StrToTime("20380119031408"), -1);
        EXPECT_EQ(StrToTime("99991231235959"), -1);
    } else {
        EXPECT_EQ(StrToTime("20380119031408"), static_cast<time_t>(int64_t{2147483648}));
        EXPECT_EQ(StrToTime("99991231235959"), static_cast<time_t>(int64_t{253402300799}));
        EXPECT_EQ(StrToTime("09990101000000"), static_cast<time_t>((gregorian_to_jd(999, 1, 1) - 2440587.5) * 86400));
    }
}

TEST(TimeFromText, IgnoresWhatIsNoDigit) {
    set_zone("UTC0");
    EXPECT_EQ(StrToTimeEx("2026-11-15 10:25:17"), StrToTime("20261115102517"));
    EXPECT_EQ(StrToTimeEx("2026/11/15-10:25:17"), 1794738317);
    EXPECT_EQ(StrToTimeEx("\xff"
                          "2026\x80"
                          "1115T102517Z"),
              1794738317);
}

TEST(TimeFromText, IsLogged) {
    const LogCapture log;
    StrToTimeEx("2026-11-15 10:25:17");
    EXPECT_EQ(LogCapture::take_messages(),
              std::vector<std::string>{"1697:StrToTimeEx _strTm==2026-11-15 10:25:17,cBuf==20261115102517"});
}

TEST(TimeFromText, LeavesOutDigitsThatDoNotFit) {
    const LogCapture log;
    set_zone("UTC0");
    EXPECT_EQ(StrToTimeEx("2026111510251712345678901234567890123"), 1794738317);
    EXPECT_EQ(LogCapture::take_messages(),
              std::vector<std::string>{"1697:StrToTimeEx _strTm==2026111510251712345678901234567890123,"
                                       "cBuf==2026111510251712345678901234567"});
}

// ---- To text ----

std::string text_of(const char *format, time_t seconds) {
    char out[512];
    memset(out, '#', sizeof out);
    TimeToString(format, out, seconds);
    return out;
}

TEST(TimeToText, FollowsTheTemplate) {
    set_zone("UTC0");
    const time_t when = local_time(2026, 11, 5, 8, 3, 9);
    EXPECT_EQ(text_of("Y-M-D H:I:S", when), "2026-11-05 08:03:09");
    EXPECT_EQ(text_of("y/m/d", local_time(2005, 3, 4, 0, 0, 0)), "05/03/04");
    EXPECT_EQ(text_of("h i s", when), "08 03 09");
    EXPECT_EQ(text_of("YYyy", when), "202620262626");
    EXPECT_EQ(text_of("", when), "");
}

TEST(TimeToText, HasMinutesAsIAndMonthsAsM) {
    set_zone("UTC0");
    const time_t when = local_time(2026, 11, 5, 8, 3, 9);
    EXPECT_EQ(text_of("M m I i", when), "11 11 03 03");
}

TEST(TimeToText, CopiesEveryOtherByte) {
    set_zone("UTC0");
    std::string format;
    for (int byte = 1; byte < 256; ++byte) {
        if (strchr("YyMmDdHhIiSs", byte) == nullptr) {
            format += static_cast<char>(byte);
        }
    }
    EXPECT_EQ(text_of(format.c_str(), 1), format);
}

TEST(TimeToText, OfATimeBelowOneIsNow) {
    set_zone("UTC0");
    pretended_time = 1794738317;
    EXPECT_EQ(text_of("Y-M-D H:I:S", 0), "2026-11-15 10:25:17");
    EXPECT_EQ(text_of("Y-M-D H:I:S", -5), "2026-11-15 10:25:17");
    EXPECT_EQ(text_of("Y-M-D H:I:S", 1), "1970-01-01 00:00:01");
}

TEST(TimeToText, FollowsTheZoneThroughItsGapAndOverlap) {
    set_zone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(text_of("H:I:S", 1774745999), "01:59:59");  // 29 March 2026
    EXPECT_EQ(text_of("H:I:S", 1774746000), "03:00:00");
    EXPECT_EQ(text_of("H:I:S", 1792889999), "02:59:59");  // 25 October 2026
    EXPECT_EQ(text_of("H:I:S", 1792890000), "02:00:00");
}

TEST(TimeToText, FollowsNamedZones) {
    const struct {
        const char *zone;
        time_t change;
    } changes[] = {
        {"Asia/Tehran", 1647894600},          // the last spring with a change
        {"Australia/Lord_Howe", 1791041400},  // half an hour
        {"Africa/Casablanca", 1771120800},    // back for Ramadan
        {"Europe/Berlin", 1792890000},
    };
    for (const auto &one : changes) {
        set_zone(one.zone);
        for (time_t when = one.change - 7200; when <= one.change + 7200; when += 900) {
            struct tm local;
            localtime_r(&when, &local);
            char expected[64];
            strftime(expected, sizeof expected, "%Y-%m-%d %H:%M:%S", &local);
            EXPECT_EQ(text_of("Y-M-D H:I:S", when), expected) << one.zone;
        }
    }
}

TEST(TimeToText, WritesNothingForNull) {
    char out[4] = "abc";
    TimeToString(nullptr, out, 1);
    TimeToString("Y", nullptr, 1);
    CalTimeToString(nullptr, out, 1);
    CalTimeToString("Y", nullptr, 1);
    EXPECT_STREQ(out, "abc");
}

TEST(TimeToText, CutsAYearBehindFourPlaces) {
    if (sizeof(time_t) == 4) {
        EXPECT_EQ(text_of("Y", std::numeric_limits<time_t>::max()), "2038");  // no later year there
        return;
    }
    set_zone("UTC0");
    EXPECT_EQ(text_of("Y-M", static_cast<time_t>(328000000000)), "1236-11");  // the year 12363
    EXPECT_EQ(text_of("y", static_cast<time_t>(328000000000)), "63");
}

// Years of ten places, and times that no date holds: never a byte more than the template says.
TEST(TimeToText, HasItsLengthForAnyTime) {
    set_zone("UTC0");
    for (time_t when = std::numeric_limits<time_t>::max(); when > 0; when /= 2) {
        char out[64];
        EXPECT_EQ(text_of("Y-M-D H:I:S", when).size(), 19U) << when;
        CalTimeToString("Y-M-D H:I:S", out, when);
        EXPECT_EQ(strlen(out), 19U) << when;
    }
}

// ---- To Persian text ----

TEST(PersianTimeToText, HasThePersianDate) {
    set_zone("<+0330>-3:30");
    char out[128];
    CalTimeToString("Y-M-D H:I:S", out, local_time(2024, 3, 20, 8, 3, 9));
    EXPECT_STREQ(out, "1403-01-01 08:03:09");
    CalTimeToString("y/m/d", out, local_time(2024, 3, 19, 23, 59, 59));
    EXPECT_STREQ(out, "02/12/29");
}

TEST(PersianTimeToText, LogsBothDates) {
    const LogCapture log;
    set_zone("UTC0");
    char out[128];
    CalTimeToString("Y", out, local_time(2024, 3, 20, 8, 3, 9));
    EXPECT_EQ(LogCapture::take_messages(),
              (std::vector<std::string>{"CalTimeToString 2342 before year=2024, mon=3, mday=20",
                                        "CalTimeToString 2344 after year=1403, mon=1, mday=1"}));
    CalTimeToString(nullptr, out, 1);
    CalTimeToString("Y", nullptr, 1);
    EXPECT_EQ(LogCapture::take_messages(), std::vector<std::string>{});
}

TEST(PersianTimeToText, IsTheSameForFourThreadsAtOnce) {
    set_zone("UTC0");
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    const time_t noon = local_time(2024, 3, 20, 12, 0, 0);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int day = 0; day < 500; ++day) {
                char out[128];
                CalTimeToString("Y/M", out, noon + time_t{day % 31} * 86400);
                wrong += strcmp(out, "1403/01") != 0 ? 1 : 0;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST(CalendarSetting, IsPassedThrough) {
    int anything = 0;
    for (const int answer : {0, 1, -7}) {
        chosen_calendar = answer;
        EXPECT_EQ(GetNvrSalorCalenderEnable(&anything), answer);
        EXPECT_EQ(calendar_argument, &anything);
    }
    GetNvrSalorCalenderEnable(nullptr);
    EXPECT_EQ(calendar_argument, nullptr);
}

// ---- Clocks ----

TEST(RememberedTime, IsTheCurrentOneBeforeTheFirst) {
    pretended_time = 1000;
    time_t out = 0;
    EXPECT_EQ(getmytime(&out), 1000);
    EXPECT_EQ(out, 1000);
    pretended_time = 2000;
    EXPECT_EQ(getmytime(nullptr), 2000);
}

TEST(RememberedTime, StaysUntilItIsRefreshed) {
    pretended_time = 1000;
    EXPECT_EQ(setmytime(), 1000);
    pretended_time = 2000;
    time_t out = 0;
    EXPECT_EQ(getmytime(&out), 1000);
    EXPECT_EQ(out, 1000);
    EXPECT_EQ(setmytime(), 2000);
    EXPECT_EQ(getmytime(nullptr), 2000);
}

TEST(RememberedTime, OfAFailedReadingIsMinusOne) {
    pretended_time = -1;
    EXPECT_EQ(setmytime(), -1);
    pretended_time = 2000;
    EXPECT_EQ(getmytime(nullptr), -1);
}

TEST(RememberedTime, IsAlwaysAWholeOneForFourThreadsAtOnce) {
    pretended_time = 1000;
    pretended_uptime = 1000;
    setmytime();
    set_uptime();
    std::atomic<bool> refreshes{true};
    std::thread refresher([&] {
        while (refreshes) {
            pretended_time = 3000 - pretended_time;
            pretended_uptime = 3000 - pretended_uptime;
            setmytime();
            set_uptime();
        }
    });
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            for (int round = 0; round < 2000; ++round) {
                const time_t now = getmytime(nullptr);
                const int uptime = get_uptime();
                wrong += now != 1000 && now != 2000 ? 1 : 0;
                wrong += uptime != 1000 && uptime != 2000 ? 1 : 0;
            }
        });
    }
    for (std::thread &reader : readers) {
        reader.join();
    }
    refreshes = false;
    refresher.join();
    EXPECT_EQ(wrong, 0);
}

TEST(RememberedUptime, FollowsTheLiveOneBeforeTheFirst) {
    pretended_uptime = 100;
    EXPECT_EQ(get_uptime(), 100);
    pretended_uptime = 101;
    EXPECT_EQ(get_uptime(), 101);
    EXPECT_EQ(set_uptime(), 0);
    pretended_uptime = 500;
    EXPECT_EQ(get_uptime(), 101);
    EXPECT_EQ(set_uptime(), 0);
    EXPECT_EQ(get_uptime(), 500);
}

TEST(RememberedUptime, IsTheKernels) {
    struct sysinfo info;
    ASSERT_EQ(sysinfo(&info), 0);
    EXPECT_NEAR(get_uptime(), static_cast<double>(info.uptime), 2);
}

TEST(RememberedUptime, StaysWhenItsReadingFails) {
    pretended_uptime = 100;
    EXPECT_EQ(set_uptime(), 0);
    uptime_fails = true;
    EXPECT_EQ(set_uptime(), -1);
    EXPECT_EQ(get_uptime(), 100);
}

TEST(RememberedUptime, IsZeroWhenNothingCanBeRead) {
    uptime_fails = true;
    EXPECT_EQ(get_uptime(), 0);
}

TEST(UptimeInMilliseconds, IsWhatTheTimeServiceFills) {
    chosen_uptime_ms = 0x123456789abcdef;
    EXPECT_EQ(get_uptime_ms(), 0x123456789abcdef);
    service_fills = false;
    EXPECT_EQ(get_uptime_ms(), 0);
}

TEST(LocalDifference, IsTheLowWordOfWhatTheTimeServiceFills) {
    chosen_difference = 12600;
    EXPECT_EQ(get_localtz_timediff(), 12600);
    chosen_difference = -34200;
    EXPECT_EQ(get_localtz_timediff(), -34200);
    chosen_difference = 0x1234500000007;
    EXPECT_EQ(get_localtz_timediff(), 7);
    service_fills = false;
    EXPECT_EQ(get_localtz_timediff(), 0);
}

}  // namespace

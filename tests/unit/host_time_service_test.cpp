#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

#include <string>

#include "support/forked.h"
#include "support/place.h"

namespace {

void set_zone(const std::string &zone) {
    setenv("TZ", zone.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): one thread
    tzset();
}

DaylightConfig zone_only(int zone) {
    DaylightConfig config = {};
    config.zone = zone;
    return config;
}

std::string zone_text(const DaylightConfig &config) {
    char text[128];
    memset(text, '#', sizeof text);
    EXPECT_EQ(vkt_tzset_to_tzstr(&config, text, sizeof text), 0);
    return text;
}

long local_difference(time_t when) {
    struct tm local;
    localtime_r(&when, &local);
    return local.tm_gmtoff;
}

TEST(HostUptime, IsTheKernels) {
    struct timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    int64_t seconds = 0;
    int64_t milliseconds = 0;
    EXPECT_EQ(vkt_get_uptime(&seconds), 0);
    EXPECT_EQ(vkt_get_uptime_ms(&milliseconds), 0);
    EXPECT_NEAR(static_cast<double>(seconds), static_cast<double>(now.tv_sec), 1);
    EXPECT_NEAR(static_cast<double>(milliseconds) / 1000, static_cast<double>(now.tv_sec), 2);
    EXPECT_EQ(vkt_get_uptime(nullptr), -1);
    EXPECT_EQ(vkt_get_uptime_ms(nullptr), -1);
}

TEST(HostTimeDifference, IsToldInTheChildrenOfABusyFork) {
    const auto ask = [] {
        int64_t seconds = 0;
        return vkt_get_time_diff(&seconds) == 0;
    };
    EXPECT_EQ(forked::first_that_fails(40, ask, ask), -1);
}

TEST(HostTimeDifference, FollowsTheZone) {
    int64_t seconds = 0;
    set_zone("<+0530>-5:30");
    EXPECT_EQ(vkt_get_time_diff(&seconds), 0);
    EXPECT_EQ(seconds, 19800);
    set_zone("<-0330>3:30");
    EXPECT_EQ(vkt_get_time_diff(&seconds), 0);
    EXPECT_EQ(seconds, -12600);
    EXPECT_EQ(vkt_get_time_diff(nullptr), -1);
}

TEST(HostZoneText, IsWhatTheCLibraryMakesOfIt) {
    const struct {
        int code;
        long seconds;
    } zones[] = {{108, 28800},   {10530, 19800}, {9670, -12600}, {10000, 0},
                 {8800, -43200}, {11400, 50400}, {9970, -1800},  {10545, 20700}};
    for (const auto &zone : zones) {
        set_zone(zone_text(zone_only(zone.code)));
        EXPECT_EQ(local_difference(1794738317), zone.seconds) << zone.code;
    }
    EXPECT_EQ(zone_text(zone_only(10530)), "<+0530>-05:30");
    EXPECT_EQ(zone_text(zone_only(9670)), "<-0330>+03:30");
}

TEST(HostZoneText, CarriesTheDaylightRule) {
    DaylightConfig config = zone_only(10100);
    config.enable = 1;
    config.offset = 60;
    config.dst_start = {3, 5, 0, 2, {}};
    config.dst_stop = {10, 5, 0, 3, {}};
    EXPECT_EQ(zone_text(config), "<+0100>-01:00<+0200>-02:00,M3.5.0/2,M10.5.0/3");
    set_zone(zone_text(config));
    EXPECT_EQ(local_difference(1774745999), 3600);
    EXPECT_EQ(local_difference(1774746000), 7200);
    EXPECT_EQ(local_difference(1792889999), 7200);
    EXPECT_EQ(local_difference(1792890000), 3600);
}

TEST(HostZoneText, AgreesWithNamedZones) {
    DaylightConfig berlin = zone_only(10100);
    berlin.enable = 1;
    berlin.offset = 60;
    berlin.dst_start = {3, 5, 0, 2, {}};
    berlin.dst_stop = {10, 5, 0, 3, {}};
    DaylightConfig lord_howe = zone_only(11030);
    lord_howe.enable = 1;
    lord_howe.offset = 30;
    lord_howe.dst_start = {10, 1, 0, 2, {}};
    lord_howe.dst_stop = {4, 1, 0, 2, {}};
    const struct {
        const char *name;
        DaylightConfig config;
    } zones[] = {{"Europe/Berlin", berlin}, {"Australia/Lord_Howe", lord_howe}, {"Asia/Kolkata", zone_only(10530)}};
    for (const auto &zone : zones) {
        for (time_t when = 1767225600; when < 1830297600; when += 3600 * 7 + 1) {
            set_zone(zone.name);
            const long expected = local_difference(when);
            set_zone(zone_text(zone.config));
            ASSERT_EQ(local_difference(when), expected) << zone.name << ' ' << when;
        }
    }
}

TEST(HostZoneText, LeavesOutARuleThatIsNone) {
    DaylightConfig config = zone_only(10100);
    config.enable = 1;
    config.offset = 60;
    EXPECT_EQ(zone_text(config), "<+0100>-01:00");
}

TEST(HostZoneText, IsEmptyWhenItCannotBe) {
    char text[128] = "x";
    const DaylightConfig bad = zone_only(120);
    EXPECT_EQ(vkt_tzset_to_tzstr(&bad, text, sizeof text), -1);
    EXPECT_STREQ(text, "");
    const DaylightConfig good = zone_only(10530);
    EXPECT_EQ(vkt_tzset_to_tzstr(&good, text, 13), -1);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(vkt_tzset_to_tzstr(&good, text, 14), 0);
    EXPECT_EQ(vkt_tzset_to_tzstr(nullptr, text, 14), -1);
    EXPECT_EQ(vkt_tzset_to_tzstr(&good, nullptr, 14), -1);
    EXPECT_EQ(vkt_tzset_to_tzstr(&good, text, 0), -1);
}

TEST(HostZoneFile, BecomesTheProcesssZone) {
    place::write_file("/etc/TZ", "<+0530>-05:30\n");
    EXPECT_EQ(velkor_host_follow_zone_file(), 0);
    EXPECT_EQ(local_difference(1794738317), 19800);
}

TEST(HostZoneFile, ThatSaysNothingChangesNothing) {
    set_zone("<+0100>-1");
    place::write_file("/etc/TZ", "\n");
    EXPECT_EQ(velkor_host_follow_zone_file(), -1);
    unlink("/etc/TZ");
    EXPECT_EQ(velkor_host_follow_zone_file(), -1);
    EXPECT_EQ(local_difference(1794738317), 3600);
}

}  // namespace

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor/calendar.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

#include <atomic>
#include <thread>

#include "support/place.h"

namespace {

TEST(HostDaylightSetting, StartsAsUtcWithoutDaylightTime) {
    EXPECT_EQ(g_stDaylightSaving.enable, 0);
    EXPECT_EQ(g_stDaylightSaving.zone, 10000);
}

TEST(HostDaylightSetting, IsKeptInAFile) {
    const CfgDaylightSaving setting = {1, 10530, 0xff040002U, 0x09040003U, -60};
    EXPECT_EQ(Cfg_sDaylightSaving(&setting), 0);
    EXPECT_EQ(place::read_file(VELKOR_HOST_DAYLIGHT_FILE),
              "enable=1\nzone=10530\nstart=4278452226\nstop=151257091\noffset=-60\n");
    EXPECT_EQ(velkor_host_daylight_load(), 0);
    EXPECT_EQ(g_stDaylightSaving.enable, 1);
    EXPECT_EQ(g_stDaylightSaving.zone, 10530);
    EXPECT_EQ(g_stDaylightSaving.start, 0xff040002U);
    EXPECT_EQ(g_stDaylightSaving.stop, 0x09040003U);
    EXPECT_EQ(g_stDaylightSaving.offset, -60);
}

TEST(HostDaylightSetting, KeepsWhatTheFileDoesNotName) {
    place::write_file(VELKOR_HOST_DAYLIGHT_FILE, "zone=10800\nnonsense\n=5\ncolour=3\n");
    EXPECT_EQ(velkor_host_daylight_load(), 0);
    EXPECT_EQ(g_stDaylightSaving.zone, 10800);
    EXPECT_EQ(g_stDaylightSaving.enable, 0);
}

TEST(HostDaylightSetting, WithoutAFileStaysAsItIs) {
    g_stDaylightSaving.zone = 9670;
    EXPECT_EQ(velkor_host_daylight_load(), -1);
    EXPECT_EQ(g_stDaylightSaving.zone, 9670);
}

TEST(HostDaylightSetting, ThatCannotBeSavedLeavesTheFileAsItWas) {
    const CfgDaylightSaving setting = {0, 10800, 0, 0, 0};
    EXPECT_EQ(Cfg_sDaylightSaving(nullptr), -1);
    EXPECT_EQ(Cfg_sDaylightSaving(&setting), 0);
    const std::string before = place::read_file(VELKOR_HOST_DAYLIGHT_FILE);
    ASSERT_EQ(mkdir(VELKOR_HOST_DAYLIGHT_FILE ".new", 0755), 0);
    const CfgDaylightSaving other = {0, 9670, 0, 0, 0};
    EXPECT_EQ(Cfg_sDaylightSaving(&other), -1);
    EXPECT_EQ(place::read_file(VELKOR_HOST_DAYLIGHT_FILE), before);
}

// The setting belongs to both sides, and neither knows the other's lock: each word is as one of them wrote it.
TEST(HostDaylightSetting, MayBeLoadedWhileTheLibraryReadsAndSetsIt) {
    const CfgDaylightSaving one = {1, 10100, 0x02040002U, 0x09040003U, 60};
    const CfgDaylightSaving other = {1, 10200, 0x03040002U, 0x08040003U, 30};
    EXPECT_EQ(Cfg_sDaylightSaving(&one), 0);
    EXPECT_EQ(velkor_host_daylight_load(), 0);
    std::atomic<int> at_work{2};
    std::thread loader([&] {
        for (int i = 0; i < 200; ++i) {
            Cfg_sDaylightSaving(i % 2 == 0 ? &one : &other);
            velkor_host_daylight_load();
        }
        --at_work;
    });
    std::thread setter([&] {
        for (int i = 0; i < 200; ++i) {
            vk_setCurTimeZone(103, 17, "zone set");
        }
        --at_work;
    });
    while (at_work > 0) {
        DaylightConfig config = {};
        EXPECT_EQ(time_GetDaylightConfig(&config), 0);
        ASSERT_TRUE(config.offset == 60 || config.offset == 30) << config.offset;
        ASSERT_TRUE(config.zone == 10100 || config.zone == 10200 || config.zone == 10300) << config.zone;
        ASSERT_TRUE(config.dst_start.month == 3 || config.dst_start.month == 4) << config.dst_start.month;
        vk_getCurTimeZone(1);
    }
    loader.join();
    setter.join();
}

TEST(HostCalendarSetting, IsWhatWasSet) {
    int anything = 0;
    EXPECT_EQ(Cfg_GetCalenderEnable(&anything), 0);
    velkor_host_set_calendar(1);
    EXPECT_EQ(Cfg_GetCalenderEnable(nullptr), 1);
}

}  // namespace

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

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

TEST(HostCalendarSetting, IsWhatWasSet) {
    int anything = 0;
    EXPECT_EQ(Cfg_GetCalenderEnable(&anything), 0);
    velkor_host_set_calendar(1);
    EXPECT_EQ(Cfg_GetCalenderEnable(nullptr), 1);
}

}  // namespace

// velkor sys, as a person or a script uses it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor_host.h>

#include <nlohmann/json.hpp>
#include <string>

#include "support/place.h"
#include "support/tool.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;

const std::string TITLES = "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n";

void put_command(const std::string &path, const std::string &work) {
    place::write_file(path, "#!/bin/sh\n" + work + "\n");
    chmod(path.c_str(), 0755);
}

// What a recorder's ps prints: also the tool itself, with its arguments.
void pretend_ps(const std::string &lines) {
    place::write_file("/tmp/lines", lines);
    mkdir("/tmp/bin", 0755);
    put_command("/tmp/bin/ps", "cat /tmp/lines; pgrep -f velkor.sys | sed 's/$/ nvr/'");
    setenv("PATH", (std::string("/tmp/bin:") + getenv("PATH")).c_str(), 1);
}

TEST(ToolSysTasks, PrintsTheIdsThatMatch) {
    pretend_ps("101 nvr\n102 other\n103 nvrd\n");
    const tool::Outcome found = tool::run("sys tasks nvr");
    EXPECT_EQ(found.status, 0) << found.err;
    EXPECT_EQ(found.out, "101\n103\n") << "and not the tool itself";
    const json object = json::parse(tool::run("sys tasks nvr --json").out);
    EXPECT_EQ(object, json::parse(R"({"name": "nvr", "pids": [101, 103]})"));
}

TEST(ToolSysTasks, AnswersNoWhenThereIsNone) {
    pretend_ps("101 nvr\n");
    const tool::Outcome found = tool::run("sys tasks nothing");
    EXPECT_EQ(found.status, 1);
    EXPECT_EQ(found.out, "");
    EXPECT_EQ(json::parse(tool::run("sys tasks nothing --json").out)["pids"], json::array());
}

TEST(ToolSysTasks, SaysWhatIsWrong) {
    const tool::Outcome too_long = tool::run("sys tasks " + std::string(32, 'n'));
    EXPECT_EQ(too_long.status, 2);
    EXPECT_EQ(too_long.err, "velkor: error -10, a task name has 31 characters at most\n");
    EXPECT_EQ(tool::run("sys tasks ''").status, 2);
    EXPECT_EQ(tool::run("sys tasks").status, 2);
    ASSERT_EQ(rmdir("/tmpfile"), 0);
    const tool::Outcome nowhere = tool::run("sys tasks nvr");
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_THAT(nowhere.err, HasSubstr("error -12"));
}

// ---- Shares of nothing: counters that stand still, a total of 0 ----

const std::string STILL = "cpu  1 2 3 4 5 6 7 8 9 10\n";

TEST(ToolSys, SaysThatAShareOfNothingIsUnknown) {
    const place::BoundContent stat("/proc/stat", STILL);
    const place::BoundContent memory("/proc/meminfo", "MemTotal: 0 kB\nMemFree: 0 kB\n");
    const tool::Outcome shown = tool::run("sys");
    EXPECT_EQ(shown.status, 1);
    EXPECT_THAT(shown.out, HasSubstr("cpu       [------------------------------] unknown busy in the last second\n"));
    EXPECT_THAT(shown.out, HasSubstr("memory    [------------------------------] unknown of 0 B, caches included\n"));
}

TEST(ToolSys, SaysThatAnInfiniteShareIsUnknown) {
    const place::BoundContent memory("/proc/meminfo", "MemTotal: 0 kB\nMemFree: 1 kB\n");
    const tool::Outcome shown = tool::run("sys");
    EXPECT_EQ(shown.status, 1);
    EXPECT_THAT(shown.out, HasSubstr("memory     [------------------------------] unknown of 0 B, caches included\n"));
}

TEST(ToolSys, HasNullInJsonForAShareOfNothing) {
    const place::BoundContent stat("/proc/stat", STILL);
    const place::BoundContent memory("/proc/meminfo", "MemTotal: 0 kB\nMemFree: 1 kB\n");
    const tool::Outcome told = tool::run("sys --json");
    EXPECT_EQ(told.status, 1);
    const json object = json::parse(told.out);
    EXPECT_TRUE(object.at("cpu").at("busy").is_null());
    EXPECT_TRUE(object.at("memory").at("used").is_null());
    EXPECT_TRUE(object.at("flash").at("used").is_number());
}

TEST(ToolSysSwap, ChecksTheSwapFile) {
    const place::BoundContent swaps("/proc/swaps", TITLES);
    const tool::Outcome none = tool::run("sys swap check");
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.out, "no swap file is in use\n");
    place::write_file(swaps.file(), TITLES + "/mnt/swapfile.dat file\t\t65532\t\t1024\t\t-2\n");
    const tool::Outcome there = tool::run("sys swap check");
    EXPECT_EQ(there.status, 0);
    EXPECT_EQ(there.out, "size  65532 kB\nused  1024 kB\n");
    EXPECT_EQ(json::parse(tool::run("sys swap check --json").out),
              json::parse(R"({"active": true, "size_kb": 65532, "used_kb": 1024})"));
    place::write_file(swaps.file(), TITLES + "/mnt/swapfile.dat file\n");
    EXPECT_THAT(tool::run("sys swap check").err, HasSubstr("error -2"));
}

TEST(ToolSysSwap, StartsAndStops) {
    const place::BoundContent swaps("/proc/swaps", TITLES);
    mkdir("/tmp/disk", 0755);
    place::write_file(VELKOR_HOST_SETTINGS_FILE, "[disk 3]\npath = /tmp/disk\n");
    put_command("/dvr/swap_ctrl.sh", "echo \"$@\" >>/tmp/calls");

    EXPECT_EQ(tool::run("sys swap start").status, 0);
    EXPECT_EQ(tool::run("sys swap start --disk 3").status, 0);
    const tool::Outcome absent = tool::run("sys swap start --disk 4");
    EXPECT_EQ(absent.status, 1);
    EXPECT_THAT(absent.err, HasSubstr("error -3"));
    EXPECT_EQ(tool::run("sys swap start --disk 24").status, 2);
    EXPECT_EQ(tool::run("sys swap stop").err, "velkor: no swap file is in use\n");
    EXPECT_EQ(place::read_file("/tmp/calls"), "start /tmp/disk 64\nstart /tmp/disk 64\n");

    place::write_file(swaps.file(), TITLES + "/tmp/disk/swapfile.dat file\t\t65532\t\t0\t\t-2\n");
    const tool::Outcome again = tool::run("sys swap start");
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(again.err, "velkor: a swap file is in use already\n");
    EXPECT_EQ(tool::run("sys swap stop").status, 0);
    EXPECT_EQ(place::read_file("/tmp/calls"), "start /tmp/disk 64\nstart /tmp/disk 64\nstop\n");
}

TEST(ToolSysSwap, SaysThatTheScriptFailed) {
    const place::BoundContent swaps("/proc/swaps", TITLES);
    mkdir("/tmp/disk", 0755);
    place::write_file(VELKOR_HOST_SETTINGS_FILE, "[disk 3]\npath = /tmp/disk\n");
    const tool::Outcome started = tool::run("sys swap start");
    EXPECT_EQ(started.status, 1) << "there is no script";
    EXPECT_THAT(started.err, HasSubstr("error -4, /dvr/swap_ctrl.sh start failed"));
    place::write_file(swaps.file(), TITLES + "/tmp/disk/swapfile.dat file\t\t65532\t\t0\t\t-2\n");
    EXPECT_EQ(tool::run("sys swap stop").status, 1);
}

}  // namespace

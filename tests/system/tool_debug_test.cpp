// velkor debug, upgrade-log and sys, as a person or a script uses them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor/diagnostics.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "support/place.h"
#include "support/tool.h"

namespace {

using nlohmann::json;
using place::eventually;
using tool::Outcome;

constexpr const char *MODE_FILE = "/tmp/rt_debug/mode.txt";

bool holds(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// ---- debug ----

TEST(ToolDebug, SwitchesAndShowsTheMode) {
    EXPECT_EQ(tool::run("debug mode --dir /tmp").out, "directory  /tmp/rt_debug (absent: off)\n");
    EXPECT_EQ(tool::run("debug mode --dir /tmp").status, 1);
    EXPECT_EQ(tool::run("debug mode --dir /tmp --tags 'alarm disk'").status, 0);
    EXPECT_EQ(place::read_file(MODE_FILE), "alarm disk");
    EXPECT_EQ(tool::run("debug mode --dir /tmp --tags net --terminal /dev/pts/7").out,
              "directory  /tmp/rt_debug\ntags       those in \"/dev/pts/7:net\"\n");
    EXPECT_EQ(json::parse(tool::run("debug mode --dir /tmp --json").out),
              json::parse(R"({"directory": "/tmp/rt_debug", "on": true, "mode": "/dev/pts/7:net"})"));
    EXPECT_EQ(tool::run("debug mode --dir /tmp --all").out, "directory  /tmp/rt_debug\ntags       all\n");
    EXPECT_FALSE(place::exists(MODE_FILE));
    EXPECT_EQ(tool::run("debug mode --dir /tmp --off").status, 0);
    EXPECT_FALSE(place::exists("/tmp/rt_debug"));
    for (const char *const bad :
         {"--off --all", "--off --tags x", "--terminal /dev/pts/1", "--tags x --terminal /tmp/x"}) {
        EXPECT_EQ(tool::run(std::string("debug mode --dir /tmp ") + bad).status, 2) << bad;
    }
    EXPECT_EQ(tool::run("debug mode --dir /tmp --tags " + std::string(129, 'x')).status, 2);
    EXPECT_FALSE(place::exists("/tmp/rt_debug"));
}

// Processes compare the time of the file, in seconds.
TEST(ToolDebug, GivesEachModeATimeOfItsOwn) {
    time_t before = 0;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(tool::run("debug mode --dir /tmp --tags x").status, 0);
        struct stat status;
        ASSERT_EQ(stat(MODE_FILE, &status), 0);
        EXPECT_GT(status.st_mtime, before);
        before = status.st_mtime;
    }
}

TEST(ToolDebug, FollowsTheLiveCopyOfAProcess) {
    const auto buffer = std::make_unique<RtMsgBuf>();
    pthread_mutex_init(&buffer->lock, nullptr);
    insert_global_pointer(0, buffer.get());
    g_iRtGlobalfd = 1;
    ASSERT_EQ(chdir("/tmp"), 0);
    tool::Running running("debug follow --dir /tmp --tags alarm --count 2");
    ASSERT_TRUE(eventually([] { return place::exists(MODE_FILE); }));
    EXPECT_EQ(rt_JudgePrintEn(), 0);
    Rt_PrintfNoGlobalfd("disk", "not wanted");
    Rt_PrintfNoGlobalfd("alarm", "input %d closed", 4);
    Rt_PrintfNoGlobalfd("alarm", "input %d open\x1b[2J", 4);
    EXPECT_EQ(running.wait(), 0);
    std::istringstream lines(running.out());
    std::string line;
    std::getline(lines, line);
    EXPECT_TRUE(line.ends_with("]input 4 closed")) << line;
    std::getline(lines, line);
    EXPECT_TRUE(line.ends_with("]input 4 open^[[2J")) << line;
    EXPECT_FALSE(place::exists("/tmp/rt_debug"));  // as it was
}

TEST(ToolDebug, RestoresTheModeAfterCtrlC) {
    ASSERT_EQ(mkdir("/tmp/rt_debug", 0755), 0);
    place::write_file(MODE_FILE, "net");
    tool::Running running("debug follow --dir /tmp --tags alarm");
    ASSERT_TRUE(eventually([] { return place::read_file(MODE_FILE).starts_with("/dev/pts/"); }));
    running.send(SIGINT);
    EXPECT_EQ(running.wait(), 0);
    EXPECT_EQ(place::read_file(MODE_FILE), "net");
}

TEST(ToolDebug, ShowsWhatAChannelKeeps) {
    place::write_file("/tmp/lines", "one\ntwo\n");
    const Outcome outcome = tool::run("debug channel --channel 8", "/tmp/lines");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(holds(outcome.out, "]one\n[")) << outcome.out;
    EXPECT_TRUE(outcome.out.ends_with("]two\n"));
    std::string many;
    for (int i = 0; i < 100; ++i) {
        many += std::string(1000, static_cast<char>('a' + i % 26)) + "\n";
    }
    place::write_file("/tmp/lines", many + "last\n");
    EXPECT_FALSE(holds(tool::run("debug channel", "/tmp/lines").err, "wrapped"));
    const Outcome wrapped = tool::run("debug channel --wrap", "/tmp/lines");
    EXPECT_TRUE(wrapped.err.ends_with(", wrapped\n")) << wrapped.err;
    EXPECT_TRUE(wrapped.out.ends_with("]last\n"));
    EXPECT_EQ(tool::run("debug channel --channel 9").status, 2);
}

// ---- upgrade-log ----

TEST(ToolUpgradeLog, WritesShowsAndClears) {
    EXPECT_EQ(tool::run("upgrade-log show").status, 1);
    const Outcome nowhere = tool::run("upgrade-log write kernel begin 1.2");
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_TRUE(holds(nowhere.err, "code -1: /dvrfile/log/upgrade.log cannot be written")) << nowhere.err;
    ASSERT_EQ(mkdir("/dvrfile/log", 0755), 0);
    EXPECT_EQ(tool::run("upgrade-log write kernel begin 1.2").status, 0);
    EXPECT_EQ(tool::run("upgrade-log write kernel begin").status, 2);
    EXPECT_TRUE(tool::run("upgrade-log show").out.ends_with("][kernel][begin][1.2]\n"));
    const json lines = json::parse(tool::run("upgrade-log --config /dvrfile show --json").out);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_TRUE(lines[0].get<std::string>().ends_with("][kernel][begin][1.2]"));
    EXPECT_EQ(tool::run("upgrade-log clear").status, 0);
    EXPECT_FALSE(place::exists("/dvrfile/log/upgrade.log"));
}

// ---- sys ----

TEST(ToolSys, ShowsWhatTheMachineIsBusyWith) {
    const Outcome outcome = tool::run("sys --json --process 1 --process 4999999");
    EXPECT_EQ(outcome.status, 1);  // the second is not there
    const json now = json::parse(outcome.out);
    for (const double percent :
         {now["cpu"]["busy"].get<double>(), now["cpu"]["timer"]["idle"].get<double>(), now["cpu"]["idle"].get<double>(),
          now["memory"]["used"].get<double>(), now["flash"]["used"].get<double>()}) {
        EXPECT_GE(percent, 0.0);
        EXPECT_LE(percent, 100.0);
    }
    EXPECT_GT(now["memory"]["total_kib"].get<int64_t>(), 0);
    EXPECT_GT(now["processes"][0]["resident_kib"].get<int64_t>(), 0);
    EXPECT_TRUE(now["processes"][1]["resident_kib"].is_null());
}

TEST(ToolSys, WatchesAsOftenAsItIsTold) {
    const Outcome lines = tool::run("sys --watch --json --count 2");
    EXPECT_EQ(lines.status, 0);
    std::istringstream stream(lines.out);
    int objects = 0;
    for (std::string line; std::getline(stream, line); ++objects) {
        EXPECT_FALSE(json::parse(line)["cpu"].contains("idle"));  // would cost a descriptor a second
    }
    EXPECT_EQ(objects, 2);
}

TEST(ToolSys, RedrawsBarsOnATerminalUntilItIsStopped) {
    place::Terminal terminal;
    tool::Running running("sys --watch >" + terminal.path());
    const std::string shown = terminal.read_until("of the root file system\n");
    EXPECT_TRUE(shown.starts_with("\033[H\033[J")) << shown;
    EXPECT_TRUE(holds(shown, "memory     "));
    running.send(SIGINT);
    EXPECT_EQ(running.wait(), 0);
    EXPECT_EQ(tool::run("sys nothing").status, 2);
}

}  // namespace

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/forked.h"
#include "support/held_clock.h"
#include "support/log_capture.h"
#include "support/place.h"

namespace {

constexpr const char *FILE_NAME = "/dvrfile/log/upgrade.log";

// What was in a file each time that one was forced to the disk.
std::vector<std::string> synced;
bool keeps_synced = true;

}  // namespace

extern "C" int fsync(int fd) {
    if (keeps_synced) {
        synced.push_back(place::read_file("/proc/self/fd/" + std::to_string(fd)));
    }
    return 0;
}

namespace {

class UpgradeLog : public testing::Test {
protected:
    UpgradeLog() { EXPECT_EQ(mkdir("/dvrfile/log", 0755), 0); }
};

TEST_F(UpgradeLog, AppendsALineOfThreeFields) {
    EXPECT_GE(upgrade_WriteLog("kernel", "begin", "1.2"), 0);
    EXPECT_GE(upgrade_WriteLog("x]", "", "z"), 0);
    std::istringstream lines(place::read_file(FILE_NAME));
    const std::string stamp =
        "\\[\\d{4}-[1-9]\\d?-[1-9]\\d?( )(0|[1-9]\\d?)(:(0|[1-9]\\d?)){2}\\]";  // no leading zeros
    std::string line;
    std::getline(lines, line);
    EXPECT_TRUE(std::regex_match(line, std::regex(stamp + "\\[kernel\\]\\[begin\\]\\[1\\.2\\]"))) << line;
    std::getline(lines, line);
    EXPECT_TRUE(std::regex_match(line, std::regex(stamp + "\\[x\\]\\]\\[\\]\\[z\\]"))) << line;
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(UpgradeLog, StampsALineInLocalTimeWithoutLeadingZeros) {
    setenv("TZ", "EST5", 1);
    held_clock::offset = [] { return 67603787; };  // 2026-01-05 09:03:07 UTC
    upgrade_WriteLog("x", "y", "z");
    EXPECT_EQ(place::read_file(FILE_NAME), "[2026-1-5 4:3:7][x][y][z]\n");
}

TEST_F(UpgradeLog, IsForcedToTheDiskLineByLine) {
    upgrade_WriteLog("a", "b", "c");
    const std::string first = place::read_file(FILE_NAME);
    upgrade_WriteLog("d", "e", "f");
    EXPECT_TRUE(first.ends_with("[a][b][c]\n")) << first;
    EXPECT_EQ(synced, (std::vector<std::string>{first, place::read_file(FILE_NAME)}));
}

TEST_F(UpgradeLog, RefusesAFieldThatIsNull) {
    EXPECT_EQ(upgrade_WriteLog(nullptr, "b", "c"), -1);
    EXPECT_EQ(upgrade_WriteLog("a", nullptr, "c"), -1);
    EXPECT_EQ(upgrade_WriteLog("a", "b", nullptr), -1);
    EXPECT_FALSE(place::exists(FILE_NAME));
}

TEST_F(UpgradeLog, ReportsAFileThatCannotBeOpened) {
    EXPECT_EQ(rmdir("/dvrfile/log"), 0);
    const LogCapture log;
    EXPECT_EQ(upgrade_WriteLog("a", "b", "c"), -1);
    EXPECT_EQ(log.take_messages(), std::vector<std::string>{"upgrade_WriteLog 2433 fileopen error"});
}

TEST_F(UpgradeLog, ReportsALineThatCannotBeWritten) {
    const LogCapture log;
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit nothing = {0, RLIM_INFINITY};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &nothing), 0);
    EXPECT_EQ(upgrade_WriteLog("a", "b", "c"), -1);
    const struct rlimit anything = {RLIM_INFINITY, RLIM_INFINITY};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &anything), 0);
    EXPECT_EQ(log.take_messages(), std::vector<std::string>{"upgrade_WriteLog 2454 fputs error"});
    EXPECT_EQ(place::read_file(FILE_NAME), "");
    EXPECT_TRUE(synced.empty());
}

TEST_F(UpgradeLog, IsNotLeftToACommandByABusyFork) {
    keeps_synced = false;
    EXPECT_EQ(forked::commands_that_hold(FILE_NAME, [] { upgrade_WriteLog("a", "b", "c"); }), 0);
}

// A FIFO that is full takes a line only when somebody reads.
TEST_F(UpgradeLog, DoesNotWaitForAFullFifo) {
    ASSERT_EQ(mkfifo(FILE_NAME, 0666), 0);
    const int full = open(FILE_NAME, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    char page[4096] = "";
    while (write(full, page, sizeof page) > 0) {
    }
    EXPECT_TRUE(forked::succeeds([] {
        const LogCapture log;
        return upgrade_WriteLog("a", "b", "c") == -1 &&
               LogCapture::take_messages() == std::vector<std::string>{"upgrade_WriteLog 2454 fputs error"};
    }));
    close(full);
}

TEST_F(UpgradeLog, CutsALineAt511Characters) {
    EXPECT_GE(upgrade_WriteLog(std::string(600, 'a').c_str(), "b", "c"), 0);
    const std::string line = place::read_file(FILE_NAME);
    EXPECT_EQ(line.size(), 511U);
    EXPECT_EQ(line.back(), 'a');
}

TEST_F(UpgradeLog, CutsItsPathAt63Characters) {
    const std::string directory = "/tmp/" + std::string(46, 'd') + "/";  // 52 characters, and "log/upgrade" makes 63
    EXPECT_EQ(mkdir(directory.c_str(), 0755), 0);
    EXPECT_EQ(mkdir((directory + "log").c_str(), 0755), 0);
    EXPECT_EQ(velkor_host_set_config_path(directory.c_str()), 0);
    EXPECT_GE(upgrade_WriteLog("a", "b", "c"), 0);
    EXPECT_TRUE(place::exists(directory + "log/upgrade"));
    EXPECT_EQ(upgrade_UnlinkLog(), 0);
    EXPECT_FALSE(place::exists(directory + "log/upgrade"));
}

TEST_F(UpgradeLog, KeepsLinesOfSeveralProcessesWhole) {
    constexpr int PROCESSES = 4;
    constexpr int LINES = 25;
    for (int process = 0; process < PROCESSES; ++process) {
        if (fork() == 0) {
            for (int i = 0; i < LINES; ++i) {
                upgrade_WriteLog(std::string(300, 'x').c_str(), "b", "c");
            }
            _exit(0);
        }
    }
    while (wait(nullptr) > 0) {
    }
    std::istringstream lines(place::read_file(FILE_NAME));
    int whole = 0;
    for (std::string line; std::getline(lines, line);) {
        whole += line.starts_with("[") && line.ends_with("[" + std::string(300, 'x') + "][b][c]") ? 1 : 0;
    }
    EXPECT_EQ(whole, PROCESSES * LINES);
}

TEST_F(UpgradeLog, IsRemovedAndMayBeAway) {
    EXPECT_GE(upgrade_WriteLog("a", "b", "c"), 0);
    EXPECT_EQ(upgrade_UnlinkLog(), 0);
    EXPECT_FALSE(place::exists(FILE_NAME));
    EXPECT_EQ(upgrade_UnlinkLog(), 0);
}

TEST_F(UpgradeLog, FollowsTheConfigurationPath) {
    EXPECT_EQ(velkor_host_set_config_path("/tmp"), 0);
    EXPECT_STREQ(Cfg_gConfigPath(), "/tmp/");
    EXPECT_EQ(velkor_host_set_config_path(""), -1);
    EXPECT_EQ(velkor_host_set_config_path(nullptr), -1);
    EXPECT_EQ(velkor_host_set_config_path(std::string(300, 'd').c_str()), -1);
    EXPECT_EQ(upgrade_WriteLog("a", "b", "c"), -1);
    EXPECT_EQ(mkdir("/tmp/log", 0755), 0);
    EXPECT_GE(upgrade_WriteLog("a", "b", "c"), 0);
    EXPECT_TRUE(place::exists("/tmp/log/upgrade.log"));
}

}  // namespace

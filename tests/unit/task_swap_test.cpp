#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/firmware.h>
#include <velkor/process.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/alarms.h"
#include "support/command_runner.h"
#include "support/fork_meanwhile.h"
#include "support/log_capture.h"
#include "support/place.h"

// The firmware as these tests want it. What libvelkor-host brings is in host_disks_test.cpp.
namespace {

int disk_count = 1;
std::map<int, int> disk_states;
std::map<int, std::string> disk_paths;
int path_result = 1001;
int swap_size = 64;
int high_level = 1000;
std::vector<std::string> channel_orders;

}  // namespace

// Files are open for a moment only: their descriptors are looked at right behind their birth.
namespace {

int flags_at_birth = -1;
int flags_of_stream = -1;

}  // namespace

extern "C" int mkostemp(char *path, int flags) {
    static const auto real = reinterpret_cast<int (*)(char *, int)>(dlsym(RTLD_NEXT, "mkostemp64"));
    const int descriptor = real(path, flags);
    flags_at_birth = fcntl(descriptor, F_GETFD);
    return descriptor;
}

extern "C" FILE *fdopen(int descriptor, const char *mode) noexcept {
    static const auto real = reinterpret_cast<FILE *(*)(int, const char *)>(dlsym(RTLD_NEXT, "fdopen"));
    flags_of_stream = fcntl(descriptor, F_GETFD);
    return real(descriptor, mode);
}

int disk_GetDiskNum(int kind) { return kind == 1 ? disk_count : -100; }
int disk_GetState(int disk) { return disk_states[disk]; }
int disk_GetSataMntPath(int disk, int kind, char *path) {
    snprintf(path, 64, "%s", disk_paths[disk].c_str());
    return kind == 1 ? path_result : -100;
}
int cfg_gSwapMaxsize() { return swap_size; }
int cfg_gSwapHighLv() { return high_level; }
int vk_cmd_UpgradeSetChnStat(int flag) {
    channel_orders.push_back(std::to_string(flag) + (place::exists("/tmp/stopped") ? " after" : " before"));
    return 0;
}

namespace {

using command_runner::Runner;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

// ---- Tasks ----

// A program of this name that runs.
class Task {
public:
    explicit Task(const std::string &name) {
        const std::string path = "/tmp/" + name;
        place::output_of("cp $(command -v sleep) " + path);
        process_ = fork();
        if (process_ == 0) {
            execl(path.c_str(), name.c_str(), "1000", static_cast<char *>(nullptr));
            _exit(127);
        }
        EXPECT_TRUE(place::eventually([&] {
            return place::read_file("/proc/" + std::to_string(process_) + "/comm") == name.substr(0, 15) + "\n";
        }));
    }
    ~Task() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Task(const Task &) = delete;
    Task &operator=(const Task &) = delete;

    pid_t process() const { return process_; }

private:
    pid_t process_;
};

// A recorder's `ps` lists every process with its arguments, and these tests want lines of their own.
class FakePs {
public:
    explicit FakePs(const std::string &lines) {
        place::write_file("/tmp/lines", lines);
        place::write_file("/tmp/ps", "#!/bin/sh\ncat /tmp/lines\n");
        chmod("/tmp/ps", 0755);
        setenv("PATH", (std::string("/tmp:") + getenv("PATH")).c_str(), 1);
    }
};

struct Found {
    int count = -5;
    std::vector<int> ids = std::vector<int>(16, -7);
    int result;  // last, since it comes of filling the others

    explicit Found(const char *name) : result(vk_FindRunningTask(name, &count, ids.data())) {}
};

std::string debug_report(const char *name, int *count) {
    char *text = nullptr;
    size_t size = 0;
    fpDebugFile = open_memstream(&text, &size);
    int ids[16];
    vk_FindRunningTask(name, count, ids);
    fclose(fpDebugFile);
    fpDebugFile = nullptr;
    std::string report(text, size);
    free(text);
    return report;
}

TEST(FindRunningTask, FindsAProcessByItsName) {
    const Task task("recorder_x");
    const Runner runner;
    const Found found("recorder_x");
    EXPECT_EQ(found.result, 0);
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.ids[0], task.process());
    EXPECT_EQ(found.ids[1], -7) << "no more than were found are written";
}

TEST(FindRunningTask, FindsNothing) {
    const Runner runner;
    const Found found("recorder_x");
    EXPECT_EQ(found.result, 0);
    EXPECT_EQ(found.count, 0);
    EXPECT_EQ(found.ids[0], -7);
}

TEST(FindRunningTask, FindsPartsOfLines) {
    const FakePs ps("  101 root  /dvr/nvr --task\n  102 root  other\n  103 root  nvrd\n");
    const Runner runner;
    const Found found("nvr");
    EXPECT_EQ(found.count, 2);
    EXPECT_THAT(std::vector(found.ids.begin(), found.ids.begin() + 2), ElementsAre(101, 103));
}

TEST(FindRunningTask, LeavesShellsAndGrepOut) {
    const FakePs ps("101 nvr\n102 sh -c nvr\n103 grep nvr\n104 nvr-push\n105 dropbear\n");
    const Runner runner;
    EXPECT_EQ(Found("nvr").count, 1) << "\"push\" contains \"sh\"";
    EXPECT_EQ(Found("sshd").count, 0);
}

TEST(FindRunningTask, FindsSshdAllTheSame) {
    const FakePs ps("101 sshd\n102 grep sshd\n103 sh -c sshd\n");
    const Runner runner;
    const Found found("sshd");
    EXPECT_EQ(found.count, 2);
    EXPECT_EQ(found.ids[0], 101);
    EXPECT_EQ(found.ids[1], 103);
}

TEST(FindRunningTask, StopsAtSixteen) {
    std::string lines;
    for (int i = 1; i <= 20; ++i) {
        lines += std::to_string(i) + " nvr\n";
    }
    const FakePs ps(lines);
    const Runner runner;
    const Found found("nvr");
    EXPECT_EQ(found.count, 16);
    EXPECT_EQ(found.ids[15], 16);
}

TEST(FindRunningTask, GivesZeroForALineWithoutANumber) {
    const FakePs ps("nvr 5\n7 nvr\n");
    const Runner runner;
    const Found found("nvr");
    EXPECT_EQ(found.count, 2);
    EXPECT_EQ(found.ids[0], 0);
    EXPECT_EQ(found.ids[1], 7);
}

TEST(FindRunningTask, CountsALongLineInPieces) {
    const FakePs ps("5 nvr " + std::string(121, ' ') + "99999999999 end\n6 nvr\n");
    const Runner runner;
    const Found found("nvr");
    EXPECT_EQ(found.count, 3);
    EXPECT_EQ(found.ids[0], 5);
    EXPECT_EQ(found.ids[1], 2147483647) << "as `long` on the recorder";
    EXPECT_EQ(found.ids[2], 6);
}

TEST(FindRunningTask, SearchesANameOf31Characters) {
    const std::string name(31, 'n');
    const FakePs ps("5 " + name + "\n");
    const Runner runner;
    EXPECT_EQ(Found(name.c_str()).count, 1);
}

TEST(FindRunningTask, RefusesANameOf32Characters) {
    const LogCapture log;
    const Found found(std::string(32, 'n').c_str());
    EXPECT_EQ(found.result, -10);
    EXPECT_EQ(found.count, -5);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre(MatchesRegex("\\[vk_FindRunningTask:[0-9]+\\]-please input a task name less than 31! ")));
}

TEST(FindRunningTask, RefusesAnEmptyName) {
    const LogCapture log;
    EXPECT_EQ(Found("").result, -11);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre(MatchesRegex("\\[vk_FindRunningTask:[0-9]+\\]-please input a task name! ")));
}

TEST(FindRunningTask, ReportsNullArgumentsInTheirOrder) {
    int count = 0;
    int ids[16];
    EXPECT_EQ(vk_FindRunningTask(nullptr, nullptr, ids), -1);
    EXPECT_EQ(vk_FindRunningTask("", nullptr, ids), -2);
    EXPECT_THAT(debug_report(nullptr, &count),
                MatchesRegex("(.|\n)*\nsrc/common_fun: [0-9]+: vk_FindRunningTask: Assertion 'NULL != _strTaskName' "
                             "failed.\r\n"));
    EXPECT_THAT(debug_report("x", nullptr),
                MatchesRegex("(.|\n)*\nsrc/common_fun: [0-9]+: vk_FindRunningTask: Assertion 'NULL != _piTaskCnt' "
                             "failed.\r\n"));
}

TEST(FindRunningTask, LeavesANullListAlone) {
    const FakePs ps("5 nvr\n");
    const Runner runner;
    int count = 0;
    EXPECT_EQ(vk_FindRunningTask("nvr", &count, nullptr), 0);
    EXPECT_EQ(count, 1);
}

TEST(FindRunningTask, FindsNothingWithoutARunner) {
    const Found found("init");
    EXPECT_EQ(found.result, 0);
    EXPECT_EQ(found.count, 0);
    EXPECT_EQ(place::output_of("ls -A /tmpfile"), "") << "the temporary file is removed";
}

TEST(FindRunningTask, FailsWithoutItsDirectory) {
    ASSERT_EQ(rmdir("/tmpfile"), 0);
    EXPECT_EQ(Found("init").result, -12);
}

// The name is a part of the command as it is.
TEST(FindRunningTask, FailsWhenTheResultIsGone) {
    const LogCapture log("filter=-fail to open\n");
    const Runner runner;
    const Found found("a;rm /tmpfile/findTask*;#");
    EXPECT_EQ(found.result, -13);
    EXPECT_EQ(found.count, -5);
    EXPECT_THAT(LogCapture::take_messages(), ElementsAre(MatchesRegex("\\[vk_FindRunningTask:[0-9]+\\]-fail to open")));
}

TEST(FindRunningTask, MakesAFileThatClosesOnExec) {
    EXPECT_EQ(Found("init").result, 0);
    EXPECT_EQ(flags_at_birth, FD_CLOEXEC);
}

TEST(FindRunningTask, ReadsAFileThatClosesOnExec) {
    EXPECT_EQ(Found("init").result, 0);
    EXPECT_EQ(flags_of_stream, FD_CLOEXEC);
}

// The search leaves a pipe in the place of its result.
TEST(FindRunningTask, DoesNotWaitForAPipeThatNobodyWrites) {
    const Runner runner;
    ASSERT_EQ(mkfifo("/tmpfile/p", 0600), 0);
    const Found found("x;cd /tmpfile;mv p f*;exit&&:");
    EXPECT_EQ(found.result, 0);
    EXPECT_EQ(found.count, 0);
}

TEST(FindRunningTask, LogsItsCommand) {
    const LogCapture log("filter=do vksystem\n");
    const Runner runner;
    EXPECT_EQ(Found("nvr").result, 0);
    EXPECT_EQ(Found("sshd").result, 0);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre(MatchesRegex("do vksystem\\(\"ps \\| grep  nvr \\| grep -v sh \\| grep -v grep   >  "
                                         "/tmpfile/findTask......\"\\) "),
                            MatchesRegex("do vksystem\\(\"ps \\| grep  sshd \\| grep -v grep   >  "
                                         "/tmpfile/findTask......\"\\) ")));
}

// ---- Swap ----

// /dvr/swap_ctrl.sh writes down how it was called, and exits as it is told.
class Script {
public:
    explicit Script(const std::string &end = "exit 0") {
        place::write_file("/dvr/swap_ctrl.sh", "#!/bin/sh\necho \"$@\" >>/tmp/calls\n" + end + "\n");
        chmod("/dvr/swap_ctrl.sh", 0755);
        place::write_file("/tmp/calls", "");
    }

    static std::string calls() { return place::read_file("/tmp/calls"); }
};

class OneDisk {
public:
    OneDisk() {
        disk_states[4] = 3;
        disk_paths[4] = "/mnt/disk4";
    }
};

const std::string TITLES = "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n";

std::string swap_line(const std::string &used) {
    return "/mnt/disk4/swapfile.dat                 file\t\t65532\t\t" + used + "\t\t-2\n";
}

TEST(SwapStart, RunsTheScriptWithPathAndSize) {
    const OneDisk disk;
    const Script script;
    const Runner runner;
    EXPECT_EQ(swapmem_Start(4), 0);
    EXPECT_EQ(Script::calls(), "start /mnt/disk4 64\n");
}

TEST(SwapStart, TakesTheFirstFitDisk) {
    disk_states = {{0, 2}, {1, 0}, {7, 4}, {8, 3}};
    disk_paths = {{0, "/a"}, {7, "/mnt/seven"}, {8, "/b"}};
    const Script script;
    const Runner runner;
    EXPECT_EQ(swapmem_Start(-5), 0);
    EXPECT_EQ(Script::calls(), "start /mnt/seven 64\n");
    EXPECT_EQ(swapmem_Stop(8), -2);
    EXPECT_EQ(swapmem_Stop(7), 0) << "the disk that was chosen is the one that counts";
}

TEST(SwapStart, TakesTheLastDisk) {
    disk_states = {{23, 3}, {24, 3}};
    disk_paths = {{23, "/mnt/last"}};
    const Script script;
    const Runner runner;
    EXPECT_EQ(swapmem_Start(-1), 0);
    EXPECT_EQ(Script::calls(), "start /mnt/last 64\n");
}

TEST(SwapStart, AskedForADiskDoesNotLookAtItsState) {
    disk_paths[2] = "/mnt/two";
    const Script script;
    const Runner runner;
    EXPECT_EQ(swapmem_Start(2), 0);
}

TEST(SwapStart, FailsWithoutADisk) {
    const LogCapture log;
    const Script script;
    disk_count = 0;
    disk_states[4] = 3;
    EXPECT_EQ(swapmem_Start(-1), -3) << "no disk of the kind";
    EXPECT_THAT(LogCapture::take_messages(), ElementsAre(MatchesRegex("_swapmem_GetPath [0-9]+ no valid disk"),
                                                         MatchesRegex("_swapmem_GetPath [0-9]+ _iDiskNo=-1 iRet = -1"),
                                                         MatchesRegex("swapmem_Start [0-9]+ get mntpath error"),
                                                         MatchesRegex("swapmem_Start [0-9]+ _iDiskNo=-1 iRet = -3")));
    disk_count = 1;
    disk_states[4] = 2;
    EXPECT_EQ(swapmem_Start(-1), -3) << "none is fit";
    EXPECT_EQ(swapmem_Start(24), -3);
    EXPECT_EQ(swapmem_Start(1000000), -3);
    EXPECT_EQ(Script::calls(), "");
}

TEST(SwapStart, FailsWithoutAMountPath) {
    const LogCapture log;
    const Script script;
    disk_paths[4] = "";
    EXPECT_EQ(swapmem_Start(4), -3) << "an empty path";
    EXPECT_THAT(LogCapture::take_messages(), ElementsAre(MatchesRegex("_swapmem_GetPath [0-9]+ get mntpath error"),
                                                         MatchesRegex("_swapmem_GetPath [0-9]+ _iDiskNo=4 iRet = -1"),
                                                         MatchesRegex("swapmem_Start [0-9]+ get mntpath error"),
                                                         MatchesRegex("swapmem_Start [0-9]+ _iDiskNo=4 iRet = -3")));
    disk_paths[4] = "/mnt/disk4";
    path_result = 0;
    EXPECT_EQ(swapmem_Start(4), -3) << "not the answer that means success";
    EXPECT_EQ(Script::calls(), "");
}

TEST(SwapStart, FailsWithTheScript) {
    const OneDisk disk;
    for (const char *const end : {"exit 1", "kill -KILL $$"}) {
        const Script script(end);
        const Runner runner;
        EXPECT_EQ(swapmem_Start(4), -4);
        EXPECT_EQ(swapmem_Stop(4), -2) << "no swap is running";
    }
    EXPECT_EQ(swapmem_Start(4), -4) << "no runner";
}

TEST(SwapStart, LogsWhatItDoes) {
    const LogCapture log;
    const OneDisk disk;
    const Script script("exit 1");
    const Runner runner;
    swapmem_Start(-1);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre(MatchesRegex("_swapmem_GetPath [0-9]+ _iDiskNo=-1 iRet = 0"),
                            "do vksystem(\"/dvr/swap_ctrl.sh start /mnt/disk4 64\") ", "ret value is = 256",
                            MatchesRegex("swapmem_Start [0-9]+ /dvr/swap_ctrl.sh start /mnt/disk4 64 run failed"),
                            MatchesRegex("swapmem_Start [0-9]+ _iDiskNo=-1 iRet = -4")));
}

TEST(SwapStart, RunsNothingWhenSwapIsRunning) {
    const LogCapture log;
    const OneDisk disk;
    const Script script;
    const Runner runner;
    EXPECT_EQ(swapmem_Start(4), 0);
    LogCapture::take_messages();
    EXPECT_EQ(swapmem_Start(4), -2);
    EXPECT_EQ(swapmem_Start(-1), -2);
    EXPECT_EQ(Script::calls(), "start /mnt/disk4 64\n");
    EXPECT_THAT(LogCapture::take_messages(), ElementsAre(MatchesRegex("swapmem_Start [0-9]+ swap is running"),
                                                         MatchesRegex("swapmem_Start [0-9]+ swap is running")));
}

TEST(SwapStart, RunsTheScriptOnceForTwoThreads) {
    const OneDisk disk;
    const Script script("sleep 0.2");
    const Runner runner;
    std::array<int, 2> results = {};
    std::array<std::thread, 2> threads;
    for (size_t i = 0; i < threads.size(); ++i) {
        threads[i] = std::thread([&, i] { results[i] = swapmem_Start(4); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_THAT(results, testing::UnorderedElementsAre(0, -2));
    EXPECT_EQ(Script::calls(), "start /mnt/disk4 64\n");
}

TEST(SwapStart, HoldsNoChildUpThatIsForkedMeanwhile) {
    const OneDisk disk;
    const Script script("touch /tmp/begun; read line </tmp/gate");
    ASSERT_EQ(mkfifo("/tmp/gate", 0600), 0);
    const int gate = open("/tmp/gate", O_RDWR | O_CLOEXEC);
    const Runner runner;
    std::thread starter([] { EXPECT_EQ(swapmem_Start(4), 0); });
    ASSERT_TRUE(place::eventually([] { return place::exists("/tmp/begun"); }));
    const auto is_refused = [] { return swapmem_Stop(5) == -2; };
    EXPECT_TRUE(fork_meanwhile::child_is_well(is_refused, [&] { EXPECT_EQ(write(gate, "\n", 1), 1); }));
    starter.join();
    close(gate);
}

TEST(SwapStart, CutsItsCommandAt63Characters) {
    const Script script;
    const Runner runner;
    disk_paths[4] = "/mnt/" + std::string(40, 'd');
    EXPECT_EQ(swapmem_Start(4), 0);
    const std::string whole = "/dvr/swap_ctrl.sh start " + disk_paths[4] + " 64";
    EXPECT_EQ("/dvr/swap_ctrl.sh " + Script::calls(), whole.substr(0, 63) + "\n");
}

TEST(SwapCheck, ReportsTheFirstSwapArea) {
    const place::BoundContent swaps("/proc/swaps", TITLES + swap_line("1024"));
    int active = -1;
    int size = -1;
    int used = -1;
    EXPECT_EQ(swapmem_Check(&active, &size, &used), 0);
    EXPECT_EQ(active, 1);
    EXPECT_EQ(size, 65532);
    EXPECT_EQ(used, 1024);
    EXPECT_EQ(swapmem_Check(nullptr, nullptr, nullptr), 0);
}

TEST(SwapCheck, ReportsNoneWithTheTitlesAlone) {
    const LogCapture log;
    const place::BoundContent swaps("/proc/swaps", TITLES);
    int active = -1;
    int size = -1;
    int used = -1;
    EXPECT_EQ(swapmem_Check(&active, &size, &used), 0);
    EXPECT_EQ(active, 0);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(used, 0);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre(MatchesRegex("swapmem_Check [0-9]+ iRet=0 iStat=0 iSize=0 iUsed=0")));
}

TEST(SwapCheck, ReportsNoneOfAnEmptyFile) {
    const place::BoundContent swaps("/proc/swaps", "");
    int active = -1;
    EXPECT_EQ(swapmem_Check(&active, nullptr, nullptr), 0);
    EXPECT_EQ(active, 0);
}

TEST(SwapCheck, LooksAtTheFirstAreaOnly) {
    const place::BoundContent swaps("/proc/swaps",
                                    TITLES + "/dev/sda2   partition\t1000\t\t5\t\t-2\n" + swap_line("7"));
    int active = -1;
    int size = -1;
    EXPECT_EQ(swapmem_Check(&active, &size, nullptr), 0);
    EXPECT_EQ(active, 0);
    EXPECT_EQ(size, 0);
}

TEST(SwapCheck, FailsWithALineThatCannotBeTakenApart) {
    const LogCapture log;
    const place::BoundContent swaps("/proc/swaps", TITLES + "/mnt/swapfile.dat file 65532 many\n");
    int active = -1;
    int size = -1;
    int used = -1;
    EXPECT_EQ(swapmem_Check(&active, &size, &used), -2);
    EXPECT_EQ(active, -1);
    EXPECT_EQ(size, -1);
    EXPECT_EQ(used, -1);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre(MatchesRegex("swapmem_Check [0-9]+ sscanf\\(/mnt/swapfile.dat file 65532 many \\) return "
                                         "error: 3")));
}

TEST(SwapCheck, FitsALongestLine) {
    const place::BoundContent swaps("/proc/swaps", TITLES + std::string(600, 'x') + swap_line("7"));
    int active = -1;
    EXPECT_EQ(swapmem_Check(&active, nullptr, nullptr), 0) << "the name is beyond the first 511 characters";
    EXPECT_EQ(active, 0);
    place::write_file(swaps.file(), TITLES + "/swapfile.dat" + std::string(600, 'x') + "\n");
    EXPECT_EQ(swapmem_Check(&active, nullptr, nullptr), -2);
}

TEST(SwapCheck, ReadsAFileThatClosesOnExec) {
    EXPECT_EQ(swapmem_Check(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(flags_of_stream, FD_CLOEXEC);
}

TEST(SwapCheck, DoesNotWaitForAPipeThatNobodyWrites) {
    ASSERT_EQ(mkfifo("/tmp/swaps", 0600), 0);
    const place::BoundPath swaps("/proc/swaps", "/tmp/swaps");
    int active = -1;
    EXPECT_EQ(swapmem_Check(&active, nullptr, nullptr), 0);
    EXPECT_EQ(active, 0);
}

TEST(SwapCheck, FailsWithoutTheFile) {
    const LogCapture log;
    ASSERT_EQ(mkdir("/tmp/empty", 0755), 0);
    const place::BoundPath empty("/proc", "/tmp/empty");
    int active = -1;
    int size = -1;
    int used = -1;
    EXPECT_EQ(swapmem_Check(&active, &size, &used), -1);
    EXPECT_EQ(active, 0);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(used, 0);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre(MatchesRegex("swapmem_Check [0-9]+ fopen wrong"),
                            MatchesRegex("swapmem_Check [0-9]+ iRet=-1 iStat=0 iSize=0 iUsed=0")));
}

TEST(SwapStop, RefusesWhatIsNoDisk) {
    const LogCapture log;
    EXPECT_EQ(swapmem_Stop(-1), -1) << "though no swap is disk -1 inside";
    EXPECT_EQ(swapmem_Stop(24), -1);
    EXPECT_EQ(swapmem_Stop(23), -2);
    EXPECT_THAT(
        LogCapture::take_messages(),
        ElementsAre(MatchesRegex("swapmem_Stop [0-9]+ param wrong"), MatchesRegex("swapmem_Stop [0-9]+ param wrong"),
                    MatchesRegex("swapmem_Stop [0-9]+ swap is not running on this")));
}

TEST(SwapStop, RunsTheScript) {
    const OneDisk disk;
    const place::BoundContent swaps("/proc/swaps", TITLES + swap_line("1023"));
    const Script script;
    const Runner runner;
    high_level = 1;
    EXPECT_EQ(swapmem_Start(4), 0);
    EXPECT_EQ(swapmem_Stop(3), -2);
    const LogCapture log;
    EXPECT_EQ(swapmem_Stop(4), 0);
    EXPECT_EQ(Script::calls(), "start /mnt/disk4 64\nstop\n");
    EXPECT_THAT(channel_orders, IsEmpty());
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre(MatchesRegex("swapmem_Check [0-9]+ iRet=0 iStat=1 iSize=65532 iUsed=1023"),
                            "do vksystem(\"/dvr/swap_ctrl.sh stop\") ", "ret value is = 0",
                            MatchesRegex("swapmem_Stop [0-9]+ _iDiskNo=4 iRet = 0")));
    EXPECT_EQ(swapmem_Stop(4), -2) << "it is stopped";
    EXPECT_EQ(swapmem_Start(4), 0) << "and can be started again";
}

TEST(SwapStop, KeepsTheDiskWhenTheScriptFails) {
    const LogCapture log;
    const OneDisk disk;
    const Script script("test \"$1\" = start");
    const Runner runner;
    EXPECT_EQ(swapmem_Start(4), 0);
    LogCapture::take_messages();
    EXPECT_EQ(swapmem_Stop(4), -3);
    EXPECT_THAT(LogCapture::take_messages(),
                testing::IsSupersetOf({MatchesRegex("swapmem_Stop [0-9]+ /dvr/swap_ctrl.sh stop run failed"),
                                       MatchesRegex("swapmem_Stop [0-9]+ _iDiskNo=4 iRet = -3")}));
    EXPECT_EQ(swapmem_Start(4), -2);
    EXPECT_EQ(swapmem_Stop(4), -3);
}

TEST(SwapStop, QuietensTheRecorderWhenSwapIsHeavilyUsed) {
    const LogCapture log("filter=vksystem\n");
    const OneDisk disk;
    const place::BoundContent swaps("/proc/swaps", TITLES + swap_line("1024"));
    high_level = 1;
    const Script script("test \"$1\" = start || touch /tmp/stopped");
    const Runner runner;
    EXPECT_EQ(swapmem_Start(4), 0);
    LogCapture::take_messages();
    EXPECT_EQ(swapmem_Stop(4), 0);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre("do vksystem(\"killall nimbus.bin\") ", "do vksystem(\"/dvr/swap_ctrl.sh stop\") "));
    EXPECT_THAT(channel_orders, ElementsAre("0 before", "1 after"));
}

TEST(SwapStop, IsQuietForTwoSecondsWhateverSignalsCome) {
    const OneDisk disk;
    const place::BoundContent swaps("/proc/swaps", TITLES + swap_line("1024"));
    high_level = 1;
    const Script script;
    const Runner runner;
    EXPECT_EQ(swapmem_Start(4), 0);
    const Alarms alarms(20000);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(swapmem_Stop(4), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
}

TEST(SwapStop, LetsTheRecorderGoOnAlsoWhenTheScriptFails) {
    const OneDisk disk;
    const place::BoundContent swaps("/proc/swaps", TITLES + swap_line("1024"));
    high_level = 1;
    const Script script("test \"$1\" = start");
    const Runner runner;
    EXPECT_EQ(swapmem_Start(4), 0);
    EXPECT_EQ(swapmem_Stop(4), -3);
    EXPECT_THAT(channel_orders, ElementsAre("0 before", "1 before"));
}

TEST(SwapStop, ComparesALevelThatNeedsMoreThan32Bits) {
    const OneDisk disk;
    const place::BoundContent swaps("/proc/swaps", TITLES + swap_line("1024"));
    high_level = 4194304;  // times 1024 it is 2 to the 32nd
    const Script script;
    const Runner runner;
    EXPECT_EQ(swapmem_Start(4), 0);
    EXPECT_EQ(swapmem_Stop(4), 0);
    EXPECT_THAT(channel_orders, IsEmpty());
}

TEST(SwapStop, DoesNotQuietenWhenTheUseIsUnknown) {
    const OneDisk disk;
    const place::BoundContent swaps("/proc/swaps", TITLES + "swapfile.dat file\n");
    high_level = 0;
    const Script script;
    const Runner runner;
    EXPECT_EQ(swapmem_Start(4), 0);
    EXPECT_EQ(swapmem_Stop(4), 0);
    EXPECT_THAT(channel_orders, IsEmpty());
}

}  // namespace

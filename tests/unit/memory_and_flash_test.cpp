#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/system_info.h>

#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/place.h"

namespace {

// A file system that keeps blocks for the system, which none in memory does.
const struct statfs *played_root = nullptr;
bool fails = false;

}  // namespace

extern "C" int statfs(const char *path, struct statfs *out) noexcept {
    if (fails) {
        errno = EIO;
        return -1;
    }
    if (played_root != nullptr) {
        *out = *played_root;
        return 0;
    }
    const int file = open(path, O_PATH | O_CLOEXEC);
    const int result = fstatfs(file, out);
    close(file);
    return result;
}

namespace {

using place::BoundContent;

using Words = std::vector<uint32_t>;

Words memory_words(double &percent) {
    uint32_t words[VELKOR_MEMORY_WORDS + 1] = {9, 9, 9, 9, 9, 9, 77};
    percent = GetMemInfoV2(words);
    EXPECT_EQ(words[VELKOR_MEMORY_WORDS], 77U);
    return {words, words + VELKOR_MEMORY_WORDS};
}

TEST(MemoryInfo, ReadsFiveLinesAndLeavesOutTheThird) {
    const BoundContent file("/proc/meminfo",
                            "MemTotal:        1000 kB\nMemFree:   250 kB\nMemAvailable: 3 kB\nBuffers: 4 kB\n"
                            "Cached: 5 kB\nSwapCached: 6 kB\n");
    double percent = 0;
    EXPECT_EQ(memory_words(percent), (Words{1000, 0, 250, 0, 4, 5}));
    EXPECT_DOUBLE_EQ(percent, 75.0);
    EXPECT_DOUBLE_EQ(GetMemInfoV2(nullptr), 75.0);
    uint32_t total = 0;
    uint32_t free_kib = 0;
    EXPECT_DOUBLE_EQ(GetMemInfo(&total, nullptr), 75.0);
    EXPECT_DOUBLE_EQ(GetMemInfo(nullptr, &free_kib), 75.0);
    EXPECT_DOUBLE_EQ(GetMemInfo(nullptr, nullptr), 75.0);
    EXPECT_EQ(total, 1000U);
    EXPECT_EQ(free_kib, 250U);
}

TEST(MemoryInfo, SurvivesLinesOfOtherShapes) {
    const struct {
        std::string content;
        Words words;
        double percent;
    } files[] = {
        {"", {0, 0, 0, 0, 0, 0}, NAN},
        {"MemTotal: 0 kB\nMemFree: 0 kB\n", {0, 0, 0, 0, 0, 0}, NAN},
        {"MemTotal: 0 kB\nMemFree: 1 kB\n", {0, 0, 1, 0, 0, 0}, INFINITY},
        {"MemTotal: 100 kB\n", {100, 0, 0, 0, 0, 0}, 100.0},
        {std::string(5000, 'M') + ": 100 " + std::string(5000, 'k') + "\nMemFree: 60 kB\n",
         {100, 0, 60, 0, 0, 0},
         40.0},
        {"MemTotal: 4294967396 kB\nMemFree: 50 kB\n", {100, 0, 50, 0, 0, 0}, 50.0},
        {"MemTotal: 1 kB\nMemFree: 2 kB\n", {1, 0, 2, 0, 0, 0}, 4294967295.0 * 100.0},
    };
    for (const auto &file : files) {
        const BoundContent bound("/proc/meminfo", file.content);
        double percent = 0;
        EXPECT_EQ(memory_words(percent), file.words) << file.content.substr(0, 50);
        EXPECT_THAT(percent, testing::NanSensitiveDoubleEq(file.percent)) << file.content.substr(0, 50);
        EXPECT_THAT(GetMemInfo(nullptr, nullptr), testing::NanSensitiveDoubleEq(file.percent));
    }
}

TEST(MemoryInfo, IsUnavailableWithoutItsFile) {
    const place::BoundPath no_proc("/proc", "/tmpfile");
    double percent = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(memory_words(percent), (Words{9, 9, 9, 9, 9, 9}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "fopen: No such file or directory\n");
    EXPECT_DOUBLE_EQ(percent, -1.0);
    uint32_t total = 9;
    uint32_t free_kib = 9;
    testing::internal::CaptureStderr();
    EXPECT_DOUBLE_EQ(GetMemInfo(&total, &free_kib), -1.0);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(total, 0U);
    EXPECT_EQ(free_kib, 0U);
}

TEST(MemoryInfo, WorksOnTheRealKernel) {
    uint32_t total = 0;
    const double percent = GetMemInfo(&total, nullptr);
    EXPECT_GT(total, 0U);
    EXPECT_GT(percent, 0.0);
    EXPECT_LE(percent, 100.0);
}

TEST(FlashInfo, CountsWhatIsReservedForTheSystemAsUsed) {
    struct statfs root = {};
    root.f_bsize = 4096;
    root.f_blocks = 1000;
    root.f_bfree = 600;
    root.f_bavail = 550;
    played_root = &root;
    EXPECT_DOUBLE_EQ(GetFlashInfo(), 45.0);
    played_root = nullptr;
}

TEST(FlashInfo, IsWhatAnOrdinaryUserCannotWriteToOfTheRoot) {
    struct statfs root;
    ASSERT_EQ(statfs("/", &root), 0);
    const auto total = static_cast<double>(root.f_blocks);
    EXPECT_DOUBLE_EQ(GetFlashInfo(), (total - static_cast<double>(root.f_bavail)) / total * 100.0);
}

TEST(FlashInfo, DividesNothingByNothingForAFileSystemWithoutBlocks) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(chroot("/proc") == 0 && isnan(GetFlashInfo()) != 0 ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(FlashInfo, IsUnavailableWithoutABlockSizeOrAnAnswer) {
    struct statfs root = {};
    root.f_blocks = 1000;
    root.f_bavail = 550;
    played_root = &root;
    EXPECT_DOUBLE_EQ(GetFlashInfo(), -1.0);
    root.f_bsize = 4096;
    EXPECT_DOUBLE_EQ(GetFlashInfo(), 45.0);
    root.f_blocks = 0;
    EXPECT_DOUBLE_EQ(GetFlashInfo(), -INFINITY);
    fails = true;
    EXPECT_DOUBLE_EQ(GetFlashInfo(), -1.0);
    played_root = nullptr;
}

TEST(SystemInfo, FillsAllThree) {
    double cpu = -2;
    double memory = -2;
    double flash = -2;
    GetSystemInfo(&cpu, &memory, &flash);
    EXPECT_DOUBLE_EQ(cpu, GetCpuInfo());
    EXPECT_GT(memory, 0.0);
    EXPECT_DOUBLE_EQ(flash, GetFlashInfo());
    GetSystemInfo(nullptr, nullptr, nullptr);
    g_dCpuUsage = 12.5;
    GetSystemInfo(&cpu, nullptr, nullptr);
    EXPECT_DOUBLE_EQ(cpu, 12.5);
}

TEST(SkipWhitespace, PassesBlanksAndControls9To13) {
    EXPECT_STREQ(skip_whitespace(" \t\n\v\f\r x "), "x ");
    EXPECT_STREQ(skip_whitespace(""), "");
    EXPECT_STREQ(skip_whitespace("   "), "");
    EXPECT_STREQ(skip_whitespace("\x08 x"), "\x08 x");
    EXPECT_STREQ(skip_whitespace("\x0ex"), "\x0ex");
    EXPECT_STREQ(skip_whitespace("\xa0x"), "\xa0x");
    EXPECT_EQ(skip_whitespace(nullptr), nullptr);
}

// ---- A process ----

std::string own_status() { return "/proc/" + std::to_string(getpid()) + "/status"; }

TEST(ProcessRss, IsAddedToTheEighthWordAlone) {
    const BoundContent status(own_status(), "Name:\tx\nVmHWM:\t 9 kB\nVmRSS:\t     123 kB\nThreads:\t1\n");
    uint32_t record[9] = {1, 2, 3, 4, 5, 6, 7, 1000, 9};
    EXPECT_EQ(GetProcRss(getpid(), record), 0);
    EXPECT_EQ(GetProcRss(getpid(), record), 0);
    EXPECT_EQ(Words(record, record + 9), (Words{1, 2, 3, 4, 5, 6, 7, 1246, 9}));
    char odd[40] = {};
    EXPECT_EQ(GetProcRss(getpid(), odd + 1), 0);  // a record at an odd address
    EXPECT_EQ(odd[29], 123);
}

TEST(ProcessRss, TakesEveryLineWithTheTagAndNoneWithout) {
    uint32_t record[8] = {};
    {
        const BoundContent status(own_status(), "Name:\tVmRSS: 5\nVmRSS: \t 7 kB\nVmRSS:\nVmRSS: x\n");
        EXPECT_EQ(GetProcRss(getpid(), record), 0);
        EXPECT_EQ(record[7], 12U);
    }
    const BoundContent status(own_status(), "Name:\tkthreadd\n" + std::string(3000, 'x'));
    EXPECT_EQ(GetProcRss(getpid(), record), 0);
    EXPECT_EQ(record[7], 12U);
}

TEST(ProcessRss, ReadsANumberAs32BitsDoOnEveryPlatform) {
    const BoundContent status(own_status(), "VmRSS: 99999999999 kB\n");
    uint32_t record[8] = {};
    EXPECT_EQ(GetProcRss(getpid(), record), 0);
    EXPECT_EQ(record[7], 2147483647U);
}

TEST(ProcessRss, FailsWithoutARecordOrAProcess) {
    const LogCapture log;
    EXPECT_EQ(GetProcRss(getpid(), nullptr), -1);
    EXPECT_TRUE(log.take_messages().empty());
    uint32_t record[8] = {};
    EXPECT_EQ(GetProcRss(-1, record), -1);
    const std::vector<std::string> messages = log.take_messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_TRUE(messages[0].starts_with("[GetProcRss:")) << messages[0];
    EXPECT_TRUE(messages[0].ends_with("]-fopen error. errno=2 ")) << messages[0];
}

TEST(ProcessRss, WorksOnTheRealKernel) {
    uint32_t record[8] = {};
    EXPECT_EQ(GetProcRss(getpid(), record), 0);
    EXPECT_GT(record[7], 0U);
}

}  // namespace

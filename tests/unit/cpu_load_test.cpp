#include <gtest/gtest.h>
#include <math.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/calendar.h>
#include <velkor/system_info.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/alarms.h"
#include "support/log_capture.h"
#include "support/place.h"
#include "support/wire.h"

namespace {

using place::BoundContent;

constexpr const char *STAT = "/proc/stat";

// ---- A sample of one second ----

TEST(CpuData, ReadsSevenCountersOfTheFirstLine) {
    const BoundContent stat(STAT, "cpu  1 2 3 4 5 6 7 8 9 10\ncpu0 9 9 9 9 9 9 9\n");
    uint32_t words[VELKOR_CPU_WORDS + 1] = {};
    words[VELKOR_CPU_WORDS] = 77;
    EXPECT_EQ(GetCpuData(words), 0);
    EXPECT_EQ(std::vector<uint32_t>(words, words + 8), (std::vector<uint32_t>{1, 2, 3, 4, 5, 6, 7, 77}));
}

TEST(CpuData, KeepsTheLowWordsOfCountersAbove32Bits) {
    const BoundContent stat(STAT, "cpu  4294967296 4294967297 12884901887 4 5 6 18446744073709551615\n");
    uint32_t words[VELKOR_CPU_WORDS];
    EXPECT_EQ(GetCpuData(words), 0);
    EXPECT_EQ(std::vector<uint32_t>(words, words + 7), (std::vector<uint32_t>{0, 1, 0xffffffff, 4, 5, 6, 0xffffffff}));
}

TEST(CpuData, ReadsZerosFromWhereALineHasAnotherShape) {
    const struct {
        std::string content;
        std::vector<uint32_t> words;
    } files[] = {{"cpu 1 2 x 4\n", {1, 2, 0, 0, 0, 0, 0}},
                 {"cpu 1 2 3\n", {1, 2, 3, 0, 0, 0, 0}},
                 {"intr 1 2 3 4 5 6 7\n", {0, 0, 0, 0, 0, 0, 0}},
                 {"cpu  " + std::string(400, ' ') + "1", {0, 0, 0, 0, 0, 0, 0}},  // behind the 255th byte
                 {"cpu" + std::string(250, '1') + " 2 3", {UINT32_MAX, 2, 0, 0, 0, 0, 0}}};
    for (const auto &file : files) {
        const BoundContent stat(STAT, file.content);
        uint32_t words[VELKOR_CPU_WORDS] = {9, 9, 9, 9, 9, 9, 9};
        EXPECT_EQ(GetCpuData(words), 0);
        EXPECT_EQ(std::vector<uint32_t>(words, words + 7), file.words) << file.content;
    }
}

TEST(CpuData, FailsWithoutAPlaceAFileOrFiveBytes) {
    EXPECT_EQ(GetCpuData(nullptr), -1);
    uint32_t words[VELKOR_CPU_WORDS] = {9};
    {
        const BoundContent stat(STAT, "cpu ");
        testing::internal::CaptureStderr();
        EXPECT_EQ(GetCpuData(words), -1);
        EXPECT_TRUE(testing::internal::GetCapturedStderr().starts_with("fread: "));
    }
    const place::BoundPath no_proc("/proc", "/tmpfile");
    testing::internal::CaptureStderr();
    EXPECT_EQ(GetCpuData(words), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "fopen: No such file or directory\n");
    EXPECT_EQ(words[0], 9U);
}

// The file reads as `second` from the moment on at which the first reading is over.
int measure_between(const std::string &first, const std::string &second) {
    const BoundContent stat(STAT, first);
    const int watch = inotify_init1(IN_CLOEXEC);
    EXPECT_GE(inotify_add_watch(watch, stat.file().c_str(), IN_CLOSE_NOWRITE), 0);
    std::thread kernel([&] {
        char event[512];
        EXPECT_GT(read(watch, event, sizeof event), 0);
        place::write_file(stat.file(), second);
    });
    testing::internal::CaptureStderr();
    const int result = CalCPUDataTimer();
    testing::internal::GetCapturedStderr();
    kernel.join();
    close(watch);
    return result;
}

TEST(CpuDataTimer, MeasuresBusyPercentOfASecond) {
    // Busy 30 and idle 90 pass, across the end of a word; what waits for disks is neither.
    EXPECT_EQ(measure_between("cpu  4294967290 0 0 100 0 0 0\n", "cpu  4294967300 5 15 190 1000 1000 1000\n"), 0);
    EXPECT_DOUBLE_EQ(g_dCpuUsage, 25.0);
    EXPECT_DOUBLE_EQ(GetCpuInfo(), 25.0);
}

TEST(CpuDataTimer, DividesNothingByNothingWhereCountersStandStill) {
    EXPECT_DOUBLE_EQ(GetCpuInfo(), 0.0);
    EXPECT_EQ(measure_between("cpu  1 2 3 4 5 6 7\n", "cpu  1 2 3 4 50 60 70\n"), 0);
    EXPECT_TRUE(isnan(g_dCpuUsage)) << g_dCpuUsage;
    EXPECT_TRUE(isnan(GetCpuInfo()));
}

// Counters that were not read are zeros, and what has passed since wraps.
TEST(CpuDataTimer, StoresWhatADivisionByASecondReadingThatFailedGives) {
    EXPECT_EQ(measure_between("cpu  100 20 30 400 5 6 7\n", "cpu"), -1);
    const double busy = (4294967296.0 - 100) + (4294967296.0 - 20) + (4294967296.0 - 30);
    EXPECT_DOUBLE_EQ(GetCpuInfo(), busy * 100.0 / (busy + (4294967296.0 - 400)));
}

TEST(CpuDataTimer, StoresWhatADivisionByAFirstReadingThatFailedGives) {
    EXPECT_EQ(measure_between("cpu", "cpu  100 20 30 450 5 6 7\n"), 0);
    EXPECT_DOUBLE_EQ(GetCpuInfo(), 25.0);
}

TEST(CpuDataTimer, AnswersTheSecondReading) {
    EXPECT_EQ(measure_between("cpu", "cpu"), -1);
    EXPECT_TRUE(isnan(GetCpuInfo())) << GetCpuInfo();
}

TEST(CpuDataTimer, LastsASecondInSpiteOfSignals) {
    const auto begin = std::chrono::steady_clock::now();
    {
        const Alarms alarms(20000);
        EXPECT_EQ(CalCPUDataTimer(), 0);
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_GT(Alarms::count(), 0);
}

TEST(CpuDataTimer, WorksOnTheRealKernel) {
    EXPECT_EQ(CalCPUDataTimer(), 0);
    EXPECT_GE(GetCpuInfo(), 0.0);
    EXPECT_LE(GetCpuInfo(), 100.0);
}

// ---- Two samples ----

TEST(CpuTimer, StoresTheFieldsInItsOwnOrder) {
    const BoundContent stat(STAT, "cpu  1 2 3 4 5 6 7 8 9 18446744073709551615\n");
    velkor_cpu_counters sample = {};
    EXPECT_EQ(_GetCpuStats(&sample), 0);
    EXPECT_EQ(sample.user, 1U);
    EXPECT_EQ(sample.nice, 2U);
    EXPECT_EQ(sample.system, 3U);
    EXPECT_EQ(sample.idle, 4U);
    EXPECT_EQ(sample.iowait, 5U);
    EXPECT_EQ(sample.steal, 8U);
    EXPECT_EQ(sample.irq, 6U);
    EXPECT_EQ(sample.softirq, 7U);
    EXPECT_EQ(sample.guest, 9U);
    EXPECT_EQ(sample.guest_nice, UINT64_MAX);
    EXPECT_EQ(_GetCpuStats(nullptr), 0);
}

TEST(CpuTimer, KeepsASampleWhenItCannotRead) {
    velkor_cpu_counters sample = {};
    sample.user = 7;
    const BoundContent stat(STAT, "cpu");
    testing::internal::CaptureStderr();
    EXPECT_EQ(_GetCpuStats(&sample), 0);
    EXPECT_TRUE(testing::internal::GetCapturedStderr().starts_with("fread: "));
    const place::BoundPath no_proc("/proc", "/tmpfile");
    testing::internal::CaptureStderr();
    EXPECT_EQ(_GetCpuStats(&sample), 0);
    EXPECT_TRUE(testing::internal::GetCapturedStderr().starts_with("fopen: "));
    EXPECT_EQ(sample.user, 7U);
}

TEST(CpuTimer, TakesTheSecondSampleFirstAndThenTurns) {
    const BoundContent stat(STAT, "cpu  0 0 0 300 100 0 0 0 0 0\n");
    GetCpuTimer();  // off
    EXPECT_EQ(g_stCpuInfo.samples[1].idle, 0U);
    EXPECT_EQ(SwitchCpuTimer(5), 0);
    EXPECT_EQ(GetCpuTimerSwitchState(), 5);
    EXPECT_EQ(GetCpuInfoNew(nullptr, nullptr), -1);  // both are zero
    GetCpuTimer();
    EXPECT_EQ(g_stCpuInfo.samples[0].idle, 0U);
    EXPECT_EQ(g_stCpuInfo.samples[1].idle, 300U);
    EXPECT_EQ(g_stCpuInfo.next, 1);
    double idle = 0;
    double iowait = 0;
    EXPECT_EQ(GetCpuInfoNew(&idle, &iowait), 0);  // since the start
    EXPECT_DOUBLE_EQ(idle, 75.0);
    EXPECT_DOUBLE_EQ(iowait, 25.0);
    place::write_file(stat.file(), "cpu  5 5 5 330 105 15 15 10 5 5\n");
    GetCpuTimer();
    EXPECT_EQ(g_stCpuInfo.next, 0);
    EXPECT_EQ(GetCpuInfoNew(&idle, nullptr), 0);  // the first sample is the newer one now
    EXPECT_DOUBLE_EQ(idle, 30.0);
    EXPECT_EQ(GetCpuInfoNew(nullptr, &iowait), 0);
    EXPECT_DOUBLE_EQ(iowait, 5.0);
    GetCpuTimer();
    EXPECT_EQ(GetCpuInfoNew(&idle, &iowait), -1);  // no time between the two
    EXPECT_EQ(SwitchCpuTimer(0), 0);
    EXPECT_EQ(g_stCpuInfo.samples[0].idle, 0U);
    EXPECT_EQ(g_stCpuInfo.next, 0);
    EXPECT_EQ(GetCpuTimerSwitchState(), 0);
}

// ---- Since the last time ----

// Until the clock of the uptime has gone on by a second.
void wait_for_the_next_second() {
    const int before = get_uptime();
    EXPECT_TRUE(place::eventually([=] { return set_uptime() == 0 && get_uptime() != before; }));
}

TEST(CpuIdle, CountsFromTheStartAndThenFromTheLastSample) {
    set_uptime();  // stands still from here on
    const BoundContent stat(STAT, "cpu  100 20 30 700 100 20 20 10\n");
    uint32_t idle = 999;
    EXPECT_EQ(GetCpuIdle(&idle), 0);
    EXPECT_EQ(idle, 70U);
    place::write_file(stat.file(), "cpu  150 20 30 725 115 20 20 20\n");
    idle = 999;
    EXPECT_EQ(GetCpuIdle(&idle), 0);  // in the same second
    EXPECT_EQ(idle, 999U);
    wait_for_the_next_second();
    EXPECT_EQ(GetCpuIdle(&idle), 0);
    EXPECT_EQ(idle, 25U);
    EXPECT_EQ(GetCpuIdle(nullptr), 0);
}

// The first sample's counters are their own differences.
TEST(CpuIdle, ComputesIn32Bits) {
    const struct {
        const char *content;
        uint32_t idle;
    } samples[] = {
        {"cpu  4294966606 0 0 700 0 0 0 0\n", 100},  // the total's low word is 10: 7000 per cent
        {"cpu  4294966596 0 0 700 0 0 0 0\n", 100},  // is 0: nothing is divided by that
        {"cpu  0 0 0 42949673 0 0 0 0\n", 0},        // a hundred times that is 4
        {"cpu  0 0 0 4294967301 5 0 0 0\n", 50},     // the low word of idle is 5
        {"cpu  0 0 0 0 0 0 0 0\n", 0},
    };
    for (const auto &sample : samples) {
        const BoundContent stat(STAT, sample.content);
        uint32_t idle = 999;
        const pid_t child = fork();  // a process that takes its first sample
        if (child == 0) {
            const int result = GetCpuIdle(&idle);
            _exit(result == 0 && idle == sample.idle ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << sample.content;
    }
}

TEST(CpuIdle, TakesZerosFromALineThatIsNone) {
    for (const char *const content :
         {"intr 1 2 3 4\n", "", "ctxt 5 6 7 8\n", "cpu x\n", "cpu 1 2 3\n", "cpu0 1 2 3 4\n"}) {
        const BoundContent stat(STAT, content);
        const pid_t child = fork();
        if (child == 0) {
            uint32_t idle = 999;
            const int result = GetCpuIdle(&idle);
            // "cpu0 1 2 3 4" reads as the five numbers 0 1 2 3 4: three of eleven
            const uint32_t expected = strncmp(content, "cpu0", 4) == 0 ? 30 : 0;
            _exit(result == 0 && idle == expected ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << content;
    }
}

TEST(CpuIdle, FailsOnALineThatEndsBeforeItsFirstNumber) {
    for (const char *const content : {"cpu", "cpu\n", "cp", "c"}) {
        const BoundContent stat(STAT, content);
        const pid_t child = fork();
        if (child == 0) {
            uint32_t idle = 999;
            _exit(GetCpuIdle(&idle) == -1 && idle == 999 ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << content;
    }
    const BoundContent stat(STAT, "cpu \n");
    const LogCapture log;
    uint32_t idle = 999;
    EXPECT_EQ(GetCpuIdle(&idle), -1);
    EXPECT_EQ(idle, 999U);
    const std::vector<std::string> messages = log.take_messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_TRUE(messages[0].starts_with("[GetCpuIdle:")) << messages[0];
    EXPECT_NE(messages[0].find("]-iRet=-1 errno="), std::string::npos);
}

TEST(CpuIdle, LeavesAStreamOpenForEachSample) {
    const size_t before = wire::open_descriptors();
    EXPECT_EQ(GetCpuIdle(nullptr), 0);
    EXPECT_EQ(wire::open_descriptors(), before + 1);
}

TEST(CpuIdle, LogsThatDescriptorsRanOut) {
    set_uptime();  // stands still from here on
    const LogCapture log;
    const struct rlimit none = {0, 1024};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    uint32_t idle = 999;
    EXPECT_EQ(GetCpuIdle(&idle), 0);
    const struct rlimit many = {1024, 1024};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
    EXPECT_EQ(idle, 999U);
    const std::vector<std::string> messages = log.take_messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_TRUE(messages[0].starts_with("[GetCpuIdle:")) << messages[0];
    EXPECT_TRUE(messages[0].ends_with("]-open /proc/stat error. errno=24 ")) << messages[0];
    EXPECT_EQ(GetCpuIdle(&idle), 0);  // this second had its sample
    EXPECT_EQ(idle, 999U);
    EXPECT_TRUE(log.take_messages().empty());
}

TEST(CpuIdle, WorksOnTheRealKernel) {
    uint32_t idle = 999;
    EXPECT_EQ(GetCpuIdle(&idle), 0);
    EXPECT_LE(idle, 100U);
}

}  // namespace

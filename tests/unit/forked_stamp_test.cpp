// What a forked child's lines are stamped with. A process that is busy with dates forks at any moment: other threads
// are in the C library's conversions, which the child finds locked for ever. Such a child has a time limit, and many
// are made.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <velkor/calendar.h>
#include <velkor/concurrency.h>
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/forked.h"
#include "support/held_clock.h"
#include "support/log_capture.h"
#include "support/place.h"

namespace {

// ---- Out of a busy process ----

void convert_by_the_c_library() {
    const time_t now = time(nullptr);
    struct tm date;
    localtime_r(&now, &date);
    mktime(&date);
}

void write_time() {
    char text[64];
    TimeToString("Y-M-D H:I:S", text, 1700000000);
}

void read_time() { StrToTime("20231114221320"); }

void compute_transition() { time_GetUtcByDate(2023, 11, 14, 22, 13, 20, -1, nullptr); }

void resolve_rule() {
    const velkor_persian_rule rule = {1403, 1, 0, 5, 1};
    time_t instant = 0;
    getTimeByDSTParam(&rule, &instant);
}

void report_assertion() { sq_construct(nullptr); }

void print_debug_line() { rt_printf(1, "line"); }

void write_upgrade_log() { upgrade_WriteLog("a", "b", "c"); }

bool writes_each_stamped_line() {
    return vk_printftomem(0, "test", 0, "%s", "line") == 0 && vk_printf_tocon("test", "file.c", 1, "line") == 0 &&
           rt_printf(1, "line") == 0 && sq_construct(nullptr) != 0 && upgrade_WriteLog("a", "b", "c") >= 0;
}

// Everything that is stamped has somewhere to go.
class ForkedStamp : public testing::Test {
protected:
    ForkedStamp() : buffer_(std::make_unique<RtMsgBuf>()), console_("/dev/console", "/dev/null") {
        EXPECT_EQ(chdir("/tmp"), 0);
        EXPECT_EQ(mkdir("/tmp/rt_debug", 0755), 0);
        EXPECT_EQ(mkdir("/dvrfile/log", 0755), 0);
        pthread_mutex_init(&buffer_->lock, nullptr);
        insert_global_pointer(0, buffer_.get());
        rt_JudgePrintEn();
        fpDebugFile = fopen("/dev/null", "we");
        EXPECT_TRUE(writes_each_stamped_line());
    }
    ~ForkedStamp() override {
        insert_global_pointer(0, nullptr);
        fclose(fpDebugFile);
        fpDebugFile = nullptr;
    }

private:
    std::unique_ptr<RtMsgBuf> buffer_;
    place::BoundPath console_;
    LogCapture log_;
};

TEST_F(ForkedStamp, IsWrittenOutOfABusyForkWhoeverConverts) {
    const struct {
        const char *name;
        void (*business)();
    } cases[] = {{"the program itself", convert_by_the_c_library},
                 {"TimeToString", write_time},
                 {"StrToTime", read_time},
                 {"time_GetUtcByDate", compute_transition},
                 {"getTimeByDSTParam", resolve_rule},
                 {"an assertion report", report_assertion},
                 {"upgrade_WriteLog", write_upgrade_log},
                 {"rt_printf", print_debug_line}};
    for (const auto &one : cases) {
        EXPECT_EQ(forked::first_that_fails(40, one.business, writes_each_stamped_line), -1) << one.name;
    }
}

// What the library converts itself a child can convert, too.
TEST_F(ForkedStamp, DoesNotKeepAChildOfABusyForkFromConverting) {
    for (void (*const business)() : {write_time, read_time, compute_transition, resolve_rule}) {
        EXPECT_EQ(forked::first_that_fails(60, business,
                                           [=] {
                                               business();
                                               return true;
                                           }),
                  -1);
    }
}

TEST_F(ForkedStamp, IsWrittenByAGrandchildOfABusyFork) {
    EXPECT_EQ(forked::first_that_fails(60, convert_by_the_c_library,
                                       [] { return forked::succeeds(writes_each_stamped_line); }),
              -1);
}

// ---- The zone in a child ----

constexpr const char *BERLIN = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr int QUARTER_OF_AN_HOUR = 900;
constexpr int DAYS_UNTIL_MAY = 183;

void set_zone(const char *zone) {
    setenv("TZ", zone, 1);  // NOLINT(concurrency-mt-unsafe): the other threads do not look
    tzset();
}

// The test's clock stands `seconds` after Tuesday, 14 November 2023, 22:13:20 UTC.
void set_clock(int seconds) {
    held_clock::offset = [seconds] { return seconds; };
}

void set_clock_to_may() { set_clock(DAYS_UNTIL_MAY * 86400); }

// The stamp of a line that is logged now.
std::string log_stamp() {
    LogCapture::take_lines();
    vk_printftomem(0, "test", 0, "%s", "line");
    const std::vector<std::string> lines = LogCapture::take_lines();
    return lines.empty() ? "" : lines[0].substr(0, 21);
}

std::string report_stamp() {
    char *text = nullptr;
    size_t size = 0;
    fpDebugFile = open_memstream(&text, &size);
    sq_construct(nullptr);
    fclose(fpDebugFile);
    fpDebugFile = nullptr;
    const std::string stamp(text, 25);
    free(text);
    return stamp;
}

bool stamps(const std::string &expected) {
    EXPECT_EQ(log_stamp(), expected);
    return !testing::Test::HasFailure();
}

// A process with a second thread, which does nothing.
class SecondThread {
public:
    SecondThread() : thread_([this] { ends_.wait(false); }) {}
    ~SecondThread() {
        ends_ = true;
        ends_.notify_one();
        thread_.join();
    }
    SecondThread(const SecondThread &) = delete;
    SecondThread &operator=(const SecondThread &) = delete;

private:
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

// In Berlin, in November, with the log on.
class ForkedZone : public testing::Test {
protected:
    ForkedZone() {
        set_clock(0);
        set_zone(BERLIN);
        EXPECT_EQ(log_stamp(), "[2023/11/14 23:13:20]");
    }

private:
    LogCapture log_;
};

TEST_F(ForkedZone, OfALoneThreadFollowsDaylightTime) {
    EXPECT_TRUE(forked::succeeds([] {
        set_clock_to_may();
        const bool in_child = stamps("[2024/05/16 00:13:20]");
        return in_child && forked::succeeds([] {
                   set_clock(0);
                   return stamps("[2023/11/14 23:13:20]");
               });
    }));
}

TEST_F(ForkedZone, OfOneOfManyThreadsIsAsFarAheadAsAtTheFork) {
    const SecondThread other;
    EXPECT_TRUE(forked::succeeds([] {
        set_clock(QUARTER_OF_AN_HOUR + 10);
        const bool later = stamps("[2023/11/14 23:28:30]");
        set_clock_to_may();
        return later && stamps("[2024/05/15 23:13:20]");
    }));
}

TEST_F(ForkedZone, IsPassedOnToAGrandchild) {
    const SecondThread other;
    EXPECT_TRUE(forked::succeeds([] {
        set_clock_to_may();
        return forked::succeeds([] { return stamps("[2024/05/15 23:13:20]"); });
    }));
}

TEST_F(ForkedZone, IsThatOfTheForkThoughNobodyHasLoggedSinceItChanged) {
    const SecondThread other;
    set_zone("<+0530>-5:30");
    EXPECT_TRUE(forked::succeeds([] { return stamps("[2023/11/15 03:43:20]"); }));
}

TEST_F(ForkedZone, IsTheNewOneOfAChildThatChangesIt) {
    const SecondThread other;
    EXPECT_TRUE(forked::succeeds([] {
        const bool before = stamps("[2023/11/14 23:13:20]");
        set_zone("<+0530>-5:30");
        return before && stamps("[2023/11/15 03:43:20]");
    }));
}

// Whoever comes back from the C library's conversions knows that nobody is in them for ever.
TEST_F(ForkedZone, FollowsDaylightTimeInAChildThatConverts) {
    const SecondThread other;
    EXPECT_TRUE(forked::succeeds([] {
        char text[64];
        TimeToString("H", text, 1700000000);
        set_clock_to_may();
        const bool follows = stamps("[2024/05/16 00:13:20]");
        return follows && forked::succeeds([] { return stamps("[2024/05/16 00:13:20]"); });
    }));
}

TEST_F(ForkedZone, IsThatOfAllThatIsStamped) {
    const SecondThread other;
    EXPECT_EQ(mkdir("/dvrfile/log", 0755), 0);
    EXPECT_EQ(chdir("/tmp"), 0);
    EXPECT_EQ(mkdir("/tmp/rt_debug", 0755), 0);
    rt_JudgePrintEn();
    const auto buffer = std::make_unique<RtMsgBuf>();
    pthread_mutex_init(&buffer->lock, nullptr);
    insert_global_pointer(0, buffer.get());
    const auto writes_all = [&](const std::string &report, const std::string &upgrade, const std::string &debug) {
        buffer->write_position = 0;
        rt_printf(1, "line");
        EXPECT_EQ(std::string(buffer->text).substr(0, 20), debug);
        upgrade_UnlinkLog();
        upgrade_WriteLog("a", "b", "c");
        EXPECT_EQ(place::read_file("/dvrfile/log/upgrade.log"), upgrade);
        EXPECT_EQ(report_stamp(), report);
        return !HasFailure();
    };
    EXPECT_TRUE(writes_all("Tue Nov 14 23:13:20 2023\n", "[2023-11-14 23:13:20][a][b][c]\n", "[2023/11/14 23:13:20"));
    EXPECT_TRUE(forked::succeeds([&] {
        set_clock_to_may();
        return writes_all("Wed May 15 23:13:20 2024\n", "[2024-5-15 23:13:20][a][b][c]\n", "[2024/05/15 23:13:20");
    }));
    insert_global_pointer(0, nullptr);
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

#include <atomic>
#include <iomanip>
#include <latch>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/fork_meanwhile.h"
#include "support/waiting_text.h"

namespace {

long own_id() { return syscall(SYS_gettid); }

double uptime_seconds() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::vector<velkor_host_thread> registered() {
    std::vector<velkor_host_thread> threads;
    velkor_host_thread thread;
    for (unsigned index = 0; velkor_host_thread_get(index, &thread) == 0; ++index) {
        threads.push_back(thread);
    }
    return threads;
}

std::vector<std::string> registered_names() {
    std::vector<std::string> names;
    for (const velkor_host_thread &thread : registered()) {
        names.emplace_back(thread.name);
    }
    return names;
}

using Names = std::vector<std::string>;

std::vector<std::string> report_lines() {
    char *text = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&text, &size);
    velkor_host_thread_report(stream);
    fclose(stream);
    std::istringstream lines{std::string(text, size)};
    free(text);
    std::vector<std::string> result;
    for (std::string line; std::getline(lines, line);) {
        result.push_back(line);
    }
    return result;
}

void run_without_clearing(const char *name, int number) {
    std::thread([=] { ThrInfo_DoRecord(name, number, nullptr); }).join();
}

// ---- Registering ----

TEST(HostThreads, NobodyIsRegisteredAtFirst) {
    velkor_host_thread thread;
    EXPECT_EQ(velkor_host_thread_get(0, &thread), -1);
}

TEST(HostThreads, ARegisteredThreadIsShown) {
    const double before = uptime_seconds();
    ThrInfo_DoRecord("logman_thread", 365, nullptr);
    usleep(2000);
    velkor_host_thread thread;
    ASSERT_EQ(velkor_host_thread_get(0, &thread), 0);
    const double now = uptime_seconds();
    EXPECT_STREQ(thread.name, "logman_thread");
    EXPECT_EQ(thread.number, 365);
    EXPECT_EQ(thread.thread, own_id());
    EXPECT_EQ(thread.running, 1);
    EXPECT_GE(thread.seconds, 0.002);
    EXPECT_LE(thread.seconds, now - before + 1e-6);
    EXPECT_EQ(velkor_host_thread_get(1, &thread), -1);
}

TEST(HostThreads, TheArgumentIsNotLookedAt) {
    ThrInfo_DoRecord("argument", 1, reinterpret_cast<void *>(8));
    EXPECT_EQ(registered_names(), Names{"argument"});
}

TEST(HostThreads, NullNameIsEmpty) {
    ThrInfo_DoRecord(nullptr, 1, nullptr);
    EXPECT_EQ(registered_names(), Names{""});
}

TEST(HostThreads, ALongNameIsCut) {
    ThrInfo_DoRecord(std::string(255, 'a').c_str(), 1, nullptr);
    EXPECT_EQ(registered_names(), Names{std::string(255, 'a')});
    ThrInfo_DoRecord(std::string(256, 'b').c_str(), 1, nullptr);
    EXPECT_EQ(registered_names(), Names{std::string(255, 'b')});
}

TEST(HostThreads, TheNameIsCopied) {
    char name[] = "before";
    ThrInfo_DoRecord(name, 1, nullptr);
    name[0] = 'X';
    EXPECT_EQ(registered_names(), Names{"before"});
}

TEST(HostThreads, RegisteringAgainReplacesTheRecord) {
    ThrInfo_DoRecord("first", 1, nullptr);
    usleep(2000);
    const double before = uptime_seconds();
    ThrInfo_DoRecord("second", 2, nullptr);
    const std::vector<velkor_host_thread> threads = registered();
    ASSERT_EQ(threads.size(), 1U);
    EXPECT_STREQ(threads[0].name, "second");
    EXPECT_EQ(threads[0].number, 2);
    EXPECT_LE(threads[0].seconds, uptime_seconds() - before);
}

TEST(HostThreads, AreShownInTheOrderOfRegistration) {
    ThrInfo_DoRecord("main", 0, nullptr);
    run_without_clearing("a", 1);
    run_without_clearing("b", 2);
    EXPECT_EQ(registered_names(), (Names{"main", "a", "b"}));
    ThrInfo_DoRecord("main again", 0, nullptr);
    EXPECT_EQ(registered_names(), (Names{"a", "b", "main again"}));
}

TEST(HostThreads, NoPlaceToShowIsRefused) {
    ThrInfo_DoRecord("main", 0, nullptr);
    EXPECT_EQ(velkor_host_thread_get(0, nullptr), -1);
    velkor_host_thread thread;
    EXPECT_EQ(velkor_host_thread_get(UINT32_MAX, &thread), -1);
}

// ---- Leaving ----

TEST(HostThreads, ClearRemovesTheCallersRecordOnly) {
    run_without_clearing("other", 1);
    ThrInfo_DoRecord("main", 2, nullptr);
    ThrInfo_Clear();
    EXPECT_EQ(registered_names(), Names{"other"});
    ThrInfo_Clear();  // a second time: nothing to remove
    EXPECT_EQ(registered_names(), Names{"other"});
}

TEST(HostThreads, ClearOfAThreadThatNeverRegisteredDoesNothing) {
    ThrInfo_DoRecord("main", 1, nullptr);
    std::thread(ThrInfo_Clear).join();
    EXPECT_EQ(registered_names(), Names{"main"});
}

TEST(HostThreads, AThreadThatClearedMayRegisterAgain) {
    ThrInfo_DoRecord("one life", 1, nullptr);
    ThrInfo_Clear();
    ThrInfo_DoRecord("another", 2, nullptr);
    EXPECT_EQ(registered_names(), Names{"another"});
}

TEST(HostThreads, AThreadThatEndedWithoutClearingIsShownAsNotRunning) {
    ThrInfo_DoRecord("main", 1, nullptr);
    run_without_clearing("forgot", 2);
    std::thread([] {
        ThrInfo_DoRecord("cleared", 3, nullptr);
        ThrInfo_Clear();
    }).join();
    const std::vector<velkor_host_thread> threads = registered();
    ASSERT_EQ(threads.size(), 2U);
    EXPECT_EQ(threads[0].running, 1);
    EXPECT_STREQ(threads[1].name, "forgot");
    EXPECT_EQ(threads[1].number, 2);
    EXPECT_EQ(threads[1].running, 0);
}

TEST(HostThreads, AThreadThatExitsOrIsCancelledEndedToo) {
    pthread_t thread;
    pthread_create(
        &thread, nullptr,
        [](void *) -> void * {
            ThrInfo_DoRecord("exits", 1, nullptr);
            pthread_exit(nullptr);
        },
        nullptr);
    pthread_join(thread, nullptr);
    pthread_create(
        &thread, nullptr,
        [](void *) -> void * {
            ThrInfo_DoRecord("cancelled", 2, nullptr);
            for (;;) {
                sleep(1);
            }
        },
        nullptr);
    pthread_cancel(thread);
    pthread_join(thread, nullptr);
    for (const velkor_host_thread &shown : registered()) {
        EXPECT_EQ(shown.running, 0) << shown.name;
    }
    EXPECT_EQ(registered_names().front(), "exits");
}

TEST(HostThreads, AThreadRunsUntilItEnds) {
    std::latch recorded{1};
    std::latch leave{1};
    std::thread thread([&] {
        ThrInfo_DoRecord("worker", 1, nullptr);
        recorded.count_down();
        leave.wait();
    });
    recorded.wait();
    EXPECT_EQ(registered().at(0).running, 1);
    leave.count_down();
    thread.join();
    EXPECT_EQ(registered().at(0).running, 0);
}

// ---- A full table ----

TEST(HostThreads, AFullTableGivesUpTheOldestThatEnded) {
    static_assert(VELKOR_HOST_THREADS == 256);
    ThrInfo_DoRecord("main", 0, nullptr);
    for (int number = 1; number < 256; ++number) {
        run_without_clearing("ended", number);
    }
    EXPECT_EQ(registered().size(), 256U);
    run_without_clearing("one more", 256);
    run_without_clearing("another", 257);
    const std::vector<velkor_host_thread> threads = registered();
    ASSERT_EQ(threads.size(), 256U);
    EXPECT_STREQ(threads[0].name, "main");  // the oldest of all, but it runs
    EXPECT_EQ(threads[0].running, 1);
    EXPECT_EQ(threads[1].number, 3);
    EXPECT_EQ(threads[254].number, 256);
    EXPECT_STREQ(threads[255].name, "another");
}

TEST(HostThreads, ATableFullOfRunningThreadsTakesNoMore) {
    std::latch recorded{VELKOR_HOST_THREADS};
    std::latch leave{1};
    std::vector<pthread_t> threads(VELKOR_HOST_THREADS);
    std::pair<std::latch &, std::latch &> latches{recorded, leave};
    pthread_attr_t small;
    pthread_attr_init(&small);
    pthread_attr_setstacksize(&small, 0x20000);
    for (pthread_t &thread : threads) {
        ASSERT_EQ(pthread_create(
                      &thread, &small,
                      [](void *given) -> void * {
                          const auto &[arrived, end] = *static_cast<std::pair<std::latch &, std::latch &> *>(given);
                          ThrInfo_DoRecord("crowd", 1, nullptr);
                          arrived.count_down();
                          end.wait();
                          ThrInfo_Clear();
                          return nullptr;
                      },
                      &latches),
                  0);
    }
    pthread_attr_destroy(&small);
    recorded.wait();
    ThrInfo_DoRecord("late", 2, nullptr);
    EXPECT_EQ(registered_names(), Names(VELKOR_HOST_THREADS, "crowd"));
    ThrInfo_Clear();  // it has nothing to clear
    EXPECT_EQ(registered().size(), size_t{VELKOR_HOST_THREADS});
    leave.count_down();
    for (const pthread_t thread : threads) {
        pthread_join(thread, nullptr);
    }
    EXPECT_EQ(registered_names(), Names{});
    ThrInfo_DoRecord("late", 2, nullptr);
    EXPECT_EQ(registered_names(), Names{"late"});
}

// ---- Many threads, and forked children ----

TEST(HostThreads, ComeAndGoWhileOthersLook) {
    std::atomic<bool> stop{false};
    std::vector<std::jthread> workers;
    workers.reserve(3);
    for (int worker = 0; worker < 3; ++worker) {
        workers.emplace_back([&stop, worker] {
            while (!stop.load()) {
                ThrInfo_DoRecord(worker == 0 ? "zero" : "more", worker, nullptr);
                ThrInfo_Clear();
            }
        });
    }
    for (int look = 0; look < 300; ++look) {
        for (const velkor_host_thread &thread : registered()) {
            EXPECT_EQ(std::string(thread.name), thread.number == 0 ? "zero" : "more");
            EXPECT_EQ(thread.running, 1);
        }
    }
    stop = true;
    workers.clear();
    EXPECT_EQ(registered_names(), Names{});
}

TEST(HostThreads, AForkedChildStartsWithAnEmptyTable) {
    ThrInfo_DoRecord("parent", 1, nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const bool empty = registered().empty();
        run_without_clearing("other", 3);
        ThrInfo_Clear();  // the child's own thread is not registered: this is nobody else's record
        const bool others = registered_names() == Names{"other"};
        ThrInfo_DoRecord("child", 2, nullptr);
        const std::vector<velkor_host_thread> threads = registered();
        const bool own = threads.size() == 2 && threads[1].thread == own_id() && threads[1].number == 2;
        _exit(empty && others && own ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(registered_names(), Names{"parent"});
}

TEST(HostThreads, HoldNoChildUpThatIsForkedWhileAnotherRegisters) {
    WaitingText name("slow");
    std::thread slow([&] { ThrInfo_DoRecord(name.c_str(), 1, nullptr); });
    ASSERT_TRUE(name.has_reader());
    const auto registers = [] {
        ThrInfo_DoRecord("child", 2, nullptr);
        return registered_names() == Names{"child"};
    };
    EXPECT_TRUE(fork_meanwhile::child_is_well(registers, [&] { name.let_go(); }));
    slow.join();
}

TEST(HostThreadsForkStorm, AChildThatIsForkedWhileOthersRegisterDoesNotHang) {
    std::atomic<bool> stop{false};
    std::vector<std::jthread> workers;
    workers.reserve(3);
    for (int worker = 0; worker < 3; ++worker) {
        workers.emplace_back([&stop] {
            while (!stop.load()) {
                ThrInfo_DoRecord("busy", 1, nullptr);
                ThrInfo_Clear();
            }
        });
    }
    for (int i = 0; i < 25; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);  // a child that hangs is a failure, not a wait for ever
            ThrInfo_DoRecord("child", 2, nullptr);
            velkor_host_thread thread;
            const bool alone = velkor_host_thread_get(0, &thread) == 0 && thread.number == 2 &&
                               velkor_host_thread_get(1, &thread) == -1;
            _exit(alone ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    stop = true;
}

// ---- The report ----

TEST(HostThreads, ReportIsAnAlignedTable) {
    ThrInfo_DoRecord("main", 365, nullptr);
    run_without_clearing("gone", -12);
    const std::vector<std::string> lines = report_lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "    thread  number      seconds state   name");
    EXPECT_EQ(lines[1].substr(0, 10), (std::ostringstream{} << std::setw(10) << own_id()).str());
    EXPECT_THAT(lines[1].substr(10), testing::MatchesRegex("     365          [0-9]\\.[0-9] running main"));
    EXPECT_THAT(lines[2].substr(10), testing::MatchesRegex("     -12          [0-9]\\.[0-9] ended   gone"));
}

TEST(HostThreads, ReportOfNobodyIsItsTitles) { EXPECT_EQ(report_lines().size(), 1U); }

TEST(HostThreads, ReportToNowhereIsNothing) {
    ThrInfo_DoRecord("main", 1, nullptr);
    velkor_host_thread_report(nullptr);
    EXPECT_EQ(registered_names(), Names{"main"});
}

}  // namespace

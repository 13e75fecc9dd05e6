// The whole way of a line: from the threads of a process, through the ring buffer and the draining thread, to a real
// terminal, switched by a real file.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/allocation.h>
#include <velkor/diagnostics.h>
#include <velkor_host.h>

#include <algorithm>
#include <atomic>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/place.h"

namespace {

constexpr const char *SWITCH_FILE = "/dvrfile/logman";
constexpr const char *TERMINAL = "/tmp/tty.logman";

void link_terminal(const place::Terminal &terminal) { ASSERT_EQ(symlink(terminal.path().c_str(), TERMINAL), 0); }

// Complete from the moment it is there: the draining thread reads it at once, and only once.
void switch_to(const std::string &content) {
    const std::string beside = std::string(SWITCH_FILE) + ".new";
    place::write_file(beside, content);
    ASSERT_EQ(rename(beside.c_str(), SWITCH_FILE), 0);
}

bool becomes(int enabled) {
    return place::eventually([=] { return vk_GetLogmanEnable() == enabled; });
}

// Switched on, read, and accepting lines.
bool logs(const char *text) {
    return place::eventually([=] { return vk_printftomem(0, "test", 0, "%s", text) == 0; });
}

std::vector<std::string> messages_of(const std::string &text) {
    std::vector<std::string> messages;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        messages.push_back(line.substr(line.find("test]") + 5));
    }
    return messages;
}

TEST(LogPipeline, CopiesLinesToTheTerminalInTheirOrder) {
    place::Terminal terminal;
    link_terminal(terminal);
    switch_to("dbgprint=1\n");
    EXPECT_EQ(logman_init(), 0);
    std::vector<std::string> expected;
    for (int i = 0; i < 300; ++i) {
        expected.push_back("line " + std::to_string(i));
        ASSERT_EQ(vk_printftomem(0, "test", 0, "%s", expected.back().c_str()), 0);
    }
    EXPECT_EQ(messages_of(terminal.read_until("line 299\n")), expected);
}

TEST(LogPipeline, IsSwitchedOffAndOnByTheFile) {
    place::Terminal terminal;
    link_terminal(terminal);
    logman_init();
    EXPECT_EQ(vk_GetLogmanEnable(), 0);
    switch_to("dbgprint=1\n");
    ASSERT_TRUE(becomes(1));
    ASSERT_TRUE(logs("first"));
    terminal.read_until("first\n");
    unlink(SWITCH_FILE);
    ASSERT_TRUE(becomes(0));
    EXPECT_EQ(vk_printftomem(0, "test", 0, "x"), -1);
    switch_to("dbgprint=1\nfilter=wanted\n");
    ASSERT_TRUE(becomes(1));
    ASSERT_TRUE(logs("wanted"));
    EXPECT_EQ(vk_printftomem(0, "test", 0, "x"), -1);
    terminal.read_until("wanted\n");
}

TEST(LogPipeline, HoldsLinesUntilATerminalIsThereAgain) {
    place::Terminal first;
    link_terminal(first);
    switch_to("dbgprint=1\n");
    logman_init();
    ASSERT_TRUE(logs("first"));
    first.read_until("first\n");
    // The file is read again while the terminal is missing: lines are accepted into the ring that exists.
    unlink(TERMINAL);
    unlink(SWITCH_FILE);
    ASSERT_TRUE(becomes(0));
    switch_to("dbgprint=1\n");
    ASSERT_TRUE(becomes(1));
    ASSERT_TRUE(logs("waiting"));
    place::Terminal second;
    link_terminal(second);
    unlink(SWITCH_FILE);
    ASSERT_TRUE(becomes(0));
    switch_to("dbgprint=1\n");
    EXPECT_EQ(messages_of(second.read_until("waiting\n")), std::vector<std::string>{"waiting"});
}

TEST(LogPipeline, WritesARegularFileFromItsBeginningAfterEachReading) {
    place::write_file(TERMINAL, "");
    switch_to("dbgprint=1\n");
    logman_init();
    ASSERT_TRUE(logs("first and longer"));
    struct velkor_host_ring ring;
    const auto drained = [&] { return velkor_host_ring_get(1, &ring) == 0 && ring.written > 0 && ring.held == 0; };
    ASSERT_TRUE(place::eventually(drained));
    // Reading the file again closes the stream, which puts its buffer into the file.
    const auto reread = [] {
        unlink(SWITCH_FILE);
        ASSERT_TRUE(becomes(0));
        switch_to("dbgprint=1\n");
        ASSERT_TRUE(becomes(1));
    };
    reread();
    ASSERT_TRUE(place::eventually([] { return place::read_file(TERMINAL).ends_with("first and longer\n"); }));
    ASSERT_TRUE(logs("second"));
    ASSERT_TRUE(place::eventually(drained));
    reread();
    ASSERT_TRUE(place::eventually([] { return place::read_file(TERMINAL).find("second\n") != std::string::npos; }));
    // Over the former line, whose end is still there.
    EXPECT_TRUE(place::read_file(TERMINAL).starts_with("["));
    EXPECT_TRUE(place::read_file(TERMINAL).ends_with("longer\n"));
}

TEST(LogPipeline, DrainsEachLineOnceWithTwoDrainingThreads) {
    place::Terminal terminal;
    link_terminal(terminal);
    switch_to("dbgprint=1\n");
    EXPECT_EQ(logman_init(), 0);
    EXPECT_EQ(logman_init(), 0);
    std::vector<std::string> expected;
    for (int i = 0; i < 300; ++i) {
        expected.push_back("line " + std::to_string(i));
        vk_printftomem(0, "test", 0, "%s", expected.back().c_str());
    }
    EXPECT_EQ(messages_of(terminal.read_until("line 299\n")), expected);
}

TEST(LogPipeline, SurvivesSwitchingUnderLoadWithTwoDrainingThreads) {
    place::write_file(TERMINAL, "");
    switch_to("dbgprint=1\n");
    logman_init();
    logman_init();
    std::atomic<bool> stop{false};
    std::vector<std::thread> writers;
    for (int i = 0; i < 3; ++i) {
        writers.emplace_back([&] {
            while (!stop) {
                vk_printftomem(0, "test", 0, "%s", "some text");
            }
        });
    }
    for (int i = 0; i < 30; ++i) {
        unlink(SWITCH_FILE);
        ASSERT_TRUE(becomes(0));
        switch_to(i % 2 == 0 ? "dbgprint=0\n" : "dbgprint=1\n");
        ASSERT_TRUE(becomes(1));
    }
    stop = true;
    for (std::thread &writer : writers) {
        writer.join();
    }
}

TEST(LogPipeline, RegistersItsThread) {
    logman_init();
    struct velkor_host_thread thread;
    ASSERT_TRUE(place::eventually([&] { return velkor_host_thread_get(0, &thread) == 0; }));
    EXPECT_STREQ(thread.name, "logman_thread");
    EXPECT_EQ(thread.number, 365);
    EXPECT_EQ(thread.running, 1);
}

TEST(LogPipeline, AsksForCoarseTimersOnlyWhileOff) {
    logman_init();
    struct velkor_host_thread thread;
    ASSERT_TRUE(place::eventually([&] { return velkor_host_thread_get(0, &thread) == 0; }));
    const std::string slack = "/proc/" + std::to_string(thread.thread) + "/timerslack_ns";
    const auto is = [&](const char *value) {
        return place::eventually([&] { return place::read_file(slack) == value; });
    };
    EXPECT_TRUE(is("1000000\n"));
    switch_to("dbgprint=0\n");
    EXPECT_TRUE(is("50000\n"));
    unlink(SWITCH_FILE);
    EXPECT_TRUE(is("1000000\n"));
}

TEST(LogPipeline, ReportsAFailedAllocation) {
    place::Terminal terminal;
    link_terminal(terminal);
    switch_to("dbgprint=1\nfilter=libvelkor\n");
    logman_init();
    ASSERT_TRUE(becomes(1));
    EXPECT_EQ(dvrMalloc(SIZE_MAX / 2, "recorder/main.c", 40), nullptr);
    const std::string line = terminal.read_until("\n");
    EXPECT_NE(line.find(" libvelkor]dvrMalloc 172 fname:recorder/main.c, line=40, err code = "), std::string::npos)
        << line;
}

}  // namespace

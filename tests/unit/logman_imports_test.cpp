// The log manager over a ring buffer that fails, blocks and remembers how it was called: what a working one never
// does. These definitions win over those of libvelkor-host for the whole program.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/place.h"

namespace {

struct Ring {
    std::atomic<unsigned> next_handle{1};
    std::atomic<int> created{0};
    std::atomic<unsigned> created_size{0};
    std::atomic<int> created_mode{-1};
    std::atomic<int> writes{0};
    std::atomic<unsigned> written_length{0};
    std::atomic<unsigned> written_handle{0};
    std::atomic<bool> hold_next_writer{false};
    std::atomic<bool> writer_inside{false};
    std::atomic<bool> release_writer{false};
    std::atomic<int> size{0};
    std::atomic<int> reads{0};

    void release() {
        release_writer = true;
        release_writer.notify_all();
    }
};
Ring fake;

// A thread that reads the switch file, held still when it has just opened it.
std::atomic<bool> hold_next_reader{false};
std::atomic<bool> reader_inside{false};
std::atomic<bool> release_reader{false};

}  // namespace

extern "C" FILE *fdopen(int descriptor, const char *mode) noexcept {
    static const auto open_stream = reinterpret_cast<FILE *(*)(int, const char *)>(dlsym(RTLD_NEXT, "fdopen"));
    if (hold_next_reader.exchange(false)) {
        reader_inside = true;
        release_reader.wait(false);
    }
    return open_stream(descriptor, mode);
}

unsigned ringbuf_Create(unsigned size, int mode) {
    ++fake.created;
    fake.created_size = size;
    fake.created_mode = mode;
    return fake.next_handle;
}

int ringbuf_Write(unsigned length, const void *, unsigned ring) {
    fake.written_length = length;
    fake.written_handle = ring;
    ++fake.writes;
    if (fake.hold_next_writer.exchange(false)) {
        fake.writer_inside = true;
        fake.release_writer.wait(false);
        fake.writer_inside = false;
    }
    return -1;  // ignored
}

int ringbuf_Read(unsigned length, void *buffer, unsigned) {
    ++fake.reads;
    memset(buffer, '#', length);  // not even terminated
    return -1;                    // ignored
}

int ringbuf_DataSize(unsigned) { return fake.size; }

namespace {

constexpr const char *SWITCH_FILE = "/dvrfile/logman";
constexpr const char *TERMINAL = "/tmp/tty.logman";

// Complete from the moment it is there: a draining thread reads it at once, and only once.
void switch_to(const std::string &content) {
    const std::string beside = std::string(SWITCH_FILE) + ".new";
    place::write_file(beside, content);
    ASSERT_EQ(rename(beside.c_str(), SWITCH_FILE), 0);
}

void appear(const std::string &content) {
    unlink(SWITCH_FILE);
    vk_OutLogToLogmanEnable();
    switch_to(content);
    vk_OutLogToLogmanEnable();  // unless the draining thread was first
    EXPECT_TRUE(place::eventually([] { return vk_GetLogmanEnable() == 1; }));
}

// How many of this process's descriptors are the terminal file.
int open_terminals() {
    int count = 0;
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
        struct stat of_descriptor;
        struct stat of_terminal;
        if (fstat(descriptor, &of_descriptor) == 0 && stat(TERMINAL, &of_terminal) == 0) {
            count += of_descriptor.st_ino == of_terminal.st_ino && of_descriptor.st_dev == of_terminal.st_dev ? 1 : 0;
        }
    }
    return count;
}

TEST(LogRingCalls, CarryTheDescribedNumbers) {
    place::write_file(TERMINAL, "");
    fake.next_handle = 77;
    appear("dbgprint=1\n");
    EXPECT_EQ(fake.created, 1);
    EXPECT_EQ(fake.created_size, 0x80000U);
    EXPECT_EQ(fake.created_mode, 1);
    EXPECT_EQ(vk_printftomem(0, "m", 0, "x"), 0);
    EXPECT_EQ(fake.writes, 1);
    EXPECT_EQ(fake.written_length, 1024U);
    EXPECT_EQ(fake.written_handle, 77U);
}

TEST(LogRingCalls, ARingThatCannotBeMadeIsTriedAgainWithTheNextStream) {
    place::write_file(TERMINAL, "");
    fake.next_handle = 0;
    appear("dbgprint=1\n");
    EXPECT_EQ(fake.created, 1);
    EXPECT_EQ(vk_printftomem(0, "m", 0, "x"), 0);  // accepted and dropped
    EXPECT_EQ(fake.writes, 0);
    fake.next_handle = 5;
    appear("dbgprint=1\n");
    EXPECT_EQ(fake.created, 2);
    EXPECT_EQ(vk_printftomem(0, "m", 0, "x"), 0);
    EXPECT_EQ(fake.written_handle, 5U);
    appear("dbgprint=1\n");
    EXPECT_EQ(fake.created, 2);  // kept for the life of the process
}

TEST(LogRingCalls, NoRingIsMadeWithoutATerminal) {
    appear("dbgprint=1\n");
    EXPECT_EQ(fake.created, 0);
}

TEST(LogTerminalStream, IsClosedWhenPrintingGoesOff) {
    place::write_file(TERMINAL, "");
    appear("dbgprint=1\n");
    EXPECT_EQ(open_terminals(), 1);
    appear("dbgprint=0\n");
    EXPECT_EQ(open_terminals(), 0);
}

TEST(LogTerminalStream, IsOpenedAfreshByEachReading) {
    place::write_file(TERMINAL, "");
    appear("dbgprint=1\n");
    rename(TERMINAL, "/tmp/former");
    place::write_file(TERMINAL, "");
    appear("dbgprint=1\n");
    EXPECT_EQ(open_terminals(), 1);
}

TEST(LogTerminalStream, StaysOpenWhenTheSwitchFileOnlyVanishes) {
    place::write_file(TERMINAL, "");
    appear("dbgprint=1\n");
    unlink(SWITCH_FILE);
    EXPECT_EQ(vk_OutLogToLogmanEnable(), -1);
    EXPECT_EQ(open_terminals(), 1);
}

TEST(LogTerminalStream, StaysOpenWhileAThreadIsInsideTheRingAndNobodyWaitsForIt) {
    place::write_file(TERMINAL, "");
    appear("dbgprint=1\n");
    fake.hold_next_writer = true;
    std::thread writer([] { vk_printftomem(0, "m", 0, "x"); });
    ASSERT_TRUE(place::eventually([] { return fake.writer_inside.load(); }));
    appear("dbgprint=0\n");  // returns at once
    EXPECT_EQ(open_terminals(), 1);
    appear("dbgprint=1\n");
    EXPECT_EQ(open_terminals(), 1);  // the one that stayed, not a second
    fake.release();
    writer.join();
    appear("dbgprint=0\n");
    EXPECT_EQ(open_terminals(), 0);
}

// The states in which a fork finds a process, held still: a thread that reads the switch file, and one inside the ring.
TEST(LogFork, AChildTakesNoLockAndNoCountAlong) {
    place::write_file(TERMINAL, "");
    appear("dbgprint=1\n");
    fake.hold_next_writer = true;
    std::thread writer([] { vk_printftomem(0, "m", 0, "x"); });
    ASSERT_TRUE(place::eventually([] { return fake.writer_inside.load(); }));
    hold_next_reader = true;
    std::thread reader([] { logman_read_config(); });
    ASSERT_TRUE(place::eventually([] { return reader_inside.load(); }));

    const pid_t child = fork();
    if (child == 0) {
        alarm(20);  // a child that hangs is a failure, not a wait for ever
        unlink(SWITCH_FILE);
        place::write_file(SWITCH_FILE, "dbgprint=1\nfilter=child\n");
        const bool read = logman_read_config() == 0;
        const bool logs = vk_printftomem(0, "m", 0, "child") == 0 && vk_printftomem(0, "m", 0, "x") == -1;
        place::write_file(SWITCH_FILE, "dbgprint=0\n");
        const bool closes = logman_read_config() == 0 && open_terminals() == 0;
        _exit(read && logs && closes ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);

    release_reader = true;
    release_reader.notify_all();
    reader.join();
    fake.release();
    writer.join();
}

TEST(LogDrain, ReadsNothingFromAnEmptyRing) {
    place::write_file(TERMINAL, "");
    logman_init();
    appear("dbgprint=1\n");
    usleep(50000);  // some hundred passes, in which it must not read
    EXPECT_EQ(fake.reads, 0);
    fake.size = 1;
    EXPECT_TRUE(place::eventually([] { return fake.reads.load() > 0; }));
}

TEST(LogDrain, StaysInsideARecordWithoutEnd) {
    place::Terminal terminal;
    ASSERT_EQ(symlink(terminal.path().c_str(), TERMINAL), 0);
    logman_init();
    fake.size = 1024;
    switch_to("dbgprint=1\n");
    const std::string text = terminal.read_until("\n");
    EXPECT_EQ(text.substr(0, text.find('\n')), std::string(1023, '#'));
    fake.size = 0;
    unlink(SWITCH_FILE);
}

}  // namespace

// The copy over a file layer that this file plays itself: for the order of its calls, for failures, and for sizes that
// no disk here has.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <velkor/files.h>
#include <velkor/firmware.h>

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/alarms.h"
#include "support/log_capture.h"

namespace {

using Strings = std::vector<std::string>;

constexpr int SOURCE = 30;
constexpr int DESTINATION = 40;
constexpr int BLOCK = 0x80000;
constexpr int64_t MIB = int64_t{1} << 20;
constexpr int FAILS = -1;  // an answer of a call

// What the layer is told to answer, and what it was asked.
struct Layer {
    int64_t size = 0;
    bool is_recorded = true;  // rec_Stat() knows the file
    bool exists = true;
    std::deque<int> opens;     // answers, other than success, of the next calls of open
    std::deque<int> reads;     // of read: a number of bytes, or an error
    std::deque<int> writes;    // of write
    std::deque<int> switches;  // of fcntl
    std::function<void()> while_reading;
    int error = EIO;

    Strings calls;
    std::vector<std::vector<unsigned char>> destination_records;
    const void *destination_record = nullptr;
    int64_t written = 0;
    int syncs = 0;

    void note(const std::string &call) { calls.push_back(call); }

    // The next answer that was prepared, else `otherwise`. Of numbers below 0 the negative is the error.
    int answer(std::deque<int> &prepared, int otherwise) {
        if (prepared.empty()) {
            return otherwise;
        }
        const int next = prepared.front();
        prepared.pop_front();
        if (next < 0) {
            errno = next == FAILS ? error : -next;
            return -1;
        }
        return next;
    }
};

Layer layer;

// What memory there is.
struct Memory {
    bool has_pages = true;
    bool has_pool = true;
    bool service_takes_any = false;
    std::vector<void *> freed;
};

Memory memory;

std::string name_of(int descriptor) { return descriptor == SOURCE ? "source" : "destination"; }

void put_word(void *record, size_t at, uint32_t word) { memcpy(static_cast<char *>(record) + at, &word, 4); }

int fill_status(void *record) {
    for (int i = 0; i < 160; ++i) {
        EXPECT_EQ(static_cast<char *>(record)[i], 0);
    }
    memcpy(static_cast<char *>(record) + 48, &layer.size, sizeof layer.size);
    put_word(record, 104, 0x104);
    put_word(record, 120, 0x120);
    put_word(record, 128, 0x128);
    return 0;
}

}  // namespace

int rec_Stat(const char *path, void *record) {
    layer.note(std::string("rec_Stat ") + path);
    if (!layer.is_recorded) {
        memset(record, 0xff, 160);
        errno = ENOENT;
        return -1;
    }
    return fill_status(record);
}

int vfs_Stat(const char *path, void *record) {
    layer.note(std::string("vfs_Stat ") + path);
    if (!layer.exists) {
        errno = ENOENT;
        return -1;
    }
    return fill_status(record);
}

int vfs_Open(void *record, const char *path, int flags) {
    char call[128];
    snprintf(call, sizeof call, "open %s %x", path, static_cast<unsigned>(flags));
    layer.note(call);
    const bool writes = (flags & 1) != 0;
    if (writes) {
        layer.destination_record = record;
        if (record != nullptr) {
            const auto *const bytes = static_cast<const unsigned char *>(record);
            layer.destination_records.emplace_back(bytes, bytes + 96);
        }
    } else {
        EXPECT_EQ(record, nullptr);
    }
    return layer.answer(layer.opens, writes ? DESTINATION : SOURCE);
}

int vfs_Read(int fd, void * /*buffer*/, int length) {
    EXPECT_EQ(fd, SOURCE);
    layer.note("read " + std::to_string(length));
    if (layer.while_reading) {
        layer.while_reading();
    }
    return layer.answer(layer.reads, length);
}

int vfs_Write(int fd, const void * /*buffer*/, int length) {
    EXPECT_EQ(fd, DESTINATION);
    layer.note("write " + std::to_string(length));
    const int written = layer.answer(layer.writes, length);
    layer.written += written > 0 ? written : 0;
    return written;
}

int vfs_fcntl(int fd, int command, int value) {
    layer.note("fcntl " + name_of(fd) + " " + std::to_string(command) + " " + std::to_string(value));
    return layer.answer(layer.switches, 0);
}

int vfs_fsync(int fd) {
    layer.note("fsync " + name_of(fd));
    ++layer.syncs;
    errno = ENOTTY;  // must not be what is logged
    return 0;
}

int vfs_Close(int fd) {
    layer.note("close " + name_of(fd));
    errno = ENOTTY;
    return 0;
}

int vfs_Unlink(const char *path) {
    layer.note(std::string("unlink ") + path);
    return 0;
}

extern "C" void *valloc(size_t size) noexcept {
    void *block = nullptr;
    if (!memory.has_pages || posix_memalign(&block, 4096, size) != 0) {
        errno = ENOMEM;
        return nullptr;
    }
    return block;
}

void *VkMem_Alloc(unsigned short /*pool*/, size_t size) {
    errno = ENOMEM;
    return memory.has_pool ? malloc(size) : nullptr;
}

// The recorder's service takes every block of the process, another one only its own.
int VkMem_Free(void *block) {
    memory.freed.push_back(block);
    if (!memory.service_takes_any && memory.has_pages) {
        return -1;
    }
    free(block);
    return 0;
}

namespace {

const Strings GIVES_UP = {"fsync destination", "close source", "close destination"};

// The calls without those that every copy begins with: examining, and opening directly.
Strings calls_after_opening() {
    const Strings &calls = layer.calls;
    EXPECT_GE(calls.size(), 3U);
    return {calls.begin() + 3, calls.end()};
}

Strings joined(Strings first, const Strings &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

std::string line(const std::string &text) { return "[copy_file:" + text + " "; }  // the line end becomes a blank

std::string with_error(const std::string &text, int error) { return line(text + " errno=" + std::to_string(error)); }

int copy(int size = -1, int cancelable = 0) { return copy_file("/s", "/d", nullptr, size, cancelable); }

// ---- The way of a copy ----

TEST(Copy, TakesBlocksOf512KibAndLeavesDirectModeBeforeTheTail) {
    layer.size = MIB + 1;
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(layer.calls, (Strings{"rec_Stat /s", "open /d 10241", "open /s 10000", "read 524288", "write 524288",
                                    "read 524288", "write 524288", "fcntl source 4 0", "fcntl destination 4 1",
                                    "read 1", "write 1", "fsync destination", "close source", "close destination"}));
}

TEST(Copy, StaysInDirectModeWithoutATail) {
    layer.size = BLOCK;
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(calls_after_opening(), joined({"read 524288", "write 524288"}, GIVES_UP));
}

TEST(Copy, OfNothingOnlySyncsAndCloses) {
    layer.size = MIB;
    EXPECT_EQ(copy(0), 0);
    EXPECT_EQ(calls_after_opening(), GIVES_UP);
}

TEST(Copy, TakesAsMuchAsItIsAsked) {
    layer.size = 5 * MIB;  // grows meanwhile, for all that matters
    EXPECT_EQ(copy(BLOCK + 7), 0);
    EXPECT_EQ(layer.written, BLOCK + 7);
}

TEST(Copy, AsksTheRecordersViewFirst) {
    layer.is_recorded = false;
    layer.size = 10;
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(layer.calls[0], "rec_Stat /s");
    EXPECT_EQ(layer.calls[1], "vfs_Stat /s");
    EXPECT_EQ(layer.written, 10);
}

TEST(Copy, TakesAFileAbove4GibWhole) {
    layer.size = MIB * 5 * 1024 + 3;
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(layer.written, layer.size);
    EXPECT_EQ(layer.syncs, 512 + 1);
}

TEST(Copy, SyncsEvery10Mib) {
    const struct {
        int64_t size;
        int syncs;
    } copies[] = {{10 * MIB - 1, 1}, {10 * MIB, 2}, {10 * MIB + 1, 2}, {20 * MIB, 3}, {21 * MIB, 3}};
    for (const auto &wanted : copies) {
        layer = {};
        layer.size = wanted.size;
        EXPECT_EQ(copy(), 0);
        EXPECT_EQ(layer.syncs, wanted.syncs) << wanted.size;
        EXPECT_EQ(layer.written, wanted.size);
    }
    EXPECT_EQ(layer.calls[3 + 40], "fsync destination");  // right after the twentieth block
}

TEST(Copy, MissesASyncWhenAShortReadPutsTheTotalBesideTheMark) {
    layer.size = 12 * MIB;
    layer.reads = {4096};
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(layer.syncs, 1);
    EXPECT_EQ(layer.written, layer.size);
}

TEST(Copy, EndsWhereASourceThatShrankEnds) {
    layer.size = 3 * MIB;
    layer.reads = {BLOCK, 100, 0};
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(calls_after_opening(),
              joined({"read 524288", "write 524288", "read 524288", "write 100", "read 524288"}, GIVES_UP));
}

TEST(Copy, RemembersItsDestinationOnce) {
    EXPECT_EQ(copy(), 0);
    char target[VELKOR_TARGET_LENGTH + 1];
    EXPECT_EQ(Get_Dir(target), 0);
    EXPECT_STREQ(target, "/d");
    EXPECT_EQ(Get_Dir(target), -1);
}

TEST(Copy, ReadsAndWritesAgainAfterASignal) {
    layer.size = 10;
    layer.reads = {-EINTR, -EINTR};
    layer.writes = {-EINTR};
    const LogCapture log;
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(layer.written, 10);
    for (const std::string &message : log.take_messages()) {
        EXPECT_EQ(message.find("retry"), std::string::npos) << message;
    }
    char byte = 0;
    layer.reads = {-EINTR, 7};
    EXPECT_EQ(safe_read(SOURCE, &byte, 1), 7);
    layer.reads = {FAILS};
    EXPECT_EQ(safe_read(SOURCE, &byte, 1), -1);
    layer.writes = {-EINTR, 0};
    EXPECT_EQ(safe_write(DESTINATION, &byte, 1), 0);
    layer.writes = {FAILS};
    EXPECT_EQ(safe_write(DESTINATION, &byte, 1), -1);
}

// ---- Opening ----

TEST(CopyOpening, FailsWhenNobodyKnowsTheSource) {
    layer.is_recorded = layer.exists = false;
    const LogCapture log;
    EXPECT_EQ(copy(), -8);
    EXPECT_EQ(layer.calls, (Strings{"rec_Stat /s", "vfs_Stat /s"}));
    EXPECT_EQ(log.take_messages(), Strings{with_error("209]-src=/s", ENOENT)});
    char target[VELKOR_TARGET_LENGTH + 1];
    EXPECT_EQ(Get_Dir(target), -1);
}

TEST(CopyOpening, RefusesNullPaths) {
    EXPECT_EQ(copy_file(nullptr, "/d", nullptr, -1, 0), -8);
    EXPECT_EQ(copy_file("/s", nullptr, nullptr, -1, 0), -2);
    EXPECT_TRUE(layer.calls.empty());
}

TEST(CopyOpening, FallsBackToBufferedWritingAndReadsSoToo) {
    layer.size = 10;
    layer.opens = {FAILS};
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(layer.calls,
              joined({"rec_Stat /s", "open /d 10241", "open /d 241", "open /s 0", "read 10", "write 10"}, GIVES_UP));
}

TEST(CopyOpening, FallsBackToBufferedReadingAlone) {
    layer.size = 10;
    layer.opens = {DESTINATION, FAILS};
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(layer.calls, joined({"rec_Stat /s", "open /d 10241", "open /s 10000", "open /s 0",
                                   "fcntl destination 4 1", "read 10", "write 10"},
                                  GIVES_UP));
}

TEST(CopyOpening, FailsWithoutADestination) {
    memory.service_takes_any = true;
    layer.opens = {-ENOENT, -EROFS};
    const LogCapture log;
    EXPECT_EQ(copy(), -2);
    EXPECT_EQ(layer.calls, (Strings{"rec_Stat /s", "open /d 10241", "open /d 241"}));
    EXPECT_EQ(log.take_messages(), Strings{with_error("279]-des=/d", EROFS)});
    EXPECT_EQ(memory.freed.size(), 1U);
    char target[VELKOR_TARGET_LENGTH + 1];
    EXPECT_EQ(Get_Dir(target), -1);
}

TEST(CopyOpening, FailsWithoutASource) {
    memory.service_takes_any = true;
    const LogCapture log;
    layer.opens = {DESTINATION, -ENOENT, -EACCES};
    EXPECT_EQ(copy(), -1);
    EXPECT_EQ(layer.calls.back(), "close destination");
    EXPECT_EQ(log.take_messages(), Strings{with_error("322]-src=/s", EACCES)});
    layer = {};
    layer.opens = {FAILS, DESTINATION, -ENXIO};  // a buffered source is not tried again
    EXPECT_EQ(copy(), -1);
    EXPECT_EQ(layer.calls, (Strings{"rec_Stat /s", "open /d 10241", "open /d 241", "open /s 0", "close destination"}));
    EXPECT_EQ(log.take_messages(), Strings{with_error("302]-src=/s", ENXIO)});
    EXPECT_EQ(memory.freed.size(), 2U);
}

TEST(CopyOpening, DescribesABareDiskByTheSourcesStatus) {
    layer.opens = {FAILS};  // the second try has the same record
    EXPECT_EQ(copy_file("/s", "/dev/scsi/host0/bus1/target2", nullptr, -1, 0), 0);
    ASSERT_EQ(layer.destination_records.size(), 2U);
    std::vector<unsigned char> expected(96);
    put_word(expected.data(), 0, 0x104);
    put_word(expected.data(), 4, 0x128);
    put_word(expected.data(), 8, 2);
    put_word(expected.data(), 16, 0x120);
    memcpy(&expected[24], "/dev/scsi/host0/bus1/t", 22);
    memcpy(&expected[88], "sdv", 3);
    EXPECT_EQ(layer.destination_records[0], expected);
    EXPECT_EQ(layer.destination_records[1], expected);
}

TEST(CopyOpening, HandsOnTheCallersRecordForABareDiskAlone) {
    unsigned char record[96] = {1, 2, 3};
    EXPECT_EQ(copy_file("/s", "/mnt/dev/scsi/host0", record, -1, 0), 0);
    EXPECT_EQ(layer.destination_record, record);
    EXPECT_EQ(copy_file("/s", "/d", record, -1, 0), 0);
    EXPECT_EQ(layer.destination_record, nullptr);
}

// ---- The buffer ----

TEST(CopyBuffer, OfThePoolIsNotFitForDirectMode) {
    memory.has_pages = false;
    layer.size = 10;
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(layer.calls, joined({"rec_Stat /s", "open /d 241", "open /s 0", "read 10", "write 10"}, GIVES_UP));
    EXPECT_EQ(memory.freed.size(), 1U);
    layer = {};
    layer.opens = {FAILS};  // tried a second time all the same
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(layer.calls[2], "open /d 241");
}

TEST(CopyBuffer, IsMissingWithoutMemory) {
    memory.has_pages = memory.has_pool = false;
    const LogCapture log;
    EXPECT_EQ(copy(), -5);
    EXPECT_EQ(layer.calls, Strings{"rec_Stat /s"});
    const Strings messages = log.take_messages();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_TRUE(messages[0].starts_with("dvrMalloc 172 fname:src/file, line=223")) << messages[0];
    EXPECT_TRUE(messages[1].starts_with("[copy_file:225]-malloc error. errno=")) << messages[1];
}

// The sanitizers see whether it is released never, or twice.
TEST(CopyBuffer, GoesToTheMemoryServiceThatTakesIt) {
    memory.service_takes_any = true;
    const LogCapture log;
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(memory.freed.size(), 1U);
    EXPECT_TRUE(log.take_messages().empty());
}

TEST(CopyBuffer, GoesBackWhereItCameFromWhenTheMemoryServiceRefusesIt) {
    const LogCapture log;
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(memory.freed.size(), 1U);
    const Strings messages = log.take_messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_TRUE(messages[0].starts_with("dvrFree 238 err _ptr = ")) << messages[0];
}

// ---- Failures on the way ----

TEST(CopyWriting, GoesOnWhereAShortWriteEnded) {
    memory.service_takes_any = true;
    layer.size = 1000;
    layer.writes = {300, 0, FAILS, 600};
    const LogCapture log;
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(calls_after_opening(), joined({"fcntl source 4 0", "fcntl destination 4 1", "read 1000", "write 1000",
                                             "write 700", "write 700", "write 700", "write 100"},
                                            GIVES_UP));
    EXPECT_EQ(log.take_messages(), (Strings{line("394]-retry=0 iRet=300 iLen=0 iReadSize=1000"),
                                            line("394]-retry=1 iRet=0 iLen=300 iReadSize=1000"),
                                            line("394]-retry=2 iRet=-1 iLen=300 iReadSize=1000"),
                                            line("394]-retry=3 iRet=600 iLen=300 iReadSize=1000")}));
}

TEST(CopyWriting, SucceedsAtTheTenthAttempt) {
    layer.size = int64_t{2} * BLOCK;
    layer.writes = {0, 0, 0, 0, 0, 0, 0, 0, 0};
    const Alarms alarms(20000);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(copy(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 9 * std::chrono::milliseconds(90));
    EXPECT_EQ(layer.written, 2 * BLOCK);
}

TEST(CopyWriting, FailsWhenTenAttemptsFallShort) {
    memory.service_takes_any = true;
    layer.size = 10;
    layer.writes = {1, 0, 0, 0, 0, 0, 0, 0, 0, -ENOSPC};
    const LogCapture log;
    EXPECT_EQ(copy(), -3);
    const Strings calls = calls_after_opening();
    EXPECT_EQ(Strings(calls.end() - 4, calls.end()), joined({"write 9"}, GIVES_UP));
    const Strings messages = log.take_messages();
    ASSERT_EQ(messages.size(), 11U);
    EXPECT_EQ(messages[9], line("394]-retry=9 iRet=-1 iLen=1 iReadSize=10"));
    EXPECT_EQ(messages[10], with_error("416]-src=/s dst=/d", ENOSPC));
    EXPECT_EQ(memory.freed.size(), 1U);
}

TEST(CopyReading, FailsAtTheEndAfterAFailedRead) {
    memory.service_takes_any = true;
    layer.size = MIB;
    layer.reads = {BLOCK, -EIO};
    const LogCapture log;
    EXPECT_EQ(copy(), -4);
    EXPECT_EQ(calls_after_opening(), joined({"read 524288", "write 524288", "read 524288"}, GIVES_UP));
    EXPECT_EQ(log.take_messages(), Strings{with_error("452]-src=/s des=/d", EIO)});
    EXPECT_EQ(memory.freed.size(), 1U);
}

TEST(CopyMode, FailsWhenDirectModeCannotBeLeft) {
    memory.service_takes_any = true;
    const LogCapture log;
    layer.size = 10;
    layer.switches = {-EBADF};
    testing::internal::CaptureStderr();
    EXPECT_EQ(copy(), -6);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "copy_file: Bad file descriptor\n");
    EXPECT_EQ(calls_after_opening(), joined({"fcntl source 4 0"}, GIVES_UP));
    EXPECT_EQ(log.take_messages(), Strings{line("354]-errno=" + std::to_string(EBADF))});
    layer = {};
    layer.size = 10;
    layer.switches = {0, -EBADF};
    testing::internal::CaptureStderr();
    EXPECT_EQ(copy(), -7);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "copy_file: Bad file descriptor\n");
    EXPECT_EQ(calls_after_opening(), joined({"fcntl source 4 0", "fcntl destination 4 1"}, GIVES_UP));
    EXPECT_EQ(log.take_messages(), Strings{line("371]-errno=" + std::to_string(EBADF))});
    EXPECT_EQ(memory.freed.size(), 2U);
}

// ---- The user's cancel ----

TEST(CopyCancel, RemovesThePartAndTakesTheRequestBack) {
    memory.service_takes_any = true;
    layer.size = 2 * MIB;
    layer.while_reading = [] { SetCopyCtrlStatus(1); };
    const LogCapture log;
    EXPECT_EQ(copy(-1, 1), 0);
    EXPECT_EQ(calls_after_opening(), joined(joined({"read 524288", "write 524288"}, GIVES_UP), {"unlink /d"}));
    EXPECT_EQ(log.take_messages(), Strings{"copy_file user cancel! /d"});
    EXPECT_EQ(GetCopyCtrlStatus(), 0);
}

TEST(CopyCancel, IsLeftAloneByACopyThatIsNotCancelable) {
    layer.size = 2 * MIB;
    SetCopyCtrlStatus(1);
    EXPECT_EQ(copy(-1, 0), 0);
    EXPECT_EQ(layer.written, 2 * MIB);
    EXPECT_EQ(GetCopyCtrlStatus(), 1);
}

TEST(CopyCancel, ComesTooLateAfterTheLastBlock) {
    layer.size = BLOCK;
    layer.while_reading = [] { SetCopyCtrlStatus(1); };
    EXPECT_EQ(copy(-1, 1), 0);
    EXPECT_EQ(layer.written, BLOCK);
    EXPECT_EQ(layer.calls.back(), "close destination");
    EXPECT_EQ(GetCopyCtrlStatus(), 1);  // waits for the next copy
}

TEST(CopyCancel, AfterAFailedReadStillAnswersTheFailure) {
    layer.size = 2 * MIB;
    layer.while_reading = [] { SetCopyCtrlStatus(1); };
    layer.reads = {FAILS};
    EXPECT_EQ(copy(-1, 1), -4);
    EXPECT_EQ(layer.calls.back(), "unlink /d");
}

}  // namespace

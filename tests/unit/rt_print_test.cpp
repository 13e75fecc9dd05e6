#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>

#include <atomic>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/forked.h"
#include "support/log_capture.h"
#include "support/place.h"

// Formats are what these tests are about.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

namespace velkor {
int get_msg(RtMsgBuf *buffer, char *out, int size);
}

namespace {

bool flushes_say_nothing = false;

}  // namespace

// A small C library's: the stream remembers that a write failed, its flushing does not say so.
extern "C" int fflush(FILE *stream) {
    static const auto flush = reinterpret_cast<int (*)(FILE *)>(dlsym(RTLD_NEXT, "fflush"));
    const int result = flush(stream);
    return flushes_say_nothing ? 0 : result;
}

namespace {

constexpr int SIZE = VELKOR_MESSAGE_TEXT_SIZE;
constexpr const char *MODE_FILE = "/tmp/rt_debug/mode.txt";

// A process whose working directory is /tmp, with a buffer in the first slot.
class DebugPrint : public testing::Test {
protected:
    DebugPrint() : owned_(std::make_unique<RtMsgBuf>()), buffer(*owned_) {
        EXPECT_EQ(chdir("/tmp"), 0);
        pthread_mutex_init(&buffer.lock, nullptr);
        insert_global_pointer(0, &buffer);
        g_iRtGlobalfd = 1;
    }
    ~DebugPrint() override { insert_global_pointer(0, nullptr); }

    static void switch_on() {
        EXPECT_EQ(mkdir("/tmp/rt_debug", 0755), 0);
        EXPECT_EQ(rt_JudgePrintEn(), 0);
    }

    // Each new content of the mode file is a second younger than the one before.
    void set_mode(const std::string &content) {
        place::write_file(MODE_FILE, content);
        const struct timespec times[2] = {{++mode_time_, 0}, {mode_time_, 0}};
        EXPECT_EQ(utimensat(AT_FDCWD, MODE_FILE, times, 0), 0);
        EXPECT_EQ(rt_JudgePrintEn(), 0);
    }

    // Whether a tag's line is kept.
    bool keeps(const char *tag) {
        const int32_t before = buffer.write_position;
        const int result = Rt_PrintfNoGlobalfd(tag, "x");
        const bool is_kept = buffer.write_position != before;
        EXPECT_EQ(result, 0);
        return is_kept;
    }

    // What is behind the stamp.
    std::string text() const {
        const std::string all(buffer.text);
        return all.substr(all.find(']') + 1);
    }

    static std::string read_back(char fill = '?') {
        std::string out(SIZE, fill);
        EXPECT_EQ(get_msg0(out.data(), SIZE), 0);
        return out;
    }

    std::unique_ptr<RtMsgBuf> owned_;
    RtMsgBuf &buffer;
    time_t mode_time_ = 1000000000;
};

TEST_F(DebugPrint, FindsTheFirstSlotWithoutABuffer) {
    EXPECT_EQ(find_empty_pointer(), 1);
    for (unsigned slot = 1; slot < VELKOR_MESSAGE_SLOTS; ++slot) {
        insert_global_pointer(slot, &buffer);
    }
    EXPECT_EQ(find_empty_pointer(), -1);
    insert_global_pointer(3, nullptr);
    EXPECT_EQ(find_empty_pointer(), 3);
}

TEST_F(DebugPrint, IgnoresASlotThatIsNone) {
    insert_global_pointer(8, &buffer);
    insert_global_pointer(~0U, &buffer);
    EXPECT_EQ(find_empty_pointer(), 1);
}

TEST_F(DebugPrint, StampsALineWithLocalTimeAndThread) {
    switch_on();
    EXPECT_EQ(rt_printf(1, "disk %d is %s", 3, "full"), 0);
    const std::string thread = std::to_string(syscall(SYS_gettid));
    const std::regex form("\\[\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d " + thread + "\\]disk 3 is full\r\n");
    EXPECT_TRUE(std::regex_match(buffer.text, form)) << buffer.text;
    EXPECT_EQ(buffer.write_position, static_cast<int32_t>(strlen(buffer.text)));
}

TEST_F(DebugPrint, StampsAForkedChildsLinesWithItsOwnThread) {
    switch_on();
    rt_printf(1, "parent");
    const pid_t child = fork();
    if (child == 0) {
        buffer.write_position = 0;
        rt_printf(1, "child");
        _exit(std::string(buffer.text).find(" " + std::to_string(getpid()) + "]child") != std::string::npos ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// The owner of a buffer, or a thread that prints, may hold its lock while another thread forks.
TEST_F(DebugPrint, KeepsLinesInAChildForkedWhileABufferIsLocked) {
    switch_on();
    insert_global_pointer(1, &buffer);
    rt_printf(1, "before");
    std::atomic<bool> is_held{false};
    std::atomic<bool> release{false};
    std::thread holder([&] {
        pthread_mutex_lock(&buffer.lock);
        buffer.text[buffer.write_position] = '?';  // in the midst of a line
        is_held = true;
        release.wait(false);
        buffer.text[buffer.write_position] = '\0';
        pthread_mutex_unlock(&buffer.lock);
    });
    EXPECT_TRUE(place::eventually([&] { return is_held.load(); }));
    EXPECT_TRUE(forked::succeeds([] {
        const bool is_whole = read_back().find("before\r\n") + 8 == strlen(read_back().c_str());
        return is_whole && rt_printf(1, "in the child") == 0 && rt_printf(2, "%s", "again") == 0 &&
               read_back().find("in the child\r\n[") != std::string::npos;
    }));
    release = true;
    release.notify_one();
    holder.join();
    insert_global_pointer(1, nullptr);
}

// A process that looks after the fork itself holds the lock meanwhile.
TEST_F(DebugPrint, ForksWhileTheForkingThreadHoldsABuffer) {
    switch_on();
    pthread_mutex_lock(&buffer.lock);
    EXPECT_TRUE(forked::succeeds([&] {
        pthread_mutex_unlock(&buffer.lock);
        return rt_printf(1, "in the child") == 0 && read_back().find("in the child\r\n") != std::string::npos;
    }));
    pthread_mutex_unlock(&buffer.lock);
    EXPECT_EQ(rt_printf(1, "in the parent"), 0);
}

TEST_F(DebugPrint, KeepsLinesInTheChildrenOfABusyFork) {
    switch_on();
    const auto print = [] { return rt_printf(1, "line") == 0; };
    EXPECT_EQ(forked::first_that_fails(60, print, print), -1);
}

TEST_F(DebugPrint, FixesTheEndOfALine) {
    switch_on();
    const struct {
        const char *format;
        const char *kept;
    } lines[] = {{"a", "a\r\n"},     {"a\n", "a\n\r"}, {"a\r\n", "a\r\n"}, {"a\r", "a\r\n"},
                 {"a\n\r", "a\n\r"}, {"", "\r\n"},     {"\n", "\n\r"},     {"\r", "\r\n"}};
    for (const auto &line : lines) {
        buffer.write_position = 0;
        rt_printf(1, line.format);
        EXPECT_EQ(text(), line.kept);
    }
}

TEST_F(DebugPrint, CutsALineAt4093CharactersBeforeItsEnd) {
    switch_on();
    rt_printf(1, "%s", "");
    const size_t prefix = strlen(buffer.text) - 2;
    for (const char *const format : {"%s", "%1s"}) {  // by both formatters
        for (const size_t length : {4092 - prefix, 4093 - prefix, 4094 - prefix, size_t{9000}}) {
            buffer.write_position = 0;
            const std::string message(length, 'm');
            rt_printf(1, format, message.c_str());
            const size_t kept = std::min(length, 4093 - prefix);
            EXPECT_EQ(text(), std::string(kept, 'm') + "\r\n") << length;
        }
        buffer.write_position = 0;
        rt_printf(1, format, (std::string(4092 - prefix, 'm') + "\nmore").c_str());
        EXPECT_EQ(text(), std::string(4092 - prefix, 'm') + "\n\r");
    }
}

TEST_F(DebugPrint, EndsALineAtAZeroThatTheFormatPrinted) {
    switch_on();
    EXPECT_EQ(rt_printf(1, "a%cb", 0), 0);
    EXPECT_EQ(text(), "a");
    EXPECT_EQ(buffer.write_position, static_cast<int32_t>(strlen(buffer.text)));
}

TEST_F(DebugPrint, PrintsANullFormatAsNothing) {
    switch_on();
    const char *volatile nothing = nullptr;
    EXPECT_EQ(rt_printf(1, nothing), 0);
    EXPECT_EQ(text(), "\r\n");
}

TEST_F(DebugPrint, GoesToTheLogWhereItCannotBeKept) {
    const LogCapture log;
    EXPECT_EQ(rt_printf(1, "off\n"), 0);
    switch_on();
    EXPECT_EQ(rt_printf(0, "no channel"), 0);
    EXPECT_EQ(rt_printf(9, "no channel"), 0);
    EXPECT_EQ(rt_printf(2, "no buffer"), 0);
    EXPECT_EQ(buffer.write_position, 0);
    const std::vector<std::string> messages = log.take_messages();
    ASSERT_EQ(messages.size(), 4U);
    EXPECT_TRUE(messages[0].starts_with("[20")) << messages[0];  // keeps its own stamp
    EXPECT_TRUE(messages[0].ends_with("]off  ")) << messages[0];
    EXPECT_TRUE(messages[3].ends_with("]no buffer  "));
    EXPECT_EQ(rt_printf(1, "kept"), 0);
    EXPECT_TRUE(log.take_lines().empty());
}

TEST_F(DebugPrint, AnswersZeroWithoutALogAndTheLogsAnswerWithOne) {
    EXPECT_EQ(rt_printf(1, "off"), 0);
    const LogCapture log("invert=dropped\n");
    EXPECT_EQ(rt_printf(1, "dropped"), -1);
}

TEST_F(DebugPrint, DropsALineThatDoesNotFitWhenItMayNotWrap) {
    switch_on();
    buffer.write_position = SIZE - 1 - 20;
    memset(buffer.text, 'o', SIZE);
    EXPECT_EQ(rt_printf(1, "longer than twenty"), 0);
    EXPECT_EQ(buffer.write_position, SIZE - 1 - 20);
    EXPECT_EQ(buffer.text[SIZE - 1 - 20], '\0');
    EXPECT_EQ(buffer.text[SIZE - 20], 'o');
    EXPECT_EQ(buffer.text[SIZE - 1], '\0');
    EXPECT_EQ(RtMsgEx_gFlag(&buffer, 0), 0);
}

TEST_F(DebugPrint, FillsABufferToItsLastCharacter) {
    switch_on();
    rt_printf(1, "%s", "");
    const int32_t length = buffer.write_position;
    buffer.write_position = SIZE - 1 - length;
    memset(buffer.text, 'o', SIZE);
    rt_printf(1, "%s", "");
    EXPECT_EQ(buffer.write_position, SIZE - 1);
    EXPECT_EQ(buffer.text[SIZE - 1], '\0');
    EXPECT_EQ(strlen(buffer.text), static_cast<size_t>(SIZE - 1));
}

TEST_F(DebugPrint, WrapsAndReadsTheOlderRemainderBeforeTheNewest) {
    switch_on();
    RtMsgEx_sFlag(&buffer, 1, 1);
    memset(buffer.text, 'o', SIZE - 1);
    buffer.write_position = SIZE - 1;
    EXPECT_EQ(rt_printf(1, "newest"), 0);
    EXPECT_EQ(RtMsgEx_gFlag(&buffer, 0), 1);
    EXPECT_TRUE(text().starts_with("newest\r\n"));
    const std::string newest(buffer.text);
    EXPECT_EQ(buffer.write_position, static_cast<int32_t>(newest.size()));
    const std::string out = read_back();
    const std::string older(static_cast<size_t>(SIZE - 1) - newest.size() - 1, 'o');
    EXPECT_STREQ(out.c_str(), (older + newest).c_str());
    EXPECT_EQ(out.back(), '\0');
}

TEST_F(DebugPrint, ReadsAWrappedBufferWhosePositionIsTheLastByte) {
    RtMsgEx_sFlag(&buffer, 0, 1);
    memset(buffer.text, 'n', SIZE - 1);
    buffer.write_position = SIZE - 1;
    EXPECT_STREQ(read_back().c_str(), std::string(SIZE - 1, 'n').c_str());
}

TEST_F(DebugPrint, StaysInsideABufferThatItsOwnerSpoilt) {
    switch_on();
    for (const int32_t position : {-1, SIZE, INT32_MIN, INT32_MAX}) {
        memset(buffer.text, 'o', SIZE);
        buffer.flags = 0;
        buffer.write_position = position;
        rt_printf(1, "dropped");
        buffer.text[SIZE - 1] = 'o';
        EXPECT_EQ(read_back().size(), static_cast<size_t>(SIZE));
        buffer.flags = 1;
        EXPECT_EQ(read_back().back(), '\0');
    }
}

TEST_F(DebugPrint, ClearsWhatIsBehindTheTextUpToTheEndOfTheCallersBuffer) {
    strcpy(buffer.text, "text");
    std::string out(SIZE + 100, '?');
    EXPECT_EQ(get_msg0(out.data(), SIZE + 100), 0);
    EXPECT_EQ(out, "text" + std::string(SIZE + 96, '\0'));
}

TEST_F(DebugPrint, WantsRoomForAWholeBuffer) {
    std::string out(SIZE, '?');
    EXPECT_EQ(get_msg0(out.data(), SIZE - 1), -1);
    EXPECT_EQ(get_msg0(out.data(), -1), -1);
    EXPECT_EQ(out, std::string(SIZE, '?'));
}

TEST_F(DebugPrint, ReadsNothingFromASlotWithoutABuffer) {
    char untouched = '?';
    int (*const readers[])(char *, int) = {get_msg1, get_msg2, get_msg3, get_msg4, get_msg5, get_msg6, get_msg7};
    for (const auto reader : readers) {
        EXPECT_EQ(reader(&untouched, SIZE), 0);
    }
    EXPECT_EQ(untouched, '?');
    for (unsigned slot = 1; slot < VELKOR_MESSAGE_SLOTS; ++slot) {
        insert_global_pointer(slot, &buffer);
        EXPECT_EQ(readers[slot - 1](nullptr, SIZE), -2);
    }
}

TEST_F(DebugPrint, ReportsMissingArgumentsOfAReading) {
    EXPECT_EQ(get_msg0(nullptr, SIZE), -2);  // also without a stream
    char *report = nullptr;
    size_t length = 0;
    fpDebugFile = open_memstream(&report, &length);
    EXPECT_EQ(get_msg0(nullptr, 0), -2);
    EXPECT_EQ(velkor::get_msg(nullptr, nullptr, SIZE), -1);
    fclose(fpDebugFile);
    fpDebugFile = nullptr;
    const std::string text(report, length);
    free(report);
    EXPECT_NE(text.find("src/rt_print: 444: get_msg: Assertion '_strBuf != NULL' failed.\r\n"), std::string::npos);
    EXPECT_NE(text.find("src/rt_print: 443: get_msg: Assertion '_pst != NULL' failed.\r\n"), std::string::npos);
}

// ---- The switch and the mode file ----

TEST_F(DebugPrint, IsOnWhileItsDirectoryExists) {
    EXPECT_EQ(g_iRtPrintEn, 0);
    EXPECT_EQ(rt_JudgePrintEn(), 0);
    EXPECT_EQ(g_iRtPrintEn, 0);
    switch_on();
    EXPECT_EQ(g_iRtPrintEn, 1);
    EXPECT_EQ(rmdir("/tmp/rt_debug"), 0);
    EXPECT_EQ(rt_JudgePrintEn(), 0);
    EXPECT_EQ(g_iRtPrintEn, 0);
}

TEST_F(DebugPrint, KeepsEveryTagWithoutAModeFile) {
    EXPECT_EQ(Rt_PrintfNoGlobalfd("alarm", "x"), 0);  // no tag matches before the first look
    switch_on();
    EXPECT_TRUE(keeps("alarm"));
    EXPECT_TRUE(keeps(nullptr));
}

TEST_F(DebugPrint, KeepsTheTagsThatOccurInTheModeFile) {
    switch_on();
    set_mode("alarm disk");
    EXPECT_TRUE(keeps("alarm"));
    EXPECT_TRUE(keeps("disk"));
    EXPECT_TRUE(keeps("arm d"));
    EXPECT_TRUE(keeps(""));
    EXPECT_FALSE(keeps("alarms"));
    EXPECT_FALSE(keeps(nullptr));
    set_mode("net");  // shorter: nothing of the text before is left
    EXPECT_TRUE(keeps("net"));
    EXPECT_FALSE(keeps("disk"));
}

TEST_F(DebugPrint, AnswersTheMatchWhenNothingIsKept) {
    switch_on();
    set_mode("alarm");
    g_iRtGlobalfd = 0;
    EXPECT_EQ(Rt_PrintfNoGlobalfd("alarm", "x"), 1);
    EXPECT_EQ(Rt_PrintfNoGlobalfd("disk", "x"), 0);
    g_iRtGlobalfd = 9;
    EXPECT_EQ(Rt_PrintfNoGlobalfd("alarm", "x"), 1);
    g_iRtGlobalfd = 2;
    EXPECT_EQ(Rt_PrintfNoGlobalfd("alarm", "x"), 1);
    g_iRtGlobalfd = 1;
    g_iRtPrintEn = 0;
    EXPECT_EQ(Rt_PrintfNoGlobalfd("alarm", "x"), 1);
    EXPECT_EQ(buffer.write_position, 0);
}

TEST_F(DebugPrint, ReadsTheModeFileOnlyWhenItsTimeChanged) {
    switch_on();
    set_mode("alarm");
    place::write_file(MODE_FILE, "disk");
    const struct timespec times[2] = {{mode_time_, 0}, {mode_time_, 0}};
    EXPECT_EQ(utimensat(AT_FDCWD, MODE_FILE, times, 0), 0);
    rt_JudgePrintEn();
    EXPECT_FALSE(keeps("disk"));
    // Not even after it was away: every tag matches from then on.
    EXPECT_EQ(rename(MODE_FILE, "/tmp/away"), 0);
    rt_JudgePrintEn();
    EXPECT_EQ(rename("/tmp/away", MODE_FILE), 0);
    rt_JudgePrintEn();
    EXPECT_TRUE(keeps("anything"));
    set_mode("net");
    EXPECT_FALSE(keeps("anything"));
}

TEST_F(DebugPrint, NeverReadsAModeFileOfTheFirstSecondOf1970) {
    switch_on();
    mode_time_ = -1;
    set_mode("alarm");
    EXPECT_TRUE(keeps("disk"));
}

TEST_F(DebugPrint, TriesAModeFileThatCannotBeOpenedOnlyOnce) {
    switch_on();
    set_mode("alarm");
    EXPECT_EQ(unlink(MODE_FILE), 0);
    EXPECT_EQ(mkdir(MODE_FILE, 0755), 0);  // cannot be opened for writing
    rt_JudgePrintEn();
    EXPECT_TRUE(keeps("alarm"));
    EXPECT_FALSE(keeps("disk"));
}

TEST_F(DebugPrint, DoesNotWaitForAModeFileThatIsAFifo) {
    switch_on();
    ASSERT_EQ(mkfifo(MODE_FILE, 0666), 0);
    EXPECT_TRUE(forked::succeeds([&] {
        rt_JudgePrintEn();
        return !keeps("alarm");
    }));
}

TEST_F(DebugPrint, DoesNotLeaveItsModeFileToACommandByABusyFork) {
    switch_on();
    set_mode("alarm");
    EXPECT_EQ(forked::commands_that_hold(MODE_FILE,
                                         [&] {
                                             const struct timespec times[2] = {{++mode_time_, 0}, {mode_time_, 0}};
                                             utimensat(AT_FDCWD, MODE_FILE, times, 0);
                                             rt_JudgePrintEn();
                                         }),
              0);
}

TEST_F(DebugPrint, TakesTagsFrom128BytesWithoutAnEnd) {
    switch_on();
    set_mode(std::string(125, '-') + "abcdef");
    EXPECT_TRUE(keeps("-abc"));
    EXPECT_FALSE(keeps("abcd"));
}

// ---- The live copy ----

TEST_F(DebugPrint, CopiesMatchingLinesLive) {
    place::Terminal terminal;
    switch_on();
    set_mode(terminal.path() + ":alarm:ignored");
    EXPECT_TRUE(keeps("alarm"));
    EXPECT_FALSE(keeps("disk"));
    EXPECT_FALSE(keeps("ignored"));
    EXPECT_EQ(Rt_PrintfNoGlobalfd("alarm", "the end"), 0);
    const std::string shown = terminal.read_until("the end\r\n");
    EXPECT_EQ(shown, buffer.text);
    rt_printf(1, "never copied");
    struct pollfd waiting = {terminal.descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&waiting, 1, 0), 0);
}

TEST_F(DebugPrint, AnswersTheFailedFlushOfALineThatIsKeptAllTheSame) {
    switch_on();
    set_mode("/dev/full:/dev/pts/x");
    EXPECT_EQ(Rt_PrintfNoGlobalfd("/dev/pts/x", "kept"), EOF);
    EXPECT_EQ(text(), "kept\r\n");
}

TEST_F(DebugPrint, AnswersAFailureThatOnlyTheStreamRemembers) {
    switch_on();
    flushes_say_nothing = true;
    set_mode("/dev/full:/dev/pts/x");
    EXPECT_EQ(Rt_PrintfNoGlobalfd("/dev/pts/x", "kept"), EOF);
    place::Terminal terminal;
    set_mode(terminal.path() + ":alarm");
    EXPECT_EQ(Rt_PrintfNoGlobalfd("alarm", "shown"), 0);
    flushes_say_nothing = false;
}

TEST_F(DebugPrint, KeepsTheLiveCopyWithoutAModeFileAndWithOneThatNamesNoTerminal) {
    place::Terminal terminal;
    switch_on();
    set_mode(terminal.path() + ":alarm");
    EXPECT_EQ(unlink(MODE_FILE), 0);
    rt_JudgePrintEn();
    EXPECT_TRUE(keeps("disk"));
    EXPECT_TRUE(terminal.read_until("x\r\n").ends_with("]x\r\n"));
    set_mode("net");
    EXPECT_TRUE(keeps("net"));
    EXPECT_TRUE(terminal.read_until("x\r\n").ends_with("]x\r\n"));
}

TEST_F(DebugPrint, EndsTheLiveCopyWithItsDirectory) {
    place::Terminal terminal;
    switch_on();
    set_mode(terminal.path() + ":alarm");
    EXPECT_EQ(rename("/tmp/rt_debug", "/tmp/away"), 0);
    rt_JudgePrintEn();
    EXPECT_EQ(rename("/tmp/away", "/tmp/rt_debug"), 0);
    rt_JudgePrintEn();  // the file is as old as before: not read again
    EXPECT_TRUE(keeps("alarm"));
    struct pollfd waiting = {terminal.descriptor(), POLLIN, 0};
    poll(&waiting, 1, 0);
    EXPECT_EQ(waiting.revents & POLLIN, 0);
}

TEST_F(DebugPrint, HasNoLiveCopyWithoutBothFields) {
    place::Terminal terminal;
    switch_on();
    set_mode("alarm");
    set_mode(terminal.path() + ":");
    EXPECT_FALSE(keeps("alarm"));
    EXPECT_TRUE(keeps("/dev/pts"));  // the first field is what tags are looked for in
    struct pollfd waiting = {terminal.descriptor(), POLLIN, 0};
    poll(&waiting, 1, 0);
    EXPECT_EQ(waiting.revents & POLLIN, 0);
}

TEST_F(DebugPrint, TakesTheTagsOfATerminalThatCannotBeOpened) {
    switch_on();
    set_mode("alarm");
    set_mode("/dev/pts/none:disk");
    EXPECT_TRUE(keeps("disk"));
    EXPECT_FALSE(keeps("alarm"));
    EXPECT_EQ(unlink(MODE_FILE), 0);
    rt_JudgePrintEn();  // every tag matches
    set_mode("/dev/pts/none:net");
    EXPECT_TRUE(keeps("alarm"));  // and still does: only an open terminal ends that
}

TEST_F(DebugPrint, TakesALongSecondFieldOutOfTheSameBuffer) {
    place::Terminal terminal;
    switch_on();
    const std::string tags(200, 't');
    set_mode(terminal.path() + ":" + tags);
    const size_t kept = 128 - terminal.path().size() - 1;
    EXPECT_TRUE(keeps(tags.substr(0, kept).c_str()));
    EXPECT_FALSE(keeps(tags.substr(0, kept + 1).c_str()));
}

TEST_F(DebugPrint, OpensWhateverTheFirstFieldNames) {
    switch_on();
    set_mode("/tmp/live:/dev/pts/x");
    EXPECT_TRUE(keeps("/dev/pts/x"));
    EXPECT_TRUE(place::read_file("/tmp/live").ends_with("]x\r\n"));
}

TEST_F(DebugPrint, LetsTerminalsBuffersAndTagsChangeWhileOthersPrint) {
    const auto other = std::make_unique<RtMsgBuf>();
    pthread_mutex_init(&other->lock, nullptr);
    switch_on();
    std::atomic<bool> stop{false};
    std::vector<std::thread> printers;
    for (int i = 0; i < 3; ++i) {
        printers.emplace_back([&] {
            std::string out(SIZE, '?');
            while (!stop) {
                Rt_PrintfNoGlobalfd("tag", "line %d", 1);
                rt_printf(1, "line %s", "two");
                get_msg0(out.data(), SIZE);
            }
        });
    }
    for (int i = 0; i < 40; ++i) {
        RtMsgBuf *const next = i % 2 == 0 ? other.get() : &buffer;
        {
            pthread_mutex_lock(&next->lock);
            next->write_position = 0;
            pthread_mutex_unlock(&next->lock);
        }
        insert_global_pointer(0, next);
        set_mode(i % 3 == 0 ? "tag" : "/tmp/live/dev/pts/:tag");
    }
    EXPECT_TRUE(place::eventually([] { return read_back().find("line") != std::string::npos; }));
    stop = true;
    for (std::thread &printer : printers) {
        printer.join();
    }
}

}  // namespace

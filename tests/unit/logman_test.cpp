#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <velkor/diagnostics.h>
#include <velkor_host.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/forked.h"
#include "support/log_capture.h"
#include "support/place.h"
#include "support/platform.h"

namespace {

constexpr const char *SWITCH_FILE = "/dvrfile/logman";
constexpr const char *TERMINAL = "/tmp/tty.logman";
constexpr size_t SLOT_SIZE = VELKOR_LOGMAN_SLOT_SIZE;

int log_text(const char *text) { return vk_printftomem(0, "test", 0, "%s", text); }

bool keeps(const char *line) {
    std::string copy = line;
    return logman_match_filter(copy.data()) == 1;
}

std::string slot(const char *list, unsigned index) { return list + index * SLOT_SIZE; }

// Reads a configuration as a process does that finds the file newly there.
void appear(const std::string &content) {
    unlink(SWITCH_FILE);
    EXPECT_EQ(vk_OutLogToLogmanEnable(), -1);
    place::write_file(SWITCH_FILE, content);
    EXPECT_EQ(vk_OutLogToLogmanEnable(), 0);
}

// Whether a line gets past the print flag: with no terminal it is accepted and stored nowhere.
bool prints() { return log_text("x") == 0; }

// ---- The switch ----

TEST(LogSwitch, IsOffWithoutItsFile) {
    EXPECT_EQ(vk_OutLogToLogmanEnable(), -1);
    EXPECT_EQ(vk_GetLogmanEnable(), 0);
    EXPECT_EQ(log_text("x"), -1);
}

TEST(LogSwitch, IsOffBeforeAnybodyLooked) {
    place::write_file(SWITCH_FILE, "dbgprint=1\n");
    EXPECT_EQ(vk_GetLogmanEnable(), 0);
    EXPECT_EQ(log_text("x"), -1);
}

TEST(LogSwitch, EnablesWithPrintingOffAndRefusesEveryLine) {
    appear("dbgprint=0\n");
    EXPECT_EQ(vk_GetLogmanEnable(), 1);
    EXPECT_EQ(log_text("x"), -1);
    EXPECT_EQ(log_text("y"), -1);
}

TEST(LogSwitch, EnablesWithAnEmptyFile) {
    appear("");
    EXPECT_EQ(vk_GetLogmanEnable(), 1);
    EXPECT_EQ(log_text("x"), -1);
}

TEST(LogSwitch, DoesNotReadAFileThatItKnows) {
    appear("dbgprint=0\n");
    place::write_file(SWITCH_FILE, "dbgprint=1\n");
    EXPECT_EQ(vk_OutLogToLogmanEnable(), -1);
    EXPECT_FALSE(prints());
    appear("dbgprint=1\n");
    EXPECT_TRUE(prints());
}

TEST(LogSwitch, GoesOffWithTheFileAndKeepsTheRest) {
    appear("dbgprint=1\nfilter=abc\n");
    unlink(SWITCH_FILE);
    EXPECT_EQ(vk_GetLogmanEnable(), 1);  // until somebody looks
    EXPECT_EQ(vk_OutLogToLogmanEnable(), -1);
    EXPECT_EQ(vk_GetLogmanEnable(), 0);
    EXPECT_EQ(slot(g_logman_filter, 0), "abc");
}

TEST(LogSwitch, EnablesWithAFileThatCannotBeOpened) {
    // stat() sees a socket, open() refuses it, also to root.
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, SWITCH_FILE);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<struct sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(vk_OutLogToLogmanEnable(), 0);
    EXPECT_EQ(vk_GetLogmanEnable(), 1);
    EXPECT_EQ(log_text("x"), -1);
    close(descriptor);
    appear("dbgprint=1\n");
    EXPECT_TRUE(prints());
}

TEST(LogSwitch, ReadingWithoutTheFileStopsPrintingAndKeepsTheTexts) {
    appear("dbgprint=1\nfilter=abc\ninvert=def\n");
    unlink(SWITCH_FILE);
    EXPECT_EQ(logman_read_config(), -1);
    EXPECT_EQ(vk_GetLogmanEnable(), 1);
    EXPECT_EQ(log_text("abc"), -1);
    EXPECT_EQ(slot(g_logman_filter, 0), "abc");
    EXPECT_EQ(slot(g_logman_invert, 0), "def");
}

TEST(LogSwitch, ReadsAtOnceWhenAsked) {
    appear("dbgprint=0\n");
    place::write_file(SWITCH_FILE, "dbgprint=1\n");
    EXPECT_EQ(logman_read_config(), 0);
    EXPECT_TRUE(prints());
}

// A FIFO has nothing to say until somebody writes to it, and the draining thread must not wait for that.
TEST(LogSwitch, DoesNotWaitForAFifo) {
    ASSERT_EQ(mkfifo(SWITCH_FILE, 0666), 0);
    const auto switches_on = [] {
        return vk_OutLogToLogmanEnable() == 0 && vk_GetLogmanEnable() == 1 && log_text("x") == -1;
    };
    EXPECT_TRUE(forked::succeeds(switches_on));
    const int silent_writer = open(SWITCH_FILE, O_RDWR | O_CLOEXEC);
    EXPECT_TRUE(forked::succeeds(switches_on));
    EXPECT_EQ(write(silent_writer, "dbgprint=1\n", 11), 11);
    EXPECT_EQ(logman_read_config(), 0);
    EXPECT_TRUE(log_text("x") == -1 && vk_OutLogToLogmanEnable() == 0 && !prints());
    close(silent_writer);
}

TEST(LogSwitch, IsNotLeftToACommandByABusyFork) {
    place::write_file(SWITCH_FILE, "dbgprint=1\n");
    EXPECT_EQ(forked::commands_that_hold(SWITCH_FILE, [] { logman_read_config(); }), 0);
}

TEST(LogSwitch, OneOfManyThreadsSwitchesOn) {
    place::write_file(TERMINAL, "");
    place::write_file(SWITCH_FILE, "dbgprint=1\n");
    std::atomic<int> winners{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] { winners += vk_OutLogToLogmanEnable() == 0 ? 1 : 0; });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(winners, 1);
    struct velkor_host_ring ring;
    EXPECT_EQ(velkor_host_ring_get(1, &ring), 0);
    EXPECT_EQ(velkor_host_ring_get(2, &ring), -1);
}

// ---- The lines of the file ----

TEST(LogConfig, MatchesThreeLettersOfThePrintKey) {
    appear("dbgXYZ=5\n");
    EXPECT_TRUE(prints());
    appear("dbg=5\n");
    EXPECT_TRUE(prints());
    appear("db=5\n");
    EXPECT_FALSE(prints());
}

TEST(LogConfig, TakesTheLastPrintValue) {
    appear("dbgprint=1\ndbgprint=0\n");
    EXPECT_FALSE(prints());
    appear("dbgprint=0\ndbgprint=-1\n");
    EXPECT_TRUE(prints());
}

TEST(LogConfig, CutsThePrintValueTo32Bits) {
    appear("dbgprint=4294967296\n");
    EXPECT_FALSE(prints());
    appear("dbgprint=4294967297\n");
    EXPECT_TRUE(prints());
    appear("dbgprint=99999999999999999999\n");  // clamped to the largest 64-bit number, whose low half is -1
    EXPECT_TRUE(prints());
}

TEST(LogConfig, MatchesSixLettersOfTheOtherKeys) {
    appear("filterA=x\ninvertible thing=y\n");
    EXPECT_EQ(slot(g_logman_filter, 0), "x");
    EXPECT_EQ(slot(g_logman_invert, 0), "y");
}

TEST(LogConfig, KnowsKeysOnlyAtTheStartOfTheLine) {
    appear(" filter=x\n\tdbgprint=1\n# invert=y\n");
    EXPECT_EQ(slot(g_logman_filter, 0), "");
    EXPECT_EQ(slot(g_logman_invert, 0), "");
    EXPECT_FALSE(prints());
}

TEST(LogConfig, IgnoresLinesWithoutEquals) {
    appear("dbgprint\nfilter\n\nfilter=x\n");
    EXPECT_EQ(slot(g_logman_filter, 0), "x");
}

TEST(LogConfig, KeepsBlanksAndFurtherEqualsOfAValue) {
    appear("filter = a=b \n");
    EXPECT_EQ(slot(g_logman_filter, 0), " a=b ");
}

TEST(LogConfig, CutsAtTheFirstCarriageReturn) {
    appear("filter=ab\rcd\r\ninvert=ef\r\ndbgprint=1\r\n");
    EXPECT_EQ(slot(g_logman_filter, 0), "ab");
    EXPECT_EQ(slot(g_logman_invert, 0), "ef");
}

TEST(LogConfig, ReadsALastLineWithoutNewline) {
    appear("filter=last");
    EXPECT_EQ(slot(g_logman_filter, 0), "last");
}

TEST(LogConfig, IgnoresANinthText) {
    std::string content;
    for (int i = 0; i < 10; ++i) {
        content += "filter=f" + std::to_string(i) + "\ninvert=i" + std::to_string(i) + "\n";
    }
    appear(content);
    for (unsigned i = 0; i < 8; ++i) {
        EXPECT_EQ(slot(g_logman_filter, i), "f" + std::to_string(i));
        EXPECT_EQ(slot(g_logman_invert, i), "i" + std::to_string(i));
    }
}

TEST(LogConfig, AnEmptyValueTakesItsSlot) {
    appear("filter=\nfilter=second\n");
    EXPECT_EQ(slot(g_logman_filter, 0), "");
    EXPECT_EQ(slot(g_logman_filter, 1), "second");
    std::string content;
    for (int i = 0; i < 8; ++i) {
        content += "invert=\n";
    }
    appear(content + "invert=ninth\n");
    EXPECT_TRUE(keeps("ninth"));
}

TEST(LogConfig, CutsATextAt255) {
    const std::string text(300, 'x');
    appear("filter=" + text + "\ninvert=" + text + "\n");
    EXPECT_EQ(slot(g_logman_filter, 0), text.substr(0, 255));
    EXPECT_EQ(slot(g_logman_invert, 0), text.substr(0, 255));
    EXPECT_EQ(slot(g_logman_filter, 1), "");
}

TEST(LogConfig, ReadsAnOverlongLineInPieces) {
    // 1022 characters, then the rest as a line of its own.
    const std::string filler(1022 - strlen("filter="), 'x');
    appear("filter=" + filler + "invert=rest\n");
    EXPECT_EQ(slot(g_logman_filter, 0), filler.substr(0, 255));
    EXPECT_EQ(slot(g_logman_invert, 0), "rest");
}

TEST(LogConfig, ForgetsTheTextsOfTheFormerFile) {
    appear("filter=a\nfilter=b\ninvert=c\n");
    appear("filter=d\n");
    EXPECT_EQ(slot(g_logman_filter, 0), "d");
    EXPECT_EQ(std::string(g_logman_filter + 256, 2048 - 256), std::string(2048 - 256, '\0'));
    EXPECT_EQ(std::string(g_logman_invert, 2048), std::string(2048, '\0'));
}

// ---- The texts ----

TEST(LogFilter, KeepsEverythingWithoutTexts) {
    EXPECT_TRUE(keeps(""));
    EXPECT_TRUE(keeps("anything"));
}

TEST(LogFilter, DropsNull) { EXPECT_EQ(logman_match_filter(nullptr), 0); }

TEST(LogFilter, KeepsALineWithOneOfTheTexts) {
    logman_set_filter(0, "foo");
    logman_set_filter(5, "bar");
    EXPECT_TRUE(keeps("a bar b"));
    EXPECT_TRUE(keeps("foo"));
    EXPECT_FALSE(keeps("ba r"));
    EXPECT_FALSE(keeps(""));
}

TEST(LogFilter, AnExclusionAlwaysWins) {
    logman_set_filter(0, "foo");
    logman_set_filter(1, "bar");
    logman_set_invert(7, "bar");
    EXPECT_FALSE(keeps("bar"));
    EXPECT_FALSE(keeps("foobar"));
    EXPECT_TRUE(keeps("foo"));
}

TEST(LogFilter, ExclusionsAloneKeepTheRest) {
    logman_set_invert(2, "noise");
    EXPECT_FALSE(keeps("some noise here"));
    EXPECT_TRUE(keeps("signal"));
}

TEST(LogFilter, MatchesATextOf255Characters) {
    const std::string text(255, 'x');
    logman_set_filter(0, (text + "tail").c_str());
    EXPECT_TRUE(keeps(("a" + text).c_str()));
    EXPECT_FALSE(keeps(std::string(254, 'x').c_str()));
}

TEST(LogFilter, SettersAnswerZeroAndIgnoreOtherIndexes) {
    EXPECT_EQ(logman_set_filter(8, "x"), 0);
    EXPECT_EQ(logman_set_filter(0xffffffff, "x"), 0);
    EXPECT_EQ(logman_set_invert(8, "x"), 0);
    EXPECT_EQ(logman_set_invert(0xffffffff, "x"), 0);
    EXPECT_EQ(std::string(g_logman_filter, 2048), std::string(2048, '\0'));
    EXPECT_EQ(std::string(g_logman_invert, 2048), std::string(2048, '\0'));
}

TEST(LogFilter, NullEmptiesAFilterButNotAnExclusion) {
    logman_set_filter(3, "kept");
    logman_set_invert(3, "kept");
    EXPECT_EQ(logman_set_filter(3, nullptr), 0);
    EXPECT_EQ(logman_set_invert(3, nullptr), 0);
    EXPECT_EQ(slot(g_logman_filter, 3), "");
    EXPECT_EQ(slot(g_logman_invert, 3), "kept");
}

TEST(LogFilter, AShorterTextLeavesNothingOfTheLonger) {
    logman_set_filter(1, "a long text");
    logman_set_filter(1, "ab");
    EXPECT_EQ(std::string(g_logman_filter + 256, 256), "ab" + std::string(254, '\0'));
}

TEST(LogFilter, SeesTextsThatAProgramPutThereItself) {
    strcpy(g_logman_filter + 4 * SLOT_SIZE, "own");
    EXPECT_TRUE(keeps("my own line"));
    EXPECT_FALSE(keeps("another"));
}

TEST(LogFilter, IsNeverSeenHalfChanged) {
    // Each of the two texts is in each line: whatever a reader meets, before or after, it keeps the line; an emptied
    // or a half-written slot would drop it.
    const std::string first(200, 'a');
    const std::string second(255, 'b');
    const std::string line = first + second;
    logman_set_filter(0, first.c_str());
    std::atomic<bool> stop{false};
    std::thread changer([&] {
        while (!stop) {
            logman_set_filter(0, second.c_str());
            logman_set_filter(0, first.c_str());
        }
    });
    int dropped = 0;
    for (int i = 0; i < 20000; ++i) {
        dropped += keeps(line.c_str()) ? 0 : 1;
    }
    stop = true;
    changer.join();
    EXPECT_EQ(dropped, 0);
}

TEST(LogFilter, IsNeverSeenBetweenTwoFiles) {
    // Either file drops the line; lists that are empty for a moment would keep it.
    place::write_file(SWITCH_FILE, "dbgprint=0\nfilter=wanted\n");
    ASSERT_EQ(logman_read_config(), 0);
    std::atomic<bool> stop{false};
    std::thread reader([&] {
        while (!stop) {
            logman_read_config();
        }
    });
    int kept = 0;
    for (int i = 0; i < 5000; ++i) {
        kept += keeps("unwelcome") ? 1 : 0;
    }
    stop = true;
    reader.join();
    EXPECT_EQ(kept, 0);
}

// ---- A line ----

// The record as it is described, for the stamp of a second.
std::string described_record(time_t second, const std::string &module, const std::string &message) {
    struct tm local;
    localtime_r(&second, &local);
    char stamp[256] = "";
    snprintf(stamp, sizeof stamp, "[%04d/%02d/%02d %02d:%02d:%02d]", local.tm_year + 1900, local.tm_mon + 1,
             local.tm_mday, local.tm_hour % 24, local.tm_min, local.tm_sec);
    const std::string body = message.substr(0, 1022);
    const std::string head =
        std::string(stamp) + " [" + std::to_string(velkor::kernel_thread_id()) + " " + module + "]";
    std::string line = (head + body).substr(0, 1023);
    for (char &character : line) {
        if (character == '\r' || character == '\t' || character == '\n') {
            character = ' ';
        }
    }
    line.resize(1024, '\0');
    return line;
}

// Logs, and holds the record against the description; the second may change between the two.
void expect_described(const char *module, const std::string &message) {
    const time_t before = time(nullptr);
    ASSERT_EQ(vk_printftomem(0, module, 0, "%s", message.c_str()), 0);
    const time_t after = time(nullptr);
    const std::vector<std::string> records = LogCapture::take_records();
    ASSERT_EQ(records.size(), 1U);
    bool equal = false;
    for (time_t second = before; second <= after; ++second) {
        equal |= records[0] == described_record(second, module != nullptr ? module : "(null)", message);
    }
    ASSERT_TRUE(equal) << records[0];
}

TEST(LogLine, IsStampThreadModuleAndMessage) {
    const LogCapture log;
    ASSERT_EQ(
        vk_printftomem(0, "libvelkor", 0, "%s %d fname:%s, line=%d, err code = %d", "dvrMalloc", 172, "a.c", 40, 3), 0);
    const std::vector<std::string> lines = LogCapture::take_lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].substr(21), " [" + std::to_string(velkor::kernel_thread_id()) +
                                       " libvelkor]dvrMalloc 172 fname:a.c, line=40, err code = 3");
}

TEST(LogLine, IgnoresLevelAndFlags) {
    const LogCapture log;
    EXPECT_EQ(vk_printftomem(-5, "m", 0x12345678, "same"), 0);
    EXPECT_EQ(vk_printftomem(99, "m", 0xff0000, "same"), 0);
    EXPECT_EQ(LogCapture::take_messages(), (std::vector<std::string>{"same", "same"}));
}

TEST(LogLine, RefusesANullFormat) {
    const LogCapture log;
    const char *const none = nullptr;
    EXPECT_EQ(vk_printftomem(0, "m", 0, none), -1);
    EXPECT_EQ(LogCapture::take_records().size(), 0U);
}

TEST(LogLine, PrintsANullModule) {
    const LogCapture log;
    expect_described(nullptr, "message");
}

TEST(LogLine, TurnsEachControlCharacterIntoOneBlank) {
    const LogCapture log;
    ASSERT_EQ(vk_printftomem(0, "m", 0, "a\tb\r\n"), 0);
    EXPECT_EQ(LogCapture::take_messages(), std::vector<std::string>{"a b  "});
}

TEST(LogLine, TurnsControlCharactersOfTheModuleToo) {
    const LogCapture log;
    expect_described("two\nlines", "x");
}

TEST(LogLine, LeavesOtherControlCharacters) {
    const LogCapture log;
    ASSERT_EQ(vk_printftomem(0, "m", 0, "\x01\x08\x0b\x0c\x0e\x1b\x7f\x80\x8a\x8d\x89\xff"), 0);
    EXPECT_EQ(LogCapture::take_messages(),
              std::vector<std::string>{"\x01\x08\x0b\x0c\x0e\x1b\x7f\x80\x8a\x8d\x89\xff"});
}

TEST(LogLine, IsCutAt1023) {
    const LogCapture log;
    const std::string text(2000, 'x');
    ASSERT_EQ(log_text(text.c_str()), 0);
    const std::vector<std::string> records = LogCapture::take_records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].size(), 1024U);
    EXPECT_EQ(records[0].find('\0'), 1023U);
    EXPECT_EQ(records[0][1022], 'x');
}

TEST(LogLine, OfEveryLengthIsAsDescribed) {
    const LogCapture log;
    for (int length = 0; length < 1100; length += length < 940 || length > 1030 ? 37 : 1) {
        ASSERT_NO_FATAL_FAILURE(expect_described("module", std::string(static_cast<size_t>(length), 'y')));
    }
}

TEST(LogLine, WithAnOverlongModuleIsCutThere) {
    const LogCapture log;
    for (const size_t length : {900U, 980U, 990U, 995U, 1000U, 1023U, 1024U, 3000U}) {
        ASSERT_NO_FATAL_FAILURE(expect_described(std::string(length, 'm').c_str(), "message"));
    }
}

TEST(LogLine, OfRandomBytesIsAsDescribed) {
    const LogCapture log;
    std::mt19937 random(20261121);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same lines every time
    for (int i = 0; i < 3000; ++i) {
        std::string text;
        for (size_t length = random() % 200; length > 0; --length) {
            // Mostly text, with every byte now and then and control characters often.
            const unsigned kind = random() % 8;
            text += kind == 0 ? "\t\n\r"[random() % 3]
                              : static_cast<char>(kind == 1 ? random() % 255 + 1 : 'a' + random() % 26);
        }
        ASSERT_NO_FATAL_FAILURE(expect_described("random", text));
    }
}

TEST(LogLine, EndsWhereAZeroIsPrinted) {
    const LogCapture log;
    ASSERT_EQ(vk_printftomem(0, "m", 0, "before%cafter", 0), 0);
    const std::vector<std::string> records = LogCapture::take_records();
    ASSERT_EQ(records.size(), 1U);
    const size_t end = records[0].find("before") + strlen("before");
    EXPECT_EQ(records[0].substr(end), std::string(1024 - end, '\0'));
}

TEST(LogLine, KeepsWhatCameBeforeTheUnprintable) {
    const LogCapture log;
    const wchar_t unprintable[] = {0x4e00, 0};  // not in the "C" locale
    ASSERT_EQ(vk_printftomem(0, "m", 0, "before%ls", unprintable), 0);
    char body[1024] = "";
    ASSERT_LT(snprintf(body, 1023, "before%ls", unprintable), 0);
    const std::vector<std::string> records = LogCapture::take_records();
    ASSERT_EQ(records.size(), 1U);
    const size_t begin = records[0].find("m]") + 2;
    EXPECT_EQ(records[0].substr(begin), std::string(body, 1024 - begin));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"  // "%m" is no ISO C++, but what callers on the recorder write
TEST(LogLine, KeepsErrnoAndPrintsTheCallers) {
    const LogCapture log;
    errno = ENOSPC;
    EXPECT_EQ(vk_printftomem(0, "m", 0, "%m"), 0);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(LogCapture::take_messages(), std::vector<std::string>{"No space left on device"});
}

TEST(LogLine, IsFilteredWithItsStampThreadAndModule) {
    const LogCapture log("filter=" + std::to_string(velkor::kernel_thread_id()) + " special]\n");
    EXPECT_EQ(vk_printftomem(0, "special", 0, "x"), 0);
    EXPECT_EQ(vk_printftomem(0, "other", 0, "x"), -1);
    appear("dbgprint=1\ninvert=] [\n");  // between stamp and thread id, in every line
    EXPECT_EQ(vk_printftomem(0, "special", 0, "x"), -1);
}
#pragma GCC diagnostic pop

TEST(LogLine, IsFilteredBeforeItIsFlattened) {
    const LogCapture log("filter=a\tb\n");
    EXPECT_EQ(vk_printftomem(0, "m", 0, "a\tb"), 0);
    EXPECT_EQ(vk_printftomem(0, "m", 0, "a b"), -1);
    EXPECT_EQ(LogCapture::take_messages(), std::vector<std::string>{"a b"});
}

TEST(LogLine, ThatIsRefusedIsNotStored) {
    const LogCapture log("invert=secret\n");
    EXPECT_EQ(log_text("a secret"), -1);
    EXPECT_EQ(LogCapture::take_records().size(), 0U);
}

TEST(LogLine, FollowsAChangeOfTimeZoneWithinTheSecond) {
    const LogCapture log;
    // Zones of different offsets; the same stamp in both would be a remembered one.
    for (const char *const zone : {"UTC0", "<+0330>-3:30", "CST-8", "<-02>2", "UTC0"}) {
        setenv("TZ", zone, 1);  // NOLINT(concurrency-mt-unsafe): one thread
        tzset();
        ASSERT_NO_FATAL_FAILURE(expect_described("zone", zone));
    }
}

TEST(LogLine, NamesTheThreadThatWroteIt) {
    const LogCapture log;
    log_text("first");
    long other = 0;
    std::thread([&] {
        other = velkor::kernel_thread_id();
        log_text("second");
    }).join();
    const std::vector<std::string> lines = LogCapture::take_lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_NE(lines[0].find("[" + std::to_string(velkor::kernel_thread_id()) + " test]first"), std::string::npos);
    EXPECT_NE(lines[1].find("[" + std::to_string(other) + " test]second"), std::string::npos);
}

// ---- Terminal and ring ----

TEST(LogTerminal, MissingMeansAcceptedAndStoredNowhere) {
    appear("dbgprint=1\n");
    EXPECT_EQ(log_text("x"), 0);
    struct velkor_host_ring ring;
    EXPECT_EQ(velkor_host_ring_get(1, &ring), -1);
    EXPECT_FALSE(place::exists(TERMINAL));  // never created
}

TEST(LogTerminal, IsOpenedWhenTheFileIsReadNext) {
    appear("dbgprint=1\n");
    place::write_file(TERMINAL, "");
    log_text("lost");
    appear("dbgprint=1\n");
    log_text("kept");
    EXPECT_EQ(LogCapture::take_messages(), std::vector<std::string>{"kept"});
}

TEST(LogTerminal, BelongsToThisProcessAlone) {
    const LogCapture log;
    const std::string open_by_shell = place::output_of("ls -l /proc/$$/fd");
    EXPECT_EQ(open_by_shell.find(TERMINAL), std::string::npos) << open_by_shell;
}

// Calls `act` as a daemon does it that leads a session and has no terminal; answers whether it has one afterwards. The
// hang-up of that terminal would end it.
bool makes_a_controlling_terminal(void (*act)()) {
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        act();
        _exit(open("/dev/tty", O_RDWR | O_CLOEXEC) < 0 && errno == ENXIO ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status != 0;
}

TEST(LogTerminal, DoesNotBecomeADaemonsControllingTerminal) {
    const place::Terminal terminal;
    ASSERT_EQ(symlink(terminal.path().c_str(), TERMINAL), 0);
    place::write_file(SWITCH_FILE, "dbgprint=1\n");
    EXPECT_FALSE(makes_a_controlling_terminal([] { logman_read_config(); }));
}

TEST(LogRing, Holds512RecordsAndOutlivesTheSwitch) {
    const LogCapture log;
    struct velkor_host_ring ring;
    ASSERT_EQ(velkor_host_ring_get(1, &ring), 0);
    EXPECT_EQ(ring.capacity, 0x80000U);
    log_text("before");
    appear("dbgprint=0\n");
    appear("dbgprint=1\n");
    log_text("after");
    EXPECT_EQ(velkor_host_ring_get(2, &ring), -1);
    EXPECT_EQ(LogCapture::take_messages(), (std::vector<std::string>{"before", "after"}));
}

TEST(LogRing, KeepsTheNewestWhenNobodyDrains) {
    const LogCapture log;
    for (int i = 0; i < 520; ++i) {
        ASSERT_EQ(log_text(std::to_string(i).c_str()), 0);
    }
    const std::vector<std::string> messages = LogCapture::take_messages();
    ASSERT_EQ(messages.size(), 512U);
    EXPECT_EQ(messages.front(), "8");
    EXPECT_EQ(messages.back(), "519");
}

// ---- Many threads, and forked children ----

TEST(LogThreads, WriteWhileTheFileComesAndGoes) {
    place::write_file(TERMINAL, "");
    std::atomic<bool> stop{false};
    std::vector<std::thread> writers;
    for (int i = 0; i < 4; ++i) {
        writers.emplace_back([&] {
            while (!stop) {
                const int result = log_text("a line from a writer");
                ASSERT_TRUE(result == 0 || result == -1);
            }
        });
    }
    for (int i = 0; i < 100; ++i) {
        place::write_file(SWITCH_FILE, i % 3 == 0 ? "dbgprint=0\n" : "dbgprint=1\nfilter=writer\n");
        vk_OutLogToLogmanEnable();
        unlink(SWITCH_FILE);
        vk_OutLogToLogmanEnable();
    }
    stop = true;
    for (std::thread &writer : writers) {
        writer.join();
    }
    for (const std::string &message : LogCapture::take_messages()) {
        ASSERT_EQ(message, "a line from a writer");
    }
}

TEST(LogThreads, EachRecordStaysWhole) {
    const LogCapture log;
    std::vector<std::thread> writers;
    for (int i = 0; i < 4; ++i) {
        writers.emplace_back([i] {
            const std::string text(static_cast<size_t>(100 + 200 * i), static_cast<char>('a' + i));
            for (int j = 0; j < 100; ++j) {
                log_text(text.c_str());
            }
        });
    }
    for (std::thread &writer : writers) {
        writer.join();
    }
    int counts[4] = {};
    for (const std::string &message : LogCapture::take_messages()) {
        const size_t who = static_cast<size_t>(message.at(0) - 'a');
        ASSERT_LT(who, 4U);
        ASSERT_EQ(message, std::string(100 + 200 * who, static_cast<char>('a' + who)));
        ++counts[who];
    }
    for (const int count : counts) {
        EXPECT_EQ(count, 100);
    }
}

TEST(LogFork, AChildLogsUnderItsOwnId) {
    const LogCapture log;
    log_text("parent");
    const pid_t child = fork();
    if (child == 0) {
        log_text("child");
        const std::vector<std::string> lines = LogCapture::take_lines();
        const std::string expected = "[" + std::to_string(getpid()) + " test]child";
        _exit(lines.size() == 2 && lines[1].find(expected) != std::string::npos ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// No handler of a fork is called there, and a line asks for its thread's id once only.
TEST(LogFork, AChildOfARawCloneLogsUnderTheIdOfTheThreadThatMadeIt) {
    const LogCapture log;
    log_text("parent");
    const long id = velkor::kernel_thread_id();
    const auto child = static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, nullptr, nullptr, nullptr, nullptr));
    if (child == 0) {
        log_text("child");
        const std::vector<std::string> lines = LogCapture::take_lines();
        const std::string expected = "[" + std::to_string(id) + " test]child";
        _exit(velkor::kernel_thread_id() != id && lines.size() == 2 && lines[1].find(expected) != std::string::npos
                  ? 0
                  : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// ---- The console ----

TEST(LogConsole, WritesAStampedLine) {
    place::Terminal terminal;
    const place::BoundPath bound("/dev/console", terminal.path());
    EXPECT_EQ(vk_printf_tocon("mod", "file.c", 12, "value\t%d", 5), 0);
    const std::string line = terminal.read_until("\n");
    EXPECT_EQ(line.substr(21), " [" + std::to_string(velkor::kernel_thread_id()) + " mod] file.c:12 value\t5\n");
    EXPECT_EQ(line[0], '[');
}

TEST(LogConsole, PrintsNullAsNothing) {
    place::Terminal terminal;
    const place::BoundPath bound("/dev/console", terminal.path());
    EXPECT_EQ(vk_printf_tocon(nullptr, nullptr, 7, "x"), 0);
    const std::string id = std::to_string(velkor::kernel_thread_id());
    EXPECT_EQ(terminal.read_until("\n").substr(21), " [" + id + " ] :7 x\n");
    const char *const none = nullptr;
    EXPECT_EQ(vk_printf_tocon("m", "s", 8, none), 0);
    EXPECT_EQ(terminal.read_until("\n").substr(21), " [" + id + " m] s:8 \n");
}

TEST(LogConsole, NeedsNoSwitchAndKnowsNoFilter) {
    place::Terminal terminal;
    const place::BoundPath bound("/dev/console", terminal.path());
    logman_set_invert(0, "x");
    EXPECT_EQ(vk_printf_tocon("m", "s", 1, "x"), 0);
    EXPECT_NE(terminal.read_until("\n").find("s:1 x"), std::string::npos);
}

TEST(LogConsole, CutsTheMessageAt1022) {
    place::Terminal terminal;
    const place::BoundPath bound("/dev/console", terminal.path());
    EXPECT_EQ(vk_printf_tocon("m", "s", 1, "%s", std::string(3000, 'x').c_str()), 0);
    const std::string line = terminal.read_until("\n");
    EXPECT_EQ(line.substr(line.find("s:1 ") + 4), std::string(1022, 'x') + "\n");
}

TEST(LogConsole, DoesNotBecomeADaemonsControllingTerminal) {
    const place::Terminal terminal;
    const place::BoundPath bound("/dev/console", terminal.path());
    EXPECT_FALSE(makes_a_controlling_terminal([] { vk_printf_tocon("m", "s", 1, "x"); }));
}

TEST(LogConsole, AnswersMinusOneWhileItCannotBeOpened) {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/tmp/no-console");
    ASSERT_EQ(bind(descriptor, reinterpret_cast<struct sockaddr *>(&address), sizeof address), 0);
    {
        const place::BoundPath bound("/dev/console", "/tmp/no-console");
        errno = 0;
        EXPECT_EQ(vk_printf_tocon("m", "s", 1, "x"), -1);
        EXPECT_EQ(errno, ENXIO);
    }
    close(descriptor);
    place::Terminal terminal;
    const place::BoundPath bound("/dev/console", terminal.path());
    EXPECT_EQ(vk_printf_tocon("m", "s", 1, "x"), 0);
    EXPECT_NE(terminal.read_until("\n").find("s:1 x"), std::string::npos);
}

}  // namespace

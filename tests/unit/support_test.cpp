// The small private helpers, and the places that tests themselves stand on.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "support/alarms.h"
#include "support/errno_keeper.h"
#include "support/lock_guard.h"
#include "support/log.h"
#include "support/log_capture.h"
#include "support/log_stamp.h"
#include "support/owners.h"
#include "support/pause.h"
#include "support/place.h"
#include "support/platform.h"
#include "support/polled_word.h"
#include "support/second_host.h"
#include "support/uninterrupted.h"

namespace {

int count_evaluation(int &count) { return ++count; }

TEST(LogCall, EvaluatesNothingWhileTheLogIsOff) {
    int evaluated = 0;
    EXPECT_EQ(VK_LOG("%d", count_evaluation(evaluated)), 0);
    EXPECT_EQ(evaluated, 0);
}

TEST(LogCall, ReportsUnderTheLibrarysName) {
    const LogCapture log;
    int evaluated = 0;
    EXPECT_EQ(VK_LOG("number %d", count_evaluation(evaluated)), 0);
    EXPECT_EQ(evaluated, 1);
    const std::vector<std::string> lines = LogCapture::take_lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find(" libvelkor]number 1"), std::string::npos);
}

TEST(LogCall, AnswersWhatTheLogAnswers) {
    const LogCapture log("filter=wanted\n");
    EXPECT_EQ(VK_LOG("unwelcome"), -1);
    EXPECT_EQ(VK_LOG("wanted"), 0);
}

TEST(LogStamp, PadsWithZeros) {
    setenv("TZ", "UTC0", 1);  // NOLINT(concurrency-mt-unsafe): before any other thread
    tzset();
    char stamp[velkor::LOG_STAMP_SIZE];
    EXPECT_EQ(velkor::format_log_stamp(stamp, 1798880703), 21U);
    EXPECT_STREQ(stamp, "[2027/01/02 09:05:03]");
}

TEST(LogStamp, FollowsTheTimeZone) {
    setenv("TZ", "<+0330>-3:30", 1);  // NOLINT(concurrency-mt-unsafe): before any other thread
    tzset();
    char stamp[velkor::LOG_STAMP_SIZE];
    velkor::format_log_stamp(stamp, 1798880703);
    EXPECT_STREQ(stamp, "[2027/01/02 12:35:03]");
}

TEST(LockGuard, HoldsTheLockForItsScope) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    {
        const velkor::LockGuard guard(mutex);
        EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY);
    }
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    pthread_mutex_unlock(&mutex);
}

TEST(Owners, CloseWhatTheyHold) {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(descriptor, 0);
    { const velkor::OwnedDescriptor owned(descriptor); }
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);

    FILE *const stream = fopen("/dev/null", "r");
    const int behind = fileno(stream);
    { const velkor::OwnedStream owned(stream); }
    EXPECT_EQ(fcntl(behind, F_GETFD), -1);
}

TEST(Owners, ReleaseToTheCaller) {
    velkor::OwnedDescriptor owned(open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_TRUE(owned);
    const int descriptor = owned.release();
    EXPECT_FALSE(owned);
    EXPECT_EQ(close(descriptor), 0);
}

TEST(Owners, TakeNothingWithoutHarm) {
    const velkor::OwnedDescriptor none(-1);
    const velkor::OwnedStream no_stream(nullptr);
    EXPECT_FALSE(none);
    EXPECT_FALSE(no_stream);
}

TEST(ErrnoKeeper, GivesTheCallersErrnoBack) {
    errno = EAGAIN;
    {
        const velkor::ErrnoKeeper keeper;
        errno = ENOENT;
    }
    EXPECT_EQ(errno, EAGAIN);
}

TEST(Platform, ThreadsHaveTheKernelsIds) {
    const long own = velkor::kernel_thread_id();
    EXPECT_EQ(own, getpid());
    long other = 0;
    std::thread([&] { other = velkor::kernel_thread_id(); }).join();
    EXPECT_NE(other, own);
    EXPECT_GT(other, 0);
}

// ---- Pauses and waits ----

using Clock = std::chrono::steady_clock;

// What `wait` took, in the midst of signals.
template <typename Wait>
Clock::duration time_of(Wait wait) {
    const Alarms alarms(1000);
    const int before = Alarms::count();
    const auto begin = Clock::now();
    wait();
    const auto time = Clock::now() - begin;
    EXPECT_GT(Alarms::count(), before) << "no signal came";
    return time;
}

TEST(Pause, LastsItsTimeInSpiteOfSignals) {
    EXPECT_GE(time_of([] { velkor::pause_for_us(100000); }), std::chrono::microseconds(100000));
}

TEST(Pause, CountsOnAcrossTheSecond) {
    for (int i = 0; i < 4; ++i) {
        EXPECT_GE(time_of([] { velkor::pause_for_us(300000); }), std::chrono::microseconds(300000));
    }
    EXPECT_GE(time_of([] { velkor::pause_for_us(1000000); }), std::chrono::seconds(1));
}

TEST(PolledWord, IsLookedAtAgainAfterThePauseInSpiteOfSignals) {
    std::atomic<uint32_t> word{7};
    EXPECT_GE(time_of([&] { velkor::pause_while(word, 7U, 100000); }), std::chrono::microseconds(100000));
}

TEST(PolledWord, IsNotWaitedForWhenItHasChanged) {
    std::atomic<uint32_t> word{8};
    const auto begin = Clock::now();
    for (int i = 0; i < 1000; ++i) {
        velkor::pause_while(word, 7U, 900000);
    }
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(900)) << "each looked once";
}

TEST(PolledWord, EndsThePauseOfWhoeverSleepsOnIt) {
    std::atomic<uint32_t> word{7};
    std::thread waker([&] {
        word = 8;
        velkor::wake_poller(word);
    });
    while (word == 7) {
        velkor::pause_while(word, 7U, 900000);
    }
    waker.join();
}

TEST(WaitReadable, LastsItsTimeInSpiteOfSignals) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    for (int i = 0; i < 20; ++i) {
        int result = -1;
        EXPECT_GE(time_of([&] { result = velkor::wait_readable(ends[0], 5); }), std::chrono::milliseconds(5));
        EXPECT_EQ(result, 0);
    }
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_EQ(velkor::wait_readable(ends[0], 1000000), 1);
    close(ends[0]);
    close(ends[1]);
}

TEST(Sandbox, HasFreshRecorderPaths) {
    for (const char *const path : {"/dvrfile", "/dvr", "/tmpfile", "/tmp"}) {
        struct stat status;
        ASSERT_EQ(stat(path, &status), 0) << path;
        EXPECT_TRUE(S_ISDIR(status.st_mode)) << path;
        EXPECT_EQ(access(path, W_OK), 0) << path;
    }
    EXPECT_FALSE(place::exists("/dvrfile/logman"));
    EXPECT_EQ(place::read_file("/etc/TZ"), "UTC0\n");
    place::write_file("/etc/TZ", "CST-8\n");
    EXPECT_EQ(place::read_file("/etc/TZ"), "CST-8\n");
    EXPECT_TRUE(place::exists("/etc/passwd"));
}

TEST(Sandbox, HasNoNetworkButLoopback) { EXPECT_EQ(place::output_of("ip -o link | cut -d: -f2"), " lo\n"); }

TEST(Place, BindsContentOverAKernelFile) {
    const std::string before = place::read_file("/proc/swaps");
    {
        const place::BoundContent bound("/proc/swaps", "Filename\nchosen\n");
        EXPECT_EQ(place::read_file("/proc/swaps"), "Filename\nchosen\n");
        place::write_file(bound.file(), "changed\n");
        EXPECT_EQ(place::read_file("/proc/swaps"), "changed\n");
    }
    EXPECT_EQ(place::read_file("/proc/swaps"), before);
}

TEST(Place, BindsATerminalOverADevice) {
    place::Terminal terminal;
    const place::BoundPath bound("/dev/console", terminal.path());
    FILE *const stream = fopen("/dev/console", "r+");
    ASSERT_NE(stream, nullptr);
    fputs("hello\n", stream);
    fclose(stream);
    EXPECT_EQ(terminal.read_until("\n"), "hello\n");
}

// Answers one datagram with the same bytes.
int echo_once() {
    const velkor::OwnedDescriptor socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(5000);
    inet_pton(AF_INET, "10.11.12.2", &address.sin_addr);
    if (bind(socket_.get(), reinterpret_cast<struct sockaddr *>(&address), sizeof address) != 0) {
        return 1;
    }
    char bytes[64];
    struct sockaddr_in from = {};
    socklen_t size = sizeof from;
    const ssize_t length =
        recvfrom(socket_.get(), bytes, sizeof bytes, 0, reinterpret_cast<struct sockaddr *>(&from), &size);
    return length >= 0 && sendto(socket_.get(), bytes, static_cast<size_t>(length), 0,
                                 reinterpret_cast<struct sockaddr *>(&from), size) == length
               ? 0
               : 2;
}

TEST(SecondHost, AnswersOverTheWire) {
    const SecondHost host("wire0", "10.11.12.1/24", "10.11.12.2/24");
    EXPECT_NE(host.run("ip -br address show eth0").find("10.11.12.2/24"), std::string::npos);
    const pid_t echo = host.start(echo_once);

    const velkor::OwnedDescriptor near(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    struct sockaddr_in far = {};
    far.sin_family = AF_INET;
    far.sin_port = htons(5000);
    inet_pton(AF_INET, "10.11.12.2", &far.sin_addr);
    char answer[64] = "";
    EXPECT_TRUE(place::eventually([&] {
        sendto(near.get(), "hello", 6, 0, reinterpret_cast<struct sockaddr *>(&far), sizeof far);
        return recv(near.get(), answer, sizeof answer, 0) == 6;
    }));
    EXPECT_STREQ(answer, "hello");
    int status = -1;
    EXPECT_EQ(waitpid(echo, &status, 0), echo);
    EXPECT_EQ(status, 0);
}

}  // namespace

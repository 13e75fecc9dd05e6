// The command runner: its life, and plain commands. Pipe commands are in vk_pipe_test.cpp.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/process.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/command_runner.h"
#include "support/coverage.h"
#include "support/fork_meanwhile.h"
#include "support/log_capture.h"
#include "support/place.h"

// Shared memory that is slow to be refused.
namespace {

std::atomic<bool> is_memory_refused{false};
std::atomic<bool> is_memory_held{false};
std::atomic<bool> is_waiting_for_memory{false};

}  // namespace

extern "C" int shmget(key_t key, size_t size, int flags) noexcept {
    if (is_memory_refused) {
        is_waiting_for_memory = true;
        is_memory_held.wait(true);
        return -1;
    }
    static const auto real = reinterpret_cast<int (*)(key_t, size_t, int)>(dlsym(RTLD_NEXT, "shmget"));
    return real(key, size, flags);
}

namespace {

using command_runner::Area;
using command_runner::Runner;
using command_runner::Words;
using place::eventually;

bool is_alive(pid_t process) { return kill(process, 0) == 0; }

bool has_segment() { return shmget(ftok("TODO", 'a'), 0, 0) != -1; }

std::string status_line_of(pid_t process, const std::string &name) {
    const std::string status = place::read_file("/proc/" + std::to_string(process) + "/status");
    const size_t begin = status.find("\n" + name + ":") + 1;
    return status.substr(begin, status.find('\n', begin) - begin);
}

void end(pid_t process) {
    kill(process, SIGKILL);
    EXPECT_EQ(waitpid(process, nullptr, 0), process);
}

// ---- Attaching ----

TEST(VkSystemInit, AnswersTheRunnersProcessId) {
    const Runner runner;
    EXPECT_EQ(status_line_of(runner.process(), "PPid"), "PPid:\t" + std::to_string(getpid()));
}

TEST(VkSystemInit, MakesTheAreaUnderTheKeyOfTheFile) {
    const Runner runner;
    struct shmid_ds segment = {};
    ASSERT_GE(shmctl(shmget(ftok("TODO", 'a'), 0, 0), IPC_STAT, &segment), 0);
    EXPECT_EQ(segment.shm_perm.mode & 0777, 0666);
    EXPECT_EQ(segment.shm_nattch, 2U) << "the caller and the runner";
    if (sizeof(void *) == 4) {
        EXPECT_EQ(segment.shm_segsz, 108160U);
    }
    EXPECT_EQ(segment.shm_segsz, command_runner::AREA_SIZE);
}

TEST(VkSystemInit, FailsWithoutTheFile) {
    command_runner::enter_directory();
    unlink("TODO");
    EXPECT_EQ(VkSystemInit(), -1);
    EXPECT_EQ(VkSystem("true"), -1);
}

TEST(VkSystemInit, FailsWithASegmentThatIsTooSmall) {
    command_runner::enter_directory();
    ASSERT_NE(shmget(ftok("TODO", 'a'), 100, IPC_CREAT | 0666), -1);
    EXPECT_EQ(VkSystemInit(), -1);
    EXPECT_TRUE(has_segment()) << "it was not this process's to remove";
}

TEST(VkSystemInit, RemovesTheSegmentWhenItCannotFork) {
    command_runner::enter_directory();
    command_runner::without_children([] { EXPECT_EQ(VkSystemInit(), -1); });
    EXPECT_FALSE(has_segment());
    EXPECT_EQ(VkSystem("true"), -1);
}

TEST(VkSystemInit, ClearsAnAreaThatIsThereAlready) {
    command_runner::enter_directory();
    const int segment = shmget(ftok("TODO", 'a'), command_runner::AREA_SIZE, IPC_CREAT | 0666);
    void *const memory = shmat(segment, nullptr, 0);
    memset(memory, 0xff, command_runner::AREA_SIZE);
    const pid_t runner = VkSystemInit();
    EXPECT_GT(runner, 0);
    EXPECT_EQ(shmget(ftok("TODO", 'a'), 0, 0), segment);
    EXPECT_EQ(Area().in_use(), 0);
    EXPECT_EQ(VkSystem("exit 4"), 4 << 8);
    end(runner);
    shmdt(memory);
    VkSystemUninit();
}

TEST(VkSystemInit, ASecondCallTearsAWorkingRunnerDown) {
    const Runner runner;
    EXPECT_EQ(VkSystemInit(), -1);
    EXPECT_FALSE(has_segment());
    EXPECT_EQ(VkSystem("true"), -1);
    EXPECT_EQ(VkPipeOpen("true", "r"), nullptr);
    EXPECT_TRUE(is_alive(runner.process())) << "the runner itself is not stopped";
}

TEST(VkSystemInit, AThirdCallStartsAnew) {
    const Runner runner;
    EXPECT_EQ(VkSystemInit(), -1);
    const pid_t second = VkSystemInit();
    EXPECT_GT(second, 0);
    EXPECT_NE(second, runner.process());
    EXPECT_EQ(VkSystem("exit 6"), 6 << 8);
    end(second);
}

TEST(VkSystemUninit, DetachesAndRemovesTheAreaAndLeavesTheRunner) {
    const Runner runner;
    VkSystemUninit();
    EXPECT_FALSE(has_segment());
    EXPECT_EQ(VkSystem("true"), -1);
    EXPECT_TRUE(is_alive(runner.process()));
}

TEST(VkSystemUninit, DoesNothingWhenNothingIsAttached) {
    VkSystemUninit();
    EXPECT_EQ(VkSystem("true"), -1);
}

TEST(VkSystemUninit, LeavesItsAnswerToACallThatWaits) {
    const Runner runner;
    std::atomic<int> result{-2};
    std::thread waiting([&] { result = VkSystem("while [ ! -e /tmp/go ]; do sleep 0.05; done; exit 9"); });
    {
        const Area area;
        ASSERT_TRUE(eventually([&] { return area.in_use() == 1 && area[0].request == 0; }));
    }
    VkSystemUninit();
    EXPECT_EQ(result, -2);
    place::write_file("/tmp/go", "");
    waiting.join();
    EXPECT_EQ(result, 9 << 8);
}

// ---- Results ----

TEST(VkSystem, GivesTheRawStatus) {
    const Runner runner;
    EXPECT_EQ(VkSystem("true"), 0);
    EXPECT_EQ(VkSystem("exit 3"), 768);
    EXPECT_EQ(VkSystem("kill -KILL $$"), SIGKILL);
    EXPECT_EQ(VkSystem("/no/such/program 2>/dev/null"), 127 << 8);
    EXPECT_EQ(VkSystem(""), 0);
}

TEST(VkSystem, AcceptsACommandOf511Characters) {
    const Runner runner;
    const std::string begin = "printf %s '";
    const std::string end = "' >/tmp/text";
    const std::string text(511 - begin.size() - end.size(), 'x');
    EXPECT_EQ(VkSystem((begin + text + end).c_str()), 0);
    EXPECT_EQ(place::read_file("/tmp/text"), text);
}

TEST(VkSystem, RefusesACommandOf512Characters) {
    const Runner runner;
    std::string command = "touch /tmp/text; #";
    command.resize(512, 'x');
    EXPECT_EQ(VkSystem(command.c_str()), -1);
    command.resize(5000, 'x');
    EXPECT_EQ(VkSystem(command.c_str()), -1);
    EXPECT_FALSE(place::exists("/tmp/text"));
}

TEST(VkSystem, RefusesNull) {
    const Runner runner;
    EXPECT_EQ(VkSystem(nullptr), -1);
}

TEST(VkSystem, LogsTheCommandAndItsResult) {
    const LogCapture log;
    const Runner runner;
    VkSystem("exit 3");
    EXPECT_THAT(LogCapture::take_messages(), testing::ElementsAre("do vksystem(\"exit 3\") ", "ret value is = 768"));
    VkSystem(nullptr);
    VkSystem(std::string(512, 'x').c_str());
    VkSystemUninit();
    VkSystem("true");
    EXPECT_THAT(LogCapture::take_messages(), testing::IsEmpty()) << "what is refused at once is not logged";
}

TEST(VkSystem, PutsEveryWordOfItsSlotBack) {
    const Runner runner;
    const Area area;
    VkSystem("exit 3");
    EXPECT_EQ(area[0].in_use, 0);
    EXPECT_EQ(area[0].request, 0);
    EXPECT_EQ(area[0].status, 0);
    EXPECT_EQ(area[0].caller_stream, 0U);
}

TEST(VkSystem, RunsCommandsOfSeveralThreadsSideBySide) {
    const Runner runner;
    ASSERT_EQ(mkfifo("/tmp/there", 0600), 0);
    ASSERT_EQ(mkfifo("/tmp/back", 0600), 0);
    // Each needs the other.
    std::thread other([] { EXPECT_EQ(VkSystem("read x </tmp/there; echo $x >/tmp/back"), 0); });
    EXPECT_EQ(VkSystem("echo word >/tmp/there; read x </tmp/back; test $x = word"), 0);
    other.join();
}

TEST(VkSystem, GivesEachThreadItsOwnResult) {
    const Runner runner;
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([i] {
            for (int round = 0; round < 15; ++round) {
                const int number = i * 15 + round;
                EXPECT_EQ(VkSystem(("exit " + std::to_string(number)).c_str()), number << 8);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(Area().in_use(), 0);
}

// ---- All slots taken ----

// 52 commands that wait for a line each.
class FullHouse {
public:
    FullHouse() {
        EXPECT_EQ(mkfifo("/tmp/gate", 0600), 0);
        gate_ = open("/tmp/gate", O_RDWR | O_CLOEXEC);
        for (std::thread &thread : threads_) {
            thread = std::thread([this] { failures_ += VkSystem("read line </tmp/gate") == 0 ? 0 : 1; });
        }
        EXPECT_TRUE(eventually([] { return Area().in_use() == VELKOR_COMMAND_SLOTS; }));
    }
    ~FullHouse() {
        const std::string lines(VELKOR_COMMAND_SLOTS, '\n');
        EXPECT_EQ(write(gate_, lines.data(), lines.size()), VELKOR_COMMAND_SLOTS);
        for (std::thread &thread : threads_) {
            thread.join();
        }
        close(gate_);
        EXPECT_EQ(failures_, 0);
        EXPECT_EQ(Area().in_use(), 0);
    }
    FullHouse(const FullHouse &) = delete;
    FullHouse &operator=(const FullHouse &) = delete;

private:
    int gate_ = -1;
    std::atomic<int> failures_{0};
    std::array<std::thread, VELKOR_COMMAND_SLOTS> threads_;
};

TEST(VkSystem, Refuses53rdOfConcurrentCommandsAtOnce) {
    const LogCapture log;
    const Runner runner;
    const FullHouse house;
    LogCapture::take_messages();
    EXPECT_EQ(VkSystem("true"), -1);
    EXPECT_EQ(VkPipeOpen("true", "r"), nullptr);
    EXPECT_THAT(LogCapture::take_messages(), testing::ElementsAre("do vksystem(\"true\") ", "ret value is = -1"));
}

// ---- The words alone ----

// A caller that knows nothing but the described words, and announces nothing.
TEST(RunnerWords, ARequestIsServedThatIsOnlyWritten) {
    const Runner runner;
    const Area area;
    Words &slot = area[17];
    slot.in_use = 1;
    strcpy(slot.command, "exit 3");
    slot.request = 1;
    ASSERT_TRUE(eventually([&] { return slot.status != 0; }));
    EXPECT_EQ(slot.status, 1);
    EXPECT_EQ(slot.result, 768);
    EXPECT_EQ(slot.request, 0);
    EXPECT_EQ(slot.in_use, 1) << "the caller gives a plain command's slot back";
}

// A runner that knows nothing but the described words.
TEST(RunnerWords, AnAnswerIsSeenThatIsOnlyWritten) {
    Runner runner;
    const Area area;
    runner.end();
    std::atomic<int> result{-2};
    std::thread waiting([&] { result = VkSystem("exit 3"); });
    Words &slot = area[0];
    ASSERT_TRUE(eventually([&] { return slot.request != 0; }));
    EXPECT_EQ(slot.in_use, 1);
    EXPECT_EQ(slot.kind, 0);
    EXPECT_EQ(slot.status, 0);
    EXPECT_STREQ(slot.command, "exit 3");
    usleep(200000);
    EXPECT_EQ(result, -2) << "without a runner a call waits";
    slot.request = 0;
    slot.result = 77;
    slot.status = 1;
    waiting.join();
    EXPECT_EQ(result, 77);
}

TEST(RunnerWords, AnUnknownKindFreesTheSlot) {
    const Runner runner;
    const Area area;
    Words &slot = area[3];
    slot.kind = 2;
    slot.in_use = 1;
    slot.request = 1;
    EXPECT_TRUE(eventually([&] { return slot.in_use == 0; }));
    EXPECT_EQ(slot.status, 0);
}

TEST(RunnerWords, ARequestInAFreeSlotIsNotServed) {
    const Runner runner;
    const Area area;
    strcpy(area[0].command, "touch /tmp/served");
    area[0].request = 1;
    // The slot after it is served, and passes go by.
    Words &other = area[1];
    strcpy(other.command, "exit 1");
    other.in_use = 1;
    other.request = 1;
    ASSERT_TRUE(eventually([&] { return other.status == 1; }));
    EXPECT_EQ(area[0].request, 1);
    EXPECT_FALSE(place::exists("/tmp/served"));
}

// ---- The runner as a process ----

TEST(Runner, IgnoresThreeSignalsAndSoDoItsCommands) {
    const Runner runner;
    VkSystem("true");
    for (const int signal : {SIGPIPE, SIGUSR1, SIGUSR2}) {
        kill(runner.process(), signal);
    }
    EXPECT_EQ(VkSystem("kill -USR1 $$; kill -USR2 $$; kill -PIPE $$; exit 5"), 5 << 8);
}

TEST(Runner, ReportsTheStatusToACallerThatIgnoresItsChildren) {
    signal(SIGCHLD, SIG_IGN);
    command_runner::enter_directory();
    const pid_t runner = VkSystemInit();
    ASSERT_GT(runner, 0);
    EXPECT_EQ(VkSystem("exit 3"), 768);
    kill(runner, SIGKILL);
    VkSystemUninit();
}

TEST(Runner, KeepsTheCallersDirectoryAndEnvironment) {
    setenv("VELKOR_TEST_WORD", "word", 1);
    const Runner runner;
    ASSERT_EQ(chdir("/"), 0);
    EXPECT_EQ(VkSystem("test -e TODO && test $VELKOR_TEST_WORD = word"), 0);
}

// What poll() says of a pipe, at once or after `milliseconds`.
short events_of(int descriptor, int milliseconds) {
    struct pollfd waiting = {descriptor, POLLIN, 0};
    poll(&waiting, 1, milliseconds);
    return waiting.revents;
}

TEST(Runner, KeepsTheDescriptorsOfTheCaller) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    Runner runner;
    EXPECT_EQ(VkSystem(("echo x >&" + std::to_string(ends[1])).c_str()), 0);
    close(ends[1]);
    char text[2];
    EXPECT_EQ(read(ends[0], text, sizeof text), 2);
    EXPECT_EQ(events_of(ends[0], 0), 0) << "the runner can still write into it";
    runner.end();
    EXPECT_EQ(events_of(ends[0], 10000), POLLHUP);
    close(ends[0]);
}

TEST(Runner, HandsNoDescriptorToItsCommandsThatClosesOnExec) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const Runner runner;
    const std::string is_open = "test -e /proc/self/fd/" + std::to_string(ends[1]);
    EXPECT_EQ(VkSystem(is_open.c_str()), 1 << 8);
    FILE *const stream = VkPipeOpen((is_open + " || echo closed").c_str(), "r");
    char line[16] = "";
    EXPECT_NE(fgets(line, sizeof line, stream), nullptr);
    EXPECT_STREQ(line, "closed\n");
    EXPECT_EQ(VkPipeClose(stream), 0);
}

// The command ends with its input, which must not be the runner's as well.
TEST(Runner, LetsGoOfTheCallersOwnCommands) {
    FILE *const stream = vk_popen("cat", "w");
    ASSERT_NE(stream, nullptr);
    const Runner runner;
    EXPECT_EQ(VkSystem("true"), 0);
    EXPECT_EQ(vk_pclose(stream), 0);
}

TEST(Runner, PrintsWhereTheCallerPrints) {
    command_runner::enter_directory();
    const int output = dup(STDOUT_FILENO);
    const int file = open("/tmp/output", O_CREAT | O_RDWR | O_APPEND, 0600);
    dup2(file, STDOUT_FILENO);
    const pid_t runner = VkSystemInit();
    dup2(output, STDOUT_FILENO);
    EXPECT_EQ(VkSystem("echo hello"), 0);
    EXPECT_EQ(place::read_file("/tmp/output"), "hello\n");
    end(runner);
    VkSystemUninit();
}

// A recorder that starts a runner, uses it, and dies without a word.
class DeadRecorder {
public:
    DeadRecorder() {
        command_runner::enter_directory();
        int output[2];
        int message[2];
        EXPECT_EQ(pipe2(output, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(message, O_CLOEXEC), 0);
        const pid_t recorder = fork();
        if (recorder == 0) {
            dup2(output[1], STDOUT_FILENO);
            coverage::prepare();
            const pid_t runner = VkSystemInit();
            const bool works = VkSystem("echo hello") == 0;
            _exit(works && write(message[1], &runner, sizeof runner) == sizeof runner ? 0 : 1);
        }
        close(output[1]);
        close(message[1]);
        int status = -1;
        EXPECT_EQ(waitpid(recorder, &status, 0), recorder);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(read(message[0], &runner_, sizeof runner_), static_cast<ssize_t>(sizeof runner_));
        close(message[0]);
        output_ = output[0];
    }
    ~DeadRecorder() {
        coverage::write_down(runner_);
        kill(runner_, SIGKILL);
        close(output_);
    }
    DeadRecorder(const DeadRecorder &) = delete;
    DeadRecorder &operator=(const DeadRecorder &) = delete;

    pid_t runner() const { return runner_; }

    // Where it printed, and where its runner still does.
    int output() const { return output_; }

private:
    pid_t runner_ = -1;
    int output_ = -1;
};

std::string read_some(int descriptor) {
    char text[64] = "";
    return std::string(text, static_cast<size_t>(std::max<ssize_t>(read(descriptor, text, sizeof text), 0)));
}

TEST(Runner, ServesOnWithAllThatItHasWhenItsCallerHasDied) {
    const DeadRecorder recorder;
    EXPECT_EQ(read_some(recorder.output()), "hello\n");
    EXPECT_TRUE(has_segment()) << "neither runner nor segment ends with the caller";
    const Area area;
    Words &slot = area[0];
    strcpy(slot.command, "echo still here");
    slot.in_use = 1;
    slot.request = 1;
    EXPECT_EQ(read_some(recorder.output()), "still here\n");
    EXPECT_TRUE(eventually([&] { return slot.status == 1; }));
    EXPECT_EQ(events_of(recorder.output(), 0), 0) << "the runner holds the output that it found";
    EXPECT_TRUE(is_alive(recorder.runner()));
}

// The new recorder finds the segment of the old one, and the old runner serves it too.
TEST(Runner, OfADeadRecorderSharesTheWorkOfTheNextOne) {
    const DeadRecorder recorder;
    const pid_t runner = VkSystemInit();
    ASSERT_GT(runner, 0);
    for (int i = 0; i < 60; ++i) {
        EXPECT_EQ(VkSystem("printf x >>/tmp/count"), 0);
    }
    EXPECT_EQ(place::read_file("/tmp/count"), std::string(60, 'x')) << "each command ran once";
    end(runner);
    EXPECT_EQ(VkSystem("exit 8"), 8 << 8) << "and it does so alone";
    VkSystemUninit();
}

TEST(Runner, ServesAForkedChildOfTheCaller) {
    const Runner runner;
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        _exit(VkSystem("exit 7") == 7 << 8 ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(VkSystem("exit 8"), 8 << 8);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// ---- Forked children ----

TEST(VkSystemInit, HoldsNoChildUpThatIsForkedMeanwhile) {
    command_runner::enter_directory();
    is_memory_refused = true;
    is_memory_held = true;
    std::thread starter([] { EXPECT_EQ(VkSystemInit(), -1); });
    ASSERT_TRUE(eventually([] { return is_waiting_for_memory.load(); }));
    const auto has_no_runner = [] { return VkSystem("true") == -1; };
    EXPECT_TRUE(fork_meanwhile::child_is_well(has_no_runner, [] {
        is_memory_held = false;
        is_memory_held.notify_all();
    }));
    starter.join();
}

// The parent's calls are not the child's: nobody there waits for an answer.
TEST(VkSystemUninit, UnmapsTheAreaInAChildForkedDuringACall) {
    const Runner runner;
    std::thread waiting([] { EXPECT_EQ(VkSystem("while [ ! -e /tmp/go ]; do sleep 0.05; done; exit 9"), 9 << 8); });
    {
        const Area area;
        ASSERT_TRUE(eventually([&] { return area.in_use() == 1 && area[0].request == 0; }));
    }
    const auto unmaps = [] {
        const bool was_mapped = place::read_file("/proc/self/maps").find("/SYSV") != std::string::npos;
        VkSystemUninit();
        return was_mapped && place::read_file("/proc/self/maps").find("/SYSV") == std::string::npos;
    };
    EXPECT_TRUE(fork_meanwhile::child_is_well(unmaps, [] { place::write_file("/tmp/go", ""); }));
    waiting.join();
}

TEST(Runner, AnswersMinusOneWhenItCannotStartAThread) {
    command_runner::become_limitable();
    const Runner runner;
    EXPECT_EQ(VkSystem("exit 3"), 768);
    command_runner::forbid_threads(runner.process());
    EXPECT_EQ(VkSystem("exit 3"), -1);
    EXPECT_EQ(Area().in_use(), 0);
}

}  // namespace

// Pipe commands of the command runner.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/allocation.h>
#include <velkor/process.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/command_runner.h"
#include "support/log_capture.h"
#include "support/place.h"

namespace {

using command_runner::Area;
using command_runner::Runner;
using command_runner::Words;
using place::eventually;

std::string pipe_path(int number) { return "/tmpfile/vk_pipe_file_" + std::to_string(number) + ".pipe"; }

std::string read_all(FILE *stream) {
    std::string text;
    char piece[4096];
    for (size_t length; (length = fread(piece, 1, sizeof piece, stream)) > 0;) {
        text.append(piece, length);
    }
    return text;
}

std::string output_of(const char *command) {
    FILE *const stream = VkPipeOpen(command, "r");
    EXPECT_NE(stream, nullptr) << command;
    if (stream == nullptr) {
        return "";
    }
    std::string text = read_all(stream);
    EXPECT_EQ(VkPipeClose(stream), 0);
    return text;
}

// The pumps give the slots back in their own time.
bool all_slots_are_freed() {
    const Area area;
    return eventually([&] { return area.in_use() == 0; });
}

// A command holds on until it is told.
class Gate {
public:
    Gate() {
        EXPECT_EQ(mkfifo("/tmp/gate", 0600), 0);
        descriptor_ = open("/tmp/gate", O_RDWR | O_CLOEXEC);
    }
    ~Gate() { close(descriptor_); }
    Gate(const Gate &) = delete;
    Gate &operator=(const Gate &) = delete;

    void open_once() const { EXPECT_EQ(write(descriptor_, "\n", 1), 1); }

private:
    int descriptor_ = -1;
};

// ---- Output ----

TEST(VkPipe, CarriesTheOutputOfACommand) {
    const Runner runner;
    EXPECT_EQ(output_of("echo one; echo two"), "one\ntwo\n");
    EXPECT_EQ(output_of("true"), "");
    EXPECT_EQ(output_of("echo x; kill -KILL $$"), "x\n");
    EXPECT_TRUE(all_slots_are_freed());
}

TEST(VkPipe, CarriesMoreThanAPipeHoldsInOrder) {
    const Runner runner;
    std::string expected;
    for (int i = 1; i <= 100000; ++i) {
        expected += std::to_string(i) + "\n";
    }
    EXPECT_TRUE(output_of("seq 1 100000") == expected);
}

TEST(VkPipe, CarriesEveryByteThereIs) {
    const Runner runner;
    EXPECT_EQ(output_of("printf 'a\\000\\377\\r\\nb'"), std::string("a\0\377\r\nb", 6));
}

TEST(VkPipe, CarriesASingleByteAtOnce) {
    const Runner runner;
    const Gate gate;
    FILE *const stream = VkPipeOpen("printf a; read line </tmp/gate; printf b", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fgetc(stream), 'a');
    gate.open_once();
    EXPECT_EQ(fgetc(stream), 'b');
    EXPECT_EQ(fgetc(stream), EOF);
    VkPipeClose(stream);
}

TEST(VkPipe, RunsCommandsOfSeveralThreadsSideBySide) {
    const Runner runner;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int round = 0; round < 10; ++round) {
                const std::string text = std::to_string(i * 10 + round);
                EXPECT_EQ(output_of(("echo " + text).c_str()), text + "\n");
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(all_slots_are_freed());
}

// ---- Opening ----

TEST(VkPipeOpen, NumbersItsPipesFromOneOn) {
    const Runner runner;
    const Gate gate;
    FILE *const first = VkPipeOpen("read line </tmp/gate", "r");
    FILE *const second = VkPipeOpen("read line </tmp/gate", "r");
    EXPECT_TRUE(place::exists(pipe_path(1)));
    EXPECT_TRUE(place::exists(pipe_path(2)));
    {
        const Area area;
        EXPECT_EQ(area[0].status, 1);
        EXPECT_EQ(area[1].status, 2);
        EXPECT_EQ(area[0].caller_stream, reinterpret_cast<uintptr_t>(first));
        EXPECT_EQ(area[1].caller_stream, reinterpret_cast<uintptr_t>(second));
    }
    EXPECT_EQ(VkPipeClose(first), 0);
    EXPECT_FALSE(place::exists(pipe_path(1)));
    EXPECT_TRUE(place::exists(pipe_path(2)));
    EXPECT_EQ(VkPipeClose(second), 0);
    EXPECT_FALSE(place::exists(pipe_path(2)));
    gate.open_once();
    gate.open_once();
    EXPECT_TRUE(all_slots_are_freed());
}

TEST(VkPipeOpen, ReplacesAFileThatIsInItsPlace) {
    const Runner runner;
    place::write_file(pipe_path(1), "stale");
    EXPECT_EQ(output_of("echo x"), "x\n");
}

TEST(VkPipeOpen, AcceptsACommandOf511Characters) {
    const Runner runner;
    std::string command = "echo x; #";
    command.resize(511, 'x');
    EXPECT_EQ(output_of(command.c_str()), "x\n");
    command.resize(512, 'x');
    EXPECT_EQ(VkPipeOpen(command.c_str(), "r"), nullptr);
}

TEST(VkPipeOpen, RefusesNull) {
    const Runner runner;
    EXPECT_EQ(VkPipeOpen(nullptr, "r"), nullptr);
    EXPECT_EQ(VkPipeOpen("true", nullptr), nullptr);
    EXPECT_EQ(Area().in_use(), 0);
}

TEST(VkPipeOpen, FailsWithoutAnArea) { EXPECT_EQ(VkPipeOpen("true", "r"), nullptr); }

TEST(VkPipeOpen, ClosesItsDescriptorOnExec) {
    const Runner runner;
    FILE *const stream = VkPipeOpen("true", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fcntl(fileno(stream), F_GETFD), FD_CLOEXEC);
    VkPipeClose(stream);
}

TEST(VkPipeOpen, LogsThePipeAndTheCommand) {
    const LogCapture log("filter=VkPipeOpen\n");
    const Runner runner;
    output_of("true");
    EXPECT_THAT(LogCapture::take_messages(),
                testing::ElementsAre(
                    testing::MatchesRegex("\\[VkPipeOpen:[0-9]+\\]-file=/tmpfile/vk_pipe_file_1.pipe cmd=true ")));
}

// ---- Pipes that cannot be ----

TEST(VkPipeOpen, FailsWhereNoPipeCanBeMade) {
    const Runner runner;
    ASSERT_EQ(mkdir(pipe_path(1).c_str(), 0700), 0);  // not to be unlinked
    EXPECT_EQ(VkPipeOpen("true", "r"), nullptr);
    EXPECT_EQ(Area().in_use(), 0);
    ASSERT_EQ(rmdir(pipe_path(1).c_str()), 0);
    FILE *const stream = VkPipeOpen("true", "r");
    EXPECT_TRUE(place::exists(pipe_path(1))) << "the number was not used up";
    VkPipeClose(stream);
}

// The runner has the pools as they were when it was forked.
TEST(VkPipeOpen, FailsWhereTheRunnerHasNoMemory) {
    ASSERT_EQ(dvrRegMem("src/vk_system", 1), 0);  // a pool of 1 KiB
    void *const taken = dvrMalloc(1024, "src/vk_system", __LINE__);
    ASSERT_NE(taken, nullptr);
    const Runner runner;
    EXPECT_EQ(VkPipeOpen("true", "r"), nullptr);
    EXPECT_EQ(Area().in_use(), 0);
    EXPECT_EQ(VkSystem("exit 3"), 3 << 8) << "this way takes none";
    dvrFree(taken);
}

TEST(VkPipeOpen, FailsWithoutTheDirectory) {
    const Runner runner;
    ASSERT_EQ(rmdir("/tmpfile"), 0);
    EXPECT_EQ(VkPipeOpen("true", "r"), nullptr);
    EXPECT_EQ(VkSystem("exit 3"), 768);
}

// The runner must not wait for this caller, nor run its command.
TEST(VkPipeOpen, ThatCannotOpenThePipeLeavesNobodyWaiting) {
    const Runner runner;
    EXPECT_EQ(VkPipeOpen("touch /tmp/ran", "?"), nullptr);
    EXPECT_EQ(Area().in_use(), 0) << "the slot is free at once";
    EXPECT_EQ(VkSystem("exit 3"), 768);
    EXPECT_EQ(output_of("echo x"), "x\n");
    EXPECT_TRUE(eventually([] { return !place::exists(pipe_path(1)); }));
    EXPECT_FALSE(place::exists("/tmp/ran"));
}

TEST(VkPipeOpen, FailsWithoutADescriptor) {
    const Runner runner;
    const command_runner::FewDescriptors none(getpid(), 0);
    EXPECT_EQ(VkPipeOpen("true", "r"), nullptr);
    EXPECT_EQ(VkSystem("exit 3"), 768);
    EXPECT_EQ(Area().in_use(), 0);
}

TEST(VkPipeOpen, FailsWhenTheRunnerHasNoDescriptors) {
    const Runner runner;
    const command_runner::FewDescriptors one(runner.process(), 1);
    EXPECT_EQ(VkPipeOpen("true", "r"), nullptr);
    EXPECT_FALSE(place::exists(pipe_path(1)));
    EXPECT_EQ(Area().in_use(), 0);
}

TEST(VkPipeOpen, FailsWhenThePumpCannotStart) {
    command_runner::become_limitable();
    const Runner runner;
    EXPECT_EQ(output_of("echo x"), "x\n");
    command_runner::forbid_threads(runner.process());
    EXPECT_EQ(VkPipeOpen("true", "r"), nullptr);
    EXPECT_FALSE(place::exists(pipe_path(2)));
    EXPECT_TRUE(all_slots_are_freed());
}

// Two descriptors are enough for the pipe, but not for the command's.
TEST(VkPipe, EndsAtOnceWhenTheCommandCannotStart) {
    const Runner runner;
    const command_runner::FewDescriptors two(runner.process(), 2);
    FILE *const stream = VkPipeOpen("echo x", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(read_all(stream), "");
    EXPECT_TRUE(eventually([] { return Area()[0].status == -1; }));
    EXPECT_FALSE(place::exists(pipe_path(1)));
    EXPECT_EQ(VkPipeClose(stream), 0);
    EXPECT_TRUE(all_slots_are_freed());
}

// For writing there is nobody at the other end, but nobody waits for one either.
TEST(VkPipe, OpenedForWritingHangsNobody) {
    const Runner runner;
    FILE *const stream = VkPipeOpen("echo x", "w");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(VkPipeClose(stream), 0);
    EXPECT_TRUE(all_slots_are_freed());
    EXPECT_EQ(output_of("echo x"), "x\n");
}

// ---- Opens that would wait for ever ----

// Modes of files hold for this process from here on, and for the runner that it forks, also where both are root.
void obey_file_modes() {
    struct __user_cap_header_struct head = {_LINUX_CAPABILITY_VERSION_3, 0};
    struct __user_cap_data_struct sets[2] = {};
    ASSERT_EQ(syscall(SYS_capget, &head, sets), 0);
    sets[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
    ASSERT_EQ(syscall(SYS_capset, &head, sets), 0);
}

// A call of VkPipeOpen() that may never return, on a thread of its own.
class Opening {
public:
    Opening(const char *command, const char *mode) {
        std::thread([command, mode, answer = answer_] {
            answer->stream = VkPipeOpen(command, mode);
            answer->is_there = true;
        }).detach();
    }
    bool has_answered() const {
        return eventually([this] { return answer_->is_there.load(); });
    }
    FILE *stream() const { return answer_->stream; }

private:
    struct Answer {
        FILE *stream = nullptr;
        std::atomic<bool> is_there{false};
    };
    std::shared_ptr<Answer> answer_ = std::make_shared<Answer>();
};

// The runner makes its pipes with the umask of its caller: one end cannot be opened, and the other one is not to be
// waited for.
void expect_refusal_with_umask(mode_t umask_of_runner) {
    const Runner runner(umask_of_runner);
    const Opening opening("echo x", "r");
    ASSERT_TRUE(opening.has_answered());
    EXPECT_EQ(opening.stream(), nullptr);
    EXPECT_FALSE(place::exists(pipe_path(1)));
    EXPECT_EQ(VkSystem("exit 3"), 768) << "the runner serves on";
    EXPECT_EQ(Area().in_use(), 0);
}

TEST(VkPipeOpen, FailsWhereTheRunnerCannotReadItsPipe) {
    obey_file_modes();
    expect_refusal_with_umask(0444);
}

TEST(VkPipeOpen, FailsWhereTheRunnerCannotWriteItsPipe) {
    obey_file_modes();
    expect_refusal_with_umask(0222);
}

// A runner that has told a pipe's number and is gone, with its ends of the pipe.
void answer_with_a_pipe_of_nobody(const Area &area, int number) {
    Words &slot = area[0];
    ASSERT_TRUE(eventually([&] { return slot.request != 0; }));
    ASSERT_EQ(mkfifo(pipe_path(number).c_str(), 0666), 0);
    slot.request = 0;
    slot.status = number;
}

TEST(VkPipeOpen, DoesNotWaitForARunnerThatHasDied) {
    Runner runner;
    const Area area;
    runner.end();
    const Opening opening("echo x", "r");
    answer_with_a_pipe_of_nobody(area, 7);
    ASSERT_TRUE(opening.has_answered());
    ASSERT_NE(opening.stream(), nullptr);
    EXPECT_EQ(read_all(opening.stream()), "") << "nobody writes";
    EXPECT_EQ(VkPipeClose(opening.stream()), 0);
    EXPECT_FALSE(place::exists(pipe_path(7)));
}

TEST(VkPipeOpen, DoesNotWaitForAReaderThatHasDied) {
    Runner runner;
    const Area area;
    runner.end();
    const Opening opening("echo x", "w");
    answer_with_a_pipe_of_nobody(area, 7);
    ASSERT_TRUE(opening.has_answered());
    EXPECT_EQ(opening.stream(), nullptr);
    EXPECT_EQ(area.in_use(), 0);
}

TEST(VkPipeOpen, TakesTheModesOfFopen) {
    const Runner runner;
    const struct {
        const char *mode;
        int access;
    } modes[] = {{"r", O_RDONLY}, {"rb", O_RDONLY}, {"re", O_RDONLY}, {"r+", O_RDWR},
                 {"w", O_WRONLY}, {"wb+", O_RDWR},  {"a", O_WRONLY},  {"a+", O_RDWR}};
    for (const auto &one : modes) {
        FILE *const stream = VkPipeOpen("echo x", one.mode);
        ASSERT_NE(stream, nullptr) << one.mode;
        const int flags = fcntl(fileno(stream), F_GETFL);
        EXPECT_EQ(flags & O_ACCMODE, one.access) << one.mode;
        EXPECT_EQ(flags & O_NONBLOCK, 0) << one.mode;
        EXPECT_EQ(flags & O_APPEND, one.mode[0] == 'a' ? O_APPEND : 0) << one.mode;
        EXPECT_EQ(fcntl(fileno(stream), F_GETFD), FD_CLOEXEC) << one.mode;
        EXPECT_EQ(VkPipeClose(stream), 0);
    }
    for (const char *const mode : {"", "x", "+r", "?"}) {
        EXPECT_EQ(VkPipeOpen("echo x", mode), nullptr) << mode;
    }
    EXPECT_EQ(VkPipeOpen("echo x", "wx"), nullptr) << "the pipe exists";
    EXPECT_TRUE(all_slots_are_freed());
}

// ---- Closing ----

TEST(VkPipeClose, EndsACommandThatWritesOn) {
    const Runner runner;
    FILE *const stream = VkPipeOpen("exec yes 2>/dev/null", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fgetc(stream), 'y');
    EXPECT_EQ(VkPipeClose(stream), 0);
    EXPECT_TRUE(all_slots_are_freed()) << "the command has ended, or the pump would not";
}

TEST(VkPipeClose, DoesNotWaitForACommandThatIsSilent) {
    const Runner runner;
    const Gate gate;
    FILE *const stream = VkPipeOpen("read line </tmp/gate", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(VkPipeClose(stream), 0);
    EXPECT_EQ(Area()[0].caller_stream, 0U);
    EXPECT_EQ(Area()[0].in_use, 1) << "the slot is the pump's until the command has ended";
    gate.open_once();
    EXPECT_TRUE(all_slots_are_freed());
}

TEST(VkPipe, RunsACommandWhoseCallerHasClosedAlready) {
    const Runner runner;
    FILE *const stream = VkPipeOpen("touch /tmp/ran", "r");
    EXPECT_EQ(VkPipeClose(stream), 0);
    EXPECT_TRUE(eventually([] { return place::exists("/tmp/ran"); }));
    EXPECT_TRUE(all_slots_are_freed());
}

TEST(VkPipeClose, RefusesNullAndADetachedArea) {
    EXPECT_EQ(VkPipeClose(nullptr), -1);
    const Runner runner;
    EXPECT_EQ(VkPipeClose(nullptr), -1);
    FILE *const stream = VkPipeOpen("echo x", "r");
    ASSERT_NE(stream, nullptr);
    VkSystemUninit();
    EXPECT_EQ(VkPipeClose(stream), -1);
    EXPECT_EQ(read_all(stream), "x\n") << "it is open still";
    fclose(stream);
}

TEST(VkPipeClose, LeavesAStrangersStreamAlone) {
    const Runner runner;
    FILE *const stranger = fopen("/dev/null", "r");
    EXPECT_EQ(VkPipeClose(stranger), 0);
    EXPECT_EQ(fgetc(stranger), EOF);
    EXPECT_EQ(ferror(stranger), 0);
    fclose(stranger);
}

// A stream's memory is used again while the slot of the first one is not free yet.
TEST(VkPipeClose, KnowsAStreamFromAnEarlierOneAtTheSameAddress) {
    const Runner runner;
    const Gate gate;
    std::vector<FILE *> streams;
    for (int i = 0; i < 20; ++i) {
        FILE *const stream = VkPipeOpen("read line </tmp/gate", "r");
        ASSERT_NE(stream, nullptr);
        streams.push_back(stream);
        ASSERT_EQ(VkPipeClose(stream), 0);
    }
    FILE *const last = VkPipeOpen("echo x", "r");
    EXPECT_EQ(read_all(last), "x\n");
    EXPECT_EQ(VkPipeClose(last), 0);
    for (int i = 0; i < 20; ++i) {
        gate.open_once();
    }
    EXPECT_TRUE(all_slots_are_freed());
}

// ---- Streams of parent and child, which have equal addresses ----

const char *const IN_TWO_PARTS = "printf 'fourteen bytes'; read line </tmp/gate; printf ' and twenty-eight more bytes'";
const char *const BOTH_PARTS = "fourteen bytes and twenty-eight more bytes";

int status_of(pid_t child) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

TEST(VkPipeClose, LeavesAChildsStreamAtTheSameAddressAlone) {
    const Runner runner;
    const Gate gate;
    int told[2];
    ASSERT_EQ(pipe(told), 0);
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        FILE *const stream = VkPipeOpen(IN_TWO_PARTS, "r");
        const auto address = reinterpret_cast<uintptr_t>(stream);
        const bool is_told = write(told[1], &address, sizeof address) == sizeof address;
        const bool is_whole = stream != nullptr && read_all(stream) == BOTH_PARTS;
        _exit(is_told && is_whole && VkPipeClose(stream) == 0 ? 0 : 1);
    }
    uintptr_t childs = 0;
    ASSERT_EQ(read(told[0], &childs, sizeof childs), static_cast<ssize_t>(sizeof childs));
    FILE *const stream = VkPipeOpen("echo x", "r");
    ASSERT_EQ(reinterpret_cast<uintptr_t>(stream), childs) << "addresses that differ show nothing";
    EXPECT_EQ(read_all(stream), "x\n");
    EXPECT_EQ(VkPipeClose(stream), 0);
    EXPECT_TRUE(place::exists(pipe_path(1))) << "the child's";
    EXPECT_FALSE(place::exists(pipe_path(2)));
    gate.open_once();
    EXPECT_EQ(status_of(child), 0);
    EXPECT_FALSE(place::exists(pipe_path(1)));
    EXPECT_TRUE(all_slots_are_freed());
}

TEST(VkPipeClose, OfAChildLeavesItsParentsStreamAlone) {
    const Runner runner;
    const Gate gate;
    FILE *const stream = VkPipeOpen(IN_TWO_PARTS, "r");
    ASSERT_NE(stream, nullptr);
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        const bool is_stranger = VkPipeClose(stream) == 0 && fcntl(fileno(stream), F_GETFD) >= 0;
        _exit(is_stranger && output_of("echo x") == "x\n" ? 0 : 1);
    }
    EXPECT_EQ(status_of(child), 0);
    EXPECT_TRUE(place::exists(pipe_path(1)));
    gate.open_once();
    EXPECT_EQ(read_all(stream), BOTH_PARTS);
    EXPECT_EQ(VkPipeClose(stream), 0);
    EXPECT_FALSE(place::exists(pipe_path(1)));
    EXPECT_TRUE(all_slots_are_freed());
}

// A recorder that starts anew clears the area, and the slot is another's by then.
TEST(VkPipeClose, LeavesASlotThatIsAnothersAlone) {
    const Runner runner;
    const Area area;
    FILE *const stream = VkPipeOpen("echo x", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(read_all(stream), "x\n");
    area[0].caller_stream = 1;
    EXPECT_EQ(VkPipeClose(stream), 0);
    EXPECT_EQ(area[0].caller_stream, 1U);
    EXPECT_TRUE(place::exists(pipe_path(1)));
    fclose(stream);
    area[0].caller_stream = 0;
    EXPECT_TRUE(all_slots_are_freed());
}

TEST(VkPipe, LeavesNoCommandUnwaitedFor) {
    const Runner runner;
    for (int i = 0; i < 5; ++i) {
        output_of("true");
    }
    EXPECT_TRUE(all_slots_are_freed());
    const std::string children =
        "/proc/" + std::to_string(runner.process()) + "/task/" + std::to_string(runner.process()) + "/children";
    EXPECT_EQ(place::read_file(children), "");
}

// ---- The words alone ----

// The first pipe's number is also the status of a plain command that has ended.
TEST(RunnerWords, APumpTellsItsCallerFromTheSlotsNextOwner) {
    const Runner runner;
    const Area area;
    Words &slot = area[9];
    slot.kind = 1;
    slot.caller_stream = UINTPTR_MAX;
    strcpy(slot.command, "touch /tmp/ran");
    slot.in_use = 1;
    slot.request = 1;
    ASSERT_TRUE(eventually([&] { return slot.status == 1; }));

    // While the runner has no time at all the caller gives up, and another one's command is done.
    ASSERT_EQ(kill(runner.process(), SIGSTOP), 0);
    ASSERT_EQ(waitpid(runner.process(), nullptr, WUNTRACED), runner.process());
    slot.kind = 0;
    slot.caller_stream = 0;
    ASSERT_EQ(kill(runner.process(), SIGCONT), 0);

    EXPECT_TRUE(eventually([] { return !place::exists(pipe_path(1)); }));
    EXPECT_EQ(slot.in_use, 1);
    EXPECT_FALSE(place::exists("/tmp/ran"));
}

TEST(RunnerWords, ACallerThatNeverOpensItsPipeHoldsNobodyUp) {
    const Runner runner;
    const Area area;
    Words &slot = area[9];
    slot.kind = 1;
    slot.caller_stream = UINTPTR_MAX;
    strcpy(slot.command, "echo x");
    slot.in_use = 1;
    slot.request = 1;
    ASSERT_TRUE(eventually([&] { return slot.status == 1; }));
    EXPECT_EQ(VkSystem("exit 3"), 768);
    EXPECT_EQ(output_of("echo y"), "y\n");

    // It does after all.
    FILE *const stream = fopen(pipe_path(1).c_str(), "r");
    ASSERT_NE(stream, nullptr);
    slot.caller_stream = 1;  // only a mark
    EXPECT_EQ(read_all(stream), "x\n");
    EXPECT_EQ(slot.in_use, 1);
    fclose(stream);
    slot.caller_stream = 0;
    EXPECT_TRUE(eventually([&] { return slot.in_use == 0; }));
}

// ---- A runner that dies ----

TEST(VkPipe, EndsWhenTheRunnerIsKilled) {
    Runner runner;
    const Gate gate;
    FILE *const stream = VkPipeOpen("echo x; read line </tmp/gate; echo y", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fgetc(stream), 'x');
    runner.end();
    EXPECT_EQ(read_all(stream), "\n");
    EXPECT_EQ(VkPipeClose(stream), 0);
    gate.open_once();
}

}  // namespace

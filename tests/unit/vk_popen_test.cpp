// The stand-alone half of src/vk_system: vk_popen() and vk_pclose().
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/allocation.h>
#include <velkor/process.h>
#include <velkor_host.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/command_runner.h"
#include "support/fork_meanwhile.h"
#include "support/place.h"

// A shell that is slow to start: the list of streams is locked until it has.
namespace {

struct Shell {
    std::atomic<bool> is_there;
    std::atomic<bool> may_go_on;
};

// Seen by a child that has memory of its own, too.
Shell *const slow_shell =
    static_cast<Shell *>(mmap(nullptr, sizeof(Shell), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
std::atomic<bool> is_shell_held{false};

}  // namespace

extern "C" int execl(const char *path, const char *name, ...) noexcept {
    va_list list;
    va_start(list, name);
    const char *const option = va_arg(list, const char *);
    const char *const command = va_arg(list, const char *);
    va_end(list);
    if (is_shell_held) {
        slow_shell->is_there = true;
        while (!slow_shell->may_go_on) {
            usleep(1000);
        }
    }
    const char *const arguments[] = {name, option, command, nullptr};
    return execv(path, const_cast<char *const *>(arguments));
}

namespace {

std::string read_all(FILE *stream) {
    std::string text;
    for (int character; (character = fgetc(stream)) != EOF;) {
        text += static_cast<char>(character);
    }
    return text;
}

std::string output_of(const char *command) {
    FILE *const stream = vk_popen(command, "r");
    EXPECT_NE(stream, nullptr);
    std::string text = read_all(stream);
    EXPECT_EQ(vk_pclose(stream), 0);
    return text;
}

struct velkor_host_pool accounts() {
    struct velkor_host_pool pool = {};
    velkor_host_pool_get(0, &pool);
    return pool;
}

TEST(Popen, ReadsWhatACommandPrints) { EXPECT_EQ(output_of("echo one; echo two"), "one\ntwo\n"); }

TEST(Popen, WritesWhatACommandReads) {
    FILE *const stream = vk_popen("cat >/tmp/copy", "w");
    ASSERT_NE(stream, nullptr);
    fputs("some text", stream);
    EXPECT_EQ(vk_pclose(stream), 0);
    EXPECT_EQ(place::read_file("/tmp/copy"), "some text");
}

TEST(Popen, LooksAtTheFirstCharacterOfTheModeOnly) {
    FILE *const stream = vk_popen("echo x", "re");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(read_all(stream), "x\n");
    EXPECT_EQ(vk_pclose(stream), 0);
}

TEST(Popen, RefusesAnotherMode) {
    for (const char *const mode : {"x", "", "+r", static_cast<const char *>(nullptr)}) {
        errno = 0;
        EXPECT_EQ(vk_popen("echo x", mode), nullptr);
        EXPECT_EQ(errno, EINVAL);
    }
}

TEST(Popen, GivesTheWaitStatus) {
    EXPECT_EQ(vk_pclose(vk_popen("exit 3", "r")), 3 << 8);
    EXPECT_EQ(vk_pclose(vk_popen("kill -TERM $$", "r")), SIGTERM);
    EXPECT_EQ(vk_pclose(vk_popen("/no/such/program 2>/dev/null", "r")), 127 << 8);
}

TEST(Popen, ExitsWith127WithoutAShell) {
    const place::BoundPath no_shell("/bin/sh", "/dev/null");
    EXPECT_EQ(vk_pclose(vk_popen("true", "r")), 127 << 8);
}

TEST(Popen, ClosesItsDescriptorOnExec) {
    FILE *const stream = vk_popen("true", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fcntl(fileno(stream), F_GETFD), FD_CLOEXEC);
    vk_pclose(stream);
}

// "cat" ends when the last writer of its pipe is gone: a later command must not be one.
TEST(Popen, ALaterCommandDoesNotHoldAnEarlierStream) {
    FILE *const first = vk_popen("cat >/tmp/first; echo end >/tmp/end", "w");
    ASSERT_NE(first, nullptr);
    fcntl(fileno(first), F_SETFD, 0);  // so that only closing can help
    FILE *const second = vk_popen("cat", "w");
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(vk_pclose(first), 0);
    EXPECT_EQ(place::read_file("/tmp/end"), "end\n");
    EXPECT_EQ(vk_pclose(second), 0);
}

// ---- Standard streams that are closed: the pipe's ends get their numbers ----

// Runs `work` in a child without these descriptors; answers its exit status.
template <typename Work>
int without(const std::vector<int> &descriptors, Work work) {
    const pid_t child = fork();
    if (child == 0) {
        for (const int descriptor : descriptors) {
            close(descriptor);
        }
        alarm(20);
        _exit(work());
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

int read_x() {
    FILE *const stream = vk_popen("echo x", "r");
    return stream != nullptr && read_all(stream) == "x\n" && vk_pclose(stream) == 0 ? 0 : 1;
}

int write_x() {
    FILE *const stream = vk_popen("read word; test \"$word\" = x", "w");
    return stream != nullptr && fputs("x\n", stream) >= 0 && vk_pclose(stream) == 0 ? 0 : 1;
}

TEST(Popen, ReadsWithoutStandardInputAndOutput) {
    EXPECT_EQ(without({0}, read_x), 0);
    EXPECT_EQ(without({1}, read_x), 0);
    EXPECT_EQ(without({0, 1}, read_x), 0);
}

TEST(Popen, WritesWithoutStandardInputAndOutput) {
    EXPECT_EQ(without({0}, write_x), 0);
    EXPECT_EQ(without({1}, write_x), 0);
    EXPECT_EQ(without({0, 1}, write_x), 0);
}

// The first stream gets descriptor 1 (or 0), which in the second command's process is the pipe.
TEST(Popen, AnEarlierStreamMayHaveAStandardDescriptor) {
    const auto read_twice = [] {
        FILE *const first = vk_popen("echo first", "r");
        return first != nullptr && fileno(first) <= 1 && read_x() == 0 && read_all(first) == "first\n" ? 0 : 1;
    };
    EXPECT_EQ(without({1}, read_twice), 0);
    EXPECT_EQ(without({0, 1}, read_twice), 0);
    const auto write_twice = [] {
        FILE *const first = vk_popen("cat", "r");
        return first != nullptr && fileno(first) == 0 && write_x() == 0 ? 0 : 1;
    };
    EXPECT_EQ(without({0}, write_twice), 0);
}

// ---- Signals ----

std::string status_line(const char *name) {
    return output_of((std::string("grep ^") + name + ": /proc/self/status").c_str());
}

TEST(Popen, CommandsHaveTheCallersSignalMask) {
    const place::BoundPath shell("/bin/sh", "/bin/bash");  // some shells unblock all signals themselves
    const std::string nothing = status_line("SigBlk");
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR2);
    sigprocmask(SIG_BLOCK, &mask, nullptr);
    EXPECT_EQ(nothing, "SigBlk:\t0000000000000000\n");
    EXPECT_EQ(status_line("SigBlk"), "SigBlk:\t0000000000000800\n");
    sigset_t after;
    sigprocmask(SIG_BLOCK, nullptr, &after);
    EXPECT_EQ(sigismember(&after, SIGUSR2), 1);
    EXPECT_EQ(sigismember(&after, SIGTERM), 0);
}

TEST(Popen, LeavesTheCallersHandlersAlone) {
    const auto handler = [](int) {};
    signal(SIGUSR1, handler);
    signal(SIGUSR2, SIG_IGN);
    output_of("true");
    EXPECT_EQ(signal(SIGUSR1, SIG_DFL), static_cast<void (*)(int)>(handler));
    EXPECT_EQ(signal(SIGUSR2, SIG_DFL), SIG_IGN);
}

TEST(Pclose, WaitsThroughSignals) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};  // without SA_RESTART
    sigaction(SIGALRM, &action, nullptr);
    FILE *const stream = vk_popen("sleep 0.3; exit 5", "r");
    ASSERT_NE(stream, nullptr);
    const struct itimerval often = {{0, 10000}, {0, 10000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(vk_pclose(stream), 5 << 8);
}

TEST(Pclose, FailsWhenThereIsNothingToWaitFor) {
    signal(SIGCHLD, SIG_IGN);
    FILE *const stream = vk_popen("true", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(vk_pclose(stream), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(Pclose, RefusesAStrangersStream) {
    FILE *const stranger = fopen("/dev/null", "r");
    errno = 0;
    EXPECT_EQ(vk_pclose(stranger), -1);
    EXPECT_EQ(errno, EINVAL);
    FILE *const stream = vk_popen("true", "r");
    errno = 0;
    EXPECT_EQ(vk_pclose(stranger), -1);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(vk_pclose(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(fgetc(stranger), EOF);
    EXPECT_EQ(ferror(stranger), 0) << "it is still open";
    fclose(stranger);
    EXPECT_EQ(vk_pclose(stream), 0);
}

TEST(Pclose, FindsItsStreamAmongOthers) {
    FILE *streams[3];
    for (int i = 0; i < 3; ++i) {
        streams[i] = vk_popen(("exit " + std::to_string(i)).c_str(), "r");
    }
    EXPECT_EQ(vk_pclose(streams[1]), 1 << 8);
    EXPECT_EQ(vk_pclose(streams[2]), 2 << 8);
    EXPECT_EQ(vk_pclose(streams[0]), 0);
}

// ---- Accounts and failures ----

TEST(Popen, ChargesItsRecordToItsSourceFile) {
    FILE *const stream = vk_popen("true", "r");
    EXPECT_STREQ(accounts().name, "generalDvr");
    EXPECT_EQ(accounts().blocks, 1U);
    EXPECT_EQ(accounts().bytes, 3 * sizeof(void *));
    vk_pclose(stream);
    EXPECT_EQ(accounts().blocks, 0U);
}

TEST(Popen, FailsWithoutDescriptors) {
    const command_runner::FewDescriptors one(getpid(), 1);
    errno = 0;
    EXPECT_EQ(vk_popen("true", "r"), nullptr);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(accounts().blocks, 0U);
}

TEST(Popen, FailsWithoutAProcess) {
    const int next = dup(0);
    close(next);
    command_runner::without_children([] {
        for (const char *const mode : {"r", "w"}) {
            errno = 0;
            EXPECT_EQ(vk_popen("true", mode), nullptr);
            EXPECT_EQ(errno, ENOMEM);
        }
    });
    EXPECT_EQ(accounts().blocks, 0U);
    EXPECT_EQ(dup(0), next) << "all ends are closed";
    errno = 0;
    EXPECT_EQ(vk_pclose(nullptr), -1) << "nothing is in the list";
    EXPECT_EQ(errno, EINVAL);
}

TEST(Popen, IsThreadSafe) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int round = 0; round < 10; ++round) {
                const int number = i * 10 + round;
                FILE *const stream =
                    vk_popen(("echo " + std::to_string(number) + "; exit " + std::to_string(number)).c_str(), "r");
                ASSERT_NE(stream, nullptr);
                EXPECT_EQ(read_all(stream), std::to_string(number) + "\n");
                EXPECT_EQ(vk_pclose(stream), number << 8);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(accounts().blocks, 0U);
}

TEST(Popen, HoldsNoChildUpThatIsForkedMeanwhile) {
    is_shell_held = true;
    std::thread opener([] { EXPECT_EQ(output_of("echo slow"), "slow\n"); });
    ASSERT_TRUE(place::eventually([] { return slow_shell->is_there.load(); }));
    const auto works = [] {
        is_shell_held = false;
        FILE *const stream = vk_popen("echo x", "r");
        return stream != nullptr && read_all(stream) == "x\n" && vk_pclose(stream) == 0;
    };
    EXPECT_TRUE(fork_meanwhile::child_is_well(works, [] { slow_shell->may_go_on = true; }));
    opener.join();
}

TEST(Popen, IsRefusedWithoutMemory) {
    ASSERT_EQ(dvrRegMem("src/vk_system", 1), 0);  // a pool of 1 KiB
    void *const taken = dvrMalloc(1024, "src/vk_system", __LINE__);
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(vk_popen("true", "r"), nullptr);
    EXPECT_EQ(dvrFree(taken), 0);
    EXPECT_EQ(output_of("echo again"), "again\n");
}

}  // namespace

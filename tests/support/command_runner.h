// The command runner as a process under test, and its words of shared memory as whoever is at the other end sees them.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ipc.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/process.h>

#include <atomic>
#include <string>
#include <thread>

#include "support/coverage.h"
#include "support/place.h"

namespace command_runner {

// One of the 52 slots, written down once more: what counts is what is in memory.
struct Words {
    std::atomic<int32_t> in_use;
    std::atomic<int32_t> kind;
    std::atomic<int32_t> request;
    std::atomic<int32_t> status;
    std::atomic<int32_t> result;
    char command[2048];
    std::atomic<uintptr_t> caller_stream;
    std::atomic<uintptr_t> runner_pipe;
    std::atomic<uintptr_t> runner_command;
};

constexpr size_t AREA_SIZE = 52 * sizeof(Words);

// A directory of its own with the file that gives the key.
inline void enter_directory() {
    char name[] = "/tmp/runnerXXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    ASSERT_EQ(chdir(name), 0);
    place::write_file("TODO", "");
}

// The area attached a second time, by the key alone.
class Area {
public:
    Area() {
        const int segment = shmget(ftok("TODO", 'a'), 0, 0);
        EXPECT_NE(segment, -1);
        words_ = static_cast<Words *>(shmat(segment, nullptr, 0));
        EXPECT_NE(reinterpret_cast<intptr_t>(words_), -1);
    }
    ~Area() { shmdt(words_); }
    Area(const Area &) = delete;
    Area &operator=(const Area &) = delete;

    Words &operator[](size_t slot) const { return words_[slot]; }

    int in_use() const {
        int count = 0;
        for (size_t slot = 0; slot < VELKOR_COMMAND_SLOTS; ++slot) {
            count += words_[slot].in_use == 0 ? 0 : 1;
        }
        return count;
    }

private:
    Words *words_;
};

// A runner process, ended by its id.
class Runner {
public:
    Runner() {
        enter_directory();
        start();
    }
    // One that makes files with a umask of its own.
    explicit Runner(mode_t its_umask) {
        enter_directory();
        const mode_t own = umask(its_umask);
        start();
        umask(own);
    }
    ~Runner() {
        end();
        VkSystemUninit();
    }
    Runner(const Runner &) = delete;
    Runner &operator=(const Runner &) = delete;

    pid_t process() const { return process_; }

    void end() {
        if (process_ > 0) {
            coverage::write_down(process_);
            kill(process_, SIGKILL);
            EXPECT_EQ(waitpid(process_, nullptr, 0), process_);
            process_ = -1;
        }
    }

private:
    void start() {
        coverage::prepare();
        process_ = VkSystemInit();
        EXPECT_GT(process_, 0);
    }

    pid_t process_ = -1;
};

// prlimit(), which boards' C libraries need not know.
inline int limit_process(pid_t process, int resource, const struct rlimit *limit, struct rlimit *before) {
    static_assert(sizeof(struct rlimit) == 2 * sizeof(uint64_t), "as the kernel has it");
    return static_cast<int>(syscall(SYS_prlimit64, process, resource, limit, before));
}

// While it lives, a process gets no new descriptor but those below the first `free` unused numbers.
class FewDescriptors {
public:
    FewDescriptors(pid_t process, unsigned free) : process_(process) {
        const std::string directory = "/proc/" + std::to_string(process) + "/fd/";
        EXPECT_EQ(limit_process(process, RLIMIT_NOFILE, nullptr, &before_), 0);
        struct rlimit few = {0, before_.rlim_max};
        for (; free > 0; ++few.rlim_cur) {
            char target[8];
            free -= readlink((directory + std::to_string(few.rlim_cur)).c_str(), target, sizeof target) < 0 ? 1U : 0U;
        }
        EXPECT_EQ(limit_process(process, RLIMIT_NOFILE, &few, nullptr), 0);
    }
    ~FewDescriptors() { EXPECT_EQ(limit_process(process_, RLIMIT_NOFILE, &before_, nullptr), 0); }
    FewDescriptors(const FewDescriptors &) = delete;
    FewDescriptors &operator=(const FewDescriptors &) = delete;

private:
    pid_t process_;
    struct rlimit before_ = {};
};

// Does some work on a thread whose forks fail: the first process of the namespace for its children has ended. There is
// no way back for that thread, and the others never notice.
template <typename Work>
void without_children(Work work) {
    std::thread([&work] {
        EXPECT_EQ(unshare(CLONE_NEWPID), 0);
        const pid_t first = fork();
        if (first == 0) {
            _exit(0);
        }
        EXPECT_EQ(waitpid(first, nullptr, 0), first);
        work();
    }).join();
}

// To be called before the runner is forked: limits of a user hold for this process too, though it began as root. Where
// the sandbox's root is an ordinary user outside, they do already.
inline void become_limitable() {
    EXPECT_EQ(chmod("/tmp", 0777), 0);
    EXPECT_EQ(chmod("/tmpfile", 0777), 0);
    static_cast<void>(setresuid(65534, 65534, 65534) == 0);
}

// The process can start neither threads nor processes any more.
inline void forbid_threads(pid_t process) {
    const struct rlimit none = {0, 0};
    EXPECT_EQ(limit_process(process, RLIMIT_NPROC, &none, nullptr), 0);
}

}  // namespace command_runner

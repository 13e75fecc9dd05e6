// A fork while another thread is in the middle of something.
#pragma once

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "support/place.h"

namespace fork_meanwhile {

inline bool is_asleep(long thread) {
    const std::string stat = place::read_file("/proc/self/task/" + std::to_string(thread) + "/stat");
    return stat.substr(stat.rfind(')')).starts_with(") S");
}

// A thread that has ended just before the fork is not the child's to join, which ThreadSanitizer would see it by.
[[noreturn]] inline void end_child(bool is_well) {
    const int status = is_well ? 0 : 1;
#ifdef __SANITIZE_THREAD__
    syscall(SYS_exit_group, status);
#endif
    _exit(status);
}

// Forks a child that does `work` and is well when that is true. Another thread stands still meanwhile, with a lock
// perhaps: `let_go` sends it on, as soon as the child is there or the fork is seen to wait for that thread. Answers
// whether the child was well; one that hangs is not.
template <typename Work, typename LetGo>
bool child_is_well(Work work, LetGo let_go) {
    const long self = syscall(SYS_gettid);
    std::atomic<bool> begins{false};
    std::atomic<bool> is_over{false};
    auto *const sender = new std::thread([&] {  // not the child's to end
        EXPECT_TRUE(place::eventually(
            [&] { return is_over || (begins && is_asleep(self) && (usleep(20000), is_over || is_asleep(self))); }));
        let_go();
    });
    begins = true;
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        end_child(work());
    }
    is_over = true;
    sender->join();
    delete sender;
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status == 0;
}

}  // namespace fork_meanwhile

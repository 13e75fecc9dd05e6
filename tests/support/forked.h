// Children of the process under test: what they do has a time limit, since a child that waits for a lock that nobody
// releases waits for ever; and what they got of it.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/process.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace forked {

inline constexpr unsigned SECONDS = 10;

// Whether a child did `work`, answered true, and ended in time.
template <typename Work>
bool succeeds(Work work) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(SECONDS);
        _exit(work() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_FALSE(WIFSIGNALED(status)) << "a child ended by " << strsignal(WTERMSIG(status));
    return status == 0;
}

// A fork costs some ten times as much where memory is watched.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr int SHARE = 4;
#else
inline constexpr int SHARE = 1;
#endif

// Two threads do `business` all the time, while `children` (fewer where that takes too long) are forked that do `work`.
// Answers the number of the first that did not succeed, or -1.
template <typename Business, typename Work>
int first_that_fails(int children, Business business, Work work) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> busy;
    for (int i = 0; i < 2; ++i) {
        busy.emplace_back([&] {
            while (!stop) {
                business();
            }
        });
    }
    int failed = -1;
    for (int i = 0; i < children / SHARE && failed == -1; ++i) {
        failed = succeeds(work) ? -1 : i;
    }
    stop = true;
    for (std::thread &thread : busy) {
        thread.join();
    }
    return failed;
}

// A thread does `act` all the time, while commands are started that list their open files. Answers in how many of these
// lists `path` was.
template <typename Act>
int commands_that_hold(const std::string &path, Act act) {
    constexpr int COMMANDS = 60 / SHARE;
    std::atomic<bool> stop{false};
    std::thread busy([&] {
        while (!stop) {
            act();
        }
    });
    int held = 0;
    for (int i = 0; i < COMMANDS; ++i) {
        std::string output;
        FILE *const stream = vk_popen("ls -l /proc/self/fd", "r");
        char piece[4096];
        while (fgets(piece, sizeof piece, stream) != nullptr) {
            output += piece;
        }
        EXPECT_EQ(vk_pclose(stream), 0) << output;
        held += output.find(path) != std::string::npos ? 1 : 0;
    }
    stop = true;
    busy.join();
    return held;
}

// Whether this process has the file at `path` open.
inline bool is_open_here(const std::string &path) {
    struct stat file;
    EXPECT_EQ(stat(path.c_str(), &file), 0);
    bool is_open = false;
    DIR *const directory = opendir("/proc/self/fd");
    while (const struct dirent *const entry = readdir(directory)) {
        struct stat opened;
        is_open |= fstatat(dirfd(directory), entry->d_name, &opened, 0) == 0 && opened.st_dev == file.st_dev &&
                   opened.st_ino == file.st_ino;
    }
    closedir(directory);
    return is_open;
}

}  // namespace forked

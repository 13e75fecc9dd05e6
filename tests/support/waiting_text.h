// A text that is not to be had at once: whoever reads beyond its first character waits until the test lets him go on.
// So a thread stands still in the middle of whatever it does with the text, and holds the locks that it then holds.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "support/place.h"

// One in a process.
class WaitingText {
public:
    explicit WaitingText(const std::string &text) {
        memory_ =
            static_cast<char *>(mmap(nullptr, 2 * PAGE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_NE(memory_, MAP_FAILED);
        text_ = memory_ + PAGE - 1;
        strcpy(text_, text.c_str());
        EXPECT_EQ(mprotect(memory_ + PAGE, PAGE, PROT_NONE), 0);
        one_ = this;
        struct sigaction action = {};
        action.sa_sigaction = wait_for_the_test;
        action.sa_flags = SA_SIGINFO;
        EXPECT_EQ(sigaction(SIGSEGV, &action, nullptr), 0);
    }
    ~WaitingText() {
        signal(SIGSEGV, SIG_DFL);
        munmap(memory_, 2 * PAGE);
    }
    WaitingText(const WaitingText &) = delete;
    WaitingText &operator=(const WaitingText &) = delete;

    const char *c_str() const { return text_; }
    bool has_reader() const {
        return place::eventually([this] { return has_reader_.load(); });
    }
    void let_go() { is_there_ = true; }

private:
    static constexpr size_t PAGE = 4096;

    static void wait_for_the_test(int, siginfo_t *information, void *) {
        WaitingText &self = *one_;
        const char *const page = self.memory_ + PAGE;
        if (information->si_addr < page || information->si_addr >= page + PAGE) {
            signal(SIGSEGV, SIG_DFL);  // a fault of the program's own: it happens again
            return;
        }
        self.has_reader_ = true;
        while (!self.is_there_) {
            usleep(1000);
        }
        mprotect(self.memory_ + PAGE, PAGE, PROT_READ | PROT_WRITE);
    }

    static inline WaitingText *one_ = nullptr;
    char *memory_;
    char *text_;
    std::atomic<bool> has_reader_{false};
    std::atomic<bool> is_there_{false};
};

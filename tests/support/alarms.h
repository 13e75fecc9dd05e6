// A program's signal handlers as a library meets them: each signal ends the system call that it finds.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <atomic>

// While it lives, SIGALRM comes to a thread that does not block it, again and again, and its handler has no SA_RESTART.
class Alarms {
public:
    explicit Alarms(long microseconds) {
        struct sigaction action = {};
        action.sa_handler = [](int) { count_.fetch_add(1, std::memory_order_relaxed); };
        EXPECT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
        const struct itimerval often = {{0, microseconds}, {0, microseconds}};
        EXPECT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
    }
    ~Alarms() {
        const struct itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
    }
    Alarms(const Alarms &) = delete;
    Alarms &operator=(const Alarms &) = delete;

    static int count() { return count_; }

    // From here on they come to the other threads.
    static void spare_this_thread() {
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        EXPECT_EQ(pthread_sigmask(SIG_BLOCK, &alarm, nullptr), 0);
    }

private:
    static inline std::atomic<int> count_{0};
};

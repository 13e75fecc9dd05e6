// Every thread of the process gets a signal every millisecond, whose handler restarts no system call. No result
// changes, and no pause is shorter than its header says.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/storm.h"

namespace {

using storm::Subject;
using Clock = std::chrono::steady_clock;

constexpr int SIGNALS = storm::IS_FULL ? 20 : 8;
constexpr int LONGEST_STORM_MS = 1000;

// Of the calling thread.
thread_local volatile sig_atomic_t signals_taken = 0;

void take_signal([[maybe_unused]] int signal) { signals_taken = signals_taken + 1; }

// Sends them as long as it exists.
class Signals {
public:
    Signals() {
        struct sigaction action = {};
        action.sa_handler = take_signal;
        sigaction(SIGALRM, &action, nullptr);
        sender_ = std::thread([this] { send(); });
    }
    ~Signals() {
        has_ended_ = true;
        sender_.join();
    }
    Signals(const Signals &) = delete;
    Signals &operator=(const Signals &) = delete;

private:
    void send() {
        while (!has_ended_) {
            send_to_others(static_cast<pid_t>(syscall(SYS_gettid)));
            usleep(1000);
        }
    }

    static void send_to_others(pid_t self) {
        DIR *const threads = opendir("/proc/self/task");
        while (const struct dirent *const entry = readdir(threads)) {
            const pid_t thread = atoi(entry->d_name);
            if (thread != 0 && thread != self) {
                syscall(SYS_tgkill, getpid(), thread, SIGALRM);
            }
        }
        closedir(threads);
    }

    std::atomic<bool> has_ended_{false};
    std::thread sender_;
};

std::string differences_and_haste(const Subject &subject, const std::vector<std::string> &expected) {
    const auto begin = Clock::now();
    const std::string differences = subject.differences(expected);
    const std::chrono::duration<double, std::milli> passed = Clock::now() - begin;
    const bool is_too_short = passed.count() < subject.traits().lasts_ms;
    return differences + (is_too_short ? "a pause of " + std::to_string(subject.traits().lasts_ms) + " ms is over in " +
                                             std::to_string(passed.count()) + " ms\n"
                                       : "");
}

std::string call_under_signals(const Subject &subject) {
    const std::vector<std::string> expected = subject.call();
    const Signals signals;
    const storm::Deadline earliest(storm::length_ms(0));
    const storm::Deadline latest(storm::length_ms(LONGEST_STORM_MS));
    do {
        const std::string complaint = differences_and_haste(subject, expected);
        if (!complaint.empty()) {
            return complaint;
        }
    } while (!earliest.is_over() || (signals_taken < SIGNALS && !latest.is_over()));
    return signals_taken > 0 ? "" : "no signal came\n";
}

TEST(SignalStorm, ChangesNoResultOfAllocation) { storm::over(exports::ALLOCATION, call_under_signals); }
TEST(SignalStorm, ChangesNoResultOfCalendar) { storm::over(exports::CALENDAR, call_under_signals); }
TEST(SignalStorm, ChangesNoResultOfConcurrency) { storm::over(exports::CONCURRENCY, call_under_signals); }
TEST(SignalStorm, ChangesNoResultOfConfiguration) { storm::over(exports::CONFIGURATION, call_under_signals); }
TEST(SignalStorm, ChangesNoResultOfDiagnostics) { storm::over(exports::DIAGNOSTICS, call_under_signals); }
TEST(SignalStorm, ChangesNoResultOfFiles) { storm::over(exports::FILES, call_under_signals); }
TEST(SignalStorm, ChangesNoResultOfNetwork) { storm::over(exports::NETWORK, call_under_signals); }
TEST(SignalStorm, ChangesNoResultOfProcess) { storm::over(exports::PROCESS, call_under_signals); }
TEST(SignalStorm, ChangesNoResultOfSystemInfo) { storm::over(exports::SYSTEM_INFO, call_under_signals); }
TEST(SignalStorm, ChangesNoResultOfText) { storm::over(exports::TEXT, call_under_signals); }

}  // namespace

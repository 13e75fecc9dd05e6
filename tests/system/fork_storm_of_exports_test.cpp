// Four threads call a function while children are forked. Each child calls it, too, writes a line into the log, and
// ends: whatever lock a thread held at that moment, of this library or of the C library, no child waits for it.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <velkor/diagnostics.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/storm.h"

namespace {

using exports::Threads;
using storm::Subject;

constexpr int THREADS = 4;
constexpr int CHILDREN = 500;
constexpr int FEWEST_CHILDREN = 8;
constexpr int QUIET_CHILDREN = 3;
constexpr int STORM_MS = 1000;  // a function that takes longer has fewer children
constexpr int LONGEST_HEAD_START_US = 100;

// A child ends within milliseconds or never; on a busy machine it may wait for a processor.
constexpr int PATIENCE_MS = 5000;

// Threads that call the function while they are told to. In between, the child has the processors for itself.
class Callers {
public:
    Callers(const Subject &subject, int count) : subject_(subject) {
        for (int i = 0; i < count; ++i) {
            threads_.emplace_back([this] { call(); });
        }
    }
    ~Callers() {
        set(END);
        for (std::thread &thread : threads_) {
            thread.join();
        }
    }
    Callers(const Callers &) = delete;
    Callers &operator=(const Callers &) = delete;

    void go_on() { set(GO_ON); }
    void pause() { set(PAUSE); }

private:
    enum Order { PAUSE, GO_ON, END };

    void set(Order order) {
        order_ = order;
        order_.notify_all();
    }

    void call() {
        while (order_ != END) {
            order_.wait(PAUSE);
            subject_.call();
        }
    }

    const Subject &subject_;
    std::atomic<Order> order_{PAUSE};
    std::vector<std::thread> threads_;
};

class ForkStorm {
public:
    // Without other threads every result is as expected; otherwise what they share comes into the child half done.
    ForkStorm(const Subject &subject, int threads)
        : subject_(subject),
          is_comparable_(threads == 0 || subject.traits().threads == Threads::AT_ONCE),
          callers_(subject, threads) {}

    std::string run(int children) {
        const storm::Deadline deadline(storm::length_ms(STORM_MS));
        for (int number = 1; number <= children && (number <= FEWEST_CHILDREN || !deadline.is_over()); ++number) {
            fork_one();
            if (const std::string complaint = wait_until_left(is_slow() ? FEWEST_CHILDREN : 0); !complaint.empty()) {
                return "child " + std::to_string(number) + " " + complaint;
            }
        }
        const std::string complaint = wait_until_left(0);
        return complaint.empty() ? complaint : "a child " + complaint;
    }

private:
    // Children that pause run side by side.
    bool is_slow() const { return subject_.traits().lasts_ms > 0; }

    void fork_one() {
        callers_.go_on();
        usleep(head_start_(random_));
        const pid_t child = fork();
        if (child == 0) {
            be_child();
        }
        children_.push_back(child);
        if (!is_slow()) {
            callers_.pause();
        }
    }

    [[noreturn]] void be_child() {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const std::string differences = subject_.differences(expected_);
        const bool is_fine = differences.empty() || !is_comparable_;
        if (!is_fine) {
            strncpy(complaint_, differences.c_str(), COMPLAINT_SIZE - 1);
        }
        const int logged = vk_printftomem(0, "storm", 0, "a line of a child");
        _exit(is_fine && logged == 0 ? 0 : 1);
    }

    std::string wait_until_left(size_t count) {
        for (; children_.size() > count; children_.pop_front()) {
            const int patience = PATIENCE_MS + subject_.traits().lasts_ms;
            const std::string fault = storm::fault_of_child(children_.front(), patience);
            if (!fault.empty()) {
                return fault + complaint_;
            }
        }
        return "";
    }

    static constexpr size_t COMPLAINT_SIZE = 1000;

    const Subject &subject_;
    const bool is_comparable_;
    const std::vector<std::string> expected_ = subject_.call();
    // In memory that the children share.
    char *const complaint_ =
        static_cast<char *>(mmap(nullptr, COMPLAINT_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::deque<pid_t> children_;
    std::minstd_rand random_{1};
    std::uniform_int_distribution<useconds_t> head_start_{0, LONGEST_HEAD_START_US};
    Callers callers_;  // last, so that they end first
};

int number_of_threads(const Subject &subject) { return subject.traits().threads == Threads::IN_TURNS ? 1 : THREADS; }

std::string busy_forks(const Subject &subject) {
    const int children = storm::length_ms(0) > 0 ? INT_MAX : CHILDREN;
    return subject.traits().is_for_child ? ForkStorm(subject, number_of_threads(subject)).run(children) : "";
}

std::string quiet_forks(const Subject &subject) {
    const bool is_supported = storm::IS_FULL || !subject.traits().starts_threads;
    return subject.traits().is_for_child && is_supported ? ForkStorm(subject, 0).run(QUIET_CHILDREN) : "";
}

TEST(StormOfBusyForks, HangsNoChildInAllocation) { storm::over(exports::ALLOCATION, busy_forks); }
TEST(StormOfBusyForks, HangsNoChildInCalendar) { storm::over(exports::CALENDAR, busy_forks); }
TEST(StormOfBusyForks, HangsNoChildInConcurrency) { storm::over(exports::CONCURRENCY, busy_forks); }
TEST(StormOfBusyForks, HangsNoChildInConfiguration) { storm::over(exports::CONFIGURATION, busy_forks); }
TEST(StormOfBusyForks, HangsNoChildInDiagnostics) { storm::over(exports::DIAGNOSTICS, busy_forks); }
TEST(StormOfBusyForks, HangsNoChildInFiles) { storm::over(exports::FILES, busy_forks); }
TEST(StormOfBusyForks, HangsNoChildInNetwork) { storm::over(exports::NETWORK, busy_forks); }
TEST(StormOfBusyForks, HangsNoChildInProcess) { storm::over(exports::PROCESS, busy_forks); }
TEST(StormOfBusyForks, HangsNoChildInSystemInfo) { storm::over(exports::SYSTEM_INFO, busy_forks); }
TEST(StormOfBusyForks, HangsNoChildInText) { storm::over(exports::TEXT, busy_forks); }

// The same without other threads, which works everywhere.
TEST(ForksOfOneThread, HangNoChildInAllocation) { storm::over(exports::ALLOCATION, quiet_forks); }
TEST(ForksOfOneThread, HangNoChildInCalendar) { storm::over(exports::CALENDAR, quiet_forks); }
TEST(ForksOfOneThread, HangNoChildInConcurrency) { storm::over(exports::CONCURRENCY, quiet_forks); }
TEST(ForksOfOneThread, HangNoChildInConfiguration) { storm::over(exports::CONFIGURATION, quiet_forks); }
TEST(ForksOfOneThread, HangNoChildInDiagnostics) { storm::over(exports::DIAGNOSTICS, quiet_forks); }
TEST(ForksOfOneThread, HangNoChildInFiles) { storm::over(exports::FILES, quiet_forks); }
TEST(ForksOfOneThread, HangNoChildInNetwork) { storm::over(exports::NETWORK, quiet_forks); }
TEST(ForksOfOneThread, HangNoChildInProcess) { storm::over(exports::PROCESS, quiet_forks); }
TEST(ForksOfOneThread, HangNoChildInSystemInfo) { storm::over(exports::SYSTEM_INFO, quiet_forks); }
TEST(ForksOfOneThread, HangNoChildInText) { storm::over(exports::TEXT, quiet_forks); }

}  // namespace

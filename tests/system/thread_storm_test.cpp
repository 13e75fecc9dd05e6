// Eight threads call a function at once. Each gets the results of a single thread, unless the header says that they
// share something. What they do to each other's memory is for the sanitizers to see.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <mutex>
#include <thread>
#include <vector>

#include "support/storm.h"

namespace {

using exports::Threads;
using storm::Subject;

constexpr int THREADS = 8;
constexpr int STORM_MS = 40;

// Of long calls that are made one after the other.
constexpr int FEWER_THREADS = 2;

int number_of_threads(const Subject &subject) {
    const bool takes_long = subject.traits().threads == Threads::IN_TURNS && subject.traits().lasts_ms > 0;
    return takes_long ? FEWER_THREADS : THREADS;
}

class ThreadsAtOnce {
public:
    explicit ThreadsAtOnce(const Subject &subject) : subject_(subject), start_(number_of_threads(subject)) {}

    // Returns the first complaint.
    std::string run() {
        std::vector<std::thread> threads;
        for (int i = 0; i < number_of_threads(subject_); ++i) {
            threads.emplace_back([this] { call_and_compare(); });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        return complaint_;
    }

private:
    void call_and_compare() {
        start_.arrive_and_wait();
        const storm::Deadline deadline(storm::length_ms(STORM_MS));
        do {
            const std::string differences = call();
            if (!differences.empty() && subject_.traits().threads != Threads::SHARING) {
                complain(differences);
            }
        } while (!deadline.is_over() && !has_complaint_);
    }

    std::string call() {
        const bool takes_turns = subject_.traits().threads == Threads::IN_TURNS;
        const std::unique_lock<std::mutex> turn =
            takes_turns ? std::unique_lock(turns_) : std::unique_lock<std::mutex>();
        return subject_.differences(expected_);
    }

    void complain(const std::string &text) {
        const std::lock_guard guard(complaints_);
        complaint_ = has_complaint_ ? complaint_ : text;
        has_complaint_ = true;
    }

    const Subject &subject_;
    const std::vector<std::string> expected_ = subject_.call();
    std::barrier<> start_;
    std::mutex turns_;
    std::mutex complaints_;
    std::atomic<bool> has_complaint_{false};
    std::string complaint_;
};

std::string call_at_once(const Subject &subject) { return ThreadsAtOnce(subject).run(); }

TEST(ThreadStorm, ChangesNoResultOfAllocation) { storm::over(exports::ALLOCATION, call_at_once); }
TEST(ThreadStorm, ChangesNoResultOfCalendar) { storm::over(exports::CALENDAR, call_at_once); }
TEST(ThreadStorm, ChangesNoResultOfConcurrency) { storm::over(exports::CONCURRENCY, call_at_once); }
TEST(ThreadStorm, ChangesNoResultOfConfiguration) { storm::over(exports::CONFIGURATION, call_at_once); }
TEST(ThreadStorm, ChangesNoResultOfDiagnostics) { storm::over(exports::DIAGNOSTICS, call_at_once); }
TEST(ThreadStorm, ChangesNoResultOfFiles) { storm::over(exports::FILES, call_at_once); }
TEST(ThreadStorm, ChangesNoResultOfNetwork) { storm::over(exports::NETWORK, call_at_once); }
TEST(ThreadStorm, ChangesNoResultOfProcess) { storm::over(exports::PROCESS, call_at_once); }
TEST(ThreadStorm, ChangesNoResultOfSystemInfo) { storm::over(exports::SYSTEM_INFO, call_at_once); }
TEST(ThreadStorm, ChangesNoResultOfText) { storm::over(exports::TEXT, call_at_once); }

}  // namespace

#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <velkor/concurrency.h>

#include <array>
#include <atomic>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/asked_clock.h"
#include "support/fork_meanwhile.h"
#include "support/place.h"
#include "support/thread_table.h"

// Threads that cannot be had, the time of day, and the scheduler's pause: a test sets them, since nobody can wait for
// them or have them go wrong.
namespace {

std::atomic<int> creations{0};
std::atomic<int> failing_creation{0};  // the n-th from now on
std::atomic<bool> pretended_threads{false};
std::atomic<time_t> set_time{0};  // 0: the real one
std::atomic<bool> is_time_held{false};
std::atomic<int> waiting_for_time{0};
std::atomic<int64_t> time_leap{0};  // seconds by which each look at the clock is later than the one before
std::atomic<useconds_t> set_pause{0};
std::atomic<int64_t> asked_pause_us{0};
std::atomic<int> pauses{0};

// Whether a thread was last seen to sleep on a word of 0, which is what a worker does that has nothing to do. By kernel
// thread ids, which are small in a sandbox.
std::array<std::atomic<bool>, 4096> idle_threads;

std::atomic<bool> &is_idle(long kernel_thread) { return idle_threads[static_cast<size_t>(kernel_thread) % 4096]; }

template <typename Function>
Function c_librarys(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attribute, void *(*start)(void *),
                              void *argument) {
    ++creations;
    if (failing_creation > 0 && --failing_creation == 0) {
        return EAGAIN;
    }
    if (pretended_threads) {
        *thread = pthread_self();
        return 0;
    }
    using Create = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    static const auto create = c_librarys<Create>("pthread_create");
    return create(thread, attribute, start, argument);
}

extern "C" int pthread_detach(pthread_t thread) {
    static const auto detach = c_librarys<int (*)(pthread_t)>("pthread_detach");
    return pretended_threads ? 0 : detach(thread);
}

extern "C" long syscall(long number, ...) {
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (long &argument : arguments) {
        argument = va_arg(list, long);
    }
    va_end(list);
    static const auto call = c_librarys<long (*)(long, long, long, long, long, long, long)>("syscall");
    if (number == SYS_futex && arguments[1] == FUTEX_WAIT_BITSET_PRIVATE && arguments[2] == 0) {
        is_idle(call(SYS_gettid, 0, 0, 0, 0, 0, 0)) = true;
    }
    return call(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
}

extern "C" time_t time(time_t *out) {
    static const auto real = c_librarys<time_t (*)(time_t *)>("time");
    if (is_time_held) {
        ++waiting_for_time;
        is_time_held.wait(true);
    }
    const time_t set = set_time;
    const time_t now = set != 0 ? set : real(nullptr);
    if (time_leap != 0) {
        set_time = static_cast<time_t>(now + time_leap);
    }
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

extern "C" int clock_nanosleep(clockid_t clock, int flags, const struct timespec *moment, struct timespec *rest) {
    static const auto real =
        c_librarys<int (*)(clockid_t, int, const struct timespec *, struct timespec *)>("clock_nanosleep");
    asked_pause_us = asked_clock::microseconds_until(*moment);
    ++pauses;
    if (set_pause != 0) {
        usleep(set_pause);
        return 0;
    }
    return real(clock, flags, moment, rest);
}

namespace {

constexpr int WORKERS = 32;
constexpr pthread_t ON_A_WORKER = static_cast<pthread_t>(-1);

int start(void *(*job)(void *), void *argument) {
    pthread_t thread;
    return CreateThreadInPool(&thread, job, argument);
}

size_t workers() { return registered_threads("MyThreadTask").size(); }

// A job that says where it runs, and stays there until it is told to go on.
struct Held {
    std::atomic<bool> inside{false};
    std::atomic<bool> go_on{false};
    std::atomic<bool> done{false};
    pthread_t told{};  // by CreateThreadInPool()
    std::atomic<pthread_t> thread{};
    std::atomic<long> kernel_thread{0};

    static void *run(void *argument) {
        Held &self = *static_cast<Held *>(argument);
        self.thread = pthread_self();
        self.kernel_thread = syscall(SYS_gettid);
        is_idle(self.kernel_thread) = false;
        self.inside = true;
        self.go_on.wait(false);
        self.done = true;
        return nullptr;
    }

    int start() { return CreateThreadInPool(&told, run, this); }
    bool began() {
        return place::eventually([this] { return inside.load(); });
    }
    // Lets it go on, and waits until its worker has nothing to do.
    bool finish() {
        go_on = true;
        go_on.notify_all();
        return place::eventually([this] { return done && (told != ON_A_WORKER || is_idle(kernel_thread)); });
    }
};

std::vector<std::unique_ptr<Held>> start_held(int count) {
    std::vector<std::unique_ptr<Held>> jobs;
    for (int i = 0; i < count; ++i) {
        jobs.push_back(std::make_unique<Held>());
        EXPECT_EQ(jobs.back()->start(), 0);
        EXPECT_TRUE(jobs.back()->began());
    }
    return jobs;
}

void finish(std::vector<std::unique_ptr<Held>> &jobs) {
    for (const auto &job : jobs) {
        EXPECT_TRUE(job->finish());
    }
}

// Waits until the scheduler has looked at all workers with the time as it is now.
void let_the_scheduler_look() {
    const int before = pauses;
    EXPECT_TRUE(place::eventually([&] { return pauses >= before + 2; }));
}

// ---- Arguments ----

TEST(ThreadPool, RefusesNullsButStartsAllTheSame) {
    Held held;
    EXPECT_EQ(CreateThreadInPool(nullptr, Held::run, &held), -1);
    ASSERT_TRUE(place::eventually([] { return registered_threads("ThrPoolSchld").size() == 1; }));
    EXPECT_EQ(registered_threads("ThrPoolSchld")[0].number, 69);
    pthread_t thread = 0;
    EXPECT_EQ(CreateThreadInPool(&thread, nullptr, &held), -1);
    EXPECT_EQ(thread, pthread_t{0});
    EXPECT_EQ(CreateThreadInPool(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(creations, 1);
    EXPECT_EQ(workers(), 0U);
}

TEST(ThreadPool, RunsTheJobWithItsArgument) {
    Held held;
    ASSERT_EQ(held.start(), 0);
    ASSERT_TRUE(held.began());
    EXPECT_EQ(held.told, ON_A_WORKER);
    ASSERT_EQ(workers(), 1U);
    EXPECT_EQ(registered_threads("MyThreadTask")[0].number, 118);
    EXPECT_EQ(registered_threads("MyThreadTask")[0].thread, held.kernel_thread);
    EXPECT_TRUE(held.finish());
}

TEST(ThreadPool, ClearsTheCallersRegistration) {
    ThrInfo_DoRecord("caller", 1, nullptr);
    EXPECT_EQ(CreateThreadInPool(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(registered_threads("caller").size(), 1U);  // refused before
    failing_creation = 1;
    Held held;
    EXPECT_EQ(held.start(), -1);
    EXPECT_EQ(registered_threads("caller").size(), 0U);
    ThrInfo_DoRecord("caller", 1, nullptr);
    ASSERT_EQ(held.start(), 0);
    EXPECT_EQ(registered_threads("caller").size(), 0U);
    EXPECT_TRUE(held.began());
    EXPECT_TRUE(held.finish());
}

// ---- Workers ----

TEST(ThreadPool, GivesAJobToAnIdleWorker) {
    auto first = start_held(1);
    finish(first);
    const int before = creations;
    for (int i = 0; i < 5; ++i) {
        auto next = start_held(1);
        EXPECT_EQ(next[0]->told, ON_A_WORKER);
        EXPECT_EQ(next[0]->kernel_thread, first[0]->kernel_thread);
        finish(next);
    }
    EXPECT_EQ(creations, before);
    EXPECT_EQ(workers(), 1U);
}

TEST(ThreadPool, GivesThe33rdJobAThreadOfItsOwn) {
    auto jobs = start_held(WORKERS);
    for (const auto &job : jobs) {
        EXPECT_EQ(job->told, ON_A_WORKER);
    }
    EXPECT_EQ(workers(), size_t{WORKERS});
    auto surplus = start_held(2);
    for (const auto &job : surplus) {
        EXPECT_NE(job->told, ON_A_WORKER);
        EXPECT_EQ(job->told, job->thread);
    }
    EXPECT_EQ(workers(), size_t{WORKERS});
    finish(surplus);
    // A worker that is done takes the next.
    EXPECT_TRUE(jobs[7]->finish());
    auto next = start_held(1);
    EXPECT_EQ(next[0]->told, ON_A_WORKER);
    EXPECT_EQ(next[0]->kernel_thread, jobs[7]->kernel_thread);
    finish(next);
    finish(jobs);
}

TEST(ThreadPool, AJobMayStartJobs) {
    static std::atomic<int> run{0};
    const auto start_another = [](void *) -> void * {
        const auto count = [](void *) -> void * {
            ++run;
            return nullptr;
        };
        EXPECT_EQ(start(count, nullptr), 0);
        ++run;
        return nullptr;
    };
    ASSERT_EQ(start(start_another, nullptr), 0);
    EXPECT_TRUE(place::eventually([] { return run == 2; }));
}

TEST(ThreadPool, ManyThreadsMayCallFirst) {
    static std::atomic<int> run{0};
    std::atomic<int> ready{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 8; ++i) {
        callers.emplace_back([&] {
            ++ready;
            while (ready < 8) {
            }
            const auto count = [](void *) -> void * {
                ++run;
                return nullptr;
            };
            EXPECT_EQ(start(count, nullptr), 0);
        });
    }
    for (std::thread &caller : callers) {
        caller.join();
    }
    EXPECT_TRUE(place::eventually([] { return run == 8; }));
    // As many threads as were created: the callers, the workers and one scheduler.
    EXPECT_TRUE(place::eventually([] { return creations == 8 + static_cast<int>(workers()) + 1; }));
    EXPECT_EQ(registered_threads("ThrPoolSchld").size(), 1U);
}

// ---- Retirement ----

TEST(ThreadPool, RetiresWorkersThatWereIdleFor30Seconds) {
    set_pause = 1000;
    set_time = 1800000000;
    auto jobs = start_held(WORKERS);
    finish(jobs);
    set_time = 1800000029;
    let_the_scheduler_look();
    EXPECT_EQ(workers(), size_t{WORKERS});
    set_time = 1800000030;
    EXPECT_TRUE(place::eventually([] { return workers() == 0; }));
    // Their slots are free again.
    auto others = start_held(WORKERS);
    for (const auto &job : others) {
        EXPECT_EQ(job->told, ON_A_WORKER);
    }
    finish(others);
}

TEST(ThreadPool, LooksForIdleWorkersEveryTwoSeconds) {
    set_pause = 1000;
    EXPECT_EQ(CreateThreadInPool(nullptr, nullptr, nullptr), -1);
    let_the_scheduler_look();
    EXPECT_EQ(asked_pause_us, 2000000);
}

TEST(ThreadPool, RetiresNobodyAtWork) {
    set_pause = 1000;
    set_time = 1800000000;
    auto jobs = start_held(2);
    EXPECT_TRUE(jobs[0]->finish());
    set_time = 1800001000;
    EXPECT_TRUE(place::eventually([] { return workers() == 1; }));
    let_the_scheduler_look();
    EXPECT_EQ(workers(), 1U);
    // The end of its job is what counts.
    EXPECT_TRUE(jobs[1]->finish());
    let_the_scheduler_look();
    EXPECT_EQ(workers(), 1U);
    set_time = 1800001030;
    EXPECT_TRUE(place::eventually([] { return workers() == 0; }));
}

TEST(ThreadPool, CountsFromTheLastJob) {
    set_pause = 1000;
    set_time = 1800000000;
    auto jobs = start_held(1);
    finish(jobs);
    set_time = 1800000029;
    auto next = start_held(1);
    finish(next);
    set_time = 1800000058;
    let_the_scheduler_look();
    EXPECT_EQ(workers(), 1U);
    set_time = 1800000059;
    EXPECT_TRUE(place::eventually([] { return workers() == 0; }));
}

TEST(ThreadPool, RetiresAcrossTheEndOf32BitTime) {
    set_pause = 1000;
    set_time = std::numeric_limits<int32_t>::max() - 10;
    auto jobs = start_held(1);
    finish(jobs);
    uint32_t beyond = static_cast<uint32_t>(std::numeric_limits<int32_t>::max()) + 19;
    set_time = static_cast<time_t>(beyond);
    let_the_scheduler_look();
    EXPECT_EQ(workers(), 1U);
    ++beyond;
    set_time = static_cast<time_t>(beyond);
    EXPECT_TRUE(place::eventually([] { return workers() == 0; }));
}

TEST(ThreadPool, AClockThatIsSetBackRetiresNobody) {
    set_pause = 1000;
    set_time = 1800000000;
    auto jobs = start_held(1);
    finish(jobs);
    set_time = 1700000000;
    let_the_scheduler_look();
    EXPECT_EQ(workers(), 1U);
}

// Whoever is idle for a moment is told to retire, while jobs come in without pause: each job is run all the same, once.
TEST(ThreadPool, LosesNoJobToARetirement) {
    set_pause = 100;
    set_time = 1000;
    time_leap = 40;
    constexpr int JOBS = 1000;
    static std::atomic<int> run[4];
    std::vector<std::thread> callers;
    for (std::atomic<int> &count : run) {
        callers.emplace_back([&count] {
            for (int i = 1; i <= JOBS; ++i) {
                const auto add = [](void *number) -> void * {
                    ++*static_cast<std::atomic<int> *>(number);
                    return nullptr;
                };
                ASSERT_EQ(start(add, &count), 0);
                if (i % 8 == 0) {
                    ASSERT_TRUE(place::eventually([&] { return count == i; })) << "of " << i << " jobs " << count;
                }
            }
        });
    }
    for (std::thread &caller : callers) {
        caller.join();
    }
    for (const std::atomic<int> &count : run) {
        EXPECT_EQ(count, JOBS);
    }
    EXPECT_GT(creations, WORKERS + 10);  // there were retirements
    time_leap = 0;
}

// ---- Faults ----

TEST(ThreadPoolFault, AWorkerThatCannotStartIsAFailureAndLeavesItsSlotFree) {
    Held never;
    never.told = 42;
    failing_creation = 2;  // behind the scheduler
    EXPECT_EQ(never.start(), -1);
    EXPECT_EQ(never.told, pthread_t{42});
    auto jobs = start_held(WORKERS);
    for (const auto &job : jobs) {
        EXPECT_EQ(job->told, ON_A_WORKER);
    }
    failing_creation = 1;
    EXPECT_EQ(never.start(), -1);  // as a thread of its own
    EXPECT_EQ(never.told, pthread_t{42});
    finish(jobs);
    EXPECT_FALSE(never.inside);
}

TEST(ThreadPoolFault, ASchedulerThatCannotStartIsTriedAgain) {
    failing_creation = 1;
    auto jobs = start_held(1);
    EXPECT_EQ(jobs[0]->told, ON_A_WORKER);
    EXPECT_EQ(registered_threads("ThrPoolSchld").size(), 0U);
    auto others = start_held(1);
    EXPECT_TRUE(place::eventually([] { return registered_threads("ThrPoolSchld").size() == 1; }));
    finish(jobs);
    finish(others);
}

// ---- Forked children ----

int status_of(pid_t child) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

TEST(ThreadPoolFork, AChildBeginsWithAnEmptyPool) {
    auto jobs = start_held(WORKERS);
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);  // a child that hangs is a failure, not a wait for ever
        pretended_threads = true;
        creations = 0;
        Held held;
        const bool is_given_away = held.start() == 0 && held.told == ON_A_WORKER;
        _exit(is_given_away && creations == 2 ? 0 : 1);  // a scheduler and a worker
    }
    EXPECT_EQ(status_of(child), 0);
    finish(jobs);
}

TEST(ThreadPoolFork, HoldsNoChildUpWhileAJobIsHandedOver) {
    is_time_held = true;
    static Held held;
    std::thread caller([] { EXPECT_EQ(held.start(), 0); });
    ASSERT_TRUE(place::eventually([] { return waiting_for_time == 1; }));
    const auto hands_over = [] {
        is_time_held = false;
        pretended_threads = true;
        Held own;
        return own.start() == 0 && own.told == ON_A_WORKER;
    };
    EXPECT_TRUE(fork_meanwhile::child_is_well(hands_over, [] {
        is_time_held = false;
        is_time_held.notify_all();
    }));
    caller.join();
    EXPECT_TRUE(held.began());
    EXPECT_TRUE(held.finish());
}

// The job's own slot is the one that is taken in its child.
TEST(ThreadPoolFork, AJobThatForksGoesOnAsAWorkerInTheChild) {
    static std::atomic<int> status{-1};
    const auto fork_off = [](void *) -> void * {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            pretended_threads = true;
            static Held held[WORKERS];
            bool right = true;
            for (int i = 0; i < WORKERS; ++i) {
                right = right && held[i].start() == 0 && (held[i].told == ON_A_WORKER) == (i < WORKERS - 1);
            }
            _exit(right ? 0 : 1);
        }
        status = status_of(child);
        status.notify_all();
        return nullptr;
    };
    ASSERT_EQ(start(fork_off, nullptr), 0);
    status.wait(-1);
    EXPECT_EQ(status, 0);
}

}  // namespace

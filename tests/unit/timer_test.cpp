#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <inttypes.h>
#include <pthread.h>
#include <stdint.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/concurrency.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "support/alarms.h"
#include "support/allocation_faults.h"
#include "support/place.h"
#include "support/thread_table.h"

namespace {

// Threads that cannot be had, and threads that only seem to be: no tick of the timer thread comes between, and a forked
// child may have them under any emulator and any watcher.
std::atomic<bool> no_threads{false};
std::atomic<bool> pretended_threads{false};

}  // namespace

extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attribute, void *(*start)(void *),
                              void *argument) {
    if (no_threads) {
        return EAGAIN;
    }
    if (pretended_threads) {
        *thread = pthread_self();
        return 0;
    }
    using Create = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    static const Create create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return create(thread, attribute, start, argument);
}

extern "C" int pthread_detach(pthread_t thread) {
    static const auto detach = reinterpret_cast<int (*)(pthread_t)>(dlsym(RTLD_NEXT, "pthread_detach"));
    return pretended_threads ? 0 : detach(thread);
}

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t NEVER = 1000000000;  // ticks: some years
constexpr auto TICK = std::chrono::milliseconds(185);

// A timer that counts its calls.
struct Counter {
    std::atomic<int> calls{0};
    std::atomic<pthread_t> thread{};

    static void *count(void *counter) {
        static_cast<Counter *>(counter)->thread = pthread_self();
        ++static_cast<Counter *>(counter)->calls;
        return nullptr;
    }

    TimerEntry every(uint32_t ticks) { return {ticks, count, this}; }

    bool reaches(int number) {
        return place::eventually([&] { return calls >= number; });
    }
};

void *nothing(void *) { return nullptr; }

TimerEntry idle_timer(uintptr_t number) {
    return {NEVER, nothing, reinterpret_cast<void *>(number)};  // NOLINT(performance-no-int-to-ptr): a mere number
}

bool is_listed(const TimerEntry &entry) { return search_timer(&entry) != nullptr; }

std::string debug_text() {
    char text[256] = "";
    timer_GetDebug(text, sizeof text);
    return text;
}

std::string debug_text_of(int calls, void *(*last)(void *)) {
    char text[256];
    snprintf(text, sizeof text,
             "------------------- timer start -------------------\ncount = %d, func = 0x%" PRIxPTR
             "\n-------------------- timer end --------------------\n",
             calls, reinterpret_cast<uintptr_t>(last));
    return text;
}

// A list that nobody runs but timer_schedule().
void init_without_thread(const TimerEntry &entry) {
    pretended_threads = true;
    ASSERT_EQ(init_timer(&entry), 0);
    pretended_threads = false;
}

// A timer that the timer thread calls and that does not return before it is let go. It waits in the kernel.
struct Hanging {
    std::atomic<bool> inside{false};
    std::atomic<bool> go_on{false};

    static void *hang(void *argument) {
        Hanging &self = *static_cast<Hanging *>(argument);
        self.inside = true;
        self.go_on.wait(false);
        return nullptr;
    }

    TimerEntry every(uint32_t ticks) { return {ticks, hang, this}; }

    bool hangs() {
        return place::eventually([this] { return inside.load(); });
    }

    void let_go() {
        go_on = true;
        go_on.notify_all();
    }
};

size_t timer_threads() { return registered_threads("pthread_timer").size(); }

// ---- Arguments and codes ----

TEST(Timer, HasNoListAtFirst) {
    const TimerEntry entry = idle_timer(1);
    EXPECT_EQ(add_timer(&entry), -2);
    EXPECT_EQ(del_timer(&entry), -2);
    EXPECT_EQ(search_timer(&entry), nullptr);
    EXPECT_EQ(timer_schedule(), 0);
    EXPECT_EQ(timer_GetSoftDog(), 0U);
    EXPECT_EQ(debug_text(), debug_text_of(0, nullptr));
}

TEST(Timer, RefusesEntriesWithoutIntervalOrFunctionFirstOfAll) {
    const TimerEntry no_interval = {0, nothing, nullptr};
    const TimerEntry no_function = {1, nullptr, nullptr};
    const TimerEntry good = idle_timer(1);
    for (int round = 0; round < 2; ++round) {  // without a list and with one
        for (const TimerEntry *const entry : {static_cast<const TimerEntry *>(nullptr), &no_interval, &no_function}) {
            EXPECT_EQ(init_timer(entry), -1);
            EXPECT_EQ(add_timer(entry), -1);
            EXPECT_EQ(del_timer(entry), -1);
            EXPECT_EQ(search_timer(entry), nullptr);
        }
        EXPECT_EQ(init_timer(&good), round == 0 ? 0 : -2);
    }
}

TEST(Timer, StartsOneThreadAndRefusesASecondStart) {
    const TimerEntry first = idle_timer(1);
    const TimerEntry second = idle_timer(2);
    ASSERT_EQ(init_timer(&first), 0);
    ASSERT_TRUE(place::eventually([] { return timer_threads() == 1; }));
    EXPECT_EQ(registered_threads("pthread_timer")[0].number, 240);
    EXPECT_EQ(init_timer(&second), -2);
    EXPECT_EQ(init_timer(&first), -2);
    EXPECT_FALSE(is_listed(second));
    usleep(50000);  // room for a thread too many
    EXPECT_EQ(timer_threads(), 1U);
}

TEST(Timer, IsStartedOnceByManyThreadsAtOnce) {
    const TimerEntry entry = idle_timer(1);
    std::atomic<int> started{0};
    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] { ++(init_timer(&entry) == 0 ? started : refused); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(started, 1);
    EXPECT_EQ(refused, 7);
}

TEST(Timer, KeepsACopy) {
    TimerEntry entry = idle_timer(1);
    ASSERT_EQ(init_timer(&entry), 0);
    TimerEntry *const stored = search_timer(&entry);
    ASSERT_NE(stored, nullptr);
    EXPECT_NE(stored, &entry);
    entry.arg = nullptr;
    EXPECT_EQ(stored->arg, reinterpret_cast<void *>(1));
}

TEST(Timer, IsFoundByAllThreeMembers) {
    const TimerEntry entry = idle_timer(1);
    ASSERT_EQ(init_timer(&entry), 0);
    TimerEntry other = entry;
    other.interval -= 1;
    EXPECT_FALSE(is_listed(other));
    other = entry;
    other.func = Counter::count;
    EXPECT_FALSE(is_listed(other));
    other = entry;
    other.arg = &other;
    EXPECT_FALSE(is_listed(other));
    EXPECT_TRUE(is_listed(entry));
}

// ---- Ticks ----

TEST(Timer, RunsFirstOnItsNthTickWithItsArgument) {
    static Counter counter;
    const TimerEntry entry = counter.every(2);
    const Clock::time_point start = Clock::now();
    ASSERT_EQ(init_timer(&entry), 0);
    ASSERT_TRUE(counter.reaches(1));
    EXPECT_GE(Clock::now() - start, 2 * TICK);
    EXPECT_NE(counter.thread, pthread_self());
    ASSERT_TRUE(counter.reaches(2));
    EXPECT_GE(Clock::now() - start, 4 * TICK);
}

// The first calls, noted by the timer thread itself, which goes on while the process ends.
std::array<int, 11> order;
std::atomic<size_t> noted{0};

void *note(void *number) {
    if (noted < order.size()) {
        order[noted] = static_cast<int>(reinterpret_cast<intptr_t>(number));
        ++noted;
    }
    return nullptr;
}

TEST(Timer, TicksNoSoonerForSignals) {
    Counter counter;
    const TimerEntry entry = counter.every(1);
    const auto begin = Clock::now();
    ASSERT_EQ(init_timer(&entry), 0);
    Alarms::spare_this_thread();  // so that they come to the timer thread
    const Alarms alarms(20000);
    EXPECT_TRUE(counter.reaches(4));
    EXPECT_GE(Clock::now() - begin, 4 * TICK);
}

TEST(Timer, RunsEveryNthTickInTheOrderOfTheList) {
    const TimerEntry each = {1, note, reinterpret_cast<void *>(1)};
    const TimerEntry every_third = {3, note, reinterpret_cast<void *>(3)};
    const TimerEntry every_second = {2, note, reinterpret_cast<void *>(2)};
    ASSERT_EQ(init_timer(&each), 0);
    ASSERT_EQ(add_timer(&every_third), 0);
    ASSERT_EQ(add_timer(&every_second), 0);
    ASSERT_TRUE(place::eventually([] { return noted == order.size(); }));
    EXPECT_EQ(order, (std::array<int, 11>{1, 1, 2, 1, 3, 1, 2, 1, 1, 3, 2}));
}

TEST(Timer, ASlowOneDelaysTheOthers) {
    static Hanging hanging;
    static Counter counter;
    const TimerEntry slow = hanging.every(1);
    const TimerEntry quick = counter.every(1);
    ASSERT_EQ(init_timer(&slow), 0);
    ASSERT_EQ(add_timer(&quick), 0);
    ASSERT_TRUE(hanging.hangs());

    // Meanwhile the list is locked, for all but a search.
    std::atomic<bool> added{false};
    const TimerEntry late = idle_timer(9);
    std::thread adder([&] {
        add_timer(&late);
        added = true;
    });
    EXPECT_TRUE(is_listed(quick));
    usleep(2 * 185000);
    EXPECT_EQ(counter.calls, 0);
    EXPECT_FALSE(added);
    EXPECT_FALSE(is_listed(late));
    hanging.let_go();
    adder.join();
    EXPECT_TRUE(is_listed(late));
    EXPECT_TRUE(counter.reaches(1));
}

TEST(Timer, MaySearchForTimersWhileItRuns) {
    static TimerEntry searching;
    static std::atomic<TimerEntry *> found{nullptr};
    searching = {1,
                 [](void *) -> void * {
                     found = search_timer(&searching);
                     return nullptr;
                 },
                 nullptr};
    ASSERT_EQ(init_timer(&searching), 0);
    EXPECT_TRUE(place::eventually([] { return found != nullptr; }));
    EXPECT_EQ(found, search_timer(&searching));
}

TEST(Timer, RestsWhileItsStoredIntervalIsZero) {
    static TimerEntry pausing;
    static std::atomic<int> calls{0};
    pausing = {1,
               [](void *) -> void * {
                   ++calls;
                   search_timer(&pausing)->interval = 0;
                   return nullptr;
               },
               nullptr};
    static Counter clock;
    const TimerEntry each = clock.every(1);
    ASSERT_EQ(init_timer(&pausing), 0);
    ASSERT_EQ(add_timer(&each), 0);
    ASSERT_TRUE(clock.reaches(3));
    EXPECT_EQ(calls, 1);
    const TimerEntry paused = {0, pausing.func, pausing.arg};
    EXPECT_TRUE(is_listed(paused));
}

// ---- Deletion ----

TEST(Timer, DeletionOfAnUnknownOneChangesNothing) {
    const TimerEntry known = idle_timer(1);
    const TimerEntry unknown = idle_timer(2);
    ASSERT_EQ(init_timer(&known), 0);
    EXPECT_EQ(del_timer(&unknown), 0);
    EXPECT_TRUE(is_listed(known));
}

TEST(Timer, DeletionAtTheHeadInTheMiddleAndAtTheEnd) {
    const TimerEntry entries[] = {idle_timer(0), idle_timer(1), idle_timer(2), idle_timer(3), idle_timer(4)};
    ASSERT_EQ(init_timer(&entries[0]), 0);
    for (size_t i = 1; i < 5; ++i) {
        ASSERT_EQ(add_timer(&entries[i]), 0);
    }
    const auto listed = [&] {
        std::string text;
        for (const TimerEntry &entry : entries) {
            text += is_listed(entry) ? '+' : '-';
        }
        return text;
    };
    EXPECT_EQ(listed(), "+++++");
    EXPECT_EQ(del_timer(&entries[2]), 0);
    EXPECT_EQ(listed(), "++-++");
    EXPECT_EQ(del_timer(&entries[4]), 0);
    EXPECT_EQ(listed(), "++-+-");
    EXPECT_EQ(del_timer(&entries[0]), 0);
    EXPECT_EQ(listed(), "-+-+-");
    EXPECT_EQ(add_timer(&entries[4]), 0);
    EXPECT_EQ(listed(), "-+-++");
}

TEST(Timer, OfTwoThatAreEqualTheFirstIsDeleted) {
    const TimerEntry entry = idle_timer(1);
    const TimerEntry other = idle_timer(2);
    ASSERT_EQ(init_timer(&other), 0);
    ASSERT_EQ(add_timer(&entry), 0);
    TimerEntry *const first = search_timer(&entry);
    ASSERT_EQ(add_timer(&entry), 0);
    EXPECT_EQ(search_timer(&entry), first);
    EXPECT_EQ(del_timer(&entry), 0);
    EXPECT_TRUE(is_listed(entry));
    EXPECT_EQ(del_timer(&entry), 0);
    EXPECT_FALSE(is_listed(entry));
    EXPECT_TRUE(is_listed(other));
}

TEST(Timer, MayBeDeletedByTheListsOwnCopy) {
    const TimerEntry first = idle_timer(1);
    const TimerEntry second = idle_timer(2);
    ASSERT_EQ(init_timer(&first), 0);
    ASSERT_EQ(add_timer(&second), 0);
    EXPECT_EQ(del_timer(search_timer(&second)), 0);
    EXPECT_EQ(del_timer(search_timer(&first)), 0);
    EXPECT_FALSE(is_listed(first));
}

TEST(Timer, ADeletedOneRunsNoMore) {
    static Counter deleted;
    static Counter kept;
    const TimerEntry entry = deleted.every(1);
    const TimerEntry other = kept.every(1);
    ASSERT_EQ(init_timer(&entry), 0);
    ASSERT_EQ(add_timer(&other), 0);
    ASSERT_TRUE(deleted.reaches(1));
    ASSERT_EQ(del_timer(&entry), 0);
    const int calls = deleted.calls;
    ASSERT_TRUE(kept.reaches(kept.calls + 3));
    EXPECT_EQ(deleted.calls, calls);
}

TEST(Timer, AnEmptiedListIsStartedAgainWithASecondThread) {
    static Counter counter;
    const TimerEntry entry = counter.every(1);
    ASSERT_EQ(init_timer(&entry), 0);
    ASSERT_TRUE(counter.reaches(1));
    ASSERT_EQ(del_timer(&entry), 0);
    EXPECT_EQ(add_timer(&entry), -2);
    EXPECT_EQ(del_timer(&entry), -2);
    EXPECT_EQ(search_timer(&entry), nullptr);
    ASSERT_EQ(init_timer(&entry), 0);
    ASSERT_TRUE(place::eventually([] { return timer_threads() == 2; }));
    // Both call it. (Which of the two it is, differs by its thread id.)
    ASSERT_TRUE(counter.reaches(counter.calls + 1));
    const pthread_t one = counter.thread;
    EXPECT_TRUE(place::eventually([&] { return pthread_equal(counter.thread, one) == 0; }));
}

// The lock is in use by the former threads and by callers, all the time, while the list starts again.
TEST(Timer, IsStartedAgainWhileOthersUseTheLock) {
    const TimerEntry entry = idle_timer(1);
    const TimerEntry unknown = idle_timer(2);
    std::atomic<bool> stop{false};
    std::vector<std::thread> users;
    for (int i = 0; i < 3; ++i) {
        users.emplace_back([&] {
            while (!stop) {
                EXPECT_EQ(timer_schedule(), 0);
                const int result = del_timer(&unknown);
                EXPECT_TRUE(result == 0 || result == -2) << result;
            }
        });
    }
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(init_timer(&entry), 0);
        usleep(2000);
        EXPECT_EQ(del_timer(&entry), 0);
        EXPECT_EQ(add_timer(&entry), -2);
    }
    stop = true;
    for (std::thread &user : users) {
        user.join();
    }
}

// ---- Adding what the list already holds ----

TEST(Timer, AddingTheListsOwnCopyDropsWhatIsBehindIt) {
    const TimerEntry entries[] = {idle_timer(0), idle_timer(1), idle_timer(2), idle_timer(3)};
    ASSERT_EQ(init_timer(&entries[0]), 0);
    for (size_t i = 1; i < 4; ++i) {
        ASSERT_EQ(add_timer(&entries[i]), 0);
    }
    TimerEntry *const stored = search_timer(&entries[1]);
    TimerEntry *const dropped = search_timer(&entries[3]);
    EXPECT_EQ(add_timer(stored), 0);
    EXPECT_TRUE(is_listed(entries[0]));
    EXPECT_EQ(search_timer(&entries[1]), stored);
    EXPECT_FALSE(is_listed(entries[2]));
    EXPECT_FALSE(is_listed(entries[3]));
    // Who found it before may still read it, and add it again.
    EXPECT_EQ(dropped->arg, entries[3].arg);
    EXPECT_EQ(add_timer(dropped), 0);
    EXPECT_TRUE(is_listed(entries[3]));
    EXPECT_NE(search_timer(&entries[3]), dropped);
    // Twice the same: one was there, and a copy of it was added.
    EXPECT_EQ(del_timer(&entries[1]), 0);
    EXPECT_TRUE(is_listed(entries[1]));
    EXPECT_EQ(del_timer(&entries[1]), 0);
    EXPECT_FALSE(is_listed(entries[1]));
}

TEST(Timer, AddingTheListsLastCopyDropsNothing) {
    const TimerEntry first = idle_timer(1);
    const TimerEntry last = idle_timer(2);
    ASSERT_EQ(init_timer(&first), 0);
    ASSERT_EQ(add_timer(&last), 0);
    EXPECT_EQ(add_timer(search_timer(&last)), 0);
    EXPECT_TRUE(is_listed(first));
    EXPECT_EQ(del_timer(&last), 0);
    EXPECT_TRUE(is_listed(last));
}

// ---- Several threads ----

TEST(Timer, IsSearchedWithoutALockWhileTheListChanges) {
    const TimerEntry lasting = idle_timer(1);
    const TimerEntry coming_and_going = idle_timer(2);
    const TimerEntry behind = idle_timer(3);
    ASSERT_EQ(init_timer(&lasting), 0);
    ASSERT_EQ(add_timer(&coming_and_going), 0);
    ASSERT_EQ(add_timer(&behind), 0);
    std::atomic<bool> stop{false};
    std::vector<std::thread> searchers;
    for (int i = 0; i < 3; ++i) {
        searchers.emplace_back([&] {
            while (!stop) {
                EXPECT_TRUE(is_listed(lasting));
                EXPECT_TRUE(is_listed(behind));
                is_listed(coming_and_going);
            }
        });
    }
    for (int i = 0; i < 3000; ++i) {
        // The first of two equal ones goes, from before `behind`, and another comes to the end.
        ASSERT_EQ(add_timer(&behind), 0);
        ASSERT_EQ(del_timer(&coming_and_going), 0);
        ASSERT_EQ(add_timer(&coming_and_going), 0);
        ASSERT_EQ(del_timer(&behind), 0);
    }
    stop = true;
    for (std::thread &searcher : searchers) {
        searcher.join();
    }
    EXPECT_TRUE(is_listed(coming_and_going));
}

// ---- The soft dog and the debugging values ----

TEST(SoftDog, ClimbsWhileTheTimerThreadHangsAndIsClearedByItsNextTick) {
    static Hanging hanging;
    const TimerEntry entry = hanging.every(1);
    ASSERT_EQ(init_timer(&entry), 0);
    ASSERT_TRUE(hanging.hangs());
    const uint32_t before = timer_GetSoftDog();
    for (uint32_t i = 1; i <= 1000; ++i) {
        timer_IncreaseDog();
        ASSERT_EQ(timer_GetSoftDog(), before + i);
    }
    hanging.let_go();
    EXPECT_TRUE(place::eventually([] { return timer_GetSoftDog() == 0; }));
}

TEST(SoftDog, CountsWithoutATimerThreadToo) {
    timer_IncreaseDog();
    timer_IncreaseDog();
    EXPECT_EQ(timer_GetSoftDog(), 2U);
}

TEST(TimerDebug, TellsTheCallsAndTheLastFunction) {
    static Counter counter;
    static Hanging hanging;
    const TimerEntry first = counter.every(1);
    const TimerEntry last = hanging.every(2);
    ASSERT_EQ(init_timer(&first), 0);
    ASSERT_EQ(add_timer(&last), 0);
    ASSERT_TRUE(hanging.hangs());  // at the second tick
    EXPECT_EQ(debug_text(), debug_text_of(3, Hanging::hang));
    hanging.let_go();
}

TEST(TimerDebug, IsCutToItsBuffer) {
    const std::string whole = debug_text_of(0, nullptr);
    std::string text(whole.size() + 10, '#');
    timer_GetDebug(text.data(), 20);
    EXPECT_EQ(text.substr(0, 21), whole.substr(0, 19) + '\0' + '#');
    timer_GetDebug(text.data(), 1);
    EXPECT_EQ(text[0], '\0');
    EXPECT_EQ(text[1], whole[1]);
}

TEST(TimerDebug, WritesNothingIntoNothing) {
    timer_GetDebug(nullptr, 100);
    char text = '#';
    timer_GetDebug(&text, 0);
    timer_GetDebug(&text, -1);
    EXPECT_EQ(text, '#');
}

// ---- Ticks of the caller's own ----

TEST(TimerSchedule, RunsWhatIsDueByItsOwnCounterOnThreadsOfTheirOwn) {
    static Counter tenth;
    static Counter eleventh;
    const TimerEntry entry = tenth.every(10);
    const TimerEntry other = eleventh.every(11);
    ASSERT_NO_FATAL_FAILURE(init_without_thread(entry));
    ASSERT_EQ(add_timer(&other), 0);
    for (int i = 0; i < 9; ++i) {
        ASSERT_EQ(timer_schedule(), 0);
    }
    EXPECT_EQ(tenth.calls, 0);
    ASSERT_EQ(timer_schedule(), 0);
    ASSERT_TRUE(tenth.reaches(1));
    EXPECT_NE(tenth.thread, pthread_self());
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(timer_schedule(), 0);
    }
    ASSERT_TRUE(tenth.reaches(2));
    EXPECT_TRUE(eleventh.reaches(1));
    EXPECT_EQ(eleventh.calls, 1);
}

// A function of the list, or another thread, puts a timer to rest while the list is walked.
TEST(TimerSchedule, LooksAtAnIntervalOnce) {
    const TimerEntry entry = idle_timer(1);
    init_without_thread(entry);
    TimerEntry *const stored = search_timer(&entry);
    ASSERT_NE(stored, nullptr);
    std::atomic<bool> is_over{false};
    std::thread changer([&] {
        for (int i = 0; i < 4000000; ++i) {
            __atomic_store_n(&stored->interval, 0U, __ATOMIC_RELAXED);
            __atomic_store_n(&stored->interval, NEVER, __ATOMIC_RELAXED);
        }
        is_over = true;
    });
    while (!is_over) {
        timer_schedule();
    }
    changer.join();
}

TEST(TimerSchedule, CountsCallsThatFindNoList) {
    static Counter counter;
    timer_schedule();
    timer_schedule();
    ASSERT_NO_FATAL_FAILURE(init_without_thread(counter.every(10)));
    for (int i = 2; i < 9; ++i) {
        timer_schedule();
    }
    EXPECT_EQ(counter.calls, 0);
    timer_schedule();
    EXPECT_TRUE(counter.reaches(1));
}

TEST(TimerSchedule, LeavesTheDogAndTheDebuggingValuesAlone) {
    static Counter counter;
    ASSERT_NO_FATAL_FAILURE(init_without_thread(counter.every(1)));
    timer_IncreaseDog();
    timer_schedule();
    ASSERT_TRUE(counter.reaches(1));
    EXPECT_EQ(timer_GetSoftDog(), 1U);
    EXPECT_EQ(debug_text(), debug_text_of(0, nullptr));
}

TEST(TimerSchedule, MayBeCalledByWhatItRuns) {
    static std::atomic<int> calls{0};
    const TimerEntry entry = {2,
                              [](void *) -> void * {
                                  const TimerEntry added = idle_timer(5);
                                  EXPECT_EQ(add_timer(&added), 0);
                                  EXPECT_EQ(timer_schedule(), 0);
                                  ++calls;
                                  return nullptr;
                              },
                              nullptr};
    ASSERT_NO_FATAL_FAILURE(init_without_thread(entry));
    timer_schedule();
    timer_schedule();
    EXPECT_TRUE(place::eventually([] { return calls == 1; }));
    EXPECT_TRUE(is_listed(idle_timer(5)));
}

TEST(TimerSchedule, SkipsWhatItCannotStart) {
    static Counter counter;
    ASSERT_NO_FATAL_FAILURE(init_without_thread(counter.every(1)));
    no_threads = true;
    EXPECT_EQ(timer_schedule(), 0);
    no_threads = false;
    allocations::fail(1);
    EXPECT_EQ(timer_schedule(), 0);
    EXPECT_EQ(timer_schedule(), 0);
    EXPECT_TRUE(counter.reaches(1));
    EXPECT_EQ(counter.calls, 1);
}

// ---- Faults ----

TEST(TimerFault, WithoutAThreadThereIsNoList) {
    const TimerEntry entry = idle_timer(1);
    no_threads = true;
    EXPECT_EQ(init_timer(&entry), -3);
    EXPECT_FALSE(is_listed(entry));
    EXPECT_EQ(add_timer(&entry), -2);
    no_threads = false;
    EXPECT_EQ(init_timer(&entry), 0);
    EXPECT_TRUE(is_listed(entry));
}

TEST(TimerFault, WithoutMemoryThereIsNoList) {
    const TimerEntry entry = idle_timer(1);
    for (const int request : {1, 2}) {
        allocations::fail(request);
        EXPECT_EQ(init_timer(&entry), -3);
        EXPECT_EQ(add_timer(&entry), -2);
    }
    EXPECT_EQ(timer_threads(), 0U);
    EXPECT_EQ(init_timer(&entry), 0);
}

TEST(TimerFault, AddingWithoutMemoryAnswersZeroAndAddsNothing) {
    const TimerEntry first = idle_timer(1);
    const TimerEntry second = idle_timer(2);
    ASSERT_EQ(init_timer(&first), 0);
    for (const int request : {1, 2}) {
        allocations::fail(request);
        EXPECT_EQ(add_timer(&second), 0);
        EXPECT_FALSE(is_listed(second));
    }
    EXPECT_EQ(add_timer(&second), 0);
    EXPECT_TRUE(is_listed(second));
}

// ---- A forked child ----

TEST(TimerFork, AChildHasTheListAndAFreeLock) {
    static Hanging hanging;
    const TimerEntry holding = hanging.every(1);
    const TimerEntry other = idle_timer(2);
    ASSERT_EQ(init_timer(&holding), 0);
    ASSERT_TRUE(hanging.hangs());
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);  // a child that hangs is a failure, not a wait for ever
        pretended_threads = true;
        const bool has_list = init_timer(&other) == -2 && is_listed(holding);
        const bool changes = add_timer(&other) == 0 && del_timer(&holding) == 0 && del_timer(&other) == 0;
        const bool starts_again = init_timer(&other) == 0 && is_listed(other);
        _exit(has_list && changes && starts_again ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    hanging.let_go();
}

}  // namespace

#include <dlfcn.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <velkor/allocation.h>
#include <velkor/concurrency.h>
#include <velkor_host.h>

#include <atomic>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "support/place.h"

namespace {

// What the C library answers in place of a lock that cannot be made or ended: neither can be had for real.
std::optional<int> pretended_init_result;
std::optional<int> pretended_destroy_result;

template <typename Function>
Function c_librarys(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attribute) {
    static const auto init = c_librarys<int (*)(pthread_mutex_t *, const pthread_mutexattr_t *)>("pthread_mutex_init");
    return pretended_init_result ? *pretended_init_result : init(mutex, attribute);
}

extern "C" int pthread_mutex_destroy(pthread_mutex_t *mutex) {
    static const auto destroy = c_librarys<int (*)(pthread_mutex_t *)>("pthread_mutex_destroy");
    return pretended_destroy_result ? *pretended_destroy_result : destroy(mutex);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

// What stands in front of an entry's data.
struct Header {
    pthread_mutex_t lock;
    Header *next;
    Header *prev;
};

Header *header_of(void *data) { return reinterpret_cast<Header *>(static_cast<char *>(data) - sizeof(Header)); }

bool is_locked(pthread_mutex_t &lock) {
    bool locked = false;
    std::thread([&] {
        locked = pthread_mutex_trylock(&lock) == EBUSY;
        if (!locked) {
            pthread_mutex_unlock(&lock);
        }
    }).join();
    return locked;
}

bool is_held(void *data) { return is_locked(header_of(data)->lock); }

int never(void *, void *) {
    ADD_FAILURE() << "an entry was visited";
    return 0;
}

int any(void *, void *) { return 0; }

int has_value(void *data, void *value) { return *static_cast<int *>(data) == *static_cast<int *>(value) ? 0 : 1; }

class SafeQueueTest : public testing::Test {
protected:
    SafeQueueTest() { EXPECT_EQ(sq_construct(&queue_), 0); }

    // Entries are removed by the tests' own means: none is locked, and none but those of the queue is left.
    ~SafeQueueTest() override {
        while (void *const data = sq_remove(&queue_, any, nullptr)) {
            sqe_delete(data);
        }
        EXPECT_EQ(sq_destruct(&queue_), 0);
    }

    static int *entry(int value) {
        int *const data = static_cast<int *>(sqe_new(sizeof(int)));
        EXPECT_NE(data, nullptr);
        *data = value;
        return data;
    }

    int *add(int value) {
        int *const data = entry(value);
        EXPECT_EQ(sq_insert_tail(&queue_, data), 0);
        return data;
    }

    void *sentinel() { return &queue_.first; }

    Header *first() const { return reinterpret_cast<Header *>(queue_.first); }
    Header *last() const { return reinterpret_cast<Header *>(queue_.last); }

    // The values from the first to the last, as seen by following the links in both directions.
    std::vector<int> values() {
        std::vector<int> forward;
        for (Header *header = first(); header != sentinel(); header = header->next) {
            forward.push_back(*reinterpret_cast<int *>(header + 1));
            EXPECT_FALSE(is_locked(header->lock));
        }
        std::vector<int> backward;
        for (Header *header = last(); header != sentinel(); header = header->prev) {
            backward.insert(backward.begin(), *reinterpret_cast<int *>(header + 1));
        }
        EXPECT_EQ(forward, backward);
        EXPECT_FALSE(is_locked(queue_.lock));
        return forward;
    }

    SafeQueue queue_;
};

// ---- Construction ----

TEST_F(SafeQueueTest, IsMadeOfWhateverTheRecordHeld) {
    SafeQueue queue;
    memset(&queue, 0xa5, sizeof queue);
    EXPECT_EQ(sq_construct(&queue), 0);
    EXPECT_EQ(static_cast<void *>(queue.first), &queue.first);
    EXPECT_EQ(static_cast<void *>(queue.last), &queue.first);
    EXPECT_FALSE(is_locked(queue.lock));
    EXPECT_EQ(sq_destruct(&queue), 0);
}

TEST_F(SafeQueueTest, DestructionClearsTheRecord) {
    SafeQueue queue;
    sq_construct(&queue);
    EXPECT_EQ(sq_destruct(&queue), 0);
    std::string bytes(sizeof queue, 'x');
    memcpy(bytes.data(), &queue, sizeof queue);
    EXPECT_EQ(bytes, std::string(sizeof queue, '\0'));
}

TEST_F(SafeQueueTest, DestructionLeavesEntriesAllocated) {
    SafeQueue queue;
    sq_construct(&queue);
    int *const data = entry(7);
    sq_insert_head(&queue, data);
    EXPECT_EQ(sq_destruct(&queue), 0);
    EXPECT_EQ(*data, 7);
    sqe_delete(data);
}

TEST_F(SafeQueueTest, AnswersWhatTheLockAnswers) {
    SafeQueue queue;
    pretended_init_result = ENOMEM;
    EXPECT_EQ(sq_construct(&queue), ENOMEM);
    pretended_init_result.reset();
    EXPECT_EQ(static_cast<void *>(queue.last), &queue.first);

    sq_construct(&queue);
    pretended_destroy_result = EBUSY;
    EXPECT_EQ(sq_destruct(&queue), EBUSY);
    pretended_destroy_result.reset();
    EXPECT_EQ(queue.first, nullptr);
}

// ---- Insertion ----

TEST_F(SafeQueueTest, HeadOfAnEmptyQueueIsFirstAndLast) {
    int *const data = entry(1);
    EXPECT_EQ(sq_insert_head(&queue_, data), 0);
    EXPECT_EQ(first(), header_of(data));
    EXPECT_EQ(last(), header_of(data));
    EXPECT_EQ(header_of(data)->next, sentinel());
    EXPECT_EQ(header_of(data)->prev, sentinel());
}

TEST_F(SafeQueueTest, TailOfAnEmptyQueueIsFirstAndLast) {
    int *const data = entry(1);
    EXPECT_EQ(sq_insert_tail(&queue_, data), 0);
    EXPECT_EQ(first(), header_of(data));
    EXPECT_EQ(last(), header_of(data));
    EXPECT_EQ(header_of(data)->next, sentinel());
    EXPECT_EQ(header_of(data)->prev, sentinel());
}

TEST_F(SafeQueueTest, HeadGoesBeforeAllAndTailBehindAll) {
    sq_insert_head(&queue_, entry(2));
    sq_insert_head(&queue_, entry(1));
    sq_insert_tail(&queue_, entry(3));
    sq_insert_tail(&queue_, entry(4));
    EXPECT_THAT(values(), ElementsAre(1, 2, 3, 4));
}

TEST_F(SafeQueueTest, AfterAnEntryInTheMiddle) {
    int *const one = add(1);
    add(3);
    EXPECT_EQ(sq_insert_after(&queue_, one, entry(2)), 0);
    EXPECT_THAT(values(), ElementsAre(1, 2, 3));
}

TEST_F(SafeQueueTest, AfterTheLastBecomesTheLast) {
    int *const one = add(1);
    int *const two = entry(2);
    EXPECT_EQ(sq_insert_after(&queue_, one, two), 0);
    EXPECT_EQ(last(), header_of(two));
    EXPECT_THAT(values(), ElementsAre(1, 2));
}

TEST_F(SafeQueueTest, BeforeAnEntryInTheMiddle) {
    add(1);
    int *const three = add(3);
    EXPECT_EQ(sq_insert_before(&queue_, three, entry(2)), 0);
    EXPECT_THAT(values(), ElementsAre(1, 2, 3));
}

TEST_F(SafeQueueTest, BeforeTheFirstBecomesTheFirst) {
    int *const two = add(2);
    int *const one = entry(1);
    EXPECT_EQ(sq_insert_before(&queue_, two, one), 0);
    EXPECT_EQ(first(), header_of(one));
    EXPECT_THAT(values(), ElementsAre(1, 2));
}

// ---- Removal and search ----

TEST_F(SafeQueueTest, EmptyIsSearchedWithoutACall) {
    EXPECT_EQ(sq_find(&queue_, never, nullptr), nullptr);
    EXPECT_EQ(sq_find_reverse(&queue_, never, nullptr), nullptr);
    EXPECT_EQ(sq_remove(&queue_, never, nullptr), nullptr);
}

TEST_F(SafeQueueTest, RemovalOfTheOnlyEntryLeavesAnEmptyQueue) {
    int *const one = add(1);
    EXPECT_EQ(sq_remove(&queue_, any, nullptr), one);
    EXPECT_EQ(first(), sentinel());
    EXPECT_EQ(last(), sentinel());
    sqe_delete(one);
}

TEST_F(SafeQueueTest, RemovalTakesTheFirstThatMatches) {
    for (const int value : {1, 2, 3, 2}) {
        add(value);
    }
    int two = 2;
    int *const removed = static_cast<int *>(sq_remove(&queue_, has_value, &two));
    ASSERT_NE(removed, nullptr);
    EXPECT_THAT(values(), ElementsAre(1, 3, 2));
    EXPECT_FALSE(is_held(removed));
    sqe_delete(removed);
}

TEST_F(SafeQueueTest, RemovalAtBothEnds) {
    for (const int value : {1, 2, 3}) {
        add(value);
    }
    for (int value : {3, 1}) {
        sqe_delete(sq_remove(&queue_, has_value, &value));
    }
    EXPECT_THAT(values(), ElementsAre(2));
}

TEST_F(SafeQueueTest, RemovalLeavesTheEntrysOwnLinks) {
    int *const one = add(1);
    int *const two = add(2);
    int *const three = add(3);
    int value = 2;
    sq_remove(&queue_, has_value, &value);
    EXPECT_EQ(header_of(two)->next, header_of(three));
    EXPECT_EQ(header_of(two)->prev, header_of(one));
    sqe_delete(two);
}

TEST_F(SafeQueueTest, ARemovedEntryMayBeInsertedAgain) {
    add(1);
    add(2);
    EXPECT_EQ(sq_insert_tail(&queue_, sq_remove(&queue_, any, nullptr)), 0);
    EXPECT_THAT(values(), ElementsAre(2, 1));
}

TEST_F(SafeQueueTest, FindHoldsTheEntryUntilItIsReleased) {
    int *const one = add(1);
    EXPECT_EQ(sq_find(&queue_, any, nullptr), one);
    EXPECT_TRUE(is_held(one));
    EXPECT_FALSE(is_locked(queue_.lock));
    EXPECT_EQ(sqe_unlock(one), 0);
    EXPECT_FALSE(is_held(one));
    EXPECT_EQ(sq_find_reverse(&queue_, any, nullptr), one);
    EXPECT_TRUE(is_held(one));
    EXPECT_EQ(sqe_unlock(one), 0);
    EXPECT_THAT(values(), ElementsAre(1));
}

TEST_F(SafeQueueTest, FindComesFromTheHeadAndFindReverseFromTheTail) {
    add(1);
    int *const near_head = add(2);
    int *const near_tail = add(2);
    add(3);
    int two = 2;
    EXPECT_EQ(sq_find(&queue_, has_value, &two), near_head);
    sqe_unlock(near_head);
    EXPECT_EQ(sq_find_reverse(&queue_, has_value, &two), near_tail);
    sqe_unlock(near_tail);
}

TEST_F(SafeQueueTest, ASearchThatFailsHasSeenAllAndHoldsNothing) {
    add(1);
    add(2);
    add(3);
    std::vector<int> seen;
    const auto note = [](void *data, void *context) {
        static_cast<std::vector<int> *>(context)->push_back(*static_cast<int *>(data));
        return -1;  // anything but 0 goes on
    };
    EXPECT_EQ(sq_find(&queue_, note, &seen), nullptr);
    EXPECT_THAT(seen, ElementsAre(1, 2, 3));
    seen.clear();
    EXPECT_EQ(sq_find_reverse(&queue_, note, &seen), nullptr);
    EXPECT_THAT(seen, ElementsAre(3, 2, 1));
    seen.clear();
    EXPECT_EQ(sq_remove(&queue_, note, &seen), nullptr);
    EXPECT_THAT(seen, ElementsAre(1, 2, 3));
    EXPECT_THAT(values(), ElementsAre(1, 2, 3));
}

TEST_F(SafeQueueTest, TheCallbackRunsWithTheQueueAndItsEntryLocked) {
    int *const one = add(1);
    int *const two = add(2);
    struct Context {
        SafeQueue *queue;
        std::vector<void *> visited;
    } context = {&queue_, {}};
    const auto look = [](void *data, void *argument) {
        Context &seen = *static_cast<Context *>(argument);
        EXPECT_TRUE(is_locked(seen.queue->lock));
        EXPECT_TRUE(is_held(data));
        for (void *const before : seen.visited) {
            EXPECT_FALSE(is_held(before));
        }
        seen.visited.push_back(data);
        return 1;
    };
    sq_find(&queue_, look, &context);
    EXPECT_THAT(context.visited, ElementsAre(one, two));
}

// ---- Several threads ----

TEST_F(SafeQueueTest, AHeldEntryKeepsNobodyFromInsertingElsewhere) {
    add(1);
    int *const held = static_cast<int *>(sq_find(&queue_, any, nullptr));
    std::thread([&] {
        int *const two = add(2);
        sq_insert_head(&queue_, entry(0));
        sq_insert_after(&queue_, two, entry(4));
        sq_insert_before(&queue_, two, entry(3));
    }).join();
    sqe_unlock(held);
    EXPECT_THAT(values(), ElementsAre(0, 1, 3, 2, 4));
}

TEST_F(SafeQueueTest, AWalkWaitsAtAHeldEntryWithTheQueueLocked) {
    int *const held = add(1);
    add(2);
    ASSERT_EQ(sq_find(&queue_, any, nullptr), held);
    std::atomic<void *> removed{nullptr};
    std::thread remover([&] {
        int two = 2;
        removed = sq_remove(&queue_, has_value, &two);
    });
    EXPECT_TRUE(place::eventually([&] { return is_locked(queue_.lock); }));
    EXPECT_EQ(removed, nullptr);
    sqe_unlock(held);
    remover.join();
    ASSERT_NE(removed, nullptr);
    sqe_delete(removed);
}

// An insertion waits for the entry that a test holds, and has by then locked what comes before in the order of locks.
class SafeQueueLockOrder : public SafeQueueTest {
protected:
    void insert_against(void *held, const std::function<void()> &insert, const std::function<void()> &look) {
        pthread_mutex_lock(&header_of(held)->lock);
        std::thread inserter(insert);
        EXPECT_TRUE(place::eventually([&] { return is_locked(queue_.lock); }));
        look();
        pthread_mutex_unlock(&header_of(held)->lock);
        inserter.join();
    }
};

TEST_F(SafeQueueLockOrder, TheQueueThenTheNewEntry) {
    int *const one = entry(1);
    insert_against(
        one, [&] { sq_insert_head(&queue_, one); }, [&] { EXPECT_EQ(first(), sentinel()); });
    int *const two = entry(2);
    insert_against(
        two, [&] { sq_insert_tail(&queue_, two); }, [&] { EXPECT_EQ(last(), header_of(one)); });
    EXPECT_THAT(values(), ElementsAre(1, 2));
}

TEST_F(SafeQueueLockOrder, TheListedEntryThenTheNewOne) {
    int *const listed = add(1);
    int *const behind = entry(2);
    insert_against(
        listed, [&] { sq_insert_after(&queue_, listed, behind); }, [&] { EXPECT_FALSE(is_held(behind)); });
    int *const before = entry(0);
    insert_against(
        listed, [&] { sq_insert_before(&queue_, listed, before); }, [&] { EXPECT_FALSE(is_held(before)); });
    EXPECT_THAT(values(), ElementsAre(0, 1, 2));
    int *const later = entry(3);
    insert_against(
        later, [&] { sq_insert_after(&queue_, behind, later); },
        [&] { EXPECT_TRUE(place::eventually([&] { return is_held(behind); })); });
    int *const sooner = entry(-1);
    insert_against(
        sooner, [&] { sq_insert_before(&queue_, before, sooner); },
        [&] { EXPECT_TRUE(place::eventually([&] { return is_held(before); })); });
    EXPECT_THAT(values(), ElementsAre(-1, 0, 1, 2, 3));
}

// ---- Entries ----

velkor_host_pool pool_named(const std::string &name) {
    velkor_host_pool pool = {};
    for (unsigned number = 0; velkor_host_pool_get(number, &pool) == 0; ++number) {
        if (name == pool.name) {
            return pool;
        }
    }
    return {};
}

TEST(SafeQueueEntryTest, IsAHeaderAndItsDataInOneTrackedBlock) {
    void *const data = sqe_new(100);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(pool_named("generalDvr").blocks, 1U);
    EXPECT_EQ(pool_named("generalDvr").bytes, sizeof(Header) + 100);
    memset(data, 0xff, 100);
    EXPECT_EQ(header_of(data)->next, nullptr);
    EXPECT_EQ(header_of(data)->prev, nullptr);
    EXPECT_FALSE(is_held(data));
    sqe_delete(data);
    EXPECT_EQ(pool_named("generalDvr").blocks, 0U);
}

TEST(SafeQueueEntryTest, IsChargedToTheQueuesSourceFile) {
    ASSERT_EQ(dvrRegMem("src/safe_circle_queue", 0), 0);
    void *const data = sqe_new(1);
    EXPECT_EQ(pool_named("src/safe_circle_queue").blocks, 1U);
    sqe_delete(data);
    EXPECT_EQ(pool_named("src/safe_circle_queue").blocks, 0U);
}

TEST(SafeQueueEntryTest, HoldsPointersAnd64BitNumbers) {
    for (unsigned size = 1; size < 40; ++size) {
        void *const data = sqe_new(size);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(data) % alignof(uint64_t), 0U);
        sqe_delete(data);
    }
}

TEST(SafeQueueEntryTest, WithoutMemoryIsLoggedAndNull) {
    const LogCapture log;
    ASSERT_EQ(dvrRegMem("safe_circle_queue", 1), 0);  // KiB
    EXPECT_EQ(sqe_new(1024), nullptr);
    const std::vector<std::string> messages = LogCapture::take_messages();
    ASSERT_EQ(messages.size(), 2U);  // the allocator's own, and this
    EXPECT_THAT(messages[1], MatchesRegex(R"(Error\. -\[sqe_new:[0-9]+\]-)"));
}

// On 32 bits such a size and the header's make a small number, for which there would be memory.
TEST(SafeQueueEntryTest, OfNearly4GiBIsNoSmallOne) {
    const LogCapture log;
    ASSERT_EQ(dvrRegMem("safe_circle_queue", 64), 0);  // KiB
    constexpr unsigned MOST = std::numeric_limits<unsigned>::max();
    for (const unsigned size : {MOST, MOST - 1, MOST - unsigned{sizeof(Header)} + 1, MOST - unsigned{sizeof(Header)}}) {
        LogCapture::take_messages();
        EXPECT_EQ(sqe_new(size), nullptr) << size;
        const std::vector<std::string> messages = LogCapture::take_messages();
        ASSERT_FALSE(messages.empty());
        EXPECT_THAT(messages.back(), MatchesRegex(R"(Error\. -\[sqe_new:[0-9]+\]-)"));
    }
}

// ---- Bad arguments ----

class SafeQueueReport : public SafeQueueTest {
protected:
    SafeQueueReport() { fpDebugFile = open_memstream(&text_, &size_); }
    ~SafeQueueReport() override {
        fclose(fpDebugFile);
        fpDebugFile = nullptr;
        free(text_);
    }

    void expect_report(const std::string &function, const std::string &expression) {
        fflush(fpDebugFile);
        const std::string report(text_ + read_, size_ - read_);
        read_ = size_;
        EXPECT_THAT(report,
                    MatchesRegex("[A-Z][a-z]+ [A-Z][a-z]+ [ 0-9]+ [0-9:]+ [0-9]+\nsrc/safe_circle_queue: [0-9]+: " +
                                 function + ": Assertion '" + expression + "' failed\\.\r\n"));
    }

    char *text_ = nullptr;
    size_t size_ = 0;
    size_t read_ = 0;
};

TEST_F(SafeQueueReport, ConstructionAndDestructionOfNoQueue) {
    EXPECT_EQ(sq_construct(nullptr), -1);
    expect_report("sq_construct", "NULL != _pThis");
    EXPECT_EQ(sq_destruct(nullptr), -1);
    expect_report("sq_destruct", "NULL != _pThis");
}

TEST_F(SafeQueueReport, InsertionNamesTheFirstThatIsMissing) {
    int *const one = add(1);
    int *const two = entry(2);
    EXPECT_EQ(sq_insert_after(nullptr, nullptr, nullptr), -1);
    expect_report("sq_insert_after", "NULL != _pThis");
    EXPECT_EQ(sq_insert_after(&queue_, nullptr, nullptr), -2);
    expect_report("sq_insert_after", "NULL != _pListEntryData");
    EXPECT_EQ(sq_insert_after(&queue_, one, nullptr), -3);
    expect_report("sq_insert_after", "NULL != _pNewEntryData");
    EXPECT_EQ(sq_insert_before(nullptr, one, two), -1);
    expect_report("sq_insert_before", "NULL != _pThis");
    EXPECT_EQ(sq_insert_before(&queue_, nullptr, two), -2);
    expect_report("sq_insert_before", "NULL != _pListEntryData");
    EXPECT_EQ(sq_insert_before(&queue_, one, nullptr), -3);
    expect_report("sq_insert_before", "NULL != _pNewEntryData");
    EXPECT_EQ(sq_insert_head(nullptr, nullptr), -1);
    expect_report("sq_insert_head", "NULL != _pThis");
    EXPECT_EQ(sq_insert_head(&queue_, nullptr), -2);
    expect_report("sq_insert_head", "NULL != _pNewEntryData");
    EXPECT_EQ(sq_insert_tail(nullptr, two), -1);
    expect_report("sq_insert_tail", "NULL != _pThis");
    EXPECT_EQ(sq_insert_tail(&queue_, nullptr), -2);
    expect_report("sq_insert_tail", "NULL != _pNewEntryData");
    EXPECT_THAT(values(), ElementsAre(1));
    sqe_delete(two);
}

TEST_F(SafeQueueReport, SearchesNameTheFirstThatIsMissing) {
    add(1);
    EXPECT_EQ(sq_remove(nullptr, nullptr, nullptr), nullptr);
    expect_report("sq_remove", "NULL != _pThis");
    EXPECT_EQ(sq_remove(&queue_, nullptr, nullptr), nullptr);
    expect_report("sq_remove", "NULL != _pcbk");
    EXPECT_EQ(sq_find(nullptr, never, nullptr), nullptr);
    expect_report("sq_find", "NULL != _pThis");
    EXPECT_EQ(sq_find(&queue_, nullptr, nullptr), nullptr);
    expect_report("sq_find", "NULL != _pcbk");
    EXPECT_EQ(sq_find_reverse(nullptr, never, nullptr), nullptr);
    expect_report("sq_find_reverse", "NULL != _pThis");
    EXPECT_EQ(sq_find_reverse(&queue_, nullptr, nullptr), nullptr);
    expect_report("sq_find_reverse", "NULL != _pcbk");
    EXPECT_THAT(values(), ElementsAre(1));
}

TEST_F(SafeQueueReport, EntriesOfNoSizeAndNoEntries) {
    const LogCapture log;
    EXPECT_EQ(sqe_new(0), nullptr);
    expect_report("sqe_new", "0 != _uSize");
    EXPECT_THAT(LogCapture::take_messages(), IsEmpty());
    sqe_delete(nullptr);
    expect_report("sqe_delete", "NULL != _p");
    EXPECT_EQ(sqe_unlock(nullptr), -1);
    expect_report("sqe_unlock", "NULL != _p");
}

TEST_F(SafeQueueTest, AnswersBadArgumentsWithoutADebugStreamToo) {
    ASSERT_EQ(fpDebugFile, nullptr);
    EXPECT_EQ(sq_construct(nullptr), -1);
    EXPECT_EQ(sq_insert_after(&queue_, nullptr, nullptr), -2);
    EXPECT_EQ(sq_find(&queue_, nullptr, nullptr), nullptr);
    EXPECT_EQ(sqe_new(0), nullptr);
    sqe_delete(nullptr);
    EXPECT_EQ(sqe_unlock(nullptr), -1);
}

}  // namespace

// Eight threads on one queue: they insert everywhere, hold what they find for a while and remove. What is counted at
// the end is what was put in and not taken out. The work is fixed, or as much as VELKOR_STRESS_SECONDS lets them do.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>
#include <velkor/concurrency.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned THREADS = 8;
constexpr int ANCHORS = 4;      // never removed, so that an insertion beside one is always beside an entry of the queue
constexpr int64_t MOST = 200;   // entries at a time: every walk passes many
constexpr int WORK = 4000;      // operations of each thread: two or three seconds, most of them spent holding
constexpr unsigned KINDS = 16;  // what searches look for

struct Item {
    uint64_t number;  // 0: an anchor
    unsigned kind;
    std::atomic<int> holders;
};

struct Accounts {
    std::atomic<uint64_t> last_number{0};
    std::atomic<uint64_t> operations{0};
    std::atomic<int64_t> entries{0};
    std::atomic<uint64_t> sum{0};
    std::atomic<uint64_t> found{0};
};
Accounts accounts;

Item *new_item(uint64_t number, unsigned kind) { return new (sqe_new(sizeof(Item))) Item{number, kind, {0}}; }

int is_kind(void *data, void *kind) {
    const Item &item = *static_cast<Item *>(data);
    EXPECT_EQ(item.holders, 0) << "a search visits what somebody holds";
    return item.number != 0 && item.kind == *static_cast<unsigned *>(kind) ? 0 : 1;
}

int is_no_anchor(void *data, void *) { return static_cast<Item *>(data)->number != 0 ? 0 : 1; }

int count_one(void *, void *count) {
    ++*static_cast<int64_t *>(count);
    return 1;
}

class Worker {
public:
    Worker(SafeQueue &queue, const std::vector<Item *> &anchors, unsigned seed)
        : queue_(queue), anchors_(anchors), random_(seed) {}

    void work_off() {
        for (int i = 0; i < WORK; ++i) {
            do_something();
        }
    }

    void work_until(Clock::time_point end) {
        while (Clock::now() < end) {
            do_something();
        }
    }

private:
    void do_something() {
        switch (random_() % 4) {
            case 0:
            case 1:
                insert();
                break;
            case 2:
                remove();
                break;
            default:
                hold();
        }
        ++accounts.operations;
    }

    void insert() {
        if (accounts.entries >= MOST) {
            return;
        }
        Item *const item = new_item(++accounts.last_number, kind());
        Item *const anchor = anchors_[random_() % anchors_.size()];
        ++accounts.entries;
        accounts.sum += item->number;
        switch (random_() % 4) {
            case 0:
                EXPECT_EQ(sq_insert_head(&queue_, item), 0);
                break;
            case 1:
                EXPECT_EQ(sq_insert_tail(&queue_, item), 0);
                break;
            case 2:
                EXPECT_EQ(sq_insert_after(&queue_, anchor, item), 0);
                break;
            default:
                EXPECT_EQ(sq_insert_before(&queue_, anchor, item), 0);
        }
    }

    void remove() {
        unsigned wanted = kind();
        if (Item *const item = static_cast<Item *>(sq_remove(&queue_, is_kind, &wanted))) {
            EXPECT_EQ(item->holders, 0);
            --accounts.entries;
            accounts.sum -= item->number;
            sqe_delete(item);
        }
    }

    void hold() {
        unsigned wanted = kind();
        const auto find = random_() % 2 == 0 ? sq_find : sq_find_reverse;
        if (Item *const item = static_cast<Item *>(find(&queue_, is_kind, &wanted))) {
            EXPECT_EQ(item->holders++, 0);
            usleep(static_cast<useconds_t>(random_() % 300));
            EXPECT_EQ(--item->holders, 0);
            ++accounts.found;
            sqe_unlock(item);
        }
    }

    unsigned kind() { return static_cast<unsigned>(random_() % KINDS); }

    SafeQueue &queue_;
    const std::vector<Item *> &anchors_;
    std::minstd_rand random_;
};

// 0: as long as the fixed work takes.
std::chrono::seconds duration() {
    const char *const seconds = getenv("VELKOR_STRESS_SECONDS");
    return std::chrono::seconds(seconds != nullptr ? atoi(seconds) : 0);
}

unsigned seed() {
    const char *const chosen = getenv("VELKOR_STRESS_SEED");
    return chosen != nullptr ? static_cast<unsigned>(atoi(chosen)) : std::random_device()();
}

TEST(QueueStress, LosesNothingAndKeepsWhatIsHeld) {
    const unsigned first_seed = seed();
    printf("VELKOR_STRESS_SEED=%u\n", first_seed);
    SafeQueue queue;
    ASSERT_EQ(sq_construct(&queue), 0);
    std::vector<Item *> anchors;
    for (int i = 0; i < ANCHORS; ++i) {
        anchors.push_back(new_item(0, 0));
        sq_insert_tail(&queue, anchors.back());
    }

    const std::chrono::seconds limit = duration();
    const Clock::time_point end = Clock::now() + limit;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < THREADS; ++i) {
        threads.emplace_back([&, i] {
            Worker worker(queue, anchors, first_seed + i);
            limit.count() != 0 ? worker.work_until(end) : worker.work_off();
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }

    int64_t forward = 0;
    int64_t backward = 0;
    EXPECT_EQ(sq_find(&queue, count_one, &forward), nullptr);
    EXPECT_EQ(sq_find_reverse(&queue, count_one, &backward), nullptr);
    EXPECT_EQ(forward, accounts.entries + ANCHORS);
    EXPECT_EQ(backward, accounts.entries + ANCHORS);
    printf("%llu operations, %llu entries inserted, %llu held, %lld left\n",
           static_cast<unsigned long long>(accounts.operations), static_cast<unsigned long long>(accounts.last_number),
           static_cast<unsigned long long>(accounts.found), static_cast<long long>(accounts.entries));
    EXPECT_GT(accounts.found, 0U);

    uint64_t sum = 0;
    while (Item *const item = static_cast<Item *>(sq_remove(&queue, is_no_anchor, nullptr))) {
        sum += item->number;
        sqe_delete(item);
    }
    EXPECT_EQ(sum, accounts.sum);
    for (Item *const anchor : anchors) {
        const auto is_this = [](void *data, void *wanted) { return data == wanted ? 0 : 1; };
        EXPECT_EQ(sq_remove(&queue, is_this, anchor), anchor);
        sqe_delete(anchor);
    }
    EXPECT_EQ(static_cast<void *>(queue.first), &queue.first);
    EXPECT_EQ(sq_destruct(&queue), 0);
}

}  // namespace

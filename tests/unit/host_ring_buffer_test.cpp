#include <gtest/gtest.h>
#include <limits.h>
#include <malloc.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

#include <array>
#include <atomic>
#include <barrier>
#include <deque>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int REFUSES = 0;
constexpr int DROPS_OLDEST = 1;
constexpr unsigned RECORD_SIZE = 1024;
constexpr unsigned LOG_SIZE = 0x80000;

velkor_host_ring look(unsigned ring) {
    velkor_host_ring shown = {};
    EXPECT_EQ(velkor_host_ring_get(ring, &shown), 0);
    return shown;
}

int write(unsigned ring, const std::string &text) {
    return ringbuf_Write(static_cast<unsigned>(text.size()), text.data(), ring);
}

std::string read(unsigned ring, unsigned length) {
    std::string text(length, '?');
    EXPECT_EQ(ringbuf_Read(length, text.data(), ring), static_cast<int>(length));
    return text;
}

std::string read_all(unsigned ring) {
    const int held = ringbuf_DataSize(ring);
    return held > 0 ? read(ring, static_cast<unsigned>(held)) : "";
}

// A record that shows whether it is whole, and whose it is.
struct Record {
    uint32_t writer;
    uint32_t sequence;
    std::array<uint32_t, RECORD_SIZE / 4 - 2> filling;

    static Record make(uint32_t writer, uint32_t sequence) {
        Record record;
        record.writer = writer;
        record.sequence = sequence;
        record.filling.fill(writer * 1000003 + sequence);
        return record;
    }
    bool is_whole() const {
        for (const uint32_t word : filling) {
            if (word != writer * 1000003 + sequence) {
                return false;
            }
        }
        return true;
    }
};
static_assert(sizeof(Record) == RECORD_SIZE);

int write(unsigned ring, const Record &record) { return ringbuf_Write(sizeof record, &record, ring); }

// ---- Making ----

TEST(HostRing, HandlesCountFromOne) {
    EXPECT_EQ(ringbuf_Create(16, DROPS_OLDEST), 1U);
    EXPECT_EQ(ringbuf_Create(16, DROPS_OLDEST), 2U);
    EXPECT_EQ(ringbuf_Create(16, REFUSES), 3U);
}

TEST(HostRing, NewRingIsEmpty) {
    const unsigned ring = ringbuf_Create(16, DROPS_OLDEST);
    EXPECT_EQ(ringbuf_DataSize(ring), 0);
    const velkor_host_ring shown = look(ring);
    EXPECT_EQ(shown.capacity, 16U);
    EXPECT_EQ(shown.held, 0U);
    EXPECT_EQ(shown.written, 0U);
    EXPECT_EQ(shown.read, 0U);
    EXPECT_EQ(shown.dropped, 0U);
    EXPECT_EQ(shown.refused, 0U);
}

TEST(HostRing, IsNotMadeWithoutBytes) {
    EXPECT_EQ(ringbuf_Create(0, DROPS_OLDEST), 0U);
    EXPECT_EQ(ringbuf_Create(0, REFUSES), 0U);
}

TEST(HostRing, IsNotMadeLongerThanItsLengthCanBeTold) {
    EXPECT_EQ(ringbuf_Create(INT_MAX + 1U, DROPS_OLDEST), 0U);
    EXPECT_EQ(ringbuf_Create(UINT_MAX, DROPS_OLDEST), 0U);
    EXPECT_EQ(ringbuf_Create(16, DROPS_OLDEST), 1U);
}

TEST(HostRing, ThereAreThirtyTwo) {
    static_assert(VELKOR_HOST_RINGS == 32);
    for (unsigned number = 1; number <= 32; ++number) {
        ASSERT_EQ(ringbuf_Create(16, DROPS_OLDEST), number);
    }
    EXPECT_EQ(ringbuf_Create(16, DROPS_OLDEST), 0U);
    EXPECT_EQ(write(32, "still works"), 11);
    EXPECT_EQ(ringbuf_DataSize(31), 0);
}

TEST(HostRing, ThreadsThatMakeRingsGetOneEach) {
    constexpr unsigned THREADS = 4;
    std::array<std::array<unsigned, VELKOR_HOST_RINGS / THREADS>, THREADS> made = {};
    std::barrier<> start(THREADS);
    {
        std::vector<std::jthread> makers;
        makers.reserve(made.size());
        for (auto &own : made) {
            makers.emplace_back([&own, &start] {
                start.arrive_and_wait();
                for (unsigned &ring : own) {
                    ring = ringbuf_Create(0x10000, REFUSES);
                }
            });
        }
    }
    std::set<unsigned> different;
    for (const auto &own : made) {
        different.insert(own.begin(), own.end());
    }
    EXPECT_EQ(different.size(), size_t{VELKOR_HOST_RINGS});
    EXPECT_EQ(*different.begin(), 1U);
    EXPECT_EQ(*different.rbegin(), VELKOR_HOST_RINGS);
}

// Of the process's heap. Each C library has a record of its own for it.
size_t bytes_in_use() {
#ifdef __UCLIBC__
    return static_cast<size_t>(mallinfo().uordblks);
#else
    return mallinfo2().uordblks;
#endif
}

TEST(HostRing, AllocatesNothingOnceMade) {
    const unsigned ring = ringbuf_Create(LOG_SIZE, DROPS_OLDEST);
    const Record record = Record::make(1, 2);
    Record taken;
    const size_t before = bytes_in_use();
    for (int i = 0; i < 2000; ++i) {
        write(ring, record);
        ringbuf_Write(static_cast<unsigned>(i % 7 + 1), &record, ring);
        if (i % 3 == 0) {
            ringbuf_Read(sizeof taken, &taken, ring);
        }
    }
    EXPECT_EQ(bytes_in_use(), before);
}

// ---- Writing and reading ----

TEST(HostRing, WriteAndReadAnswerTheLength) {
    const unsigned ring = ringbuf_Create(16, DROPS_OLDEST);
    EXPECT_EQ(ringbuf_Write(5, "hello", ring), 5);
    EXPECT_EQ(ringbuf_DataSize(ring), 5);
    char text[5];
    EXPECT_EQ(ringbuf_Read(5, text, ring), 5);
    EXPECT_EQ(std::string(text, 5), "hello");
    EXPECT_EQ(ringbuf_DataSize(ring), 0);
    EXPECT_EQ(look(ring).written, 1U);
    EXPECT_EQ(look(ring).read, 1U);
}

TEST(HostRing, RingsAreIndependent) {
    const unsigned one = ringbuf_Create(16, DROPS_OLDEST);
    const unsigned other = ringbuf_Create(16, DROPS_OLDEST);
    write(one, "one");
    write(other, "other");
    EXPECT_EQ(read_all(one), "one");
    EXPECT_EQ(read_all(other), "other");
}

TEST(HostRing, EveryByteOfItsSizeIsUsable) {
    const unsigned ring = ringbuf_Create(10, REFUSES);
    EXPECT_EQ(write(ring, "0123456789"), 10);
    EXPECT_EQ(write(ring, "x"), -1);
    EXPECT_EQ(read(ring, 10), "0123456789");
}

TEST(HostRing, OneByteIsARing) {
    const unsigned ring = ringbuf_Create(1, DROPS_OLDEST);
    EXPECT_EQ(write(ring, "a"), 1);
    EXPECT_EQ(write(ring, "b"), 1);
    EXPECT_EQ(write(ring, "cd"), -1);
    EXPECT_EQ(read_all(ring), "b");
}

TEST(HostRing, TheLogsSizeHolds512Records) {
    const unsigned ring = ringbuf_Create(LOG_SIZE, DROPS_OLDEST);
    for (uint32_t number = 0; number < 512; ++number) {
        ASSERT_EQ(write(ring, Record::make(0, number)), static_cast<int>(RECORD_SIZE));
    }
    EXPECT_EQ(ringbuf_DataSize(ring), static_cast<int>(LOG_SIZE));
    EXPECT_EQ(look(ring).dropped, 0U);

    ASSERT_EQ(write(ring, Record::make(0, 512)), static_cast<int>(RECORD_SIZE));
    EXPECT_EQ(look(ring).dropped, 1U);
    for (uint32_t number = 1; number <= 512; ++number) {
        Record taken;
        ASSERT_EQ(ringbuf_Read(sizeof taken, &taken, ring), static_cast<int>(RECORD_SIZE));
        EXPECT_EQ(taken.sequence, number);
        EXPECT_TRUE(taken.is_whole());
    }
    EXPECT_EQ(ringbuf_DataSize(ring), 0);
}

TEST(HostRing, ReadsMayCrossWrites) {
    const unsigned ring = ringbuf_Create(16, DROPS_OLDEST);
    write(ring, "abc");
    write(ring, "defg");
    write(ring, "hi");
    EXPECT_EQ(read(ring, 1), "a");
    EXPECT_EQ(read(ring, 5), "bcdef");
    EXPECT_EQ(read(ring, 3), "ghi");
}

TEST(HostRing, ReadOfMoreThanIsHeldRemovesNothing) {
    const unsigned ring = ringbuf_Create(16, DROPS_OLDEST);
    write(ring, "abc");
    char text[4] = "...";
    EXPECT_EQ(ringbuf_Read(4, text, ring), -1);
    EXPECT_STREQ(text, "...");
    EXPECT_EQ(look(ring).read, 0U);
    EXPECT_EQ(read_all(ring), "abc");
}

// ---- Bad arguments ----

TEST(HostRing, WriteRefusesBadArguments) {
    const unsigned ring = ringbuf_Create(16, DROPS_OLDEST);
    for (const unsigned stranger : {0U, ring + 1, 32U, 33U, UINT_MAX}) {
        EXPECT_EQ(ringbuf_Write(1, "a", stranger), -1) << stranger;
    }
    EXPECT_EQ(ringbuf_Write(1, nullptr, ring), -1);
    EXPECT_EQ(ringbuf_Write(0, "a", ring), -1);
    EXPECT_EQ(look(ring).refused, 0U);  // these are mistakes, not a full ring
    EXPECT_EQ(ringbuf_DataSize(ring), 0);
}

TEST(HostRing, ReadRefusesBadArguments) {
    const unsigned ring = ringbuf_Create(16, DROPS_OLDEST);
    write(ring, "abc");
    char text[4];
    for (const unsigned stranger : {0U, ring + 1, 32U, 33U, UINT_MAX}) {
        EXPECT_EQ(ringbuf_Read(1, text, stranger), -1) << stranger;
    }
    EXPECT_EQ(ringbuf_Read(1, nullptr, ring), -1);
    EXPECT_EQ(ringbuf_Read(0, text, ring), -1);
    EXPECT_EQ(read_all(ring), "abc");
}

TEST(HostRing, DataSizeOfNoRingIsNegative) {
    const unsigned ring = ringbuf_Create(16, DROPS_OLDEST);
    for (const unsigned stranger : {0U, ring + 1, 32U, 33U, UINT_MAX}) {
        EXPECT_EQ(ringbuf_DataSize(stranger), -1) << stranger;
    }
}

TEST(HostRing, LooksOnlyAtRingsThatAreThere) {
    velkor_host_ring shown = {};
    EXPECT_EQ(velkor_host_ring_get(1, &shown), -1);
    ASSERT_EQ(ringbuf_Create(16, DROPS_OLDEST), 1U);
    EXPECT_EQ(velkor_host_ring_get(1, &shown), 0);
    EXPECT_EQ(velkor_host_ring_get(0, &shown), -1);
    EXPECT_EQ(velkor_host_ring_get(2, &shown), -1);
    EXPECT_EQ(velkor_host_ring_get(1, nullptr), -1);
}

TEST(HostRing, AWriteLongerThanTheRingIsRefusedAndDropsNothing) {
    for (const int mode : {REFUSES, DROPS_OLDEST}) {
        const unsigned ring = ringbuf_Create(4, mode);
        write(ring, "abc");
        EXPECT_EQ(write(ring, "01234"), -1);
        EXPECT_EQ(ringbuf_Write(UINT_MAX, "absurd", ring), -1);
        EXPECT_EQ(look(ring).refused, 2U);
        EXPECT_EQ(look(ring).dropped, 0U);
        EXPECT_EQ(read_all(ring), "abc");
    }
}

// ---- A full ring ----

TEST(HostRing, ModesOtherThanOneRefuseWhenFull) {
    for (const int mode : {0, 2, -1}) {
        const unsigned ring = ringbuf_Create(8, mode);
        EXPECT_EQ(write(ring, "abcde"), 5);
        EXPECT_EQ(write(ring, "fghi"), -1) << mode;
        EXPECT_EQ(write(ring, "fgh"), 3);
        EXPECT_EQ(look(ring).refused, 1U);
        EXPECT_EQ(look(ring).dropped, 0U);
        EXPECT_EQ(read_all(ring), "abcdefgh");
    }
}

TEST(HostRing, ModeOneDropsOldestWritesAsAWhole) {
    const unsigned ring = ringbuf_Create(10, DROPS_OLDEST);
    write(ring, "aaaa");
    write(ring, "bb");
    write(ring, "cccc");
    EXPECT_EQ(write(ring, "d"), 1);  // one byte is missing, four are dropped
    EXPECT_EQ(ringbuf_DataSize(ring), 7);
    EXPECT_EQ(write(ring, "eeeee"), 5);
    EXPECT_EQ(look(ring).dropped, 2U);
    EXPECT_EQ(read_all(ring), "ccccdeeeee");
}

TEST(HostRing, ModeOneDropsNoMoreThanItNeeds) {
    const unsigned ring = ringbuf_Create(9, DROPS_OLDEST);
    for (const char *text : {"aaa", "bbb", "ccc", "ddd"}) {
        EXPECT_EQ(write(ring, text), 3);
    }
    EXPECT_EQ(read_all(ring), "bbbcccddd");
}

TEST(HostRing, WhatIsLeftOfAPartlyReadWriteIsTheOldestWrite) {
    const unsigned ring = ringbuf_Create(8, DROPS_OLDEST);
    write(ring, "abcd");
    write(ring, "efgh");
    EXPECT_EQ(read(ring, 1), "a");
    write(ring, "ij");
    EXPECT_EQ(look(ring).dropped, 1U);
    EXPECT_EQ(read_all(ring), "efghij");
}

// Writes of every length against a list of texts that does the same the slow way.
void compare_with_a_list(int mode, unsigned capacity, unsigned longest, int steps) {
    const unsigned ring = ringbuf_Create(capacity, mode);
    ASSERT_NE(ring, 0U);
    std::deque<std::string> list;
    std::mt19937 random(capacity);
    size_t held = 0;
    uint64_t dropped = 0;
    uint64_t refused = 0;
    for (int step = 0; step < steps; ++step) {
        const unsigned length = static_cast<unsigned>(random() % longest) + 1;
        if (random() % 5 < 3) {
            std::string text(length, '\0');
            for (char &character : text) {
                character = static_cast<char>(random());
            }
            while (mode == DROPS_OLDEST && length <= capacity && held + length > capacity) {
                held -= list.front().size();
                list.pop_front();
                ++dropped;
            }
            const bool fits = held + length <= capacity;
            ASSERT_EQ(write(ring, text), fits ? static_cast<int>(length) : -1);
            if (fits) {
                held += length;
                list.push_back(text);
            } else {
                ++refused;
            }
        } else if (length <= held) {
            std::string expected;
            while (expected.size() < length) {
                const size_t piece = std::min(length - expected.size(), list.front().size());
                expected += list.front().substr(0, piece);
                list.front().erase(0, piece);
                if (list.front().empty()) {
                    list.pop_front();
                }
            }
            held -= length;
            ASSERT_EQ(read(ring, length), expected);
        } else {
            std::string untouched(length, '?');
            ASSERT_EQ(ringbuf_Read(length, untouched.data(), ring), -1);
            ASSERT_EQ(untouched, std::string(length, '?'));
        }
        ASSERT_EQ(ringbuf_DataSize(ring), static_cast<int>(held));
    }
    EXPECT_EQ(look(ring).dropped, dropped);
    EXPECT_EQ(look(ring).refused, refused);
    EXPECT_GT(mode == DROPS_OLDEST ? dropped : refused, 0U);
    std::string rest;
    for (const std::string &text : list) {
        rest += text;
    }
    EXPECT_EQ(read_all(ring), rest);
}

TEST(HostRing, MixedLengthsAreKeptAndDroppedWhole) {
    compare_with_a_list(DROPS_OLDEST, 777, 300, 20000);
    compare_with_a_list(DROPS_OLDEST, 64, 3, 20000);
    compare_with_a_list(DROPS_OLDEST, 7, 9, 5000);
}

TEST(HostRing, MixedLengthsAreKeptOrRefusedWhole) {
    compare_with_a_list(REFUSES, 777, 300, 20000);
    compare_with_a_list(REFUSES, 7, 9, 5000);
}

// ---- Many different lengths ----

// Lengths 1, 2, 1, 2 ...: as many runs as writes.
void fill_the_run_table(unsigned ring) {
    for (unsigned number = 0; number < VELKOR_HOST_RING_RUNS; ++number) {
        ASSERT_EQ(write(ring, number % 2 == 0 ? "a" : "bb"), number % 2 == 0 ? 1 : 2);
    }
}

TEST(HostRing, ModeOneDropsTheOldestWriteForAnotherRun) {
    const unsigned ring = ringbuf_Create(0x10000, DROPS_OLDEST);
    fill_the_run_table(ring);
    const int held = ringbuf_DataSize(ring);
    EXPECT_EQ(write(ring, "bb"), 2);  // as long as the last one: no run needed
    EXPECT_EQ(look(ring).dropped, 0U);
    EXPECT_EQ(write(ring, "ccc"), 3);
    EXPECT_EQ(look(ring).dropped, 1U);
    EXPECT_EQ(ringbuf_DataSize(ring), held + 2 + 3 - 1);
    EXPECT_EQ(read(ring, 3), "bba");
}

TEST(HostRing, ModeOneDropsAWholeRunForAnotherOne) {
    const unsigned ring = ringbuf_Create(0x10000, DROPS_OLDEST);
    EXPECT_EQ(write(ring, "x"), 1);
    EXPECT_EQ(write(ring, "y"), 1);
    fill_the_run_table(ring);  // its first write joins the run of the two
    EXPECT_EQ(look(ring).dropped, 0U);
    EXPECT_EQ(write(ring, "ccc"), 3);
    EXPECT_EQ(look(ring).dropped, 3U);
    EXPECT_EQ(read(ring, 3), "bba");
}

TEST(HostRing, OtherModesRefuseAnotherRun) {
    const unsigned ring = ringbuf_Create(0x10000, REFUSES);
    fill_the_run_table(ring);
    EXPECT_EQ(write(ring, "ccc"), -1);
    EXPECT_EQ(look(ring).refused, 1U);
    EXPECT_EQ(write(ring, "bb"), 2);
    EXPECT_EQ(read(ring, 1), "a");
    EXPECT_EQ(write(ring, "ccc"), 3);
}

// ---- Many threads ----

constexpr uint32_t WRITERS = 4;
constexpr uint32_t WRITES = 1000;

// What one reader sees of several writers: whole records, each writer's in order.
class Order {
public:
    void take(const Record &record) {
        ASSERT_LT(record.writer, WRITERS);
        ASSERT_TRUE(record.is_whole());
        ASSERT_GE(record.sequence, next_[record.writer]) << "of writer " << record.writer;
        next_[record.writer] = record.sequence + 1;
        ++taken_;
    }
    uint64_t taken() const { return taken_; }

private:
    std::array<uint32_t, WRITERS> next_ = {};
    uint64_t taken_ = 0;
};

// Reads while there is anything, as the log's drain does, until the writers are done.
Order drain(unsigned ring, const std::atomic<unsigned> &busy) {
    Order order;
    Record record;
    for (bool last_look = false; !testing::Test::HasFatalFailure();) {
        if (ringbuf_DataSize(ring) > 0) {
            EXPECT_EQ(ringbuf_Read(sizeof record, &record, ring), static_cast<int>(sizeof record));
            order.take(record);
        } else if (last_look) {
            break;
        } else {
            last_look = busy.load() == 0;
        }
    }
    return order;
}

TEST(HostRing, ManyWritersNeverTearARecordThatIsDropped) {
    const unsigned ring = ringbuf_Create(8 * RECORD_SIZE, DROPS_OLDEST);
    std::atomic<unsigned> busy{WRITERS};
    std::vector<std::jthread> writers;
    for (uint32_t writer = 0; writer < WRITERS; ++writer) {
        writers.emplace_back([=, &busy] {
            for (uint32_t sequence = 0; sequence < WRITES; ++sequence) {
                EXPECT_EQ(write(ring, Record::make(writer, sequence)), static_cast<int>(RECORD_SIZE));
            }
            --busy;
        });
    }
    const Order order = drain(ring, busy);
    const velkor_host_ring shown = look(ring);
    EXPECT_EQ(shown.written, WRITERS * WRITES);
    EXPECT_EQ(shown.read, order.taken());
    EXPECT_EQ(shown.read + shown.dropped, WRITERS * WRITES);
    EXPECT_EQ(shown.held, 0U);
}

TEST(HostRing, ManyWritersLoseNothingThatWasAccepted) {
    const unsigned ring = ringbuf_Create(8 * RECORD_SIZE, REFUSES);
    std::atomic<unsigned> busy{WRITERS};
    std::vector<std::jthread> writers;
    for (uint32_t writer = 0; writer < WRITERS; ++writer) {
        writers.emplace_back([=, &busy] {
            for (uint32_t sequence = 0; sequence < WRITES / 4; ++sequence) {
                while (write(ring, Record::make(writer, sequence)) < 0) {
                    std::this_thread::yield();
                }
            }
            --busy;
        });
    }
    const Order order = drain(ring, busy);
    EXPECT_EQ(order.taken(), WRITERS * (WRITES / 4));
    EXPECT_EQ(look(ring).read, order.taken());
    EXPECT_EQ(look(ring).dropped, 0U);
}

// ---- A forked child ----

// In the child: every record is whole, and the ring takes and gives more.
bool ring_works_in_child(unsigned ring) {
    Record record;
    while (ringbuf_DataSize(ring) > 0) {
        if (ringbuf_Read(sizeof record, &record, ring) != static_cast<int>(sizeof record) || !record.is_whole()) {
            return false;
        }
    }
    const Record own = Record::make(9, 9);
    return write(ring, own) == static_cast<int>(sizeof own) &&
           ringbuf_Read(sizeof record, &record, ring) == static_cast<int>(sizeof record) &&
           memcmp(&record, &own, sizeof own) == 0 && ringbuf_Create(16, REFUSES) != 0;
}

TEST(HostRingForkStorm, AChildThatIsForkedInTheMiddleOfAWriteFindsAWholeRing) {
    const unsigned ring = ringbuf_Create(16 * RECORD_SIZE, DROPS_OLDEST);
    std::atomic<bool> stop{false};
    std::vector<std::jthread> writers;
    for (uint32_t writer = 0; writer < 3; ++writer) {
        writers.emplace_back([=, &stop] {
            for (uint32_t sequence = 0; !stop.load(); ++sequence) {
                write(ring, Record::make(writer, sequence));
            }
        });
    }
    while (ringbuf_DataSize(ring) < static_cast<int>(16 * RECORD_SIZE)) {
        std::this_thread::yield();
    }
    for (int i = 0; i < 25; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);  // a child that hangs is a failure, not a wait for ever
            _exit(ring_works_in_child(ring) ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    stop = true;
}

TEST(HostRing, AChildsRingIsItsOwn) {
    const unsigned ring = ringbuf_Create(16, DROPS_OLDEST);
    write(ring, "both");
    const pid_t child = fork();
    if (child == 0) {
        _exit(read_all(ring) == "both" && write(ring, "child") == 5 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(read_all(ring), "both");
}

}  // namespace

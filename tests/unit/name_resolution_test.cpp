#include <arpa/inet.h>
#include <dlfcn.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <velkor/allocation.h>
#include <velkor/firmware.h>
#include <velkor/network.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/asked_clock.h"
#include "support/fork_meanwhile.h"
#include "support/log_capture.h"
#include "support/place.h"

namespace {

using testing::ElementsAre;
using Messages = std::vector<std::string>;

// The full number runs where somebody watches.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int HANDOFFS = 100000;
#else
constexpr int HANDOFFS = 5000;
#endif

template <typename Function>
Function real(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// ---- A resolver that a test holds in its hand ----

struct Resolver {
    std::vector<std::string> addresses;  // what it answers; none: a failure
    std::atomic<bool> is_held{false};
    std::atomic<int> asked{0};
    std::atomic<int> lists{0};  // made and not freed
    std::string name;           // the last that was looked up
    struct addrinfo hints;
};
Resolver resolver;

struct Entry {
    struct addrinfo info;
    struct sockaddr_storage address;
};

struct addrinfo *make_entry(const std::string &text, struct addrinfo *next) {
    auto *const entry = new Entry{};
    const bool is_ipv6 = text.find(':') != std::string::npos;
    entry->info.ai_next = next;
    entry->info.ai_family = is_ipv6 ? AF_INET6 : AF_INET;
    entry->info.ai_addr = reinterpret_cast<struct sockaddr *>(&entry->address);
    entry->info.ai_addrlen = is_ipv6 ? sizeof(struct sockaddr_in6) : sizeof(struct sockaddr_in);
    void *const place = is_ipv6
                            ? static_cast<void *>(&reinterpret_cast<struct sockaddr_in6 &>(entry->address).sin6_addr)
                            : &reinterpret_cast<struct sockaddr_in &>(entry->address).sin_addr;
    if (text == "short") {
        entry->info.ai_addrlen = 2;
    } else if (text == "nothing") {
        entry->info.ai_addr = nullptr;
    } else if (text == "other") {
        entry->info.ai_family = AF_UNIX;
        inet_pton(AF_INET, "9.9.9.9", place);
    } else {
        inet_pton(entry->info.ai_family, text.c_str(), place);
    }
    return &entry->info;
}

// ---- A clock that advances by the pauses ----

std::atomic<int64_t> uptime_ms{5000};
std::atomic<int> uptime_readings{0};
std::function<void()> at_each_pause;
std::vector<int64_t> pauses;  // in microseconds
bool interrupts_pauses = false;

// ---- Memory and threads that run out ----

bool has_memory = true;
bool has_threads = true;
std::atomic<velkor_lookup *> latest{nullptr};
std::atomic<int> blocks{0};

}  // namespace

extern "C" int getaddrinfo(const char *name, const char *service, const struct addrinfo *hints,
                           struct addrinfo **result) {
    EXPECT_EQ(service, nullptr);
    resolver.name = name;
    resolver.hints = *hints;
    ++resolver.asked;
    while (resolver.is_held) {
        usleep(100);
    }
    if (resolver.addresses.empty()) {
        return EAI_NONAME;
    }
    struct addrinfo *list = nullptr;
    for (auto address = resolver.addresses.rbegin(); address != resolver.addresses.rend(); ++address) {
        list = make_entry(*address, list);
    }
    ++resolver.lists;
    *result = list;
    return 0;
}

extern "C" void freeaddrinfo(struct addrinfo *list) noexcept {
    --resolver.lists;
    while (list != nullptr) {
        struct addrinfo *const next = list->ai_next;
        delete reinterpret_cast<Entry *>(list);
        list = next;
    }
}

// Of the thread that waits for a name, which is each test's own; the pool's threads pause as ever.
extern "C" int clock_nanosleep(clockid_t clock, int flags, const struct timespec *moment, struct timespec *rest) {
    if (syscall(SYS_gettid) != getpid()) {
        using Pause = int (*)(clockid_t, int, const struct timespec *, struct timespec *);
        return real<Pause>("clock_nanosleep")(clock, flags, moment, rest);
    }
    EXPECT_EQ(clock, CLOCK_MONOTONIC);
    EXPECT_EQ(flags, TIMER_ABSTIME);
    pauses.push_back(asked_clock::microseconds_until(*moment));
    if (interrupts_pauses) {
        interrupts_pauses = false;
        return EINTR;
    }
    uptime_ms += pauses.back() / 1000;
    if (at_each_pause) {
        at_each_pause();
    }
    return 0;
}

int vkt_get_uptime(int64_t *seconds) {
    ++uptime_readings;
    *seconds = uptime_ms / 1000;
    return 0;
}

void *VkMem_Alloc(unsigned short pool, size_t size) {
    if (!has_memory) {
        return nullptr;
    }
    ++blocks;
    void *const block = real<void *(*)(unsigned short, size_t)>("VkMem_Alloc")(pool, size);
    latest = static_cast<velkor_lookup *>(block);
    return block;
}

int VkMem_Free(void *block) {
    --blocks;
    return real<int (*)(void *)>("VkMem_Free")(block);
}

extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attribute, void *(*start)(void *),
                              void *argument) {
    if (!has_threads) {
        return EAGAIN;
    }
    using Create = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    return real<Create>("pthread_create")(thread, attribute, start, argument);
}

namespace {

class NameResolution : public testing::Test {
protected:
    NameResolution() {
        // The resolver has always answered when a pause ends, unless it is held.
        at_each_pause = [] {
            if (!resolver.is_held) {
                EXPECT_TRUE(has_answered());
            }
        };
    }

    // Everything is let go of in the end.
    void TearDown() override {
        resolver.is_held = false;
        EXPECT_TRUE(place::eventually([] { return blocks == 0 && resolver.lists == 0; }));
    }

    // The lookup is still there: its caller waits.
    static bool has_answered() {
        return place::eventually(
            [] { return __atomic_load_n(&latest.load()->status, __ATOMIC_ACQUIRE) != VELKOR_LOOKUP_PENDING; });
    }

    static std::string address_of(const std::string &host, int result, int *family = nullptr) {
        char address[INET6_ADDRSTRLEN] = "untouched";
        EXPECT_EQ(GetIPbyDNSV2(host.c_str(), address, family), result);
        return address;
    }

    velkor_lookup *lookup_ = nullptr;
};

TEST_F(NameResolution, AnswersAnAddress) {
    resolver.addresses = {"10.1.2.3"};
    int family = 7;
    EXPECT_EQ(address_of("recorder.example", 0, &family), "10.1.2.3");
    EXPECT_EQ(family, 0);
    EXPECT_EQ(resolver.name, "recorder.example");
    EXPECT_EQ(resolver.hints.ai_family, AF_UNSPEC);
    EXPECT_EQ(resolver.hints.ai_socktype, SOCK_STREAM);
    EXPECT_EQ(resolver.hints.ai_flags, 0);
    EXPECT_EQ(resolver.hints.ai_protocol, 0);
}

TEST_F(NameResolution, PrefersIpv4WhereverItStands) {
    resolver.addresses = {"2001:db8::1", "2001:db8::2", "10.1.2.3", "10.1.2.4"};
    int family = 7;
    const LogCapture log;
    EXPECT_EQ(address_of("both", 0, &family), "10.1.2.3");
    EXPECT_EQ(family, 0);
    const Messages messages = LogCapture::take_messages();
    ASSERT_EQ(messages.size(), 4U);
    EXPECT_EQ(messages[0], "_Thr_GetIpTask(405)>>>>>>>>>> getaddrinfo success ");
    EXPECT_THAT(messages[1], testing::StartsWith("GetIpByNameAsync 469, iRet = 0, timeNew = "));
    EXPECT_EQ(messages[2], "GetIPbyDNSV2(513):cIPv6=2001:db8::1 ");
    EXPECT_EQ(messages[3], "GetIPbyDNSV2(519):cIPv4=10.1.2.3 ");
}

TEST_F(NameResolution, AnswersTheFirstIpv6AddressWithoutIpv4) {
    resolver.addresses = {"2001:db8::1", "2001:db8::2"};
    int family = 7;
    EXPECT_EQ(address_of("six", 0, &family), "2001:db8::1");
    EXPECT_EQ(family, 1);
    resolver.addresses = {"2001:db8:1111:2222:3333:4444:5555:6666"};
    EXPECT_EQ(address_of("six", 0), "2001:db8:1111:2222:3333:4444:5555:6666");
}

TEST_F(NameResolution, TakesEntriesOfOtherFamiliesForIpv4AndPassesOverThoseThatAreTooShort) {
    resolver.addresses = {"short", "nothing", "other"};
    EXPECT_EQ(address_of("odd", 0), "9.9.9.9");
    resolver.addresses = {"short", "nothing"};
    int family = 7;
    EXPECT_EQ(address_of("odd", -1, &family), "");
    EXPECT_EQ(family, 7);
}

TEST_F(NameResolution, ManyAddressesKeepTheFirst) {
    resolver.addresses.clear();
    for (int i = 1; i < 200; ++i) {
        resolver.addresses.push_back("10.0.0." + std::to_string(i));
    }
    EXPECT_EQ(address_of("many", 0), "10.0.0.1");
}

TEST_F(NameResolution, FailsWithTheResolver) {
    int family = 7;
    const LogCapture log;
    EXPECT_EQ(address_of("nobody", -1, &family), "");
    EXPECT_EQ(family, 7);
    const Messages messages = LogCapture::take_messages();
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[0], "_Thr_GetIpTask(400)>>>>>>>>>> getaddrinfo faild  ");
    EXPECT_EQ(messages[1], "GetIpByNameAsync 469, iRet = -1, timeNew = 5, timeStart = 5 _iTimeOut = 6 ");
    EXPECT_EQ(messages[2], "GetIPbyDNSV2(503)>>>>>>>>>> GetIpByNameAsync faild  ");
}

TEST_F(NameResolution, NeedsAHostAndABuffer) {
    char address[46] = "untouched";
    EXPECT_EQ(GetIPbyDNSV2(nullptr, address, nullptr), -1);
    EXPECT_EQ(GetIPbyDNSV2("", address, nullptr), -1);
    EXPECT_EQ(GetIPbyDNSV2("host", nullptr, nullptr), -1);
    EXPECT_STREQ(address, "untouched");
    EXPECT_EQ(resolver.asked, 0);
}

TEST_F(NameResolution, CutsANameTo128Characters) {
    resolver.addresses = {"10.1.2.3"};
    address_of(std::string(200, 'x'), 0);
    EXPECT_EQ(resolver.name, std::string(128, 'x'));
    address_of(std::string(128, 'y'), 0);
    EXPECT_EQ(resolver.name, std::string(128, 'y'));
}

TEST_F(NameResolution, RefusesBadArgumentsAndStoresNull) {
    lookup_ = reinterpret_cast<velkor_lookup *>(this);
    EXPECT_EQ(GetIpByNameAsync(nullptr, 6, &lookup_), -1);
    EXPECT_EQ(lookup_, nullptr);
    for (const int timeout : {0, -1}) {
        lookup_ = reinterpret_cast<velkor_lookup *>(this);
        EXPECT_EQ(GetIpByNameAsync("host", timeout, &lookup_), -1);
        EXPECT_EQ(lookup_, nullptr);
    }
    EXPECT_EQ(GetIpByNameAsync("host", 6, nullptr), -1);
    EXPECT_EQ(GetIpByNameAsync(nullptr, 0, nullptr), -1);
    EXPECT_EQ(uptime_readings, 5);  // the clock is read first
    EXPECT_TRUE(pauses.empty());
}

TEST_F(NameResolution, LooksForTheFirstTimeAfterOnePause) {
    resolver.addresses = {"10.1.2.3"};
    EXPECT_EQ(GetIpByNameAsync("host", 6, &lookup_), 0);
    EXPECT_THAT(pauses, ElementsAre(980000));
    velkor_lookup_let_go(lookup_);
}

TEST_F(NameResolution, PausesTheWholeTimeInSpiteOfSignals) {
    resolver.addresses = {"10.1.2.3"};
    interrupts_pauses = true;
    EXPECT_EQ(GetIpByNameAsync("host", 6, &lookup_), 0);
    EXPECT_THAT(pauses, ElementsAre(980000, 980000)) << "twice until the same moment";
    velkor_lookup_let_go(lookup_);
}

TEST_F(NameResolution, GivesUpAHangingResolverOneOrTwoSecondsAfterTheTimeout) {
    resolver.is_held = true;
    const LogCapture log;
    EXPECT_EQ(address_of("hangs", -1), "");
    // The clock is read before each pause, and seven whole seconds must have passed at a reading.
    EXPECT_EQ(pauses.size(), 9U);
    EXPECT_THAT(LogCapture::take_messages(),
                ElementsAre("GetIpByNameAsync 469, iRet = 255, timeNew = 12, timeStart = 5 _iTimeOut = 6 ",
                            "GetIPbyDNSV2(503)>>>>>>>>>> GetIpByNameAsync faild  "));
    EXPECT_EQ(blocks, 1);  // the worker has it still
    resolver.addresses = {"10.1.2.3"};
    resolver.is_held = false;  // minutes later: the worker frees all
}

TEST_F(NameResolution, StoresTheLookupAfterATimeoutToo) {
    resolver.is_held = true;
    EXPECT_EQ(GetIpByNameAsync("hangs", 1, &lookup_), -1);
    ASSERT_NE(lookup_, nullptr);
    EXPECT_EQ(__atomic_load_n(&lookup_->status, __ATOMIC_ACQUIRE), VELKOR_LOOKUP_PENDING);
    velkor_lookup_let_go(lookup_);
}

TEST_F(NameResolution, TakesAnAnswerThatComesWithTheTimeout) {
    resolver.is_held = true;
    resolver.addresses = {"10.1.2.3"};
    at_each_pause = [] {
        if (pauses.size() == 4) {  // elapsed time was already above the time-out at this look
            resolver.is_held = false;
            EXPECT_TRUE(has_answered());
        }
    };
    EXPECT_EQ(GetIpByNameAsync("late", 1, &lookup_), 0);
    EXPECT_EQ(pauses.size(), 4U);
    velkor_lookup_let_go(lookup_);
}

TEST_F(NameResolution, LogsThatThereIsNoMemory) {
    has_memory = false;
    const LogCapture log;
    lookup_ = reinterpret_cast<velkor_lookup *>(this);
    EXPECT_EQ(GetIpByNameAsync("host", 6, &lookup_), -1);
    EXPECT_EQ(lookup_, nullptr);
    EXPECT_EQ(LogCapture::take_messages().back(), "GetIpByNameAsync 446, error NULL  ");
}

TEST_F(NameResolution, StoresALookupThatNoThreadTook) {
    has_threads = false;
    EXPECT_EQ(GetIpByNameAsync("host", 6, &lookup_), -1);
    ASSERT_NE(lookup_, nullptr);
    EXPECT_EQ(lookup_->finished, 1);
    EXPECT_TRUE(pauses.empty());
    velkor_lookup_let_go(lookup_);
    EXPECT_EQ(blocks, 0);
    EXPECT_EQ(address_of("host", -1), "");
}

TEST_F(NameResolution, WorkerTakesNothingForNothing) { EXPECT_EQ(_Thr_GetIpTask(nullptr), nullptr); }

velkor_lookup *make_lookup() {
    auto *const lookup = static_cast<velkor_lookup *>(dvrMalloc(sizeof(velkor_lookup), "src/common_fun", 442));
    memset(lookup, 0, sizeof *lookup);
    strcpy(lookup->name, "host");
    lookup->status = VELKOR_LOOKUP_PENDING;
    pthread_mutex_init(&lookup->lock, nullptr);
    return lookup;
}

// A child has no worker that could let go of the lookup's own lock.
TEST_F(NameResolution, LetsGoInAChildForkedMeanwhile) {
    resolver.addresses = {"10.1.2.3"};
    velkor_lookup *const lookup = make_lookup();
    std::atomic<bool> is_held{false};
    std::atomic<bool> may_go_on{false};
    std::thread holder([&] {  // so that the worker stands still in front of the lock
        pthread_mutex_lock(&lookup->lock);
        is_held = true;
        may_go_on.wait(false);
        pthread_mutex_unlock(&lookup->lock);
    });
    EXPECT_TRUE(place::eventually([&] { return is_held.load(); }));
    std::atomic<long> worker_thread{0};
    std::thread worker([&] {
        worker_thread = syscall(SYS_gettid);
        _Thr_GetIpTask(lookup);
    });
    EXPECT_TRUE(place::eventually([&] {
        return __atomic_load_n(&lookup->status, __ATOMIC_ACQUIRE) == VELKOR_LOOKUP_RESOLVED &&
               fork_meanwhile::is_asleep(worker_thread);
    }));
    const auto lets_go = [&] {
        velkor_lookup_let_go(lookup);
        return blocks == 0;
    };
    EXPECT_TRUE(fork_meanwhile::child_is_well(lets_go, [&] {
        may_go_on = true;
        may_go_on.notify_all();
    }));
    holder.join();
    worker.join();
    velkor_lookup_let_go(lookup);
}

// When the caller lets go: before the worker begins, in the moment of its answer, or after it has let go.
enum Order { FIRST, WITH_THE_STATUS, LAST, ORDERS };

constexpr int BATCH = 100;

// Both sides yield: on a busy machine each waits as rarely as can be, once a batch.
template <typename Condition>
void wait_for(Condition condition) {
    while (!condition()) {
        sched_yield();
    }
}

using Batch = std::vector<velkor_lookup *>;

Batch make_batch() {
    Batch batch;
    for (int i = 0; i < BATCH; ++i) {
        batch.push_back(make_lookup());
    }
    return batch;
}

void let_go_of(const Batch &batch, Order order, bool resolves) {
    for (size_t i = order; i < batch.size(); i += ORDERS) {
        if (order == WITH_THE_STATUS) {
            wait_for([&] { return __atomic_load_n(&batch[i]->status, __ATOMIC_ACQUIRE) != VELKOR_LOOKUP_PENDING; });
        }
        if (order != FIRST) {
            ASSERT_EQ(batch[i]->result != nullptr, resolves);
        }
        velkor_lookup_let_go(batch[i]);
    }
}

TEST_F(NameResolution, HandsALookupOverWithEachEndingInEachOrder) {
    std::atomic<const Batch *> given{nullptr};
    std::atomic<bool> stop{false};
    std::thread worker([&] {
        while (!stop) {
            const Batch *const batch = given;
            if (batch == nullptr) {
                sched_yield();
                continue;
            }
            for (velkor_lookup *const lookup : *batch) {
                _Thr_GetIpTask(lookup);
            }
            given = nullptr;
        }
    });
    for (int handed = 0; handed < HANDOFFS; handed += BATCH) {
        const bool resolves = handed / BATCH % 2 == 0;
        resolver.addresses = resolves ? std::vector<std::string>{"10.1.2.3"} : std::vector<std::string>{};
        const Batch batch = make_batch();
        let_go_of(batch, FIRST, resolves);
        given = &batch;
        let_go_of(batch, WITH_THE_STATUS, resolves);
        wait_for([&] { return given == nullptr; });
        let_go_of(batch, LAST, resolves);
    }
    stop = true;
    worker.join();
    EXPECT_EQ(blocks, 0);
    EXPECT_EQ(resolver.lists, 0);
}

}  // namespace

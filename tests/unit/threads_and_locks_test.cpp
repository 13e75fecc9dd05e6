#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/concurrency.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "support/place.h"

namespace {

// Creation as the C library does it, but a test can hold it in the middle, or pretend it in a child that an emulator
// would not let start a thread.
std::atomic<bool> creation_is_held{false};
std::atomic<bool> creation_is_pretended{false};
std::atomic<int> creations_held{0};
std::atomic<int> most_creations_held{0};

// The body of every thread that these tests create through the library.
void *answer(void *argument) { return argument; }

}  // namespace

extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attribute, void *(*start)(void *),
                              void *argument) {
    if (start == answer) {
        most_creations_held = std::max(most_creations_held.load(), ++creations_held);
        while (creation_is_held) {
            usleep(100);
        }
        --creations_held;
        if (creation_is_pretended) {
            return 0;
        }
    }
    using Create = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    static const Create create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return create(thread, attribute, start, argument);
}

namespace {

TEST(PthreadCreate, RunsTheBodyWithItsArgument) {
    int value = 5;
    pthread_t thread;
    ASSERT_EQ(__pthread_create(&thread, nullptr, answer, &value), 0);
    void *result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, &value);
}

TEST(PthreadCreate, HandsTheAttributesOn) {
    pthread_attr_t attribute;
    ASSERT_EQ(pthread_attr_init(&attribute), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attribute, 0x100000), 0);
    pthread_t thread;
    const auto stack_size = [](void *size) -> void * {
        pthread_attr_t own;
        pthread_getattr_np(pthread_self(), &own);
        pthread_attr_getstacksize(&own, static_cast<size_t *>(size));
        pthread_attr_destroy(&own);
        return nullptr;
    };
    size_t size = 0;
    ASSERT_EQ(__pthread_create(&thread, &attribute, stack_size, &size), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attribute);
    EXPECT_EQ(size, 0x100000U);
}

TEST(PthreadCreate, ReturnsTheErrorNumber) {
    pthread_attr_t attribute;
    ASSERT_EQ(pthread_attr_init(&attribute), 0);
    // More address space than there is.
    ASSERT_EQ(pthread_attr_setstacksize(&attribute, SIZE_MAX / 16 * 15 - SIZE_MAX / 16 * 15 % 65536), 0);
    pthread_t thread;
    EXPECT_EQ(__pthread_create(&thread, &attribute, answer, nullptr), EAGAIN);
    pthread_attr_destroy(&attribute);
    // And the lock is free again.
    ASSERT_EQ(__pthread_create(&thread, nullptr, answer, nullptr), 0);
    pthread_join(thread, nullptr);
}

TEST(PthreadCreate, ServesManyThreadsAtOnce) {
    static std::atomic<int> bodies{0};
    std::vector<std::thread> creators;
    for (int i = 0; i < 8; ++i) {
        creators.emplace_back([] {
            for (int j = 0; j < 16; ++j) {
                pthread_t thread;
                const auto body = [](void *) -> void * {
                    ++bodies;
                    return nullptr;
                };
                ASSERT_EQ(__pthread_create(&thread, nullptr, body, nullptr), 0);
                pthread_join(thread, nullptr);
            }
        });
    }
    for (std::thread &creator : creators) {
        creator.join();
    }
    EXPECT_EQ(bodies, 8 * 16);
}

TEST(PthreadCreate, WorksInAChildForkedWhileAnotherThreadCreates) {
    creation_is_held = true;
    std::thread creator([] {
        pthread_t thread;
        ASSERT_EQ(__pthread_create(&thread, nullptr, answer, nullptr), 0);
        pthread_join(thread, nullptr);
    });
    ASSERT_TRUE(place::eventually([] { return creations_held == 1; }));
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);  // a child that hangs is a failure, not a wait for ever
        creation_is_held = false;
        creation_is_pretended = true;
        pthread_t thread;
        _exit(__pthread_create(&thread, nullptr, answer, nullptr));
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    creation_is_held = false;
    creator.join();
}

TEST(PthreadCreate, CreatesOneThreadAtATime) {
    creation_is_held = true;
    std::vector<std::thread> creators;
    for (int i = 0; i < 3; ++i) {
        creators.emplace_back([] {
            pthread_t thread;
            ASSERT_EQ(__pthread_create(&thread, nullptr, answer, nullptr), 0);
            pthread_join(thread, nullptr);
        });
    }
    ASSERT_TRUE(place::eventually([] { return creations_held == 1; }));
    usleep(20000);  // room for the others to err
    EXPECT_EQ(most_creations_held, 1);
    creation_is_held = false;
    for (std::thread &creator : creators) {
        creator.join();
    }
    EXPECT_EQ(most_creations_held, 1);
}

TEST(RWLockInit, PrefersWriters) {
    static pthread_rwlock_t lock;
    ASSERT_EQ(vk_RWLockInit(&lock, nullptr, "test", 1), 0);
    ASSERT_EQ(pthread_rwlock_rdlock(&lock), 0);
    static std::atomic<bool> written{false};
    std::thread writer([] {
        pthread_rwlock_wrlock(&lock);
        written = true;
        pthread_rwlock_unlock(&lock);
    });
    // As soon as the writer waits, no new reader gets in.
    EXPECT_TRUE(place::eventually([] {
        if (pthread_rwlock_tryrdlock(&lock) == EBUSY) {
            return true;
        }
        pthread_rwlock_unlock(&lock);
        return false;
    }));
    EXPECT_FALSE(written);
    pthread_rwlock_unlock(&lock);
    writer.join();
    EXPECT_TRUE(written);
    pthread_rwlock_destroy(&lock);
}

TEST(RWLockInit, IgnoresItsSecondArgument) {
    pthread_rwlock_t lock;
    const int anything = 7;
    EXPECT_EQ(vk_RWLockInit(&lock, &anything, "test", 1), 0);
    EXPECT_EQ(pthread_rwlock_trywrlock(&lock), 0);
    pthread_rwlock_unlock(&lock);
    pthread_rwlock_destroy(&lock);
}

TEST(RWLockInit, LogsNothingOnSuccess) {
    const LogCapture log;
    pthread_rwlock_t lock;
    EXPECT_EQ(vk_RWLockInit(&lock, nullptr, "encoder", 42), 0);
    pthread_rwlock_destroy(&lock);
    EXPECT_EQ(LogCapture::take_messages(), std::vector<std::string>{});
}

TEST(RWLockInit, LogsTheCallerOfALockThatCannotBe) {
    const LogCapture log;
    EXPECT_EQ(vk_RWLockInit(nullptr, nullptr, "encoder", 42), EINVAL);
    EXPECT_EQ(LogCapture::take_messages(),
              std::vector<std::string>{"[encoder:42]-vk_RWLockInit error. iRet=" + std::to_string(EINVAL)});
}

TEST(RWLockInit, ReportsWithTheLogOff) { EXPECT_EQ(vk_RWLockInit(nullptr, nullptr, "encoder", 42), EINVAL); }

}  // namespace

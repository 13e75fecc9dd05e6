// The tracked allocator over a memory service that this file plays itself: for handles, failures and moments that no
// working service can be brought to.
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <velkor/allocation.h>
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>

#include <array>
#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/fork_meanwhile.h"
#include "support/log_capture.h"
#include "support/place.h"

namespace {

using Messages = std::vector<std::string>;

constexpr const char *UNKNOWN = "src/product/main.cpp";
constexpr const char *AUDIO = "src/media/audio/x.c";
const std::vector<std::string> NO_CALLS;

char memory[64];  // the block that the service hands out
constexpr int ERROR_CODE = 77;

// What the service is told to answer, and what it was asked.
struct Service {
    std::map<std::string, int> handles;  // of pools by name; any other gets `handle`
    int handle = 0;
    void *block = memory;
    int freed = 0;
    std::function<void()> while_opening;
    std::function<void()> while_serving;

    std::mutex lock;
    std::vector<std::string> calls;
    std::atomic<int> errors_asked{0};

    void note(const std::string &call) {
        const std::lock_guard guard(lock);
        calls.push_back(call);
    }

    std::vector<std::string> take_calls() {
        const std::lock_guard guard(lock);
        return std::exchange(calls, {});
    }
};

Service service;

std::string text_of(const void *pointer) {
    char text[32];
    snprintf(text, sizeof text, "%p", pointer);
    return text;
}

void serve(const std::string &call) {
    service.note(call);
    if (service.while_serving) {
        service.while_serving();
    }
}

}  // namespace

int VkMem_Open(const char *name, int zero, unsigned parameter) {
    service.note("open " + std::string(name) + " " + std::to_string(zero) + " " + std::to_string(parameter));
    if (service.while_opening) {
        service.while_opening();
    }
    const auto found = service.handles.find(name);
    return found != service.handles.end() ? found->second : service.handle;
}

void *VkMem_Alloc(unsigned short pool, size_t size) {
    serve("alloc " + std::to_string(pool) + " " + std::to_string(size));
    return service.block;
}

void *VkMem_Calloc(unsigned short pool, size_t count, size_t size) {
    serve("calloc " + std::to_string(pool) + " " + std::to_string(count) + " " + std::to_string(size));
    return service.block;
}

void *VkMem_Realloc(unsigned short pool, void *block, size_t size) {
    serve("realloc " + std::to_string(pool) + " " + text_of(block) + " " + std::to_string(size));
    return service.block;
}

char *VkMem_Dup(unsigned short pool, const char *text) {
    serve("dup " + std::to_string(pool) + " " + text);
    return static_cast<char *>(service.block);
}

int VkMem_Free(void *block) {
    serve("free " + (block != nullptr ? "\"" + std::string(static_cast<char *>(block)) + "\"" : "nothing"));
    return service.freed;
}

int VkMem_Error() {
    ++service.errors_asked;
    return ERROR_CODE;
}

namespace {

// ---- Opening a pool ----

TEST(OpeningAPool, SaysNameZeroAndParameter) {
    ASSERT_EQ(dvrRegMem("app/", 4000000000U), 0);
    EXPECT_EQ(dvrMalloc(1, "src/app/x.c", 1), memory);
    EXPECT_EQ(service.take_calls(), (Messages{"open app/ 0 4000000000", "alloc 0 1"}));
    EXPECT_EQ(dvrMalloc(1, AUDIO, 1), memory);
    EXPECT_EQ(service.take_calls(), (Messages{"open media/audio 0 0", "alloc 0 1"}));
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), memory);
    EXPECT_EQ(service.take_calls(), (Messages{"open generalDvr 0 0", "alloc 0 1"}));
}

TEST(OpeningAPool, HappensOnceForHandleZeroToo) {
    for (const int handle : {0, 1, 0x10000, 0x7FFFFFFF}) {
        const std::string module = "app_" + std::to_string(handle) + "/";
        service.handle = handle;
        ASSERT_EQ(dvrRegMem(module.c_str(), 0), 0);
        for (const char *name : {"x.c", "y.c", "x.c", "x.c"}) {
            EXPECT_EQ(dvrMalloc(1, (module + name).c_str(), 1), memory);
        }
        const std::string alloc = "alloc " + std::to_string(handle & 0xFFFF) + " 1";
        EXPECT_EQ(service.take_calls(), (Messages{"open " + module + " 0 0", alloc, alloc, alloc, alloc}));
    }
}

TEST(OpeningAPool, HappensOnceForFilesThatAreNotRemembered) {
    const std::string long_name(5000, 'x');
    service.handles = {{"media/audio", 3}, {"generalDvr", 4}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(dvrMalloc(1, (AUDIO + long_name).c_str(), 1), memory);
        EXPECT_EQ(dvrMalloc(1, long_name.c_str(), 1), memory);
    }
    EXPECT_EQ(service.take_calls(), (Messages{"open media/audio 0 0", "alloc 3 1", "open generalDvr 0 0", "alloc 4 1",
                                              "alloc 3 1", "alloc 4 1", "alloc 3 1", "alloc 4 1"}));
}

TEST(OpeningAPool, IsTriedAgainAfterItFailedAndNeverReplacedByTheGeneralOne) {
    const LogCapture log;
    EXPECT_NE(dvrMalloc(1, UNKNOWN, 1), nullptr);  // the general pool is there to be had
    service.take_calls();
    service.handles["media/audio"] = -1;
    EXPECT_EQ(dvrMalloc(1, AUDIO, 1), nullptr);
    service.handles["media/audio"] = -7;
    EXPECT_EQ(dvrCalloc(1, 1, AUDIO, 1), nullptr);
    EXPECT_EQ(dvrRealloc(memory, 1, AUDIO, 1), nullptr);
    service.handles["media/audio"] = static_cast<int>(0x80000001U);
    EXPECT_EQ(dvrStrdup("x", AUDIO, 1), nullptr);
    const std::string open = "open media/audio 0 0";
    EXPECT_EQ(service.take_calls(), (Messages{open, open, open, open})) << "and no block was asked for";
    const std::string message = "dvrGetMemHd 91 err code = 77";
    EXPECT_EQ(LogCapture::take_messages(), (Messages{message, message, message, message}));

    service.handles["media/audio"] = 9;
    EXPECT_EQ(dvrMalloc(1, AUDIO, 1), memory);
    EXPECT_EQ(dvrMalloc(1, AUDIO, 1), memory);
    EXPECT_EQ(service.take_calls(), (Messages{open, "alloc 9 1", "alloc 9 1"}));
    EXPECT_EQ(LogCapture::take_messages(), Messages{});
}

TEST(OpeningAPool, IsTriedAgainForTheGeneralOne) {
    const LogCapture log;
    service.handle = -3;
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), nullptr);
    EXPECT_EQ(dvrStrdup("x", UNKNOWN, 1), nullptr);
    const std::string open = "open generalDvr 0 0";
    EXPECT_EQ(service.take_calls(), (Messages{open, open}));
    const std::string message = "dvrGetMemHd 112 err code = 77";
    EXPECT_EQ(LogCapture::take_messages(), (Messages{message, message}));

    service.handle = 5;
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), memory);
    EXPECT_EQ(dvrMalloc(1, "src/else.c", 1), memory);
    EXPECT_EQ(service.take_calls(), (Messages{open, "alloc 5 1", "alloc 5 1"}));
}

TEST(OpeningAPool, HoldsNoChildUpThatIsForkedMeanwhile) {
    static std::atomic<bool> is_opening{false};
    static std::atomic<bool> may_go_on{false};
    service.while_opening = [] {
        is_opening = true;
        may_go_on.wait(false);
    };
    std::thread opener([] { EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), memory); });
    ASSERT_TRUE(place::eventually([] { return is_opening.load(); }));
    const auto allocates = [] {
        service.while_opening = nullptr;
        return dvrMalloc(1, UNKNOWN, 1) == memory && dvrRegMem("product/", 0) == 0 &&
               dvrMalloc(1, UNKNOWN, 1) == memory;
    };
    EXPECT_TRUE(fork_meanwhile::child_is_well(allocates, [] {
        may_go_on = true;
        may_go_on.notify_all();
    }));
    opener.join();
}

TEST(OpeningAPool, FailsForALaterModuleOfAFileThatWasTheGeneralPools) {
    service.handles = {{"product/", -1}, {"generalDvr", 2}};
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), memory);
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), memory);
    ASSERT_EQ(dvrRegMem("product/", 0), 0);
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), nullptr);
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), nullptr);
    service.handles["product/"] = 8;
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), memory);
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), memory);
    const std::string open = "open product/ 0 0";
    EXPECT_EQ(service.take_calls(),
              (Messages{"open generalDvr 0 0", "alloc 2 1", "alloc 2 1", open, open, open, "alloc 8 1", "alloc 8 1"}));
}

TEST(OpeningAPool, FailsInSilenceWithTheLogOff) {
    service.handle = -1;
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), nullptr);
    EXPECT_EQ(dvrMalloc(1, AUDIO, 1), nullptr);
    EXPECT_EQ(service.errors_asked, 0) << "nobody would read the code";
}

TEST(OpeningAPool, IsNotAskedForAFileWithoutAName) {
    EXPECT_EQ(dvrMalloc(1, nullptr, 1), nullptr);
    EXPECT_EQ(dvrCalloc(1, 1, nullptr, 1), nullptr);
    EXPECT_EQ(dvrRealloc(memory, 1, nullptr, 1), nullptr);
    EXPECT_EQ(dvrStrdup("x", nullptr, 1), nullptr);
    EXPECT_EQ(service.take_calls(), NO_CALLS);
}

TEST(OpeningAPool, HappensOnceAndOneByOneForManyThreads) {
    std::atomic<int> opening{0};
    service.while_opening = [&] {
        EXPECT_EQ(++opening, 1);
        std::this_thread::yield();
        --opening;
    };
    std::atomic<bool> start{false};
    std::array<std::thread, 8> threads;
    for (std::thread &thread : threads) {
        thread = std::thread([&] {
            while (!start) {
                std::this_thread::yield();
            }
            for (const char *file : {AUDIO, UNKNOWN, "src/camera/ptz/x.c"}) {
                EXPECT_EQ(dvrMalloc(1, file, 1), memory);
            }
        });
    }
    start = true;
    for (std::thread &thread : threads) {
        thread.join();
    }
    int opens = 0;
    for (const std::string &call : service.take_calls()) {
        opens += call.starts_with("open ") ? 1 : 0;
    }
    EXPECT_EQ(opens, 3);
}

TEST(OpeningAPool, DoesNotHoldUpFilesThatAreRemembered) {
    EXPECT_EQ(dvrMalloc(1, AUDIO, 1), memory);
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), memory);
    // An unknown file is looked up once more after a registration, and is remembered again.
    ASSERT_EQ(dvrRegMem("app/", 0), 0);
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), memory);
    service.while_opening = [] {
        std::thread([] {
            alarm(20);  // should it wait for ever
            EXPECT_EQ(dvrMalloc(1, AUDIO, 1), memory);
            EXPECT_EQ(dvrMalloc(1, std::string(UNKNOWN).c_str(), 1), memory);
            alarm(0);
        }).join();
    };
    EXPECT_EQ(dvrMalloc(1, "src/camera/ptz/x.c", 1), memory);
}

// ---- Asking for blocks ----

TEST(AskingForABlock, SendsTheLow16BitsOfTheHandle) {
    service.handle = 0x12345;
    EXPECT_EQ(dvrMalloc(10, AUDIO, 1), memory);
    EXPECT_EQ(dvrRealloc(memory, 11, AUDIO, 1), memory);
    EXPECT_EQ(dvrCalloc(12, 13, AUDIO, 1), memory);
    EXPECT_EQ(dvrStrdup("text", AUDIO, 1), memory);
    const std::string pool = std::to_string(0x2345);
    EXPECT_EQ(service.take_calls(), (Messages{"open media/audio 0 0", "alloc " + pool + " 10",
                                              "realloc " + pool + " " + text_of(memory) + " 11",
                                              "calloc " + pool + " 12 13", "dup " + pool + " text"}));
}

TEST(AskingForABlock, SendsTheLow16BitsOfTheGeneralHandleEachTime) {
    service.handle = 0x42345;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(dvrMalloc(10, UNKNOWN, 1), memory);
    }
    const std::string alloc = "alloc " + std::to_string(0x2345) + " 10";
    EXPECT_EQ(service.take_calls(), (Messages{"open generalDvr 0 0", alloc, alloc, alloc}));
    // Nothing of the high half is taken for the number of modules (43 | 4 = 47) with which the answer holds.
    for (const char *name : {"a_quux/", "b_quux/", "c_quux/", "product/"}) {
        ASSERT_EQ(dvrRegMem(name, 0), 0);
    }
    EXPECT_EQ(dvrMalloc(10, UNKNOWN, 1), memory);
    EXPECT_EQ(service.take_calls(), (Messages{"open product/ 0 0", alloc}));
}

TEST(AskingForABlock, HandsSizesOnAsTheyAre) {
    EXPECT_EQ(dvrMalloc(0, AUDIO, 1), memory);
    EXPECT_EQ(dvrMalloc(SIZE_MAX, AUDIO, 1), memory);
    EXPECT_EQ(dvrRealloc(nullptr, 0, AUDIO, 1), memory);
    EXPECT_EQ(dvrCalloc(SIZE_MAX, SIZE_MAX, AUDIO, 1), memory);
    const std::string most = std::to_string(SIZE_MAX);
    EXPECT_EQ(service.take_calls(),
              (Messages{"open media/audio 0 0", "alloc 0 0", "alloc 0 " + most, "realloc 0 " + text_of(nullptr) + " 0",
                        "calloc 0 " + most + " " + most}));
}

TEST(AskingForABlock, ReportsEachRefusalOnceWithTheCallersPosition) {
    service.block = nullptr;
    const LogCapture log;
    EXPECT_EQ(dvrMalloc(1, "a.c", 40), nullptr);
    EXPECT_EQ(dvrRealloc(memory, 1, "b.c", 41), nullptr);
    EXPECT_EQ(dvrCalloc(1, 1, "c.c", 42), nullptr);
    EXPECT_EQ(dvrStrdup("x", "d.c", -43), nullptr);
    EXPECT_EQ(LogCapture::take_messages(), (Messages{"dvrMalloc 172 fname:a.c, line=40, err code = 77",
                                                     "dvrRealloc 195 fname:b.c, line=41, err code = 77",
                                                     "dvrCalloc 222 fname:c.c, line=42, err code = 77",
                                                     "dvrStrdup 264 fname:d.c, line=-43, err code = 77"}));
    EXPECT_EQ(service.take_calls(), (Messages{"open generalDvr 0 0", "alloc 0 1", "realloc 0 " + text_of(memory) + " 1",
                                              "calloc 0 1 1", "dup 0 x"}));
}

TEST(AskingForABlock, FailsInSilenceWithTheLogOff) {
    service.block = nullptr;
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), nullptr);
    EXPECT_EQ(dvrRealloc(memory, 1, UNKNOWN, 1), nullptr);
    EXPECT_EQ(dvrCalloc(1, 1, UNKNOWN, 1), nullptr);
    EXPECT_EQ(dvrStrdup("x", UNKNOWN, 1), nullptr);
    EXPECT_EQ(service.errors_asked, 0) << "nobody would read the code";
}

TEST(AskingForABlock, HappensOutsideTheRegistrysLock) {
    int served = 0;
    service.while_serving = [&] {
        ++served;
        std::thread([] {
            alarm(20);  // should it wait for ever
            EXPECT_EQ(dvrRegMem("app/", 0), 0);
            alarm(0);
        }).join();
    };
    EXPECT_EQ(dvrMalloc(1, AUDIO, 1), memory);
    EXPECT_EQ(dvrMalloc(1, AUDIO, 1), memory);
    EXPECT_EQ(dvrRealloc(memory, 1, AUDIO, 1), memory);
    EXPECT_EQ(dvrCalloc(1, 1, AUDIO, 1), memory);
    EXPECT_EQ(dvrStrdup("x", AUDIO, 1), memory);
    EXPECT_EQ(dvrFree(memory), 0);
    EXPECT_EQ(served, 6);
}

// ---- Release ----

TEST(ReleasingABlock, EmptiesTheTextBeforeTheServiceGetsIt) {
    strcpy(memory, "abc");
    EXPECT_EQ(dvrFree(memory), 0);
    EXPECT_EQ(service.take_calls(), (Messages{"free \"\""}));
    EXPECT_EQ(memcmp(memory, "\0bc", 4), 0) << "one byte, not more";
}

TEST(ReleasingABlock, HandsNullOn) {
    EXPECT_EQ(dvrFree(nullptr), 0);
    EXPECT_EQ(service.take_calls(), (Messages{"free nothing"}));
}

TEST(ReleasingABlock, AnswersWhatTheServiceAnswersFromZeroUp) {
    const LogCapture log;
    for (const int answer : {0, 1, 5, 0x7FFFFFFF}) {
        service.freed = answer;
        EXPECT_EQ(dvrFree(memory), answer);
        EXPECT_EQ(dvrFree(nullptr), answer);
    }
    EXPECT_EQ(LogCapture::take_messages(), Messages{});
    EXPECT_EQ(service.errors_asked, 0);
}

TEST(ReleasingABlock, AnswersTheLogsResultForAFailure) {
    const LogCapture log;
    service.freed = -5;
    EXPECT_EQ(dvrFree(memory), 0);
    EXPECT_EQ(dvrFree(nullptr), 0);
    EXPECT_EQ(LogCapture::take_messages(), (Messages{"dvrFree 238 err _ptr = " + text_of(memory) + " code = 77",
                                                     "dvrFree 238 err _ptr = " + text_of(nullptr) + " code = 77"}));
    ASSERT_EQ(logman_set_invert(0, "dvrFree"), 0);
    EXPECT_EQ(dvrFree(memory), -1) << "the log dropped the line";
}

TEST(ReleasingABlock, AnswersZeroForAFailureWithTheLogOff) {
    service.freed = -5;
    EXPECT_EQ(dvrFree(memory), 0);
    EXPECT_EQ(dvrFree(nullptr), 0);
    EXPECT_EQ(service.errors_asked, 0) << "nobody would read the code";
}

}  // namespace

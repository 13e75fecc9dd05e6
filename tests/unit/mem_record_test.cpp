// The tracked allocator over the memory service that a PC has: whose account a block is on, and what is answered.
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/allocation.h>
#include <velkor/diagnostics.h>
#include <velkor/text.h>
#include <velkor_host.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "mem_record/modules.h"
#include "support/log_capture.h"
#include "support/place.h"

namespace {

using Messages = std::vector<std::string>;

constexpr int PLACES = 212;  // behind the recorder's own modules
constexpr const char *GENERAL = "generalDvr";
constexpr const char *UNKNOWN = "src/product/main.cpp";

std::vector<velkor_host_pool> all_pools() {
    std::vector<velkor_host_pool> pools;
    velkor_host_pool pool;
    for (unsigned number = 0; velkor_host_pool_get(number, &pool) == 0; ++number) {
        pools.push_back(pool);
    }
    return pools;
}

std::optional<velkor_host_pool> pool_named(const std::string &name) {
    for (const velkor_host_pool &pool : all_pools()) {
        if (name == pool.name) {
            return pool;
        }
    }
    return std::nullopt;
}

// The name of the pool that grows when a file allocates; "" when none does.
std::string charged(const char *file) {
    const std::vector<velkor_host_pool> before = all_pools();
    void *const block = dvrMalloc(16, file, 1);
    const std::vector<velkor_host_pool> during = all_pools();
    if (block != nullptr) {
        EXPECT_EQ(dvrFree(block), 0);
    }
    std::string grown;
    for (size_t i = 0; i < during.size(); ++i) {
        if (during[i].blocks > (i < before.size() ? before[i].blocks : 0)) {
            EXPECT_EQ(grown, "") << "two pools for one block of " << file;
            grown = during[i].name;
        }
    }
    return grown;
}

std::string charged(const std::string &file) { return charged(file.c_str()); }

std::string typical_path(const std::string &module) { return "src/" + module + "/main.cpp"; }

std::string pointer_text(const void *pointer) {
    char text[32];
    snprintf(text, sizeof text, "%p", pointer);
    return text;
}

void put(char (&buffer)[64], const std::string &text) { strncopy(buffer, text.c_str(), sizeof buffer - 1); }

std::string code(velkor_host_memory_error error) { return std::to_string(static_cast<int>(error)); }

// ---- The recorder's modules ----

TEST(Modules, AreNotPartsOfEachOther) {
    for (const std::string one : velkor::MODULE_NAMES) {
        EXPECT_FALSE(one.empty());
        EXPECT_LE(one.size(), 255U);
        for (const std::string other : velkor::MODULE_NAMES) {
            EXPECT_TRUE(one == other || other.find(one) == std::string::npos) << one << " is part of " << other;
        }
    }
    std::vector<std::string> names(velkor::MODULE_NAMES.begin(), velkor::MODULE_NAMES.end());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end()) << "a name is there twice";
}

TEST(Modules, AreFortyThreeAndChargeTheirOwnFiles) {
    EXPECT_EQ(velkor::MODULE_NAMES.size(), 43U);
    for (const char *name : velkor::MODULE_NAMES) {
        EXPECT_EQ(charged(typical_path(name)), name);
        EXPECT_EQ(charged("/home/build/recorder/src/" + std::string(name) + ".c"), name);
    }
}

TEST(Modules, HaveNoParameter) {
    for (const char *name : velkor::MODULE_NAMES) {
        EXPECT_EQ(charged(typical_path(name)), name);
        EXPECT_EQ(pool_named(name)->limit, 0U);
    }
}

TEST(Modules, LeaveTheLibrarysOwnSourcesToTheGeneralPool) {
    constexpr const char *SOURCES[] = {
        "src/logman",     "src/rt_print",      "src/mem_record", "src/safe_circle_queue",
        "src/timer",      "src/thread_pool",   "src/vk_system",  "src/task_swap",
        "src/sys_info",   "src/dictionary",    "src/iniparser",  "src/file",
        "src/net_check",  "src/daylight",      "src/astro",      "src/persian_calendar",
        "src/common_fun", "src/sha1",          "src/support",    "src/common_fun/upgrade_log",
        "src/file/copy",  "src/sys_info/link",
    };
    for (const std::string source : SOURCES) {
        EXPECT_EQ(charged(source), GENERAL) << source;
        EXPECT_EQ(charged(source + ".cpp"), GENERAL) << source;
    }
    const std::filesystem::path project = VELKOR_SOURCE_DIR;
    int files = 0;
    for (const char *folder : {"src", "host", "tests", "examples", "tools", "bench"}) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(project / folder)) {
            EXPECT_EQ(charged(entry.path().lexically_relative(project).string()), GENERAL);
            ++files;
        }
    }
    EXPECT_GT(files, 20);
}

// ---- Registration ----

TEST(RegMem, Has212PlacesBehindTheRecordersModules) {
    for (int i = 0; i < PLACES; ++i) {
        ASSERT_EQ(dvrRegMem(("app_" + std::to_string(i) + "/").c_str(), 0), 0) << i;
    }
    EXPECT_EQ(dvrRegMem("one_too_many/", 0), -1);
    EXPECT_EQ(dvrRegMem("one_too_many/", 0), -1);
    EXPECT_EQ(dvrRegMem(nullptr, 0), -1);
    EXPECT_EQ(charged("src/app_0/x.c"), "app_0/");
    EXPECT_EQ(charged("src/app_211/x.c"), "app_211/");
    EXPECT_EQ(charged("src/one_too_many/x.c"), GENERAL);
    EXPECT_EQ(charged("src/media/encoder/x.c"), "media/encoder");
}

TEST(RegMem, IsSilentWhenFull) {
    while (dvrRegMem("app/", 0) == 0) {
    }
    const LogCapture log;
    EXPECT_EQ(dvrRegMem("one_too_many/", 0), -1);
    EXPECT_EQ(LogCapture::take_messages(), Messages{});
}

TEST(RegMem, RefusesANullNameAndTakesNoPlaceForIt) {
    EXPECT_EQ(dvrRegMem(nullptr, 5), -1);
    int registered = 0;
    while (dvrRegMem("app/", 0) == 0) {
        ++registered;
    }
    EXPECT_EQ(registered, PLACES);
}

TEST(RegMem, DoesNotLookForRepetitions) {
    EXPECT_EQ(dvrRegMem("app/", 3), 0);
    EXPECT_EQ(dvrRegMem("app/", 4), 0);
    EXPECT_EQ(dvrRegMem("media/encoder", 5), 0);
    EXPECT_EQ(charged("src/app/x.c"), "app/");
    EXPECT_EQ(pool_named("app/")->limit, 3U * 1024) << "the earlier record";
    EXPECT_EQ(charged("src/media/encoder/x.c"), "media/encoder");
    EXPECT_EQ(pool_named("media/encoder")->limit, 0U);
    int registered = 3;
    while (dvrRegMem("app/", 0) == 0) {
        ++registered;
    }
    EXPECT_EQ(registered, PLACES);
}

TEST(RegMem, HandsTheParameterToTheService) {
    ASSERT_EQ(dvrRegMem("app/", 12), 0);
    EXPECT_EQ(charged("app/x.c"), "app/");
    EXPECT_EQ(pool_named("app/")->limit, 12U * 1024);
}

TEST(RegMem, Keeps255Characters) {
    const std::string name(300, 'n');
    ASSERT_EQ(dvrRegMem(name.c_str(), 0), 0);
    EXPECT_EQ(charged("src/" + name.substr(0, 255) + ".c"), name.substr(0, 255));
    EXPECT_EQ(charged("src/" + name.substr(0, 254) + ".c"), GENERAL);
}

TEST(RegMem, CopiesTheName) {
    char name[] = "app/";
    ASSERT_EQ(dvrRegMem(name, 0), 0);
    strcpy(name, "xxx");
    EXPECT_EQ(charged("src/app/x.c"), "app/");
}

TEST(RegMem, OpensNoPool) {
    ASSERT_EQ(dvrRegMem("app/", 0), 0);
    EXPECT_TRUE(all_pools().empty());
}

// ---- The pool of a file ----

TEST(PoolOfAFile, IsTheGeneralOneForAnUnknownFile) {
    EXPECT_EQ(charged(UNKNOWN), GENERAL);
    EXPECT_EQ(charged(""), GENERAL);
    EXPECT_EQ(pool_named(GENERAL)->limit, 0U);
}

TEST(PoolOfAFile, IsFoundByANameAnywhereInIt) {
    ASSERT_EQ(dvrRegMem("quux", 0), 0);
    EXPECT_EQ(charged("quux/a.c"), "quux");
    EXPECT_EQ(charged("src/quux/a.c"), "quux");
    EXPECT_EQ(charged("src/a_quux"), "quux");
    EXPECT_EQ(charged("quux"), "quux");
    EXPECT_EQ(charged("src/xquuxx.c"), "quux");
    EXPECT_EQ(charged("src/quu/x.c"), GENERAL);
    EXPECT_EQ(charged("src/Quux/x.c"), GENERAL) << "capitals differ";
}

TEST(PoolOfAFile, IsThatOfTheLowestRecordThatMatches) {
    ASSERT_EQ(dvrRegMem("second", 0), 0);
    ASSERT_EQ(dvrRegMem("first", 0), 0);
    ASSERT_EQ(dvrRegMem("first/second/long", 0), 0);
    EXPECT_EQ(charged("first/second/x.c"), "second");
    EXPECT_EQ(charged("second/first/x.c"), "second");
    EXPECT_EQ(charged("first/second/long/x.c"), "second") << "a better match does not count";
    EXPECT_EQ(charged("first/x.c"), "first");
    EXPECT_EQ(charged("second/media/audio/x.c"), "media/audio") << "the recorder's own come first";
}

TEST(PoolOfAFile, IsAnEmptyNamesForEveryFileThatNoEarlierRecordTakes) {
    ASSERT_EQ(dvrRegMem("early/", 0), 0);
    ASSERT_EQ(dvrRegMem("", 0), 0);
    ASSERT_EQ(dvrRegMem("late/", 0), 0);
    const LogCapture log;
    // The service has no pool without a name.
    EXPECT_EQ(dvrMalloc(1, UNKNOWN, 1), nullptr);
    EXPECT_EQ(dvrMalloc(1, "src/late/x.c", 1), nullptr);
    const std::string message = "dvrGetMemHd 91 err code = " + code(VELKOR_HOST_MEMORY_BAD_NAME);
    EXPECT_EQ(LogCapture::take_messages(), (Messages{message, message}));
    EXPECT_EQ(charged("src/early/x.c"), "early/");
    EXPECT_FALSE(pool_named(GENERAL));
}

TEST(PoolOfAFile, IsNoneForANullName) {
    const LogCapture log;
    EXPECT_EQ(dvrMalloc(1, nullptr, 1), nullptr);
    EXPECT_EQ(dvrCalloc(1, 1, nullptr, 1), nullptr);
    EXPECT_EQ(dvrRealloc(nullptr, 1, nullptr, 1), nullptr);
    EXPECT_EQ(dvrStrdup("x", nullptr, 1), nullptr);
    EXPECT_TRUE(all_pools().empty());
    EXPECT_EQ(LogCapture::take_messages(), Messages{});
    // And the lock is free again.
    EXPECT_EQ(dvrRegMem("app/", 0), 0);
}

TEST(PoolOfAFile, IsOpenedByTheFirstAllocationThatNeedsIt) {
    EXPECT_TRUE(all_pools().empty());
    EXPECT_EQ(charged("src/media/audio/x.c"), "media/audio");
    ASSERT_EQ(all_pools().size(), 1U);
    EXPECT_EQ(charged(UNKNOWN), GENERAL);
    EXPECT_EQ(charged("src/media/audio/y.c"), "media/audio");
    EXPECT_EQ(charged("src/media/audio/x.c"), "media/audio");
    EXPECT_EQ(all_pools().size(), 2U);
}

TEST(PoolOfAFile, MayHaveHandleZero) {
    void *const one = dvrMalloc(10, "src/media/audio/x.c", 1);
    ASSERT_NE(one, nullptr);
    velkor_host_pool first;
    ASSERT_EQ(velkor_host_pool_get(0, &first), 0);
    EXPECT_STREQ(first.name, "media/audio");
    void *const two = dvrMalloc(10, "src/media/audio/x.c", 2);
    void *const other = dvrMalloc(10, "src/media/audio/y.c", 2);
    EXPECT_EQ(pool_named("media/audio")->blocks, 3U);
    EXPECT_EQ(all_pools().size(), 1U);
    dvrFree(one);
    dvrFree(two);
    dvrFree(other);
}

TEST(PoolOfAFile, ChangesFromTheGeneralOneToThatOfALaterModule) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(charged("src/product/main.cpp"), GENERAL);
    }
    ASSERT_EQ(dvrRegMem("unrelated", 0), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(charged("src/product/main.cpp"), GENERAL);
    }
    ASSERT_EQ(dvrRegMem("product/", 0), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(charged("src/product/main.cpp"), "product/");
    }
    ASSERT_EQ(dvrRegMem("src/product", 0), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(charged("src/product/main.cpp"), "product/") << "the lower number stays";
    }
    EXPECT_EQ(charged("src/else/main.cpp"), GENERAL);
}

TEST(PoolOfAFile, ChangesWithTheLastFreePlaceToo) {
    for (int i = 1; i < PLACES; ++i) {
        ASSERT_EQ(dvrRegMem("app/", 0), 0);
    }
    EXPECT_EQ(charged(UNKNOWN), GENERAL);
    ASSERT_EQ(dvrRegMem("product/", 0), 0);
    EXPECT_EQ(charged(UNKNOWN), "product/");
    EXPECT_EQ(charged("src/else/main.cpp"), GENERAL);
    EXPECT_EQ(charged("src/else/main.cpp"), GENERAL);
}

TEST(PoolOfAFile, GoesByTheNamesTextAndNotByItsAddress) {
    char buffer[64];
    for (int i = 0; i < 3; ++i) {
        put(buffer, "src/media/audio/x.c");
        EXPECT_EQ(charged(buffer), "media/audio");
        put(buffer, "src/camera/ptz/x.c");
        EXPECT_EQ(charged(buffer), "camera/ptz");
        put(buffer, UNKNOWN);
        EXPECT_EQ(charged(buffer), GENERAL);
        // Longer and shorter than what stood there.
        put(buffer, "src/media/audio/x.cpp");
        EXPECT_EQ(charged(buffer), "media/audio");
        put(buffer, "src/media/audi");
        EXPECT_EQ(charged(buffer), GENERAL);
    }
}

TEST(PoolOfAFile, IsTheSameForEqualNamesInDifferentPlaces) {
    std::vector<std::string> copies(3000, "src/network/web/page_with_a_name_of_its_own.cpp");
    for (const std::string &copy : copies) {
        ASSERT_EQ(charged(copy), "network/web");
    }
}

TEST(PoolOfAFile, IsRightForNamesOfAnyLength) {
    for (size_t length = 0; length < 600; ++length) {
        const std::string padding(length, 'p');
        const std::string module_file = padding + "media/audio";
        const std::string unknown_file = padding + "media_audio";
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(charged(module_file), "media/audio") << length;
            ASSERT_EQ(charged(unknown_file), GENERAL) << length;
        }
    }
    EXPECT_EQ(charged(std::string(100000, 'p') + "media/audio"), "media/audio");
}

TEST(PoolOfAFile, TellsNamesApartThatDifferInOneCharacter) {
    // Names that share their beginning, their end, or all but the middle: about as long as is remembered.
    const std::string base = "src/" + std::string(116, 'a');
    std::vector<std::string> names;
    for (size_t i = 4; i + 4 < base.size(); ++i) {
        std::string name = base;
        name.replace(i, 4, "quux");
        names.push_back(name);
        name.replace(i, 4, "quuy");
        names.push_back(name);
    }
    ASSERT_EQ(dvrRegMem("quux", 0), 0);
    for (int pass = 0; pass < 2; ++pass) {
        for (size_t i = 0; i < names.size(); ++i) {
            ASSERT_EQ(charged(names[i]), i % 2 == 0 ? "quux" : GENERAL) << names[i];
        }
    }
}

TEST(PoolOfAFile, IsRightForMoreFilesThanAreRemembered) {
    std::vector<std::string> files;
    for (int i = 0; i < 2000; ++i) {
        const std::string folder = i % 2 == 0 ? "src/storage/disk/" : "src/product/";
        files.push_back(folder + std::to_string(i) + ".c");
    }
    for (int pass = 0; pass < 2; ++pass) {
        for (size_t i = 0; i < files.size(); ++i) {
            ASSERT_EQ(charged(files[i]), i % 2 == 0 ? "storage/disk" : GENERAL) << files[i];
        }
    }
    ASSERT_EQ(dvrRegMem("product/", 0), 0);
    for (size_t i = 0; i < files.size(); ++i) {
        ASSERT_EQ(charged(files[i]), i % 2 == 0 ? "storage/disk" : "product/") << files[i];
    }
}

// ---- Blocks ----

TEST(Malloc, GivesABlockOfTheSizeAskedFor) {
    char *const block = static_cast<char *>(dvrMalloc(1000, UNKNOWN, 1));
    ASSERT_NE(block, nullptr);
    memset(block, 'x', 1000);
    EXPECT_EQ(pool_named(GENERAL)->bytes, 1000U);
    EXPECT_EQ(pool_named(GENERAL)->blocks, 1U);
    EXPECT_EQ(dvrFree(block), 0);
    EXPECT_EQ(pool_named(GENERAL)->bytes, 0U);
    EXPECT_EQ(pool_named(GENERAL)->blocks, 0U);
}

TEST(Malloc, ReportsWhatTheServiceRefuses) {
    ASSERT_EQ(dvrRegMem("app/", 1), 0);
    const LogCapture log;
    EXPECT_EQ(dvrMalloc(1025, "src/app/x.c", 40), nullptr);
    const Messages lines = LogCapture::take_lines();
    ASSERT_EQ(lines.size(), 1U);
    const std::string end =
        " libvelkor]dvrMalloc 172 fname:src/app/x.c, line=40, err code = " + code(VELKOR_HOST_MEMORY_LIMIT);
    EXPECT_TRUE(lines[0].ends_with(end)) << lines[0];
    EXPECT_EQ(charged("src/app/x.c"), "app/") << "a smaller block is still to be had";
    EXPECT_EQ(LogCapture::take_messages(), Messages{});
}

TEST(Malloc, FailsInSilenceWithTheLogOff) {
    ASSERT_EQ(dvrRegMem("app/", 1), 0);
    EXPECT_EQ(dvrMalloc(1025, "src/app/x.c", 40), nullptr);
    EXPECT_EQ(pool_named("app/")->failures, 1U);
}

TEST(Calloc, GivesClearedMemory) {
    char *const dirty = static_cast<char *>(dvrMalloc(600, UNKNOWN, 1));
    ASSERT_NE(dirty, nullptr);
    memset(dirty, 'x', 600);
    dvrFree(dirty);
    char *const block = static_cast<char *>(dvrCalloc(20, 30, UNKNOWN, 1));
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(std::all_of(block, block + 600, [](char c) { return c == 0; }));
    EXPECT_EQ(pool_named(GENERAL)->bytes, 600U);
    EXPECT_EQ(dvrFree(block), 0);
}

TEST(Calloc, RefusesAProductThatDoesNotFit) {
    const LogCapture log;
    EXPECT_EQ(dvrCalloc(SIZE_MAX / 2, 3, UNKNOWN, -5), nullptr);
    EXPECT_EQ(LogCapture::take_messages(), (Messages{"dvrCalloc 222 fname:src/product/main.cpp, line=-5, err code = " +
                                                     code(VELKOR_HOST_MEMORY_EXHAUSTED)}));
}

TEST(Realloc, KeepsTheContent) {
    char *block = static_cast<char *>(dvrMalloc(4, UNKNOWN, 1));
    ASSERT_NE(block, nullptr);
    memcpy(block, "abc", 4);
    block = static_cast<char *>(dvrRealloc(block, 4000, UNKNOWN, 2));
    ASSERT_NE(block, nullptr);
    EXPECT_STREQ(block, "abc");
    memset(block, 'x', 4000);
    EXPECT_EQ(pool_named(GENERAL)->bytes, 4000U);
    EXPECT_EQ(pool_named(GENERAL)->blocks, 1U);
    EXPECT_EQ(dvrFree(block), 0);
}

TEST(Realloc, OfNothingAllocates) {
    void *const block = dvrRealloc(nullptr, 50, "src/media/audio/x.c", 1);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(pool_named("media/audio")->bytes, 50U);
    EXPECT_EQ(dvrFree(block), 0);
}

TEST(Realloc, LeavesTheOldBlockWhenTheServiceRefuses) {
    ASSERT_EQ(dvrRegMem("app/", 1), 0);
    char *const block = static_cast<char *>(dvrMalloc(4, "src/app/x.c", 1));
    ASSERT_NE(block, nullptr);
    memcpy(block, "abc", 4);
    const LogCapture log;
    EXPECT_EQ(dvrRealloc(block, 2000, "src/app/x.c", 7), nullptr);
    EXPECT_EQ(LogCapture::take_messages(),
              (Messages{"dvrRealloc 195 fname:src/app/x.c, line=7, err code = " + code(VELKOR_HOST_MEMORY_LIMIT)}));
    EXPECT_STREQ(block, "abc");
    EXPECT_EQ(dvrFree(block), 0);
}

TEST(Strdup, Copies) {
    const char text[] = "channel 1";
    char *const copy = dvrStrdup(text, UNKNOWN, 1);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, text);
    EXPECT_STREQ(copy, text);
    EXPECT_EQ(pool_named(GENERAL)->bytes, sizeof text);
    EXPECT_EQ(dvrFree(copy), 0);
}

TEST(Strdup, LeavesANullTextToTheService) {
    const LogCapture log;
    EXPECT_EQ(dvrStrdup(nullptr, UNKNOWN, 12), nullptr);
    EXPECT_EQ(LogCapture::take_messages(), (Messages{"dvrStrdup 264 fname:src/product/main.cpp, line=12, err code = " +
                                                     code(VELKOR_HOST_MEMORY_NO_TEXT)}));
}

// ---- Release ----

TEST(Free, AnswersTheServicesZeroWithoutALine) {
    const LogCapture log;
    void *const block = dvrMalloc(1, UNKNOWN, 1);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(dvrFree(block), 0);
    EXPECT_EQ(LogCapture::take_messages(), Messages{});
}

TEST(Free, ClearsAByteOfABlockOfNoBytesToo) {
    void *const block = dvrMalloc(0, UNKNOWN, 1);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(dvrFree(block), 0);
}

TEST(Free, AsksTheServiceAboutNullToo) {
    const LogCapture log;
    EXPECT_EQ(dvrFree(nullptr), 0) << "the log took the line";
    EXPECT_EQ(LogCapture::take_messages(), (Messages{"dvrFree 238 err _ptr = " + pointer_text(nullptr) +
                                                     " code = " + code(VELKOR_HOST_MEMORY_NO_BLOCK)}));
}

TEST(Free, ClearsTheFirstByteOfMemoryThatTheServiceDoesNotKnow) {
    static char text[] = "abc";
    const LogCapture log;
    EXPECT_EQ(dvrFree(text), 0);
    EXPECT_EQ(memcmp(text, "\0bc", 4), 0);
    EXPECT_EQ(LogCapture::take_messages(), (Messages{"dvrFree 238 err _ptr = " + pointer_text(text) +
                                                     " code = " + code(VELKOR_HOST_MEMORY_NO_BLOCK)}));
}

TEST(Free, LeavesAStrangersBlockToTheStranger) {
    const std::unique_ptr<char, decltype(&free)> block(strdup("abc"), free);  // his to free, and once
    EXPECT_EQ(dvrFree(block.get()), 0);
    EXPECT_EQ(memcmp(block.get(), "\0bc", 4), 0);
}

TEST(Free, AnswersZeroForAFailureWithTheLogOff) { EXPECT_EQ(dvrFree(nullptr), 0); }

TEST(Free, AnswersMinusOneForAFailureThatTheLogDrops) {
    place::write_file("/dvrfile/logman", "dbgprint=0\n");
    ASSERT_EQ(vk_OutLogToLogmanEnable(), 0);
    ASSERT_EQ(vk_GetLogmanEnable(), 1);
    EXPECT_EQ(dvrFree(nullptr), -1);
    void *const block = dvrMalloc(1, UNKNOWN, 1);
    EXPECT_EQ(dvrFree(block), 0);
}

TEST(Free, AnswersMinusOneForAFailureThatTheFiltersDrop) {
    const LogCapture log("invert=dvrFree\n");
    EXPECT_EQ(dvrFree(nullptr), -1);
    EXPECT_EQ(LogCapture::take_messages(), Messages{});
}

TEST(Free, ReleasesABlockOnlyOnce) {
    // At the service: a second dvrFree() would write its byte into memory that is somebody else's by then.
    void *const block = dvrMalloc(10, UNKNOWN, 1);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(VkMem_Free(block), 0);
    EXPECT_LT(VkMem_Free(block), 0);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_NO_BLOCK);
    EXPECT_EQ(pool_named(GENERAL)->blocks, 0U);
}

// ---- Past the service ----

TEST(LibcAllocation, IsOnNobodysAccount) {
    char *const block = static_cast<char *>(dvrMalloc_libc(100));
    ASSERT_NE(block, nullptr);
    memset(block, 'x', 100);
    EXPECT_TRUE(all_pools().empty());
    dvrFree_libc(block);
    dvrFree_libc(nullptr);
    void *const plain = malloc(10);
    dvrFree_libc(plain);
    free(dvrMalloc_libc(10));
}

TEST(MemrecordSwitch, SwitchesNothing) {
    EXPECT_EQ(debug_memrecord_enable(), 0);
    EXPECT_EQ(charged(UNKNOWN), GENERAL);
    place::write_file("/dvrfile/memrecord", "1\n");
    EXPECT_EQ(debug_memrecord_enable(), 0);
    EXPECT_EQ(debug_memrecord_enable(), 0);
    EXPECT_EQ(charged(UNKNOWN), GENERAL);
    EXPECT_EQ(place::read_file("/dvrfile/memrecord"), "1\n");
    EXPECT_EQ(vk_GetLogmanEnable(), 0);
}

// ---- Many threads, many processes ----

TEST(AllocatorThreads, FindTheirPoolsWhileAnotherRegisters) {
    constexpr size_t FILES = 64;
    constexpr int ROUNDS = 50;
    std::vector<std::string> files;
    for (size_t i = 0; i < FILES; ++i) {
        const std::string folders[] = {"src/media/encoder/", "src/storage/disk/", "src/product/",
                                       "src/app_" + std::to_string(i) + "/"};
        files.push_back(folders[i % std::size(folders)] + std::to_string(i) + ".c");
    }
    std::atomic<bool> registered{false};
    std::vector<std::thread> threads;
    for (size_t number = 0; number < 4; ++number) {
        threads.emplace_back([&, number] {
            char buffer[64];
            for (int round = 0; round < ROUNDS || !registered; ++round) {
                for (size_t i = 0; i < FILES; ++i) {
                    const std::string &file = files[(i + number * FILES / 4) % FILES];
                    put(buffer, file);
                    // Once by the name's own address, once by one where a moment ago there was another name.
                    void *const one = dvrMalloc(8, file.c_str(), 1);
                    void *const two = dvrCalloc(1, 8, buffer, 2);
                    EXPECT_NE(one, nullptr);
                    EXPECT_NE(two, nullptr);
                    EXPECT_EQ(dvrFree(one), 0);
                    EXPECT_EQ(dvrFree(two), 0);
                }
            }
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < PLACES; ++i) {
            EXPECT_EQ(dvrRegMem(("app_" + std::to_string(i) + "/").c_str(), 0), 0);
            std::this_thread::yield();
        }
        registered = true;
    });
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (const velkor_host_pool &pool : all_pools()) {
        EXPECT_EQ(pool.blocks, 0U) << pool.name;
        EXPECT_EQ(pool.bytes, 0U) << pool.name;
    }
    for (size_t i = 0; i < FILES; ++i) {
        const std::string pools[] = {"media/encoder", "storage/disk", GENERAL, "app_" + std::to_string(i) + "/"};
        EXPECT_EQ(charged(files[i]), pools[i % std::size(pools)]) << files[i];
    }
}

TEST(AllocatorThreads, SeeARegistrationThatCameBeforeTheirCall) {
    for (int i = 0; i < PLACES; ++i) {
        const std::string module = "app_" + std::to_string(i) + "/";
        const std::string file = "src/" + module + "x.c";
        ASSERT_EQ(charged(file), GENERAL);
        std::thread([&] { EXPECT_EQ(dvrRegMem(module.c_str(), 0), 0); }).join();
        ASSERT_EQ(charged(file), module);
    }
}

TEST(AllocatorForkStorm, LeavesTheChildAUsableRegistry) {
    std::atomic<bool> stop{false};
    std::thread other([&] {
        while (!stop) {
            dvrRegMem(nullptr, 0);  // in and out of the lock
        }
    });
    for (int i = 0; i < 50; ++i) {
        const std::string file = "src/product/" + std::to_string(i) + ".c";
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);  // a child that hangs is a failure, not a wait for ever
            const bool registered = dvrRegMem("app/", 0) == 0;
            _exit(registered && charged(file) == GENERAL && charged("src/app/x.c") == "app/" ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
    }
    stop = true;
    other.join();
    EXPECT_EQ(charged("src/app/x.c"), GENERAL) << "what a child registers is its own";
}

}  // namespace

#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/fork_meanwhile.h"
#include "support/waiting_text.h"

// A watched malloc() answers NULL as the recorder's does, instead of ending the process.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char *__tsan_default_options() { return "allocator_may_return_null=1"; }

namespace {

using Handle = unsigned short;

Handle open(const std::string &name, unsigned limit_kib = 0) {
    const int handle = VkMem_Open(name.c_str(), 0, limit_kib);
    EXPECT_GE(handle, 0) << name;
    return static_cast<Handle>(handle);
}

velkor_host_pool accounts(unsigned pool) {
    velkor_host_pool shown = {};
    EXPECT_EQ(velkor_host_pool_get(pool, &shown), 0);
    return shown;
}

// Bytes and blocks in use.
void expect_in_use(Handle pool, uint64_t bytes, uint64_t blocks) {
    const velkor_host_pool shown = accounts(pool);
    EXPECT_EQ(shown.bytes, bytes);
    EXPECT_EQ(shown.blocks, blocks);
}

void expect_no_block(void *pointer) {
    // Another error first, so that the code is seen to come from this call.
    EXPECT_EQ(VkMem_Open(nullptr, 0, 0), -1);
    EXPECT_LT(VkMem_Free(pointer), 0) << pointer;
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_NO_BLOCK) << pointer;
}

// ---- Opening ----

TEST(HostMemory, TheFirstPoolIsHandleZeroAndAGoodOne) {
    ASSERT_EQ(VkMem_Open("first", 0, 0), 0);
    void *const block = VkMem_Alloc(0, 10);
    ASSERT_NE(block, nullptr);
    expect_in_use(0, 10, 1);
    EXPECT_EQ(VkMem_Free(block), 0);
    expect_in_use(0, 0, 0);
}

TEST(HostMemory, TheSameNameIsTheSamePool) {
    const Handle net = open("net");
    const Handle disk = open("disk");
    EXPECT_NE(net, disk);
    EXPECT_EQ(open("net"), net);
    EXPECT_EQ(open(std::string("di") + "sk"), disk);
    EXPECT_NE(open("ne"), net);
    EXPECT_NE(open("nett"), net);
}

TEST(HostMemory, TheFirstOpeningDecidesTheLimit) {
    const Handle pool = open("limited", 3);
    EXPECT_EQ(open("limited", 7), pool);
    EXPECT_EQ(open("limited"), pool);
    EXPECT_EQ(accounts(pool).limit, 3072U);
    EXPECT_EQ(accounts(open("free")).limit, 0U);
    EXPECT_EQ(accounts(open("most", UINT32_MAX)).limit, uint64_t{UINT32_MAX} * 1024);
}

TEST(HostMemory, APoolNeedsAName) {
    EXPECT_LT(VkMem_Open(nullptr, 0, 0), 0);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_BAD_NAME);
    EXPECT_EQ(VkMem_Free(nullptr), -1);
    EXPECT_LT(VkMem_Open("", 0, 0), 0);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_BAD_NAME);
    EXPECT_EQ(open("first"), 0);
}

TEST(HostMemory, ThereAre512Pools) {
    static_assert(VELKOR_HOST_POOLS == 512);
    for (int number = 0; number < 512; ++number) {
        ASSERT_EQ(VkMem_Open(("pool " + std::to_string(number)).c_str(), 0, 0), number);
    }
    EXPECT_LT(VkMem_Open("one more", 0, 0), 0);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_TOO_MANY);
    EXPECT_EQ(open("pool 511"), 511);
    void *const block = VkMem_Alloc(511, 1);
    EXPECT_NE(block, nullptr);
    expect_in_use(511, 1, 1);
    EXPECT_EQ(VkMem_Free(block), 0);

    EXPECT_EQ(vkmem_GlobalAlloc(1, __FILE__, __LINE__), nullptr);  // its pool finds no room either
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_TOO_MANY);
}

TEST(HostMemory, ALongNameIsKeptAndComparedCut) {
    const Handle pool = open(std::string(300, 'a'));
    EXPECT_EQ(accounts(pool).name, std::string(255, 'a'));
    EXPECT_EQ(open(std::string(255, 'a')), pool);
    EXPECT_NE(open(std::string(254, 'a')), pool);
}

TEST(HostMemory, ThreadsThatOpenTheSameNamesGetTheSamePools) {
    constexpr int THREADS = 4;
    using Handles = std::array<int, VELKOR_HOST_POOLS>;
    std::array<Handles, THREADS> handles = {};
    std::barrier<> start(THREADS);
    {
        std::vector<std::jthread> openers;
        openers.reserve(handles.size());
        for (Handles &own : handles) {
            openers.emplace_back([&own, &start] {
                start.arrive_and_wait();
                for (size_t number = 0; number < own.size(); ++number) {
                    own[number] = VkMem_Open(("pool " + std::to_string(number)).c_str(), 0, 0);
                }
            });
        }
    }
    for (size_t number = 0; number < handles[0].size(); ++number) {
        ASSERT_EQ(handles[0][number], static_cast<int>(number));
        ASSERT_EQ(accounts(static_cast<unsigned>(number)).name, "pool " + std::to_string(number));
    }
    EXPECT_EQ(handles, (std::array<Handles, THREADS>{handles[0], handles[0], handles[0], handles[0]}));
}

TEST(HostMemory, NothingIsAllocatedFromAPoolThatIsNotOpen) {
    const Handle pool = open("only");
    void *const block = VkMem_Alloc(pool, 8);
    for (const unsigned stranger : {pool + 1U, 511U, 512U, 65535U}) {
        const Handle handle = static_cast<Handle>(stranger);
        const auto expect_no_pool = [](const void *answer) {
            EXPECT_EQ(answer, nullptr);
            EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_NO_POOL);
            VkMem_Free(nullptr);  // another error
        };
        expect_no_pool(VkMem_Alloc(handle, 1));
        expect_no_pool(VkMem_Calloc(handle, 1, 1));
        expect_no_pool(VkMem_Realloc(handle, nullptr, 1));
        expect_no_pool(VkMem_Realloc(handle, block, 1));
        expect_no_pool(VkMem_Realloc(handle, block, 0));
        expect_no_pool(VkMem_Dup(handle, "text"));
    }
    expect_in_use(pool, 8, 1);
    EXPECT_EQ(VkMem_Free(block), 0);
}

TEST(HostMemory, OnlyOpenPoolsCanBeLookedAt) {
    velkor_host_pool shown;
    EXPECT_EQ(velkor_host_pool_get(0, &shown), -1);
    open("first");
    EXPECT_EQ(velkor_host_pool_get(0, &shown), 0);
    EXPECT_STREQ(shown.name, "first");
    EXPECT_EQ(velkor_host_pool_get(0, nullptr), -1);
    EXPECT_EQ(velkor_host_pool_get(1, &shown), -1);
    EXPECT_EQ(velkor_host_pool_get(512, &shown), -1);
    EXPECT_EQ(velkor_host_pool_get(UINT32_MAX, &shown), -1);
}

// ---- Allocating ----

TEST(HostMemory, WhatCallersAskedForIsInUse) {
    const Handle one = open("one");
    const Handle other = open("other");
    void *const a = VkMem_Alloc(one, 100);
    void *const b = VkMem_Alloc(one, 23);
    void *const c = VkMem_Alloc(other, 7);
    expect_in_use(one, 123, 2);
    expect_in_use(other, 7, 1);
    EXPECT_EQ(VkMem_Free(a), 0);
    expect_in_use(one, 23, 1);
    EXPECT_EQ(VkMem_Free(b), 0);
    EXPECT_EQ(VkMem_Free(c), 0);
    expect_in_use(one, 0, 0);
    expect_in_use(other, 0, 0);
}

TEST(HostMemory, BlocksAreAlignedAndWritable) {
    const Handle pool = open("aligned");
    std::vector<void *> blocks;
    for (size_t size = 0; size < 3000; size += 13) {
        void *const block = VkMem_Alloc(pool, size);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(max_align_t), 0U);
        memset(block, 0x5A, size);
        blocks.push_back(block);
    }
    for (void *const block : blocks) {
        EXPECT_EQ(VkMem_Free(block), 0);
    }
    expect_in_use(pool, 0, 0);
}

TEST(HostMemory, ABlockOfNoBytesIsABlock) {
    const Handle pool = open("empty");
    void *const one = VkMem_Alloc(pool, 0);
    void *const other = VkMem_Alloc(pool, 0);
    void *const third = VkMem_Calloc(pool, 0, 8);
    ASSERT_NE(one, nullptr);
    ASSERT_NE(other, nullptr);
    ASSERT_NE(third, nullptr);
    EXPECT_NE(one, other);
    EXPECT_NE(one, third);
    expect_in_use(pool, 0, 3);
    EXPECT_EQ(VkMem_Free(one), 0);
    EXPECT_EQ(VkMem_Free(other), 0);
    EXPECT_EQ(VkMem_Free(third), 0);
    expect_in_use(pool, 0, 0);
}

// dvrFree() clears the first byte of whatever it releases; a watched process is told where there is none.
TEST(HostMemory, ABlockOfNoBytesHasAByte) {
    const Handle pool = open("empty");
    for (void *const block : {VkMem_Alloc(pool, 0), VkMem_Calloc(pool, 0, 8), VkMem_Calloc(pool, 8, 0),
                              VkMem_Realloc(pool, nullptr, 0), vkmem_GlobalAlloc(0, "file.c", 1)}) {
        ASSERT_NE(block, nullptr);
        *static_cast<volatile char *>(block) = '\0';
        EXPECT_EQ(VkMem_Free(block), 0);
    }
    expect_in_use(pool, 0, 0);
}

TEST(HostMemory, CallocClears) {
    const Handle pool = open("cleared");
    for (int round = 0; round < 20; ++round) {
        void *const dirty = VkMem_Alloc(pool, 120);
        memset(dirty, 0xFF, 120);
        VkMem_Free(dirty);
        char *const cleared = static_cast<char *>(VkMem_Calloc(pool, 10, 12));
        ASSERT_NE(cleared, nullptr);
        EXPECT_EQ(std::count(cleared, cleared + 120, '\0'), 120);
        expect_in_use(pool, 120, 1);
        VkMem_Free(cleared);
    }
}

TEST(HostMemory, SizesThatAreAbsurdAreRefused) {
    const Handle pool = open("absurd");
    const auto expect_exhausted = [](const void *answer) {
        EXPECT_EQ(answer, nullptr);
        EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_EXHAUSTED);
        VkMem_Free(nullptr);  // another error
    };
    expect_exhausted(VkMem_Alloc(pool, SIZE_MAX));
    expect_exhausted(VkMem_Alloc(pool, SIZE_MAX - 15));
    expect_exhausted(VkMem_Alloc(pool, PTRDIFF_MAX));
    expect_exhausted(VkMem_Realloc(pool, nullptr, SIZE_MAX));
    expect_exhausted(VkMem_Calloc(pool, SIZE_MAX, 2));
    expect_exhausted(VkMem_Calloc(pool, SIZE_MAX / 2 + 2, 2));  // the product is 2
    expect_exhausted(VkMem_Calloc(pool, 1, SIZE_MAX));
    EXPECT_EQ(accounts(pool).failures, 7U);
    EXPECT_EQ(accounts(pool).peak_bytes, 0U);
    expect_in_use(pool, 0, 0);
}

// Kibibytes of writable memory of this process.
uint64_t own_data_size() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmData:")) {
            return std::stoull(line.substr(7)) * 1024;
        }
    }
    return 0;
}

// A process that may not have another GiB. Where limits are not enforced (under emulation), it has at most 4 anyway.
class ScarceMemory {
public:
    ScarceMemory() {
        getrlimit(RLIMIT_DATA, &before_);
        struct rlimit limit = before_;
        limit.rlim_cur = static_cast<rlim_t>(own_data_size() + (256U << 20));
        setrlimit(RLIMIT_DATA, &limit);
    }
    ~ScarceMemory() { setrlimit(RLIMIT_DATA, &before_); }
    ScarceMemory(const ScarceMemory &) = delete;
    ScarceMemory &operator=(const ScarceMemory &) = delete;

private:
    struct rlimit before_;
};

TEST(HostMemory, AnExhaustedSystemIsAFailureAndChargesNothing) {
    constexpr size_t GIB = size_t{1} << 30;
    const Handle pool = open("scarce");
    char *const small = VkMem_Dup(pool, "contents");
    const ScarceMemory scarce;
    std::vector<void *> blocks;
    void *block = nullptr;
    while (blocks.size() < 8 && (block = VkMem_Alloc(pool, GIB)) != nullptr) {
        blocks.push_back(block);
    }
    ASSERT_LT(blocks.size(), 8U);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_EXHAUSTED);
    EXPECT_EQ(accounts(pool).failures, 1U);
    EXPECT_EQ(VkMem_Calloc(pool, 1024, GIB / 1024), nullptr);
    EXPECT_EQ(VkMem_Realloc(pool, nullptr, GIB), nullptr);
    EXPECT_EQ(VkMem_Realloc(pool, small, GIB), nullptr);
    EXPECT_EQ(VkMem_Realloc(open("other"), small, GIB), nullptr);
    EXPECT_STREQ(small, "contents");
    EXPECT_EQ(accounts(pool).failures, 4U);
    EXPECT_EQ(accounts(open("other")).failures, 1U);
    expect_in_use(open("other"), 0, 0);
    expect_in_use(pool, blocks.size() * GIB + 9, blocks.size() + 1);
    EXPECT_EQ(accounts(pool).peak_bytes, blocks.size() * GIB + 9);
    EXPECT_EQ(VkMem_Free(small), 0);
    for (void *const held : blocks) {
        EXPECT_EQ(VkMem_Free(held), 0);
    }
    expect_in_use(pool, 0, 0);
}

TEST(HostMemory, DupCopiesAText) {
    const Handle pool = open("texts");
    char *const copy = VkMem_Dup(pool, "recorder");
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, "recorder");
    expect_in_use(pool, 9, 1);
    char *const empty = VkMem_Dup(pool, "");
    EXPECT_STREQ(empty, "");
    expect_in_use(pool, 10, 2);
    EXPECT_EQ(VkMem_Free(copy), 0);
    EXPECT_EQ(VkMem_Free(empty), 0);
}

TEST(HostMemory, DupOfNoTextIsAFailure) {
    const Handle pool = open("texts");
    EXPECT_EQ(VkMem_Dup(pool, nullptr), nullptr);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_NO_TEXT);
    EXPECT_EQ(accounts(pool).failures, 1U);
}

TEST(HostMemory, CopyIsMemcpy) {
    char to[8] = "-------";
    EXPECT_EQ(VkMem_Copy(to + 1, "abc", 3), to + 1);
    EXPECT_STREQ(to, "-abc---");
    EXPECT_EQ(VkMem_Copy(to, nullptr, 0), to);
    EXPECT_STREQ(to, "-abc---");
}

// ---- Realloc ----

TEST(HostMemory, ReallocOfNullAllocates) {
    const Handle pool = open("pool");
    void *const block = VkMem_Realloc(pool, nullptr, 12);
    ASSERT_NE(block, nullptr);
    expect_in_use(pool, 12, 1);
    void *const empty = VkMem_Realloc(pool, nullptr, 0);
    EXPECT_NE(empty, nullptr);
    expect_in_use(pool, 12, 2);
    EXPECT_EQ(VkMem_Free(block), 0);
    EXPECT_EQ(VkMem_Free(empty), 0);
}

TEST(HostMemory, ReallocToNothingReleases) {
    const Handle pool = open("pool");
    void *const block = VkMem_Alloc(pool, 12);
    EXPECT_EQ(VkMem_Realloc(pool, block, 0), nullptr);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_OK);
    expect_in_use(pool, 0, 0);
    EXPECT_EQ(accounts(pool).failures, 0U);
    expect_no_block(block);
}

TEST(HostMemory, ReallocKeepsTheContentsAndChargesTheDifference) {
    const Handle pool = open("pool");
    std::string expected = "0123456789";
    char *block = VkMem_Dup(pool, expected.c_str());
    for (const size_t size : {200U, 20000U, 3000000U, 500000U, 64U, 11U}) {
        block = static_cast<char *>(VkMem_Realloc(pool, block, size));
        ASSERT_NE(block, nullptr);
        EXPECT_STREQ(block, expected.c_str());
        expect_in_use(pool, size, 1);
    }
    EXPECT_EQ(accounts(pool).peak_bytes, 3000000U);
    EXPECT_EQ(VkMem_Free(block), 0);
    expect_in_use(pool, 0, 0);
}

TEST(HostMemory, ABlockThatMovedIsLiveAtItsNewPlaceOnly) {
    const Handle pool = open("pool");
    void *const old_block = VkMem_Alloc(pool, 100);
    void *const in_the_way = VkMem_Alloc(pool, 100);
    void *const block = VkMem_Realloc(pool, old_block, 4000000);
    ASSERT_NE(block, nullptr);
    ASSERT_NE(block, old_block);
    expect_no_block(old_block);
    EXPECT_EQ(VkMem_Free(block), 0);
    EXPECT_EQ(VkMem_Free(in_the_way), 0);
}

TEST(HostMemory, ReallocMovesTheChargeToTheNamedPool) {
    const Handle from = open("from");
    const Handle to = open("to");
    void *block = VkMem_Alloc(from, 100);
    block = VkMem_Realloc(to, block, 30);
    ASSERT_NE(block, nullptr);
    expect_in_use(from, 0, 0);
    expect_in_use(to, 30, 1);
    EXPECT_EQ(accounts(from).peak_bytes, 100U);
    EXPECT_EQ(accounts(to).peak_bytes, 30U);
    EXPECT_EQ(VkMem_Free(block), 0);
    expect_in_use(to, 0, 0);
}

TEST(HostMemory, AFailedReallocKeepsTheOldBlock) {
    const Handle pool = open("pool");
    const Handle narrow = open("narrow", 1);
    char *const block = VkMem_Dup(pool, "contents");
    EXPECT_EQ(VkMem_Realloc(pool, block, SIZE_MAX), nullptr);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_EXHAUSTED);
    EXPECT_EQ(VkMem_Realloc(narrow, block, 1025), nullptr);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_LIMIT);
    EXPECT_STREQ(block, "contents");
    expect_in_use(pool, 9, 1);
    expect_in_use(narrow, 0, 0);
    EXPECT_EQ(accounts(pool).failures, 1U);
    EXPECT_EQ(accounts(narrow).failures, 1U);
    EXPECT_EQ(VkMem_Free(block), 0);
}

TEST(HostMemory, ReallocOfAStrangersPointerIsAFailure) {
    const Handle pool = open("pool");
    void *const freed = VkMem_Alloc(pool, 10);
    VkMem_Free(freed);
    alignas(max_align_t) static char bytes[64];
    for (void *const stranger : {freed, static_cast<void *>(bytes), static_cast<void *>(bytes + 1)}) {
        VkMem_Open(nullptr, 0, 0);  // another error
        EXPECT_EQ(VkMem_Realloc(pool, stranger, 20), nullptr);
        EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_NO_BLOCK);
        EXPECT_EQ(VkMem_Realloc(pool, stranger, 0), nullptr);
        EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_NO_BLOCK);
    }
    expect_in_use(pool, 0, 0);
    EXPECT_EQ(accounts(pool).failures, 6U);
}

// ---- Limit and peak ----

TEST(HostMemory, ALimitIsReachedButNotPassed) {
    const Handle pool = open("limited", 1);
    void *const most = VkMem_Alloc(pool, 1000);
    void *const rest = VkMem_Alloc(pool, 24);
    ASSERT_NE(most, nullptr);
    ASSERT_NE(rest, nullptr);
    EXPECT_EQ(VkMem_Alloc(pool, 1), nullptr);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_LIMIT);
    EXPECT_EQ(VkMem_Calloc(pool, 1, 1), nullptr);
    EXPECT_EQ(VkMem_Dup(pool, ""), nullptr);
    EXPECT_EQ(VkMem_Realloc(pool, rest, 25), nullptr);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_LIMIT);
    EXPECT_EQ(accounts(pool).failures, 4U);
    expect_in_use(pool, 1024, 2);
    EXPECT_EQ(accounts(pool).peak_bytes, 1024U);
    EXPECT_EQ(VkMem_Free(rest), 0);
    EXPECT_EQ(VkMem_Alloc(pool, 25), nullptr);
    void *const again = VkMem_Alloc(pool, 24);
    EXPECT_NE(again, nullptr);
    EXPECT_EQ(VkMem_Free(again), 0);
    EXPECT_EQ(VkMem_Free(most), 0);
}

TEST(HostMemory, AResizedBlockIsNotChargedTwice) {
    const Handle pool = open("limited", 1);
    void *block = VkMem_Alloc(pool, 800);
    block = VkMem_Realloc(pool, block, 1024);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(accounts(pool).peak_bytes, 1024U);
    block = VkMem_Realloc(pool, block, 900);
    ASSERT_NE(block, nullptr);
    expect_in_use(pool, 900, 1);
    EXPECT_EQ(VkMem_Free(block), 0);
}

TEST(HostMemory, PeakIsTheMostAtATime) {
    const Handle pool = open("peak");
    void *const a = VkMem_Alloc(pool, 100);
    void *const b = VkMem_Alloc(pool, 50);
    EXPECT_EQ(VkMem_Free(a), 0);
    void *const c = VkMem_Alloc(pool, 60);
    EXPECT_EQ(accounts(pool).peak_bytes, 150U);
    void *const d = VkMem_Alloc(pool, 41);
    EXPECT_EQ(accounts(pool).peak_bytes, 151U);
    for (void *const block : {b, c, d}) {
        EXPECT_EQ(VkMem_Free(block), 0);
    }
    EXPECT_EQ(accounts(pool).peak_bytes, 151U);
}

// ---- What is not a block ----

TEST(HostMemory, FreeOfNullIsAFailure) { expect_no_block(nullptr); }

TEST(HostMemory, FreeOfAStrangersPointerIsAFailureAndTouchesNothing) {
    const Handle pool = open("pool");
    void *const block = VkMem_Alloc(pool, 256);  // there are live blocks near some of these
    char *const from_malloc = strdup("not the service's");
    alignas(max_align_t) char on_stack[64] = "stack";
    alignas(max_align_t) static char in_data[64] = "data";
    for (void *const stranger :
         {static_cast<void *>(from_malloc), static_cast<void *>(on_stack), static_cast<void *>(in_data),
          reinterpret_cast<void *>(&expect_no_block), static_cast<void *>(const_cast<char *>("literal"))}) {
        expect_no_block(stranger);
    }
    EXPECT_STREQ(from_malloc, "not the service's");
    EXPECT_STREQ(on_stack, "stack");
    EXPECT_STREQ(in_data, "data");
    free(from_malloc);
    expect_in_use(pool, 256, 1);
    EXPECT_EQ(VkMem_Free(block), 0);
}

TEST(HostMemory, FreeInsideABlockIsAFailure) {
    const Handle pool = open("pool");
    char *const block = static_cast<char *>(VkMem_Alloc(pool, 256));
    for (ptrdiff_t offset = -64; offset <= 256 + 64; ++offset) {
        if (offset != 0) {
            // NOLINTNEXTLINE(performance-no-int-to-ptr): outside the block, no pointer arithmetic is allowed
            expect_no_block(reinterpret_cast<void *>(reinterpret_cast<intptr_t>(block) + offset));
        }
    }
    expect_in_use(pool, 256, 1);
    EXPECT_EQ(VkMem_Free(block), 0);
}

TEST(HostMemory, FreeOfAnAbsurdPointerIsAFailure) {
    for (const uintptr_t address : {uintptr_t{1}, uintptr_t{8}, uintptr_t{16}, uintptr_t{4096}, uintptr_t{0x80000000U},
                                    UINTPTR_MAX / 2, UINTPTR_MAX / 2 + 1, UINTPTR_MAX - 15, UINTPTR_MAX}) {
        expect_no_block(reinterpret_cast<void *>(address));  // NOLINT(performance-no-int-to-ptr)
    }
}

TEST(HostMemory, FreeNeverLooksAtMemoryThatCannotBeRead) {
    constexpr size_t SIZE = 4U << 20;
    void *const closed = mmap(nullptr, SIZE, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(closed, MAP_FAILED);
    for (size_t offset = 0; offset < SIZE; offset += SIZE / 64) {
        expect_no_block(static_cast<char *>(closed) + offset);
        EXPECT_EQ(VkMem_Realloc(open("pool"), static_cast<char *>(closed) + offset, 10), nullptr);
    }
    munmap(closed, SIZE);
}

TEST(HostMemory, FreeOfABlockFreedBeforeIsAFailure) {
    const Handle pool = open("pool");
    for (const size_t size : {1U, 100U, 5000U, 5000000U}) {
        void *const block = VkMem_Alloc(pool, size);
        EXPECT_EQ(VkMem_Free(block), 0);
        expect_no_block(block);
        expect_no_block(block);
    }
    expect_in_use(pool, 0, 0);
}

TEST(HostMemory, OfThreadsThatFreeOneBlockOneWins) {
    constexpr int THREADS = 3;
    constexpr int ROUNDS = 10;
    const Handle pool = open("raced");
    std::vector<void *> blocks(20000);
    std::atomic<int> winners{0};
    std::atomic<int> losers{0};
    std::barrier<> step(THREADS + 1);
    std::vector<std::jthread> threads;
    threads.reserve(THREADS);
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < ROUNDS; ++round) {
                step.arrive_and_wait();
                for (void *const block : blocks) {
                    ++(VkMem_Free(block) == 0 ? winners : losers);
                }
                step.arrive_and_wait();
            }
        });
    }
    for (int round = 1; round <= ROUNDS; ++round) {
        for (void *&block : blocks) {
            block = VkMem_Alloc(pool, 40);
        }
        step.arrive_and_wait();
        step.arrive_and_wait();
        ASSERT_EQ(winners.load(), round * static_cast<int>(blocks.size()));
        ASSERT_EQ(losers.load(), (THREADS - 1) * winners.load());
        expect_in_use(pool, 0, 0);
    }
}

TEST(HostMemory, ErrorIsTheCallingThreadsLastFailure) {
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_OK);
    VkMem_Free(nullptr);
    std::thread([] {
        EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_OK);
        VkMem_Open(nullptr, 0, 0);
        EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_BAD_NAME);
    }).join();
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_NO_BLOCK);
    void *const block = VkMem_Alloc(open("pool"), 1);  // a success leaves it
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_NO_BLOCK);
    VkMem_Free(block);
}

// ---- Outside the pools ----

TEST(HostMemory, GlobalBlocksAreChargedToAPoolOfTheirOwn) {
    const Handle first = open("first");
    void *const block = vkmem_GlobalAlloc(77, "file.c", 12);
    ASSERT_NE(block, nullptr);
    const Handle global = open("global");
    EXPECT_EQ(global, first + 1);
    expect_in_use(global, 77, 1);
    EXPECT_EQ(accounts(global).limit, 0U);
    vkmem_GlobalFree(block);
    expect_in_use(global, 0, 0);
    EXPECT_EQ(vkmem_GlobalAlloc(SIZE_MAX, nullptr, 0), nullptr);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_EXHAUSTED);
}

TEST(HostMemory, GlobalFreeIgnoresWhatIsNoBlock) {
    void *const block = vkmem_GlobalAlloc(5, "file.c", 1);
    int on_stack = 5;
    vkmem_GlobalFree(nullptr);
    vkmem_GlobalFree(&on_stack);
    vkmem_GlobalFree(reinterpret_cast<void *>(8));
    expect_in_use(open("global"), 5, 1);
    vkmem_GlobalFree(block);
    vkmem_GlobalFree(block);
    expect_in_use(open("global"), 0, 0);
    EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_OK);
}

// ---- Many threads ----

// Each thread allocates, resizes, checks and frees blocks of its own at random.
void storm(Handle pool, Handle other, unsigned seed, int steps) {
    struct Owned {
        unsigned char *block;
        size_t size;
    };
    std::mt19937 random(seed);
    std::array<Owned, 16> owned = {};
    for (int step = 0; step < steps; ++step) {
        Owned &one = owned[random() % owned.size()];
        const size_t size = random() % 900 + 1;
        const unsigned char mark = static_cast<unsigned char>(seed);
        if (one.block == nullptr) {
            one.block = static_cast<unsigned char *>(VkMem_Alloc(pool, size));
        } else {
            ASSERT_EQ(one.block[0], mark);
            ASSERT_EQ(one.block[one.size - 1], mark);
            if (random() % 2 == 0) {
                ASSERT_EQ(VkMem_Free(one.block), 0);
                one.block = nullptr;
                continue;
            }
            one.block = static_cast<unsigned char *>(VkMem_Realloc(random() % 2 == 0 ? pool : other, one.block, size));
        }
        ASSERT_NE(one.block, nullptr);
        one.size = size;
        memset(one.block, mark, size);
    }
    for (const Owned &one : owned) {
        if (one.block != nullptr) {
            ASSERT_EQ(VkMem_Free(one.block), 0);
        }
    }
}

TEST(HostMemory, AccountsAreExactAfterAStorm) {
    const Handle pool = open("storm");
    const Handle other = open("other");
    void *const kept = VkMem_Alloc(pool, 12345);
    {
        std::vector<std::jthread> threads;
        for (unsigned seed = 1; seed <= 4; ++seed) {
            threads.emplace_back(storm, pool, other, seed, 20000);
        }
        for (int look = 0; look < 200; ++look) {
            const velkor_host_pool shown = accounts(pool);
            EXPECT_GE(shown.bytes, 12345U);
            EXPECT_LE(shown.bytes, 12345U + 4 * 16 * 900);
            EXPECT_GE(shown.blocks, 1U);
            EXPECT_LE(shown.blocks, 1U + 4 * 16);
            EXPECT_GE(shown.peak_bytes, shown.bytes);
        }
    }
    expect_in_use(pool, 12345, 1);
    expect_in_use(other, 0, 0);
    EXPECT_EQ(accounts(pool).failures, 0U);
    EXPECT_GT(accounts(pool).peak_bytes, 12345U);
    EXPECT_LE(accounts(pool).peak_bytes, 12345U + 4 * 16 * 900);
    EXPECT_EQ(VkMem_Free(kept), 0);
}

TEST(HostMemory, BlocksMayBeFreedByAnotherThread) {
    const Handle pool = open("handed over");
    std::vector<void *> blocks;
    for (size_t size = 0; size < 1000; ++size) {
        blocks.push_back(VkMem_Alloc(pool, size));
    }
    std::thread([&blocks] {
        for (void *const block : blocks) {
            EXPECT_EQ(VkMem_Free(block), 0);
        }
    }).join();
    expect_in_use(pool, 0, 0);
}

TEST(HostMemory, PeakIsExactWhenThreadsReachItTogether) {
    constexpr int THREADS = 4;
    constexpr int BLOCKS = 500;
    const Handle pool = open("summit");
    std::barrier<> summit(THREADS);
    std::vector<std::jthread> threads;
    threads.reserve(THREADS);
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&] {
            std::vector<void *> blocks(BLOCKS);
            for (void *&block : blocks) {
                block = VkMem_Alloc(pool, 10);
            }
            summit.arrive_and_wait();
            for (void *const block : blocks) {
                EXPECT_EQ(VkMem_Free(block), 0);
            }
        });
    }
    threads.clear();
    EXPECT_EQ(accounts(pool).peak_bytes, uint64_t{THREADS} * BLOCKS * 10);
    expect_in_use(pool, 0, 0);
}

TEST(HostMemory, ThreadsTogetherReachALimitButDoNotPassIt) {
    constexpr int THREADS = 4;
    const Handle pool = open("limited", 10);
    std::barrier<> full(THREADS + 1);
    std::atomic<uint64_t> got{0};
    std::vector<std::jthread> threads;
    threads.reserve(THREADS);
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&] {
            std::vector<void *> blocks;
            for (void *block; (block = VkMem_Alloc(pool, 16)) != nullptr;) {
                blocks.push_back(block);
            }
            EXPECT_EQ(VkMem_Error(), VELKOR_HOST_MEMORY_LIMIT);
            got += blocks.size();
            full.arrive_and_wait();
            full.arrive_and_wait();
            for (void *const block : blocks) {
                EXPECT_EQ(VkMem_Free(block), 0);
            }
        });
    }
    full.arrive_and_wait();
    EXPECT_EQ(got.load(), 640U);
    expect_in_use(pool, 10240, 640);
    EXPECT_EQ(accounts(pool).peak_bytes, 10240U);
    EXPECT_EQ(accounts(pool).failures, uint64_t{THREADS});
    full.arrive_and_wait();
    threads.clear();
    expect_in_use(pool, 0, 0);
}

// ---- Forked children ----

TEST(HostMemory, HoldsNoChildUpThatIsForkedWhileAPoolIsOpened) {
    WaitingText name("slow");
    std::thread opener([&] { EXPECT_GE(VkMem_Open(name.c_str(), 0, 0), 0); });
    ASSERT_TRUE(name.has_reader());
    const auto opens = [] { return VkMem_Open("other", 0, 0) >= 0 && VkMem_Open("slow", 0, 0) >= 0; };
    EXPECT_TRUE(fork_meanwhile::child_is_well(opens, [&] { name.let_go(); }));
    opener.join();
}

TEST(HostMemoryForkStorm, AChildThatIsForkedWhileOthersOpenAndAllocateDoesNotHang) {
    const Handle pool = open("busy");
    void *const inherited = VkMem_Alloc(pool, 30);
    std::atomic<bool> stop{false};
    std::vector<std::jthread> threads;
    threads.emplace_back([&stop] {
        while (!stop.load()) {
            VkMem_Open("a name that is not the first", 0, 0);
        }
    });
    threads.emplace_back([&stop, pool] {
        while (!stop.load()) {
            VkMem_Free(VkMem_Alloc(pool, 20));
        }
    });
    for (int i = 0; i < 25; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);  // a child that hangs is a failure, not a wait for ever
            const int own = VkMem_Open("the child's", 0, 0);
            void *const block = own >= 0 ? VkMem_Alloc(static_cast<Handle>(own), 11) : nullptr;
            velkor_host_pool shown;
            const bool charged = block != nullptr && velkor_host_pool_get(static_cast<unsigned>(own), &shown) == 0 &&
                                 shown.bytes == 11 && shown.blocks == 1;
            const bool freed = VkMem_Free(block) == 0 && VkMem_Free(inherited) == 0 && VkMem_Free(inherited) < 0;
            _exit(charged && freed ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    stop = true;
    threads.clear();
    expect_in_use(pool, 30, 1);
    EXPECT_EQ(VkMem_Free(inherited), 0);
}

// ---- For the person at the bench ----

std::string report() {
    char *text = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&text, &size);
    velkor_host_pool_report(stream);
    fclose(stream);
    std::string result(text, size);
    free(text);
    return result;
}

TEST(HostMemory, ReportIsAnAlignedTable) {
    const Handle net = open("net");
    const Handle disk = open("disk buffers", 4);
    void *const a = VkMem_Alloc(net, 1000000);
    void *const b = VkMem_Alloc(net, 24);
    VkMem_Free(a);
    EXPECT_EQ(VkMem_Alloc(disk, 5000), nullptr);
    EXPECT_EQ(report(),
              "pool     blocks         bytes          peak         limit   failures name\n"
              "   0          1            24       1000024          none          0 net\n"
              "   1          0             0             0          4096          1 disk buffers\n");
    VkMem_Free(b);
}

TEST(HostMemory, ReportOfNoPoolsIsItsTitles) {
    EXPECT_EQ(report(), "pool     blocks         bytes          peak         limit   failures name\n");
}

TEST(HostMemory, ReportToNowhereIsNothing) {
    open("net");
    velkor_host_pool_report(nullptr);
    EXPECT_EQ(accounts(0).bytes, 0U);
}

#ifdef __SANITIZE_ADDRESS__
using HostMemoryDeathTest = testing::Test;

TEST(HostMemoryDeathTest, AWatchedProcessIsToldOfAnOverrunAndOfUseAfterFree) {
    volatile char *const block = static_cast<char *>(VkMem_Alloc(open("watched"), 10));
    EXPECT_DEATH(block[10] = 1, "heap-buffer-overflow");
    VkMem_Free(const_cast<char *>(block));
    EXPECT_DEATH(block[0] = 1, "heap-use-after-free");
}
#endif

}  // namespace

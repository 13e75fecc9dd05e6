// The memory service that the board of the examples brings: what the library asks of every service.
#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>
#include <velkor/allocation.h>
#include <velkor/firmware.h>

namespace {

constexpr const char *FILE_NAME = "src/product/main.c";
constexpr size_t NEARLY_ALL = size_t{1000} * 1024;  // of the region's MiB

// dvrFree() clears the first byte of whatever it releases. Behind a block of no room stands the head of the next one.
TEST(BoardMemory, ABlockOfNoBytesHasAByte) {
    alarm(20);  // a spoilt row of blocks is walked for ever
    void *const none = dvrMalloc(0, FILE_NAME, 1);
    void *const cleared = dvrCalloc(0, 8, FILE_NAME, 1);
    void *const resized = dvrRealloc(dvrMalloc(8, FILE_NAME, 1), 0, FILE_NAME, 1);
    char *const text = dvrStrdup("the front door", FILE_NAME, 1);
    ASSERT_NE(none, nullptr);
    ASSERT_NE(cleared, nullptr);
    ASSERT_NE(resized, nullptr);
    for (void *const block : {none, cleared, resized}) {
        EXPECT_EQ(dvrFree(block), 0);
    }
    EXPECT_STREQ(text, "the front door");
    EXPECT_EQ(dvrFree(text), 0);
    void *const most = dvrMalloc(NEARLY_ALL, FILE_NAME, 1);
    EXPECT_NE(most, nullptr) << "the row of blocks is whole";
    EXPECT_EQ(dvrFree(most), 0);
}

TEST(BoardMemory, BlocksOfNoBytesCountAsNone) {
    ASSERT_EQ(dvrRegMem("src/limited", 1), 0);
    for (int i = 0; i < 2000; ++i) {
        ASSERT_NE(dvrMalloc(0, "src/limited.c", 1), nullptr);
    }
    EXPECT_NE(dvrMalloc(1024, "src/limited.c", 1), nullptr) << "the pool of 1 KiB is empty";
}

}  // namespace

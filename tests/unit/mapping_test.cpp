// Physical memory is a regular file here, at /dev/mem of a /dev that this process alone sees.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor/files.h>

#include <string>

#include "support/allocation_faults.h"
#include "support/place.h"

namespace {

constexpr unsigned BASE = 0x12340000;

// NOLINTNEXTLINE(performance-no-int-to-ptr): addresses are numbers in this interface
char *at(uintptr_t address) { return reinterpret_cast<char *>(address); }

// 4 GiB, of which hardly a byte takes memory.
class PhysicalMemory : public testing::Test {
protected:
    PhysicalMemory() {
        EXPECT_EQ(mount("velkor", "/dev", "tmpfs", 0, nullptr), 0) << strerror(errno);
        place::write_file("/dev/mem", "");
        EXPECT_EQ(truncate("/dev/mem", off_t{1} << 32), 0);
    }

    static void poke(off_t address, char byte) {
        const int descriptor = open("/dev/mem", O_RDWR | O_CLOEXEC);
        EXPECT_EQ(pwrite(descriptor, &byte, 1, address), 1);
        close(descriptor);
    }

    static char peek(off_t address) {
        char byte = 0;
        const int descriptor = open("/dev/mem", O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(pread(descriptor, &byte, 1, address), 1);
        close(descriptor);
        return byte;
    }
};

TEST_F(PhysicalMemory, IsMappedByWholePages) {
    poke(BASE + 0xFFC, 'a');
    const uintptr_t address = memmap(BASE + 0xFFC, 8);
    ASSERT_NE(address, 0U);
    EXPECT_EQ(*at(address), 'a');
    ASSERT_NE(pMMAPNode, nullptr);
    EXPECT_EQ(pMMAPNode->physical_base, BASE);
    EXPECT_EQ(pMMAPNode->virtual_base, address - 0xFFC);
    EXPECT_EQ(pMMAPNode->length, 0x2000U);
    EXPECT_EQ(pMMAPNode->users, 1);
    EXPECT_EQ(pMMAPNode->next, nullptr);
    at(address)[7] = 'z';  // in the second page, and shared
    EXPECT_EQ(peek(BASE + 0xFFC + 7), 'z');
}

TEST_F(PhysicalMemory, HasOnePageForOneByteAndNoneMoreForAWholePage) {
    const struct {
        unsigned physical;
        unsigned size;
        unsigned length;
    } ranges[] = {{0x1000, 1, 0x1000}, {0x3000, 0x1000, 0x1000}, {0x5000, 0x1001, 0x2000}, {0x8fff, 2, 0x2000}};
    velkor_mapping **next = &pMMAPNode;
    for (const auto &range : ranges) {
        EXPECT_NE(memmap(range.physical, range.size), 0U);
        ASSERT_NE(*next, nullptr);  // in the order of their making
        EXPECT_EQ((*next)->length, range.length) << range.physical;
        next = &(*next)->next;
    }
}

TEST_F(PhysicalMemory, IsSharedByRequestsInsideOneMapping) {
    const uintptr_t first = memmap(BASE + 0x10, 4);
    const uintptr_t second = memmap(BASE + 0x20, 0x1000 - 0x20);
    EXPECT_EQ(second - first, 0x10U);
    EXPECT_EQ(pMMAPNode->users, 2);
    EXPECT_EQ(pMMAPNode->next, nullptr);
    EXPECT_NE(memmap(BASE + 0x20, 0x1000 - 0x1f), 0U);  // a byte too far: a mapping of its own
    EXPECT_NE(pMMAPNode->next, nullptr);
    EXPECT_EQ(memunmap(first), 0);
    EXPECT_EQ(pMMAPNode->users, 1);
    *at(second) = 'x';
    EXPECT_EQ(peek(BASE + 0x20), 'x');
}

TEST_F(PhysicalMemory, IsUnmappedByItsLastUser) {
    const uintptr_t address = memmap(BASE, 16);
    memmap(BASE, 16);
    EXPECT_NE(place::read_file("/proc/self/maps").find("/dev/mem"), std::string::npos);
    EXPECT_EQ(memunmap(address), 0);
    EXPECT_EQ(memunmap(address), 0);
    EXPECT_EQ(pMMAPNode, nullptr);
    EXPECT_EQ(place::read_file("/proc/self/maps").find("/dev/mem"), std::string::npos);
    EXPECT_EQ(memunmap(address), -1);
}

TEST_F(PhysicalMemory, IsFoundByTheAddressOnePastItsEnd) {
    const uintptr_t address = memmap(BASE, 4096);
    EXPECT_EQ(memunmap(address - 1), -1);
    EXPECT_EQ(memunmap(address + 4097), -1);
    EXPECT_EQ(memunmap(address + 4096), 0);
    EXPECT_EQ(pMMAPNode, nullptr);
}

TEST_F(PhysicalMemory, LeavesTheListInOrderWithoutAMappingFromItsMiddle) {
    memmap(0x1000, 1);
    const uintptr_t second = memmap(0x3000, 1);
    memmap(0x5000, 1);
    velkor_mapping *const first = pMMAPNode;
    velkor_mapping *const third = first->next->next;
    EXPECT_EQ(memunmap(second), 0);
    EXPECT_EQ(pMMAPNode, first);
    EXPECT_EQ(first->next, third);
    EXPECT_EQ(third->next, nullptr);
}

TEST_F(PhysicalMemory, LosesTheWholeListWithItsFirstMapping) {
    const uintptr_t first = memmap(0x1000, 1);
    const uintptr_t second = memmap(0x3000, 1);
    velkor_mapping *const dropped = pMMAPNode->next;
    EXPECT_EQ(memunmap(first), 0);
    EXPECT_EQ(pMMAPNode, nullptr);
    *at(second) = 'y';  // still mapped
    EXPECT_EQ(peek(0x3000), 'y');
    EXPECT_EQ(memunmap(second), -1);
    EXPECT_NE(memmap(0x3000, 1), second);  // mapped anew
    EXPECT_EQ(pMMAPNode->next, nullptr);
    free(dropped);
}

TEST_F(PhysicalMemory, HasNoRangeOfNothing) {
    EXPECT_EQ(memmap(BASE, 0), 0U);
    EXPECT_EQ(pMMAPNode, nullptr);
    EXPECT_EQ(memunmap(0), -1);
}

TEST_F(PhysicalMemory, EndsWhere32BitsEnd) {
    poke(0xFFFFFFFF, 'e');
    const uintptr_t last = memmap(0xFFFFFFFF, 1);
    ASSERT_NE(last, 0U);
    EXPECT_EQ(*at(last), 'e');
    EXPECT_NE(memmap(0xFFFFF000, 0x1000), 0U);
    EXPECT_EQ(pMMAPNode->users, 2);
    EXPECT_EQ(memmap(0xFFFFF000, 0x1001), 0U);
    EXPECT_EQ(memmap(0xFFFFFFFF, 0xFFFFFFFF), 0U);  // would seem to end in the mapping at 0xFFFFF000
    EXPECT_EQ(memmap(0x10, 0xFFFFFFFF), 0U);
    EXPECT_EQ(memmap(0, 0xFFFFFFFF), 0U);  // 4 GiB fit no length
    EXPECT_EQ(pMMAPNode->users, 2);
    EXPECT_EQ(pMMAPNode->next, nullptr);
}

TEST_F(PhysicalMemory, IsOpenedOnceAndStaysOpen) {
    EXPECT_NE(memmap(0x1000, 1), 0U);
    EXPECT_EQ(unlink("/dev/mem"), 0);
    EXPECT_NE(memmap(0x3000, 1), 0U);
}

TEST_F(PhysicalMemory, IsLookedForAgainWhereItCouldNotBeOpened) {
    EXPECT_EQ(rename("/dev/mem", "/dev/away"), 0);
    EXPECT_EQ(memmap(0x1000, 1), 0U);
    EXPECT_EQ(rename("/dev/away", "/dev/mem"), 0);
    EXPECT_NE(memmap(0x1000, 1), 0U);
}

TEST_F(PhysicalMemory, AnswersZeroForAMappingThatFails) {
    EXPECT_EQ(unlink("/dev/mem"), 0);
    EXPECT_EQ(mkfifo("/dev/mem", 0600), 0);  // opens, and cannot be mapped
    EXPECT_EQ(memmap(0x1000, 1), 0U);
    EXPECT_EQ(pMMAPNode, nullptr);
}

TEST_F(PhysicalMemory, StaysMappedWhereThereIsNoMemoryForItsRecord) {
    allocations::fail(1);
    EXPECT_EQ(memmap(0x1000, 1), 0U);
    EXPECT_EQ(pMMAPNode, nullptr);
    EXPECT_NE(place::read_file("/proc/self/maps").find("/dev/mem"), std::string::npos);
    EXPECT_NE(memmap(0x1000, 1), 0U);
    EXPECT_EQ(pMMAPNode->users, 1);
}

// ---- Files ----

TEST(MappedFile, IsSharedAndCreated) {
    umask(0);
    void *const empty = mmapfile("/tmp/file", 4096);
    ASSERT_NE(empty, MAP_FAILED);
    struct stat status;
    ASSERT_EQ(stat("/tmp/file", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0770U);
    ASSERT_EQ(truncate("/tmp/file", 4096), 0);
    strcpy(static_cast<char *>(empty), "shared");
    EXPECT_STREQ(place::read_file("/tmp/file").c_str(), "shared");
    void *const read = mmapfile_r("/tmp/file", 4096);
    ASSERT_NE(read, MAP_FAILED);
    EXPECT_STREQ(static_cast<char *>(read), "shared");
    strcpy(static_cast<char *>(empty), "seen");
    EXPECT_STREQ(static_cast<char *>(read), "seen");
    EXPECT_NE(mprotect(read, 4096, PROT_WRITE), 0);  // opened for reading only
    EXPECT_EQ(HI_MUnMap(read, 4096), 0);
    EXPECT_EQ(HI_MUnMap(empty, 4096), 0);
}

TEST(MappedFile, AnswersZeroWithoutAFileAndTheFailureOfTheMappingAsItIs) {
    EXPECT_EQ(mmapfile(nullptr, 1), nullptr);
    EXPECT_EQ(mmapfile_r(nullptr, 1), nullptr);
    EXPECT_EQ(mmapfile("/tmp/none/file", 1), nullptr);
    EXPECT_EQ(mmapfile_r("/tmp/none", 1), nullptr);
    EXPECT_FALSE(place::exists("/tmp/none"));
    EXPECT_EQ(mmapfile("/tmp/file", 0), MAP_FAILED);
    EXPECT_EQ(mmapfile_r("/tmp/file", 0), MAP_FAILED);
}

TEST(MappedFile, KeepsNoDescriptor) {
    const int before = dup(0);
    close(before);
    void *const mapped = mmapfile("/tmp/file", 4096);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
    HI_MUnMap(mapped, 4096);
}

// The emulator of the 32-bit platform cuts offsets to 32 bits; there 3 GiB must do, which no 32-bit off_t holds.
TEST(MappedFile, ReachesOffsetsThatNeed64Bits) {
    constexpr off_t FAR = off_t{sizeof(void *) == 4 ? 3 : 5} << 30;
    place::write_file("/tmp/file", "");
    ASSERT_EQ(truncate("/tmp/file", FAR + 4096), 0);
    const int descriptor = HI_Open("/tmp/file", O_RDWR, 0);
    ASSERT_GE(descriptor, 0);
    ASSERT_EQ(pwrite(descriptor, "far", 3, FAR), 3);
    void *const mapped = HI_MMap(nullptr, 4096, PROT_READ, MAP_SHARED, descriptor, FAR);
    ASSERT_NE(mapped, MAP_FAILED);
    EXPECT_EQ(memcmp(mapped, "far", 3), 0);
    EXPECT_EQ(HI_MUnMap(mapped, 4096), 0);
    EXPECT_EQ(HI_Close(descriptor), 0);
    EXPECT_EQ(HI_Close(descriptor), -1);
}

TEST(MappedFile, IsNotWaitedForWhereAFifoIs) {
    ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
    EXPECT_EQ(mmapfile_r("/tmp/fifo", 4096), MAP_FAILED);
    EXPECT_EQ(mmapfile("/tmp/fifo", 4096), MAP_FAILED);
}

}  // namespace

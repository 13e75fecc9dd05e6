// Copies of real files that change meanwhile, vanish, or are very large. The file layer is the stand-in's own; its
// calls only tell a test when they are made, and for the largest file throw away what is written.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor/files.h>
#include <velkor/firmware.h>

#include <functional>
#include <string>

#include "support/place.h"
#include "support/wire.h"

namespace {

constexpr int64_t BLOCK = 0x80000;
constexpr int64_t MARK = 0xA00000;

struct Moments {
    std::function<void()> after_examining;
    std::function<void()> after_syncing;
    std::function<void(const char *, int)> instead_of_writing;
};

Moments moments;

void call(const std::function<void()> &moment) {
    if (moment) {
        moment();
    }
}

}  // namespace

int rec_Stat(const char *path, void *record) {
    const int result = vfs_Stat(path, record);
    call(moments.after_examining);
    return result;
}

int vfs_fsync(int fd) {
    const int result = fsync(fd);
    call(moments.after_syncing);
    return result;
}

int vfs_Write(int fd, const void *buffer, int length) {
    if (moments.instead_of_writing) {
        moments.instead_of_writing(static_cast<const char *>(buffer), length);
        return length;
    }
    return static_cast<int>(write(fd, buffer, static_cast<size_t>(length)));
}

namespace {

std::string numbered(int64_t size) {
    std::string text(static_cast<size_t>(size), '\0');
    for (size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char>(i / 509);
    }
    return text;
}

// A directory on a disk, where there is direct I/O; /tmp is memory.
class CopyOfARealFile : public testing::Test {
protected:
    CopyOfARealFile() {
        char name[] = "/var/tmp/velkorXXXXXX";
        EXPECT_NE(mkdtemp(name), nullptr);
        disk_ = name;
        source_ = disk_ + "/source";
        destination_ = disk_ + "/destination";
    }
    ~CopyOfARealFile() override {
        EXPECT_EQ(wire::open_descriptors(), descriptors_);
        EXPECT_EQ(remove_file(disk_.c_str()), 0);
    }

    int copy() const { return copy_file(source_.c_str(), destination_.c_str(), nullptr, -1, 0); }

    // Whether the disk's direct I/O takes any number of bytes; most take whole sectors only.
    bool takes_odd_lengths() const {
        const std::string path = disk_ + "/probe";
        const int file = vfs_Open(nullptr, path.c_str(), 0x10241);
        EXPECT_GE(file, 0) << strerror(errno);
        void *page = nullptr;
        EXPECT_EQ(posix_memalign(&page, 4096, 4096), 0);
        memset(page, 'p', 4096);
        const bool takes = write(file, page, 100) == 100;
        free(page);
        vfs_Close(file);
        return takes;
    }

    std::string disk_;
    std::string source_;
    std::string destination_;
    const size_t descriptors_ = wire::open_descriptors();
};

// Sparse, in memory: the zeros between are never anywhere.
TEST_F(CopyOfARealFile, Above4GibIsReadWhole) {
    constexpr int64_t SIZE = (int64_t{4} << 30) + 3 * BLOCK + 7;
    source_ = "/tmp/source";
    place::write_file(source_, "head");
    ASSERT_EQ(truncate(source_.c_str(), SIZE - 4), 0);
    const int file = open(source_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_EQ(write(file, "tail", 4), 4);
    close(file);
    int64_t written = 0;
    std::string head;
    std::string tail;
    moments.instead_of_writing = [&](const char *bytes, int length) {
        head = written == 0 ? std::string(bytes, 4) : head;
        tail.assign(bytes + length - 4, 4);
        written += length;
    };
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(written, SIZE);
    EXPECT_EQ(head, "head");
    EXPECT_EQ(tail, "tail");
}

TEST_F(CopyOfARealFile, ThatGrowsHasWhatWasThereAtTheStart) {
    const std::string content = numbered(2 * BLOCK + 100);
    place::write_file(source_, content);
    moments.after_examining = [&] { place::write_file(source_, content + numbered(BLOCK)); };
    EXPECT_EQ(copy(), 0);
    EXPECT_TRUE(place::read_file(destination_) == content);
}

TEST_F(CopyOfARealFile, ThatIsCutAtABlockHasWhatIsLeft) {
    const std::string content = numbered(3 * BLOCK + 100);
    place::write_file(source_, content);
    moments.after_examining = [&] { EXPECT_EQ(truncate(source_.c_str(), BLOCK), 0); };
    EXPECT_EQ(copy(), 0);
    EXPECT_TRUE(place::read_file(destination_) == content.substr(0, BLOCK));
}

// Past the cache a disk takes whole sectors, and this rest is no tail that was expected.
TEST_F(CopyOfARealFile, ThatIsCutElsewhereFailsOnADiskThatTakesWholeSectors) {
    const std::string content = numbered(3 * BLOCK + 100);
    place::write_file(source_, content);
    const bool takes_all = takes_odd_lengths();
    moments.after_examining = [&] { EXPECT_EQ(truncate(source_.c_str(), BLOCK + 1000), 0); };
    EXPECT_EQ(copy(), takes_all ? 0 : -3);
    const std::string part = place::read_file(destination_);
    EXPECT_TRUE(part == content.substr(0, static_cast<size_t>(takes_all ? BLOCK + 1000 : BLOCK)));
}

TEST_F(CopyOfARealFile, ThatIsCutElsewhereHasWhatIsLeftInMemory) {
    const std::string content = numbered(3 * BLOCK + 100);
    source_ = "/tmp/source";
    destination_ = "/tmp/destination";
    place::write_file(source_, content);
    moments.after_examining = [&] { EXPECT_EQ(truncate(source_.c_str(), BLOCK + 1000), 0); };
    EXPECT_EQ(copy(), 0);
    EXPECT_TRUE(place::read_file(destination_) == content.substr(0, BLOCK + 1000));
}

// Whoever removed it wanted it gone: the copy goes on into the open file, and brings nothing back.
TEST_F(CopyOfARealFile, WhoseDestinationVanishesSucceedsWithoutOne) {
    place::write_file(source_, "");
    ASSERT_EQ(truncate(source_.c_str(), MARK + BLOCK + 1), 0);
    int syncs = 0;
    moments.after_syncing = [&] {
        if (++syncs == 1) {  // at the 10 MiB mark
            EXPECT_EQ(unlink(destination_.c_str()), 0);
        }
    };
    EXPECT_EQ(copy(), 0);
    EXPECT_EQ(syncs, 2);
    EXPECT_FALSE(place::exists(destination_));
}

}  // namespace

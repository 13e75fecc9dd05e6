// The stand-in for the file layer, and the real copy over it: real files, on memory and on a disk.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <velkor/files.h>
#include <velkor/firmware.h>

#include <string>
#include <vector>

#include "support/place.h"
#include "support/wire.h"

namespace {

constexpr int64_t BLOCK = 0x80000;
constexpr int64_t MARK = 0xA00000;

// A directory on a file system with direct I/O, as /tmp of the sandbox may have none.
class DiskDirectory {
public:
    DiskDirectory() {
        char name[] = "/var/tmp/velkorXXXXXX";
        EXPECT_NE(mkdtemp(name), nullptr);
        path_ = name;
    }
    ~DiskDirectory() { EXPECT_EQ(remove_file(path_.c_str()), 0); }
    DiskDirectory(const DiskDirectory &) = delete;
    DiskDirectory &operator=(const DiskDirectory &) = delete;

    std::string file(const char *name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::string pattern(int64_t size) {
    std::string text(static_cast<size_t>(size), '\0');
    uint32_t state = 1;
    for (char &byte : text) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return text;
}

unsigned mode_of(const std::string &path) {
    struct stat status;
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 07777U;
}

int copy(const std::string &from, const std::string &to, int size = -1) {
    return copy_file(from.c_str(), to.c_str(), nullptr, size, 0);
}

// ---- The layer ----

TEST(HostFileLayer, TellsSizesAbove4Gib) {
    place::write_file("/tmp/large", "");
    ASSERT_EQ(truncate("/tmp/large", (off_t{5} << 30) + 3), 0);
    alignas(8) char record[160] = {};
    EXPECT_EQ(vfs_Stat("/tmp/large", record), 0);
    int64_t size = 0;
    memcpy(&size, record + 48, sizeof size);
    EXPECT_EQ(size, (int64_t{5} << 30) + 3);
    EXPECT_EQ(rec_Stat("/tmp/large", record), 0);
    EXPECT_EQ(vfs_Stat("/tmp/none", record), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(HostFileLayer, TurnsItsFlagsIntoTheKernels) {
    const DiskDirectory disk;
    const std::string path = disk.file("file");
    place::write_file(path, "old");
    const int writing = vfs_Open(nullptr, path.c_str(), 0x10241);
    ASSERT_GE(writing, 0) << strerror(errno);
    EXPECT_EQ(fcntl(writing, F_GETFL) & (O_ACCMODE | O_DIRECT), O_WRONLY | O_DIRECT);
    EXPECT_NE(fcntl(writing, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(place::read_file(path), "");
    EXPECT_EQ(vfs_fcntl(writing, 4, 1), 0);
    EXPECT_EQ(fcntl(writing, F_GETFL) & O_DIRECT, 0);
    EXPECT_EQ(vfs_fcntl(writing, 4, 0x10000), 0);
    EXPECT_EQ(fcntl(writing, F_GETFL) & O_DIRECT, O_DIRECT);
    EXPECT_EQ(vfs_fcntl(writing, 3, 0), -1);
    EXPECT_EQ(vfs_Write(writing, "x", -1), -1);
    EXPECT_EQ(vfs_fsync(writing), 0);
    EXPECT_EQ(vfs_Close(writing), 0);
    const int reading = vfs_Open(nullptr, path.c_str(), 0);
    EXPECT_EQ(fcntl(reading, F_GETFL) & (O_ACCMODE | O_DIRECT), O_RDONLY);
    char byte = 0;
    EXPECT_EQ(vfs_Read(reading, &byte, -1), -1);
    EXPECT_EQ(vfs_Read(reading, &byte, 1), 0);
    EXPECT_EQ(vfs_Close(reading), 0);
    EXPECT_EQ(vfs_Open(nullptr, disk.file("none").c_str(), 1), -1);
    EXPECT_EQ(vfs_Unlink(path.c_str()), 0);
    EXPECT_EQ(vfs_Unlink(path.c_str()), -1);
}

// ---- The copy ----

TEST(HostCopy, IsIdenticalAroundEveryMark) {
    const DiskDirectory disk;
    for (const int64_t size :
         {int64_t{0}, int64_t{1}, BLOCK - 1, BLOCK, BLOCK + 1, 2 * BLOCK + 1, MARK - 1, MARK, MARK + 1}) {
        const std::string content = pattern(size);
        for (const std::string &directory : {disk.file(""), std::string("/tmp/")}) {
            place::write_file(directory + "source", content);
            EXPECT_EQ(copy(directory + "source", directory + "destination"), 0);
            EXPECT_TRUE(place::read_file(directory + "destination") == content) << directory << " " << size;
            EXPECT_EQ(mode_of(directory + "destination"), 0777U);
        }
    }
    place::write_file("/tmp/destination", pattern(100));
    EXPECT_EQ(copy("/tmp/source", "/tmp/destination", 10), 0);
    EXPECT_EQ(place::read_file("/tmp/destination"), place::read_file("/tmp/source").substr(0, 10));
    EXPECT_EQ(copy("/tmp/source", "/tmp/destination", 0), 0);
    EXPECT_EQ(place::read_file("/tmp/destination"), "");
}

TEST(HostCopy, FailsOnAFullDiskAndKeepsWhatIsOnIt) {
    ASSERT_EQ(mkdir("/tmp/small", 0755), 0);
    ASSERT_EQ(mount("velkor", "/tmp/small", "tmpfs", 0, "size=1m"), 0);
    const std::string content = pattern(int64_t{2} << 20);
    place::write_file("/tmp/source", content);
    const size_t before = wire::open_descriptors();
    EXPECT_EQ(copy("/tmp/source", "/tmp/small/destination"), -3);
    EXPECT_EQ(wire::open_descriptors(), before);
    const std::string part = place::read_file("/tmp/small/destination");
    EXPECT_EQ(part.size(), size_t{1024} * 1024);
    EXPECT_TRUE(content.starts_with(part));
    EXPECT_NE(mode_of("/tmp/small/destination"), 0777U);
}

TEST(HostCopy, ClosesEverythingWhateverHappens) {
    place::write_file("/tmp/source", "text");
    const size_t before = wire::open_descriptors();
    EXPECT_EQ(copy("/tmp/none", "/tmp/destination"), -8);
    EXPECT_FALSE(place::exists("/tmp/destination"));
    EXPECT_EQ(copy("/tmp/source", "/tmp"), -2);
    EXPECT_EQ(copy("/tmp/source", "/tmp/none/destination"), -2);
    EXPECT_EQ(copy("/tmp/source", "/tmp/destination"), 0);
    ASSERT_EQ(mkdir("/tmp/directory", 0755), 0);
    EXPECT_EQ(copy("/tmp/directory", "/tmp/destination", 10), -4);  // opens, and cannot be read
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un address = {AF_UNIX, "/tmp/socket"};
    ASSERT_EQ(bind(listener, reinterpret_cast<struct sockaddr *>(&address), sizeof address), 0);
    close(listener);
    EXPECT_EQ(copy("/tmp/socket", "/tmp/destination"), -1);  // is there, and cannot be opened
    EXPECT_EQ(wire::open_descriptors(), before);
}

TEST(HostCopy, TakesWhatThereIsOfASourceThatIsShorterThanAsked) {
    place::write_file("/tmp/source", "text");
    EXPECT_EQ(copy("/tmp/source", "/tmp/destination", 100), 0);
    EXPECT_EQ(place::read_file("/tmp/destination"), "text");
}

TEST(HostCopy, CancelsBeforeTheFirstBlock) {
    place::write_file("/tmp/source", "text");
    SetCopyCtrlStatus(1);
    EXPECT_EQ(copy_file("/tmp/source", "/tmp/destination", nullptr, -1, 1), 0);
    EXPECT_FALSE(place::exists("/tmp/destination"));
    EXPECT_EQ(GetCopyCtrlStatus(), 0);
}

}  // namespace

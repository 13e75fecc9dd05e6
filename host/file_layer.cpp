// The firmware's file layer over POSIX. Its numbers are the layer's own; here they become the local kernel's.
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <velkor/firmware.h>

namespace {

constexpr int WRITE_ONLY = 0x1;
constexpr int READ_AND_WRITE = 0x2;
constexpr int CREATE = 0x40;
constexpr int EMPTY = 0x200;
constexpr int DIRECT = 0x10000;
constexpr int SET_STATUS_FLAGS = 4;

constexpr size_t FILE_SIZE_AT = 48;

int access_mode(int flags) {
    if ((flags & READ_AND_WRITE) != 0) {
        return O_RDWR;
    }
    return (flags & WRITE_ONLY) != 0 ? O_WRONLY : O_RDONLY;
}

int local_flags(int flags) {
    return access_mode(flags) | ((flags & CREATE) != 0 ? O_CREAT : 0) | ((flags & EMPTY) != 0 ? O_TRUNC : 0) |
           ((flags & DIRECT) != 0 ? O_DIRECT : 0) | O_CLOEXEC;
}

}  // namespace

int vfs_Stat(const char *path, void *record) {
    struct stat status;
    if (stat(path, &status) != 0) {
        return -1;
    }
    const int64_t size = status.st_size;
    memcpy(static_cast<char *>(record) + FILE_SIZE_AT, &size, sizeof size);
    return 0;
}

// A bare disk, which is what a record is for, is not to be had here: the path is opened as any other. A file system
// without direct I/O refuses it.
int vfs_Open([[maybe_unused]] void *record, const char *path, int flags) {
    constexpr mode_t ANYBODY = 0666;
    return open(path, local_flags(flags), ANYBODY);
}

int vfs_Read(int fd, void *buffer, int length) {
    if (length < 0) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(read(fd, buffer, static_cast<size_t>(length)));
}

int vfs_Write(int fd, const void *buffer, int length) {
    if (length < 0) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(write(fd, buffer, static_cast<size_t>(length)));
}

int vfs_fcntl(int fd, int command, int value) {
    if (command != SET_STATUS_FLAGS) {
        errno = EINVAL;
        return -1;
    }
    return fcntl(fd, F_SETFL, (value & DIRECT) != 0 ? O_DIRECT : 0);
}

int vfs_fsync(int fd) { return fsync(fd); }

int vfs_Close(int fd) { return close(fd); }

int vfs_Unlink(const char *path) { return unlink(path); }

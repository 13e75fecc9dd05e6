// Directories: removed, measured, made and looked into.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <velkor/files.h>
#include <velkor/firmware.h>

#include "support/log.h"
#include "support/owners.h"

namespace {

constexpr size_t LONGEST = VELKOR_PATH_LENGTH;

// Not opendir(), which on small C libraries marks the descriptor to be closed on exec a moment after it was made.
DIR *open_directory(int parent, const char *name, int flags) {
    velkor::OwnedDescriptor descriptor(openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags));
    DIR *const stream = descriptor ? fdopendir(descriptor.get()) : nullptr;
    if (stream != nullptr) {
        descriptor.release();
    }
    return stream;
}

class Directory {
public:
    explicit Directory(const char *path, int parent = AT_FDCWD, int flags = 0)
        : stream_(open_directory(parent, path, flags)) {}
    ~Directory() { close(); }
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;

    explicit operator bool() const { return stream_ != nullptr; }
    int descriptor() const { return dirfd(stream_); }

    // The next entry's name, without "." and ".."; NULL at the end.
    const char *next() {
        const struct dirent *entry;
        do {
            entry = readdir(stream_);
        } while (entry != nullptr && (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0));
        return entry != nullptr ? entry->d_name : nullptr;
    }

    bool close() {
        DIR *const closed = stream_;
        stream_ = nullptr;
        return closed == nullptr || closedir(closed) == 0;
    }

private:
    DIR *stream_;
};

// The paths of a directory's entries, one after the other. A path that does not fit is cut, and must not be used for
// anything but to be shown.
class EntryPath {
public:
    explicit EntryPath(const char *directory) {
        length_ = strnlen(directory, LONGEST + 1);
        const bool has_slash = length_ != 0 && length_ <= LONGEST && directory[length_ - 1] == '/';
        length_ = put(0, directory, length_);
        length_ = has_slash ? length_ : put(length_, "/", 1);
    }

    // Answers whether the path fits.
    bool set_name(const char *name) { return put(length_, name, strlen(name)) <= LONGEST; }

    const char *text() const { return text_; }

private:
    // Answers where the path would end if it fitted.
    size_t put(size_t at, const char *text, size_t length) {
        if (at <= LONGEST) {
            const size_t room = LONGEST - at;
            const size_t fitting = length < room ? length : room;
            memcpy(text_ + at, text, fitting);
            text_[at + fitting] = '\0';
        }
        return at + length;
    }

    size_t length_;
    char text_[LONGEST + 1];
};

}  // namespace

// ---- Removing -----------------------------------------------------------------------------------------------------

namespace {

// An entry whose path does not fit, or for which there is no memory, stays.
bool remove_entry(const char *directory, const char *name) {
    char *const path = concat_subpath_file(directory, name);
    if (path == nullptr) {
        return false;
    }
    const bool is_removed = remove_file(path) == 0;
    vkmem_GlobalFree(path);
    return is_removed;
}

bool remove_entries(Directory &directory, const char *path) {
    bool are_removed = true;
    while (const char *const name = directory.next()) {
        are_removed = remove_entry(path, name) && are_removed;
    }
    return are_removed;
}

bool remove_directory(const char *path) {
    Directory directory(path);
    if (!directory) {
        return false;
    }
    const bool entries_are_removed = remove_entries(directory, path);
    const bool is_closed = directory.close();
    const bool is_removed = rmdir(path) == 0;
    return entries_are_removed && is_closed && is_removed;
}

}  // namespace

int remove_file(const char *path) {
    struct stat status;
    if (path == nullptr) {
        return -1;
    }
    if (lstat(path, &status) != 0) {
        return errno == ENOENT ? 0 : -1;
    }
    const bool is_removed = S_ISDIR(status.st_mode) ? remove_directory(path) : unlink(path) == 0;
    return is_removed ? 0 : -1;
}

// ---- Measuring ----------------------------------------------------------------------------------------------------

namespace {

constexpr int FOLLOW_LINKS = 1;

void report_failed_status(int line, const char *path, int error) {
    VK_LOG_FLAGS(0xFF0000, "[%s.%s.%d]Stat file %s error, errno = %d.", "src/file", "do_du", line, path, error);
}

// A directory in which the walk is, and the one around it.
struct Walked {
    dev_t device;
    ino_t node;
    const Walked *outer;
};

bool is_walked(const struct stat &status, const Walked *walked) {
    for (; walked != nullptr; walked = walked->outer) {
        if (walked->device == status.st_dev && walked->node == status.st_ino) {
            return true;
        }
    }
    return false;
}

// Entries are reached from the directory that they are in, so that the kernel does not walk down their whole path again
// for each; `path` is what the caller would call them.
class DiskUsage {
public:
    explicit DiskUsage(int flags) : follows_links_((flags & FOLLOW_LINKS) != 0) {}

    int64_t blocks(int parent, const char *name, const char *path, const Walked *outer) const {
        struct stat status;
        if (fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            report_failed_status(763, path, errno);
            return 0;
        }
        if (S_ISLNK(status.st_mode) && follows_links_ && fstatat(parent, name, &status, 0) != 0) {
            report_failed_status(776, path, errno);
            return 0;
        }
        // A link to a directory around it would lead round and round.
        if (!S_ISDIR(status.st_mode) || is_walked(status, outer)) {
            return status.st_blocks;
        }
        const Walked here = {status.st_dev, status.st_ino, outer};
        return status.st_blocks + blocks_of_entries(parent, name, path, here);
    }

private:
    int64_t blocks_of_entries(int parent, const char *name, const char *path, const Walked &here) const {
        Directory directory(name, parent, follows_links_ ? 0 : O_NOFOLLOW);
        if (!directory) {
            return 0;
        }
        int64_t sum = 0;
        EntryPath entry(path);
        while (const char *const child = directory.next()) {
            if (entry.set_name(child)) {
                sum += blocks(directory.descriptor(), child, entry.text(), &here);
            } else {
                report_failed_status(763, entry.text(), ENAMETOOLONG);
            }
        }
        return sum;
    }

    bool follows_links_;
};

int64_t unit_of(int flags) {
    if ((flags & 0x200) != 0) {
        return 1024;
    }
    if ((flags & 0x400) != 0) {
        return 0x100000;
    }
    return (flags & 0x800) != 0 ? 0x40000000 : 1;
}

}  // namespace

int du(const char *path, int flags) {
    if (path == nullptr) {
        return 0;
    }
    const int64_t blocks = DiskUsage(flags).blocks(AT_FDCWD, path, path, nullptr);
    const int64_t unit = unit_of(flags);
    return static_cast<int32_t>((blocks * 512 + unit / 2) / unit);
}

// ---- Making and looking -------------------------------------------------------------------------------------------

int make_dir(const char *path) {
    constexpr mode_t WANTED = 0755;
    constexpr mode_t PERMISSIONS = 0777;
    if (path == nullptr || *path == '\0') {
        return -1;
    }
    struct stat status;
    if (stat(path, &status) == 0 && S_ISDIR(status.st_mode)) {
        if ((status.st_mode & PERMISSIONS) == WANTED) {
            return 0;
        }
        VK_LOG_FLAGS(0xFF0000, "%s existed, and it's a direct.Now will chage its mode!\n", path);
    } else if (mkdir(path, PERMISSIONS) != 0) {
        return -1;
    }
    chmod(path, WANTED);
    return 0;
}

int is_dir(const char *path) {
    struct stat status;
    return path != nullptr && lstat(path, &status) == 0 && S_ISDIR(status.st_mode) ? 1 : 0;
}

namespace {

constexpr size_t LONGEST_LOOKED_AT = 256;

// Of a path the first 256 characters are looked at, and an entry's name is put behind the first 255 of its directory's
// path and "/". What is cut so may be the path of something else, even of a directory inside which the walk already is:
// that one would never be left again.
bool is_empty_tree(const char *head, size_t head_length, const char *name, const Walked *outer) {
    char path[LONGEST_LOOKED_AT + 2];
    const size_t name_begin = std::min(head_length, LONGEST);
    const size_t name_length = strnlen(name, LONGEST_LOOKED_AT - name_begin);
    size_t length = name_begin + name_length;
    memcpy(path, head, name_begin);
    memcpy(path + name_begin, name, name_length);
    path[length] = '\0';

    struct stat status;
    if (lstat(path, &status) != 0 || !S_ISDIR(status.st_mode) || is_walked(status, outer)) {
        return false;
    }
    Directory directory(path);
    if (!directory) {
        return false;
    }
    if (path[length - 1] != '/') {
        path[length++] = '/';
    }
    const Walked here = {status.st_dev, status.st_ino, outer};
    while (const char *const entry = directory.next()) {
        if (!is_empty_tree(path, length, entry, &here)) {
            return false;
        }
    }
    return true;
}

}  // namespace

int is_empty_dir(const char *path) { return path != nullptr && is_empty_tree("", 0, path, nullptr) ? 1 : 0; }

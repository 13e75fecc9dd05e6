#include "file_replacement.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "descriptor.h"
#include "exit_status.h"
#include "interruption.h"
#include "temporary_file.h"

namespace tool {

namespace {

// Nobody may lose the right to read or write the file by its change. Whose a new file is depends on its directory too.
void look_like(const struct stat &file, const TemporaryFile &temporary) {
    struct stat made = {};
    if (fstat(temporary.descriptor(), &made) != 0) {
        fail_call("look at the new file");
    }
    if ((made.st_uid != file.st_uid || made.st_gid != file.st_gid) &&
        fchown(temporary.descriptor(), file.st_uid, file.st_gid) != 0) {
        fail_call("give the new file to the owner of the old one");
    }
    temporary.set_mode(file.st_mode);
}

struct stat look_at(const std::string &path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        fail_call("open " + path);
    }
    return status;
}

std::string without_links(const std::string &path) {
    const std::unique_ptr<char, decltype(&free)> target(realpath(path.c_str(), nullptr), &free);
    if (target == nullptr) {
        fail_call("open " + path);
    }
    return target.get();
}

bool is_same(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_size == other.st_size &&
           one.st_mtim.tv_sec == other.st_mtim.tv_sec && one.st_mtim.tv_nsec == other.st_mtim.tv_nsec;
}

// The new name is on the disk when the directory is. Some file systems cannot tell; the file itself is safe then.
void sync_directory_of(const std::string &path) {
    const std::string directory = std::filesystem::path(path).parent_path();
    const Descriptor descriptor(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (descriptor) {
        fsync(descriptor.get());
    }
}

}  // namespace

FileReplacement::FileReplacement(const std::string &path) : path_(without_links(path)), seen_(look_at(path_)) {
    if (!S_ISREG(seen_.st_mode)) {
        throw Failure(NEGATIVE, path + " is no regular file");
    }
    if (access(path_.c_str(), W_OK) != 0) {
        fail_call("write " + path);
    }
}

void FileReplacement::replace_by(std::string_view content) const {
    const Interruption held;
    TemporaryFile temporary(path_);
    look_like(seen_, temporary);
    temporary.write(content);
    if (!is_same(look_at(path_), seen_)) {
        throw Failure(NEGATIVE, path_ + " changed meanwhile: nothing written");
    }
    temporary.take_name(path_);
    sync_directory_of(path_);
}

}  // namespace tool

#include "temporary_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "exit_status.h"

namespace tool {

TemporaryFile::TemporaryFile(const std::string &beside)
    : path_(beside + ".XXXXXX"), descriptor_(mkostemp(path_.data(), O_CLOEXEC)) {
    if (!descriptor_) {
        fail_call("create a file in " + std::filesystem::path(beside).parent_path().string());
    }
}

TemporaryFile::~TemporaryFile() {
    if (!is_kept_) {
        unlink(path_.c_str());
    }
}

void TemporaryFile::set_mode(mode_t mode) const {
    if (fchmod(descriptor_.get(), mode & 07777) != 0) {
        fail_call("set the mode of " + path_);
    }
}

void TemporaryFile::write(std::string_view content) const {
    while (!content.empty()) {
        const ssize_t written = ::write(descriptor_.get(), content.data(), content.size());
        if (written < 0 && errno != EINTR) {
            fail_call("write " + path_);
        }
        content.remove_prefix(static_cast<size_t>(std::max<ssize_t>(written, 0)));
    }
    if (fsync(descriptor_.get()) != 0) {
        fail_call("write " + path_);
    }
}

void TemporaryFile::take_name(const std::string &name) {
    if (rename(path_.c_str(), name.c_str()) != 0) {
        fail_call("rename " + path_ + " to " + name);
    }
    is_kept_ = true;
}

}  // namespace tool

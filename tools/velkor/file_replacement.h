// A file's new content, in one step: whoever opens the file finds the old one or the new one, whole.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace tool {

class FileReplacement {
public:
    // Looks at the file before it is read; follows links, so that the link stays one. Throws a Failure when the file
    // cannot be opened, may not be written, or is no regular file.
    explicit FileReplacement(const std::string &path);

    // Writes a temporary file beside it, with the file's mode and owner, brings it to the disk, and gives it the
    // file's name. Throws a Failure, the file as it was, when any of that fails, and when the file is no longer the one
    // that was looked at. SIGINT, SIGTERM and SIGHUP wait until it is done.
    void replace_by(std::string_view content) const;

private:
    std::string path_;
    struct stat seen_;
};

}  // namespace tool

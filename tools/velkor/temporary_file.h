// A new file beside an old one, until it gets the old one's name.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "descriptor.h"

namespace tool {

// Gone again when it goes out of scope, unless it is kept or got a name. All calls throw a Failure when they fail.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string &beside);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    int descriptor() const { return descriptor_.get(); }

    // The last of what makes it look like the old file: a change of the owner takes set-user-ID bits away.
    void set_mode(mode_t mode) const;

    // Writes the content and brings it to the disk.
    void write(std::string_view content) const;

    void keep() { is_kept_ = true; }
    void take_name(const std::string &name);

private:
    std::string path_;
    Descriptor descriptor_;
    bool is_kept_ = false;
};

}  // namespace tool

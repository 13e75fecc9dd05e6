// The commands of the family `debug` that have a file of their own, and the files that a process looks at.
#pragma once

#include <string>

#include "command_line.h"

namespace tool::debug {

void add_follow(CLI::App &debug, Run &chosen);

// The switch of the processes that run in a directory.
class SwitchDirectory {
public:
    explicit SwitchDirectory(const std::string &working) : path_(working + "/rt_debug") {}

    const std::string &path() const { return path_; }
    std::string mode_file() const { return path_ + "/mode.txt"; }
    bool is_there() const;
    std::string mode() const;  // empty without a file

    // Makes the directory when it is missing. Whoever read the file before reads it again: it gets another time than it
    // had. Throws a Failure.
    void set_mode(const std::string &text) const;
    void clear_mode() const;
    void remove() const;

private:
    std::string path_;
};

}  // namespace tool::debug

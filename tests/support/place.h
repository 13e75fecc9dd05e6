// The recorder's place from inside: files at its paths, and other content behind /proc and /dev.
#pragma once

#include <string>

namespace place {

void write_file(const std::string &path, const std::string &content);
std::string read_file(const std::string &path);
bool exists(const std::string &path);

// While it lives, `path` (of the kernel, of a device, of anything that exists) reads as `content`.
class BoundContent {
public:
    BoundContent(const std::string &path, const std::string &content);
    ~BoundContent();
    BoundContent(const BoundContent &) = delete;
    BoundContent &operator=(const BoundContent &) = delete;

    // The file behind the path: write to it and the path reads differently.
    const std::string &file() const { return file_; }

private:
    std::string path_;
    std::string file_;
};

// While it lives, `path` is the device or file `other`.
class BoundPath {
public:
    BoundPath(std::string path, const std::string &other);
    ~BoundPath();
    BoundPath(const BoundPath &) = delete;
    BoundPath &operator=(const BoundPath &) = delete;

private:
    std::string path_;
};

// A pseudo-terminal of which a test holds the far end.
class Terminal {
public:
    Terminal();
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    const std::string &path() const { return path_; }
    int descriptor() const { return master_; }

    // Everything written to the terminal until a text ends with `end`; fails the test after ten seconds.
    std::string read_until(const std::string &end);

private:
    int master_;
    std::string path_;
};

// Runs a shell command; answers what it printed. The test fails when the command does.
std::string output_of(const std::string &command);

// Waits until `condition` holds, at most ten seconds (more where the suite is emulated); answers whether it did.
template <typename Condition>
bool eventually(Condition condition);

// Says once a millisecond for the time of `eventually` whether to go on.
class Patience {
public:
    Patience();
    bool lasts() const;

private:
    double end_;
};

template <typename Condition>
bool eventually(Condition condition) {
    const Patience patience;
    while (!condition()) {
        if (!patience.lasts()) {
            return false;
        }
    }
    return true;
}

}  // namespace place

#include "removal_guard.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>

#include "exit_status.h"

namespace tool {

namespace {

bool is_same_file(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// ---- As it is written ----
//
// Text alone decides here: what a kernel, an emulator or a file system tells about "/" and "/tmp/.." may differ.

std::string last_component(const std::string &path) {
    const size_t end = path.find_last_not_of('/');
    if (end == std::string::npos) {
        return "";  // slashes only
    }
    const size_t slash = path.rfind('/', end);
    const size_t begin = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(begin, end - begin + 1);
}

void refuse_by_text(const std::string &path) {
    if (path.empty()) {
        throw Failure(BAD_USE, "an empty path is nothing to remove");
    }
    const std::string last = last_component(path);
    if (last.empty()) {
        throw Failure(BAD_USE, path + " is the root of everything: not removed");
    }
    if (last == "." || last == "..") {
        throw Failure(BAD_USE, path + " ends in \"" + last + "\": not removed");
    }
}

// ---- As it resolves ----

// Empty when it is not there.
std::string real_path(const std::string &path) {
    const std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), &free);
    return real != nullptr ? real.get() : "";
}

// Links in front of the last component are followed. The last one is itself what is removed, unless a slash follows it.
std::string resolved(const std::string &path) {
    if (path.ends_with('/')) {
        return real_path(path);
    }
    const std::string last = last_component(path);
    const std::string parent = path.substr(0, path.size() - last.size());
    const std::string directory = real_path(parent.empty() ? "." : parent);
    return directory.empty() || directory == "/" ? directory + last : directory + "/" + last;
}

bool is_at_or_below(const std::string &path, const std::string &directory) {
    return path.starts_with(directory) && (path.size() == directory.size() || path[directory.size()] == '/');
}

// By identity: up from the working directory until a directory is its own parent.
bool holds_working_directory(const struct stat &file) {
    struct stat here = {};
    std::string path = ".";
    while (stat(path.c_str(), &here) == 0) {
        if (is_same_file(file, here)) {
            return true;
        }
        struct stat above = {};
        path += "/..";
        if (stat(path.c_str(), &above) != 0 || is_same_file(above, here)) {
            break;
        }
    }
    return false;
}

void refuse_by_identity(const std::string &path, const std::string &real) {
    struct stat file = {};
    if (lstat(path.c_str(), &file) != 0 || !S_ISDIR(file.st_mode)) {
        return;
    }
    struct stat root = {};
    if (stat("/", &root) == 0 && is_same_file(file, root)) {
        throw Failure(BAD_USE, path + " is the root of everything: not removed");
    }
    if (holds_working_directory(file) || is_at_or_below(real_path("."), real)) {
        throw Failure(BAD_USE, path + " holds the working directory: not removed");
    }
}

// ---- What is mounted ----

// The kernel writes blanks, tabs, line ends and backslashes in names as "\040" (proc(5), mountinfo).
std::string unescaped(const std::string &field) {
    std::string text;
    for (size_t at = 0; at < field.size(); ++at) {
        if (field[at] == '\\' && at + 3 < field.size()) {
            text += static_cast<char>(std::stoi(field.substr(at + 1, 3), nullptr, 8));
            at += 3;
        } else {
            text += field[at];
        }
    }
    return text;
}

std::vector<std::string> mount_points() {
    std::vector<std::string> points;
    std::ifstream file("/proc/self/mountinfo");
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        std::string point;
        for (int field = 1; field <= 5; ++field) {
            fields >> point;
        }
        points.push_back(unescaped(point));
    }
    return points;
}

void refuse_mounts(const std::string &path, const std::string &real, const std::vector<std::string> &points) {
    const auto mounted = std::ranges::find_if(points, [&](const auto &point) { return is_at_or_below(point, real); });
    if (mounted != points.end()) {
        throw Failure(BAD_USE, path + ": something is mounted at " + *mounted + ": not removed without --mounts");
    }
}

}  // namespace

void refuse_what_nobody_means(const std::vector<std::string> &paths, Mounts mounts) {
    const std::vector<std::string> points = mounts == Mounts::refused ? mount_points() : std::vector<std::string>();
    for (const std::string &path : paths) {
        refuse_by_text(path);
        const std::string real = resolved(path);
        refuse_by_identity(path, real);
        refuse_mounts(path, real, points);
    }
}

}  // namespace tool

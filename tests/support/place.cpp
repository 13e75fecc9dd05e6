#include "support/place.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <utility>

namespace place {

namespace {

// Long enough for a machine that stalls for many seconds, and less than a test may take.
constexpr double PATIENCE_SECONDS = 25;

double seconds_now() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void bind_over(const std::string &path, const std::string &source) {
    if (mount(source.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        ADD_FAILURE() << "cannot bind " << source << " over " << path << ": " << strerror(errno);
    }
}

}  // namespace

void write_file(const std::string &path, const std::string &content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    EXPECT_TRUE(file.good()) << "cannot write " << path;
}

std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << "cannot read " << path;
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

bool exists(const std::string &path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

BoundContent::BoundContent(const std::string &path, const std::string &content) : path_(path) {
    char name[] = "/tmp/boundXXXXXX";
    const int descriptor = mkstemp(name);
    EXPECT_GE(descriptor, 0);
    close(descriptor);
    file_ = name;
    chmod(name, 0666);
    write_file(file_, content);
    bind_over(path_, file_);
}

BoundContent::~BoundContent() {
    umount2(path_.c_str(), MNT_DETACH);
    unlink(file_.c_str());
}

BoundPath::BoundPath(std::string path, const std::string &other) : path_(std::move(path)) { bind_over(path_, other); }

BoundPath::~BoundPath() { umount2(path_.c_str(), MNT_DETACH); }

Terminal::Terminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    EXPECT_GE(master_, 0);
    EXPECT_EQ(grantpt(master_), 0);
    EXPECT_EQ(unlockpt(master_), 0);
    char name[64] = "";
    EXPECT_EQ(ptsname_r(master_, name, sizeof name), 0);
    path_ = name;
    // What is written is what is read: no CR before LF.
    struct termios settings;
    EXPECT_EQ(tcgetattr(master_, &settings), 0);
    cfmakeraw(&settings);
    EXPECT_EQ(tcsetattr(master_, TCSANOW, &settings), 0);
}

Terminal::~Terminal() { close(master_); }

std::string Terminal::read_until(const std::string &end) {
    const Patience patience;
    std::string text;
    while (!text.ends_with(end)) {
        struct pollfd waiting = {master_, POLLIN, 0};
        char piece[4096];
        if (poll(&waiting, 1, 10) > 0) {
            const ssize_t length = read(master_, piece, sizeof piece);
            if (length > 0) {
                text.append(piece, static_cast<size_t>(length));
                continue;
            }
        }
        if (!patience.lasts()) {
            ADD_FAILURE() << "the terminal never showed \"" << end << "\", only: " << text;
            break;
        }
    }
    return text;
}

std::string output_of(const std::string &command) {
    std::string output;
    FILE *const stream = popen(command.c_str(), "r");  // NOLINT(cert-env33-c): a test's own command
    EXPECT_NE(stream, nullptr) << command;
    char piece[4096];
    for (size_t length; (length = fread(piece, 1, sizeof piece, stream)) > 0;) {
        output.append(piece, length);
    }
    EXPECT_EQ(pclose(stream), 0) << command << "\n" << output;
    return output;
}

Patience::Patience() : end_(seconds_now() + PATIENCE_SECONDS) {}

bool Patience::lasts() const {
    usleep(1000);
    return seconds_now() < end_;
}

}  // namespace place

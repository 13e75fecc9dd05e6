#include "log_terminal.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>

#include "exit_status.h"
#include "pseudo_terminal.h"

namespace tool::log {

namespace fs = std::filesystem;

// ---- What is there ----

const char *TerminalView::kind_name() const {
    switch (kind) {
        case Kind::missing:
            return "missing";
        case Kind::dangling_link:
            return "dangling link";
        case Kind::terminal:
            return "terminal";
        case Kind::file:
            return "file";
        case Kind::other:
            break;
    }
    return "other";
}

std::string TerminalView::description() const {
    return target.empty() ? kind_name() : std::string(kind_name()) + ", link to " + target;
}

namespace {

std::string target_of_link(const char *path) {
    std::array<char, PATH_MAX> target;
    const ssize_t length = readlink(path, target.data(), target.size());
    return length > 0 ? std::string(target.data(), static_cast<size_t>(length)) : std::string();
}

TerminalView::Kind kind_of(const Descriptor &opened, const struct stat &status) {
    if (S_ISREG(status.st_mode)) {
        return TerminalView::Kind::file;
    }
    const bool is_terminal = opened && isatty(opened.get()) == 1;
    return is_terminal ? TerminalView::Kind::terminal : TerminalView::Kind::other;
}

}  // namespace

TerminalView look_at_terminal() {
    TerminalView view;
    view.target = target_of_link(TERMINAL);
    struct stat status = {};
    if (stat(TERMINAL, &status) != 0) {
        view.error = errno;
        view.kind = view.target.empty() ? TerminalView::Kind::missing : TerminalView::Kind::dangling_link;
        return view;
    }
    const Descriptor opened(open(TERMINAL, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    view.error = opened ? 0 : errno;
    view.kind = kind_of(opened, status);
    return view;
}

// ---- Who has it open ----

namespace {

bool is_same(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool holds(const fs::path &process, const struct stat &wanted) {
    std::error_code denied;
    for (auto entry = fs::directory_iterator(process / "fd", denied); !denied && entry != fs::directory_iterator();
         entry.increment(denied)) {
        struct stat status = {};
        if (stat(entry->path().c_str(), &status) == 0 && is_same(status, wanted)) {
            return true;
        }
    }
    return false;
}

std::string name_of(const fs::path &process) {
    std::ifstream file(process / "comm");
    std::string name;
    std::getline(file, name);
    return name;
}

// 0 for an entry of /proc that is no process.
pid_t process_of(const fs::path &entry) {
    const std::string name = entry.filename();
    pid_t process = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
    return error == std::errc() && end == name.data() + name.size() ? process : 0;
}

}  // namespace

std::vector<Holder> holders_of_terminal() {
    std::vector<Holder> holders;
    struct stat wanted = {};
    if (stat(TERMINAL, &wanted) != 0) {
        return holders;
    }
    std::error_code unreadable;
    for (auto entry = fs::directory_iterator("/proc", unreadable); !unreadable && entry != fs::directory_iterator();
         entry.increment(unreadable)) {
        const pid_t process = process_of(entry->path());
        if (process > 0 && process != getpid() && holds(entry->path(), wanted)) {
            holders.push_back({process, name_of(entry->path())});
        }
    }
    std::ranges::sort(holders, {}, &Holder::process);
    return holders;
}

// ---- One of our own ----

namespace {

void require_free_place(bool replace) {
    struct stat status = {};
    const bool there = stat(TERMINAL, &status) == 0;
    if (!there) {
        return;
    }
    const std::string found = std::string(TERMINAL) + " is there already (" + look_at_terminal().description() + ")";
    if (S_ISDIR(status.st_mode)) {
        throw Failure(BAD_USE, found + ": move it away first");
    }
    if (!replace) {
        throw Failure(BAD_USE, found + ": --replace takes its place");
    }
}

// Made beside and renamed, so that a process that looks finds the old or the new.
void link_terminal(const std::string &path) {
    const std::string beside = std::string(TERMINAL) + "." + std::to_string(getpid());
    unlink(beside.c_str());
    if (symlink(path.c_str(), beside.c_str()) != 0) {
        fail_call("create " + beside);
    }
    if (rename(beside.c_str(), TERMINAL) != 0) {
        const int code = errno;
        unlink(beside.c_str());
        fail_call(std::string("link ") + TERMINAL, code);
    }
}

// In the keeper. It ends by SIGHUP when the last descriptor of the master side is closed, whatever way that happens.
[[noreturn]] void keep(const std::string &path, int ready) {
    signal(SIGHUP, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    prctl(PR_SET_NAME, "velkor-terminal");
    setsid();
    const int terminal = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (terminal < 0 || ioctl(terminal, TIOCSCTTY, 0) != 0 || write(ready, "+", 1) != 1) {
        _exit(1);
    }
    for (;;) {
        pause();
    }
}

}  // namespace

OwnTerminal::OwnTerminal(bool replace) {
    require_free_place(replace);
    master_ = open_pseudo_terminal(path_);
    start_keeper();
    link_terminal(path_);
}

OwnTerminal::~OwnTerminal() {
    if (target_of_link(TERMINAL) == path_) {
        unlink(TERMINAL);
    }
    master_.reset();
    kill(keeper_, SIGHUP);  // as the kernel did; so that nothing can make this wait
    waitpid(keeper_, nullptr, 0);
}

// A daemon without a terminal of its own would be given the first one that it opens as its controlling terminal, and
// would be hung up, which ends it, when we stop following. So the terminal belongs to a child process from the start.
// That child holds it open as well: without anybody there reading would fail.
void OwnTerminal::start_keeper() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        fail_call("make a pipe");
    }
    const Descriptor ready(ends[0]);
    Descriptor report(ends[1]);
    keeper_ = fork();
    if (keeper_ < 0) {
        fail_call("start a process");
    }
    if (keeper_ == 0) {
        master_.reset();
        keep(path_, report.get());
    }
    report.reset();
    char answer = '-';
    if (read(ready.get(), &answer, 1) != 1) {
        waitpid(keeper_, nullptr, 0);
        throw Failure(NEGATIVE, "cannot make " + path_ + " a controlling terminal");
    }
}

}  // namespace tool::log

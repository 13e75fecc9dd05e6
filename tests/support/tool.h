// The command-line tool as a person or a script runs it: a process of its own, through the shell.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "support/place.h"

namespace tool {

// What runs the tool: nothing in front of it, or an emulator.
inline const std::string COMMAND = VELKOR_EMULATOR " " VELKOR_TOOL_COMMAND;

// A tool that runs. Like a daemon it leads a session of its own and has no controlling terminal.
class Running {
public:
    // `arguments` are what a person types behind "velkor", in the shell's language; standard input is a file.
    // `launcher` is what the tool is started by, if by anything.
    explicit Running(const std::string &arguments, const std::string &input = "/dev/null",
                     const std::string &launcher = "") {
        char name[] = "/tmp/toolXXXXXX";
        EXPECT_NE(mkdtemp(name), nullptr);
        directory_ = name;
        // The arguments come last, so that they can send the output elsewhere.
        const std::string command = "exec <" + input + " >" + directory_ + "/out 2>" + directory_ + "/err " + launcher +
                                    COMMAND + " " + arguments;
        // All files are there before the process is, so that they can be read at any time.
        place::write_file(directory_ + "/out", "");
        place::write_file(directory_ + "/err", "");
        process_ = fork();
        if (process_ == 0) {
            setsid();
            execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char *>(nullptr));
            _exit(127);
        }
    }

    ~Running() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
    }

    Running(const Running &) = delete;
    Running &operator=(const Running &) = delete;

    pid_t process() const { return process_; }
    std::string out() const { return place::read_file(directory_ + "/out"); }
    std::string err() const { return place::read_file(directory_ + "/err"); }

    void send(int signal) const { kill(process_, signal); }

    // Its exit status; 128 and the number of a signal that ended it. The test fails when it does not end.
    int wait() {
        int status = 0;
        const bool ended = place::eventually([&] { return waitpid(process_, &status, WNOHANG) == process_; });
        if (!ended) {
            ADD_FAILURE() << "the tool runs and runs\n" << out() << err();
            return -1;
        }
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    std::string directory_;
    pid_t process_ = -1;
};

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

// Runs the tool to its end.
inline Outcome run(const std::string &arguments, const std::string &input = "/dev/null") {
    Running running(arguments, input);
    const int status = running.wait();
    return {status, running.out(), running.err()};
}

// A named pipe as the standard input of a tool that is to live for a while.
class Feed {
public:
    explicit Feed(std::string path) : path_(std::move(path)) {
        EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0);
        descriptor_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_GE(descriptor_, 0);
    }

    ~Feed() { end(); }
    Feed(const Feed &) = delete;
    Feed &operator=(const Feed &) = delete;

    const std::string &path() const { return path_; }

    void write(const std::string &text) const {
        EXPECT_EQ(::write(descriptor_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    // The tool finds the end of its input.
    void end() {
        if (descriptor_ >= 0) {
            close(descriptor_);
            descriptor_ = -1;
        }
    }

private:
    std::string path_;
    int descriptor_ = -1;
};

}  // namespace tool

// examples/recorder on a network with a second host, as ./dev demo runs it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <string>

#include "support/place.h"

namespace {

using testing::HasSubstr;
using testing::Not;

const std::string SECOND_HOST = VELKOR_SOURCE_DIR "/examples/recorder/second_host.sh ";
const std::string RECORDER = VELKOR_EMULATOR " " VELKOR_RECORDER_COMMAND " ";

int exit_status_of(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

struct Outcome {
    int status;
    std::string out;
};

Outcome run(const std::string &command) {
    FILE *const stream = popen((command + " 2>&1").c_str(), "r");  // NOLINT(cert-env33-c): a test's own command
    std::string out;
    char piece[4096];
    while (!feof(stream)) {
        out.append(piece, fread(piece, 1, sizeof piece, stream));
    }
    return {exit_status_of(pclose(stream)), out};
}

// With its output to a pipe, to its own end.
Outcome run_recorder(const std::string &arguments) { return run(SECOND_HOST + RECORDER + arguments); }

// Has the recorder meet a fault and cope with it; answers its output.
std::string out_of_fault(const std::string &kind) {
    const Outcome outcome = run_recorder("--seconds 1 --fault " + kind);
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    EXPECT_THAT(outcome.out, HasSubstr("\nok      fault      " + kind + ": "));
    EXPECT_THAT(outcome.out, HasSubstr("\neverything agrees\n"));
    return outcome.out;
}

// ---- With its output to a pipe ----

TEST(Recorder, CountsEverySubsystemUpInPlainLines) {
    const Outcome outcome = run_recorder("--seconds 1");
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    for (const char *const part : {"log", "commands", "memory", "timers", "snapshots", "settings", "archive", "network",
                                   "names", "clock", "load", "messages"}) {
        EXPECT_THAT(outcome.out, HasSubstr(std::string("\nok      ") + part + " "));
    }
    EXPECT_THAT(outcome.out, HasSubstr("\neverything agrees\n"));
    EXPECT_THAT(outcome.out, Not(HasSubstr("\033")));
}

TEST(Recorder, CopesWithAKilledRunnerByABusyFork) {
    const std::string out = out_of_fault("runner");
    EXPECT_THAT(out, HasSubstr("runner: the command is given up, and another runner is forked"));
    EXPECT_THAT(out, HasSubstr("runners died: 1;"));
}

TEST(Recorder, CopesWithAFullDisk) {
    const std::string out = out_of_fault("disk");
    EXPECT_THAT(out, HasSubstr("disk: a copy fails, and the oldest are removed"));
    EXPECT_THAT(out, Not(HasSubstr(" 0 removed for room")));
}

TEST(Recorder, CopesWithAPulledCable) {
    const std::string out = out_of_fault("link");
    EXPECT_THAT(out, HasSubstr("link: the loss of the link is seen"));
    EXPECT_THAT(out, HasSubstr("link: the second host answers again"));
}

TEST(Recorder, CopesWithAHangingNameServer) {
    const std::string out = out_of_fault("resolver");
    EXPECT_THAT(out, HasSubstr("resolver: a lookup is given up in time"));
    EXPECT_THAT(out, Not(HasSubstr(" 0 given up")));
}

TEST(Recorder, CopesWithExhaustedPools) {
    const std::string out = out_of_fault("pool");
    EXPECT_THAT(out, HasSubstr("40 jobs of a crowd done"));
    EXPECT_THAT(out, Not(HasSubstr(" 0 dropped for lack of room")));
}

TEST(Recorder, ShowsAShareOfNothingAsUnknown) {
    const place::BoundContent memory("/proc/meminfo", "MemTotal: 0 kB\nMemFree: 0 kB\n");
    const Outcome outcome = run_recorder("--seconds 1");
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    EXPECT_THAT(outcome.out, HasSubstr(" %, memory unknown, flash "));
}

// ---- What is not so is said ----

// Does something to the recorder's place before or while it works.
Outcome run_disturbed(const std::string &disturbance) {
    return run(SECOND_HOST + "sh -c '" + disturbance + " exec " + RECORDER + "--seconds 1'");
}

TEST(Recorder, FailsWhenTheSecondHostIsAnotherOne) {
    const Outcome outcome = run_disturbed("/dvr/second_host.sh ip link set eth0 address 02:00:00:00:07:09;");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("\nFAILED  network "));
    EXPECT_THAT(outcome.out, HasSubstr("not so: the second host holds its address"));
    EXPECT_THAT(outcome.out, HasSubstr("\nSOMETHING IS NOT AS IT SHOULD BE\n"));
}

TEST(Recorder, FailsWhenACopyIsDamaged) {
    const Outcome outcome = run_disturbed(
        "copy=/tmp/disk0/recording-1002; (until [ \"$(stat -c %s $copy)\" = 6303801 ]; do sleep 0.01; done; "
        "printf damage | dd of=$copy bs=1 seek=1000 conv=notrunc) >/dev/null 2>&1 &");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("\nFAILED  archive "));
    EXPECT_THAT(outcome.out, HasSubstr("identical"));
}

TEST(Recorder, SaysWhatItIsGoodForAndWhatItDoesNotUnderstand) {
    const Outcome help = run(RECORDER + "--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("--fault KIND"));
    for (const char *const bad : {"--seconds", "--seconds 0", "--seconds 1x", "--fault fire", "--fault", "--colour"}) {
        EXPECT_EQ(run(RECORDER + bad).status, 2) << bad;
    }
    const Outcome nowhere = run(RECORDER + "--seconds 1");
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_EQ(nowhere.out, "recorder: there is no place for it here; ./dev demo makes one\n");
}

// ---- On a terminal ----

class OnATerminal {
public:
    explicit OnATerminal(const std::string &arguments) {
        struct winsize size = {24, 80, 0, 0};
        process_ = forkpty(&master_, nullptr, nullptr, &size);
        if (process_ == 0) {
            setenv("TERM", "xterm", 1);
            execl("/bin/sh", "sh", "-c", ("exec " + SECOND_HOST + RECORDER + arguments).c_str(),
                  static_cast<char *>(nullptr));
            _exit(127);
        }
        EXPECT_EQ(tcgetattr(master_, &before_), 0);
    }

    ~OnATerminal() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        close(master_);
    }

    OnATerminal(const OnATerminal &) = delete;
    OnATerminal &operator=(const OnATerminal &) = delete;

    void send(int signal) const {
        ASSERT_GT(process_, 0) << "it has ended already";
        kill(process_, signal);
    }

    void resize(unsigned short columns, unsigned short rows) const {
        const struct winsize size = {rows, columns, 0, 0};
        EXPECT_EQ(ioctl(master_, TIOCSWINSZ, &size), 0);
    }

    // Everything that the terminal has been sent.
    const std::string &seen() {
        struct pollfd waiting = {master_, POLLIN, 0};
        char piece[4096];
        for (ssize_t length; poll(&waiting, 1, 1) > 0 && (length = read(master_, piece, sizeof piece)) > 0;) {
            seen_.append(piece, static_cast<size_t>(length));
        }
        return seen_;
    }

    // Whether a text comes before the recorder has ended; the time limit is the suite's.
    bool shows(const std::string &text) {
        while (seen().find(text) == std::string::npos) {
            if (has_ended()) {
                return seen().find(text) != std::string::npos;
            }
        }
        return true;
    }

    // Its exit status, once it has ended; 128 and the number of a signal that ended it.
    int wait() {
        while (!has_ended()) {
            seen();  // or it waits for its reader
        }
        return exit_status_of(status_);
    }

    bool has_echo() const {
        struct termios now = {};
        return tcgetattr(master_, &now) == 0 && (now.c_lflag & ECHO) != 0;
    }

    void expect_as_it_was() {
        const std::string &all = seen();
        EXPECT_EQ(all.rfind("\033[?1049h"), all.find("\033[?1049h"));
        EXPECT_GT(all.rfind("\033[?1049l"), all.rfind("\033[?1049h")) << "the alternate screen is left";
        EXPECT_GT(all.rfind("\033[?25h"), all.rfind("\033[?25l")) << "the cursor is back";
        struct termios now = {};
        EXPECT_EQ(tcgetattr(master_, &now), 0);
        EXPECT_EQ(now.c_lflag, before_.c_lflag);
    }

private:
    bool has_ended() {
        if (process_ > 0 && waitpid(process_, &status_, WNOHANG) == process_) {
            process_ = -1;
        }
        return process_ < 0;
    }

    pid_t process_ = -1;
    int status_ = -1;
    int master_ = -1;
    struct termios before_ = {};
    std::string seen_;
};

TEST(RecorderOnATerminal, DrawsFramesThatFitAndGivesTheTerminalBack) {
    OnATerminal recorder("--seconds 1");
    ASSERT_TRUE(recorder.shows("\033[24;1H")) << recorder.seen();
    EXPECT_TRUE(recorder.shows("-- messages -"));
    EXPECT_FALSE(recorder.has_echo());
    EXPECT_EQ(recorder.seen().find("\033[25;"), std::string::npos);
    recorder.resize(130, 40);
    EXPECT_TRUE(recorder.shows("\033[40;1H"));
    EXPECT_EQ(recorder.wait(), 0) << recorder.seen();
    recorder.expect_as_it_was();
    EXPECT_THAT(recorder.seen().substr(recorder.seen().rfind("\033[?1049l")), HasSubstr("everything agrees"));
}

TEST(RecorderOnATerminal, EndsInGoodOrderWhenItIsAskedTo) {
    OnATerminal recorder("--seconds 1000");
    ASSERT_TRUE(recorder.shows("-- messages -")) << recorder.seen();
    recorder.send(SIGTERM);
    EXPECT_EQ(recorder.wait(), 128 + SIGTERM);
    recorder.expect_as_it_was();
    EXPECT_THAT(recorder.seen(), HasSubstr("ended by signal 15 before its time"));
}

TEST(RecorderOnATerminal, GivesTheTerminalBackWhenItCrashes) {
    OnATerminal recorder("--seconds 1000");
    ASSERT_TRUE(recorder.shows("-- messages -")) << recorder.seen();
    recorder.send(SIGABRT);
    EXPECT_EQ(recorder.wait(), 128 + SIGABRT);
    recorder.expect_as_it_was();
}

}  // namespace

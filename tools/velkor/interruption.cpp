#include "interruption.h"

#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "exit_status.h"

namespace tool {

namespace {

constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

volatile sig_atomic_t stopped = 0;

extern "C" void note_stop(int /*signal*/) { stopped = 1; }

}  // namespace

Interruption::Interruption() {
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : SIGNALS) {
        sigaddset(&held, signal);
    }
    sigprocmask(SIG_BLOCK, &held, &outside_);

    struct sigaction action = {};
    action.sa_handler = note_stop;  // without SA_RESTART
    sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < std::size(SIGNALS); ++i) {
        sigaction(SIGNALS[i], nullptr, &before_[i]);
        if (before_[i].sa_handler != SIG_IGN) {
            sigaction(SIGNALS[i], &action, nullptr);
        }
    }
}

// The handler is taken away last: a signal that still waits has been asked for what is happening now.
Interruption::~Interruption() {
    sigprocmask(SIG_SETMASK, &outside_, nullptr);
    for (size_t i = 0; i < std::size(SIGNALS); ++i) {
        sigaction(SIGNALS[i], &before_[i], nullptr);
    }
}

bool Interruption::came() { return stopped != 0; }

void Interruption::wait(std::span<struct pollfd> descriptors) const {
    if (ppoll(descriptors.data(), descriptors.size(), nullptr, &outside_) < 0) {
        const int code = errno;
        for (struct pollfd &descriptor : descriptors) {
            descriptor.revents = 0;
        }
        if (code != EINTR) {
            fail_call("wait", code);
        }
    }
}

// In pieces that a pipe with room takes at once, so that nobody gets stuck behind a reader that paused.
bool Interruption::write_all(int descriptor, std::string_view text) const {
    while (!text.empty()) {
        struct pollfd room = {descriptor, POLLOUT, 0};
        wait({&room, 1});
        if (came()) {
            return false;
        }
        if (room.revents == 0) {
            continue;
        }
        const ssize_t written = write(descriptor, text.data(), std::min<size_t>(text.size(), PIPE_BUF));
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno == EPIPE) {
            return false;
        } else if (errno != EINTR && errno != EAGAIN) {
            fail_call("write the output");
        }
    }
    return true;
}

}  // namespace tool

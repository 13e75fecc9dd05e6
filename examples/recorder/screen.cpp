#include "screen.h"

#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <initializer_list>
#include <string_view>

namespace recorder {

namespace {

constexpr std::string_view ENTER = "\033[?1049h\033[?25l\033[2J";
constexpr std::string_view LEAVE = "\033[0m\033[?25h\033[?1049l";

constexpr Size USUAL = {80, 24};

// For the signal handlers: whose terminal it is, how it was, and how it is while it is taken.
volatile sig_atomic_t owner = 0;
struct termios as_found;
struct termios while_taken;

void send(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written <= 0) {
            return;  // nobody looks any more
        }
        text.remove_prefix(static_cast<size_t>(written));
    }
}

void give_back() {
    send(LEAVE);
    tcsetattr(STDOUT_FILENO, TCSANOW, &as_found);
}

void take() {
    tcsetattr(STDOUT_FILENO, TCSANOW, &while_taken);
    send(ENTER);
}

// A forked child has these handlers, too, and no business with the terminal.
bool is_owner() { return owner == getpid(); }

extern "C" void give_back_and_die(int number) {
    if (is_owner()) {
        give_back();
    }
    raise(number);  // the default action is in place again
}

extern "C" void give_back_while_stopped(int /*number*/) {
    if (is_owner()) {
        give_back();
    }
    raise(SIGSTOP);
    if (is_owner()) {
        take();
    }
}

// Each C library has a type of its own for them.
using SignalFlags = decltype(sigaction::sa_flags);

void handle(int number, void (*handler)(int), SignalFlags flags) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
}

bool can_do_more_than_lines() {
    const char *const kind = getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && kind != nullptr && strcmp(kind, "dumb") != 0;
}

bool wants_colour() {
    const char *const refused = getenv("NO_COLOR");
    return refused == nullptr || *refused == '\0';
}

}  // namespace

Screen::Screen() : is_coloured_(wants_colour()) {
    if (!can_do_more_than_lines() || tcgetattr(STDOUT_FILENO, &as_found) != 0) {
        return;
    }
    while_taken = as_found;
    while_taken.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    is_taken_ = true;
    owner = getpid();
    signal(SIGTTOU, SIG_IGN);
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGQUIT}) {
        handle(number, give_back_and_die, static_cast<SignalFlags>(SA_RESETHAND));
    }
    handle(SIGTSTP, give_back_while_stopped, SA_RESTART);
    take();
}

void Screen::leave() {
    if (is_taken_) {
        owner = 0;
        give_back();
        is_taken_ = false;
    }
}

Size Screen::size() const {
    struct winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
        return USUAL;
    }
    return {size.ws_col, size.ws_row};
}

void Screen::show(const std::vector<std::string> &rows, Size size) {
    const bool is_new_size = size.columns != shown_size_.columns || size.rows != shown_size_.rows;
    if (is_new_size) {
        shown_.clear();
        shown_size_ = size;
    }
    std::string frame = is_new_size ? "\033[2J" : "";
    for (size_t row = 0; row < rows.size(); ++row) {
        if (row >= shown_.size() || shown_[row] != rows[row]) {
            frame += "\033[" + std::to_string(row + 1) + ";1H" + rows[row];
        }
    }
    send(frame);
    shown_ = rows;
}

}  // namespace recorder

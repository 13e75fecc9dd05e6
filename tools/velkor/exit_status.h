// What the tool answers to the shell, and the one exception that carries it there.
#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace tool {

enum ExitStatus : int {
    SUCCESS = 0,
    NEGATIVE = 1,  // the answer is no, or a call failed
    BAD_USE = 2    // what was typed cannot be meant
};

// Ends the command: main() prints the text to standard error and exits with the status.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus status, const std::string &text) : std::runtime_error(text), status_(status) {}
    ExitStatus status() const { return status_; }

private:
    ExitStatus status_;
};

// "error 13, Permission denied"
inline std::string meaning_of(int code) {
    return "error " + std::to_string(code) + ", " + strerror(code);  // NOLINT(concurrency-mt-unsafe)
}

// A call of the system that failed: `what` could not be done.
[[noreturn]] inline void fail_call(const std::string &what, int code = errno) {
    throw Failure(NEGATIVE, "cannot " + what + ": " + meaning_of(code));
}

}  // namespace tool

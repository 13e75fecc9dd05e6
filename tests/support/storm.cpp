#include "support/storm.h"

#include <execinfo.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/firmware.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "support/log_capture.h"
#include "support/place.h"

namespace storm {

// ---- Subjects -----------------------------------------------------------------------------------------------------

std::string Subject::name() const {
    const std::string first = rows_.front()->names;
    return rows_.size() == 1 ? first : first + " and " + std::to_string(rows_.size() - 1) + " more plain ones";
}

std::vector<std::string> Subject::call() const {
    std::vector<std::string> results;
    for (const exports::Row *const row : rows_) {
        results.push_back(row->call());
    }
    return results;
}

std::string Subject::differences(const std::vector<std::string> &expected) const {
    const std::vector<std::string> results = call();
    std::string lines;
    for (size_t i = 0; i < rows_.size(); ++i) {
        if (results[i] != expected[i]) {
            lines +=
                std::string(rows_[i]->names) + " gives \"" + results[i] + "\" instead of \"" + expected[i] + "\"\n";
        }
    }
    return lines;
}

namespace {

std::vector<Subject> subjects_of(const exports::Group &group) {
    const char *const wanted = getenv("VELKOR_STORM");
    std::vector<const exports::Row *> plain;
    std::vector<Subject> subjects;
    for (const exports::Row &row : group.rows) {
        if (wanted != nullptr && strstr(row.names, wanted) == nullptr) {
            continue;
        }
        if (row.traits.is_plain) {
            plain.push_back(&row);
        } else {
            subjects.emplace_back(std::vector{&row});
        }
    }
    if (!plain.empty()) {
        subjects.emplace_back(plain);
    }
    return subjects;
}

// ---- What all rows need -------------------------------------------------------------------------------------------

// A directory, the log, the debug stream, a console, and what the group prepares.
class Surroundings {
public:
    explicit Surroundings(const exports::Group &group) : debug_(fopen("/tmp/debug", "we")) {
        char directory[] = "/tmp/stormXXXXXX";
        EXPECT_NE(mkdtemp(directory), nullptr);
        EXPECT_EQ(chdir(directory), 0);
        fpDebugFile = debug_;
        prepared_ = group.prepare();
    }
    ~Surroundings() {
        fpDebugFile = nullptr;
        fclose(debug_);
    }
    Surroundings(const Surroundings &) = delete;
    Surroundings &operator=(const Surroundings &) = delete;

private:
    LogCapture log_;
    place::BoundPath console_{"/dev/console", "/dev/null"};
    FILE *debug_;
    std::shared_ptr<void> prepared_;
};

// ---- Processes that are watched -----------------------------------------------------------------------------------

constexpr int PATIENCE_MS = IS_FULL ? 25000 : 100000;
constexpr const char *ERRORS = "/tmp/errors";

void write_stack([[maybe_unused]] int signal) {
    void *frames[10];
    backtrace_symbols_fd(frames, backtrace(frames, 10), STDERR_FILENO);
}

// A process that hangs in a lock of the C library's can still say so.
void write_stack_when_asked() {
    void *frame = nullptr;
    backtrace(&frame, 1);  // loads what it needs
    signal(SIGUSR1, write_stack);
}

bool ends_within(pid_t child, int patience_ms) {
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    struct pollfd end = {handle, POLLIN, 0};
    int ready;
    while ((ready = poll(&end, 1, patience_ms)) < 0 && errno == EINTR) {
    }
    close(handle);
    return ready > 0;
}

std::string description_of(int status) {
    if (WIFSIGNALED(status)) {
        return std::string("is ended by: ") + strsignal(WTERMSIG(status)) + "\n";
    }
    return status == 0 ? "" : "ends with status " + std::to_string(WEXITSTATUS(status)) + "\n";
}

std::string last_errors() {
    constexpr size_t MOST = 6000;
    const std::string text = place::read_file(ERRORS);
    return text.substr(text.size() - std::min(text.size(), MOST));
}

std::string run_in_child(const Storm &storm, const Subject &subject) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    place::write_file(ERRORS, "");
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(open(ERRORS, O_WRONLY | O_APPEND | O_CLOEXEC), STDERR_FILENO);
        write_stack_when_asked();
        const std::string complaint = storm(subject);
        _exit(write(ends[1], complaint.data(), complaint.size()) < 0 ? 1 : 0);
    }
    std::string complaint = fault_of_child(child, PATIENCE_MS + length_ms(0));
    char piece[4096];
    for (ssize_t length; (length = read(ends[0], piece, sizeof piece)) > 0;) {
        complaint.append(piece, static_cast<size_t>(length));
    }
    close(ends[0]);
    close(ends[1]);
    return complaint.empty() ? "" : complaint + "\n" + last_errors();
}

}  // namespace

void over(const exports::Group &group, const Storm &storm) {
    const Surroundings surroundings(group);
    for (const Subject &subject : subjects_of(group)) {
        const std::string complaint = run_in_child(storm, subject);
        if (!complaint.empty()) {
            ADD_FAILURE() << subject.name() << ": " << complaint;
        }
    }
}

int length_ms(int usual_ms) {
    const char *const seconds = getenv("VELKOR_STRESS_SECONDS");
    return seconds != nullptr ? atoi(seconds) * 1000 : usual_ms;
}

std::string fault_of_child(pid_t child, int patience_ms) {
    const bool has_ended = ends_within(child, patience_ms);
    if (!has_ended) {
        kill(child, SIGUSR1);
        usleep(100000);
        kill(child, SIGKILL);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return has_ended ? description_of(status) : "hangs\n";
}

}  // namespace storm

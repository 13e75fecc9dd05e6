// velkor run: a shell command through the library's command runner.
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <velkor/process.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <thread>

#include "command_line.h"
#include "command_runner.h"
#include "descriptor.h"
#include "exit_status.h"
#include "interruption.h"

namespace tool::run {

namespace {

struct Options {
    std::vector<std::string> words;
    bool pipe = false;

    std::string command() const {
        std::string text;
        for (const std::string &word : words) {
            text += (text.empty() ? "" : " ") + word;
        }
        return text;
    }
};

void require_length(const std::string &command) {
    if (command.size() >= VELKOR_COMMAND_SIZE) {
        throw Failure(BAD_USE, "the command has " + std::to_string(command.size()) + " characters, the runner takes " +
                                   std::to_string(VELKOR_COMMAND_SIZE - 1) + " at most");
    }
}

// As a shell while a command runs: what the terminal sends is the command's business. Only after the runner was forked,
// for its commands would ignore it too.
class Patient {
public:
    Patient() {
        signal(SIGINT, SIG_IGN);
        signal(SIGQUIT, SIG_IGN);
        signal(SIGPIPE, SIG_IGN);
        interruption_.emplace();
    }

    const Interruption &interruption() const { return *interruption_; }

private:
    std::optional<Interruption> interruption_;
};

constexpr int STOPPED = 128 + SIGTERM;

// ---- A plain command ----

// The call has no time limit, so that it waits in a thread of its own while this one can be stopped.
struct Call {
    std::string command;
    std::atomic<bool> has_ended{false};
    Descriptor bell{eventfd(0, EFD_CLOEXEC)};  // rings then, for whoever waits on descriptors
    int status = -1;
    std::exception_ptr failure;

    void run() {
        try {
            status = run_command(command);
        } catch (const Failure &) {
            failure = std::current_exception();
        }
        has_ended = true;
        eventfd_write(bell.get(), 1);
    }
};

int run_plain(const std::string &command) {
    const CommandRunner runner;
    const Patient patient;
    const auto call = std::make_shared<Call>();
    call->command = command;
    std::thread([call] { call->run(); }).detach();
    struct pollfd end = {call->bell.get(), POLLIN, 0};
    while (!call->has_ended) {
        patient.interruption().wait({&end, 1});
        if (Interruption::came()) {
            return STOPPED;
        }
    }
    if (call->failure) {
        std::rethrow_exception(call->failure);
    }
    return exit_status_of(call->status);
}

// ---- A pipe command ----

// The runner keeps the status of a pipe command to itself, so that a shell around the command writes it down, if there
// is still somebody who wants it. The command is handed over in the environment: no quoting can go wrong there.
constexpr const char *AROUND =
    "trap : INT QUIT; sh -c \"$VELKOR_RUN_COMMAND\"; status=$?; exec 2>/dev/null; echo $status >\"$VELKOR_RUN_STATUS\"";

// A file without a name: this process is where it is found, so that a command that ends later leaves nothing behind.
class StatusFile {
public:
    StatusFile() : file_(std::tmpfile()) {
        if (file_ == nullptr) {
            fail_call("make a temporary file");
        }
        const std::string path = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fileno(file_));
        setenv("VELKOR_RUN_STATUS", path.c_str(), 1);
    }
    ~StatusFile() { std::fclose(file_); }
    StatusFile(const StatusFile &) = delete;
    StatusFile &operator=(const StatusFile &) = delete;

    int status() const {
        char text[16] = "";
        if (pread(fileno(file_), text, sizeof text - 1, 0) <= 0) {
            throw Failure(NEGATIVE, "the command was ended, and left no status");
        }
        return std::atoi(text);
    }

private:
    std::FILE *file_;
};

// Answers whether all of it was written, up to the end of the command's output.
bool stream_output(FILE *from, const Interruption &interruption) {
    char block[65536];
    for (;;) {
        struct pollfd input = {fileno(from), POLLIN, 0};
        interruption.wait({&input, 1});
        if (Interruption::came()) {
            return false;
        }
        if (input.revents == 0) {
            continue;
        }
        const ssize_t length = read(input.fd, block, sizeof block);
        if (length < 0) {
            fail_call("read the command's output");
        }
        if (length == 0) {
            return true;
        }
        if (!interruption.write_all(STDOUT_FILENO, {block, static_cast<size_t>(length)})) {
            return false;
        }
    }
}

int run_pipe(const std::string &command) {
    const StatusFile status_file;
    setenv("VELKOR_RUN_COMMAND", command.c_str(), 1);
    const CommandRunner runner;
    const Patient patient;
    FILE *const output = VkPipeOpen(AROUND, "r");
    if (output == nullptr) {
        throw Failure(NEGATIVE,
                      "cannot open the pipe: is there a directory /tmpfile that takes pipes? "
                      "(./dev sandbox has one)");
    }
    const bool complete = stream_output(output, patient.interruption());
    VkPipeClose(output);
    if (!complete) {
        return Interruption::came() ? STOPPED : 128 + SIGPIPE;
    }
    return status_file.status();
}

int run(const Options &options) {
    const std::string command = options.command();
    require_length(command);
    return options.pipe ? run_pipe(command) : run_plain(command);
}

}  // namespace

}  // namespace tool::run

void tool::add_run(CLI::App &velkor, Run &chosen) {
    const auto options = std::make_shared<run::Options>();
    CLI::App &command = *velkor.add_subcommand("run", "Run a shell command as a recorder does, in the runner process");
    add_words(command, "CMD", options->words, "The command, in the shell's language; its words are put together")
        ->required();
    command.add_flag("--pipe", options->pipe,
                     "Read its output through a pipe of the runner's, and print it as it comes");
    command.footer(
        "At most 511 characters. Exit status: the command's; 128 and the number of the signal that ended\n"
        "it; 143 when velkor was told to end, which leaves the command to itself; 1 also when the runner\n"
        "failed, with a word on standard error.\n"
        "With --pipe the directory /tmpfile is needed.\n"
        "A command with options of its own stands in quotes, or behind \"--\".\n"
        "Example: velkor run 'df -k | tail -n 1'");
    command.callback([options, &chosen] { chosen = [options] { return run::run(*options); }; });
}

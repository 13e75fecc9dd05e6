// velkor copy: the recorder's own copy, watched.
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor/files.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <thread>

#include "command_line.h"
#include "exit_status.h"
#include "interruption.h"
#include "output.h"
#include "progress.h"

namespace tool::copy {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct CopyOptions {
    std::string source;
    std::string destination;
    int size = -1;
    bool no_cancel = false;
    bool quiet = false;
    bool json = false;
};

const char *meaning_of_copy(int code) {
    switch (code) {
        case VELKOR_COPY_OK:
            return "copied";
        case VELKOR_COPY_NO_SOURCE:
            return "the source cannot be opened";
        case VELKOR_COPY_NO_DESTINATION:
            return "the destination cannot be opened";
        case VELKOR_COPY_WRITE_FAILED:
            return "ten attempts to write in a row fell short: is the disk full?";
        case VELKOR_COPY_READ_FAILED:
            return "the source cannot be read";
        case VELKOR_COPY_NO_MEMORY:
            return "there is no memory for the buffer";
        case VELKOR_COPY_SOURCE_MODE:
            return "direct I/O cannot be switched off for the source";
        case VELKOR_COPY_DESTINATION_MODE:
            return "direct I/O cannot be switched off for the destination";
        case VELKOR_COPY_NO_STATUS:
            return "the source cannot be examined: is it there?";
        default:
            return "unknown";
    }
}

// Bytes that are there; 0 where there is nothing.
uint64_t size_of(const std::string &path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

bool is_same_file(const std::string &one, const std::string &other) {
    std::error_code unknown;
    return fs::equivalent(one, other, unknown);
}

bool is_device(const std::string &path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && (S_ISBLK(status.st_mode) || S_ISCHR(status.st_mode));
}

// Into a directory a file is copied under its own name.
std::string destination_file(const CopyOptions &options) {
    std::error_code unknown;
    const fs::path destination(options.destination);
    return fs::is_directory(destination, unknown) ? destination / fs::path(options.source).filename() : destination;
}

// ---- What a person sees ----

struct Progress {
    uint64_t done;
    uint64_t all;
    double seconds;

    double rate() const { return seconds > 0 ? static_cast<double>(done) / seconds : 0; }
};

std::string rate_text(double rate) { return size_text(static_cast<uint64_t>(rate)) + "/s"; }

std::string progress_line(const Progress &progress) {
    const double fraction =
        progress.all > 0 ? static_cast<double>(progress.done) / static_cast<double>(progress.all) : 1;
    const double left = static_cast<double>(progress.all - std::min(progress.done, progress.all));
    std::string line = bar(fraction, 30) + " " + std::to_string(static_cast<int>(fraction * 100)) + " %  " +
                       size_text(progress.done) + " of " + size_text(progress.all);
    if (progress.done > 0) {
        line += "  " + rate_text(progress.rate()) + "  " +
                time_text(static_cast<uint64_t>(std::llround(left / std::max(progress.rate(), 1.0)))) + " left";
    }
    return line;
}

// One line at the bottom of a terminal, written over again and again; nothing at all anywhere else.
class ProgressLine {
public:
    explicit ProgressLine(bool wanted) : is_shown_(wanted && isatty(STDERR_FILENO) == 1) {}
    ~ProgressLine() {
        if (is_shown_) {
            std::cerr << "\r\033[K" << std::flush;
        }
    }
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;

    void show(const Progress &progress) const {
        if (is_shown_) {
            std::cerr << "\r" << progress_line(progress) << "\033[K" << std::flush;
        }
    }

private:
    bool is_shown_;
};

// ---- The copy ----

// A thread that copies. The calling one has time for its user meanwhile.
class Worker {
public:
    Worker(const CopyOptions &options, const std::string &destination) : done_(eventfd(0, EFD_CLOEXEC)) {
        if (!done_) {
            fail_call("make an event");
        }
        thread_ = std::thread([this, &options, &destination] {
            code_ = copy_file(options.source.c_str(), destination.c_str(), nullptr, options.size,
                              options.no_cancel ? 0 : 1);
            eventfd_write(done_.get(), 1);
        });
    }
    ~Worker() { result(); }
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    int descriptor() const { return done_.get(); }

    int result() {
        if (thread_.joinable()) {
            thread_.join();
        }
        return code_;
    }

private:
    Descriptor done_;
    int code_ = 0;
    std::thread thread_;
};

struct Outcome {
    int code = 0;
    bool cancelled = false;
    double seconds = 0;
};

// Answers the copy's code when it has ended. Asks it to cancel when the user does.
int watch(Worker &worker, const CopyOptions &options, const std::string &destination, Clock::time_point begin,
          const Interruption &interruption) {
    constexpr unsigned REDRAW_MS = 200;
    const uint64_t source_size = size_of(options.source);
    const uint64_t all = options.size < 0 ? source_size : static_cast<uint64_t>(options.size);
    const Descriptor ticks = ticks_every(REDRAW_MS);
    const ProgressLine line(!options.quiet && !options.json);
    bool is_told = false;
    for (;;) {
        struct pollfd waiting[] = {{worker.descriptor(), POLLIN, 0}, {ticks.get(), POLLIN, 0}};
        interruption.wait(waiting);
        if (waiting[0].revents != 0) {
            return worker.result();
        }
        if (Interruption::came() && !is_told) {
            is_told = true;
            SetCopyCtrlStatus(options.no_cancel ? 0 : 1);
            remark(options.no_cancel ? "this copy is not cancelable, it goes on" : "cancelling");
        }
        take_ticks(ticks);
        line.show({size_of(destination), all, std::chrono::duration<double>(Clock::now() - begin).count()});
    }
}

Outcome run_copy(const CopyOptions &options, const std::string &destination) {
    const Interruption interruption;
    const Clock::time_point begin = Clock::now();
    Outcome outcome;
    {
        Worker worker(options, destination);
        outcome.code = watch(worker, options, destination, begin, interruption);
    }
    outcome.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    // A request that is still there came after the last block.
    const bool asked = Interruption::came() && !options.no_cancel;
    outcome.cancelled = asked && GetCopyCtrlStatus() == 0;
    SetCopyCtrlStatus(0);
    return outcome;
}

const char *outcome_text(const Outcome &outcome) {
    return outcome.cancelled && outcome.code == VELKOR_COPY_OK ? "cancelled" : meaning_of_copy(outcome.code);
}

void report(const CopyOptions &options, const std::string &destination, const Outcome &outcome) {
    const uint64_t bytes = size_of(destination);
    const double rate = outcome.seconds > 0 ? static_cast<double>(bytes) / outcome.seconds : 0;
    if (options.json) {
        print_json({{"source", options.source},
                    {"destination", destination},
                    {"code", outcome.code},
                    {"meaning", outcome_text(outcome)},
                    {"cancelled", outcome.cancelled},
                    {"bytes", bytes},
                    {"seconds", outcome.seconds}});
    } else if (outcome.cancelled && outcome.code == VELKOR_COPY_OK) {
        remark("cancelled, " + destination + " is removed");
    } else if (outcome.code != VELKOR_COPY_OK) {
        remark("not copied, code " + std::to_string(outcome.code) + ": " + meaning_of_copy(outcome.code));
    } else if (!options.quiet) {
        std::cout << destination << ": " << size_text(bytes) << ", " << rate_text(rate) << '\n';
    }
}

int run(const CopyOptions &options) {
    const std::string destination = destination_file(options);
    if (is_same_file(options.source, destination)) {
        throw Failure(BAD_USE, options.source + " and " + destination + " are the same file: the copy would empty it");
    }
    if (is_device(destination) && !options.no_cancel) {
        throw Failure(BAD_USE, destination + " is a device, which a cancelled copy would remove: use --no-cancel");
    }
    const Outcome outcome = run_copy(options, destination);
    report(options, destination, outcome);
    return outcome.code == VELKOR_COPY_OK && !outcome.cancelled ? SUCCESS : NEGATIVE;
}

}  // namespace

}  // namespace tool::copy

void tool::add_copy(CLI::App &velkor, Run &chosen) {
    const auto options = std::make_shared<copy::CopyOptions>();
    CLI::App &command = *velkor.add_subcommand("copy", "Copy a file as the recorder does: direct I/O, retries, syncs");
    command.add_option("SRC", options->source, "File to copy")->required();
    command.add_option("DST", options->destination, "File, or directory to copy it into")->required();
    command.add_option("--size", options->size, "Copy only so many bytes")
        ->type_name("BYTES")
        ->check(CLI::NonNegativeNumber.description(""));
    command.add_flag("--no-cancel", options->no_cancel, "Go on whatever happens, also after Ctrl-C");
    command.add_flag("--quiet", options->quiet, "No progress, no result: only failures");
    add_json(command, options->json);
    command.footer(
        "Ctrl-C cancels through the library's own cancel word, and removes the part;\n"
        "so a device is a destination with --no-cancel only.\n"
        "After a failure the part stays. The copy gets mode 0777, as on the recorder.\n"
        "Status 1 when the copy failed or was cancelled.");
    command.callback([options, &chosen] { chosen = [options] { return copy::run(*options); }; });
}

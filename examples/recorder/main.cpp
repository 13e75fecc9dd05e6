// A small recorder process over the whole of libvelkor.
//
//     recorder [--seconds N] [--fault KIND]       where second_host.sh has made a place for it: ./dev demo
//
// The runner is forked first, then each part works on a thread of its own. This thread shows what they do, makes the
// trouble that was asked for, and at the end has everything counted up. Exit status 0 only if all of it is true.
#include <stdlib.h>
#include <unistd.h>
#include <velkor/files.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <thread>

#include "fault.h"
#include "options.h"
#include "picture.h"
#include "place.h"
#include "recorder.h"
#include "screen.h"
#include "signals.h"
#include "text.h"

namespace recorder {

namespace {

constexpr std::chrono::milliseconds FRAME_TIME(100);
constexpr int BAD_USE = 2;
constexpr int ENDED_BY_SIGNAL = 128;

// A directory for its own files, gone with the process: the debug channel and the runner look into the working one.
class WorkingDirectory {
public:
    WorkingDirectory() { is_ready_ = mkdtemp(path_) != nullptr && chdir(path_) == 0; }
    ~WorkingDirectory() {
        if (is_ready_) {
            remove_file(path_);
        }
    }
    WorkingDirectory(const WorkingDirectory &) = delete;
    WorkingDirectory &operator=(const WorkingDirectory &) = delete;

    bool is_ready() const { return is_ready_; }

private:
    char path_[32] = "/tmp/recorderXXXXXX";
    bool is_ready_ = false;
};

double seconds_since(Clock::time_point begin) { return std::chrono::duration<double>(Clock::now() - begin).count(); }

// ---- While it works ----

void print_tallies(const Recorder &recorder, double seconds) {
    std::string line = format("%4.0f s ", seconds);
    for (const Subsystem *const part : recorder.parts) {
        line += (part == recorder.parts.front() ? " " : ", ") + part->tally();
    }
    puts(line.c_str());
    fflush(stdout);
}

std::string title(const Options &options, const FaultStory &story, double seconds) {
    std::string text = format(" libvelkor recorder   %.1f of %d s", seconds, options.seconds);
    if (!options.fault.empty()) {
        text += "   " + options.fault + ": " + (story.state().empty() ? "trouble is ahead" : story.state());
    }
    return text;
}

void show(const Recorder &recorder, const std::string &title, bool is_calm, Screen &screen) {
    const Size size = screen.size();
    screen.show(picture_of(recorder, title, is_calm, size, screen.is_coloured()), size);
}

// Shows the work until its time is over, and the trouble, too.
void watch(const Recorder &recorder, const Options &options, FaultStory &story, Clock::time_point begin,
           Screen &screen) {
    double next_tally = 1;
    while (signal_that_came() == 0 && (seconds_since(begin) < options.seconds || !story.is_over())) {
        story.follow();
        const double seconds = seconds_since(begin);
        if (screen.is_taken()) {
            show(recorder, title(options, story, seconds), story.is_over() || story.state().empty(), screen);
        } else if (seconds >= next_tally) {
            print_tallies(recorder, seconds);
            next_tally += 1;
        }
        std::this_thread::sleep_for(FRAME_TIME);
    }
    story.break_off();
}

// ---- At the end ----

// Answers whether all is true.
bool print_summary(const Recorder &recorder) {
    bool is_all_true = true;
    for (const Subsystem *const part : recorder.parts) {
        const std::vector<std::string> failures = part->failures();
        printf("%-6s  %-9s  %s\n", failures.empty() ? "ok" : "FAILED", part->name(), part->summary().c_str());
        for (const std::string &failure : failures) {
            printf("        not so: %s\n", failure.c_str());
        }
        is_all_true = is_all_true && failures.empty();
    }
    return is_all_true;
}

bool print_fault(const Options &options, const FaultStory &story) {
    if (!options.fault.empty()) {
        printf("%-6s  fault      %s: %s\n", story.is_coped_with() ? "ok" : "FAILED", options.fault.c_str(),
               story.state().c_str());
    }
    return story.is_coped_with();
}

int conclude(const Recorder &recorder, const Options &options, const FaultStory &story) {
    puts("");
    const bool is_all_true = print_summary(recorder);
    if (const int number = signal_that_came(); number != 0) {
        printf("\nended by signal %d before its time\n", number);
        return ENDED_BY_SIGNAL + number;
    }
    const bool is_coped_with = print_fault(options, story);
    puts(is_all_true && is_coped_with ? "\neverything agrees" : "\nSOMETHING IS NOT AS IT SHOULD BE");
    return is_all_true && is_coped_with ? EXIT_SUCCESS : EXIT_FAILURE;
}

int work(const Options &options) {
    const WorkingDirectory directory;
    if (access("/dvr/second_host.sh", X_OK) != 0 || access("/dvrfile", W_OK) != 0 || !directory.is_ready()) {
        fputs("recorder: there is no place for it here; ./dev demo makes one\n", stderr);
        return EXIT_FAILURE;
    }
    heed_signals();  // before the runner is forked: a Ctrl-C reaches it, too, and must not end it
    Recorder recorder;
    if (!recorder.is_ready()) {
        fprintf(stderr, "recorder: cannot start its runner, or make %s\n", place::LOG_TERMINAL);
        return EXIT_FAILURE;
    }
    recorder.start();

    const Clock::time_point begin = Clock::now();
    const std::vector<Fault> faults = faults_of(recorder);
    const auto fault =
        std::find_if(faults.begin(), faults.end(), [&](const Fault &one) { return options.fault == one.kind; });
    Screen screen;
    FaultStory story(fault != faults.end() ? &*fault : nullptr, begin, std::chrono::seconds(options.seconds),
                     [&](const std::string &step) {
                         RECORDER_LOG("recorder", "%s", step.c_str());
                         recorder.messages.note("recorder", step);
                         if (!screen.is_taken()) {
                             printf("%6.1f s  %s\n", seconds_since(begin), step.c_str());
                             fflush(stdout);
                         }
                     });
    watch(recorder, options, story, begin, screen);
    if (screen.is_taken()) {
        show(recorder, " libvelkor recorder   its time is over: counting up", true, screen);
    }
    recorder.finish();
    screen.leave();
    return conclude(recorder, options, story);
}

}  // namespace

}  // namespace recorder

int main(int argc, char **argv) {
    const std::optional<recorder::Options> options = recorder::read_options(argc, argv);
    if (!options) {
        return recorder::BAD_USE;
    }
    if (options->help) {
        fputs(recorder::USAGE, stdout);
        return EXIT_SUCCESS;
    }
    return recorder::work(*options);
}

// velkor log write: lines of this process, by the library's own way.
#include <unistd.h>
#include <velkor/diagnostics.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>

#include "exit_status.h"
#include "log_commands.h"
#include "log_drain.h"
#include "log_switch_file.h"
#include "log_terminal.h"
#include "output.h"

namespace tool::log {

namespace {

struct WriteOptions {
    std::string module = "velkor";
    std::vector<std::string> words;
    double timeout = 5;

    std::chrono::milliseconds patience() const {
        return std::chrono::milliseconds(static_cast<long long>(timeout * 1000));
    }
};

// What became of the lines.
struct Counts {
    size_t logged = 0;
    size_t filtered = 0;
    size_t refused = 0;  // while the log was off or not printing

    size_t lines() const { return logged + filtered + refused; }
};

void require_log() {
    if (vk_GetLogmanEnable() == 0) {
        throw Failure(NEGATIVE, std::string("the log is off, there is no ") + SWITCH_FILE +
                                    ": velkor log config --print 1 switches it on");
    }
    if (!look_at_switch_file().prints()) {
        throw Failure(NEGATIVE, std::string("printing is off, dbgprint is 0 in ") + SWITCH_FILE +
                                    ": velkor log config --print 1 switches it on");
    }
    if (!has_ring()) {
        const int code = look_at_terminal().error;
        throw Failure(NEGATIVE, std::string("there is no terminal, cannot open ") + TERMINAL + ": " + meaning_of(code) +
                                    ": velkor log follow makes one");
    }
}

// Answers what the lines that did not get anywhere make of the whole.
int report(const Counts &counts) {
    if (counts.filtered == 0 && counts.refused == 0) {
        return SUCCESS;
    }
    std::string text = std::to_string(counts.logged) + " of " + counted(counts.lines(), "line") + " logged";
    if (counts.filtered != 0) {
        text += ", " + std::to_string(counts.filtered) + " dropped by the filters in " + SWITCH_FILE;
    }
    if (counts.refused != 0) {
        text += ", " + std::to_string(counts.refused) + " refused while the log was off";
    }
    remark(text);
    return NEGATIVE;
}

// The lines that still wait would hold up exit(), which writes out what it can: this process has waited enough.
[[noreturn]] void give_up(const WriteOptions &options, const Counts &counts) {
    report(counts);
    remark("not everything was written, " + counted(waiting_lines(), "line") +
           " left in the ring buffer: nothing moved on " + TERMINAL + " for " +
           std::to_string(options.patience().count()) + " ms");
    _exit(NEGATIVE);
}

void write_line(std::string text, const WriteOptions &options, Counts &counts) {
    std::ranges::replace(text, '\0', ' ');  // would end the line
    if (!wait_for_room(options.patience())) {
        give_up(options, counts);
    }
    if (vk_printftomem(0, options.module.c_str(), 0, "%s", text.c_str()) == 0) {
        ++counts.logged;
    } else if (vk_GetLogmanEnable() != 0 && look_at_switch_file().prints()) {
        ++counts.filtered;
    } else {
        ++counts.refused;
    }
}

Counts write_lines(const WriteOptions &options) {
    Counts counts;
    if (!options.words.empty()) {
        std::string text = options.words.front();
        std::for_each(options.words.begin() + 1, options.words.end(), [&](const auto &word) { text += " " + word; });
        write_line(text, options, counts);
        return counts;
    }
    for (std::string text; std::getline(std::cin, text);) {
        write_line(std::move(text), options, counts);
    }
    return counts;
}

int write(const WriteOptions &options) {
    logman_init();
    require_log();
    const Counts counts = write_lines(options);
    if (!wait_until_drained(options.patience())) {
        give_up(options, counts);
    }
    fflush(nullptr);
    return report(counts);
}

}  // namespace

void add_write(CLI::App &log, Run &chosen) {
    const auto options = std::make_shared<WriteOptions>();
    CLI::App &command = *log.add_subcommand("write", "Log a line, or the lines of standard input");
    add_words(command, "TEXT", options->words, "The line's words; without any, standard input line by line");
    command.add_option("--module", options->module, "Module under which to log")
        ->type_name("NAME")
        ->capture_default_str();
    command.add_option("--timeout", options->timeout, "Seconds to wait for a terminal that takes nothing")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 86400.0).description(""))
        ->capture_default_str();
    command.footer(
        "Goes the way of every process: filters, ring buffer, draining thread, /tmp/tty.logman.\n"
        "Status 1 when a line did not get there: log off, printing off, no terminal, filtered.\n"
        "A text that begins with \"-\" stands behind \"--\".");
    command.callback([options, &chosen] { chosen = [options] { return write(*options); }; });
}

}  // namespace tool::log

// velkor log follow: be the terminal of all processes.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <memory>

#include "exit_status.h"
#include "interruption.h"
#include "log_commands.h"
#include "log_line.h"
#include "log_switch_file.h"
#include "log_terminal.h"

namespace tool::log {

namespace {

struct FollowOptions {
    std::vector<std::string> grep;
    std::vector<std::string> drop;
    std::string colour = "auto";
    bool no_colour = false;
    bool json = false;
    bool enable = false;
    bool replace = false;
    size_t count = 0;  // 0: until stopped
    Settling settling;
};

// Processes open the terminal only when they read the switch file after it was away.
void call_processes(const FollowOptions &options) {
    const SwitchFile file = require_readable(look_at_switch_file());
    const bool forced = options.enable && !file.prints();
    if (!file.present && !forced) {
        remark(std::string("the log is off, there is no ") + SWITCH_FILE +
               "; to switch it on, here or in another shell: velkor log config --print 1");
        return;
    }
    if (!file.prints() && !forced) {
        remark(std::string("processes print nothing, dbgprint is 0 in ") + SWITCH_FILE +
               "; to change that, here or in another shell: velkor log config --print 1");
        return;
    }
    Edits edits;
    if (forced) {
        edits.print = 1;
    }
    replace_switch_file(edited(file.content, edits), options.settling.time());
}

// Puts lines together from what comes, and prints those that are wanted.
class Printer {
public:
    Printer(const FollowOptions &options, const Interruption &interruption)
        : options_(options),
          interruption_(interruption),
          filter_(options.grep, options.drop),
          palette_(is_coloured(options.no_colour ? "never" : options.colour, STDOUT_FILENO)) {}

    // False when no more is wanted.
    bool take(std::string_view piece) {
        pending_ += piece;
        std::string output;
        size_t begin = 0;
        for (size_t end; !is_enough() && (end = pending_.find('\n', begin)) != std::string::npos; begin = end + 1) {
            output += rendered(std::string_view(pending_).substr(begin, end - begin));
        }
        pending_.erase(0, begin);
        return interruption_.write_all(STDOUT_FILENO, output) && !is_enough();
    }

    bool is_enough() const { return options_.count != 0 && printed_ >= options_.count; }

private:
    std::string rendered(std::string_view text) {
        if (!filter_.keeps(text)) {
            return {};
        }
        ++printed_;
        const Line line(text);
        return (options_.json ? json_text(for_programs(line)) : for_people(line, palette_)) + "\n";
    }

    const FollowOptions &options_;
    const Interruption &interruption_;
    TextFilter filter_;
    Palette palette_;
    std::string pending_;
    size_t printed_ = 0;
};

std::string_view read_piece(const OwnTerminal &terminal, std::array<char, 4096> &buffer) {
    const ssize_t length = read(terminal.descriptor(), buffer.data(), buffer.size());
    if (length < 0) {
        fail_call("read " + terminal.path());
    }
    return {buffer.data(), static_cast<size_t>(length)};
}

// Until enough was printed, somebody stops the command, or nobody reads its output any more.
void copy_lines(const OwnTerminal &terminal, Printer &printer, const Interruption &interruption) {
    std::array<char, 4096> buffer;
    for (;;) {
        std::array<struct pollfd, 2> ends = {{{terminal.descriptor(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
        interruption.wait(ends);
        if (Interruption::came() || ends[1].revents != 0) {
            return;
        }
        if (ends[0].revents != 0 && !printer.take(read_piece(terminal, buffer))) {
            return;
        }
    }
}

int follow(const FollowOptions &options) {
    signal(SIGPIPE, SIG_IGN);  // a reader that leaves ends this as an interruption does
    const Interruption interruption;
    const OwnTerminal terminal(options.replace);
    call_processes(options);
    remark(std::string("following on ") + TERMINAL + " (" + terminal.path() + "), end with Ctrl-C");
    Printer printer(options, interruption);
    copy_lines(terminal, printer, interruption);
    return options.count == 0 || printer.is_enough() ? SUCCESS : NEGATIVE;
}

}  // namespace

void add_follow(CLI::App &log, Run &chosen) {
    const auto options = std::make_shared<FollowOptions>();
    CLI::App &command = *log.add_subcommand("follow", "Print the log of all processes as it comes");
    add_texts(command, "--grep", options->grep, "Print only lines that contain it (or another --grep)");
    add_texts(command, "--drop", options->drop, "Leave out lines that contain it");
    command.add_option("--count", options->count, "End after so many lines; status 1 when stopped before")
        ->type_name("N")
        ->check(CLI::Range(1U, 1000000000U).description(""));
    command.add_option("--colour,--color", options->colour, "auto, always or never")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
        ->capture_default_str();
    command.add_flag("--no-colour,--no-color", options->no_colour, "The same as --colour never");
    add_json(command, options->json, "Print one object a line: time, thread, module, message");
    command.add_flag("--enable", options->enable, "Switch printing on if it is off");
    command.add_flag("--replace", options->replace, "Take over the terminal's path from whatever is there");
    options->settling.add_to(command);
    command.footer(
        "Makes a terminal, links /tmp/tty.logman to it, and has running processes open it: the switch file\n"
        "/dvrfile/logman goes and comes back with the same content. The link is removed at the end.\n"
        "Run it as root or as the user of the processes.\n"
        "Example: velkor log follow --enable --grep dvrMalloc --drop \"err code = 0\"");
    command.callback([options, &chosen] { chosen = [options] { return follow(*options); }; });
}

}  // namespace tool::log

// velkor debug follow: be the terminal of the live copy.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>

#include "debug_commands.h"
#include "exit_status.h"
#include "interruption.h"
#include "output.h"
#include "pseudo_terminal.h"

namespace tool::debug {

namespace {

struct FollowedOptions {
    std::string working = ".";
    std::string tags;
    size_t count = 0;  // 0: until stopped
};

// The mode as it was comes back at the end; processes that had no switch have none then.
class BorrowedMode {
public:
    BorrowedMode(const SwitchDirectory &directory, const std::string &mode)
        : directory_(directory), was_there_(directory.is_there()), mode_before_(directory.mode()) {
        directory_.set_mode(mode);
    }
    ~BorrowedMode() {
        try {
            if (!was_there_) {
                directory_.remove();
            } else if (mode_before_.empty()) {
                directory_.clear_mode();
            } else {
                directory_.set_mode(mode_before_);
            }
        } catch (const Failure &failure) {
            remark(failure.what());
        }
    }
    BorrowedMode(const BorrowedMode &) = delete;
    BorrowedMode &operator=(const BorrowedMode &) = delete;

private:
    const SwitchDirectory &directory_;
    bool was_there_;
    std::string mode_before_;
};

// What comes, line by line, without the control characters of a terminal.
class LiveLines {
public:
    // Answers the lines that are complete now.
    std::string take(std::string_view piece, size_t &lines) {
        pending_ += piece;
        std::string output;
        for (size_t end; (end = pending_.find('\n')) != std::string::npos; pending_.erase(0, end + 1)) {
            std::string line = pending_.substr(0, end);
            std::erase(line, '\r');
            output += spelt_out(line) + "\n";
            ++lines;
        }
        return output;
    }

private:
    std::string pending_;
};

int follow_live_copy(const FollowedOptions &options) {
    const Interruption interruption;
    std::string path;
    const Descriptor master = open_pseudo_terminal(path);
    const Descriptor held(
        open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));  // without anybody there reading would fail
    const SwitchDirectory directory(options.working);
    const BorrowedMode borrowed(directory, path + ":" + options.tags);
    LiveLines live;
    size_t lines = 0;
    while (!Interruption::came() && (options.count == 0 || lines < options.count)) {
        struct pollfd waiting = {master.get(), POLLIN, 0};
        interruption.wait({&waiting, 1});
        if ((waiting.revents & POLLIN) == 0) {
            continue;
        }
        std::array<char, 4096> piece;
        const ssize_t length = read(master.get(), piece.data(), piece.size());
        const std::string output = live.take({piece.data(), static_cast<size_t>(std::max<ssize_t>(length, 0))}, lines);
        if (!interruption.write_all(STDOUT_FILENO, output)) {
            break;
        }
    }
    return SUCCESS;
}

}  // namespace

void add_follow(CLI::App &debug, Run &chosen) {
    const auto options = std::make_shared<FollowedOptions>();
    CLI::App &command =
        *debug.add_subcommand("follow", "Print the tagged lines of the processes of a directory as they come");
    command.add_option("--dir", options->working, "The processes' working directory")->type_name("DIR");
    command.add_option("--tags", options->tags, "Lines whose tag occurs in this text")->type_name("TEXT")->required();
    command.add_option("--count", options->count, "Stop after so many lines")->type_name("N");
    command.footer("The mode file is as it was when the command ends.");
    command.callback([options, &chosen] { chosen = [options] { return follow_live_copy(*options); }; });
}

}  // namespace tool::debug

// velkor: the library's functions for an engineer at the bench or on the board.
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "command_line.h"
#include "exit_status.h"
#include "output.h"

namespace {

constexpr const char *DESCRIPTION = "What a recorder's processes see, do and say, from the command line.";
constexpr const char *STATUSES = "Exit status: 0 success, 1 the answer is no or a call failed, 2 bad use.";

// The innermost command that was recognised.
const CLI::App *last_command(const CLI::App *velkor) {
    const CLI::App *command = velkor;
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().back();
    }
    return command;
}

// The parser would say that a command is missing where one was mistyped.
std::string usage_error(const CLI::App *velkor, const CLI::Error &error) {
    const std::vector<std::string> unknown = last_command(velkor)->remaining();
    const bool is_mistyped = dynamic_cast<const CLI::RequiredError *>(&error) != nullptr && !unknown.empty();
    const std::string text = is_mistyped ? "there is no command \"" + unknown.front() + "\" here" : error.what();
    return "velkor: " + text + "\nRun with --help for more information.\n";
}

// Help and version count as success, everything else that the parser throws as bad use.
int report(const CLI::App &velkor, const CLI::ParseError &error) {
    return velkor.exit(error) == 0 ? tool::SUCCESS : tool::BAD_USE;
}

int run(int argc, char **argv) {
    CLI::App velkor(DESCRIPTION, "velkor");
    velkor.set_version_flag("--version", "velkor " VELKOR_VERSION);
    velkor.footer(STATUSES);
    velkor.failure_message(usage_error);
    velkor.require_subcommand(1);
    tool::Run chosen;
    tool::add_calendar(velkor, chosen);
    tool::add_copy(velkor, chosen);
    tool::add_debug(velkor, chosen);
    tool::add_files(velkor, chosen);
    tool::add_ini(velkor, chosen);
    tool::add_log(velkor, chosen);
    tool::add_net(velkor, chosen);
    tool::add_run(velkor, chosen);
    tool::add_sha1(velkor, chosen);
    tool::add_sys(velkor, chosen);
    tool::add_text(velkor, chosen);
    tool::add_upgrade_log(velkor, chosen);
    tool::add_zone(velkor, chosen);
    try {
        velkor.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return report(velkor, error);
    }
    return chosen();
}

}  // namespace

int main(int argc, char **argv) {
    int status = tool::NEGATIVE;
    try {
        status = run(argc, argv);
    } catch (const tool::Failure &failure) {
        tool::remark(failure.what());
        status = failure.status();
    } catch (const std::exception &unforeseen) {
        tool::remark(unforeseen.what());
    }
    if (!std::cout.flush() && status == tool::SUCCESS) {
        tool::remark("cannot write the output");
        status = tool::NEGATIVE;
    }
    return status;
}

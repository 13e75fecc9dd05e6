// velkor debug: the debug print channel, of other processes from outside and of this one from inside.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "debug_commands.h"
#include "exit_status.h"
#include "output.h"

namespace tool::debug {

namespace fs = std::filesystem;

// ---- The switch ----

bool SwitchDirectory::is_there() const { return fs::exists(path_); }

std::string SwitchDirectory::mode() const {
    std::ifstream file(mode_file());
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

namespace {

time_t time_of(const std::string &path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mtime : 0;
}

void set_time(const std::string &path, time_t seconds) {
    const struct timespec times[2] = {{seconds, 0}, {seconds, 0}};
    if (utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) {
        fail_call("set the time of " + path);
    }
}

}  // namespace

void SwitchDirectory::set_mode(const std::string &text) const {
    constexpr size_t READ_BY_PROCESSES = 128;
    if (text.size() > READ_BY_PROCESSES) {
        throw Failure(BAD_USE,
                      "processes read 128 bytes of the mode file, this would have " + std::to_string(text.size()));
    }
    if (mkdir(path_.c_str(), 0777) != 0 && errno != EEXIST) {
        fail_call("make " + path_);
    }
    const time_t before = time_of(mode_file());
    const std::string beside = mode_file() + "." + std::to_string(getpid());
    if (!(std::ofstream(beside) << text << std::flush)) {
        fail_call("write " + beside);
    }
    if (time_of(beside) <= before) {
        set_time(beside, before + 1);
    }
    if (rename(beside.c_str(), mode_file().c_str()) != 0) {
        fail_call("write " + mode_file());
    }
}

void SwitchDirectory::clear_mode() const {
    if (unlink(mode_file().c_str()) != 0 && errno != ENOENT) {
        fail_call("remove " + mode_file());
    }
}

void SwitchDirectory::remove() const {
    clear_mode();
    if (rmdir(path_.c_str()) != 0 && errno != ENOENT) {
        fail_call("remove " + path_);
    }
}

namespace {

// ---- mode ----

struct ModeOptions {
    std::string working = ".";
    std::string tags;
    std::string terminal;
    bool all = false;
    bool off = false;
    bool json = false;
};

void show_mode(const ModeOptions &options) {
    const SwitchDirectory directory(options.working);
    const std::string mode = directory.mode();
    if (options.json) {
        print_json({{"directory", directory.path()}, {"on", directory.is_there()}, {"mode", mode}});
        return;
    }
    Table table;
    table.add("directory", directory.path() + (directory.is_there() ? "" : " (absent: off)"));
    if (directory.is_there()) {
        table.add("tags", mode.empty() ? "all" : "those in \"" + spelt_out(mode) + "\"");
    }
    table.print();
}

int change_mode(const ModeOptions &options) {
    const SwitchDirectory directory(options.working);
    const bool has_terminal = !options.terminal.empty();
    if (options.off || options.all) {
        if (!options.tags.empty() || has_terminal || (options.off && options.all)) {
            throw Failure(BAD_USE, "--off and --all go with no other change");
        }
        if (options.off) {
            directory.remove();
        } else {
            directory.set_mode("");  // makes the directory
            directory.clear_mode();
        }
    } else if (has_terminal && options.tags.empty()) {
        throw Failure(BAD_USE, "a terminal goes with --tags: without tags processes do not open it");
    } else if (has_terminal) {
        directory.set_mode(options.terminal + ":" + options.tags);
    } else if (!options.tags.empty()) {
        directory.set_mode(options.tags);
    }
    show_mode(options);
    return directory.is_there() || options.off ? SUCCESS : NEGATIVE;
}

void add_mode(CLI::App &debug, Run &chosen) {
    const auto options = std::make_shared<ModeOptions>();
    CLI::App &command = *debug.add_subcommand("mode", "Show or change what the processes of a directory keep and copy");
    command.add_option("--dir", options->working, "The processes' working directory")->type_name("DIR");
    command.add_option("--tags", options->tags, "Keep lines whose tag occurs in this text")->type_name("TEXT");
    command.add_option("--terminal", options->terminal, "Copy them live to this terminal")
        ->type_name("PATH")
        ->check(CLI::Validator(
            [](const std::string &path) {
                return path.starts_with("/dev/pts/") ? "" : std::string("a terminal is below /dev/pts/");
            },
            ""));
    command.add_flag("--all", options->all, "Keep lines of every tag");
    command.add_flag("--off", options->off, "Keep nothing: remove the directory rt_debug");
    add_json(command, options->json);
    command.footer(
        "Processes look when they call rt_JudgePrintEn(), usually every second.\n"
        "Status 1 when the channel is off.");
    command.callback([options, &chosen] { chosen = [options] { return change_mode(*options); }; });
}

// ---- channels ----

struct ChannelOptions {
    unsigned channel = 1;
    bool wrap = false;
};

using Reader = int (*)(char *, int);
constexpr Reader READERS[VELKOR_MESSAGE_SLOTS] = {get_msg0, get_msg1, get_msg2, get_msg3,
                                                  get_msg4, get_msg5, get_msg6, get_msg7};

// The library's own way, in this process: what is kept of these lines, and what is read back.
int try_channel(const ChannelOptions &options) {
    const auto buffer = std::make_unique<RtMsgBuf>();
    pthread_mutex_init(&buffer->lock, nullptr);
    RtMsgEx_sFlag(buffer.get(), 1, options.wrap ? 1 : 0);
    insert_global_pointer(options.channel - 1, buffer.get());
    g_iRtPrintEn = 1;
    size_t lines = 0;
    for (std::string line; std::getline(std::cin, line); ++lines) {
        rt_printf(options.channel, "%s", line.c_str());
    }
    std::string text(VELKOR_MESSAGE_TEXT_SIZE, '\0');
    const int code = READERS[options.channel - 1](text.data(), VELKOR_MESSAGE_TEXT_SIZE);
    insert_global_pointer(options.channel - 1, nullptr);
    if (code != 0) {
        throw Failure(NEGATIVE, "code " + std::to_string(code) + ": the buffer cannot be read");
    }
    text.resize(text.find('\0'));
    std::erase(text, '\r');
    std::cout << text;
    remark(counted(lines, "line") + " printed to channel " + std::to_string(options.channel) + ", " +
           std::to_string(text.size()) + " characters kept" + (RtMsgEx_gFlag(buffer.get(), 0) != 0 ? ", wrapped" : ""));
    return SUCCESS;
}

void add_channel(CLI::App &debug, Run &chosen) {
    const auto options = std::make_shared<ChannelOptions>();
    CLI::App &command =
        *debug.add_subcommand("channel", "Print standard input into a message buffer, and read that back");
    command.add_option("--channel", options->channel, "Channel, 1 to 8")
        ->type_name("N")
        ->check(CLI::Range(1U, 8U).description(""))
        ->capture_default_str();
    command.add_flag("--wrap", options->wrap, "Start again at the beginning when the 64 KiB are full");
    command.footer("Without --wrap lines that do not fit are dropped, as in a process.");
    command.callback([options, &chosen] { chosen = [options] { return try_channel(*options); }; });
}

}  // namespace

}  // namespace tool::debug

void tool::add_debug(CLI::App &velkor, Run &chosen) {
    CLI::App &family = *velkor.add_subcommand("debug", "The debug print channel: modes, live copy, message buffers");
    family.require_subcommand(1);
    debug::add_follow(family, chosen);
    debug::add_mode(family, chosen);
    debug::add_channel(family, chosen);
}

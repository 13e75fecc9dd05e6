// velkor du, velkor rm: the directory helpers.
#include <sys/stat.h>
#include <velkor/files.h>

#include <iostream>
#include <memory>

#include "command_line.h"
#include "exit_status.h"
#include "output.h"
#include "progress.h"
#include "removal_guard.h"

namespace tool::files {

namespace {

bool is_there(const std::string &path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

// ---- du ----

struct DuOptions {
    std::vector<std::string> paths;
    bool follow = false;
    char unit = 'h';
    bool json = false;
};

constexpr int FOLLOW = 1;
constexpr int IN_KIB = 0x200;
constexpr int IN_MIB = 0x400;
constexpr int IN_GIB = 0x800;

int flag_of(char unit) {
    switch (unit) {
        case 'm':
            return IN_MIB;
        case 'g':
            return IN_GIB;
        case 'b':
            return 0;
        default:
            return IN_KIB;
    }
}

// The library's numbers have 32 bits: two billion of the unit.
uint32_t measured(const DuOptions &options, const std::string &path) {
    const auto in = [&](int unit) {
        return static_cast<uint32_t>(du(path.c_str(), (options.follow ? FOLLOW : 0) | unit));
    };
    if (options.unit == 'b') {
        const uint64_t kib = in(IN_KIB);
        if (kib >= uint64_t{1} << 22) {
            throw Failure(NEGATIVE, path + " takes " + size_text(kib * 1024) +
                                        ": the library counts bytes up to 4 GiB, ask for --unit k");
        }
    }
    return in(flag_of(options.unit));
}

int show_usage(const DuOptions &options) {
    int status = SUCCESS;
    Json all = Json::array();
    for (const std::string &path : options.paths) {
        if (!is_there(path)) {
            remark("cannot examine " + path + ": " + meaning_of(errno));
            status = NEGATIVE;
            continue;
        }
        const uint32_t size = measured(options, path);
        if (options.json) {
            all.push_back(
                {{"path", path}, {"size", size}, {"unit", options.unit == 'h' ? "k" : std::string(1, options.unit)}});
        } else {
            std::cout << (options.unit == 'h' ? size_text(uint64_t{size} * 1024) : std::to_string(size)) << '\t' << path
                      << '\n';
        }
    }
    if (options.json) {
        print_json(all);
    }
    return status;
}

void add_du(CLI::App &velkor, Run &chosen) {
    const auto options = std::make_shared<DuOptions>();
    CLI::App &command = *velkor.add_subcommand("du", "Disk space taken by files and directories");
    add_words(command, "PATH", options->paths, "Files and directories")->required();
    command.add_flag("--follow", options->follow, "Measure what links point at");
    command.add_option("--unit", options->unit, "Count in b(ytes), k, m or g, rounded to the nearest")
        ->type_name("UNIT")
        ->check(CLI::IsMember({'b', 'k', 'm', 'g'}).description(""));
    add_json(command, options->json);
    command.footer("A file with several names counts once for each.\nStatus 1 when a path is not there.");
    command.callback([options, &chosen] { chosen = [options] { return show_usage(*options); }; });
}

// ---- rm ----

struct RmOptions {
    std::vector<std::string> paths;
    bool yes = false;
    bool mounts = false;
};

std::string description_of(const std::string &path) {
    const auto kib = static_cast<uint32_t>(du(path.c_str(), IN_KIB));
    return (is_dir(path.c_str()) != 0 ? "directory " : "file ") + path + ", " + size_text(uint64_t{kib} * 1024);
}

bool is_agreed(const std::string &path) {
    std::cerr << "remove " << description_of(path) << "? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "yes";
}

int remove_paths(const RmOptions &options) {
    refuse_what_nobody_means(options.paths, options.mounts ? Mounts::emptied : Mounts::refused);
    int status = SUCCESS;
    for (const std::string &path : options.paths) {
        if (!is_there(path)) {
            std::cout << path << " was not there\n";
        } else if (!options.yes && !is_agreed(path)) {
            remark(path + " stays");
            status = NEGATIVE;
        } else if (remove_file(path.c_str()) != 0) {
            remark("code -1: something of " + path + " could not be removed" +
                   (is_there(path) ? ", the rest of it is gone" : ""));
            status = NEGATIVE;
        }
    }
    return status;
}

void add_rm(CLI::App &velkor, Run &chosen) {
    const auto options = std::make_shared<RmOptions>();
    CLI::App &command = *velkor.add_subcommand("rm", "Remove files and whole directories");
    add_words(command, "PATH", options->paths, "Files and directories; links are removed, not what they point at")
        ->required();
    command.add_flag("--yes", options->yes, "Do not ask");
    command.add_flag("--mounts", options->mounts, "Also empty what is mounted there or below");
    command.footer(
        "Asks before each path. Refuses \"/\", \".\", \"..\", empty paths, the working directory and whatever holds "
        "it,\n"
        "and, without --mounts, places where something is mounted. Then nothing is removed at all.\n"
        "Status 1 when something stays.");
    command.callback([options, &chosen] { chosen = [options] { return remove_paths(*options); }; });
}

}  // namespace

}  // namespace tool::files

void tool::add_files(CLI::App &velkor, Run &chosen) {
    files::add_du(velkor, chosen);
    files::add_rm(velkor, chosen);
}

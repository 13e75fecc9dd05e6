// velkor sys: what the system does.
#include <unistd.h>
#include <velkor/process.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <memory>

#include "command_line.h"
#include "command_runner.h"
#include "exit_status.h"
#include "output.h"
#include "sys_commands.h"

namespace tool::sys {

namespace {

// ---- tasks ----

struct TaskOptions {
    std::string name;
    bool json = false;
};

[[noreturn]] void fail_search(int code) {
    switch (code) {
        case -10:
            throw Failure(BAD_USE, "error -10, a task name has 31 characters at most");
        case -11:
            throw Failure(BAD_USE, "error -11, the task name is empty");
        case -12:
            throw Failure(NEGATIVE,
                          "error -12, cannot make a temporary file: is there a directory /tmpfile? "
                          "(./dev sandbox has one)");
        default:
            throw Failure(NEGATIVE, "error " + std::to_string(code) + ", cannot read what was found");
    }
}

// Without this process and its runner: the name is in their arguments.
std::vector<int> find_tasks(const std::string &name) {
    const CommandRunner runner;
    std::array<int, VELKOR_TASK_IDS> ids = {};
    int count = 0;
    if (const int code = vk_FindRunningTask(name.c_str(), &count, ids.data()); code != 0) {
        fail_search(code);
    }
    std::vector<int> found(ids.begin(), ids.begin() + count);
    std::erase(found, getpid());
    std::erase(found, runner.process());
    return found;
}

int tasks(const TaskOptions &options) {
    const std::vector<int> found = find_tasks(options.name);
    if (options.json) {
        print_json({{"name", options.name}, {"pids", found}});
    } else {
        std::ranges::for_each(found, [](int id) { std::cout << id << '\n'; });
    }
    return found.empty() ? NEGATIVE : SUCCESS;
}

void add_tasks(CLI::App &sys, Run &chosen) {
    const auto options = std::make_shared<TaskOptions>();
    CLI::App &command = *sys.add_subcommand("tasks", "Process ids whose line of ps contains a name");
    command.add_option("NAME", options->name, "1 to 31 characters, for grep")->required()->option_text(" ");
    add_json(command, options->json);
    command.footer(
        "At most 16. Lines that contain \"sh\" or \"grep\" are left out; sshd is found. What ps shows by itself\n"
        "is what is searched: on a recorder all processes with their arguments, on a PC those of the\n"
        "terminal.\n"
        "Status 1 when there is none.");
    command.callback([options, &chosen] { chosen = [options] { return tasks(*options); }; });
}

// ---- swap ----

struct SwapState {
    int active = 0;
    int size = 0;
    int used = 0;
};

SwapState look_at_swap() {
    SwapState state;
    switch (const int code = swapmem_Check(&state.active, &state.size, &state.used); code) {
        case 0:
            return state;
        case -1:
            throw Failure(NEGATIVE, "error -1, cannot open /proc/swaps");
        default:
            throw Failure(NEGATIVE, "error " + std::to_string(code) + ", cannot understand /proc/swaps");
    }
}

int show_swap(bool json) {
    const SwapState state = look_at_swap();
    if (json) {
        print_json({{"active", state.active != 0}, {"size_kb", state.size}, {"used_kb", state.used}});
    } else if (state.active == 0) {
        std::cout << "no swap file is in use\n";
    } else {
        Table table;
        table.add("size", std::to_string(state.size) + " kB");
        table.add("used", std::to_string(state.used) + " kB");
        table.print();
    }
    return state.active != 0 ? SUCCESS : NEGATIVE;
}

int start_swap(int disk) {
    if (look_at_swap().active != 0) {
        throw Failure(NEGATIVE, "a swap file is in use already");
    }
    const CommandRunner runner;
    switch (const int code = swapmem_Start(disk); code) {
        case 0:
            return SUCCESS;
        case -3:
            throw Failure(NEGATIVE, "error -3, no disk is fit for it, or it is not mounted");
        default:
            throw Failure(NEGATIVE, "error " + std::to_string(code) + ", /dvr/swap_ctrl.sh start failed");
    }
}

// The library stops what its own process has started. What another one has is left to the script, run in the same way.
int stop_swap() {
    if (look_at_swap().active == 0) {
        throw Failure(NEGATIVE, "no swap file is in use");
    }
    const CommandRunner runner;
    if (run_command("/dvr/swap_ctrl.sh stop") != 0) {
        throw Failure(NEGATIVE, "/dvr/swap_ctrl.sh stop failed");
    }
    return SUCCESS;
}

void add_swap(CLI::App &sys, Run &chosen) {
    CLI::App &swap = *sys.add_subcommand("swap", "Start, check or stop swap on a recording disk");
    swap.require_subcommand(1);

    const auto disk = std::make_shared<int>(-1);
    CLI::App &start = *swap.add_subcommand("start", "Put a swap file on a disk, and use it");
    start.add_option("--disk", *disk, "Number of the disk; the first that is fit for it when not given")
        ->type_name("N")
        ->check(CLI::Range(0, VELKOR_SWAP_DISKS - 1).description(""));
    start.footer("The work is done by /dvr/swap_ctrl.sh. On a PC the disks are those of /dvrfile/velkor-host.ini.");
    start.callback([disk, &chosen] { chosen = [disk] { return start_swap(*disk); }; });

    const auto json = std::make_shared<bool>(false);
    CLI::App &check = *swap.add_subcommand("check", "Show the swap file in use");
    add_json(check, *json);
    check.footer("Status 1 when there is none.");
    check.callback([json, &chosen] { chosen = [json] { return show_swap(*json); }; });

    CLI::App &stop = *swap.add_subcommand("stop", "Take the swap file away again");
    stop.footer("The work is done by /dvr/swap_ctrl.sh; the recorder's channels go on meanwhile.");
    stop.callback([&chosen] { chosen = stop_swap; });
}

}  // namespace

}  // namespace tool::sys

void tool::add_sys(CLI::App &velkor, Run &chosen) {
    CLI::App &family = *velkor.add_subcommand("sys", "Processor, memory and flash; running tasks, swap");
    sys::add_statistics(family, chosen);
    sys::add_tasks(family, chosen);
    sys::add_swap(family, chosen);
}

#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/process.h>

#include <algorithm>
#include <cerrno>

#include "support/command_runner.h"
#include "support/export_table.h"
#include "support/place.h"

namespace exports {
namespace {

// The commands that the library runs are scripts. Disks and swap are what the host implementation reads in files.
void make_script(const std::string &path, const std::string &command) {
    place::write_file(path, "#!/bin/sh\n" + command + "\n");
    chmod(path.c_str(), 0755);
}

bool set_high_level(const char *megabytes) {
    place::write_file("/dvrfile/velkor-host.ini",
                      std::string("[disk 0]\npath = /tmp\n[swap]\nmax_size = 1\nhigh_level = ") + megabytes + "\n");
    return true;
}

struct Machine {
    Machine() {
        make_script("/dvr/swap_ctrl.sh", "exit 0");
        make_script("/tmp/ps", "echo ' 101 root recorder'; echo ' 102 root recorder'");
        make_script("/tmp/killall", "exit 0");
        setenv("PATH", (std::string("/tmp:") + getenv("PATH")).c_str(), 1);
        runner = std::make_unique<command_runner::Runner>();
    }

    place::BoundContent swaps{"/proc/swaps",
                              "Filename Type Size Used Priority\n/mnt/swapfile.dat file 65536 40000 -2\n"};
    std::unique_ptr<command_runner::Runner> runner;
};

std::shared_ptr<void> prepare() { return std::make_shared<Machine>(); }

// A signal may end a read: to go on is the reader's business.
std::string all_of(FILE *stream) {
    if (stream == nullptr) {
        return "no stream";
    }
    std::string text;
    char piece[64];
    ssize_t length;
    while ((length = read(fileno(stream), piece, sizeof piece)) > 0 || (length < 0 && errno == EINTR)) {
        text.append(piece, static_cast<size_t>(std::max<ssize_t>(length, 0)));
    }
    return text;
}

std::string read_from_runner() {
    FILE *const stream = VkPipeOpen("echo text", "r");
    const std::string text = all_of(stream);
    return text_of(text, VkPipeClose(stream));
}

std::string read_from_command() {
    FILE *const stream = vk_popen("echo text", "r");
    const std::string text = all_of(stream);
    return text_of(text, vk_pclose(stream));
}

std::string found_tasks() {
    int count = -1;
    int ids[VELKOR_TASK_IDS] = {};
    const int result = vk_FindRunningTask("recorder", &count, ids);
    return text_of(result, count, ids[0], ids[1]);
}

// In a directory of the process's own, and so with an area of its own.
std::string started_and_ended() {
    static FirstTime is_first;
    if (is_first()) {
        command_runner::enter_directory();
        VkSystemUninit();
    }
    const pid_t runner = VkSystemInit();
    VkSystemUninit();
    if (runner > 0) {
        kill(runner, SIGKILL);
        waitpid(runner, nullptr, 0);
    }
    return text_of(runner > 0);
}

std::string looked_at_swap() {
    int active = -1;
    int size = -1;
    int used = -1;
    const int result = swapmem_Check(&active, &size, &used);
    return text_of(result, active, size, used);
}

std::string swapped(const char *high_level) {
    static const bool is_set = set_high_level(high_level);
    const int started = swapmem_Start(0);
    return text_of(is_set, started, swapmem_Stop(0));
}

constexpr const char *ONE_SWAP = "starting and stopping are done one after the other: swap may be another thread's";

constexpr Row ROWS[] = {
    {"VkSystem", [] { return text_of(VkSystem("exit 3")); }},
    {"VkPipeOpen VkPipeClose", read_from_runner},
    {"VkSystemInit VkSystemUninit", started_and_ended, sharing("a second call tears the area down, and fails")},
    {"vk_popen vk_pclose", read_from_command},

    {"vk_FindRunningTask", found_tasks},
    {"vk_FindRunningTask (of NULL, which is reported)",
     [] { return text_of(vk_FindRunningTask(nullptr, nullptr, nullptr)); }},

    {"swapmem_Check", looked_at_swap},
    {"swapmem_Start swapmem_Stop", [] { return swapped("64"); }, sharing(ONE_SWAP)},
    {"swapmem_Stop (of swap in heavy use)",
     [] { return swapped("1"); },
     {.threads = Threads::IN_TURNS, .lasts_ms = 2000, .reason = ONE_SWAP}},
};

}  // namespace

const Group PROCESS = {ROWS, prepare};

}  // namespace exports

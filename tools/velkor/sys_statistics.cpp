// velkor sys: processor, memory and flash, and the memory of processes.
#include <unistd.h>
#include <velkor/system_info.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>

#include "exit_status.h"
#include "interruption.h"
#include "output.h"
#include "progress.h"
#include "sys_commands.h"

namespace tool::sys {

namespace {

struct StatisticsOptions {
    std::vector<int> processes;
    unsigned count = 0;  // 0: until stopped
    bool watch = false;
    bool json = false;
};

struct ProcessMemory {
    int process;
    bool is_there;
    uint32_t kib;
};

struct Statistics {
    double busy = 0;
    double idle = 0;
    double iowait = 0;
    bool has_timer = false;
    std::optional<uint32_t> idle_since_last;  // not while watching
    double memory = 0;
    uint32_t memory_total = 0;
    uint32_t memory_free = 0;
    double flash = 0;
    std::vector<ProcessMemory> processes;
};

std::vector<ProcessMemory> memory_of(const std::vector<int> &processes) {
    std::vector<ProcessMemory> result;
    for (const int process : processes) {
        uint32_t record[8] = {};
        const bool is_there = GetProcRss(process, record) == 0;
        result.push_back({process, is_there, record[7]});
    }
    return result;
}

// Takes a second: the time in which the processor is measured.
Statistics measure(const StatisticsOptions &options) {
    Statistics now;
    uint32_t idle = 0;
    if (!options.watch) {
        GetCpuIdle(nullptr);
    }
    GetCpuTimer();
    CalCPUDataTimer();
    GetCpuTimer();
    now.busy = GetCpuInfo();
    now.has_timer = GetCpuInfoNew(&now.idle, &now.iowait) == 0;
    // Each of its samples costs a descriptor for good. A watch of a quarter of an hour would end for lack of them.
    if (!options.watch && GetCpuIdle(&idle) == 0) {
        now.idle_since_last = idle;
    }
    now.memory = GetMemInfo(&now.memory_total, &now.memory_free);
    now.flash = GetFlashInfo();
    now.processes = memory_of(options.processes);
    return now;
}

// Not what could not be read (-1), nor a share of nothing (no number, or infinity).
bool is_known(double percent) { return std::isfinite(percent) && percent >= 0; }

// ---- For programs ----

Json percent_json(double percent) { return is_known(percent) ? Json(percent) : Json(nullptr); }

Json in_json(const Statistics &now) {
    Json processes = Json::array();
    for (const ProcessMemory &process : now.processes) {
        processes.push_back(
            {{"process", process.process}, {"resident_kib", process.is_there ? Json(process.kib) : Json(nullptr)}});
    }
    Json cpu = {{"busy", percent_json(now.busy)}};
    if (now.has_timer) {
        cpu["timer"] = {{"idle", now.idle}, {"iowait", now.iowait}};
    }
    if (now.idle_since_last) {
        cpu["idle"] = *now.idle_since_last;
    }
    return {{"cpu", cpu},
            {"memory",
             {{"used", percent_json(now.memory)}, {"total_kib", now.memory_total}, {"free_kib", now.memory_free}}},
            {"flash", {{"used", percent_json(now.flash)}}},
            {"processes", processes}};
}

// ---- For people ----

std::string percent_text(double percent) {
    if (!is_known(percent)) {
        return "unknown";
    }
    char text[32];
    snprintf(text, sizeof text, "%5.1f %%", percent);
    return text;
}

std::string coloured_bar(double percent, const Palette &palette) {
    constexpr unsigned WIDTH = 30;
    const std::string drawn = bar(percent / 100, WIDTH);
    if (percent >= 90) {
        return palette.red(drawn);
    }
    return percent >= 70 ? palette.bold(drawn) : palette.green(drawn);
}

std::string gauge(double percent, const Palette &palette) {
    return coloured_bar(percent, palette) + " " + percent_text(percent);
}

Table table_of(const Statistics &now, const Palette &palette) {
    Table table;
    table.add("cpu", gauge(now.busy, palette) + " busy in the last second");
    if (now.has_timer) {
        table.add("cpu timer",
                  gauge(100 - now.idle, palette) + " not idle, " + percent_text(now.iowait) + " waiting for disks");
    }
    if (now.idle_since_last) {
        table.add("cpu idle", gauge(100 - *now.idle_since_last, palette) + " not idle since the call before");
    }
    table.add("memory",
              gauge(now.memory, palette) + " of " + size_text(uint64_t{now.memory_total} * 1024) + ", caches included");
    table.add("flash", gauge(now.flash, palette) + " of the root file system");
    for (const ProcessMemory &process : now.processes) {
        table.add("process " + std::to_string(process.process),
                  process.is_there ? size_text(uint64_t{process.kib} * 1024) + " resident" : "is not there");
    }
    return table;
}

void show(const Statistics &now, const StatisticsOptions &options, const Palette &palette) {
    if (options.json) {
        std::cout << json_text(in_json(now), options.watch ? -1 : 2) << '\n';
        return;
    }
    if (options.watch && isatty(STDOUT_FILENO) == 1) {
        std::cout << "\033[H\033[J";
    }
    table_of(now, palette).print();
    if (options.watch && isatty(STDOUT_FILENO) != 1) {
        std::cout << '\n';
    }
}

// Whether somebody stops the command. A signal that came during a measurement is only seen by who waits.
bool is_stopped(const Interruption &interruption) {
    const Descriptor moment = ticks_every(1);
    struct pollfd waiting = {moment.get(), POLLIN, 0};
    interruption.wait({&waiting, 1});
    return Interruption::came();
}

void watch(const StatisticsOptions &options, const Palette &palette) {
    const Interruption interruption;
    for (unsigned shown = 0; !is_stopped(interruption) && (options.count == 0 || shown < options.count); ++shown) {
        show(measure(options), options, palette);
        if (!std::cout.flush()) {
            return;  // the reader is gone
        }
    }
}

int show_statistics(const StatisticsOptions &options) {
    const Palette palette(is_coloured("auto", STDOUT_FILENO));
    SwitchCpuTimer(1);
    if (options.watch) {
        watch(options, palette);
        return SUCCESS;
    }
    const Statistics now = measure(options);
    show(now, options, palette);
    const bool all_there = std::ranges::all_of(now.processes, &ProcessMemory::is_there);
    const bool all_known = is_known(now.busy) && is_known(now.memory) && is_known(now.flash);
    return all_there && all_known ? SUCCESS : NEGATIVE;
}

}  // namespace

void add_statistics(CLI::App &sys, Run &chosen) {
    const auto options = std::make_shared<StatisticsOptions>();
    sys.add_option("--process", options->processes, "Show the resident memory of a process, too")->type_name("ID");
    sys.add_flag("--watch", options->watch, "Show it again every second, until stopped");
    sys.add_option("--count", options->count, "Stop watching after so many times")->type_name("N");
    add_json(sys, options->json, "Print JSON, for programs; with --watch an object a line");
    sys.footer(
        "The processor is measured by the library's three ways, over the same second: \"cpu\" leaves waiting\n"
        "for disks out, the other two count it as idle or apart. \"cpu idle\" is left out of --watch: the\n"
        "library keeps a descriptor for each of its samples.\n"
        "What cannot be read is \"unknown\", and so is a share of nothing: of a total of 0, of counters that\n"
        "stand still. In JSON it is null. Status 1 when there is one, or a process is not there.");
    sys.callback([&sys, options, &chosen] {
        if (sys.get_subcommands().empty()) {
            chosen = [options] { return show_statistics(*options); };
        }
    });
}

}  // namespace tool::sys

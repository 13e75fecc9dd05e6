#include "load.h"

#include <unistd.h>
#include <velkor/system_info.h>

#include <cmath>
#include <cstdio>
#include <fstream>

#include "text.h"

namespace recorder {

namespace {

constexpr unsigned BAR = 8;

bool is_percentage(double value) { return value >= 0 && value <= 100; }

// What has no size has no share that is taken: the root file system of a container may have no blocks.
bool is_share(double value) { return is_percentage(value) || std::isnan(value); }

std::string percent_text(double value) { return std::isfinite(value) ? format("%.1f %%", value) : "unknown"; }

// As the kernel says: the first line of /proc/meminfo.
unsigned memory_of_the_machine() {
    std::ifstream file("/proc/meminfo");
    std::string word;
    unsigned kib = 0;
    file >> word >> kib;
    return kib;
}

}  // namespace

void Load::prepare() {
    SwitchCpuTimer(1);
    GetCpuTimer();
    ++samples_;
    expect(samples_by_timer_.start(), "the timer of the samples starts");
}

// On the timer thread.
void Load::sample() {
    GetCpuTimer();
    ++samples_;
}

void Load::turn() {
    double idle = 0;
    if (GetCpuInfoNew(&idle, nullptr) == 0) {
        expect(is_percentage(idle), "the processor's idle share is a percentage");
        busy_ = 100 - idle;
    }
    uint32_t total = 0;
    memory_ = GetMemInfo(&total, nullptr);
    expect(is_share(memory_) && total == memory_of_the_machine(), "the memory is what the kernel says");
    flash_ = GetFlashInfo();
    expect(is_share(flash_), "the flash's share is a percentage");
    uint32_t record[8] = {};
    expect(GetProcRss(getpid(), record) == 0 && record[7] > 0, "this process's memory is told");
    resident_kib_ = record[7];
    ++looks_;
}

void Load::conclude() {
    expect(samples_by_timer_.end(), "the timer of the samples is deleted");
    SwitchCpuTimer(0);
    expect(looks_ > 0, "the load is looked at");
}

Panel Load::panel() const {
    return {format("cpu    %s %5.1f %%", bar(busy_ / 100, BAR).c_str(), busy_.load()),
            format("memory %s %7s, own %.1f MiB", bar(memory_ / 100, BAR).c_str(), percent_text(memory_).c_str(),
                   resident_kib_ / 1024.0)};
}

std::string Load::tally() const { return format("%u samples", samples_.load()); }

std::string Load::summary() const {
    return format("%u samples by the timer; cpu %.1f %%, memory %s, flash %s, this process %.1f MiB", samples_.load(),
                  busy_.load(), percent_text(memory_).c_str(), percent_text(flash_).c_str(), resident_kib_ / 1024.0);
}

}  // namespace recorder

#include <sys/socket.h>
#include <unistd.h>
#include <velkor/system_info.h>

#include "support/export_table.h"
#include "support/place.h"
#include "support/second_host.h"

namespace exports {
namespace {

struct Machine {
    place::BoundContent load{"/proc/stat", "cpu  100 2 30 4000 50 6 7 8 9 10\ncpu0 100 2 30 4000 50 6 7 8 9 10\n"};
    place::BoundContent memory{"/proc/meminfo",
                               "MemTotal:  2000 kB\nMemFree:  500 kB\nMemAvailable:  900 kB\nBuffers:  20 kB\n"
                               "Cached:  300 kB\n"};
    SecondHost host{"eth0", "10.7.0.1/24", "10.7.0.2/24"};
};

std::shared_ptr<void> prepare() { return std::make_shared<Machine>(); }

template <size_t COUNT>
std::string words_of(const uint32_t (&words)[COUNT]) {
    std::string text;
    for (const uint32_t word : words) {
        text += text_of(word);
    }
    return text;
}

bool is_percentage(double value) { return value >= 0 && value <= 100; }

std::string memory_in_words() {
    uint32_t words[VELKOR_MEMORY_WORDS] = {};
    const double percentage = GetMemInfoV2(words);
    return text_of(percentage, words_of(words));
}

std::string memory() {
    uint32_t words[2] = {};
    const double percentage = GetMemInfo(&words[0], &words[1]);
    return text_of(percentage, words_of(words));
}

// The disk fills up while the storm goes on.
std::string system_in_percent() {
    double cpu = -1;
    double memory = -1;
    double flash = -1;
    GetSystemInfo(&cpu, &memory, &flash);
    return text_of(cpu, memory, is_percentage(flash));
}

std::string own_size() {
    uint32_t record[8] = {};
    const int result = GetProcRss(getpid(), record);
    return text_of(result, record[7] > 0);
}

std::string counters() {
    uint32_t words[VELKOR_CPU_WORDS] = {};
    const int result = GetCpuData(words);
    return text_of(result, words_of(words));
}

std::string sampled() {
    velkor_cpu_counters sample = {};
    const int result = _GetCpuStats(&sample);
    return text_of(result, sample.user, sample.idle, sample.guest_nice);
}

std::string load_by_timer() {
    static FirstTime is_first;
    if (is_first()) {
        SwitchCpuTimer(1);
        GetCpuTimer();
    }
    double idle = -1;
    double iowait = -1;
    const int result = GetCpuInfoNew(&idle, &iowait);
    return text_of(result, idle, iowait);
}

std::string ticked() {
    SwitchCpuTimer(1);
    GetCpuTimer();
    return text_of(GetCpuTimerSwitchState());
}

// In the same second as the last sample nothing is written.
std::string idle_since_last_time() {
    uint32_t idle = 0;
    const int result = GetCpuIdle(&idle);
    return text_of(result, idle <= 100);
}

std::string link_by_driver() {
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int result = detect_ethtool(any, "eth0");
    close(any);
    return text_of(result);
}

// A virtual interface has no transceiver: the socket is closed.
std::string link_by_transceiver() { return text_of(detect_mii(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "eth0")); }

constexpr Row ROWS[] = {
    {"GetMemInfoV2", memory_in_words},
    {"GetMemInfo", memory},
    {"GetFlashInfo", [] { return text_of(is_percentage(GetFlashInfo())); }},
    {"GetSystemInfo", system_in_percent},
    {"GetProcRss", own_size},
    {"skip_whitespace", [] { return text_of(skip_whitespace(" \t text")); }, PLAIN},

    {"GetCpuData", counters},
    {"CalCPUDataTimer", [] { return text_of(CalCPUDataTimer()); }, lasting(1000)},
    {"GetCpuInfo", [] { return text_of(GetCpuInfo()); }, PLAIN},

    {"_GetCpuStats", sampled},
    {"GetCpuTimer", ticked, in_turns("for a periodic timer: one thread at a time")},
    {"SwitchCpuTimer", [] { return text_of(SwitchCpuTimer(1)); }},
    {"GetCpuTimerSwitchState", [] { return text_of(GetCpuTimerSwitchState()); }, PLAIN},
    {"GetCpuInfoNew", load_by_timer},
    {"GetCpuIdle", idle_since_last_time},

    {"DetectEth0", [] { return text_of(DetectEth0(0)); },
     sharing("a descriptor that another thread opens between the two closings is closed instead")},
    {"DetectEth0Ex", [] { return text_of(DetectEth0Ex()); }},
    {"detect_ethtool", link_by_driver},
    {"detect_mii", link_by_transceiver},
};

}  // namespace

const Group SYSTEM_INFO = {ROWS, prepare};

}  // namespace exports

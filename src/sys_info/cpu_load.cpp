// The processor's load, in three ways that keep their own state: a sample of one second, two samples driven by a
// caller's timer, and the difference to the last time.
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <atomic>

#include <velkor/calendar.h>
#include <velkor/system_info.h>

#include "support/log.h"
#include "support/open_file.h"
#include "support/owners.h"
#include "support/pause.h"
#include "support/racing_bytes.h"

double g_dCpuUsage = 0;
velkor_cpu_timer g_stCpuInfo = {};

namespace {

FILE *open_counters_file() { return velkor::open_file_stream("/proc/stat", O_RDONLY, "r"); }

struct FirstBytes {
    char text[256];
};

// The head of the counters' file; what fails is said on standard error.
bool read_counters_file(FirstBytes &head) {
    const velkor::OwnedStream file(open_counters_file());
    if (!file) {
        perror("fopen");
        return false;
    }
    const size_t length = fread(head.text, 1, sizeof head.text - 1, file.get());
    if (length <= 4) {
        perror("fread");
        return false;
    }
    head.text[length] = '\0';
    return true;
}

// Records that a timer's thread writes and others read; the exported ones are plain words to everybody else.
template <typename Record>
Record load_shared(const Record &from) {
    Record copy;
    velkor::load_racing(reinterpret_cast<char *>(&copy), reinterpret_cast<const char *>(&from), sizeof copy);
    return copy;
}

template <typename Record>
void store_shared(Record &to, const Record &value) {
    velkor::store_racing(reinterpret_cast<char *>(&to), reinterpret_cast<const char *>(&value), sizeof value);
}

}  // namespace

// ---- A sample of one second ---------------------------------------------------------------------------------------

int GetCpuData(uint32_t *out) {
    FirstBytes head;
    if (out == nullptr || !read_counters_file(head)) {
        return -1;
    }
    // The low words on every platform: what a scan of 32-bit numbers makes of larger ones differs between C libraries.
    unsigned long long words[VELKOR_CPU_WORDS] = {};
    (void)sscanf(head.text, "cpu %llu %llu %llu %llu %llu %llu %llu", &words[0], &words[1], &words[2], &words[3],
                 &words[4], &words[5], &words[6]);
    std::transform(words, words + VELKOR_CPU_WORDS, out, [](auto word) { return static_cast<uint32_t>(word); });
    return 0;
}

namespace {

enum CounterIndex { USER, NICE, SYSTEM, IDLE };

// Divides whatever has passed: nothing by nothing is no number.
double busy_percent(const uint32_t (&before)[VELKOR_CPU_WORDS], const uint32_t (&after)[VELKOR_CPU_WORDS]) {
    const auto passed = [&](CounterIndex counter) { return static_cast<double>(after[counter] - before[counter]); };
    const double busy = passed(USER) + passed(NICE) + passed(SYSTEM);
    return busy * 100.0 / (busy + passed(IDLE));
}

}  // namespace

// Counters that could not be read are zeros, and the result is computed all the same.
int CalCPUDataTimer() {
    uint32_t before[VELKOR_CPU_WORDS] = {};
    uint32_t after[VELKOR_CPU_WORDS] = {};
    GetCpuData(before);
    velkor::pause_for_us(1000000);
    const int result = GetCpuData(after);
    store_shared(g_dCpuUsage, busy_percent(before, after));
    return result;
}

double GetCpuInfo() { return load_shared(g_dCpuUsage); }

// ---- Two samples, driven by a timer -------------------------------------------------------------------------------

int _GetCpuStats(velkor_cpu_counters *sample) {
    FirstBytes head;
    if (sample == nullptr || !read_counters_file(head)) {
        return 0;
    }
    unsigned long long fields[10] = {};
    (void)sscanf(head.text, "cpu  %llu %llu %llu %llu %llu %llu %llu %llu %llu %llu", &fields[0], &fields[1],
                 &fields[2], &fields[3], &fields[4], &fields[5], &fields[6], &fields[7], &fields[8], &fields[9]);
    *sample = {.user = fields[0],
               .nice = fields[1],
               .system = fields[2],
               .idle = fields[3],
               .iowait = fields[4],
               .steal = fields[7],
               .irq = fields[5],
               .softirq = fields[6],
               .guest = fields[8],
               .guest_nice = fields[9]};
    return 0;
}

void GetCpuTimer() {
    if (GetCpuTimerSwitchState() == 0) {
        return;
    }
    const int32_t next = __atomic_load_n(&g_stCpuInfo.next, __ATOMIC_RELAXED);
    velkor_cpu_counters &slot = g_stCpuInfo.samples[next != 0 ? 0 : 1];
    velkor_cpu_counters sample = load_shared(slot);
    _GetCpuStats(&sample);
    store_shared(slot, sample);
    __atomic_store_n(&g_stCpuInfo.next, next != 0 ? 0 : 1, __ATOMIC_RELAXED);
}

int SwitchCpuTimer(int on) {
    store_shared(g_stCpuInfo, velkor_cpu_timer{});
    __atomic_store_n(&g_stCpuInfo.on, on, __ATOMIC_RELAXED);
    return 0;
}

int GetCpuTimerSwitchState() { return __atomic_load_n(&g_stCpuInfo.on, __ATOMIC_RELAXED); }

namespace {

uint64_t total_of(const velkor_cpu_counters &sample) {
    return sample.user + sample.nice + sample.system + sample.idle + sample.iowait + sample.steal + sample.irq +
           sample.softirq + sample.guest + sample.guest_nice;
}

}  // namespace

int GetCpuInfoNew(double *idle, double *iowait) {
    const velkor_cpu_counters first = load_shared(g_stCpuInfo.samples[0]);
    const velkor_cpu_counters second = load_shared(g_stCpuInfo.samples[1]);
    const uint64_t first_total = total_of(first);
    const uint64_t second_total = total_of(second);
    if (first_total == second_total) {
        return -1;
    }
    const bool second_is_newer = first_total < second_total;
    const velkor_cpu_counters &older = second_is_newer ? first : second;
    const velkor_cpu_counters &newer = second_is_newer ? second : first;
    const auto passed = static_cast<double>(second_is_newer ? second_total - first_total : first_total - second_total);
    if (idle != nullptr) {
        *idle = static_cast<double>(newer.idle - older.idle) / passed * 100.0;
    }
    if (iowait != nullptr) {
        *iowait = static_cast<double>(newer.iowait - older.iowait) / passed * 100.0;
    }
    return 0;
}

// ---- Since the last time ------------------------------------------------------------------------------------------

namespace {

std::atomic<int> last_uptime{0};

// The low words are all that the percentage is made of.
std::atomic<uint32_t> last_idle{0};
std::atomic<uint32_t> last_total{0};

struct IdleSample {
    uint32_t idle;
    uint32_t total;
};

// Answers the scan's result. A line of another processor's, or of another file, leaves zeros.
int scan_first_line(const char *line, IdleSample &sample) {
    if (line[0] != 'c') {
        return 0;
    }
    unsigned long long user = 0;
    unsigned long long nice = 0;
    unsigned long long system = 0;
    unsigned long long idle = 0;
    unsigned long long iowait = 0;
    unsigned long long irq = 0;
    unsigned long long softirq = 0;
    unsigned long long steal = 0;
    const int fields = sscanf(line, "cpu %llu %llu %llu %llu %llu %llu %llu %llu", &user, &nice, &system, &idle,
                              &iowait, &irq, &softirq, &steal);
    sample.idle = static_cast<uint32_t>(idle);
    if (fields > 3) {
        sample.total = static_cast<uint32_t>(user + nice + system + idle + iowait + irq + softirq + steal);
    }
    return fields;
}

// In 32 bits, as they are: also the product wraps. Totals that differ by a multiple of 2^32 look like equal ones.
uint32_t idle_percent(uint32_t idle_passed, uint32_t total_passed) {
    const uint32_t divisor = total_passed != 0 ? total_passed : 1;
    return std::min<uint32_t>(idle_passed * 100 / divisor, 100);
}

}  // namespace

int GetCpuIdle(uint32_t *idle) {
    const int uptime = get_uptime();
    if (last_uptime.exchange(uptime, std::memory_order_relaxed) == uptime) {
        return 0;
    }
    // The stream stays open for good: see the header.
    FILE *const file = open_counters_file();
    if (file == nullptr) {
        VK_LOG("[%s:%d]-open /proc/stat error. errno=%d\n", "GetCpuIdle", __LINE__, errno);
        return 0;
    }
    char line[512] = "";
    if (fgets(line, sizeof line, file) == nullptr) {
        line[0] = '\0';
    }
    IdleSample sample = {};
    const int fields = scan_first_line(line, sample);
    if (fields == -1) {
        VK_LOG("[%s:%d]-iRet=%d errno=%d\n", "GetCpuIdle", __LINE__, fields, errno);
        return fields;
    }
    const uint32_t idle_passed = sample.idle - last_idle.exchange(sample.idle, std::memory_order_relaxed);
    const uint32_t total_passed = sample.total - last_total.exchange(sample.total, std::memory_order_relaxed);
    if (idle != nullptr) {
        *idle = idle_percent(idle_passed, total_passed);
    }
    return 0;
}

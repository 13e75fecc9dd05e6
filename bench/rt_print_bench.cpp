// What a debug line and a reading of the statistics cost their caller.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>
#include <velkor/system_info.h>

#include <cstdio>
#include <memory>

namespace {

// ---- A debug line ----

void print_by_library(benchmark::State &state) {
    const auto buffer = std::make_unique<RtMsgBuf>();
    pthread_mutex_init(&buffer->lock, nullptr);
    RtMsgEx_sFlag(buffer.get(), 1, 1);
    insert_global_pointer(0, buffer.get());
    g_iRtPrintEn = 1;
    for ([[maybe_unused]] auto _ : state) {
        rt_printf(1, "channel %d state %s frames %u", 3, "recording", 1234567U);
    }
    insert_global_pointer(0, nullptr);
}
BENCHMARK(print_by_library);

constexpr size_t LINE_SIZE = 4096;

// A ring of lines of 4096 bytes, each copied whole under a lock, as it would be written first.
class PlainRing {
public:
    PlainRing() : lines_(std::make_unique<char[]>(LINE_SIZE * 16)) {}

    void put(const char (&line)[LINE_SIZE]) {
        pthread_mutex_lock(&lock_);
        memcpy(&lines_[next_ * LINE_SIZE], line, LINE_SIZE);
        next_ = (next_ + 1) % 16;
        pthread_mutex_unlock(&lock_);
    }

private:
    pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER;
    size_t next_ = 0;
    std::unique_ptr<char[]> lines_;
};

// The message alone: no stamp, no thread id.
void print_message_plainly(benchmark::State &state) {
    PlainRing ring;
    char line[LINE_SIZE];
    for ([[maybe_unused]] auto _ : state) {
        snprintf(line, sizeof line, "channel %d state %s frames %u\r\n", 3, "recording", 1234567U);
        ring.put(line);
    }
}
BENCHMARK(print_message_plainly);

void print_line_plainly(benchmark::State &state) {
    PlainRing ring;
    char line[LINE_SIZE];
    for ([[maybe_unused]] auto _ : state) {
        const time_t now = time(nullptr);
        struct tm local;
        localtime_r(&now, &local);
        snprintf(line, sizeof line, "[%04d/%02d/%02d %02d:%02d:%02d %ld]channel %d state %s frames %u\r\n",
                 local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                 syscall(SYS_gettid), 3, "recording", 1234567U);
        ring.put(line);
    }
}
BENCHMARK(print_line_plainly);

// ---- Statistics ----

template <typename Read>
void read_statistics(benchmark::State &state, Read read) {
    for ([[maybe_unused]] auto _ : state) {
        read();
    }
}
BENCHMARK_CAPTURE(read_statistics, GetMemInfo, [] { benchmark::DoNotOptimize(GetMemInfo(nullptr, nullptr)); });
BENCHMARK_CAPTURE(read_statistics, GetCpuData, [] {
    uint32_t words[VELKOR_CPU_WORDS];
    benchmark::DoNotOptimize(GetCpuData(words));
});
BENCHMARK_CAPTURE(read_statistics, GetCpuTimer, [] {
    if (GetCpuTimerSwitchState() == 0) {
        SwitchCpuTimer(1);
    }
    GetCpuTimer();
});
BENCHMARK_CAPTURE(read_statistics, GetCpuInfoNew, [] { benchmark::DoNotOptimize(GetCpuInfoNew(nullptr, nullptr)); });
BENCHMARK_CAPTURE(read_statistics, GetFlashInfo, [] { benchmark::DoNotOptimize(GetFlashInfo()); });
BENCHMARK_CAPTURE(read_statistics, GetProcRss, [] {
    uint32_t record[8] = {};
    benchmark::DoNotOptimize(GetProcRss(getpid(), record));
});

}  // namespace

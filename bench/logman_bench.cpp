// What a log line costs its caller: through this library, and through what people would use instead. Every peer does
// the same work for a line: local time to the second, thread id, module, a message of three arguments.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/async.h>
#include <spdlog/sinks/null_sink.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <velkor/diagnostics.h>

#define G_LOG_USE_STRUCTURED
#include <glib.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

constexpr const char *SWITCH_FILE = "/dvrfile/logman";
constexpr const char *TERMINAL = "/tmp/tty.logman";

void write_file(const char *path, const char *content) {
    FILE *const file = fopen(path, "w");
    if (file == nullptr) {
        perror(path);
        exit(1);
    }
    fputs(content, file);
    fclose(file);
}

// On, off, and waiting until the process has noticed.
void switch_log(const char *content) {
    unlink(SWITCH_FILE);
    while (vk_GetLogmanEnable() != 0) {
        usleep(1000);
    }
    if (content != nullptr) {
        write_file("/dvrfile/logman.new", content);
        rename("/dvrfile/logman.new", SWITCH_FILE);  // complete from the moment it is there
        while (vk_GetLogmanEnable() == 0) {
            usleep(1000);
        }
    }
}

void start_log_once() {
    static bool started = false;
    if (!started) {
        write_file(TERMINAL, "");
        logman_init();
        started = true;
    }
}

// ---- An accepted line ----

void velkor_line(benchmark::State &state) {
    if (state.thread_index() == 0) {
        start_log_once();
        switch_log("dbgprint=1\n");
    }
    int line = 0;
    for (auto _ : state) {
        if (vk_GetLogmanEnable() != 0) {
            vk_printftomem(0, "encoder", 0, "%s %d channel=%d", "encode_frame", 172, ++line);
        }
    }
}

void velkor_line_filtered(benchmark::State &state) {
    if (state.thread_index() == 0) {
        start_log_once();
        switch_log("dbgprint=1\nfilter=decoder\nfilter=encoder\ninvert=secret\n");
    }
    int line = 0;
    for (auto _ : state) {
        if (vk_GetLogmanEnable() != 0) {
            vk_printftomem(0, "encoder", 0, "%s %d channel=%d", "encode_frame", 172, ++line);
        }
    }
}

// The queue is as long as the ring, and drops the oldest as the ring does.
void spdlog_async_line(benchmark::State &state) {
    static std::shared_ptr<spdlog::details::thread_pool> pool;
    static std::shared_ptr<spdlog::async_logger> logger;
    if (state.thread_index() == 0 && !logger) {
        pool = std::make_shared<spdlog::details::thread_pool>(512, 1);
        logger = std::make_shared<spdlog::async_logger>("encoder", std::make_shared<spdlog::sinks::null_sink_mt>(),
                                                        pool, spdlog::async_overflow_policy::overrun_oldest);
        logger->set_pattern("[%Y/%m/%d %H:%M:%S] [%t %n]%v");
    }
    int line = 0;
    for (auto _ : state) {
        logger->info("{} {} channel={}", "encode_frame", 172, ++line);
    }
}

// Twice: a writer that drops the fields as they are, and one that makes the line that GLib's own writers make of them,
// which is the work that the others do.
GLogWriterOutput drop_fields(GLogLevelFlags, const GLogField *, gsize, gpointer) { return G_LOG_WRITER_HANDLED; }

GLogWriterOutput drop_line(GLogLevelFlags level, const GLogField *fields, gsize count, gpointer) {
    gchar *const line = g_log_writer_format_fields(level, fields, count, FALSE);
    benchmark::DoNotOptimize(line);
    g_free(line);
    return G_LOG_WRITER_HANDLED;
}

std::atomic<bool> glib_makes_lines{false};

// GLib takes a writer once for the life of the process.
GLogWriterOutput into_nothing(GLogLevelFlags level, const GLogField *fields, gsize count, gpointer data) {
    return glib_makes_lines ? drop_line(level, fields, count, data) : drop_fields(level, fields, count, data);
}

void glib_structured(benchmark::State &state, bool makes_lines) {
    if (state.thread_index() == 0) {
        static const bool set = (g_log_set_writer_func(into_nothing, nullptr, nullptr), true);
        benchmark::DoNotOptimize(set);
        glib_makes_lines = makes_lines;
    }
    int line = 0;
    for (auto _ : state) {
        g_log_structured("encoder", G_LOG_LEVEL_MESSAGE, "MESSAGE", "%s %d channel=%d", "encode_frame", 172, ++line);
    }
}

void glib_structured_fields(benchmark::State &state) { glib_structured(state, false); }
void glib_structured_line(benchmark::State &state) { glib_structured(state, true); }

void plain_line(benchmark::State &state) {
    static int descriptor = -1;
    if (state.thread_index() == 0 && descriptor < 0) {
        descriptor = open("/tmp/plain.log", O_WRONLY | O_CREAT | O_TRUNC, 0666);
    }
    int line = 0;
    for (auto _ : state) {
        const time_t now = time(nullptr);
        struct tm local;
        localtime_r(&now, &local);
        char text[1024];
        const int length =
            snprintf(text, sizeof text, "[%04d/%02d/%02d %02d:%02d:%02d] [%ld %s]%s %d channel=%d\n",
                     local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                     static_cast<long>(syscall(SYS_gettid)), "encoder", "encode_frame", 172, ++line);
        benchmark::DoNotOptimize(pwrite(descriptor, text, static_cast<size_t>(length), 0));
    }
}

// ---- A line of a process whose log is off ----

void velkor_line_disabled(benchmark::State &state) {
    if (state.thread_index() == 0) {
        start_log_once();
        switch_log(nullptr);
    }
    int line = 0;
    for (auto _ : state) {
        if (vk_GetLogmanEnable() != 0) {
            vk_printftomem(0, "encoder", 0, "%s %d channel=%d", "encode_frame", 172, ++line);
        }
        benchmark::ClobberMemory();
    }
}

void spdlog_line_disabled(benchmark::State &state) {
    static std::shared_ptr<spdlog::logger> logger =
        std::make_shared<spdlog::logger>("off", std::make_shared<spdlog::sinks::null_sink_mt>());
    logger->set_level(spdlog::level::off);
    int line = 0;
    for (auto _ : state) {
        logger->info("{} {} channel={}", "encode_frame", 172, ++line);
        benchmark::ClobberMemory();
    }
}

// ---- The draining thread of an idle process ----

// One iteration is a second in which the process does nothing else: its time on the processor is the drain's.
void idle_second(benchmark::State &state, const char *content) {
    start_log_once();
    switch_log(content);
    double seconds = 0;
    const auto used = [] {
        struct rusage usage;
        getrusage(RUSAGE_SELF, &usage);
        return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    };
    for (auto _ : state) {
        const double before = used();
        sleep(1);
        seconds += used() - before;
    }
    state.counters["cpu_ms_per_s"] = seconds * 1000 / static_cast<double>(state.iterations());
}

}  // namespace

// The line goes through all peers at one thread count before the next, so that they meet the same machine.
BENCHMARK(velkor_line)->Threads(1)->UseRealTime();
BENCHMARK(spdlog_async_line)->Threads(1)->UseRealTime();
BENCHMARK(glib_structured_fields)->Threads(1)->UseRealTime();
BENCHMARK(glib_structured_line)->Threads(1)->UseRealTime();
BENCHMARK(plain_line)->Threads(1)->UseRealTime();
BENCHMARK(velkor_line)->Threads(4)->UseRealTime();
BENCHMARK(spdlog_async_line)->Threads(4)->UseRealTime();
BENCHMARK(glib_structured_fields)->Threads(4)->UseRealTime();
BENCHMARK(glib_structured_line)->Threads(4)->UseRealTime();
BENCHMARK(plain_line)->Threads(4)->UseRealTime();
BENCHMARK(velkor_line_filtered)->Threads(1)->Threads(4)->UseRealTime();
BENCHMARK(velkor_line_disabled);
BENCHMARK(spdlog_line_disabled);
BENCHMARK_CAPTURE(idle_second, off, nullptr)->Iterations(3)->UseRealTime();
BENCHMARK_CAPTURE(idle_second, on_without_lines, "dbgprint=1\n")->Iterations(3)->UseRealTime();

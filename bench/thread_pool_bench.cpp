// A short job: from the hand-over to its beginning and back, in batches, and what waiting workers cost. Beside a pool
// that people would pick instead, and a thread for each job.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>
#include <velkor/concurrency.h>

#include <atomic>
#include <cstdlib>

namespace {

constexpr int WORKERS = 32;

sem_t done;
[[maybe_unused]] const int done_is_made = sem_init(&done, 0, 0);

void *report_done(void *) {
    sem_post(&done);
    return nullptr;
}

void report_done_to_glib(void *, void *) { sem_post(&done); }

void velkor_start(void *(*job)(void *)) {
    pthread_t thread;
    if (CreateThreadInPool(&thread, job, nullptr) != 0) {
        abort();
    }
}

GThreadPool *glib_pool() {
    // Exclusive: its threads are its own and stay.
    static GThreadPool *const pool = g_thread_pool_new(report_done_to_glib, nullptr, WORKERS, TRUE, nullptr);
    return pool;
}

void glib_start() { g_thread_pool_push(glib_pool(), &done, nullptr); }

void thread_start() {
    pthread_t thread;
    if (pthread_create(&thread, nullptr, report_done, nullptr) != 0) {
        abort();
    }
    pthread_detach(thread);
}

void wait_done(int jobs) {
    for (int job = 0; job < jobs; ++job) {
        while (sem_wait(&done) != 0) {
        }
    }
}

template <typename Start>
void run_batches(benchmark::State &state, Start start) {
    const int jobs = static_cast<int>(state.range(0));
    for (auto _ : state) {
        for (int job = 0; job < jobs; ++job) {
            start();
        }
        wait_done(jobs);
    }
    state.SetItemsProcessed(state.iterations() * jobs);
}

void velkor_jobs(benchmark::State &state) {
    run_batches(state, [] { velkor_start(report_done); });
}
void glib_jobs(benchmark::State &state) { run_batches(state, glib_start); }
void thread_jobs(benchmark::State &state) { run_batches(state, thread_start); }

// ---- What 32 idle workers cost ----

std::atomic<bool> let_go{false};

void *hold(void *) {
    while (!let_go) {
        usleep(1000);
    }
    return report_done(nullptr);
}

double cpu_seconds() {
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double seconds_now() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Processor time of a second in which the whole process waits: workers that look once a millisecond.
void velkor_32_idle_workers(benchmark::State &state) {
    let_go = false;
    for (int job = 0; job < WORKERS; ++job) {
        velkor_start(hold);
    }
    let_go = true;
    wait_done(WORKERS);
    double cpu = 0;
    double wall = 0;
    for (auto _ : state) {
        const double cpu_before = cpu_seconds();
        const double before = seconds_now();
        sleep(1);
        cpu += cpu_seconds() - cpu_before;
        wall += seconds_now() - before;
    }
    state.counters["cpu_percent"] = 100 * cpu / wall;
}

BENCHMARK(velkor_jobs)->Arg(1)->Arg(WORKERS)->UseRealTime();
BENCHMARK(glib_jobs)->Arg(1)->Arg(WORKERS)->UseRealTime();
BENCHMARK(thread_jobs)->Arg(1)->Arg(WORKERS)->UseRealTime();
BENCHMARK(velkor_32_idle_workers)->Iterations(5)->UseRealTime();

}  // namespace

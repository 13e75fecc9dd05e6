// One entry in and one out: this library's queue, and the queue between threads that people would pick instead.
//
// The difference is what each promises. An entry of ours can be found by its content, held while others use the queue,
// and taken out of the middle: that takes the queue's lock and the entry's for each operation, two where the other
// queue takes one. `two_mutexes` is that cost alone.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <pthread.h>
#include <velkor/concurrency.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int MAX_THREADS = 4;

int first_of_all(void *, void *) { return 0; }

SafeQueue *shared_queue() {
    static SafeQueue queue;
    static const int constructed = sq_construct(&queue);
    if (constructed != 0) {
        abort();
    }
    return &queue;
}

GAsyncQueue *shared_async_queue() {
    static GAsyncQueue *const queue = g_async_queue_new();
    return queue;
}

// Every thread brings an entry and takes out whichever is first.
void velkor_insert_remove(benchmark::State &state) {
    SafeQueue *const queue = shared_queue();
    void *entry = sqe_new(16);
    for (auto _ : state) {
        sq_insert_tail(queue, entry);
        entry = sq_remove(queue, first_of_all, nullptr);
    }
    sqe_delete(entry);
    state.SetItemsProcessed(state.iterations());
}

void glib_async_push_pop(benchmark::State &state) {
    GAsyncQueue *const queue = shared_async_queue();
    void *entry = g_malloc(16);
    for (auto _ : state) {
        g_async_queue_push(queue, entry);
        entry = g_async_queue_pop(queue);
    }
    g_free(entry);
    state.SetItemsProcessed(state.iterations());
}

void two_mutexes(benchmark::State &state) {
    static pthread_mutex_t shared = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_t own = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        for (int operation = 0; operation < 2; ++operation) {
            pthread_mutex_lock(&shared);
            pthread_mutex_lock(&own);
            pthread_mutex_unlock(&own);
            pthread_mutex_unlock(&shared);
        }
    }
    state.SetItemsProcessed(state.iterations());
}

// The same with the memory of the entry: what a module does that makes one for each message.
void velkor_new_insert_remove_delete(benchmark::State &state) {
    SafeQueue *const queue = shared_queue();
    for (auto _ : state) {
        sq_insert_tail(queue, sqe_new(16));
        sqe_delete(sq_remove(queue, first_of_all, nullptr));
    }
}

void glib_new_push_pop_free(benchmark::State &state) {
    GAsyncQueue *const queue = shared_async_queue();
    for (auto _ : state) {
        g_async_queue_push(queue, g_malloc(16));
        g_free(g_async_queue_pop(queue));
    }
}

// Locks of the C library are cheaper until a process has a second thread: so once before, and once after.
BENCHMARK(velkor_insert_remove)->UseRealTime();
BENCHMARK(two_mutexes)->UseRealTime();
BENCHMARK(velkor_insert_remove)->ThreadRange(2, MAX_THREADS)->UseRealTime();
BENCHMARK(velkor_insert_remove)->Name("velkor_insert_remove_of_a_threaded_process")->UseRealTime();
BENCHMARK(glib_async_push_pop)->ThreadRange(1, MAX_THREADS)->UseRealTime();
BENCHMARK(two_mutexes)->ThreadRange(1, MAX_THREADS)->UseRealTime();
BENCHMARK(velkor_new_insert_remove_delete)->UseRealTime();
BENCHMARK(glib_new_push_pop_free)->UseRealTime();

}  // namespace

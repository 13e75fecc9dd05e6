#include <velkor/concurrency.h>

#include <atomic>
#include <thread>

#include "support/export_table.h"

namespace exports {
namespace {

// ---- Threads ----

void *add_one(void *number) {
    ++*static_cast<std::atomic<int> *>(number);
    return nullptr;
}

std::string created() {
    std::atomic<int> number{0};
    pthread_t thread;
    const int result = __pthread_create(&thread, nullptr, add_one, &number);
    const int joined = result == 0 ? pthread_join(thread, nullptr) : -1;
    return text_of(result, joined, number.load());
}

std::string done_by_the_pool() {
    std::atomic<int> number{0};
    pthread_t thread;
    const int result = CreateThreadInPool(&thread, add_one, &number);
    while (result == 0 && number == 0) {
        std::this_thread::yield();
    }
    return text_of(result, number.load());
}

std::string writer_preferring_lock() {
    pthread_rwlock_t lock;
    const int made = vk_RWLockInit(&lock, nullptr, "storm", 1);
    const int locked = pthread_rwlock_rdlock(&lock);
    const int unlocked = pthread_rwlock_unlock(&lock);
    return text_of(made, locked, unlocked, pthread_rwlock_destroy(&lock));
}

// ---- The queue: one for all threads of a process ----

SafeQueue *queue_of_process() {
    static SafeQueue queue;
    static FirstTime is_first;
    if (is_first()) {
        sq_construct(&queue);
    }
    return &queue;
}

std::string life_of_a_queue() {
    SafeQueue queue;
    const int made = sq_construct(&queue);
    return text_of(made, sq_destruct(&queue));
}

int is_it(void *data, void *context) { return data == context ? 0 : 1; }

// An entry of the caller's own among those of others: found, released, and taken out again.
template <typename Insert, typename Find>
std::string queued(Insert insert, Find find) {
    SafeQueue *const queue = queue_of_process();
    void *const entry = sqe_new(sizeof(int));
    const int inserted = insert(queue, entry);
    void *const found = find(queue, is_it, entry);
    const int unlocked = sqe_unlock(found);
    const bool is_removed = sq_remove(queue, is_it, entry) == entry;
    sqe_delete(entry);
    return text_of(inserted, found == entry, unlocked, is_removed);
}

// The neighbour stays in its place meanwhile: only who put it there takes it out.
template <typename Insert>
std::string queued_beside(Insert insert) {
    SafeQueue *const queue = queue_of_process();
    void *const neighbour = sqe_new(sizeof(int));
    sq_insert_tail(queue, neighbour);
    const std::string text = queued([&](SafeQueue *to, void *entry) { return insert(to, neighbour, entry); }, sq_find);
    const bool is_removed = sq_remove(queue, is_it, neighbour) == neighbour;
    sqe_delete(neighbour);
    return text_of(text, is_removed);
}

// ---- Timers ----

constexpr uint32_t SELDOM = 1000000000;
constexpr int TICK_MS = 185;

std::atomic<int> ticks{0};

void *idle(void *argument) { return argument; }

// The list of the process, with a timer that ticks; started once.
int start_timers() {
    static const TimerEntry EVERY_TICK = {1, add_one, &ticks};
    return init_timer(&EVERY_TICK);
}

// A timer that no other thread has.
TimerEntry own_timer() {
    static thread_local char own;
    return {SELDOM, idle, &own};
}

std::string timer_of_the_list() {
    start_timers();
    const TimerEntry timer = own_timer();
    const int added = add_timer(&timer);
    const TimerEntry *const found = search_timer(&timer);
    const bool is_found = found != nullptr && found->interval == SELDOM;
    const int deleted = del_timer(&timer);
    return text_of(added, is_found, deleted, search_timer(&timer) == nullptr);
}

std::string started_timers() {
    static const int first = start_timers();
    return text_of(first, start_timers());
}

// From one tick to the next but two.
std::string two_ticks() {
    start_timers();
    const auto wait_for_tick = [] {
        for (const int before = ticks; ticks == before;) {
            std::this_thread::yield();
        }
    };
    wait_for_tick();
    wait_for_tick();
    wait_for_tick();
    return text_of();
}

// The list has a timer that is due at every hundredth call.
std::string scheduled() {
    static const TimerEntry TIMER = {100, idle, nullptr};
    static const int started = init_timer(&TIMER);
    return text_of(started, timer_schedule());
}

std::string increased_dog() {
    timer_IncreaseDog();
    return text_of(timer_GetSoftDog() > 0);
}

// ---- The string list: one for each call ----

std::string listed() {
    sList list;
    const int made = sList_Init(&list);
    const int added = sList_Add(&list, "eth0");
    const int inserted = sList_Insert(&list, "bond0", 0);
    const int index = sList_IndexOf(&list, "eth0");
    const int deleted = sList_Delete(&list, 0);
    const std::string text = text_of(made, added, inserted, index, deleted, list.count, list.items[0]);
    const int cleared = sList_Clear(&list);
    return text_of(text, cleared, sList_Destroy(&list));
}

constexpr Row ROWS[] = {
    {"__pthread_create", created, STARTS_THREADS},
    {"vk_RWLockInit", writer_preferring_lock},
    {"CreateThreadInPool", done_by_the_pool, STARTS_THREADS},

    {"sq_construct sq_destruct", life_of_a_queue},
    {"sq_construct (of NULL, which is reported)", [] { return text_of(sq_construct(nullptr)); }},
    {"sq_insert_head sq_find", [] { return queued(sq_insert_head, sq_find); }},
    {"sq_insert_tail sq_find_reverse", [] { return queued(sq_insert_tail, sq_find_reverse); }},
    {"sq_insert_after", [] { return queued_beside(sq_insert_after); }},
    {"sq_insert_before", [] { return queued_beside(sq_insert_before); }},
    {"sqe_new sqe_delete sqe_unlock sq_remove", [] { return queued(sq_insert_tail, sq_find); }},

    {"init_timer (again, which is refused)", started_timers},
    {"init_timer (its ticks)",
     two_ticks,
     {.lasts_ms = 2 * TICK_MS, .is_for_child = false, .reason = "a forked child has no thread to run the list"}},
    {"add_timer search_timer del_timer", timer_of_the_list},
    {"timer_schedule", scheduled, STARTS_THREADS},
    {"timer_GetSoftDog", [] { return text_of(timer_GetSoftDog() > 1000000000); }, PLAIN},
    {"timer_IncreaseDog", increased_dog, PLAIN},
    {"timer_GetDebug", [] { return filled([](char *out) { timer_GetDebug(out, BUFFER_SIZE); }); }, PLAIN},

    {"sList_Init sList_Add sList_Insert sList_IndexOf sList_Delete sList_Clear sList_Destroy", listed},
};

}  // namespace

const Group CONCURRENCY = {ROWS, prepare_nothing};

}  // namespace exports

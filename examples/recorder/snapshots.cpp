#include "snapshots.h"

#include <thread>

#include "eventually.h"
#include "log.h"
#include "text.h"

namespace recorder {

namespace {

constexpr unsigned WORKERS = 32;

}  // namespace

void Snapshots::prepare() {
    list_cameras();
    expect(sq_construct(&orders_) == 0, "the queue is made");
    expect(orders_by_timer_.start(), "the timer of the orders starts");
}

void Snapshots::list_cameras() {
    sList_Init(&cameras_);
    cameras_.Add(&cameras_, "yard");
    cameras_.Add(&cameras_, "spare");
    cameras_.Insert(&cameras_, "gate", 0);
    cameras_.Delete(&cameras_, cameras_.IndexOf(&cameras_, "spare"));
    expect(cameras_.count == 2 && cameras_.IndexOf(&cameras_, "gate") == 0, "the cameras are listed");
}

// On the timer thread: leaves an order behind, and nothing more.
void Snapshots::order() {
    auto *const order = static_cast<Order *>(sqe_new(sizeof(Order)));
    if (!expect(order != nullptr, "an order is allocated")) {
        return;
    }
    const unsigned number = ++ordered_;
    *order = {this, number, cameras_.items[number % static_cast<unsigned>(cameras_.count)]};
    expect(sq_insert_tail(&orders_, order) == 0, "an order is queued");
}

void Snapshots::turn() { hand_out_orders(); }

void Snapshots::hand_out_orders() {
    const auto oldest = [](void *, void *) { return 0; };
    while (void *const order = sq_remove(&orders_, oldest, nullptr)) {
        pthread_t worker;
        ++at_work_;
        expect(CreateThreadInPool(&worker, take, order) == 0, "a worker has the order");
    }
}

// On a worker of the pool.
void *Snapshots::take(void *argument) {
    const Order order = *static_cast<Order *>(argument);
    sqe_delete(argument);
    RECORDER_LOG("snapshots", "snapshot %u of the %s", order.number, order.camera);
    order.all->sum_of_taken_ += order.number;
    --order.all->at_work_;
    ++order.all->taken_;  // the last word: whoever waits for it may go
    return nullptr;
}

bool Snapshots::call_crowd() {
    const auto job = [](void *argument) -> void * {
        auto &all = *static_cast<Snapshots *>(argument);
        ++all.at_work_;
        ++all.crowd_begun_;
        while (all.is_crowd_held_) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        --all.at_work_;
        ++all.crowd_done_;
        return nullptr;
    };
    unsigned called = 0;
    for (pthread_t worker; called < CROWD && CreateThreadInPool(&worker, job, this) == 0;) {
        ++called;
    }
    return called == CROWD;
}

void Snapshots::conclude() {
    expect(eventually([this] { return ordered_ > 0; }), "the timer orders snapshots");
    expect(orders_by_timer_.end(), "the timer of the orders is deleted");  // from here on it orders nothing
    hand_out_orders();
    let_crowd_go();
    expect(eventually([this] { return taken_ == ordered_ && crowd_done_ == crowd_begun_; }), "every job is done");
    expect(sum_of_taken_ == ordered_ * (ordered_ + 1) / 2, "each order is carried out once");
    expect(sq_destruct(&orders_) == 0, "the queue is ended");
    cameras_.Destroy(&cameras_);
}

Panel Snapshots::panel() const {
    return {format("%u ordered, %u taken", ordered_.load(), taken_.load()),
            format("jobs %s %u at work", bar(1.0 * at_work_ / WORKERS).c_str(), at_work_.load())};
}

std::string Snapshots::tally() const { return format("%u snapshots", taken_.load()); }

std::string Snapshots::summary() const {
    return format("%u ordered by the timer, %u taken by workers of the pool; %u jobs of a crowd done", ordered_.load(),
                  taken_.load(), crowd_done_.load());
}

}  // namespace recorder

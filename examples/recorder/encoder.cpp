#include "encoder.h"

#include <velkor/allocation.h>
#include <velkor_host.h>

#include <cstring>
#include <utility>

#include "eventually.h"
#include "log.h"
#include "text.h"

namespace recorder {

namespace {

constexpr const char *MODULE = "demo_encoder";
constexpr const char *SOURCE_FILE = "src/demo_encoder/channel.c";
constexpr unsigned LIMIT_KIB = 512;
constexpr size_t FRAME = 64000;
constexpr size_t MOST_FRAMES = 6;
constexpr size_t HOARDED = 4000;

// The accounts of the encoder's pool, which is opened by its first frame.
struct velkor_host_pool accounts() {
    struct velkor_host_pool pool;
    for (unsigned i = 0; velkor_host_pool_get(i, &pool) == 0; ++i) {
        if (strcmp(pool.name, MODULE) == 0) {
            return pool;
        }
    }
    return {};
}

bool are_all_pools_empty() {
    struct velkor_host_pool pool;
    for (unsigned i = 0; velkor_host_pool_get(i, &pool) == 0; ++i) {
        if (pool.bytes != 0 || pool.blocks != 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

void Encoder::prepare() { expect(dvrRegMem(MODULE, LIMIT_KIB) == 0, "a module is registered with a limit"); }

// Holds a few frames at a time, as an encoder does.
void Encoder::turn() {
    void *const frame = dvrMalloc(FRAME, SOURCE_FILE, __LINE__);
    is_short_ = frame == nullptr;
    if (frame == nullptr) {
        ++dropped_;
        RECORDER_LOG("encoder", "no room for a frame, %u dropped", dropped_.load());
        give_back_oldest();
        return;
    }
    memset(frame, static_cast<int>(++made_ & 0xff), FRAME);
    frames_.push_back(frame);
    if (frames_.size() > MOST_FRAMES) {
        give_back_oldest();
    }
}

void Encoder::give_back_oldest() {
    if (frames_.empty()) {
        return;
    }
    expect(dvrFree(frames_.front()) == 0, "a frame is given back");
    frames_.pop_front();
    ++given_back_;
}

void Encoder::hoard() {
    while (void *const block = dvrMalloc(HOARDED, SOURCE_FILE, __LINE__)) {
        hoard_.push_back(block);
    }
    ++refused_to_hoard_;
}

void Encoder::release_hoard() {
    for (void *const block : std::exchange(hoard_, {})) {
        expect(dvrFree(block) == 0, "a hoarded block is given back");
    }
}

void Encoder::conclude() {
    release_hoard();
    while (!frames_.empty()) {
        give_back_oldest();
    }
    expect(made_ > 0 && made_ == given_back_, "every frame is given back");
    expect(accounts().failures == dropped_ + refused_to_hoard_, "each refusal of the pool was seen");
    // A lookup that was given up is freed by whoever resolves it, when the resolver returns.
    is_pools_empty_ = eventually(are_all_pools_empty);
    expect(is_pools_empty_, "every pool is empty at the end");
}

Panel Encoder::panel() const {
    const struct velkor_host_pool pool = accounts();
    const auto kib = static_cast<unsigned>(pool.bytes / 1024);
    return {format("pool %s %u of %u KiB", bar(1.0 * kib / LIMIT_KIB).c_str(), kib, LIMIT_KIB),
            format("%u frames, %u dropped", made_.load(), dropped_.load())};
}

std::string Encoder::tally() const { return format("%u frames", made_.load()); }

std::string Encoder::summary() const {
    return format("%u frames made and given back, %u dropped for lack of room; all pools %s", made_.load(),
                  dropped_.load(), is_pools_empty_ ? "empty" : "NOT empty");
}

}  // namespace recorder

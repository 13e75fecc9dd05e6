#include "log_drain.h"

#include <dlfcn.h>
#include <unistd.h>
#include <velkor/diagnostics.h>
#include <velkor_host.h>

#include <atomic>

namespace tool::log {

namespace {

constexpr unsigned RING = 1;  // the first of this process is the log's
constexpr useconds_t PAUSE_US = 500;

std::atomic<uint64_t> looks_at_empty_ring{0};

velkor_host_ring ring_now() {
    velkor_host_ring ring = {};
    velkor_host_ring_get(RING, &ring);
    return ring;
}

// Waits for `reached`; patience starts again with every line that is taken out.
template <typename Condition>
bool wait_while_moving(Condition reached, std::chrono::milliseconds patience) {
    using Clock = std::chrono::steady_clock;
    uint64_t read = ring_now().read;
    Clock::time_point end = Clock::now() + patience;
    while (!reached()) {
        if (const uint64_t now = ring_now().read; now != read) {
            read = now;
            end = Clock::now() + patience;
        } else if (Clock::now() >= end) {
            return false;
        }
        usleep(PAUSE_US);
    }
    return true;
}

}  // namespace

bool has_ring() {
    velkor_host_ring ring = {};
    return velkor_host_ring_get(RING, &ring) == 0;
}

bool wait_for_room(std::chrono::milliseconds patience) {
    const auto has_room = [] {
        const velkor_host_ring ring = ring_now();
        return ring.held + VELKOR_LOGMAN_RECORD_SIZE <= ring.capacity;
    };
    return wait_while_moving(has_room, patience);
}

// The thread takes a line out before it writes it, so an empty ring is not enough: it must have come back and found
// the ring empty. One such look may have begun before this call, a second one cannot. While the log is off it does not
// look; but it alone switches the log off, between two lines.
bool wait_until_drained(std::chrono::milliseconds patience) {
    const uint64_t before = looks_at_empty_ring.load(std::memory_order_acquire);
    const auto is_drained = [=] {
        const bool is_off = vk_GetLogmanEnable() == 0;
        return looks_at_empty_ring.load(std::memory_order_acquire) >= before + 2 || (is_off && ring_now().held == 0);
    };
    return wait_while_moving(is_drained, patience);
}

size_t waiting_lines() { return ring_now().held / VELKOR_LOGMAN_RECORD_SIZE; }

}  // namespace tool::log

// An import of the library that this program brings itself: the ring's own function, and a count of the times that the
// draining thread, which alone asks, found nothing to do.
extern "C" int ringbuf_DataSize(unsigned ring) {
    using DataSize = int (*)(unsigned);
    static const auto of_ring = reinterpret_cast<DataSize>(dlsym(RTLD_NEXT, "ringbuf_DataSize"));
    const int held = of_ring(ring);
    if (held == 0) {
        tool::log::looks_at_empty_ring.fetch_add(1, std::memory_order_release);
    }
    return held;
}

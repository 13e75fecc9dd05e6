// The factory test. Nobody tests a PC: a program at the bench says what state it wants to be answered.
#include <stdint.h>

#include <atomic>

#include <velkor_host.h>

namespace {

std::atomic<int> answer = 0;

}  // namespace

int vk_cmd_gAutoTestState([[maybe_unused]] uintptr_t first, [[maybe_unused]] uintptr_t second,
                          [[maybe_unused]] uintptr_t third, [[maybe_unused]] uintptr_t fourth) {
    return answer.load(std::memory_order_relaxed);
}

void velkor_host_factory_test_set(int state) { answer.store(state, std::memory_order_relaxed); }

#include "support/allocation_faults.h"

#include <algorithm>
#include <array>
#include <atomic>

namespace {

std::atomic<int> until_failure{0};
std::atomic<unsigned> requests{0};
std::array<std::atomic<size_t>, 16> sizes;

bool fails(size_t size) {
    sizes[requests++ % sizes.size()] = size;
    return until_failure > 0 && --until_failure == 0;
}

}  // namespace

// The names are the linker's: --wrap.
extern "C" {
void *__real_malloc(size_t size);
void *__real_realloc(void *block, size_t size);

void *__wrap_malloc(size_t size) { return fails(size) ? nullptr : __real_malloc(size); }
void *__wrap_realloc(void *block, size_t size) { return fails(size) ? nullptr : __real_realloc(block, size); }
}

namespace allocations {

void fail(int nth) { until_failure = nth; }

std::vector<size_t> take_sizes() {
    const size_t count = std::min<size_t>(requests.exchange(0), sizes.size());
    return {sizes.begin(), sizes.begin() + static_cast<ptrdiff_t>(count)};
}

}  // namespace allocations

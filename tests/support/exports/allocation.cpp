#include <velkor/allocation.h>

#include "support/export_table.h"

namespace exports {
namespace {

// The text of a block, and what became of it.
std::string used(void *block) {
    if (block == nullptr) {
        return "no memory";
    }
    const std::string text = static_cast<char *>(block);
    return text_of(text, dvrFree(block));
}

void *reallocated() {
    void *const block = dvrMalloc(10, "recorder/alarm.c", 1);
    return dvrRealloc(block, 100000, "recorder/alarm.c", 2);
}

template <typename Allocate>
std::string written(Allocate allocate) {
    void *const block = allocate();
    if (block != nullptr) {
        strcpy(static_cast<char *>(block), "text");  // NOLINT(clang-analyzer-security.insecureAPI.strcpy): it fits
    }
    return used(block);
}

// A name that is looked for under the lock each time, since it is too long to be remembered.
std::string under_a_long_name() {
    static const std::string NAME = "recorder/" + std::string(200, 'x') + ".c";
    return used(dvrStrdup("text", NAME.c_str(), 1));
}

// The table has room for 255, and the storm comes to more.
std::string registered() {
    const int result = dvrRegMem("storm/module", 0);
    return text_of(result == 0 || result == -1);
}

std::string past_the_service() {
    void *const block = dvrMalloc_libc(100);
    const bool is_there = block != nullptr;
    dvrFree_libc(block);
    return text_of(is_there);
}

constexpr Row ROWS[] = {
    {"dvrRegMem", registered},
    {"dvrMalloc dvrFree", [] { return written([] { return dvrMalloc(100, "recorder/alarm.c", 1); }); }},
    {"dvrMalloc dvrFree (no bytes)", [] { return text_of(dvrFree(dvrMalloc(0, "recorder/alarm.c", 1))); }},
    {"dvrRealloc", [] { return written(reallocated); }},
    {"dvrCalloc", [] { return used(dvrCalloc(10, 10, "recorder/alarm.c", 1)); }},
    {"dvrStrdup", [] { return used(dvrStrdup("text", "recorder/alarm.c", 1)); }},
    {"dvrStrdup (under a long name)", under_a_long_name},
    {"dvrMalloc_libc dvrFree_libc", past_the_service},
    {"debug_memrecord_enable", [] { return text_of(debug_memrecord_enable()); }},
};

}  // namespace

const Group ALLOCATION = {ROWS, prepare_nothing};

}  // namespace exports

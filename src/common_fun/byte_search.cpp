// Searching bytes: start codes in video above all.
#include <stddef.h>
#include <stdint.h>

#include <velkor/text.h>

#include "common_fun/find_plain.h"
#include "common_fun/find_x86.h"
#include "support/best_version.h"
#include "support/x86_features.h"

namespace {

using Find = ptrdiff_t(const uint8_t *, size_t, const velkor::Sought &);

Find *best_here() {
#if defined(__x86_64__)
    if (velkor::cpu_has_avx2()) {
        return velkor::find_x86;
    }
#endif
    return velkor::find_plain;
}

constinit velkor::BestVersion<Find> best_version(best_here);

int find(const uint8_t *data, int size, const velkor::Sought &sought) {
    return static_cast<int>(best_version.get()(data, static_cast<size_t>(size), sought));
}

bool is_searchable(const void *data, int size, const void *pattern, int length) {
    return data != nullptr && pattern != nullptr && size >= 0 && length >= 0 && length <= size;
}

bool is_byte(int value) { return value >= 0 && value <= UINT8_MAX; }

// Nothing at all precedes the byte that must follow.
int find_either(const uint8_t *data, int size, const uint8_t (&bytes)[2]) {
    for (int at = 0; at < size; ++at) {
        if (data[at] == bytes[0] || data[at] == bytes[1]) {
            return at;
        }
    }
    return -1;
}

}  // namespace

int FindPosByFlag(const void *data, int size, const void *pattern, int length) {
    if (!is_searchable(data, size, pattern, length)) {
        return -1;
    }
    if (length == 0) {
        return 0;
    }
    const velkor::Sought sought = {static_cast<const uint8_t *>(pattern), static_cast<size_t>(length)};
    return find(static_cast<const uint8_t *>(data), size, sought);
}

int FindPosByFlag_Fast(const void *data, int size, const void *pattern, int length, int next1, int next2) {
    if (!is_searchable(data, size, pattern, length) || (!is_byte(next1) && !is_byte(next2))) {
        return -1;
    }
    velkor::Sought sought = {static_cast<const uint8_t *>(pattern), static_cast<size_t>(length), true};
    sought.next[0] = static_cast<uint8_t>(is_byte(next1) ? next1 : next2);
    sought.next[1] = static_cast<uint8_t>(is_byte(next2) ? next2 : next1);
    const auto *const bytes = static_cast<const uint8_t *>(data);
    return length == 0 ? find_either(bytes, size, sought.next) : find(bytes, size, sought);
}

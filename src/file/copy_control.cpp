// What other modules say to a copy, and ask of it: the user's cancel, the last destination, the size for deleting.
#include <pthread.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <atomic>

#include <velkor/files.h>
#include <velkor/firmware.h>
#include <velkor/text.h>

#include "support/lock_guard.h"
#include "support/platform.h"

// ---- The user's cancel --------------------------------------------------------------------------------------------

namespace {

// The word is published at an odd address, and another process may write it meanwhile: byte by byte is the only access
// that every processor of the family grants.
constexpr size_t CONTROL_WORD = 1523;
constexpr uint32_t CANCEL = 256;

uint32_t load_control_word(const unsigned char *record) {
    uint32_t word = 0;
    for (unsigned byte = 0; byte < sizeof word; ++byte) {
        word |= uint32_t{__atomic_load_n(record + CONTROL_WORD + byte, __ATOMIC_RELAXED)} << (8 * byte);
    }
    return word;
}

void store_control_word(unsigned char *record, uint32_t word) {
    for (unsigned byte = 0; byte < sizeof word; ++byte) {
        const auto value = static_cast<unsigned char>(word >> (8 * byte));
        __atomic_store_n(record + CONTROL_WORD + byte, value, __ATOMIC_RELAXED);
    }
}

}  // namespace

int GetCopyCtrlStatus() {
    const unsigned char *const record = g_ptGuiSysStatus;
    return record != nullptr && load_control_word(record) == CANCEL ? 1 : 0;
}

void SetCopyCtrlStatus(unsigned value) {
    unsigned char *const record = g_ptGuiSysStatus;
    if (record != nullptr && value <= 1) {
        store_control_word(record, value == 1 ? CANCEL : 0);
    }
}

// ---- The last destination -----------------------------------------------------------------------------------------

namespace {

constexpr size_t TARGET_SIZE = VELKOR_TARGET_LENGTH + 1;

pthread_mutex_t target_lock = PTHREAD_MUTEX_INITIALIZER;
char target[TARGET_SIZE];

// A child has the whole text, never half of a new one.
__attribute__((constructor)) void survive_fork() { velkor::hold_over_fork<target_lock>(); }

}  // namespace

int Set_Dir(const char *path) {
    if (path == nullptr) {
        return -1;
    }
    const velkor::LockGuard guard(target_lock);
    strncopy(target, path, VELKOR_TARGET_LENGTH);
    return 0;
}

int Get_Dir(char *out) {
    const velkor::LockGuard guard(target_lock);
    if (out == nullptr || target[0] == '\0') {
        return -1;
    }
    memcpy(out, target, TARGET_SIZE);
    memset(target, 0, TARGET_SIZE);
    return 0;
}

// ---- The size for deleting ----------------------------------------------------------------------------------------

namespace velkor {

// Read from outside the library, at the bench in a debugger.
std::atomic<int32_t> delete_file_size{64};

}  // namespace velkor

int SetDeletelFileSize(int size) {
    velkor::delete_file_size.store(std::clamp(size, 16, 1024), std::memory_order_relaxed);
    return 0;
}

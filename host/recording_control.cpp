// The firmware's recording control: it pauses and goes on, and knows files that are still recorded. Here it only
// remembers what it was told, and nothing is recorded.
#include <pthread.h>

#include <velkor/firmware.h>
#include <velkor_host.h>

#include "lock_guard.h"

namespace {

pthread_mutex_t state_lock = PTHREAD_MUTEX_INITIALIZER;
velkor_host_recording state;

__attribute__((constructor)) void survive_fork() {
    pthread_atfork([] { pthread_mutex_lock(&state_lock); }, [] { pthread_mutex_unlock(&state_lock); },
                   [] { pthread_mutex_unlock(&state_lock); });
}

}  // namespace

int rec_PauseAllFile() {
    const velkor_host::LockGuard guard(state_lock);
    ++state.pauses;
    state.paused = 1;
    return 0;
}

int rec_RestartAllFile() {
    const velkor_host::LockGuard guard(state_lock);
    ++state.restarts;
    state.paused = 0;
    return 0;
}

int vk_cmd_UpgradeSetChnStat(int flag) {
    const velkor_host::LockGuard guard(state_lock);
    state.channels_paused = flag == 0 ? 1 : 0;
    return 0;
}

int rec_Stat(const char *path, void *record) { return vfs_Stat(path, record); }

int velkor_host_recording_get(struct velkor_host_recording *out) {
    if (out == nullptr) {
        return -1;
    }
    const velkor_host::LockGuard guard(state_lock);
    *out = state;
    return 0;
}

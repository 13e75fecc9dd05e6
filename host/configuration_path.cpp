// Where the firmware's configuration is.
#include <pthread.h>
#include <stdio.h>
#include <string.h>

#include <velkor/firmware.h>
#include <velkor_host.h>

#include "lock_guard.h"

namespace {

pthread_mutex_t path_lock = PTHREAD_MUTEX_INITIALIZER;
char chosen_path[VELKOR_HOST_NAME_SIZE] = VELKOR_HOST_CONFIG_PATH;
thread_local char shown_path[VELKOR_HOST_NAME_SIZE];

__attribute__((constructor)) void survive_fork() {
    pthread_atfork([] { pthread_mutex_lock(&path_lock); }, [] { pthread_mutex_unlock(&path_lock); },
                   [] { pthread_mutex_unlock(&path_lock); });
}

}  // namespace

const char *Cfg_gConfigPath() {
    const velkor_host::LockGuard guard(path_lock);
    memcpy(shown_path, chosen_path, sizeof shown_path);
    return shown_path;
}

int velkor_host_set_config_path(const char *path) {
    if (path == nullptr || *path == '\0' || strlen(path) + 2 > sizeof chosen_path) {
        return -1;
    }
    const bool has_slash = path[strlen(path) - 1] == '/';
    const velkor_host::LockGuard guard(path_lock);
    snprintf(chosen_path, sizeof chosen_path, "%s%s", path, has_slash ? "" : "/");
    return 0;
}

// The firmware's users and operation log: who is logged in, and a file that says what was done.
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <velkor/firmware.h>
#include <velkor_host.h>

#include "lock_guard.h"

namespace {

pthread_mutex_t user_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t log_lock = PTHREAD_MUTEX_INITIALIZER;
char user[VELKOR_HOST_NAME_SIZE];

// What UKCmd_GetUser() answers belongs to the calling thread, so that a later log-in does not change it meanwhile.
thread_local char shown_user[VELKOR_HOST_NAME_SIZE];

// One entry is one line: what would end it early becomes a blank.
void flatten(char *text) {
    for (; *text != '\0'; ++text) {
        if (*text == '\n' || *text == '\r') {
            *text = ' ';
        }
    }
}

__attribute__((constructor)) void begin() {
    pthread_atfork(
        [] {
            pthread_mutex_lock(&user_lock);
            pthread_mutex_lock(&log_lock);
        },
        [] {
            pthread_mutex_unlock(&log_lock);
            pthread_mutex_unlock(&user_lock);
        },
        [] {
            pthread_mutex_unlock(&log_lock);
            pthread_mutex_unlock(&user_lock);
        });
}

}  // namespace

void velkor_host_set_user(const char *name) {
    const velkor_host::LockGuard guard(user_lock);
    snprintf(user, sizeof user, "%s", name != nullptr ? name : "");
}

const char *UKCmd_GetUser() {
    const velkor_host::LockGuard guard(user_lock);
    memcpy(shown_user, user, sizeof user);
    return shown_user[0] != '\0' ? shown_user : nullptr;
}

int log_Write(int handle, int major, int minor, int code, const char *format, ...) {
    if (format == nullptr) {
        return -1;
    }
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    flatten(text);

    // Converted with the lock, which a fork holds: the C library's own lock is free in a child.
    const velkor_host::LockGuard guard(log_lock);
    const time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    FILE *const file = fopen(VELKOR_HOST_OPERATION_LOG, "ae");
    if (file == nullptr) {
        return -1;
    }
    fprintf(file, "[%04d/%02d/%02d %02d:%02d:%02d] %d %d 0x%04X %d %s\n", local.tm_year + 1900, local.tm_mon + 1,
            local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, handle, major, static_cast<unsigned>(minor), code,
            text);
    return fclose(file) == 0 ? 0 : -1;
}

// The part of the firmware's configuration that is about time. The daylight setting outlives the process in a small
// file that a person can read: one "name=value" a line.
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <velkor/firmware.h>
#include <velkor_host.h>

#include "lock_guard.h"

// UTC, daylight saving off.
CfgDaylightSaving g_stDaylightSaving = {0, 10000, 0, 0, 0};

namespace {

constexpr const char *NEW_FILE = VELKOR_HOST_DAYLIGHT_FILE ".new";

pthread_mutex_t file_lock = PTHREAD_MUTEX_INITIALIZER;
int calendar_enable = 0;

// libvelkor reads the setting, and sets the zone in it, under a lock of its own. So each word is read and written in
// one step here as there, and where a file changes several words, they change right after each other.
template <typename Word>
Word read_word(const Word &word) {
    return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

CfgDaylightSaving read_setting(const CfgDaylightSaving &from) {
    return {read_word(from.enable), read_word(from.zone), read_word(from.start), read_word(from.stop),
            read_word(from.offset)};
}

// A word that stays the same is left alone: it may be another by now.
template <typename Word>
void change_word(Word &word, Word before, Word now) {
    if (now != before) {
        __atomic_store_n(&word, now, __ATOMIC_RELAXED);
    }
}

void change_setting(CfgDaylightSaving &setting, const CfgDaylightSaving &before, const CfgDaylightSaving &now) {
    change_word(setting.enable, before.enable, now.enable);
    change_word(setting.zone, before.zone, now.zone);
    change_word(setting.start, before.start, now.start);
    change_word(setting.stop, before.stop, now.stop);
    change_word(setting.offset, before.offset, now.offset);
}

// One value of the file, in both directions.
struct Line {
    const char *name;
    long long (*get)(const CfgDaylightSaving &);
    void (*set)(CfgDaylightSaving &, long long);
};

constexpr Line LINES[] = {
    {"enable", [](const CfgDaylightSaving &from) -> long long { return from.enable; },
     [](CfgDaylightSaving &to, long long value) { to.enable = static_cast<int32_t>(value); }},
    {"zone", [](const CfgDaylightSaving &from) -> long long { return from.zone; },
     [](CfgDaylightSaving &to, long long value) { to.zone = static_cast<int32_t>(value); }},
    {"start", [](const CfgDaylightSaving &from) -> long long { return from.start; },
     [](CfgDaylightSaving &to, long long value) { to.start = static_cast<uint32_t>(value); }},
    {"stop", [](const CfgDaylightSaving &from) -> long long { return from.stop; },
     [](CfgDaylightSaving &to, long long value) { to.stop = static_cast<uint32_t>(value); }},
    {"offset", [](const CfgDaylightSaving &from) -> long long { return from.offset; },
     [](CfgDaylightSaving &to, long long value) { to.offset = static_cast<int32_t>(value); }},
};

void take_line(CfgDaylightSaving &setting, const char *text) {
    char name[16];
    long long value = 0;
    if (sscanf(text, "%15[a-z]=%lld", name, &value) != 2) {
        return;
    }
    for (const Line &line : LINES) {
        if (strcmp(line.name, name) == 0) {
            line.set(setting, value);
        }
    }
}

bool write_lines(FILE *file, const CfgDaylightSaving &setting) {
    for (const Line &line : LINES) {
        fprintf(file, "%s=%lld\n", line.name, line.get(setting));
    }
    const bool is_written = ferror(file) == 0 && fflush(file) == 0 && fsync(fileno(file)) == 0;
    return fclose(file) == 0 && is_written;
}

__attribute__((constructor)) void begin() {
    pthread_atfork([] { pthread_mutex_lock(&file_lock); }, [] { pthread_mutex_unlock(&file_lock); },
                   [] { pthread_mutex_unlock(&file_lock); });
    velkor_host_daylight_load();
}

}  // namespace

int velkor_host_daylight_load() {
    const velkor_host::LockGuard guard(file_lock);
    FILE *const file = fopen(VELKOR_HOST_DAYLIGHT_FILE, "re");
    if (file == nullptr) {
        return -1;
    }
    const CfgDaylightSaving before = read_setting(g_stDaylightSaving);
    CfgDaylightSaving now = before;
    char text[128];
    while (fgets(text, sizeof text, file) != nullptr) {
        take_line(now, text);
    }
    fclose(file);
    change_setting(g_stDaylightSaving, before, now);
    return 0;
}

// Beside the old file first: a setting is there whole or as it was.
int Cfg_sDaylightSaving(const CfgDaylightSaving *setting) {
    if (setting == nullptr) {
        return -1;
    }
    const velkor_host::LockGuard guard(file_lock);
    FILE *const file = fopen(NEW_FILE, "we");
    if (file == nullptr) {
        return -1;
    }
    if (!write_lines(file, read_setting(*setting)) || rename(NEW_FILE, VELKOR_HOST_DAYLIGHT_FILE) != 0) {
        unlink(NEW_FILE);
        return -1;
    }
    return 0;
}

int Cfg_GetCalenderEnable([[maybe_unused]] void *argument) {
    return __atomic_load_n(&calendar_enable, __ATOMIC_RELAXED);
}

void velkor_host_set_calendar(int enable) { __atomic_store_n(&calendar_enable, enable, __ATOMIC_RELAXED); }

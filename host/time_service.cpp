// The firmware's time service: uptime, the local difference, and a zone's text for the C library.
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <velkor/firmware.h>
#include <velkor_host.h>

#include "lock_guard.h"

namespace {

// The C library looks at its zone with a lock of its own, which a forked child would inherit locked. So that is done
// with this lock here, and a fork holds it.
pthread_mutex_t zone_lock = PTHREAD_MUTEX_INITIALIZER;

__attribute__((constructor)) void begin() {
    pthread_atfork([] { pthread_mutex_lock(&zone_lock); }, [] { pthread_mutex_unlock(&zone_lock); },
                   [] { pthread_mutex_unlock(&zone_lock); });
}

int64_t uptime_ms() {
    struct timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// ---- A zone in POSIX TZ form ----

bool zone_minutes(int code, int &minutes) {
    if (code >= 88 && code <= 113) {
        minutes = (code - 100) * 60;
        return true;
    }
    const int difference = code - 10000;
    minutes = difference / 100 * 60 + difference % 100;
    return code >= 8800 && code <= 11400;
}

struct Piece {
    char text[64];
};

// "<+0530>-05:30": the name says how far ahead of UTC the zone is, the offset behind it how far behind.
Piece named_offset(int minutes) {
    const bool is_ahead = minutes >= 0;
    const int hours = abs(minutes) / 60;
    const int rest = abs(minutes) % 60;
    Piece piece;
    snprintf(piece.text, sizeof piece.text, "<%c%02d%02d>%c%02d:%02d", is_ahead ? '+' : '-', hours, rest,
             is_ahead ? '-' : '+', hours, rest);
    return piece;
}

bool is_rule(const velkor_daylight_rule &rule) {
    return rule.month >= 1 && rule.month <= 12 && rule.week >= 1 && rule.week <= 5 && rule.weekday >= 0 &&
           rule.weekday <= 6 && rule.hour >= 0 && rule.hour <= 24;
}

Piece rule_text(const velkor_daylight_rule &rule) {
    Piece piece;
    snprintf(piece.text, sizeof piece.text, ",M%d.%d.%d/%d", rule.month, rule.week, rule.weekday, rule.hour);
    return piece;
}

bool has_daylight(const DaylightConfig &config) {
    return config.enable != 0 && is_rule(config.dst_start) && is_rule(config.dst_stop) && config.offset > -24 * 60 &&
           config.offset < 24 * 60;
}

}  // namespace

int vkt_get_uptime(int64_t *seconds) {
    if (seconds == nullptr) {
        return -1;
    }
    *seconds = uptime_ms() / 1000;
    return 0;
}

int vkt_get_uptime_ms(int64_t *milliseconds) {
    if (milliseconds == nullptr) {
        return -1;
    }
    *milliseconds = uptime_ms();
    return 0;
}

int vkt_get_time_diff(int64_t *seconds) {
    if (seconds == nullptr) {
        return -1;
    }
    const velkor_host::LockGuard guard(zone_lock);
    const time_t now = time(nullptr);
    struct tm local;
    tzset();
    if (localtime_r(&now, &local) == nullptr) {
        return -1;
    }
    *seconds = local.tm_gmtoff;
    return 0;
}

int vkt_tzset_to_tzstr(const DaylightConfig *config, char *buffer, int size) {
    if (config == nullptr || buffer == nullptr || size <= 0) {
        return -1;
    }
    buffer[0] = '\0';
    int minutes = 0;
    if (!zone_minutes(config->zone, minutes)) {
        return -1;
    }
    char text[256];
    int length = 0;
    if (has_daylight(*config)) {
        length = snprintf(text, sizeof text, "%s%s%s%s", named_offset(minutes).text,
                          named_offset(minutes + config->offset).text, rule_text(config->dst_start).text,
                          rule_text(config->dst_stop).text);
    } else {
        length = snprintf(text, sizeof text, "%s", named_offset(minutes).text);
    }
    if (length >= size) {
        return -1;
    }
    memcpy(buffer, text, static_cast<size_t>(length) + 1);
    return 0;
}

int velkor_host_follow_zone_file() {
    FILE *const file = fopen("/etc/TZ", "re");
    if (file == nullptr) {
        return -1;
    }
    char text[256] = "";
    const bool has_text = fgets(text, sizeof text, file) != nullptr;
    fclose(file);
    text[strcspn(text, "\r\n")] = '\0';
    const velkor_host::LockGuard guard(zone_lock);
    if (!has_text || text[0] == '\0' || setenv("TZ", text, 1) != 0) {  // NOLINT(concurrency-mt-unsafe): see the header
        return -1;
    }
    tzset();
    return 0;
}

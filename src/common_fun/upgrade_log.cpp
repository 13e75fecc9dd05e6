// The upgrade log: what an upgrade did last, still there after the power went.
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <velkor/diagnostics.h>
#include <velkor/firmware.h>

#include "support/local_time.h"
#include "support/log.h"
#include "support/owners.h"

namespace {

constexpr size_t PATH_SIZE = 64;
constexpr size_t LINE_SIZE = 512;

struct LogPath {
    char text[PATH_SIZE];
};

LogPath log_path() {
    LogPath path = {};
    const char *const directory = Cfg_gConfigPath();
    if (directory != nullptr) {
        snprintf(path.text, sizeof path.text, "%slog/upgrade.log", directory);
    }
    return path;
}

void format_line(char (&line)[LINE_SIZE], const char *a, const char *b, const char *c) {
    const struct tm local = velkor::stamp_time(time(nullptr));
    snprintf(line, sizeof line, "[%d-%d-%d %d:%d:%d][%s][%s][%s]\n", local.tm_year + 1900, local.tm_mon + 1,
             local.tm_mday, local.tm_hour % 24, local.tm_min, local.tm_sec, a, b, c);
}

}  // namespace

int upgrade_WriteLog(const char *a, const char *b, const char *c) {
    if (a == nullptr || b == nullptr || c == nullptr) {
        return -1;
    }
    const velkor::OwnedStream file(fopen(log_path().text, "a+"));
    if (!file) {
        VK_LOG("%s %d fileopen error", "upgrade_WriteLog", 2433);
        return -1;
    }
    // A line that waited in a buffer would be neither whole among other processes' lines, nor on the disk after the
    // fsync(), nor known to have failed.
    setvbuf(file.get(), nullptr, _IONBF, 0);
    char line[LINE_SIZE];
    format_line(line, a, b, c);
    const int result = fputs(line, file.get());
    if (result == -1) {
        VK_LOG("%s %d fputs error", "upgrade_WriteLog", 2454);
    } else {
        fsync(fileno(file.get()));
    }
    return result;
}

int upgrade_UnlinkLog() {
    const LogPath path = log_path();
    if (access(path.text, F_OK) == 0) {
        unlink(path.text);
    }
    return 0;
}

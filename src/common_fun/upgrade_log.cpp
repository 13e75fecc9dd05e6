// The upgrade log: what an upgrade did last, still there after the power went.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <velkor/diagnostics.h>
#include <velkor/firmware.h>

#include "support/local_time.h"
#include "support/log.h"
#include "support/open_file.h"
#include "support/owners.h"
#include "support/write_whole.h"

namespace {

constexpr size_t PATH_SIZE = 64;
constexpr size_t LINE_SIZE = 512;
constexpr int WRITTEN = 1;

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

// Answers the length.
size_t format_line(char (&line)[LINE_SIZE], const char *a, const char *b, const char *c) {
    const struct tm local = velkor::stamp_time(time(nullptr));
    snprintf(line, sizeof line, "[%d-%d-%d %d:%d:%d][%s][%s][%s]\n", local.tm_year + 1900, local.tm_mon + 1,
             local.tm_mday, local.tm_hour % 24, local.tm_min, local.tm_sec, a, b, c);
    return strnlen(line, sizeof line);
}

}  // namespace

int upgrade_WriteLog(const char *a, const char *b, const char *c) {
    if (a == nullptr || b == nullptr || c == nullptr) {
        return -1;
    }
    const velkor::OwnedDescriptor file(velkor::open_file(log_path().text, O_RDWR | O_CREAT | O_APPEND));
    if (!file) {
        VK_LOG("%s %d fileopen error", "upgrade_WriteLog", 2433);
        return -1;
    }
    // Not through a stream: a line that waited in its buffer would be neither whole among other processes' lines, nor
    // on the disk after the fsync(), nor known to have failed.
    char line[LINE_SIZE];
    const size_t length = format_line(line, a, b, c);
    if (!velkor::write_whole(file.get(), line, length)) {
        VK_LOG("%s %d fputs error", "upgrade_WriteLog", 2454);
        return -1;
    }
    fsync(file.get());
    return WRITTEN;
}

int upgrade_UnlinkLog() {
    const LogPath path = log_path();
    if (access(path.text, F_OK) == 0) {
        unlink(path.text);
    }
    return 0;
}

// The disk service and the swap settings, out of the settings file: a disk is a directory at the bench.
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <velkor/firmware.h>

#include "settings_file.h"

namespace {

constexpr int SATA = 1;
constexpr int DISKS = 24;
constexpr int FOUND = 1001;
constexpr int NOT_FOUND = -1;
constexpr size_t PATH_SIZE = 64;
constexpr int MAX_SIZE_MIB = 64;
constexpr int HIGH_LEVEL_MIB = 32;

enum State { ABSENT = 0, NOT_MOUNTED = 1, READ_ONLY = 2, WRITABLE = 3 };

using Section = char[24];

void format_section(Section &section, int disk) { snprintf(section, sizeof section, "disk %d", disk); }

bool find_path(int disk, char (&path)[PATH_SIZE]) {
    if (disk < 0 || disk >= DISKS) {
        return false;
    }
    Section section;
    format_section(section, disk);
    return velkor_host::find_setting(section, "path", path, sizeof path) && path[0] != '\0';
}

bool is_directory(const char *path) {
    struct stat status;
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

State look_at(const char *path) {
    if (!is_directory(path)) {
        return NOT_MOUNTED;
    }
    return access(path, W_OK) == 0 ? WRITABLE : READ_ONLY;
}

}  // namespace

int disk_GetDiskNum(int kind) {
    int disks = 0;
    char path[PATH_SIZE];
    for (int disk = 0; kind == SATA && disk < DISKS; ++disk) {
        disks += find_path(disk, path) ? 1 : 0;
    }
    return disks;
}

int disk_GetState(int disk) {
    char path[PATH_SIZE];
    if (!find_path(disk, path)) {
        return ABSENT;
    }
    Section section;
    format_section(section, disk);
    return velkor_host::find_number(section, "state", look_at(path));
}

int disk_GetSataMntPath(int disk, int kind, char *path) {
    char found[PATH_SIZE];
    if (path == nullptr || kind != SATA || !find_path(disk, found) || !is_directory(found)) {
        return NOT_FOUND;
    }
    snprintf(path, PATH_SIZE, "%s", found);
    return FOUND;
}

int cfg_gSwapMaxsize() { return velkor_host::find_number("swap", "max_size", MAX_SIZE_MIB); }

int cfg_gSwapHighLv() { return velkor_host::find_number("swap", "high_level", HIGH_LEVEL_MIB); }

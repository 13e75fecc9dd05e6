// Taking paths apart and putting them together.
#include <stdio.h>
#include <string.h>

#include <velkor/files.h>
#include <velkor/firmware.h>

namespace {

constexpr size_t LONGEST = VELKOR_PATH_LENGTH;

bool is_too_long(const char *path) { return strnlen(path, LONGEST + 1) > LONGEST; }

// 0 where there is no "/".
size_t index_of_last_slash(const char *path, size_t length) {
    const void *const slash = memrchr(path, '/', length);
    return slash != nullptr ? static_cast<size_t>(static_cast<const char *>(slash) - path) : 0;
}

// The path keeps `length` characters that begin at `begin`, and zeros up to where it ended.
void keep(char *path, size_t begin, size_t length, size_t old_length) {
    memmove(path, path + begin, length);
    memset(path + length, 0, old_length - length);
}

}  // namespace

char *last_char_is(const char *s, int c) {
    if (s == nullptr || *s == '\0') {
        return nullptr;
    }
    const char *const last = s + strlen(s) - 1;
    return *last == static_cast<char>(c) ? const_cast<char *>(last) : nullptr;
}

int extract_file_name(char *path) {
    if (path == nullptr || is_too_long(path)) {
        return -1;
    }
    const size_t length = strlen(path);
    if (length != 0) {
        const size_t begin = index_of_last_slash(path, length) + 1;
        keep(path, begin, length - begin, length);
    }
    return 0;
}

int extract_file_path(char *path) {
    if (path == nullptr || is_too_long(path)) {
        return -1;
    }
    const size_t length = strlen(path);
    const bool has_slash = last_char_is(path, '/') != nullptr;
    if (is_dir(path) != 0) {
        if (!has_slash && length == LONGEST) {
            return -1;
        }
        if (!has_slash) {
            memcpy(path + length, "/", 2);
        }
    } else if (length != 0) {
        const size_t searched = length - (has_slash ? 1 : 0);
        keep(path, 0, index_of_last_slash(path, searched) + 1, length);
    }
    return 0;
}

char *concat_path_file(const char *dir, const char *name) {
    if (name == nullptr) {
        return nullptr;
    }
    const char *const directory = dir != nullptr ? dir : "";
    const char *const between = last_char_is(directory, '/') != nullptr ? "" : "/";
    name += strspn(name, "/");
    if (strlen(directory) + strlen(between) + strlen(name) > LONGEST) {
        return nullptr;
    }
    char *const path = static_cast<char *>(vkmem_GlobalAlloc(LONGEST + 1, "src/file", __LINE__));
    if (path != nullptr) {
        snprintf(path, LONGEST + 1, "%s%s%s", directory, between, name);
    }
    return path;
}

char *concat_subpath_file(const char *dir, const char *name) {
    if (name == nullptr || strcmp(name, ".") == 0 || strcmp(name, "..") == 0) {
        return nullptr;
    }
    return concat_path_file(dir, name);
}

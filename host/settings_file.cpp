#include "settings_file.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <limits>

#include <velkor_host.h>

namespace {

constexpr size_t LINE_SIZE = 513;
constexpr const char *BLANKS = " \t\r\n";

char *trimmed(char *text) {
    text += strspn(text, BLANKS);
    size_t length = strlen(text);
    while (length > 0 && strchr(BLANKS, text[length - 1]) != nullptr) {
        --length;
    }
    text[length] = '\0';
    return text;
}

// Whether the line is a title, and then of which section; the title is cut out of the line.
bool is_title(char *line, const char *&name) {
    char *const end = strchr(line, ']');
    if (line[0] != '[' || end == nullptr) {
        return false;
    }
    *end = '\0';
    name = trimmed(line + 1);
    return true;
}

bool is_remark(const char *line) { return line[0] == '#' || line[0] == ';'; }

// The value, when the line sets this name.
char *value_of(char *line, const char *name) {
    char *const equals = strchr(line, '=');
    if (equals == nullptr || is_remark(line)) {
        return nullptr;
    }
    *equals = '\0';
    return strcmp(trimmed(line), name) == 0 ? trimmed(equals + 1) : nullptr;
}

// Answers the value inside `buffer`.
const char *find_line(FILE *file, const char *section, const char *name, char (&buffer)[LINE_SIZE]) {
    bool inside = false;
    while (fgets(buffer, sizeof buffer, file) != nullptr) {
        char *const line = trimmed(buffer);
        const char *title;
        if (is_title(line, title)) {
            inside = strcmp(title, section) == 0;
        } else if (const char *const value = inside ? value_of(line, name) : nullptr; value != nullptr) {
            return value;
        }
    }
    return nullptr;
}

}  // namespace

bool velkor_host::find_setting(const char *section, const char *name, char *out, size_t size) {
    out[0] = '\0';
    FILE *const file = fopen(VELKOR_HOST_SETTINGS_FILE, "re");
    if (file == nullptr) {
        return false;
    }
    char buffer[LINE_SIZE];
    const char *const value = find_line(file, section, name, buffer);
    const bool fits = value != nullptr && strlen(value) < size;
    if (fits) {
        strcpy(out, value);  // NOLINT(clang-analyzer-security.insecureAPI.strcpy): it fits
    }
    fclose(file);
    return fits;
}

int velkor_host::find_number(const char *section, const char *name, int otherwise) {
    char text[16];
    if (!find_setting(section, name, text, sizeof text)) {
        return otherwise;
    }
    char *end;
    const long number = strtol(text, &end, 10);
    const bool is_number = end != text && *end == '\0' && number >= std::numeric_limits<int>::min() &&
                           number <= std::numeric_limits<int>::max();
    return is_number ? static_cast<int>(number) : otherwise;
}

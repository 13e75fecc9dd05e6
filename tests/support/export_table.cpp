#include "support/export_table.h"

#include <unistd.h>

#include <array>
#include <cstdio>

#include "support/racing_bytes.h"

namespace exports {

std::span<const Group> groups() {
    static const std::array GROUPS = {ALLOCATION, CALENDAR, CONCURRENCY, CONFIGURATION, DIAGNOSTICS,
                                      FILES,      NETWORK,  PROCESS,     SYSTEM_INFO,   TEXT};
    return GROUPS;
}

// All of its bits.
std::string one_text(double value) {
    char text[64];
    snprintf(text, sizeof text, "%a", value);
    return text;
}

std::string one_text(const char *value) { return value != nullptr ? value : "NULL"; }

std::string shared_text(const char *text) {
    std::string copy;
    for (char byte; copy.size() < 4096 && (byte = velkor::load_racing_byte(text + copy.size())) != '\0';) {
        copy += byte;
    }
    return copy;
}

bool FirstTime::operator()() {
    const bool is_first = process_ != getpid();
    if (is_first) {
        process_ = getpid();
    }
    return is_first;
}

}  // namespace exports

// The commands of `velkor zone`, and what they share.
#pragma once

#include <velkor/calendar.h>

#include <ctime>
#include <string>

#include "command_line.h"

namespace tool::zone {

void add_transitions(CLI::App &family, Run &chosen);
void add_compare(CLI::App &family, Run &chosen);

// "UTC+05:30"
std::string offset_text(long seconds);

// An instant by the clock of the zone in use: "2026-03-29 03:00:00 UTC+02:00".
std::string local_text(time_t instant);

// What "/etc/TZ" would say of a setting; empty when its zone code is none.
std::string zone_text(const DaylightConfig &config);

DaylightConfig shared_setting();

// Let local time be that of a zone, by name or in POSIX form. The command has one thread: it may change its
// environment.
void use_zone(const std::string &zone);

// The years that a command looks at. Transitions are 32-bit instants, which end in January 2038.
struct Years {
    int from = 0;
    int to = 0;

    void add_to(CLI::App &command);

    // What was not given becomes this year, and one year.
    void complete();
};

}  // namespace tool::zone

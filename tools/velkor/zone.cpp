// velkor zone: the recorder's time zone and daylight rule.
#include <velkor/calendar.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <memory>

#include "exit_status.h"
#include "output.h"
#include "zone_commands.h"

namespace tool::zone {

// ---- What the commands share ----

std::string offset_text(long seconds) {
    const long minutes = labs(seconds) / 60;
    std::array<char, 40> text;
    snprintf(text.data(), text.size(), "UTC%c%02ld:%02ld", seconds < 0 ? '-' : '+', minutes / 60, minutes % 60);
    return text.data();
}

std::string zone_text(const DaylightConfig &config) {
    std::array<char, 128> text = {};
    vkt_tzset_to_tzstr(&config, text.data(), static_cast<int>(text.size()));
    return text.data();
}

std::string local_text(time_t instant) {
    struct tm local = {};
    localtime_r(&instant, &local);
    std::array<char, 64> text;
    strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return std::string(text.data()) + " " + offset_text(local.tm_gmtoff);
}

void use_zone(const std::string &zone) {
    setenv("TZ", zone.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    tzset();
}

DaylightConfig shared_setting() {
    DaylightConfig config = {};
    time_GetDaylightConfig(&config);
    return config;
}

void Years::add_to(CLI::App &command) {
    command.add_option("--from", from, "First year (default: this one)")->check(CLI::Range(1970, 2037));
    command.add_option("--to", to, "Last year (default: the first)")->check(CLI::Range(1970, 2037));
}

void Years::complete() {
    if (from == 0) {
        const time_t now = time(nullptr);
        struct tm local = {};
        localtime_r(&now, &local);
        from = local.tm_year + 1900;
    }
    to = to == 0 ? from : to;
    if (from > to) {
        throw Failure(BAD_USE, "--from is after --to");
    }
}

namespace {

constexpr const char *ZONE_FILE = "/etc/TZ";

long seconds_of_code(int code) {
    const int difference = code >= 88 && code <= 113 ? (code - 100) * 100 : code - 10000;
    return difference / 100 * 3600L + difference % 100 * 60L;
}

std::string rule_text(const velkor_daylight_rule &rule) {
    static constexpr std::array MONTHS = {"January", "February", "March",     "April",   "May",      "June",
                                          "July",    "August",   "September", "October", "November", "December"};
    if (rule.month < 1 || rule.month > 12 || rule.weekday < 0 || rule.weekday > 6) {
        return "none";
    }
    const std::string which = rule.week >= 5 ? "last" : "week " + std::to_string(rule.week);
    return which + " " + vk_ascWeek(static_cast<unsigned>(rule.weekday)) + " of " +
           MONTHS[static_cast<size_t>(rule.month - 1)] + ", " + std::to_string(rule.hour) + ":00";
}

std::string zone_file_text() {
    std::ifstream file(ZONE_FILE);
    std::string text;
    std::getline(file, text);
    return text;
}

// ---- show ----

int show(bool json) {
    const DaylightConfig config = shared_setting();
    const std::string file = zone_file_text();
    const bool follows = velkor_host_follow_zone_file() == 0;
    const bool is_daylight = vk_time_isInDaylight() == 1;
    const long difference = get_localtz_timediff();
    if (json) {
        print_json({{"code", vk_getCurTimeZone(0)},
                    {"short_code", vk_getCurTimeZone(1)},
                    {"seconds", seconds_of_code(config.zone)},
                    {"daylight_enabled", config.enable != 0},
                    {"daylight_minutes", config.offset},
                    {"text", zone_text(config)},
                    {"file", follows ? Json(file) : Json()},
                    {"local_difference", difference},
                    {"in_daylight", is_daylight}});
        return SUCCESS;
    }
    Table table;
    table.add("zone", std::to_string(vk_getCurTimeZone(1)) + ", " + offset_text(seconds_of_code(config.zone)));
    if (config.enable != 0) {
        table.add("daylight time", std::to_string(config.offset) + " minutes ahead");
        table.add("from", rule_text(config.dst_start));
        table.add("to", rule_text(config.dst_stop));
    } else {
        table.add("daylight time", "off");
    }
    table.add("as text", zone_text(config));
    table.add(ZONE_FILE, follows ? spelt_out(file) : "absent or empty");
    table.add("local time", local_text(time(nullptr)) + (is_daylight ? ", not the zone's standard time" : ""));
    table.print();
    return SUCCESS;
}

void add_show(CLI::App &family, Run &chosen) {
    const auto json = std::make_shared<bool>(false);
    CLI::App &command = *family.add_subcommand("show", "Show the zone, its daylight rule and /etc/TZ");
    add_json(command, *json);
    command.callback([json, &chosen] { chosen = [json] { return show(*json); }; });
}

// ---- set ----

struct SetOptions {
    int code = 0;
    int handle = 0;
    std::string text = "time zone changed";
    bool json = false;
};

int set(const SetOptions &options) {
    if (const int code = vk_setCurTimeZone(options.code, options.handle, options.text.c_str())) {
        throw Failure(BAD_USE, "vk_setCurTimeZone answered " + std::to_string(code) + ": " +
                                   std::to_string(options.code) + " is no zone code (88 to 113, 8800 to 11400)");
    }
    // The library does not tell whether the file was written; the file does.
    DaylightConfig wanted = shared_setting();
    wanted.zone = options.code;
    const std::string written = zone_file_text();
    if (written != zone_text(wanted)) {
        throw Failure(NEGATIVE, std::string("cannot write ") + ZONE_FILE + ": the zone stays as it was");
    }
    if (options.json) {
        print_json({{"code", vk_getCurTimeZone(0)}, {"file", written}});
    } else {
        std::cout << ZONE_FILE << " says " << spelt_out(written) << '\n';
    }
    return SUCCESS;
}

void add_set(CLI::App &family, Run &chosen) {
    const auto options = std::make_shared<SetOptions>();
    CLI::App &command = *family.add_subcommand("set", "Set the zone: writes /etc/TZ, try it in ./dev sandbox");
    command.add_option("CODE", options->code, "88 to 113: UTC + (CODE - 100) hours; 10530: UTC+05:30")->required();
    command.add_option("--handle", options->handle, "For the operation log")->capture_default_str();
    command.add_option("--text", options->text, "For the operation log")->capture_default_str();
    add_json(command, options->json);
    command.footer("Status 1 when /etc/TZ could not be written, 2 when there is no such zone.");
    command.callback([options, &chosen] { chosen = [options] { return set(*options); }; });
}

}  // namespace

}  // namespace tool::zone

void tool::add_zone(CLI::App &velkor, Run &chosen) {
    CLI::App &family = *velkor.add_subcommand("zone", "Show, set and examine the time zone");
    family.require_subcommand(1);
    zone::add_show(family, chosen);
    zone::add_set(family, chosen);
    zone::add_transitions(family, chosen);
    zone::add_compare(family, chosen);
}

// velkor zone compare: a daylight rule beside the system's tz database.
#include <sys/stat.h>
#include <velkor/calendar.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <memory>

#include "exit_status.h"
#include "output.h"
#include "zone_commands.h"

namespace tool::zone {

namespace {

constexpr const char *ZONE_DATABASE = "/usr/share/zoneinfo/";

int code_of_seconds(long seconds) {
    const long minutes = seconds / 60;
    return static_cast<int>(10000 + minutes / 60 * 100 + minutes % 60);
}

long difference_at(time_t instant) {
    struct tm local = {};
    localtime_r(&instant, &local);
    return local.tm_gmtoff;
}

struct YearOfZone {
    int changes = 0;
    long standard = 0;
    long ahead = 0;
    time_t start = 0;
    time_t stop = 0;
};

time_t begin_of(int year) { return static_cast<time_t>((gregorian_to_jd(year, 1, 1) - 2440587.5) * 86400); }

// What the zone that is set does in a year: day by day, then down to the second.
YearOfZone look_at_year(int year) {
    YearOfZone found;
    const time_t end = begin_of(year + 1);
    found.standard = difference_at(begin_of(year));
    for (time_t day = begin_of(year); day < end; day += 86400) {
        if (difference_at(day) == difference_at(day + 86400)) {
            continue;
        }
        time_t before = day;
        time_t after = day + 86400;
        while (after - before > 1) {
            const time_t middle = before + (after - before) / 2;
            (difference_at(middle) == difference_at(day) ? before : after) = middle;
        }
        ++found.changes;
        const bool starts = difference_at(after) > difference_at(before);
        (starts ? found.start : found.stop) = after;
        found.ahead = labs(difference_at(after) - difference_at(before));
        found.standard = std::min(difference_at(after), difference_at(before));
    }
    return found;
}

// The rule whose clock shows this before the change.
velkor_daylight_rule rule_of(time_t change) {
    const time_t shown = change + difference_at(change - 1);
    struct tm date = {};
    gmtime_r(&shown, &date);
    velkor_daylight_rule rule = {};
    rule.month = date.tm_mon + 1;
    rule.weekday = date.tm_wday;
    rule.hour = date.tm_hour;
    const bool is_last = date.tm_mday + 7 > static_cast<int>(gregorian_to_jd(date.tm_year + 1900, date.tm_mon + 2, 1) -
                                                             gregorian_to_jd(date.tm_year + 1900, date.tm_mon + 1, 1));
    rule.week = is_last ? 5 : (date.tm_mday - 1) / 7 + 1;
    return rule;
}

struct Comparison {
    std::string text;
    Json differences = Json::array();
};

// The first year gives the rule, and all years are held against it.
Comparison compare_zone(const std::string &name, const Years &years) {
    use_zone(name);
    const YearOfZone first = look_at_year(years.from);
    DaylightConfig config = {};
    config.zone = code_of_seconds(first.standard);
    if (first.changes == 2 && first.start != 0 && first.stop != 0) {
        config.enable = 1;
        config.offset = static_cast<int32_t>(first.ahead / 60);
        config.dst_start = rule_of(first.start);
        config.dst_stop = rule_of(first.stop);
    }
    Comparison comparison = {zone_text(config), Json::array()};
    if (comparison.text.empty() || first.standard % 60 != 0) {
        comparison.differences.push_back(
            {{"year", years.from}, {"why", "no zone code says " + offset_text(first.standard)}});
        return comparison;
    }
    for (int year = years.from; year <= years.to; ++year) {
        use_zone(name);
        const YearOfZone named = look_at_year(year);
        use_zone(comparison.text);
        velkor_daylight_transitions ours = {};
        const int result = time_GetDaylightTransPosV2(year, &ours, &config);
        if (result == 0 && (ours.start != named.start || ours.stop != named.stop || named.changes != 2)) {
            comparison.differences.push_back({{"year", year}, {"why", "other transitions"}});
        } else if (result != 0 && (named.changes != 0 || named.standard != first.standard)) {
            comparison.differences.push_back({{"year", year}, {"why", "the zone changes, the rule does not"}});
        }
    }
    return comparison;
}

void require_zone(const std::string &name) {
    struct stat status = {};
    const bool is_plain = !name.empty() && name.front() != '/' && name.find("..") == std::string::npos;
    if (!is_plain || stat((ZONE_DATABASE + name).c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw Failure(BAD_USE, "the system knows no zone \"" + spelt_out(name) + "\"");
    }
}

struct CompareOptions {
    std::vector<std::string> names;
    Years years;
    bool json = false;
};

int compare(CompareOptions options) {
    options.years.complete();
    Json all = Json::array();
    bool is_same = true;
    for (const std::string &name : options.names) {
        require_zone(name);
        const Comparison comparison = compare_zone(name, options.years);
        is_same &= comparison.differences.empty();
        if (options.json) {
            all.push_back({{"zone", name}, {"text", comparison.text}, {"differences", comparison.differences}});
            continue;
        }
        std::cout << name << "  " << comparison.text << "  "
                  << (comparison.differences.empty() ? "the same in every year" : "differs") << '\n';
        for (const Json &difference : comparison.differences) {
            std::cout << "    " << difference["year"] << "  " << difference["why"].get<std::string>() << '\n';
        }
    }
    if (options.json) {
        print_json(all);
    }
    return is_same ? SUCCESS : NEGATIVE;
}

}  // namespace

void add_compare(CLI::App &family, Run &chosen) {
    const auto options = std::make_shared<CompareOptions>();
    CLI::App &command =
        *family.add_subcommand("compare", "Hold a daylight rule against named zones of the system's database");
    add_words(command, "NAME", options->names, "Zones, for example Europe/Berlin")->required();
    options->years.add_to(command);
    add_json(command, options->json);
    command.footer(
        "The rule is read off the first year, as a recorder would be set, and every year is held against it.\n"
        "Status 1 when a year differs.");
    command.callback([options, &chosen] { chosen = [options] { return compare(*options); }; });
}

}  // namespace tool::zone

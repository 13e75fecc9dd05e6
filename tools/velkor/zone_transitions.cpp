// velkor zone transitions: a daylight rule, year by year.
#include <velkor/calendar.h>

#include <cstdio>
#include <iostream>
#include <memory>

#include "exit_status.h"
#include "output.h"
#include "zone_commands.h"

namespace tool::zone {

namespace {

struct TransitionOptions {
    std::string start;
    std::string stop;
    int code = 0;
    int offset = 60;
    Years years;
    bool json = false;
};

velkor_daylight_rule parse_rule(const std::string &text) {
    velkor_daylight_rule rule = {};
    int end = 0;
    const int read =
        sscanf(text.c_str(), "%2d/%1d/%1d/%2d%n", &rule.month, &rule.week, &rule.weekday, &rule.hour, &end);
    if (read != 4 || static_cast<size_t>(end) != text.size() || rule.month < 1 || rule.month > 12 || rule.week < 1 ||
        rule.week > 5 || rule.weekday < 0 || rule.weekday > 6 || rule.hour < 0 || rule.hour > 23) {
        throw Failure(BAD_USE,
                      "a rule is MONTH/WEEK/WEEKDAY/HOUR, 3/5/0/2 for the last Sunday of March at 2:00, not \"" +
                          spelt_out(text) + "\"");
    }
    return rule;
}

DaylightConfig chosen_setting(const TransitionOptions &options) {
    if (options.start.empty() != options.stop.empty()) {
        throw Failure(BAD_USE, "--start and --stop go together");
    }
    DaylightConfig config = shared_setting();
    if (!options.start.empty()) {
        config.enable = 1;
        config.offset = options.offset;
        config.dst_start = parse_rule(options.start);
        config.dst_stop = parse_rule(options.stop);
    }
    if (options.code != 0) {
        config.zone = options.code;
    }
    return config;
}

int transitions(TransitionOptions options) {
    options.years.complete();
    const DaylightConfig config = chosen_setting(options);
    const std::string text = zone_text(config);
    if (text.empty()) {
        throw Failure(BAD_USE, std::to_string(config.zone) + " is no zone code");
    }
    use_zone(text);
    Json years = Json::array();
    for (int year = options.years.from; year <= options.years.to; ++year) {
        velkor_daylight_transitions found = {};
        if (const int code = time_GetDaylightTransPosV2(year, &found, &config)) {
            throw Failure(NEGATIVE, "time_GetDaylightTransPosV2 answered " + std::to_string(code) +
                                        (code == -5 ? ": daylight saving is off" : ": the rule is none"));
        }
        if (options.json) {
            years.push_back({{"year", year}, {"start", found.start}, {"stop", found.stop}, {"offset", found.offset}});
        } else {
            std::cout << year << "  " << local_text(found.start - 1) << "  ->  " << local_text(found.start) << '\n'
                      << year << "  " << local_text(found.stop - 1) << "  ->  " << local_text(found.stop) << '\n';
        }
    }
    if (options.json) {
        print_json(years);
    }
    return SUCCESS;
}

}  // namespace

void add_transitions(CLI::App &family, Run &chosen) {
    const auto options = std::make_shared<TransitionOptions>();
    CLI::App &command = *family.add_subcommand("transitions", "When daylight time starts and stops, year by year");
    command.add_option("--start", options->start, "MONTH/WEEK/WEEKDAY/HOUR; week 5 is the last, week day 0 Sunday");
    command.add_option("--stop", options->stop, "The same, by the clock of daylight time");
    command.add_option("--offset", options->offset, "Minutes that daylight time is ahead")->capture_default_str();
    command.add_option("--code", options->code, "Zone code (default: the recorder's)");
    options->years.add_to(command);
    add_json(command, options->json);
    command.footer("Without a rule, that of the recorder's setting. Status 1 when daylight saving is off.");
    command.callback([options, &chosen] { chosen = [options] { return transitions(*options); }; });
}

}  // namespace tool::zone

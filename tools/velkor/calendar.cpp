// velkor calendar: dates in both calendars.
#include <velkor/calendar.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <memory>

#include "command_line.h"
#include "exit_status.h"
#include "output.h"

namespace tool::calendar {

namespace {

constexpr int LAST_YEAR = 9999;
constexpr int PERSIAN_YEAR_OFFSET = 621;
constexpr double EPOCH_JD = 2440587.5;
constexpr double SECONDS_IN_DAY = 86400;

constexpr std::array PERSIAN_MONTHS = {"Farvardin", "Ordibehesht", "Khordad", "Tir", "Mordad", "Shahrivar",
                                       "Mehr",      "Aban",        "Azar",    "Dey", "Bahman", "Esfand"};
constexpr std::array GREGORIAN_MONTHS = {"January", "February", "March",     "April",   "May",      "June",
                                         "July",    "August",   "September", "October", "November", "December"};

// ---- Dates ----

struct Date {
    velkor_calendar calendar;
    velkor_date date;
};

bool is_persian(const Date &date) { return date.calendar == VELKOR_PERSIAN; }

const char *name_of(velkor_calendar calendar) { return calendar == VELKOR_PERSIAN ? "persian" : "gregorian"; }

const char *month_name(const Date &date) {
    const auto index = static_cast<size_t>(date.date.month - 1);
    return is_persian(date) ? PERSIAN_MONTHS[index] : GREGORIAN_MONTHS[index];
}

int days_in_month(velkor_calendar calendar, int year, int month) {
    if (calendar == VELKOR_PERSIAN) {
        return GuiGetShamsiMaxDaysForMon(year, month);
    }
    const int next_year = month == 12 ? year + 1 : year;
    const int next_month = month == 12 ? 1 : month + 1;
    return static_cast<int>(gregorian_to_jd(next_year, next_month, 1) - gregorian_to_jd(year, month, 1));
}

std::string text_of(const velkor_date &date) {
    std::array<char, 40> text;
    snprintf(text.data(), text.size(), "%04d-%02d-%02d", date.year, date.month, date.day);
    return text.data();
}

int weekday_of(const Date &date) {
    int weekday = 0;
    getWeekByDate(date.calendar, date.date.year, date.date.month, date.date.day, &weekday);
    return weekday;
}

Date other_calendar(const Date &date) {
    Date other = {is_persian(date) ? VELKOR_GREGORIAN : VELKOR_PERSIAN, {}};
    if (const int code = conversionDate(date.calendar, date.date.year, date.date.month, date.date.day, &other.date)) {
        throw Failure(NEGATIVE, "conversionDate answered " + std::to_string(code) + ": no such date");
    }
    return other;
}

std::string described(const Date &date) {
    return std::string(vk_ascWeek(static_cast<unsigned>(weekday_of(date)))) + " " + text_of(date.date) + " (" +
           std::to_string(date.date.day) + " " + month_name(date) + " " + std::to_string(date.date.year) + ")";
}

Json in_json(const Date &date) {
    return {{"year", date.date.year}, {"month", date.date.month}, {"day", date.date.day}, {"text", text_of(date.date)}};
}

void print_both(const Date &first, const Date &second, bool json) {
    if (json) {
        print_json({{"weekday", vk_ascWeek(static_cast<unsigned>(weekday_of(first)))},
                    {name_of(first.calendar), in_json(first)},
                    {name_of(second.calendar), in_json(second)}});
        return;
    }
    Table table;
    table.add(name_of(first.calendar), described(first));
    table.add(name_of(second.calendar), described(second));
    table.print();
}

void require_year(int year) {
    if (year < 1 || year > LAST_YEAR) {
        throw Failure(BAD_USE, "years are 1 to " + std::to_string(LAST_YEAR) + ", not " + std::to_string(year));
    }
}

bool exists(const Date &date) {
    const auto [year, month, day] = date.date;
    return month >= 1 && month <= 12 && day >= 1 && day <= days_in_month(date.calendar, year, month);
}

void require_date(const Date &date, const std::string &text) {
    require_year(date.date.year);
    if (!exists(date)) {
        throw Failure(BAD_USE, std::string("there is no ") + name_of(date.calendar) + " date " + spelt_out(text));
    }
}

Date parse_date(const std::string &text, velkor_calendar calendar) {
    Date date = {calendar, {}};
    int end = 0;
    if (sscanf(text.c_str(), "%5d-%2d-%2d%n", &date.date.year, &date.date.month, &date.date.day, &end) != 3 ||
        static_cast<size_t>(end) != text.size()) {
        throw Failure(BAD_USE, "a date is YEAR-MONTH-DAY, not \"" + spelt_out(text) + "\"");
    }
    require_date(date, text);
    return date;
}

// Its first day.
Date parse_month(const std::string &text, velkor_calendar calendar) {
    Date first = {calendar, {0, 0, 1}};
    int end = 0;
    if (sscanf(text.c_str(), "%5d-%2d%n", &first.date.year, &first.date.month, &end) != 2 ||
        static_cast<size_t>(end) != text.size()) {
        throw Failure(BAD_USE, "a month is YEAR-MONTH, not \"" + spelt_out(text) + "\"");
    }
    require_date(first, text);
    return first;
}

Date today(velkor_calendar calendar) {
    const time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    const Date gregorian = {VELKOR_GREGORIAN, {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday}};
    return calendar == VELKOR_GREGORIAN ? gregorian : other_calendar(gregorian);
}

// ---- today, to-persian, to-gregorian ----

int show_today(bool json) {
    print_both(today(VELKOR_GREGORIAN), today(VELKOR_PERSIAN), json);
    return SUCCESS;
}

void add_conversion(CLI::App &family, Run &chosen, const std::string &name, velkor_calendar from) {
    struct Options {
        std::string date;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App &command = *family.add_subcommand(
        name, "Convert a " + std::string(from == VELKOR_PERSIAN ? "Persian" : "Gregorian") + " date");
    command.add_option("DATE", options->date, "YEAR-MONTH-DAY")->required();
    add_json(command, options->json);
    command.footer("Years are 1 to 9999. Status 2 when there is no such date.");
    command.callback([options, from, &chosen] {
        chosen = [options, from] {
            const Date date = parse_date(options->date, from);
            print_both(date, other_calendar(date), options->json);
            return SUCCESS;
        };
    });
}

// ---- month ----

struct MonthOptions {
    std::string month;
    bool persian = false;
    bool json = false;
};

Date first_day(const MonthOptions &options) {
    const velkor_calendar calendar = options.persian ? VELKOR_PERSIAN : VELKOR_GREGORIAN;
    if (!options.month.empty()) {
        return parse_month(options.month, calendar);
    }
    Date date = today(calendar);
    date.date.day = 1;
    return date;
}

// Weeks begin on Sunday, in Iran on Saturday.
void print_month(const Date &first) {
    constexpr size_t WIDTH = 20;
    constexpr std::array NAMES = {"Su", "Mo", "Tu", "We", "Th", "Fr", "Sa"};
    const int first_column = is_persian(first) ? 6 : 0;
    const std::string title = std::string(month_name(first)) + " " + std::to_string(first.date.year);
    std::cout << std::string((WIDTH - title.size()) / 2, ' ') << title << '\n';
    for (size_t column = 0; column < NAMES.size(); ++column) {
        std::cout << (column == 0 ? "" : " ") << NAMES[(column + static_cast<size_t>(first_column)) % NAMES.size()];
    }
    int column = (weekday_of(first) - first_column + 7) % 7;
    std::cout << '\n' << std::string(static_cast<size_t>(column) * 3, ' ');
    const int days = days_in_month(first.calendar, first.date.year, first.date.month);
    for (int day = 1; day <= days; ++day) {
        std::cout << (day < 10 ? " " : "") << day;
        column = (column + 1) % 7;
        std::cout << (column == 0 || day == days ? "\n" : " ");
    }
}

int show_month(const MonthOptions &options) {
    const Date first = first_day(options);
    if (options.json) {
        print_json({{"calendar", name_of(first.calendar)},
                    {"year", first.date.year},
                    {"month", first.date.month},
                    {"name", month_name(first)},
                    {"days", days_in_month(first.calendar, first.date.year, first.date.month)},
                    {"first_weekday", vk_ascWeek(static_cast<unsigned>(weekday_of(first)))}});
    } else {
        print_month(first);
    }
    return SUCCESS;
}

void add_month(CLI::App &family, Run &chosen) {
    const auto options = std::make_shared<MonthOptions>();
    CLI::App &command = *family.add_subcommand("month", "Show a month, by default this one");
    command.add_option("MONTH", options->month, "YEAR-MONTH");
    command.add_flag("--persian", options->persian, "A month of the Persian calendar");
    add_json(command, options->json);
    command.footer("Weeks begin on Sunday, those of the Persian calendar on Saturday.");
    command.callback([options, &chosen] { chosen = [options] { return show_month(*options); }; });
}

// ---- nowruz ----

std::string clock_text(double jd) {
    const auto seconds = static_cast<long long>(std::floor((jd - EPOCH_JD) * SECONDS_IN_DAY + 0.5));
    const long long of_day = (seconds % 86400 + 86400) % 86400;
    velkor_date date;
    jd_to_gregorian(&date, EPOCH_JD + static_cast<double>(seconds - of_day) / SECONDS_IN_DAY);
    std::array<char, 40> text;
    snprintf(text.data(), text.size(), " %02lld:%02lld:%02lld", of_day / 3600, of_day / 60 % 60, of_day % 60);
    return text_of(date) + text.data();
}

int show_nowruz(int year, bool json) {
    constexpr double TEHRAN_CLOCK = 3.5 / 24;
    require_year(year);
    const int gregorian_year = year + PERSIAN_YEAR_OFFSET;
    const double universal = equinox(gregorian_year, 0) - deltat(gregorian_year) / SECONDS_IN_DAY;
    const Date first = {VELKOR_PERSIAN, {year, 1, 1}};
    if (json) {
        print_json({{"year", year},
                    {"equinox_utc", clock_text(universal)},
                    {"equinox_tehran", clock_text(universal + TEHRAN_CLOCK)},
                    {"equinox_reckoned", clock_text(tehran_equinox(gregorian_year))},
                    {"first_day", in_json(other_calendar(first))},
                    {"weekday", vk_ascWeek(static_cast<unsigned>(weekday_of(first)))},
                    {"leap", leap_persian(year) == 1}});
        return SUCCESS;
    }
    Table table;
    table.add("equinox", clock_text(universal) + " UTC");
    table.add("in Tehran", clock_text(universal + TEHRAN_CLOCK) + " UTC+03:30");
    table.add("reckoned", clock_text(tehran_equinox(gregorian_year)) + " apparent time, as the recorder has it");
    table.add("first day", described(other_calendar(first)));
    table.add("length", leap_persian(year) == 1 ? "366 days" : "365 days");
    table.print();
    return SUCCESS;
}

void add_nowruz(CLI::App &family, Run &chosen) {
    struct Options {
        int year = 0;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App &command = *family.add_subcommand("nowruz", "When a Persian year begins, and why");
    command.add_option("YEAR", options->year, "Persian year")->required();
    add_json(command, options->json);
    command.footer(
        "The year begins on the day on which the reckoned equinox falls before noon. It is reckoned some 25 minutes\n"
        "late, as every recorder does: a few years begin a day later than published.");
    command.callback([options, &chosen] { chosen = [options] { return show_nowruz(options->year, options->json); }; });
}

// ---- leap ----

struct LeapOptions {
    int from = 0;
    int to = 0;
    bool gregorian = false;
    bool json = false;
};

int show_leap_years(const LeapOptions &options) {
    require_year(options.from);
    require_year(options.to);
    if (options.from > options.to) {
        throw Failure(BAD_USE, "FROM is after TO");
    }
    Json years = Json::array();
    for (int year = options.from; year <= options.to; ++year) {
        if ((options.gregorian ? leap_gregorian(year) : leap_persian(year)) == 1) {
            years.push_back(year);
        }
    }
    if (options.json) {
        print_json(years);
    } else {
        for (const Json &year : years) {
            std::cout << year << '\n';
        }
    }
    return years.empty() ? NEGATIVE : SUCCESS;
}

void add_leap(CLI::App &family, Run &chosen) {
    const auto options = std::make_shared<LeapOptions>();
    CLI::App &command = *family.add_subcommand("leap", "List the leap years from one Persian year to another");
    command.add_option("FROM", options->from, "First year")->required();
    command.add_option("TO", options->to, "Last year")->required();
    command.add_flag("--gregorian", options->gregorian, "Years of the Gregorian calendar");
    add_json(command, options->json);
    command.footer("Status 1 when there is none.");
    command.callback([options, &chosen] { chosen = [options] { return show_leap_years(*options); }; });
}

}  // namespace

}  // namespace tool::calendar

void tool::add_calendar(CLI::App &velkor, Run &chosen) {
    const auto json = std::make_shared<bool>(false);
    CLI::App &family = *velkor.add_subcommand("calendar", "Dates in the Gregorian and the Persian calendar");
    add_json(family, *json);
    family.footer("Without a command: today in both calendars.");
    calendar::add_conversion(family, chosen, "to-persian", VELKOR_GREGORIAN);
    calendar::add_conversion(family, chosen, "to-gregorian", VELKOR_PERSIAN);
    calendar::add_month(family, chosen);
    calendar::add_nowruz(family, chosen);
    calendar::add_leap(family, chosen);
    family.callback([json, &family, &chosen] {
        if (family.get_subcommands().empty()) {
            chosen = [json] { return calendar::show_today(*json); };
        }
    });
}

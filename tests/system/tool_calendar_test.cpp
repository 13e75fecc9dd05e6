// velkor calendar, as a person or a script uses it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <velkor/calendar.h>

#include <nlohmann/json.hpp>
#include <string>

#include "support/place.h"
#include "support/tool.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;

TEST(ToolCalendar, ShowsTodayInBothCalendars) {
    const std::string before = place::output_of("date +%Y-%m-%d");
    const tool::Outcome outcome = tool::run("calendar --json");
    const std::string after = place::output_of("date +%Y-%m-%d");
    EXPECT_EQ(outcome.status, 0);
    const json today = json::parse(outcome.out);
    const std::string shown = today["gregorian"]["text"].get<std::string>() + "\n";
    EXPECT_TRUE(shown == before || shown == after) << shown;
    velkor_date persian;
    MiladiToShamsi(&persian, today["gregorian"]["year"], today["gregorian"]["month"], today["gregorian"]["day"]);
    EXPECT_EQ(today["persian"]["year"], persian.year);
    EXPECT_EQ(today["persian"]["day"], persian.day);
}

TEST(ToolCalendar, ConvertsEitherWay) {
    const tool::Outcome persian = tool::run("calendar to-persian 2024-03-20");
    EXPECT_EQ(persian.status, 0);
    EXPECT_EQ(persian.out, "gregorian  Wed 2024-03-20 (20 March 2024)\npersian    Wed 1403-01-01 (1 Farvardin 1403)\n");
    const tool::Outcome gregorian = tool::run("calendar to-gregorian 1403-12-30 --json");
    EXPECT_EQ(gregorian.status, 0);
    EXPECT_EQ(json::parse(gregorian.out)["gregorian"]["text"], "2025-03-20");
}

TEST(ToolCalendar, HelpsEverywhere) {
    for (const char *command : {"calendar", "calendar to-persian", "calendar to-gregorian", "calendar month",
                                "calendar nowruz", "calendar leap"}) {
        const tool::Outcome help = tool::run(std::string(command) + " --help");
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_THAT(help.out, HasSubstr(std::string("Usage: velkor ") + command)) << command;
    }
}

TEST(ToolCalendar, RefusesWhatIsNoDate) {
    for (const char *date : {"1404-12-30", "1403-13-1", "1403-1-0", "0-1-1", "yesterday", "1403-1-1x", "''"}) {
        const tool::Outcome outcome = tool::run(std::string("calendar to-gregorian ") + date);
        EXPECT_EQ(outcome.status, 2) << date;
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(outcome.err, HasSubstr("velkor: "));
    }
}

TEST(ToolCalendar, RefusesWhatIsNoMonth) {
    for (const char *month : {"2024-13", "2024", "2024-2-1", "may"}) {
        const tool::Outcome outcome = tool::run(std::string("calendar month ") + month);
        EXPECT_EQ(outcome.status, 2) << month;
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(outcome.err, HasSubstr("velkor: "));
    }
}

TEST(ToolCalendar, ShowsAMonthWithWeeksFromSunday) {
    EXPECT_EQ(tool::run("calendar month 2024-2").out,
              "   February 2024\n"
              "Su Mo Tu We Th Fr Sa\n"
              "             1  2  3\n"
              " 4  5  6  7  8  9 10\n"
              "11 12 13 14 15 16 17\n"
              "18 19 20 21 22 23 24\n"
              "25 26 27 28 29\n");
}

TEST(ToolCalendar, ShowsAPersianMonthWithWeeksFromSaturday) {
    EXPECT_EQ(tool::run("calendar month --persian 1403-12").out,
              "    Esfand 1403\n"
              "Sa Su Mo Tu We Th Fr\n"
              "             1  2  3\n"
              " 4  5  6  7  8  9 10\n"
              "11 12 13 14 15 16 17\n"
              "18 19 20 21 22 23 24\n"
              "25 26 27 28 29 30\n");
}

TEST(ToolCalendar, TellsWhenAYearBegins) {
    const tool::Outcome outcome = tool::run("calendar nowruz 1403 --json");
    EXPECT_EQ(outcome.status, 0);
    const json nowruz = json::parse(outcome.out);
    EXPECT_THAT(nowruz["equinox_utc"].get<std::string>(), HasSubstr("2024-03-20 03:06:"));
    EXPECT_THAT(nowruz["equinox_tehran"].get<std::string>(), HasSubstr("2024-03-20 06:36:"));
    EXPECT_EQ(nowruz["first_day"]["text"], "2024-03-20");
    EXPECT_EQ(nowruz["leap"], true);
}

TEST(ToolCalendar, ListsLeapYears) {
    EXPECT_EQ(tool::run("calendar leap 1390 1410").out, "1391\n1395\n1399\n1403\n1408\n");
    EXPECT_EQ(json::parse(tool::run("calendar leap --gregorian 1896 1904 --json").out), json({1896, 1904}));
    EXPECT_EQ(tool::run("calendar leap 1404 1407").status, 1);
    EXPECT_EQ(tool::run("calendar leap 1407 1404").status, 2);
}

}  // namespace

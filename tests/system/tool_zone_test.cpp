// velkor zone, as a person or a script uses it: the real file, the real setting, the system's zones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor_host.h>

#include <nlohmann/json.hpp>
#include <string>

#include "support/place.h"
#include "support/tool.h"

namespace {

using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;

TEST(ToolZone, SetsTheZoneForTheNextProcess) {
    const tool::Outcome outcome = tool::run("zone set 10530 --text moved --handle 17");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "/etc/TZ says <+0530>-05:30\n");
    EXPECT_EQ(place::read_file("/etc/TZ"), "<+0530>-05:30\n");
    EXPECT_THAT(place::read_file(VELKOR_HOST_OPERATION_LOG), EndsWith("] 17 3 0xFFF0 3018 moved\n"));
    const json shown = json::parse(tool::run("zone show --json").out);
    EXPECT_EQ(shown["code"], 10530);
    EXPECT_EQ(shown["local_difference"], 19800);
    EXPECT_EQ(shown["in_daylight"], false);
}

TEST(ToolZone, SaysWhatItSetInJson) {
    const json set = json::parse(tool::run("zone set 108 --json").out);
    EXPECT_EQ(set["code"], 10800);
    EXPECT_EQ(set["file"], "<+0800>-08:00");
}

TEST(ToolZone, HelpsEverywhere) {
    for (const char *command : {"zone", "zone show", "zone set", "zone transitions", "zone compare"}) {
        const tool::Outcome help = tool::run(std::string(command) + " --help");
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_THAT(help.out, HasSubstr(std::string("Usage: velkor ") + command)) << command;
    }
}

TEST(ToolZone, RefusesACodeThatIsNone) {
    const tool::Outcome outcome = tool::run("zone set 120");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err, HasSubstr("answered -1"));
    EXPECT_EQ(place::read_file("/etc/TZ"), "UTC0\n");
}

TEST(ToolZone, SaysWhenTheFileCannotBeWritten) {
    ASSERT_EQ(tool::run("zone set 10530").status, 0);
    unlink("/etc/TZ");
    ASSERT_EQ(mkdir("/etc/TZ", 0755), 0);
    for (const char *code : {"108", "10530"}) {  // another zone, and the one that is set
        const tool::Outcome outcome = tool::run(std::string("zone set ") + code);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.err, HasSubstr("cannot write /etc/TZ"));
    }
    EXPECT_EQ(json::parse(tool::run("zone show --json").out)["code"], 10530);
}

TEST(ToolZone, ShowsDaylightTime) {
    place::write_file(VELKOR_HOST_DAYLIGHT_FILE, "enable=1\nzone=10100\nstart=33816578\nstop=151257091\noffset=60\n");
    const tool::Outcome outcome = tool::run("zone show");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr("last Sun of March, 2:00"));
    EXPECT_THAT(outcome.out, HasSubstr("last Sun of October, 3:00"));
    EXPECT_THAT(outcome.out, HasSubstr("<+0100>-01:00<+0200>-02:00,M3.5.0/2,M10.5.0/3"));
}

TEST(ToolZone, TellsTheTransitionsOfARule) {
    const tool::Outcome outcome = tool::run("zone transitions --start 3/5/0/2 --stop 10/5/0/3 --code 101 --from 2026");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out,
              "2026  2026-03-29 01:59:59 UTC+01:00  ->  2026-03-29 03:00:00 UTC+02:00\n"
              "2026  2026-10-25 02:59:59 UTC+02:00  ->  2026-10-25 02:00:00 UTC+01:00\n");
    EXPECT_EQ(tool::run("zone transitions").status, 1);
    EXPECT_EQ(tool::run("zone transitions --start 3/5/0/2 --stop 10/5/0/3 --from 2038").status, 2);
    EXPECT_EQ(tool::run("zone transitions --start 3/5/0/2").status, 2);
    EXPECT_EQ(tool::run("zone transitions --start 13/5/0/2 --stop 10/5/0/3").status, 2);
}

TEST(ToolZone, ComparesNamedZones) {
    const tool::Outcome same =
        tool::run("zone compare Europe/Berlin Australia/Lord_Howe Asia/Kolkata --from 2015 --to 2025");
    EXPECT_EQ(same.status, 0) << same.out;
    const tool::Outcome other = tool::run("zone compare Asia/Tehran --from 2021 --to 2023 --json");
    EXPECT_EQ(other.status, 1);
    const json differences = json::parse(other.out)[0]["differences"];
    EXPECT_EQ(differences.back()["year"], 2023);  // no daylight time any more
    EXPECT_EQ(tool::run("zone compare nowhere").status, 2);
    EXPECT_EQ(tool::run("zone compare ../../etc/passwd").status, 2);
}

}  // namespace

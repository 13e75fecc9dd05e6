#include "clock.h"

#include <time.h>
#include <velkor/calendar.h>

#include <cstdio>

namespace recorder {

namespace {

constexpr int LAST_WEEK = 5;
constexpr int SUNDAY = 0;

struct tm local_time(time_t moment) {
    struct tm parts = {};
    localtime_r(&moment, &parts);
    return parts;
}

// What the rule says in words: the last Sunday of a month of 31 days.
bool is_last_sunday_of(int month, time_t moment) {
    const struct tm parts = local_time(moment);
    return parts.tm_mon + 1 == month && parts.tm_wday == SUNDAY && parts.tm_mday > 31 - 7;
}

std::string day_of(time_t moment) {
    char text[64] = "";
    TimeToString("Y-M-D", text, moment);
    return text;
}

}  // namespace

// A rule of its own: from the last Sunday of March at 2 o'clock to the last one of October at 3.
void WallClock::prepare() {
    DaylightConfig config = {};
    config.zone = 100;
    config.enable = 1;
    config.offset = 60;
    config.dst_start = {3, LAST_WEEK, SUNDAY, 2, {}};
    config.dst_stop = {10, LAST_WEEK, SUNDAY, 3, {}};
    velkor_daylight_transitions change = {};
    const int year = local_time(time(nullptr)).tm_year + 1900;
    expect(time_GetDaylightTransPosV2(year, &change, &config) == 0, "the daylight rule is followed");
    expect(is_last_sunday_of(3, change.start) && is_last_sunday_of(10, change.stop), "it leads to the right days");
    daylight_ = day_of(change.start) + " to " + day_of(change.stop);
}

// The Persian day, converted back, is the Gregorian one.
void WallClock::turn() {
    const time_t now = setmytime();  // for all who ask getmytime()
    expect(set_uptime() == 0, "the uptime is read");
    char gregorian[64] = "";
    TimeToString("Y-M-D H:I:S", gregorian, now);
    char persian[64] = "";
    CalTimeToString("Y-M-D", persian, now);
    velkor_date day = {};
    expect(sscanf(persian, "%4d-%2d-%2d", &day.year, &day.month, &day.day) == 3, "a Persian date is written");
    expect(conversionDate(VELKOR_PERSIAN, day.year, day.month, day.day, &day) == 0, "a date is converted");
    expect(std::string(gregorian, 10) == format("%04d-%02d-%02d", day.year, day.month, day.day),
           "a Persian date is the day that it came from");
    gregorian_.set(gregorian);
    persian_.set(persian);
    ++converted_;
}

void WallClock::conclude() { expect(converted_ > 0, "dates are converted"); }

Panel WallClock::panel() const { return {gregorian_.get() + "   " + persian_.get(), "daylight " + daylight_}; }

std::string WallClock::tally() const { return format("%u dates", converted_.load()); }

std::string WallClock::summary() const {
    return format("%u dates there and back, the last one %s, %s; daylight time %s", converted_.load(),
                  gregorian_.get().substr(0, 10).c_str(), persian_.get().c_str(), daylight_.c_str());
}

}  // namespace recorder

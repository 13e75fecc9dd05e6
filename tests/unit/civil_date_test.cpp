#include "support/civil_date.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <time.h>

#include <limits>
#include <random>
#include <string>

#include "support/sweep.h"

namespace {

std::string text_of(const struct tm &date) {
    return std::to_string(date.tm_year) + "-" + std::to_string(date.tm_mon) + "-" + std::to_string(date.tm_mday) + " " +
           std::to_string(date.tm_hour) + ":" + std::to_string(date.tm_min) + ":" + std::to_string(date.tm_sec) + " " +
           std::to_string(date.tm_wday);
}

// Seconds whose year an int can hold, near and far.
template <typename Check>
void for_many_seconds(Check check) {
    std::mt19937_64 random(1);
    const int64_t farthest = std::min<int64_t>(std::numeric_limits<time_t>::max(), int64_t{2000000000} * 31556952);
    for (unsigned i = 0; i < sweep::cases(100000); ++i) {
        const int64_t range = i % 2 == 0 ? farthest : 4000000000;
        const auto seconds = static_cast<int64_t>(random() % static_cast<uint64_t>(2 * range)) - range;
        check(static_cast<time_t>(std::clamp<int64_t>(seconds, std::numeric_limits<time_t>::min(), farthest)));
    }
}

TEST(CivilDate, IsThatOfTheCLibrary) {
    for_many_seconds([](time_t seconds) {
        struct tm expected;
        ASSERT_NE(gmtime_r(&seconds, &expected), nullptr) << seconds;
        ASSERT_EQ(text_of(velkor::date_of_seconds(seconds)), text_of(expected)) << seconds;
    });
}

TEST(CivilDate, OfEachDayFollowsTheOneBefore) {
    for (int64_t day = -300000; day < 300000; ++day) {
        struct tm date = {};
        velkor::set_date(date, day);
        ASSERT_EQ(velkor::days_of_date(int64_t{date.tm_year} + 1900, date.tm_mon + 1, date.tm_mday), day);
    }
}

TEST(CivilDate, IsCountedBackToItsSeconds) {
    for_many_seconds(
        [](time_t seconds) { ASSERT_EQ(velkor::seconds_of_date(velkor::date_of_seconds(seconds)), int64_t{seconds}); });
}

TEST(ClockText, IsWhatTheCLibraryWrites) {
    for_many_seconds([](time_t seconds) {
        struct tm date;
        ASSERT_NE(gmtime_r(&seconds, &date), nullptr) << seconds;
        char expected[64] = "";
        const bool fits = date.tm_year <= 9999 - 1900 && date.tm_year >= -999 - 1900;
        char text[velkor::CLOCK_TEXT_SIZE];
        velkor::format_clock_text(text, date);
        ASSERT_STREQ(text, fits ? asctime_r(&date, expected) : "") << seconds;
    });
}

TEST(ClockText, HasTwentyFiveCharacters) {
    char text[velkor::CLOCK_TEXT_SIZE];
    velkor::format_clock_text(text, velkor::date_of_seconds(1700000000));
    EXPECT_STREQ(text, "Tue Nov 14 22:13:20 2023\n");
    velkor::format_clock_text(text, velkor::date_of_seconds(0));
    EXPECT_STREQ(text, "Thu Jan  1 00:00:00 1970\n");
}

}  // namespace

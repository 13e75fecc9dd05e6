// Any numbers as dates and instants, any bytes as templates and dates in text: every call comes back, writes no more
// than it may, and where dates are exact both ways agree.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <velkor/calendar.h>

#include <cmath>
#include <string>

namespace {

// Takes numbers off the front of the input; zeros where it ends.
class Input {
public:
    Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}

    template <typename Number>
    Number take() {
        Number number = 0;
        const size_t length = size_ < sizeof number ? size_ : sizeof number;
        if (length != 0) {
            memcpy(&number, data_, length);
        }
        data_ += length;
        size_ -= length;
        return number;
    }

    std::string rest() const { return {reinterpret_cast<const char *>(data_), size_}; }

private:
    const uint8_t *data_;
    size_t size_;
};

void require(bool condition) {
    if (!condition) {
        abort();
    }
}

// A day of which docs and header promise that both calendars agree.
bool is_exact(double jd) { return jd >= 1721426 && jd < 5000000; }

void convert_day(double jd) {
    velkor_date gregorian;
    jd_to_gregorian(&gregorian, jd);
    velkor_date persian;
    jd_to_persian(&persian, jd);
    double year = 0;
    double noon = 0;
    persiana_year(&year, &noon, jd);
    persiana_to_jd(jd, 1, 1);
    tehran_equinox(jd);
    if (!is_exact(jd)) {
        return;
    }
    const double midnight = std::floor(jd - 0.5) + 0.5;
    require(gregorian_to_jd(gregorian.year, gregorian.month, gregorian.day) == midnight);
    require(persian_to_jd(persian.year, persian.month, persian.day) == std::floor(jd) + 0.5);
    require(year == persian.year && noon <= jd);
}

void convert_date(int year, int month, int day) {
    velkor_date date;
    MiladiToShamsi(&date, year, month, day);
    ShamsiToMiladi(&date, year, month, day);
    leap_persian(year);
    velkor_month_week_day rule;
    require(ShamsiToMiladi_DaylightSaving(year, month, day, day, &rule) == 0);
    const int days = GuiGetShamsiMaxDaysForMon(year, month);
    require(days >= 29 && days <= 31);
    const int times = MiladiMonthNUM(year, month, day);
    require(times == 4 || times == 5);
    const velkor_persian_rule persian_rule = {year, month, day, day, day};
    time_t instant = 0;
    getTimeByDSTParam(&persian_rule, &instant);
}

// The longest text of a template: four bytes for each of its own, the end, and the 32 that the caller must leave.
void write_text(const std::string &format, time_t when) {
    std::string out(format.size() * 4 + 33, '#');
    TimeToString(format.c_str(), out.data(), when);
    CalTimeToString(format.c_str(), out.data(), when);
    require(strlen(out.c_str()) <= strlen(format.c_str()) * 4);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    convert_day(input.take<double>());
    convert_day(input.take<int32_t>() / 64.0);
    const int year = input.take<int32_t>();
    const int month = input.take<int32_t>();
    convert_date(year, month, input.take<int32_t>());
    const int likely_year = input.take<int16_t>();
    const int likely_month = input.take<int8_t>();
    convert_date(likely_year, likely_month, input.take<int8_t>());
    const auto when = static_cast<time_t>(input.take<int64_t>());
    const std::string text = input.rest();
    write_text(text, when);
    StrToTime(text.c_str());
    StrToTimeEx(text.c_str());
    return 0;
}

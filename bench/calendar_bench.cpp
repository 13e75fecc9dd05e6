// What dates cost: Persian dates beside ICU's calendar, date text beside strftime().
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <time.h>
#include <unicode/ucal.h>
#include <unistd.h>
#include <velkor/calendar.h>

#include <cstdlib>

namespace {

constexpr double MILLISECONDS_IN_DAY = 86400e3;
constexpr double EPOCH_JD = 2440587.5;

UCalendar *open_calendar(const char *locale) {
    UErrorCode error = U_ZERO_ERROR;
    UCalendar *const calendar = ucal_open(u"UTC", 3, locale, UCAL_DEFAULT, &error);
    if (U_FAILURE(error) != 0) {
        abort();
    }
    return calendar;
}

UCalendar *open_persian() { return open_calendar("fa_IR@calendar=persian"); }

velkor_date read_date(UCalendar *calendar) {
    UErrorCode error = U_ZERO_ERROR;
    return {ucal_get(calendar, UCAL_YEAR, &error), ucal_get(calendar, UCAL_MONTH, &error) + 1,
            ucal_get(calendar, UCAL_DATE, &error)};
}

// Days from the first of January of 2026 or 1900 on, in turn.
class Days {
public:
    Days(int first_year, int count) : first_(gregorian_to_jd(first_year, 1, 1)), count_(count) {}
    double next() {
        index_ = index_ + 1 < count_ ? index_ + 1 : 0;
        return first_ + index_;
    }

private:
    double first_;
    int count_;
    int index_ = 0;
};

Days days_of(const benchmark::State &state) {
    return state.range(0) == 1 ? Days(2026, 365) : Days(1900, static_cast<int>(state.range(0)) * 365);
}

// The next day, of the days that every month has; round and round from the first year to the last.
void step(velkor_date &date, int last_day, int first_year, int end_year) {
    date.day = date.day < last_day ? date.day + 1 : 1;
    date.month = date.day == 1 ? date.month % 12 + 1 : date.month;
    date.year += date.day == 1 && date.month == 1 ? 1 : 0;
    date.year = date.year < end_year ? date.year : first_year;
}

// ---- Gregorian to Persian ----

void velkor_to_persian(benchmark::State &state) {
    Days days = days_of(state);
    velkor_date date;
    for (int i = 0; i < state.range(0) * 365; ++i) {
        jd_to_persian(&date, days.next());
    }
    const int first_year = state.range(0) == 1 ? 2026 : 1901;
    const int end_year = state.range(0) == 1 ? 2027 : 2100;
    velkor_date gregorian = {first_year, 1, 1};
    for (auto _ : state) {
        step(gregorian, 28, first_year, end_year);
        MiladiToShamsi(&date, gregorian.year, gregorian.month, gregorian.day);
        benchmark::DoNotOptimize(date);
    }
}

void icu_to_persian(benchmark::State &state) {
    UCalendar *const calendar = open_persian();
    Days days = days_of(state);
    UErrorCode error = U_ZERO_ERROR;
    for (auto _ : state) {
        ucal_setMillis(calendar, (days.next() - EPOCH_JD) * MILLISECONDS_IN_DAY, &error);
        const velkor_date date = read_date(calendar);
        benchmark::DoNotOptimize(date);
    }
    ucal_close(calendar);
}

// ---- Persian to Gregorian ----

struct PersianYears {
    explicit PersianYears(const benchmark::State &state)
        : first(state.range(0) == 1 ? 1405 : 1280), end(state.range(0) == 1 ? 1406 : 1478) {}
    int first;
    int end;
};

void velkor_to_gregorian(benchmark::State &state) {
    Days days = days_of(state);
    const PersianYears years(state);
    velkor_date persian = {years.first, 1, 1};
    velkor_date date;
    for (int i = 0; i < state.range(0) * 365; ++i) {
        jd_to_persian(&date, days.next());
    }
    for (auto _ : state) {
        step(persian, 29, years.first, years.end);
        ShamsiToMiladi(&date, persian.year, persian.month, persian.day);
        benchmark::DoNotOptimize(date);
    }
}

void icu_to_gregorian(benchmark::State &state) {
    UCalendar *const calendar = open_persian();
    UCalendar *const gregorian = open_calendar("en_US@calendar=gregorian");
    const PersianYears years(state);
    velkor_date persian = {years.first, 1, 1};
    UErrorCode error = U_ZERO_ERROR;
    for (auto _ : state) {
        step(persian, 29, years.first, years.end);
        ucal_setDate(calendar, persian.year, persian.month - 1, persian.day, &error);
        ucal_setMillis(gregorian, ucal_getMillis(calendar, &error), &error);
        const velkor_date date = read_date(gregorian);
        benchmark::DoNotOptimize(date);
    }
    ucal_close(calendar);
    ucal_close(gregorian);
}

// ---- The first date ----

double seconds_now() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Each in a process that has not converted before, timed inside.
template <typename Conversion>
void in_new_process(benchmark::State &state, Conversion convert) {
    for (auto _ : state) {
        int ends[2];
        if (pipe(ends) != 0) {
            abort();
        }
        const pid_t child = fork();
        if (child == 0) {
            const double begin = seconds_now();
            convert();
            const double seconds = seconds_now() - begin;
            _exit(write(ends[1], &seconds, sizeof seconds) == static_cast<ssize_t>(sizeof seconds) ? 0 : 1);
        }
        double seconds = 0;
        if (read(ends[0], &seconds, sizeof seconds) != static_cast<ssize_t>(sizeof seconds)) {
            abort();
        }
        waitpid(child, nullptr, 0);
        close(ends[0]);
        close(ends[1]);
        state.SetIterationTime(seconds);
    }
}

void velkor_first_date_of_process(benchmark::State &state) {
    in_new_process(state, [] {
        velkor_date date;
        MiladiToShamsi(&date, 2026, 11, 21);
        benchmark::DoNotOptimize(date);
    });
}

void icu_first_date_of_process(benchmark::State &state) {
    in_new_process(state, [] {
        UErrorCode error = U_ZERO_ERROR;
        UCalendar *const calendar = open_persian();
        ucal_setMillis(calendar, 1795219200e3, &error);
        const velkor_date date = read_date(calendar);
        benchmark::DoNotOptimize(date);
    });
}

// One date of every year from 1 on: none was seen before. Beside it, the same dates by an open calendar of ICU.
constexpr int NEW_YEARS = 3900;

void velkor_first_date_of_year(benchmark::State &state) {
    int year = 5;
    velkor_date date;
    for (auto _ : state) {
        MiladiToShamsi(&date, year++, 11, 21);
        benchmark::DoNotOptimize(date);
    }
}

void icu_first_date_of_year(benchmark::State &state) {
    UCalendar *const calendar = open_persian();
    UErrorCode error = U_ZERO_ERROR;
    int year = 5;
    for (auto _ : state) {
        ucal_setMillis(calendar, (gregorian_to_jd(year++, 11, 21) - EPOCH_JD) * MILLISECONDS_IN_DAY, &error);
        const velkor_date date = read_date(calendar);
        benchmark::DoNotOptimize(date);
    }
    ucal_close(calendar);
}

// ---- Text ----

void velkor_time_to_string(benchmark::State &state) {
    char text[64];
    time_t now = 1794738317;
    for (auto _ : state) {
        TimeToString("Y-M-D H:I:S", text, ++now);
        benchmark::DoNotOptimize(text);
    }
}

void strftime_with_localtime(benchmark::State &state) {
    char text[64];
    time_t now = 1794738317;
    for (auto _ : state) {
        struct tm local;
        ++now;
        localtime_r(&now, &local);
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
        benchmark::DoNotOptimize(text);
    }
}

void velkor_persian_time_to_string(benchmark::State &state) {
    char text[64];
    time_t now = 1794738317;
    for (auto _ : state) {
        CalTimeToString("Y-M-D H:I:S", text, ++now);
        benchmark::DoNotOptimize(text);
    }
}

}  // namespace

// First dates first, while nothing is remembered.
BENCHMARK(velkor_first_date_of_process)->UseManualTime()->Iterations(50);
BENCHMARK(icu_first_date_of_process)->UseManualTime()->Iterations(50);
BENCHMARK(velkor_first_date_of_year)->Iterations(NEW_YEARS);
BENCHMARK(icu_first_date_of_year)->Iterations(NEW_YEARS);
BENCHMARK(velkor_to_persian)->Arg(1)->Arg(200);
BENCHMARK(icu_to_persian)->Arg(1)->Arg(200);
BENCHMARK(velkor_to_gregorian)->Arg(1)->Arg(200);
BENCHMARK(icu_to_gregorian)->Arg(1)->Arg(200);
BENCHMARK(velkor_time_to_string);
BENCHMARK(strftime_with_localtime);
BENCHMARK(velkor_persian_time_to_string);

// A program of somebody else in C++: it asks libvelkor for a date, and for the uptime, which comes from an import.
#include <velkor/calendar.h>
#include <velkor_host.h>
#include <cstdio>

int main() {
    velkor_date date = {};
    MiladiToShamsi(&date, 2024, 3, 20);
    if (date.year != 1403 || date.month != 1 || date.day != 1) {
        return 1;
    }
    if (get_uptime_ms() <= 0) {
        return 2;
    }
    std::puts("a date from C++");
}

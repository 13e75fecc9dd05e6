// The mean March equinox: Jean Meeus, Astronomical Algorithms, 2nd edition, tables 27.A and 27.B.
#pragma once

#include <array>

namespace velkor {

// Julian Ephemeris Day by powers of thousands of years, counted from year 0 in the years before 1000 and from year 2000
// later.
inline constexpr std::array<double, 5> MARCH_BEFORE_1000 = {1721139.29189, 365242.1374, 0.06134, 0.00111, -0.00071};
inline constexpr std::array<double, 5> MARCH_FROM_1000 = {2451623.80984, 365242.37404, 0.05169, -0.00411, -0.00057};

inline double mean_march_equinox(int year) {
    const std::array<double, 5> &c = year < 1000 ? MARCH_BEFORE_1000 : MARCH_FROM_1000;
    const double y = year < 1000 ? year / 1000.0 : (year - 2000.0) / 1000.0;
    return c[0] + c[1] * y + c[2] * y * y + c[3] * y * y * y + c[4] * y * y * y * y;
}

}  // namespace velkor

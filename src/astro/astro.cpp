// The March equinox and what it needs, by the methods of Jean Meeus, Astronomical Algorithms (2nd edition).
//
// A year's first day hangs on these numbers, and two recorders must agree on it, whatever processor they have. So every
// expression keeps its order of operations, and src/CMakeLists.txt forbids the compiler to fuse or reorder them.
#include <math.h>

#include <array>

#include <velkor/calendar.h>

#include "astro/tables.h"
#include "support/mean_equinox.h"

namespace {

using namespace velkor::astro;

constexpr double PI = 3.141592653589793;
constexpr double J2000 = 2451545.0;
constexpr double DAYS_IN_CENTURY = 36525.0;
constexpr double OBLIQUITY_AT_J2000 = 23.43929111111111;

double centuries_since_2000(double jd) { return (jd - J2000) / DAYS_IN_CENTURY; }

double right_ascension(double obliquity, double longitude) {
    return fixangle(rtd(atan2(dcos(obliquity) * dsin(longitude), dcos(longitude))));
}

double declination(double obliquity, double longitude) { return rtd(asin(dsin(obliquity) * dsin(longitude))); }

// D, M, M', F and Omega of the nutation series, in radians.
std::array<double, 5> nutation_arguments(double t) {
    const double t2 = t * t;
    const double t3 = t * t2;
    const std::array<double, 5> degrees = {
        297.850363 + 445267.11148 * t - 0.0019142 * t2 + t3 / 189474.0,
        357.52772 + 35999.05034 * t - 0.0001603 * t2 - t3 / 300000.0,
        134.96298 + 477198.867398 * t + 0.0086972 * t2 + t3 / 56250.0,
        93.27191 + 483202.017538 * t - 0.0036825 * t2 + t3 / 327270.0,
        125.04452 - 1934.136261 * t + 0.0020708 * t2 + t3 / 450000.0,
    };
    std::array<double, 5> radians;
    for (size_t i = 0; i < degrees.size(); ++i) {
        radians[i] = fixangr(dtr(degrees[i]));
    }
    return radians;
}

double angle_of(const NutationTerm &term, const std::array<double, 5> &arguments) {
    double angle = 0.0;
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (term.multipliers[i] != 0) {
            angle += term.multipliers[i] * arguments[i];
        }
    }
    return angle;
}

double periodic_terms(double t) {
    double sum = 0.0;
    for (const EquinoxTerm &term : EQUINOX_TERMS) {
        sum += term.amplitude * dcos(term.phase + term.rate * t);
    }
    return sum;
}

}  // namespace

// ---- Angles and remainders ----------------------------------------------------------------------------------------

double astor(double arc_seconds) { return arc_seconds * 4.84813681109536e-6; }

double dtr(double degrees) { return degrees * PI / 180.0; }

double rtd(double radians) { return radians * 180.0 / PI; }

double fixangle(double degrees) { return degrees - 360.0 * floor(degrees / 360.0); }

double fixangr(double radians) { return radians - 2.0 * PI * floor(radians / (2.0 * PI)); }

double dsin(double degrees) { return sin(dtr(degrees)); }

double dcos(double degrees) { return cos(dtr(degrees)); }

double mod(double a, double b) { return a - b * floor(a / b); }

double amod(double a, double b) { return mod(a - 1.0, b) + 1.0; }

// ---- The sky ------------------------------------------------------------------------------------------------------

double obliqeq(double jd) {
    const double u = (jd - J2000) / 3652500.0;
    if (fabs(u) >= 1.0) {
        return OBLIQUITY_AT_J2000;
    }
    double obliquity = OBLIQUITY_AT_J2000;
    double power = u;
    for (const double term : OBLIQUITY_TERMS) {
        obliquity += term / 3600.0 * power;
        power *= u;
    }
    return obliquity;
}

void nutation(double jd, double *longitude, double *obliquity) {
    if (longitude == nullptr || obliquity == nullptr) {
        return;
    }
    const double t = centuries_since_2000(jd);
    const double tenth = t / 10.0;
    const std::array<double, 5> arguments = nutation_arguments(t);
    double in_longitude = 0.0;
    double in_obliquity = 0.0;
    for (const NutationTerm &term : NUTATION_TERMS) {
        const double angle = angle_of(term, arguments);
        in_longitude += (term.longitude + term.longitude_change * tenth) * sin(angle);
        in_obliquity += (term.obliquity + term.obliquity_change * tenth) * cos(angle);
    }
    *longitude = in_longitude / 3.6e7;
    *obliquity = in_obliquity / 3.6e7;
}

void ecliptoeq(double jd, double longitude, double latitude, double *right_ascension_out, double *declination_out) {
    if (right_ascension_out == nullptr || declination_out == nullptr) {
        return;
    }
    const double epsilon = dtr(obliqeq(jd));
    const double lambda = dtr(longitude);
    const double beta = dtr(latitude);
    *right_ascension_out = fixangle(rtd(atan2(cos(epsilon) * sin(lambda) - tan(beta) * sin(epsilon), cos(lambda))));
    *declination_out = rtd(asin(sin(epsilon) * sin(lambda) * cos(beta) + sin(beta) * cos(epsilon)));
}

double deltat(int year) {
    if (year >= DELTA_T_FIRST_YEAR && year <= DELTA_T_LAST_YEAR) {
        const double place = (year - DELTA_T_FIRST_YEAR) / 2.0;
        const double before = floor(place);
        const auto index = static_cast<size_t>(before);
        return DELTA_T_SECONDS[index] + (DELTA_T_SECONDS[index + 1] - DELTA_T_SECONDS[index]) * (place - before);
    }
    const double t = (year - 2000.0) / 100.0;
    if (year < 948) {
        return 2177.0 + 497.0 * t + 44.1 * t * t;
    }
    const double seconds = 102.0 + 102.0 * t + 25.3 * t * t;
    return year > 2000 && year < 2100 ? seconds + 0.37 * (year - 2100.0) : seconds;
}

void sunpos(double jd, double out[VELKOR_SUNPOS_VALUES]) {
    if (out == nullptr) {
        return;
    }
    const double t = centuries_since_2000(jd);
    const double t2 = t * t;
    const double mean_longitude = fixangle(280.46646 + 36000.76983 * t + 0.0003032 * t2);
    const double mean_anomaly = fixangle(357.52911 + 35999.05029 * t - 0.0001537 * t2);
    const double eccentricity = 0.016708634 - 0.000042037 * t - 0.0000001267 * t2;
    const double centre = (1.914602 - 0.004817 * t - 0.000014 * t2) * dsin(mean_anomaly) +
                          (0.019993 - 0.000101 * t) * dsin(2.0 * mean_anomaly) + 0.000289 * dsin(3.0 * mean_anomaly);
    const double longitude = mean_longitude + centre;
    const double anomaly = mean_anomaly + centre;
    const double omega = 125.04 - 1934.136 * t;
    const double apparent_longitude = longitude - 0.00569 - 0.00478 * dsin(omega);
    const double obliquity = obliqeq(jd);
    const double apparent_obliquity = obliquity + 0.00256 * dcos(omega);

    out[0] = mean_longitude;
    out[1] = mean_anomaly;
    out[2] = eccentricity;
    out[3] = centre;
    out[4] = longitude;
    out[5] = anomaly;
    out[6] = 1.000001018 * (1.0 - eccentricity * eccentricity) / (1.0 + eccentricity * dcos(anomaly));
    out[7] = apparent_longitude;
    out[8] = right_ascension(obliquity, longitude);
    out[9] = declination(obliquity, longitude);
    out[10] = right_ascension(apparent_obliquity, apparent_longitude);
    out[11] = declination(apparent_obliquity, apparent_longitude);
}

double equationOfTime(double jd) {
    const double tau = (jd - J2000) / 365250.0;
    const double mean_longitude =
        fixangle(280.4664567 + 360007.6982779 * tau + 0.03032028 * tau * tau + tau * tau * tau / 49931.0 -
                 tau * tau * tau * tau / 15300.0 - tau * tau * tau * tau * tau / 2000000.0);
    double sun[VELKOR_SUNPOS_VALUES];
    sunpos(jd, sun);
    double in_longitude = 0.0;
    double in_obliquity = 0.0;
    nutation(jd, &in_longitude, &in_obliquity);
    const double degrees = mean_longitude - 0.0057183 - sun[10] + in_longitude * dcos(obliqeq(jd) + in_obliquity);
    // Degrees, though 20 and 1440 are minutes: near the March equinox the result is some 25 minutes more than the true
    // equation of time. The first day of every Persian year in every recorder's files was computed with it.
    return (degrees - 20.0 * floor(degrees / 20.0)) / 1440.0;
}

double equinox(int year, int which) {
    if (which != 0) {
        return NAN;
    }
    const double mean = velkor::mean_march_equinox(year);
    const double t = (mean - J2000) / DAYS_IN_CENTURY;
    const double w = 35999.373 * t - 2.47;
    const double delta_lambda = 1.0 + 0.0334 * dcos(w) + 0.0007 * dcos(2.0 * w);
    return mean + 0.00001 * periodic_terms(t) / delta_lambda;
}

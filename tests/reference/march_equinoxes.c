/*
 * March equinoxes of 1900 to 2100 by an ephemeris that shares nothing with src/astro/astro.cpp: the Earth's position
 * from eraEpv00 (a fit to DE405), aberration from eraAb, precession and nutation IAU 2006/2000A. Prints the table of
 * tests/unit/astro_reference.h. Kept for whoever wants to check it; no build needs it.
 *
 *     apt-get install liberfa-dev
 *     cc march_equinoxes.c -lerfa -lm -o march_equinoxes && ./march_equinoxes
 */
#include <erfa.h>
#include <erfam.h>
#include <math.h>
#include <stdio.h>

/* Apparent longitude of the Sun on the true ecliptic and equinox of date, radians, from -pi to pi. */
static double apparent_longitude(double jd) {
    double heliocentric[2][3], barycentric[2][3], sun[3], velocity[3], apparent[3], matrix[3][3], of_date[3];
    double psi, epsilon;
    eraEpv00(jd, 0, heliocentric, barycentric);
    const double distance = eraPm(heliocentric[0]);
    for (int i = 0; i < 3; ++i) {
        sun[i] = -heliocentric[0][i] / distance;
        velocity[i] = barycentric[1][i] * ERFA_AULT / ERFA_DAYSEC;
    }
    eraAb(sun, velocity, distance, sqrt(1 - eraPdp(velocity, velocity)), apparent);
    eraPnm06a(jd, 0, matrix);
    eraRxp(matrix, apparent, of_date);
    eraNut06a(jd, 0, &psi, &epsilon);
    epsilon += eraObl06(jd, 0);
    return atan2(of_date[1] * cos(epsilon) + of_date[2] * sin(epsilon), of_date[0]);
}

int main(void) {
    for (int year = 1900; year <= 2100; ++year) {
        double jd = 2451623.8 + 365.2423 * (year - 2000);
        for (int i = 0; i < 20; ++i) {
            jd -= apparent_longitude(jd) * 365.2422 / ERFA_D2PI;
        }
        printf("%s%.5f,%s", year % 8 == 4 ? "    " : " ", jd, year % 8 == 3 ? "\n" : "");
    }
    printf("\n");
    return 0;
}

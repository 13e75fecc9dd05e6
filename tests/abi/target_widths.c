/* A program in the field: it was compiled with prototypes of its own, and calls every function whose parameters or
 * result are not all words. What it passes lies where a wrong width would tear it: high words that are not 0, words
 * behind an output that must stay, bytes above 127. */
#include "target_prototypes.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "target_checks.h"

static int failures;

void check(int holds, const char *what, const char *file, int line) {
    if (!holds) {
        fprintf(stderr, "%s:%d: %s\n", file, line, what);
        failures++;
    }
}

static int is_near(double value, double expected, double tolerance) { return fabs(value - expected) < tolerance; }

static int is_date(const struct date *date, int year, int month, int day) {
    return date->year == year && date->month == month && date->day == day;
}

/* ---- Numbers of 64 bits ---- */

static void check_trigger_sets(void) {
    uint64_t set[5] = {0, 0, 0, 0, 0x5555};
    CHECK(db_SetTriggerBit(set, 255) == 0);
    CHECK(set[3] == (uint64_t)1 << 63 && set[0] == 0);
    CHECK(db_GetTriggerBit(set, 255) == 1);
    CHECK(db_GetTriggerBit(set, ((uint64_t)1 << 32) + 255) == 0);
    CHECK(db_ClrTriggerBit(set, ((uint64_t)1 << 32) + 255) == 0 && set[3] != 0);
    CHECK(db_ClrTriggerBit(set, 255) == 0 && set[3] == 0);
    CHECK(db_SetTriggerBit(set, (uint64_t)1 << 32) == 0 && set[0] == 0);
    CHECK(set[4] == 0x5555);
}

static void check_wide_numbers(void) {
    uint32_t bits[65] = {0};
    CHECK(vk_atoll("-9223372036854775807") == -9223372036854775807LL);
    CHECK(vk_atoll("81985529216486895") == 0x123456789abcdefLL);
    CHECK(decimal2binary(-1, 0x80000000U, bits) == 64);
    CHECK(bits[0] == 1 && bits[31] == 1 && bits[32] == 0 && bits[63] == 1 && bits[64] == 0);
    CHECK(binary2decimal(32, bits) == -1);
    CHECK(binary2decimal(31, bits) == 0x7fffffff);
}

static void check_narrow_numbers(void) {
    static const uint16_t words[] = {0x0001, 0xf203, 0xf4f5, 0xf6f7, 0x5555, 0x5555};
    static const uint16_t lower = 0xfff0;
    time_t before = 0;
    uint16_t port = 0;
    unsigned expected;
    CHECK(vk_atou8("255") == 255);
    CHECK(vk_atou8("256") == 0);
    CHECK(cal_chksum(words, 8) == 0x220d);
    while (before != time(NULL)) {
        before = time(NULL);
        port = GetRandomPort(lower);
    }
    srand((unsigned)getpid() + (unsigned)before);
    expected = (unsigned)rand() & 0xffff;
    CHECK(port == (uint16_t)(expected < lower ? expected + lower : expected));
    CHECK(ipstring2u32("192.168.0.1") == 0xc0a80001U);
    CHECK(dictionary_hash("a") == 0xca2e9442U);
}

/* ---- Time ---- */

static void check_timespecs(void) {
    static const struct seconds_and_nanoseconds a = {5, 100};
    static const struct seconds_and_nanoseconds b = {3, 200};
    struct seconds_and_nanoseconds out[2] = {{0, 0}, {-7, -7}};
    CHECK(vk_timespec_AsubB(&a, &b, out) == 0 && out[0].seconds == 1 && out[0].nanoseconds == 999999900);
    CHECK(vk_timespec_AaddB(&a, &b, out) == 0 && out[0].seconds == 8 && out[0].nanoseconds == 300);
    CHECK(vk_timespec_cmp(&a, &b) == 1 && vk_timespec_cmp(&b, &a) == -1);
    CHECK(out[1].seconds == -7 && out[1].nanoseconds == -7);
}

static void check_times(void) {
    static const calendar_time noted = 1794738317; /* 2026-11-15 10:25:17 */
    static const struct persian_rule rule = {1403, 1, 0, 3, 5};
    calendar_time out[2] = {0, -7};
    char text[64];
    struct tm date;
    CHECK(StrToTime("20261115102517") == noted);
    CHECK(StrToTimeEx("2026-11-15 10:25:17") == noted);
    CHECK(time_GetUtcByDate(2026, 11, 15, 10, 25, 17, 0, &date) == noted);
    CHECK(date.tm_year == 126 && date.tm_mon == 10 && date.tm_mday == 15 && date.tm_sec == 17);
    TimeToString("Y-M-D H:I:S", text, noted);
    CHECK(strcmp(text, "2026-11-15 10:25:17") == 0);
    CalTimeToString("Y/M/D H", text, 1710936000); /* 2024-03-20 12:00 */
    CHECK(strcmp(text, "1403/01/01 12") == 0);
    CHECK(getTimeByDSTParam(&rule, out) == 0 && out[0] == 1710910800);
    CHECK(labs(getmytime(out) - (calendar_time)time(NULL)) < 5 && labs(out[0] - (calendar_time)time(NULL)) < 5);
    CHECK(out[1] == -7);
    CHECK(labs(setmytime() - (calendar_time)time(NULL)) < 5);
    CHECK(strcmp(vk_ascWeek(0), "Sun") == 0 && vk_ascWeek(7) == NULL);
    CHECK(strcmp(g_pcWday[6], "Sat") == 0);
}

/* ---- Doubles ---- */

static void check_angles(void) {
    static const double pi = 3.141592653589793;
    CHECK(is_near(astor(206264.80624709636), 1, 1e-12));
    CHECK(is_near(dtr(180), pi, 1e-12));
    CHECK(is_near(rtd(pi), 180, 1e-12));
    CHECK(is_near(fixangle(-30), 330, 1e-9));
    CHECK(is_near(fixangr(-pi / 2), 1.5 * pi, 1e-9));
    CHECK(is_near(dsin(30), 0.5, 1e-12));
    CHECK(is_near(dcos(60), 0.5, 1e-12));
    CHECK(is_near(mod(-1, 7), 6, 1e-12));
    CHECK(is_near(amod(7, 7), 7, 1e-12));
}

/* Examples of Meeus' Astronomical Algorithms. */
static void check_astronomy(void) {
    double first = 0;
    double second = 0;
    double sun[13];
    sun[12] = -7;
    CHECK(is_near(obliqeq(2451545), 23.43929111, 1e-8));
    nutation(2446895.5, &first, &second);
    CHECK(is_near(first, -3.788 / 3600, 1e-5) && is_near(second, 9.443 / 3600, 1e-5));
    ecliptoeq(2451545, 113.215630, 6.684170, &first, &second);
    CHECK(is_near(first, 116.328942, 1e-5) && is_near(second, 28.026183, 1e-5));
    sunpos(2448908.5, sun);
    CHECK(is_near(sun[0], 201.80720, 1e-4) && is_near(sun[11], -7.78507, 1e-4) && sun[12] == -7);
    CHECK(is_near(equationOfTime(2448908.5), 3.427351 / 1440, 1e-5));
    CHECK(is_near(deltat(1620), 121, 1e-9));
    CHECK(is_near(equinox(2024, 0), 2460389.630, 0.01));
}

static void check_calendars(void) {
    struct date out[2] = {{0, 0, 0}, {-7, -7, -7}};
    double year = 0;
    double day = 0;
    CHECK(gregorian_to_jd(2000, 1, 1) == 2451544.5);
    jd_to_gregorian(out, 2451544.5);
    CHECK(is_date(out, 2000, 1, 1));
    CHECK(is_near(tehran_equinox(2024), 2460389.77, 0.02));
    CHECK(tehran_equinox_jd(2024) == 2460389);
    persiana_year(&year, &day, 2460389.5);
    CHECK(year == 1403 && day == 2460389);
    CHECK(persiana_to_jd(1403, 1, 1) == 2460389);
    CHECK(persian_to_jd(1403, 1, 1) == 2460389.5);
    jd_to_persiana(out, 2460389.5);
    CHECK(is_date(out, 1403, 1, 1));
    jd_to_persian(out, 2460390.5);
    CHECK(is_date(out, 1403, 1, 2) && is_date(out + 1, -7, -7, -7));
}

static void check_percentages(void) {
    uint32_t words[8] = {0, 0, 0, 0, 0, 0, 0x5555, 0x5555};
    double cpu = 0;
    double memory = 0;
    double flash = 0;
    g_dCpuUsage = 12.5;
    CHECK(GetCpuInfo() == 12.5);
    CHECK(GetMemInfoV2(words) > 0 && words[0] > words[2] && words[1] == 0 && words[6] == 0x5555);
    words[1] = words[3] = 0x5555;
    memory = GetMemInfo(&words[0], &words[2]);
    CHECK(is_near(memory, ((double)words[0] - (double)words[2]) * 100 / (double)words[0], 1e-9));
    CHECK(words[1] == 0x5555 && words[3] == 0x5555);
    CHECK(GetFlashInfo() >= 0 && GetFlashInfo() <= 100);
    GetSystemInfo(&cpu, &memory, &flash);
    CHECK(cpu == 12.5 && memory > 0 && memory < 100 && flash >= 0 && flash <= 100);
    memset(&g_stCpuInfo, 0, sizeof g_stCpuInfo);
    g_stCpuInfo.samples[1][3] = (uint64_t)3 << 33;
    g_stCpuInfo.samples[1][4] = (uint64_t)1 << 32;
    g_stCpuInfo.samples[1][9] = (uint64_t)1 << 32;
    CHECK(GetCpuInfoNew(&cpu, &memory) == 0 && cpu == 75 && memory == 12.5);
}

/* ---- Texts, memory, settings ---- */

static void check_texts(void) {
    static const char fields[] = "one\304two\304three";
    char mac[] = "aa:bb:cc:dd:ee:ff";
    char text[] = "a\304b";
    char *starts[5] = {NULL, NULL, NULL, NULL, NULL};
    int lengths[5] = {0, 0, 0, 0, -7};
    StringReplace(text, '\304', '\374');
    CHECK(strcmp(text, "a\374b") == 0);
    CHECK(vk_strnchr(fields, (int)strlen(fields), '\304', starts, lengths, 3) == 3);
    CHECK(starts[2] == fields + 8 && lengths[1] == 3 && lengths[2] == 5 && starts[4] == NULL && lengths[4] == -7);
    to_base64(mac, "\377\376", 2, lengths + 3);
    CHECK(strcmp(mac, "//4=") == 0 && lengths[3] == 4 && lengths[4] == -7);
    memcpy(mac, "aa:bb:cc:dd:ee:ff", sizeof mac);
    CHECK(ConverseMAC(mac) == mac + 17 && strcmp(mac, "AA:BB:CC:DD:EE:FF") == 0);
    CHECK(ConverseLowMAC(mac) == mac + 17 && strcmp(mac, "aa:bb:cc:dd:ee:ff") == 0);
    CHECK(strcmp(skip_whitespace(" \t x"), "x") == 0);
    CHECK(strcmp(strlwc("Net"), "net") == 0);
    CHECK(strcmp(strupc("Net"), "NET") == 0);
    CHECK(strcmp(strskp("  x "), "x ") == 0);
    CHECK(strcmp(strcrop(" x  "), " x") == 0);
    CHECK(strcmp(strstrip(" x "), "x") == 0);
    CHECK(last_char_is(fields, 'e') == fields + 12 && last_char_is(text, '\374') == NULL);
    g_cIpcConnectCheck[256] = 'z';
    CHECK(g_cIpcConnectCheck[0] == 0);
}

static void check_memory(void) {
    uint64_t *numbers = dvrMalloc(2 * sizeof *numbers, "src/a.c", 1);
    char *text = dvrStrdup("a text", "src/a.c", 2);
    char *longer;
    CHECK(numbers != NULL && text != NULL && strcmp(text, "a text") == 0);
    numbers[0] = numbers[1] = UINT64_MAX;
    numbers = dvrRealloc(numbers, 1000 * sizeof *numbers, "src/a.c", 3);
    CHECK(numbers != NULL && numbers[1] == UINT64_MAX);
    CHECK(dvrFree(numbers) == 0 && dvrFree(text) == 0);
    numbers = dvrCalloc(3, sizeof *numbers, "src/a.c", 4);
    CHECK(numbers != NULL && numbers[0] == 0 && numbers[2] == 0);
    CHECK(dvrFree(numbers) == 0);
    text = dvrMalloc_libc(4);
    CHECK(text != NULL);
    memcpy(text, "abc", 4);
    dvrFree_libc(text);
    text = malloc(4);
    memcpy(text, "abc", 4);
    longer = mem_double(text, 4);
    CHECK(longer != NULL && memcmp(longer, "abc\0\0\0\0", 8) == 0);
    free(longer);
}

static void check_dictionary(void) {
    struct dictionary *d = dictionary_new(600);
    CHECK(d != NULL && d->count == 0 && d->size == 600 && d->comment_size == 600);
    CHECK(dictionary_add(d, "net:ip", "\304\326") == 0 && dictionary_add(d, "net:rate", "1.5") == 0);
    CHECK(d->count == 2 && strcmp(d->keys[1], "net:rate") == 0 && strcmp(d->values[1], "1.5") == 0);
    CHECK(d->hashes[0] == dictionary_hash("net:ip") && d->hashes[0] == 0x2829cdf0U);
    CHECK(strcmp(dictionary_get(d, "net:rate", "none"), "1.5") == 0);
    CHECK(dictionary_getchar(d, "net:ip", 'x') == 0304 && dictionary_getchar(d, "absent", 0374) == 0374);
    CHECK(dictionary_getdouble(d, "net:rate", -2.25) == 1.5 && dictionary_getdouble(d, "absent", -2.25) == -2.25);
    CHECK(dictionary_setdouble(d, "net:rate", -0.015625) == 0 && strcmp(d->values[1], "-0.015625") == 0);
    CHECK(iniparser_add_comment(d, "net", "ip", "; why\n", 3) == 0 &&
          iniparser_add_comment(d, "net", "ip", "", 0) == -1);
    CHECK(d->comment_count == 1 && d->comment_kinds[0] == 3 && d->comment_anchors[0] == 0x2829cdf0U);
    CHECK(strcmp(d->comment_texts[0], "; why\n") == 0);
    dictionary_del(d);
}

static void check_settings(void) {
    struct dictionary *d;
    FILE *file = fopen("settings.ini", "w");
    CHECK(file != NULL);
    fputs("[Net]\nIP = 10.0.0.1\nRate = -2.5\n[Disk]\n", file);
    fclose(file);
    d = iniparser_load("settings.ini");
    CHECK(d != NULL);
    CHECK(strcmp(iniparser_getstring(d, "Net:IP", "none"), "10.0.0.1") == 0);
    CHECK(iniparser_getstr(d, "Net:Mask") == NULL);
    CHECK(iniparser_getdouble(d, "net:rate", 1.25) == -2.5 && iniparser_getdouble(d, "net:mask", 1.25) == 1.25);
    CHECK(strcmp(iniparser_getsecname(d, 1), "disk") == 0 && iniparser_getsecname(d, 2) == NULL);
    CHECK(iniparser_sec_getNLowLever(d, 1.5) == 0 && iniparser_sec_getLowLever(d, -1) == 0);
    iniparser_freedict(d);
}

int main(void) {
    char place[] = "/tmp/widthsXXXXXX";
    setenv("TZ", "UTC0", 1);
    if (mkdtemp(place) == NULL || chdir(place) != 0) {
        perror(place);
        return 2;
    }
    check_trigger_sets();
    check_wide_numbers();
    check_narrow_numbers();
    check_timespecs();
    check_times();
    check_angles();
    check_astronomy();
    check_calendars();
    check_percentages();
    check_texts();
    check_memory();
    check_dictionary();
    check_settings();
    check_system();
    printf("%d checks failed\n", failures);
    return failures != 0;
}

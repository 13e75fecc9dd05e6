/* The library as programs in the field know it: prototypes and records of their own, written down from what the
 * functions are described to take. No public header is read, so that a width that changes there does not change here.
 *
 * An int has 32 bits. A long has 32 on the recorder and 64 on a PC, as an address and a calendar time have. */
#ifndef VELKOR_TESTS_TARGET_PROTOTYPES_H
#define VELKOR_TESTS_TARGET_PROTOTYPES_H

#include <netdb.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <time.h>

typedef unsigned long address;
typedef unsigned long size_in_bytes;
typedef long calendar_time;
typedef void *(*job)(void *argument);
typedef int (*search)(void *data, void *context);

/* The log, the debug channel */
extern char g_logman_filter[2048];
extern char g_logman_invert[2048];
int vk_printftomem(int level, const char *module, int flags, const char *format, ...);
int vk_printf_tocon(const char *module, const char *source, int line, const char *format, ...);
int vk_OutLogToLogmanEnable(void);
void *logman_thread(void *argument);
int logman_set_filter(unsigned index, const char *text);
int logman_set_invert(unsigned index, const char *text);

struct message_buffer {
    pthread_mutex_t lock;
    uint32_t flags;
    int32_t position;
    char text[65536];
};
extern int32_t g_iRtPrintEn;
extern int32_t g_iRtGlobalfd;
int find_empty_pointer(void);
void insert_global_pointer(unsigned index, struct message_buffer *buffer);
int rt_printf(unsigned channel, const char *format, ...);
int Rt_PrintfNoGlobalfd(const char *tag, const char *format, ...);
int rt_JudgePrintEn(void);
int get_msg0(char *out, int size);

/* Memory */
void *dvrMalloc(size_in_bytes size, const char *file, int line);
void *dvrRealloc(void *block, size_in_bytes size, const char *file, int line);
void *dvrCalloc(size_in_bytes count, size_in_bytes size, const char *file, int line);
char *dvrStrdup(const char *text, const char *file, int line);
int dvrFree(void *block);
void *dvrMalloc_libc(size_in_bytes size);
void dvrFree_libc(void *block);

/* Queue, timers, pool */
struct queue {
    pthread_mutex_t lock;
    void *first;
    void *last;
};
int sq_construct(struct queue *queue);
int sq_destruct(struct queue *queue);
int sq_insert_tail(struct queue *queue, void *data);
void *sq_remove(struct queue *queue, search compare, void *context);
void *sq_find(struct queue *queue, search compare, void *context);
void *sq_find_reverse(struct queue *queue, search compare, void *context);
void *sqe_new(unsigned size);
void sqe_delete(void *data);
int sqe_unlock(void *data);

struct timer {
    uint32_t interval;
    job function;
    void *argument;
};
int init_timer(const struct timer *timer);
struct timer *search_timer(const struct timer *timer);
int CreateThreadInPool(address *thread, job function, void *argument);

/* Commands */
int VkSystemInit(void);
void VkSystemUninit(void);
int VkSystem(const char *command);
FILE *VkPipeOpen(const char *command, const char *mode);
int VkPipeClose(FILE *stream);
FILE *vk_popen(const char *command, const char *mode);
int vk_pclose(FILE *stream);

/* Processor, memory, flash */
struct processor {
    uint64_t samples[2][10]; /* user, nice, system, idle, iowait, steal, irq, softirq, guest, guest_nice */
    int32_t next;
    int32_t on;
};
extern double g_dCpuUsage;
extern struct processor g_stCpuInfo;
double GetMemInfoV2(uint32_t *words);
double GetMemInfo(uint32_t *total, uint32_t *available);
double GetCpuInfo(void);
double GetFlashInfo(void);
void GetSystemInfo(double *processor, double *memory, double *flash);
char *skip_whitespace(const char *text);
int GetCpuInfoNew(double *idle, double *iowait);

/* Dictionary and INI files */
struct dictionary {
    int32_t count;
    int32_t size;
    char **values;
    char **keys;
    uint32_t *hashes;
    int32_t comment_count;
    int32_t comment_size;
    char **comment_texts;
    uint32_t *comment_anchors;
    uint8_t *comment_kinds;
};
uint32_t dictionary_hash(const char *key);
void *mem_double(void *block, size_in_bytes length);
struct dictionary *dictionary_new(int size);
void dictionary_del(struct dictionary *d);
char *dictionary_get(const struct dictionary *d, const char *key, const char *otherwise);
unsigned char dictionary_getchar(const struct dictionary *d, const char *key, unsigned char otherwise);
double dictionary_getdouble(const struct dictionary *d, const char *key, double otherwise);
int dictionary_add(struct dictionary *d, const char *key, const char *value);
int dictionary_setdouble(struct dictionary *d, const char *key, double value);
char *strlwc(const char *text);
char *strupc(const char *text);
char *strskp(const char *text);
char *strcrop(const char *text);
char *strstrip(const char *text);
struct dictionary *iniparser_load(const char *path);
void iniparser_freedict(struct dictionary *d);
int iniparser_add_comment(struct dictionary *d, const char *section, const char *key, const char *text,
                          unsigned char kind);
char *iniparser_getstring(const struct dictionary *d, const char *key, const char *otherwise);
char *iniparser_getstr(const struct dictionary *d, const char *key);
double iniparser_getdouble(const struct dictionary *d, const char *key, double otherwise);
char *iniparser_getsecname(const struct dictionary *d, int index);
int iniparser_sec_getNLowLever(const struct dictionary *d, double whatever);
int iniparser_sec_getLowLever(const struct dictionary *d, int64_t whatever);

/* Files and mappings */
struct mapping {
    uint32_t physical_base;
    address virtual_base;
    uint32_t length;
    int32_t users;
    struct mapping *next;
};
extern struct mapping *pMMAPNode;
char *concat_path_file(const char *directory, const char *name);
char *concat_subpath_file(const char *directory, const char *name);
char *last_char_is(const char *text, int character);
int HI_Open(const char *path, int flags, unsigned mode);
int HI_Close(int descriptor);
void *HI_MMap(void *wish, size_in_bytes length, int protection, int flags, int descriptor, int64_t offset);
int HI_MUnMap(void *start, size_in_bytes length);
address memmap(unsigned physical, unsigned size);
int memunmap(address virtual_address);
void *mmapfile(const char *path, size_in_bytes length);
void *mmapfile_r(const char *path, size_in_bytes length);

/* Network */
struct lookup {
    pthread_t thread;
    char name[129];
    struct addrinfo hints;
    struct addrinfo *result;
    int32_t status;
    int32_t finished;
    pthread_mutex_t lock;
};
extern char g_cIpcConnectCheck[257];
char *ConverseMAC(char *text);
char *ConverseLowMAC(char *text);
uint32_t ipstring2u32(const char *text);
int decimal2binary(int32_t low, uint32_t high, uint32_t *bits);
int64_t binary2decimal(int count, const uint32_t *bits);
int GetIpByNameAsync(const char *host, int timeout, struct lookup **out);
void *_Thr_GetIpTask(struct lookup *lookup);
int NetDevice_GetIpv6AddressUsed(char *text, uint32_t *attribute, address device);
uint16_t GetRandomPort(uint16_t lower);
uint16_t cal_chksum(const uint16_t *data, int length);

/* Time, daylight saving, calendars */
struct seconds_and_nanoseconds {
    calendar_time seconds;
    long nanoseconds;
};
struct date {
    int32_t year;
    int32_t month;
    int32_t day;
};
struct persian_rule {
    int32_t year;
    int32_t month;
    int32_t week;
    int32_t weekday;
    int32_t hour;
};
extern const char *const g_pcWday[7];
int vk_timespec_AsubB(const struct seconds_and_nanoseconds *a, const struct seconds_and_nanoseconds *b,
                      struct seconds_and_nanoseconds *result);
int vk_timespec_AaddB(const struct seconds_and_nanoseconds *a, const struct seconds_and_nanoseconds *b,
                      struct seconds_and_nanoseconds *result);
int vk_timespec_cmp(const struct seconds_and_nanoseconds *a, const struct seconds_and_nanoseconds *b);
const char *vk_ascWeek(unsigned weekday);
calendar_time StrToTime(const char *text);
calendar_time StrToTimeEx(const char *text);
void TimeToString(const char *format, char *out, calendar_time seconds);
void CalTimeToString(const char *format, char *out, calendar_time seconds);
calendar_time getmytime(calendar_time *out);
calendar_time setmytime(void);
int64_t get_uptime_ms(void);
int get_localtz_timediff(void);
calendar_time time_GetUtcByDate(int year, int month, int day, int hour, int minute, int second, int daylight,
                                struct tm *out);
int getTimeByDSTParam(const struct persian_rule *rule, calendar_time *out);

double astor(double arc_seconds);
double dtr(double degrees);
double rtd(double radians);
double fixangle(double degrees);
double fixangr(double radians);
double dsin(double degrees);
double dcos(double degrees);
double mod(double a, double b);
double amod(double a, double b);
double obliqeq(double day);
void nutation(double day, double *longitude, double *obliquity);
void ecliptoeq(double day, double longitude, double latitude, double *right_ascension, double *declination);
double deltat(int year);
void sunpos(double day, double *out);
double equationOfTime(double day);
double equinox(int year, int which);

double gregorian_to_jd(int year, int month, int day);
void jd_to_gregorian(struct date *out, double day);
double tehran_equinox(double year);
double tehran_equinox_jd(int year);
void persiana_year(double *year, double *equinox_day, double day);
double persiana_to_jd(double year, double month, double day);
void jd_to_persiana(struct date *out, double day);
double persian_to_jd(int year, int month, int day);
void jd_to_persian(struct date *out, double day);

/* Text and numbers */
int vk_strnchr(const char *data, int size, char separator, char **starts, int *lengths, int max);
void StringReplace(char *text, char from, char to);
void to_base64(char *out, const void *data, int length, int *out_length);
int get_NvrAutoTestState(address first, address second, address third, address fourth);
int db_SetTriggerBit(uint64_t *set, uint64_t bit);
int db_ClrTriggerBit(uint64_t *set, uint64_t bit);
int db_GetTriggerBit(const uint64_t *set, uint64_t bit);
long long vk_atoll(const char *text);
unsigned char vk_atou8(const char *text);

/* What the program brings itself instead of the firmware's other libraries. */
unsigned ringbuf_Create(unsigned size, int mode);
int ringbuf_Write(unsigned length, const void *data, unsigned ring);
int ringbuf_Read(unsigned length, void *buffer, unsigned ring);
int ringbuf_DataSize(unsigned ring);
void ThrInfo_DoRecord(const char *name, int number, void *argument);
int vkt_get_uptime_ms(int64_t *milliseconds);
int vkt_get_time_diff(int64_t *seconds);
int NetDevice_GetIpv6AddressList(address device, void *list);
int NetGetCurIpv6Method(address device);
int vk_cmd_gAutoTestState(address first, address second, address third, address fourth);
void vkmem_GlobalFree(void *block);

#endif

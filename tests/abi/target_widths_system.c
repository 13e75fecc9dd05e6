/* A program in the field, second half: what needs the kernel, threads, other processes, or the firmware's other
 * libraries, of which it brings some itself so that it sees what the library passes to them. */
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "target_checks.h"
#include "target_prototypes.h"

static void write_file(const char *path, const char *text) {
    FILE *file = fopen(path, "w");
    CHECK(file != NULL);
    if (file != NULL) {
        fputs(text, file);
        fclose(file);
    }
}

/* The text of a stream's first line, or of as much of it as there is room for. */
static const char *line_of(FILE *stream) {
    static char line[256];
    line[0] = '\0';
    if (stream != NULL && fgets(line, sizeof line, stream) == NULL) {
        line[0] = '\0';
    }
    return line;
}

static int ends_with(const char *text, const char *end) {
    return strlen(text) >= strlen(end) && strcmp(text + strlen(text) - strlen(end), end) == 0;
}

/* ---- Who came: a job is told which number to count ---- */

static int arrivals[3];
static pthread_mutex_t arrivals_lock = PTHREAD_MUTEX_INITIALIZER;

static void *arrive(void *which) {
    pthread_mutex_lock(&arrivals_lock);
    *(int *)which += 1;
    pthread_mutex_unlock(&arrivals_lock);
    return NULL;
}

static int has_come(const int *which) {
    int is_there = 0;
    int tries;
    for (tries = 0; tries < 20000 && !is_there; tries++) {
        usleep(1000);
        pthread_mutex_lock(&arrivals_lock);
        is_there = *which != 0;
        pthread_mutex_unlock(&arrivals_lock);
    }
    return is_there;
}

/* ---- Imports ---- */

static char record[1024];

unsigned ringbuf_Create(unsigned size, int mode) {
    CHECK(size == 0x80000 && mode == 1);
    return 0xfedcba98U;
}

int ringbuf_Write(unsigned length, const void *data, unsigned ring) {
    CHECK(length == sizeof record && ring == 0xfedcba98U);
    memcpy(record, data, sizeof record);
    return 0;
}

int ringbuf_Read(unsigned length, void *buffer, unsigned ring) {
    CHECK(length == sizeof record && ring == 0xfedcba98U);
    memset(buffer, 0, length);
    return 0;
}

int ringbuf_DataSize(unsigned ring) {
    CHECK(ring == 0xfedcba98U);
    return 0;
}

void ThrInfo_DoRecord(const char *name, int number, void *argument) {
    if (strcmp(name, "logman_thread") == 0 && number == 365) {
        arrive(argument);
    }
}

int vkt_get_uptime_ms(int64_t *milliseconds) {
    *milliseconds = 0x123456789abcdefLL;
    return 0;
}

int vkt_get_time_diff(int64_t *seconds) {
    *seconds = -12600;
    return 0;
}

#define DEVICE ((address)0xfedcba98U)

/* 1220 bytes: a count, and 16 times a word, the method, 64 characters, an attribute. */
int NetDevice_GetIpv6AddressList(address device, void *list) {
    static const int32_t count = 16;
    static const int32_t method = -3;
    static const uint32_t attribute = 0x80000001U;
    char *last = (char *)list + 4 + 15 * 76;
    CHECK(device == DEVICE);
    memcpy(list, &count, sizeof count);
    memcpy(last + 4, &method, sizeof method);
    memcpy(last + 8, "fd00::1", 8);
    memcpy(last + 72, &attribute, sizeof attribute);
    return 0;
}

int NetGetCurIpv6Method(address device) {
    CHECK(device == DEVICE);
    return -3;
}

int vk_cmd_gAutoTestState(address first, address second, address third, address fourth) {
    CHECK(first == 1 && second == (address)-2 && third == DEVICE && fourth == 4);
    return -5;
}

static void check_imports(void) {
    char text[64];
    uint32_t attribute[2] = {0, 0x5555};
    CHECK(get_uptime_ms() == 0x123456789abcdefLL);
    CHECK(get_localtz_timediff() == -12600);
    CHECK(NetDevice_GetIpv6AddressUsed(text, attribute, DEVICE) == 0 && strcmp(text, "fd00::1") == 0);
    CHECK(attribute[0] == 0x80000001U && attribute[1] == 0x5555);
    CHECK(get_NvrAutoTestState(1, (address)-2, DEVICE, 4) == -5);
}

/* ---- Lines with arguments of every kind ---- */

#define KINDS "%d|%lld|%g|%c|%llx|%s|%u"
#define OF_EVERY_KIND -1, -2LL, 0.5, 'x', 0xfedcba9876543210ULL, "end", 4000000000U
#define AS_TEXT "-1|-2|0.5|x|fedcba9876543210|end|4000000000"

static void check_log(void) {
    write_file("/dvrfile/logman", "dbgprint=1\n");
    write_file("/tmp/tty.logman", "");
    CHECK(vk_OutLogToLogmanEnable() == 0);
    CHECK(vk_printftomem(0, "field", 0, KINDS, OF_EVERY_KIND) == 0);
    CHECK(ends_with(record, " field]" AS_TEXT));
    CHECK(logman_set_filter(7, "refused") == 0 && strcmp(g_logman_filter + 7 * 256, "refused") == 0);
    CHECK(vk_printftomem(0, "field", 0, "%g", 1.0) == -1);
    CHECK(logman_set_filter(7, NULL) == 0 && g_logman_filter[7 * 256] == '\0');
    CHECK(logman_set_invert(7, "field") == 0 && strcmp(g_logman_invert + 7 * 256, "field") == 0);
    CHECK(vk_printftomem(0, "field", 0, "%g", 1.0) == -1);
}

/* A console of this process's own, so that nothing is written to the machine's. */
static void check_console(void) {
    FILE *console;
    write_file("console", "");
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", NULL, MS_REC | MS_PRIVATE, NULL) != 0 ||
        mount("console", "/dev/console", NULL, MS_BIND, NULL) != 0) {
        perror("a console of its own");
        CHECK(0);
        return;
    }
    CHECK(vk_printf_tocon("field", "a.c", 7, KINDS, OF_EVERY_KIND) == 0);
    fflush(NULL);
    console = fopen("console", "r");
    CHECK(ends_with(line_of(console), " field] a.c:7 " AS_TEXT "\n"));
}

static struct message_buffer messages;
static char read_back[65536];

static void check_debug_channel(void) {
    const int index = find_empty_pointer();
    CHECK(mkdir("rt_debug", 0700) == 0);
    CHECK(index == 0 && pthread_mutex_init(&messages.lock, NULL) == 0);
    insert_global_pointer((unsigned)index, &messages);
    CHECK(rt_JudgePrintEn() == 0 && g_iRtPrintEn == 1);
    CHECK(rt_printf(1, KINDS, OF_EVERY_KIND) == 0);
    CHECK(get_msg0(read_back, sizeof read_back) == 0);
    CHECK(ends_with(read_back, "]" AS_TEXT "\r\n"));
    CHECK(messages.position == (int)strlen(read_back) && strcmp(messages.text, read_back) == 0);
    g_iRtGlobalfd = 1;
    CHECK(Rt_PrintfNoGlobalfd("tag", KINDS, OF_EVERY_KIND) == 0);
    CHECK(messages.position == 2 * (int)strlen(read_back));
}

/* ---- Threads ---- */

static int is_wanted(void *data, void *context) { return *(uint64_t *)data == *(uint64_t *)context ? 0 : 1; }

static void check_queue(void) {
    struct queue queue;
    uint64_t wanted = (uint64_t)1 << 40;
    uint64_t *first = sqe_new(sizeof *first);
    uint64_t *second = sqe_new(sizeof *second);
    CHECK(sq_construct(&queue) == 0 && queue.first == &queue.first && queue.last == &queue.first);
    CHECK(first != NULL && second != NULL);
    *first = *second = wanted;
    CHECK(sq_insert_tail(&queue, first) == 0 && sq_insert_tail(&queue, second) == 0);
    CHECK(sq_find(&queue, is_wanted, &wanted) == first && sqe_unlock(first) == 0);
    CHECK(sq_find_reverse(&queue, is_wanted, &wanted) == second && sqe_unlock(second) == 0);
    CHECK(sq_remove(&queue, is_wanted, &wanted) == first);
    sqe_delete(first);
    CHECK(sq_remove(&queue, is_wanted, &wanted) == second);
    sqe_delete(second);
    CHECK(sq_destruct(&queue) == 0);
}

static void check_jobs(void) {
    const struct timer timer = {1, arrive, &arrivals[0]};
    const struct timer *found;
    address threads[2] = {0, 0x5555};
    CHECK(init_timer(&timer) == 0);
    found = search_timer(&timer);
    CHECK(found != NULL && found != &timer && found->interval == 1 && found->function == arrive);
    CHECK(has_come(&arrivals[0]));
    CHECK(CreateThreadInPool(threads, arrive, &arrivals[1]) == 0);
    CHECK(threads[0] == (address)-1 && threads[1] == 0x5555);
    CHECK(has_come(&arrivals[1]));
}

static void let_go(struct lookup *lookup) {
    int is_last;
    pthread_mutex_lock(&lookup->lock);
    is_last = lookup->finished == 1;
    lookup->finished = 1;
    pthread_mutex_unlock(&lookup->lock);
    if (is_last) {
        freeaddrinfo(lookup->result);
        dvrFree(lookup);
    }
}

static void check_lookup(void) {
    struct lookup *out[2] = {NULL, NULL};
    CHECK(_Thr_GetIpTask(NULL) == NULL);
    CHECK(GetIpByNameAsync("127.0.0.1", 5, out) == 0);
    CHECK(out[0] != NULL && out[1] == NULL);
    if (out[0] != NULL) {
        CHECK(strcmp(out[0]->name, "127.0.0.1") == 0 && out[0]->hints.ai_socktype == SOCK_STREAM);
        CHECK(out[0]->status == 0 && out[0]->result != NULL && out[0]->result->ai_family == AF_INET);
        let_go(out[0]);
    }
}

/* ---- Commands ---- */

static void check_commands(void) {
    FILE *stream = vk_popen("echo a line; exit 3", "r");
    CHECK(strcmp(line_of(stream), "a line\n") == 0 && vk_pclose(stream) == 3 << 8);
}

static void check_runner(void) {
    FILE *stream;
    int runner;
    write_file("TODO", "");
    runner = VkSystemInit();
    CHECK(runner > 0);
    if (runner <= 0) {
        return;
    }
    CHECK(VkSystem("exit 3") == 3 << 8);
    stream = VkPipeOpen("echo a line", "r");
    CHECK(strcmp(line_of(stream), "a line\n") == 0 && VkPipeClose(stream) == 0);
    VkSystemUninit();
    kill(runner, SIGKILL);
}

/* ---- Files and mappings ---- */

static void check_paths(void) {
    char *path = concat_path_file("/a/", "//b");
    CHECK(path != NULL && strcmp(path, "/a/b") == 0);
    vkmem_GlobalFree(path);
    path = concat_subpath_file("/a", "c");
    CHECK(path != NULL && strcmp(path, "/a/c") == 0);
    vkmem_GlobalFree(path);
}

/* The C library's, as the library sees it: a processor's emulator may cut an offset above 4 GiB, so that what was asked
 * for cannot be told from what was mapped. */
static int64_t asked_offset;

void *mmap64(void *wish, size_t length, int protection, int flags, int descriptor, off64_t offset) {
    asked_offset = offset;
#ifdef SYS_mmap2
    return (void *)syscall(SYS_mmap2, wish, length, protection, flags, descriptor, (unsigned long)(offset / 4096));
#else
    return (void *)syscall(SYS_mmap, wish, length, protection, flags, descriptor, offset);
#endif
}

static void check_mapping_far_out(void) {
    static const int64_t far_out = 0xc0002000LL;
    static const int64_t farther_out = 0x123c0002000LL;
    const int descriptor = HI_Open("far", O_RDWR | O_CREAT, 0640);
    struct stat status;
    char *bytes;
    CHECK(descriptor >= 0 && fstat(descriptor, &status) == 0 && (status.st_mode & 07777) == 0640);
    CHECK(pwrite(descriptor, "near", 5, 8192) == 5 && pwrite(descriptor, "far", 4, far_out) == 4);
    bytes = HI_MMap(NULL, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, far_out);
    CHECK(asked_offset == far_out && bytes != MAP_FAILED && strcmp(bytes, "far") == 0);
    CHECK(HI_MUnMap(bytes, 4096) == 0);
    bytes = HI_MMap(NULL, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, farther_out);
    CHECK(asked_offset == farther_out && bytes != MAP_FAILED && HI_MUnMap(bytes, 4096) == 0);
    CHECK(HI_Close(descriptor) == 0 && unlink("far") == 0);
}

static void check_mappings(void) {
    static char memory[8192];
    static struct mapping mapping = {0xfffe0000U, 0, sizeof memory, 1, NULL};
    char *bytes;
    mapping.virtual_base = (address)memory;
    pMMAPNode = &mapping;
    CHECK(memmap(0xfffe1004U, 8) == (address)memory + 0x1004 && mapping.users == 2);
    CHECK(memunmap((address)memory + 0x1004) == 0 && mapping.users == 1);
    pMMAPNode = NULL;
    write_file("mapped", "some bytes");
    bytes = mmapfile_r("mapped", 4096);
    CHECK(bytes != NULL && bytes != MAP_FAILED && strcmp(bytes, "some bytes") == 0 && HI_MUnMap(bytes, 4096) == 0);
    bytes = mmapfile("mapped", 4096);
    CHECK(bytes != NULL && bytes != MAP_FAILED && strcmp(bytes, "some bytes") == 0 && HI_MUnMap(bytes, 4096) == 0);
}

/* Never returns, so that it is the last. */
static void check_drain(void) {
    pthread_t thread;
    CHECK(pthread_create(&thread, NULL, logman_thread, &arrivals[2]) == 0);
    CHECK(has_come(&arrivals[2]));
}

void check_system(void) {
    check_runner();
    check_commands();
    check_imports();
    check_log();
    check_console();
    check_debug_channel();
    check_queue();
    check_jobs();
    check_lookup();
    check_paths();
    check_mapping_far_out();
    check_mappings();
    check_drain();
}

// The log manager: a line from any thread into the ring buffer, one thread from the ring to the terminal, and a
// file outside the process that switches both.
//
// Locks, from the outside in: the configuration lock (one reader of the file at a time), the list lock (one writer
// of the texts at a time). The way of a log line takes neither; once a second and thread it takes the clock lock
// (support/local_time.h), under which nothing but the C library is called. The threads inside the ring are counted, and
// the terminal is closed only while there are none.
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <optional>

#include <velkor/concurrency.h>
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>
#include <velkor/text.h>

#include "support/errno_keeper.h"
#include "support/lock_guard.h"
#include "support/log_stamp.h"
#include "support/open_file.h"
#include "support/owners.h"
#include "support/pause.h"
#include "support/plain_format.h"
#include "support/platform.h"
#include "support/racing_bytes.h"
#include "support/remembered_second.h"
#include "support/terminal_stream.h"

namespace {

constexpr const char *SWITCH_FILE = "/dvrfile/logman";
constexpr const char *TERMINAL = "/tmp/tty.logman";
constexpr const char *CONSOLE = "/dev/console";
constexpr size_t RECORD_SIZE = VELKOR_LOGMAN_RECORD_SIZE;
constexpr size_t BODY_SIZE = 1023;
constexpr unsigned RING_SIZE = 0x80000;
constexpr int RING_DROPS_OLDEST = 1;
constexpr unsigned SLOTS = VELKOR_LOGMAN_SLOTS;
constexpr size_t SLOT_SIZE = VELKOR_LOGMAN_SLOT_SIZE;
constexpr size_t LIST_SIZE = SLOTS * SLOT_SIZE;

pthread_mutex_t configuration_lock = PTHREAD_MUTEX_INITIALIZER;
std::atomic<int32_t> enabled_flag{0};
std::atomic<int32_t> print_flag{0};
std::atomic<unsigned> ring_handle{0};

// On a cache line of its own: every line that is logged writes it, and reads the words around it.
alignas(64) std::atomic<int32_t> busy_count{0};
alignas(64) std::atomic<FILE *> terminal{nullptr};

}  // namespace

// ---- The texts ----------------------------------------------------------------------------------------------------
//
// Any thread matches lines against the lists while another rewrites them. A writer keeps a copy of the lists as they
// were and makes the version odd for the time of its work; a reader uses the copy while the version is odd, and
// starts again when the version changed under it. So nobody waits for anybody, at whatever priority they run.

alignas(velkor::RacingWord) char g_logman_filter[LIST_SIZE];
alignas(velkor::RacingWord) char g_logman_invert[LIST_SIZE];

namespace {

struct Lists {
    alignas(velkor::RacingWord) char filter[LIST_SIZE];
    alignas(velkor::RacingWord) char invert[LIST_SIZE];
};

pthread_mutex_t list_lock = PTHREAD_MUTEX_INITIALIZER;
std::atomic<uint32_t> list_version{0};
Lists lists_before;

void set_slot(char *list, unsigned index, const char *text) {
    char *const slot = list + index * SLOT_SIZE;
    memset(slot, 0, SLOT_SIZE);
    strncopy(slot, text, SLOT_SIZE - 1);
}

template <typename Change>
void change_lists(Change change) {
    const velkor::LockGuard guard(list_lock);
    velkor::store_racing(lists_before.filter, g_logman_filter, LIST_SIZE);
    velkor::store_racing(lists_before.invert, g_logman_invert, LIST_SIZE);
    list_version.fetch_add(1, std::memory_order_release);
    std::atomic_thread_fence(std::memory_order_release);
    change();
    list_version.fetch_add(1, std::memory_order_release);
}

bool occurs(const char *line, const char *list, unsigned index) {
    alignas(velkor::RacingWord) char text[SLOT_SIZE];
    velkor::load_racing(text, list + index * SLOT_SIZE, SLOT_SIZE);
    text[SLOT_SIZE - 1] = '\0';
    return strstr(line, text) != nullptr;
}

enum class Occurrence { no_texts, none, found };

bool has_texts(const char *list) {
    int first_bytes = 0;
    for (unsigned index = 0; index < SLOTS; ++index) {
        first_bytes |= velkor::load_racing_byte(list + index * SLOT_SIZE);
    }
    return first_bytes != 0;
}

Occurrence find_any(const char *line, const char *list) {
    if (!has_texts(list)) {
        return Occurrence::no_texts;
    }
    Occurrence result = Occurrence::no_texts;
    for (unsigned index = 0; index < SLOTS; ++index) {
        if (velkor::load_racing_byte(list + index * SLOT_SIZE) == '\0') {
            continue;
        }
        if (occurs(line, list, index)) {
            return Occurrence::found;
        }
        result = Occurrence::none;
    }
    return result;
}

bool keeps(const char *line, const char *filter, const char *invert) {
    return find_any(line, filter) != Occurrence::none && find_any(line, invert) != Occurrence::found;
}

}  // namespace

int logman_match_filter(char *line) {
    if (line == nullptr) {
        return 0;
    }
    for (;;) {
        const uint32_t version = list_version.load(std::memory_order_acquire);
        const bool changing = version % 2 != 0;
        const bool keep = changing ? keeps(line, lists_before.filter, lists_before.invert)
                                   : keeps(line, g_logman_filter, g_logman_invert);
        std::atomic_thread_fence(std::memory_order_acquire);
        if (list_version.load(std::memory_order_relaxed) == version) {
            return keep ? 1 : 0;
        }
    }
}

namespace {

void publish_slot(char *list, unsigned index, const char *text) {
    alignas(velkor::RacingWord) char slot[SLOT_SIZE];
    set_slot(slot, 0, text);
    change_lists([&] { velkor::store_racing(list + index * SLOT_SIZE, slot, SLOT_SIZE); });
}

}  // namespace

int logman_set_filter(unsigned index, const char *text) {
    if (index < SLOTS) {
        publish_slot(g_logman_filter, index, text);
    }
    return 0;
}

// Unlike a filter, an invert text is not emptied by NULL.
int logman_set_invert(unsigned index, const char *text) {
    if (index < SLOTS && text != nullptr) {
        publish_slot(g_logman_invert, index, text);
    }
    return 0;
}

// ---- The terminal and the ring ------------------------------------------------------------------------------------

namespace {

void enter_ring() { busy_count.fetch_add(1); }

void leave_ring() { busy_count.fetch_sub(1); }

// A stream that is seen here stays open until leave_ring(): it is counted first and looked at then, while who closes
// takes the stream away first and looks at the count then. In whatever order these four steps fall, one of the two sees
// the other (both sides sequentially consistent: Dekker's exclusion).
FILE *enter_ring_with_terminal() {
    enter_ring();
    FILE *const stream = terminal.load();
    if (stream == nullptr) {
        leave_ring();
    }
    return stream;
}

// A busy ring leaves the stream open: nothing here ever waits for the count. Under the configuration lock, so that
// nobody opens a second one meanwhile.
void close_terminal_unless_busy() {
    FILE *const stream = terminal.exchange(nullptr);
    if (busy_count.load() != 0) {
        terminal.store(stream);
        return;
    }
    const velkor::OwnedStream closed(stream);
}

FILE *open_terminal(const char *path) { return velkor::open_terminal_stream(path, O_RDWR, "r+"); }

void open_terminal_and_ring() {
    if (terminal.load(std::memory_order_relaxed) != nullptr) {
        return;
    }
    FILE *const stream = open_terminal(TERMINAL);
    if (stream == nullptr) {
        return;
    }
    if (ring_handle.load(std::memory_order_relaxed) == 0) {
        ring_handle.store(ringbuf_Create(RING_SIZE, RING_DROPS_OLDEST), std::memory_order_release);
    }
    terminal.store(stream, std::memory_order_release);
}

}  // namespace

// ---- The switch file ----------------------------------------------------------------------------------------------

namespace {

struct Configuration {
    int32_t print = 0;
    unsigned filters = 0;
    unsigned inverts = 0;
    Lists lists = {};

    void take_line(char *line) {
        char *const equals = strchr(line, '=');
        if (equals == nullptr) {
            return;
        }
        char *const value = equals + 1;
        value[strcspn(value, "\r\n")] = '\0';
        if (strncmp(line, "dbg", 3) == 0) {
            print = vk_atoi(value);
        } else if (strncmp(line, "filter", 6) == 0) {
            take_text(lists.filter, filters++, value);
        } else if (strncmp(line, "invert", 6) == 0) {
            take_text(lists.invert, inverts++, value);
        }
    }

    // Texts from the ninth on are dropped, but counted.
    static void take_text(char *list, unsigned index, const char *text) {
        if (index < SLOTS) {
            set_slot(list, index, text);
        }
    }
};

void read_lines(FILE *file, Configuration &configuration) {
    char line[1024];
    while (fgets(line, 1023, file) != nullptr) {
        configuration.take_line(line);
    }
}

int read_configuration() {
    print_flag.store(0, std::memory_order_relaxed);
    close_terminal_unless_busy();
    const velkor::OwnedStream file(velkor::open_file_stream(SWITCH_FILE, O_RDONLY, "r"));
    if (!file) {
        return -1;
    }
    Configuration configuration;
    read_lines(file.get(), configuration);
    change_lists([&] {
        velkor::store_racing(g_logman_filter, configuration.lists.filter, LIST_SIZE);
        velkor::store_racing(g_logman_invert, configuration.lists.invert, LIST_SIZE);
    });
    if (configuration.print == 0) {
        close_terminal_unless_busy();
    } else {
        open_terminal_and_ring();
    }
    print_flag.store(configuration.print, std::memory_order_relaxed);
    return 0;
}

}  // namespace

int logman_read_config() {
    const velkor::LockGuard guard(configuration_lock);
    return read_configuration();
}

int vk_GetLogmanEnable() { return enabled_flag.load(std::memory_order_relaxed); }

int vk_OutLogToLogmanEnable() {
    struct stat status;
    if (stat(SWITCH_FILE, &status) != 0) {
        enabled_flag.store(0, std::memory_order_relaxed);
        return -1;
    }
    if (vk_GetLogmanEnable() != 0) {
        return -1;
    }
    const velkor::LockGuard guard(configuration_lock);
    if (vk_GetLogmanEnable() != 0) {
        return -1;  // another thread was first
    }
    read_configuration();
    enabled_flag.store(1, std::memory_order_relaxed);
    return 0;
}

// ---- A line -------------------------------------------------------------------------------------------------------

namespace {

// The head of a line, "[2026/11/15 10:25:17] [1234 ", changes once a second and thread.
struct Head {
    velkor::RememberedSecond second;
    long thread_id;  // 0: not asked for yet
    size_t length;
    char text[velkor::LOG_STAMP_SIZE + 24];
};

thread_local Head thread_head;

void renew(Head &head, time_t now) {
    if (head.thread_id == 0) {
        head.thread_id = velkor::kernel_thread_id();
    }
    char stamp[velkor::LOG_STAMP_SIZE];
    velkor::format_log_stamp(stamp, now);
    head.second.remember(now);
    head.length = static_cast<size_t>(snprintf(head.text, sizeof head.text, "%s [%ld ", stamp, head.thread_id));
}

// Where the message begins. A line has room for the longest head, so only the module can be cut.
size_t put_head(char *line, const char *module) {
    Head &head = thread_head;
    const time_t now = time(nullptr);
    if (!head.second.is(now)) {
        renew(head, now);
    }
    memcpy(line, head.text, head.length);
    const char *const name = module != nullptr ? module : "(null)";
    const size_t length = strnlen(name, RECORD_SIZE - 1 - head.length);
    memcpy(line + head.length, name, length);
    size_t end = head.length + length;
    if (end < RECORD_SIZE - 1) {
        line[end++] = ']';
    }
    return end;
}

// Answers the length of the message as far as it fits; it is shorter than what was printed when a "%c" printed a 0.
VELKOR_FORMAT(3, 0)
size_t put_body_by_library(char *at, size_t limit, const char *format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    if (vsnprintf(at, limit, format, arguments) < 0) {
        // Unprintable (a wide character, say): what came before it is kept, on cleared memory.
        memset(at, 0, limit);
        vsnprintf(at, limit, format, again);
    }
    va_end(again);
    return strnlen(at, limit - 1);
}

VELKOR_FORMAT(3, 0)
size_t put_body(char *at, size_t room, const char *format, va_list arguments) {
    const size_t limit = std::min(room, BODY_SIZE);
    va_list plainly;
    va_copy(plainly, arguments);
    const std::optional<size_t> length = velkor::format_plainly(at, limit, format, plainly);
    va_end(plainly);
    return length ? *length : put_body_by_library(at, limit, format, arguments);
}

constexpr uint64_t in_every_byte(unsigned char byte) { return 0x0101010101010101U * byte; }

// Whether a byte of the word is below `limit`, which is at most 128 (S. E. Anderson, Bit Twiddling Hacks, "Determine if
// a word has a byte less than n").
constexpr bool has_byte_below(uint64_t word, unsigned char limit) {
    return ((word - in_every_byte(limit)) & ~word & in_every_byte(0x80)) != 0;
}

// One record is one line on the terminal. Goes in steps of eight bytes, since most hold nothing to replace; behind the
// end are zeros.
void flatten(char *line, size_t length) {
    for (size_t step = 0; step < length; step += sizeof(uint64_t)) {
        uint64_t word;
        memcpy(&word, line + step, sizeof word);
        if (has_byte_below(word, '\r' + 1)) {
            std::replace_if(
                line + step, line + step + sizeof word, [](char c) { return c == '\t' || c == '\n' || c == '\r'; },
                ' ');
        }
    }
}

void write_record(const char *line) {
    enter_ring();
    const unsigned ring = ring_handle.load(std::memory_order_acquire);
    if (ring != 0) {
        ringbuf_Write(RECORD_SIZE, line, ring);
    }
    leave_ring();
}

}  // namespace

int vk_printftomem([[maybe_unused]] int level, const char *module, [[maybe_unused]] int flags, const char *format,
                   ...) {
    if (vk_GetLogmanEnable() == 0 || print_flag.load(std::memory_order_relaxed) == 0 || format == nullptr) {
        return -1;
    }
    const velkor::ErrnoKeeper caller;
    char line[RECORD_SIZE];
    const size_t begin = put_head(line, module);

    caller.restore();  // for a "%m"
    va_list arguments;
    va_start(arguments, format);
    const size_t length = begin + put_body(line + begin, RECORD_SIZE - begin, format, arguments);
    va_end(arguments);
    memset(line + length, 0, RECORD_SIZE - length);

    if (logman_match_filter(line) == 0) {
        return -1;
    }
    flatten(line, length);
    write_record(line);
    return 0;
}

// ---- The draining thread ------------------------------------------------------------------------------------------

namespace {

constexpr int PASSES_PER_POLL = 100;
constexpr int64_t POLL_PAUSE_US = 10;
constexpr unsigned long COARSE_SLACK_NS = 1000000;

// Two draining threads (a second logman_init()) must not both take the same last record for theirs.
std::atomic<bool> draining{false};

// The ring is asked before the drain is counted: an idle drain must not get in the way of those who log.
void drain_one_record(char (&record)[RECORD_SIZE]) {
    const unsigned ring = ring_handle.load(std::memory_order_acquire);
    if (vk_GetLogmanEnable() == 0 || ring == 0 || terminal.load(std::memory_order_acquire) == nullptr ||
        draining.exchange(true, std::memory_order_acquire)) {
        return;
    }
    if (ringbuf_DataSize(ring) > 0) {
        FILE *const stream = enter_ring_with_terminal();
        if (stream != nullptr) {
            ringbuf_Read(RECORD_SIZE, record, ring);
            record[RECORD_SIZE - 1] = '\0';
            fprintf(stream, "%s\n", record);
            leave_ring();
        }
    }
    draining.store(false, std::memory_order_release);
}

// A pause of 10 us is a promise to lines that wait, and costs a core a few per cent. While the log is off nothing
// waits, and the kernel may stretch the pause to a millisecond.
class Pacing {
public:
    void pause() {
        const bool coarse = vk_GetLogmanEnable() == 0;
        if (coarse != coarse_) {
            prctl(PR_SET_TIMERSLACK, coarse ? COARSE_SLACK_NS : ordinary_slack_, 0, 0, 0);
            coarse_ = coarse;
        }
        velkor::pause_for_us(POLL_PAUSE_US);
    }

private:
    static unsigned long current_slack() {
        const int slack = prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
        return slack > 0 ? static_cast<unsigned long>(slack) : 0;  // 0 asks for the thread's default
    }

    bool coarse_ = false;
    unsigned long ordinary_slack_ = current_slack();
};

}  // namespace

void *logman_thread(void *arg) {
    char record[RECORD_SIZE] = "";
    ThrInfo_DoRecord("logman_thread", 365, arg);
    Pacing pacing;
    for (int pass = 1;; pass = pass % PASSES_PER_POLL + 1) {
        if (pass == PASSES_PER_POLL) {
            pacing.pause();
            vk_OutLogToLogmanEnable();
        }
        drain_one_record(record);
    }
}

int logman_init() {
    vk_OutLogToLogmanEnable();
    pthread_t thread;
    if (__pthread_create(&thread, nullptr, logman_thread, nullptr) == 0) {
        pthread_detach(thread);
    }
    return 0;
}

// ---- The console --------------------------------------------------------------------------------------------------

namespace {

pthread_mutex_t console_lock = PTHREAD_MUTEX_INITIALIZER;
FILE *console = nullptr;

FILE *open_console_once() {
    const velkor::LockGuard guard(console_lock);
    if (console == nullptr) {
        console = open_terminal(CONSOLE);
    }
    return console;
}

const char *or_empty(const char *text) { return text != nullptr ? text : ""; }

}  // namespace

int vk_printf_tocon(const char *module, const char *source, int line, const char *format, ...) {
    const int callers_errno = errno;
    FILE *const stream = open_console_once();
    if (stream == nullptr) {
        return -1;
    }
    errno = callers_errno;
    const velkor::ErrnoKeeper caller;
    char stamp[velkor::LOG_STAMP_SIZE];
    velkor::format_log_stamp(stamp, time(nullptr));

    char body[RECORD_SIZE] = "";
    if (format != nullptr) {
        caller.restore();  // for a "%m"
        va_list arguments;
        va_start(arguments, format);
        put_body(body, sizeof body, format, arguments);
        va_end(arguments);
    }

    fprintf(stream, "%s [%ld %s] %s:%d %s\n", stamp, velkor::kernel_thread_id(), or_empty(module), or_empty(source),
            line, body);
    return 0;
}

// ---- A forked child -----------------------------------------------------------------------------------------------

namespace {

// The child has one thread, and what the others were in the middle of will never be finished.
void restart_in_child() {
    configuration_lock = PTHREAD_MUTEX_INITIALIZER;
    list_lock = PTHREAD_MUTEX_INITIALIZER;
    console_lock = PTHREAD_MUTEX_INITIALIZER;
    busy_count.store(0, std::memory_order_relaxed);
    draining.store(false, std::memory_order_relaxed);
    if (list_version.load(std::memory_order_relaxed) % 2 != 0) {
        velkor::store_racing(g_logman_filter, lists_before.filter, LIST_SIZE);
        velkor::store_racing(g_logman_invert, lists_before.invert, LIST_SIZE);
        list_version.fetch_add(1, std::memory_order_release);
    }
    thread_head.thread_id = 0;
    thread_head.second.forget();
}

__attribute__((constructor)) void survive_fork() { velkor::when_forked(restart_in_child); }

}  // namespace

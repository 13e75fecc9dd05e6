// The debug print channel: recent text in memory buffers of the process's own, and tagged lines live to a terminal.
//
// Any thread prints, buffers are registered and replaced meanwhile, and one thread follows the mode file. The text that
// tags are looked for in, and the terminal, have a lock each: a terminal that takes nothing holds up those who print to
// it, and never those whose tag does not match.
#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <optional>

#include <velkor/diagnostics.h>
#include <velkor/firmware.h>
#include <velkor/text.h>

#include "support/assertion_report.h"
#include "support/errno_keeper.h"
#include "support/lock_guard.h"
#include "support/log.h"
#include "support/log_stamp.h"
#include "support/open_file.h"
#include "support/owners.h"
#include "support/plain_format.h"
#include "support/platform.h"
#include "support/remembered_second.h"
#include "support/terminal_stream.h"

int32_t g_iRtPrintEn = 0;
int32_t g_iRtGlobalfd = 0;

namespace {

constexpr const char *SWITCH_DIRECTORY = "./rt_debug";
constexpr const char *MODE_FILE = "./rt_debug/mode.txt";
constexpr int HAS_WRAPPED = 0;
constexpr int MAY_WRAP = 1;
constexpr int32_t LAST_BYTE = VELKOR_MESSAGE_TEXT_SIZE - 1;

bool is_on() { return __atomic_load_n(&g_iRtPrintEn, __ATOMIC_RELAXED) != 0; }

// ---- The slots ----------------------------------------------------------------------------------------------------

std::atomic<RtMsgBuf *> slots[VELKOR_MESSAGE_SLOTS];

RtMsgBuf *buffer_of_channel(unsigned channel) {
    const bool is_channel = channel >= 1 && channel <= VELKOR_MESSAGE_SLOTS;
    return is_channel ? slots[channel - 1].load(std::memory_order_acquire) : nullptr;
}

}  // namespace

int find_empty_pointer() {
    for (int index = 0; index < VELKOR_MESSAGE_SLOTS; ++index) {
        if (slots[index].load(std::memory_order_acquire) == nullptr) {
            return index;
        }
    }
    return -1;
}

void insert_global_pointer(unsigned index, RtMsgBuf *buffer) {
    if (index < VELKOR_MESSAGE_SLOTS) {
        slots[index].store(buffer, std::memory_order_release);
    }
}

// ---- A line -------------------------------------------------------------------------------------------------------

namespace {

constexpr size_t TEXT_LIMIT = 4093;  // of prefix and message; behind it there is room for CR, LF and 0

// The prefix changes once a second and thread.
struct Prefix {
    velkor::RememberedSecond second;
    long thread_id;  // 0: not asked for yet
    size_t length;
    char text[velkor::LOG_STAMP_SIZE + 24];
};

thread_local Prefix thread_prefix;

void renew(Prefix &prefix, time_t now) {
    if (prefix.thread_id == 0) {
        prefix.thread_id = velkor::kernel_thread_id();
    }
    char stamp[velkor::LOG_STAMP_SIZE];
    const size_t stamp_length = velkor::format_log_stamp(stamp, now);
    prefix.second.remember(now);
    // The thread id goes inside the brackets of the stamp.
    const int length = snprintf(prefix.text, sizeof prefix.text, "%.*s %ld]", static_cast<int>(stamp_length) - 1, stamp,
                                prefix.thread_id);
    prefix.length = static_cast<size_t>(length);
}

class Line {
public:
    VELKOR_FORMAT(2, 0) Line(const char *format, va_list arguments) {
        const velkor::ErrnoKeeper caller;
        put_prefix();
        caller.restore();  // for a "%m"
        if (format != nullptr) {
            put_message(format, arguments);
        }
        put_end();
    }

    const char *text() const { return text_; }

    // Up to the first 0, which is not the end when a "%c" printed one.
    size_t length() const { return strlen(text_); }

private:
    void put_prefix() {
        Prefix &prefix = thread_prefix;
        const time_t now = time(nullptr);
        if (!prefix.second.is(now)) {
            renew(prefix, now);
        }
        memcpy(text_, prefix.text, prefix.length);
        end_ = prefix.length;
    }

    VELKOR_FORMAT(2, 0) void put_message(const char *format, va_list arguments) {
        const size_t size = TEXT_LIMIT - end_ + 1;
        va_list plainly;
        va_copy(plainly, arguments);
        const std::optional<size_t> length = velkor::format_plainly(text_ + end_, size, format, plainly);
        va_end(plainly);
        end_ += length ? *length : put_message_by_library(size, format, arguments);
    }

    // Answers how far the message reaches, zeros in it included.
    VELKOR_FORMAT(3, 0) size_t put_message_by_library(size_t size, const char *format, va_list arguments) {
        memset(text_ + end_, 0, size);
        const int length = vsnprintf(text_ + end_, size, format, arguments);
        return length >= 0 ? std::min(static_cast<size_t>(length), size - 1) : strnlen(text_ + end_, size - 1);
    }

    // Terminals want both characters. An end that has one of them gets the other behind it: LF CR is what readers of
    // these buffers know.
    void put_end() {
        const char last = text_[end_ - 1];
        const char before = text_[end_ - 2];
        if (last == '\n') {
            append(before == '\r' ? "" : "\r");
        } else if (last == '\r') {
            append(before == '\n' ? "" : "\n");
        } else {
            append("\r\n");
        }
    }

    void append(const char *text) {
        const size_t length = strlen(text);
        memcpy(text_ + end_, text, length + 1);
        end_ += length;
    }

    size_t end_;
    char text_[TEXT_LIMIT + 3];  // not cleared: that would cost more than all the rest
};

}  // namespace

// ---- A message buffer ---------------------------------------------------------------------------------------------

namespace {

// The record is its owner's. Wherever a position got to that is none, the buffer is full.
int32_t position_of(const RtMsgBuf &buffer) {
    const int32_t position = buffer.write_position;
    return position >= 0 && position <= LAST_BYTE ? position : LAST_BYTE;
}

void copy_at(RtMsgBuf &buffer, int32_t position, const char *text, int32_t length) {
    memcpy(buffer.text + position, text, static_cast<size_t>(length));
    buffer.write_position = position + length;
}

void end_text(RtMsgBuf &buffer) {
    buffer.text[position_of(buffer)] = '\0';
    buffer.text[LAST_BYTE] = '\0';
}

int put_msg(RtMsgBuf &buffer, const Line &line) {
    const auto length = static_cast<int32_t>(line.length());
    const velkor::LockGuard guard(buffer.lock);
    const int32_t position = position_of(buffer);
    if (LAST_BYTE - position >= length) {
        copy_at(buffer, position, line.text(), length);
    } else if (RtMsgEx_gFlag(&buffer, MAY_WRAP) != 0) {
        copy_at(buffer, 0, line.text(), length);
        RtMsgEx_sFlag(&buffer, HAS_WRAPPED, 1);
    }
    end_text(buffer);
    return 0;
}

// Copies a text of the buffer that begins at `from`, at most `limit` characters. Answers where the copy ends.
char *copy_text(const RtMsgBuf &buffer, int32_t from, int32_t limit, char *out) {
    const auto room = static_cast<size_t>(std::clamp(LAST_BYTE - from, 0, limit));
    const size_t length = strnlen(buffer.text + from, room);
    memcpy(out, buffer.text + from, length);
    return out + length;
}

// What is left of the older text begins behind the end of the newest one.
char *copy_all(RtMsgBuf &buffer, char *out) {
    const velkor::LockGuard guard(buffer.lock);
    if (RtMsgEx_gFlag(&buffer, HAS_WRAPPED) != 1) {
        return copy_text(buffer, 0, LAST_BYTE, out);
    }
    const int32_t position = position_of(buffer);
    if (position < LAST_BYTE) {
        out = copy_text(buffer, position + 1, LAST_BYTE, out);
    }
    return copy_text(buffer, 0, position, out);
}

}  // namespace

namespace velkor {

int get_msg(RtMsgBuf *buffer, char *out, int size) {
    if (buffer == nullptr) {
        report_assertion("src/rt_print", 443, "get_msg", "_pst != NULL");
        return -1;
    }
    if (out == nullptr) {
        report_assertion("src/rt_print", 444, "get_msg", "_strBuf != NULL");
        return -2;
    }
    if (size < VELKOR_MESSAGE_TEXT_SIZE) {
        return -1;
    }
    char *const end = copy_all(*buffer, out);
    memset(end, 0, static_cast<size_t>(out + size - end));
    return 0;
}

}  // namespace velkor

namespace {

int get_msg_of_channel(unsigned channel, char *out, int size) {
    RtMsgBuf *const buffer = buffer_of_channel(channel);
    return buffer != nullptr ? velkor::get_msg(buffer, out, size) : 0;
}

}  // namespace

int get_msg0(char *out, int size) { return get_msg_of_channel(1, out, size); }
int get_msg1(char *out, int size) { return get_msg_of_channel(2, out, size); }
int get_msg2(char *out, int size) { return get_msg_of_channel(3, out, size); }
int get_msg3(char *out, int size) { return get_msg_of_channel(4, out, size); }
int get_msg4(char *out, int size) { return get_msg_of_channel(5, out, size); }
int get_msg5(char *out, int size) { return get_msg_of_channel(6, out, size); }
int get_msg6(char *out, int size) { return get_msg_of_channel(7, out, size); }
int get_msg7(char *out, int size) { return get_msg_of_channel(8, out, size); }

// ---- Tags and the live copy ---------------------------------------------------------------------------------------

namespace {

constexpr size_t TAG_TEXT_SIZE = 128;

struct TagText {
    char text[TAG_TEXT_SIZE + 1];  // a file may fill all of it, and holds no terminator
};

pthread_mutex_t tag_lock = PTHREAD_MUTEX_INITIALIZER;
TagText tags = {};
bool match_all = false;

// Written under its lock, and none before it is closed: a child forked at that moment has no live copy.
pthread_mutex_t terminal_lock = PTHREAD_MUTEX_INITIALIZER;
std::atomic<FILE *> terminal{nullptr};

bool matches(const char *tag) {
    const velkor::LockGuard guard(tag_lock);
    return match_all || (tag != nullptr && strstr(tags.text, tag) != nullptr);
}

void match_every_tag() {
    const velkor::LockGuard guard(tag_lock);
    match_all = true;
    tags = {};
}

void set_tags(const TagText &text) {
    const velkor::LockGuard guard(tag_lock);
    tags = text;
}

void match_tags_alone() {
    const velkor::LockGuard guard(tag_lock);
    match_all = false;
}

int copy_live(const Line &line) {
    const velkor::LockGuard guard(terminal_lock);
    FILE *const stream = terminal.load(std::memory_order_relaxed);
    if (stream == nullptr) {
        return 0;
    }
    clearerr(stream);
    fputs(line.text(), stream);
    const int result = fflush(stream);
    return ferror(stream) != 0 ? EOF : result;  // a small C library's flushing does not tell what failed before it
}

// Takes the place of the terminal before, which is closed first; no path means none. Answers whether it is open.
bool change_terminal(const char *path) {
    const velkor::LockGuard guard(terminal_lock);
    { const velkor::OwnedStream former(terminal.exchange(nullptr)); }
    FILE *const stream =
        path != nullptr ? velkor::open_terminal_stream(path, O_RDWR | O_CREAT | O_TRUNC, "w+") : nullptr;
    terminal.store(stream);
    return stream != nullptr;
}

}  // namespace

int rt_printf(unsigned channel, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const Line line(format, arguments);
    va_end(arguments);
    RtMsgBuf *const buffer = buffer_of_channel(channel);
    if (buffer != nullptr && is_on()) {
        return put_msg(*buffer, line);
    }
    return VK_LOG_FLAGS(0x12345678, "%s", line.text());
}

int Rt_PrintfNoGlobalfd(const char *tag, const char *format, ...) {
    const bool matched = matches(tag);
    const int32_t channel = __atomic_load_n(&g_iRtGlobalfd, __ATOMIC_RELAXED);
    RtMsgBuf *const buffer = buffer_of_channel(static_cast<unsigned>(channel));
    if (!is_on() || buffer == nullptr || !matched) {
        return matched ? 1 : 0;
    }
    va_list arguments;
    va_start(arguments, format);
    const Line line(format, arguments);
    va_end(arguments);
    put_msg(*buffer, line);
    return copy_live(line);
}

// ---- The mode file ------------------------------------------------------------------------------------------------

namespace {

std::atomic<int32_t> mode_file_time{0};

bool read_mode_file(TagText &content) {
    const velkor::OwnedStream file(velkor::open_file_stream(MODE_FILE, O_RDWR, "r+"));
    if (!file) {
        return false;
    }
    content = {};
    (void)fread(content.text, 1, TAG_TEXT_SIZE, file.get());
    return true;
}

// "/dev/pts/3:alarm". Without a second field the first one is what tags are looked for in, and there is no terminal;
// what tags match otherwise stays as it was.
void take_terminal_and_tags(TagText &content) {
    TagText tag_field = {};
    char *rest = nullptr;
    TagText path = {};
    const char *const first = strtok_r(content.text, ":", &rest);
    const char *const second = first != nullptr ? strtok_r(nullptr, ":", &rest) : nullptr;
    if (second == nullptr) {
        set_tags(content);
        change_terminal(nullptr);
        return;
    }
    strncopy(path.text, first, TAG_TEXT_SIZE - 1);
    strncopy(tag_field.text, second, TAG_TEXT_SIZE - 1);
    set_tags(tag_field);
    if (change_terminal(path.text)) {
        match_tags_alone();
    }
}

void follow_mode_file() {
    struct stat status;
    if (stat(MODE_FILE, &status) != 0) {
        match_every_tag();
        return;
    }
    const auto changed = static_cast<int32_t>(status.st_mtime);
    if (mode_file_time.exchange(changed, std::memory_order_relaxed) == changed) {
        return;
    }
    TagText content;
    if (!read_mode_file(content)) {
        return;
    }
    if (strstr(content.text, "/dev/pts/") != nullptr) {
        take_terminal_and_tags(content);
    } else {
        set_tags(content);
        match_tags_alone();
    }
}

}  // namespace

int rt_JudgePrintEn() {
    struct stat status;
    const bool is_on_now = stat(SWITCH_DIRECTORY, &status) == 0;
    __atomic_store_n(&g_iRtPrintEn, is_on_now ? 1 : 0, __ATOMIC_RELAXED);
    if (is_on_now) {
        follow_mode_file();
    } else {
        change_terminal(nullptr);
    }
    return 0;
}

// ---- A forked child -----------------------------------------------------------------------------------------------

namespace {

// A fork does not hold the lock of a buffer. That lock is the owner's: the thread that forks may hold it already, or
// hold it in a handler of its own, and would wait for itself. So a child makes a new one where nobody is left to
// release it, and what another thread was in the midst of writing is no part of the text.
void free_in_child(RtMsgBuf &buffer) {
    if (pthread_mutex_trylock(&buffer.lock) == 0) {
        pthread_mutex_unlock(&buffer.lock);
        return;
    }
    buffer.lock = PTHREAD_MUTEX_INITIALIZER;
    end_text(buffer);
}

void restart_in_child() {
    tag_lock = PTHREAD_MUTEX_INITIALIZER;
    terminal_lock = PTHREAD_MUTEX_INITIALIZER;
    for (std::atomic<RtMsgBuf *> &slot : slots) {
        RtMsgBuf *const buffer = slot.load(std::memory_order_acquire);
        if (buffer != nullptr) {
            free_in_child(*buffer);
        }
    }
    thread_prefix.thread_id = 0;
    thread_prefix.second.forget();
}

__attribute__((constructor)) void survive_fork() { velkor::when_forked(restart_in_child); }

}  // namespace

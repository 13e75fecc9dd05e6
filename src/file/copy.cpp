// Copying a file onto a disk of the recorder, past the page cache where that can be: a recording is written once and
// not read again soon, and must not push everything else out of memory.
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include <velkor/allocation.h>
#include <velkor/files.h>
#include <velkor/firmware.h>
#include <velkor/text.h>

#include "support/log.h"
#include "support/pause.h"
#include "support/released_block.h"

// ---- The file layer -----------------------------------------------------------------------------------------------

namespace {

// The layer's own numbers, on every platform.
constexpr int READ_ONLY = 0;
constexpr int WRITE_CREATE_EMPTY = 0x241;
constexpr int DIRECT = 0x10000;
constexpr int SET_STATUS_FLAGS = 4;

constexpr const char *SOURCE_FILE = "src/file";
constexpr int BLOCK_SIZE = 0x80000;
constexpr int64_t BYTES_PER_SYNC = 0xA00000;
constexpr int MOST_RETRIES = 10;
constexpr int64_t PAUSE_BEFORE_RETRY_US = 90000;

// The error number in a line is that of the call which failed, whatever was closed and released before the line.
#define LOG_COPY(format, ...) VK_LOG_FLAGS(0xFF0000, "[%s:%d]-" format, "copy_file", __VA_ARGS__)

struct alignas(8) StatusRecord {
    unsigned char bytes[160];

    int64_t file_size() const {
        int64_t size;
        memcpy(&size, bytes + 48, sizeof size);
        return size;
    }
};

struct alignas(8) DestinationRecord {
    unsigned char bytes[96];

    void set_word(size_t at, const unsigned char *word) { memcpy(bytes + at, word, sizeof(uint32_t)); }
    void set_text(size_t at, const char *text, int length) {
        strncopy(reinterpret_cast<char *>(bytes + at), text, length);
    }
};

bool examine(const char *path, StatusRecord &status) {
    status = {};
    if (rec_Stat(path, &status) == 0) {
        return true;
    }
    status = {};
    return vfs_Stat(path, &status) == 0;
}

bool is_bare_disk(const char *path) { return strstr(path, "/dev/scsi/host") != nullptr; }

// A disk without a file system has no file status: the new record takes over the source's.
DestinationRecord describe_destination(const char *path, const StatusRecord &source) {
    constexpr uint32_t KIND = 2;
    DestinationRecord record = {};
    record.set_word(0, source.bytes + 104);
    record.set_word(4, source.bytes + 128);
    record.set_word(8, reinterpret_cast<const unsigned char *>(&KIND));
    record.set_word(16, source.bytes + 120);
    record.set_text(24, path, 22);
    record.set_text(88, "sdv", 7);
    return record;
}

}  // namespace

int safe_read(int fd, void *buffer, int length) {
    int result;
    do {
        result = vfs_Read(fd, buffer, length);
    } while (result < 0 && errno == EINTR);
    return result;
}

int safe_write(int fd, const void *buffer, int length) {
    int result;
    do {
        result = vfs_Write(fd, buffer, length);
    } while (result < 0 && errno == EINTR);
    return result;
}

// ---- What a copy holds --------------------------------------------------------------------------------------------

namespace {

class CopyBuffer {
public:
    CopyBuffer() = default;
    ~CopyBuffer() { release(); }
    CopyBuffer(const CopyBuffer &) = delete;
    CopyBuffer &operator=(const CopyBuffer &) = delete;

    // Page-aligned where it can be, and only then fit for direct I/O. Answers whether there is one at all.
    bool obtain() {
        aligned_ = valloc(BLOCK_SIZE);
        data_ = aligned_ != nullptr ? aligned_ : dvrMalloc(BLOCK_SIZE, SOURCE_FILE, 223);
        return data_ != nullptr;
    }
    bool is_aligned() const { return aligned_ != nullptr; }
    char *data() const { return static_cast<char *>(data_); }

    // As dvrFree() does, whichever way it was obtained. The firmware's memory service knows every block of the process.
    // One that knows its own alone refuses an aligned buffer, which then goes back to where it came from.
    void release() {
        if (data_ == nullptr) {
            return;
        }
        if (velkor::release_block(data_) < 0) {
            velkor::report_refused_block(data_);
            free(aligned_);
        }
        data_ = nullptr;
    }

private:
    void *aligned_ = nullptr;
    void *data_ = nullptr;
};

class CopyFile {
public:
    CopyFile() = default;
    ~CopyFile() { close(); }
    CopyFile(const CopyFile &) = delete;
    CopyFile &operator=(const CopyFile &) = delete;

    bool open(void *record, const char *path, int flags, bool direct) {
        descriptor_ = vfs_Open(record, path, flags | (direct ? DIRECT : 0));
        is_direct_ = direct;
        return is_open();
    }
    void close() {
        if (is_open()) {
            vfs_Close(descriptor_);
        }
        descriptor_ = -1;
    }
    bool is_open() const { return descriptor_ >= 0; }
    bool is_direct() const { return is_direct_; }
    int descriptor() const { return descriptor_; }
    void sync() const { vfs_fsync(descriptor_); }

private:
    int descriptor_ = -1;
    bool is_direct_ = false;
};

class Copy {
public:
    Copy(const char *source, const char *destination, bool is_cancelable)
        : source_path_(source), destination_path_(destination), is_cancelable_(is_cancelable) {}

    int run(void *destination_info, int size) {
        if (!examine(source_path_, status_)) {
            LOG_COPY("src=%s errno=%d\n", 209, source_path_, errno);
            return VELKOR_COPY_NO_STATUS;
        }
        remaining_ = size < 0 ? status_.file_size() : size;
        if (!buffer_.obtain()) {
            LOG_COPY("malloc error. errno=%d\n", 225, errno);
            return VELKOR_COPY_NO_MEMORY;
        }
        if (!open_destination(destination_info)) {
            return VELKOR_COPY_NO_DESTINATION;
        }
        Set_Dir(destination_path_);
        if (!open_source()) {
            return VELKOR_COPY_NO_SOURCE;
        }
        const int result = copy_blocks();
        return result == VELKOR_COPY_OK ? finish() : result;
    }

private:
    // ---- Opening ----

    bool open_destination(void *info) {
        DestinationRecord made;
        void *record = nullptr;
        if (is_bare_disk(destination_path_)) {
            made = describe_destination(destination_path_, status_);
            record = info != nullptr ? info : &made;
        }
        if (destination_.open(record, destination_path_, WRITE_CREATE_EMPTY, buffer_.is_aligned()) ||
            destination_.open(record, destination_path_, WRITE_CREATE_EMPTY, false)) {
            return true;
        }
        const int error = errno;
        buffer_.release();
        LOG_COPY("des=%s errno=%d\n", 279, destination_path_, error);
        return false;
    }

    bool open_source() {
        const bool directly = destination_.is_direct();
        if (source_.open(nullptr, source_path_, READ_ONLY, directly) ||
            (directly && source_.open(nullptr, source_path_, READ_ONLY, false))) {
            return true;
        }
        const int error = errno;
        buffer_.release();
        destination_.close();
        LOG_COPY("src=%s errno=%d\n", directly ? 322 : 302, source_path_, error);
        return false;
    }

    // ---- Copying ----

    bool is_cancelled() const { return is_cancelable_ && GetCopyCtrlStatus() != 0; }

    int copy_blocks() {
        while (remaining_ > 0 && !is_cancelled()) {
            const int chunk = static_cast<int>(std::min<int64_t>(remaining_, BLOCK_SIZE));
            if (chunk < BLOCK_SIZE) {
                const int result = leave_direct_mode();
                if (result != VELKOR_COPY_OK) {
                    return result;
                }
            }
            read_ = safe_read(source_.descriptor(), buffer_.data(), chunk);
            if (read_ < 1) {
                read_error_ = errno;
                break;
            }
            if (!write_block()) {
                return VELKOR_COPY_WRITE_FAILED;
            }
            account_for_block();
        }
        return VELKOR_COPY_OK;
    }

    // Direct I/O takes whole sectors only, and the tail is none.
    int leave_direct_mode() {
        if (source_.is_direct() && vfs_fcntl(source_.descriptor(), SET_STATUS_FLAGS, 0) < 0) {
            return fail_mode(354, VELKOR_COPY_SOURCE_MODE);
        }
        if (destination_.is_direct() && vfs_fcntl(destination_.descriptor(), SET_STATUS_FLAGS, 1) < 0) {
            return fail_mode(371, VELKOR_COPY_DESTINATION_MODE);
        }
        return VELKOR_COPY_OK;
    }

    int fail_mode(int line, int result) {
        const int error = errno;
        perror("copy_file");
        give_up();
        LOG_COPY("errno=%d\n", line, error);
        return result;
    }

    // What is on the disk already is worth having there for good.
    void give_up() {
        destination_.sync();
        source_.close();
        destination_.close();
        buffer_.release();
    }

    // A disk that is busy spinning up, or waking from an error, takes less than it is given.
    bool write_block() {
        int done = 0;
        for (int retries = 0;;) {
            const int wanted = read_ - done;
            const int written = safe_write(destination_.descriptor(), buffer_.data() + done, wanted);
            if (written >= wanted) {
                return true;
            }
            const int error = errno;
            VK_LOG("[%s:%d]-retry=%d iRet=%d iLen=%d iReadSize=%d\n", "copy_file", 394, retries, written, done, read_);
            if (++retries == MOST_RETRIES) {
                give_up();
                LOG_COPY("src=%s dst=%s errno=%d\n", 416, source_path_, destination_path_, error);
                return false;
            }
            velkor::pause_for_us(PAUSE_BEFORE_RETRY_US);
            done += std::max(written, 0);
        }
    }

    // A removable disk is pulled without a word: the less is waiting to be written, the less is lost.
    void account_for_block() {
        remaining_ -= read_;
        copied_ += read_;
        if (copied_ % BYTES_PER_SYNC == 0) {
            destination_.sync();
        }
    }

    // ---- The end ----

    int finish() {
        destination_.sync();
        source_.close();
        destination_.close();
        buffer_.release();
        chmod(destination_path_, 0777);
        if (is_cancelled() && remaining_ > 0) {
            remove_part();
        }
        if (read_ < 0) {
            LOG_COPY("src=%s des=%s errno=%d\n", 452, source_path_, destination_path_, read_error_);
            return VELKOR_COPY_READ_FAILED;
        }
        return VELKOR_COPY_OK;
    }

    void remove_part() const {
        vfs_Unlink(destination_path_);
        VK_LOG_FLAGS(5, "%s user cancel! %s", "copy_file", destination_path_);
        SetCopyCtrlStatus(0);
    }

    const char *source_path_;
    const char *destination_path_;
    bool is_cancelable_;
    StatusRecord status_ = {};
    int64_t remaining_ = 0;
    int64_t copied_ = 0;
    int read_ = 0;  // what the last read answered
    int read_error_ = 0;
    CopyFile destination_;
    CopyFile source_;
    CopyBuffer buffer_;
};

}  // namespace

int copy_file(const char *src, const char *dst, void *dst_info, int size, int cancelable) {
    if (src == nullptr) {
        return VELKOR_COPY_NO_STATUS;
    }
    if (dst == nullptr) {
        return VELKOR_COPY_NO_DESTINATION;
    }
    return Copy(src, dst, cancelable != 0).run(dst_info, size);
}

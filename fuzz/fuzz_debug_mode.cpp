// Any bytes as the debug channel's mode file, then lines under tags out of the same bytes: no byte is read or written
// that is not theirs. What is named as a terminal is a file below /tmp.
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>

#include <string>

#include "fuzzer.h"

namespace {

constexpr const char *MODE_FILE = "rt_debug/mode.txt";

RtMsgBuf &buffer() {
    static RtMsgBuf messages = {};
    return messages;
}

// The fuzzer keeps what it finds in files relative to the directory in which it was started.
class InTmp {
public:
    InTmp() : before_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) { EXPECT_TRUE(chdir("/tmp") == 0); }
    ~InTmp() {
        EXPECT_TRUE(fchdir(before_) == 0);
        close(before_);
    }
    InTmp(const InTmp &) = delete;
    InTmp &operator=(const InTmp &) = delete;

private:
    int before_;
};

void begin_once() {
    static bool begun = false;
    if (begun) {
        return;
    }
    begun = true;
    EXPECT_TRUE(mkdir("rt_debug", 0755) == 0 || errno == EEXIST);
    mkdir("dev", 0755);
    mkdir("dev/pts", 0755);
    pthread_mutex_init(&buffer().lock, nullptr);
    RtMsgEx_sFlag(&buffer(), 1, 1);
    insert_global_pointer(0, &buffer());
    g_iRtGlobalfd = 1;
}

void write_mode(const std::string &text) {
    static time_t time = 1;
    FILE *const file = fopen(MODE_FILE, "w");
    fwrite(text.data(), 1, text.size(), file);
    fclose(file);
    const struct timespec times[2] = {{++time, 0}, {time, 0}};
    utimensat(AT_FDCWD, MODE_FILE, times, 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const InTmp working;
    begin_once();
    const std::string text(reinterpret_cast<const char *>(data), size);
    if (text.find("..") != std::string::npos) {
        return -1;
    }
    write_mode("./" + text);
    EXPECT_TRUE(rt_JudgePrintEn() == 0);
    const std::string tag(text.c_str());
    Rt_PrintfNoGlobalfd(tag.c_str(), "%s", text.c_str());
    rt_printf(1, "%.*s", static_cast<int>(size), text.c_str());
    static char out[VELKOR_MESSAGE_TEXT_SIZE];
    EXPECT_TRUE(get_msg0(out, sizeof out) == 0);
    EXPECT_TRUE(strnlen(out, sizeof out) < sizeof out);
    return 0;
}

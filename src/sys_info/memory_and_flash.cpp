// Memory, flash, and what a process holds of the memory.
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/vfs.h>

#include <velkor/system_info.h>

#include "support/log.h"
#include "support/number_text.h"
#include "support/open_file.h"
#include "support/owners.h"

namespace {

constexpr double UNAVAILABLE = -1.0;

// The value of the next line, "MemTotal:  1009344 kB"; 0 for a line of another shape.
uint32_t read_value(FILE *file) {
    unsigned long long value = 0;
    (void)fscanf(file, "%*s %llu %*s", &value);
    return static_cast<uint32_t>(value);
}

// The third line is nobody's.
bool read_memory_words(uint32_t (&words)[VELKOR_MEMORY_WORDS]) {
    const velkor::OwnedStream file(velkor::open_file_stream("/proc/meminfo", O_RDONLY, "r"));
    if (!file) {
        perror("fopen");
        return false;
    }
    words[0] = read_value(file.get());
    words[2] = read_value(file.get());
    read_value(file.get());
    words[4] = read_value(file.get());
    words[5] = read_value(file.get());
    return true;
}

}  // namespace

double GetMemInfoV2(uint32_t *out) {
    uint32_t words[VELKOR_MEMORY_WORDS] = {};
    if (!read_memory_words(words)) {
        return UNAVAILABLE;
    }
    if (out != nullptr) {
        memcpy(out, words, sizeof words);
    }
    const uint32_t total = words[0];
    const uint32_t taken = total - words[2];
    return taken * 100.0 / total;  // of nothing: no number, or infinity
}

double GetMemInfo(uint32_t *total, uint32_t *free_kib) {
    uint32_t words[VELKOR_MEMORY_WORDS] = {};
    const double percent = GetMemInfoV2(words);
    if (total != nullptr) {
        *total = words[0];
    }
    if (free_kib != nullptr) {
        *free_kib = words[2];
    }
    return percent;
}

double GetFlashInfo() {
    struct statfs root;
    if (statfs("/", &root) != 0 || root.f_bsize == 0) {
        return UNAVAILABLE;
    }
    const auto total = static_cast<double>(root.f_blocks);
    return (total - static_cast<double>(root.f_bavail)) / total * 100.0;
}

void GetSystemInfo(double *cpu, double *memory, double *flash) {
    if (memory != nullptr) {
        *memory = GetMemInfo(nullptr, nullptr);
    }
    if (cpu != nullptr) {
        *cpu = GetCpuInfo();
    }
    if (flash != nullptr) {
        *flash = GetFlashInfo();
    }
}

char *skip_whitespace(const char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    while (*text == ' ' || (*text >= '\t' && *text <= '\r')) {
        ++text;
    }
    return const_cast<char *>(text);
}

namespace {

constexpr size_t EIGHTH_WORD = 7 * sizeof(uint32_t);

void add_to_eighth_word(void *record, int kib) {
    char *const place = static_cast<char *>(record) + EIGHTH_WORD;
    uint32_t sum;
    memcpy(&sum, place, sizeof sum);
    sum += static_cast<uint32_t>(kib);
    memcpy(place, &sum, sizeof sum);
}

}  // namespace

int GetProcRss(int process, void *record) {
    if (record == nullptr) {
        return -1;
    }
    char path[32];
    snprintf(path, sizeof path, "/proc/%d/status", process);
    const velkor::OwnedStream file(velkor::open_file_stream(path, O_RDONLY, "r"));
    if (!file) {
        VK_LOG("[%s:%d]-fopen error. errno=%d\n", "GetProcRss", __LINE__, errno);
        return -1;
    }
    constexpr char TAG[] = "VmRSS:";
    char line[1024];
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        const char *const tag = strstr(line, TAG);
        if (tag != nullptr) {
            add_to_eighth_word(record, velkor::number_of(skip_whitespace(tag + sizeof TAG - 1)));
        }
    }
    return 0;
}

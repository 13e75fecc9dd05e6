#include "support/log_capture.h"

#include <gtest/gtest.h>
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>

#include "support/place.h"

namespace {

constexpr unsigned RING = 1;  // the first that the process makes

}  // namespace

LogCapture::LogCapture(const std::string &lines) {
    place::write_file("/tmp/tty.logman", "");
    place::write_file("/dvrfile/logman", "dbgprint=1\n" + lines);
    EXPECT_EQ(vk_OutLogToLogmanEnable(), 0);
    EXPECT_EQ(ringbuf_DataSize(RING), 0);
}

std::vector<std::string> LogCapture::take_records() {
    std::vector<std::string> records;
    while (ringbuf_DataSize(RING) > 0) {
        std::string record(VELKOR_LOGMAN_RECORD_SIZE, '?');
        ringbuf_Read(VELKOR_LOGMAN_RECORD_SIZE, record.data(), RING);
        records.push_back(record);
    }
    return records;
}

std::vector<std::string> LogCapture::take_lines() {
    std::vector<std::string> lines = take_records();
    for (std::string &line : lines) {
        line.resize(line.find('\0'));
    }
    return lines;
}

std::vector<std::string> LogCapture::take_messages() {
    std::vector<std::string> lines = take_lines();
    for (std::string &line : lines) {
        // The first bracket closes the stamp, the second the module.
        const size_t stamp = line.find("] [");
        const size_t module = line.find(']', stamp + 1);
        line.erase(0, module + 1);
    }
    return lines;
}

// The log: every part reports through it, a terminal takes the lines, and at the end each line is accounted for.
#pragma once

#include <velkor/diagnostics.h>

#include <atomic>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "subsystem.h"

namespace recorder {

// Asks first, so that a log which is off costs nothing, and counts what becomes of the line.
#define RECORDER_LOG(module, ...)                                              \
    do {                                                                       \
        if (vk_GetLogmanEnable() != 0) {                                       \
            recorder::count_line(vk_printftomem(0, (module), 0, __VA_ARGS__)); \
        }                                                                      \
    } while (false)

void count_line(int result);

// The far end of "/tmp/tty.logman": a pseudo-terminal that keeps the last lines and counts them all.
class LogTerminal {
public:
    LogTerminal();
    ~LogTerminal();
    LogTerminal(const LogTerminal &) = delete;
    LogTerminal &operator=(const LogTerminal &) = delete;

    bool is_ready() const { return is_ready_; }
    unsigned lines() const { return lines_; }
    // Those that did not come from inside libvelkor.
    unsigned own_lines() const { return own_lines_; }
    std::vector<std::string> last(size_t count) const;

private:
    void collect();
    void keep(const std::string &line);

    int master_;
    bool is_ready_ = false;
    std::atomic<bool> is_over_{false};
    std::atomic<unsigned> lines_{0};
    std::atomic<unsigned> own_lines_{0};
    mutable std::mutex lock_;
    std::deque<std::string> last_;
    std::thread collector_;
};

class Log : public Subsystem {
public:
    Log() : Subsystem("log") {}

    bool is_ready() const { return terminal_.is_ready(); }
    std::vector<std::string> last_lines(size_t count) const { return terminal_.last(count); }

    void prepare() override;
    void conclude() override;
    Panel panel() const override;
    std::string tally() const override;
    std::string summary() const override;

private:
    void turn() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(150); }

    LogTerminal terminal_;
    std::atomic<unsigned> heartbeats_{0};
};

}  // namespace recorder

#include "log.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>
#include <velkor_host.h>

#include <fstream>

#include "eventually.h"
#include "place.h"
#include "text.h"

namespace recorder {

namespace {

constexpr size_t KEPT_LINES = 200;

std::atomic<unsigned> accepted{0};
std::atomic<unsigned> filtered{0};

struct velkor_host_ring ring_now() {
    struct velkor_host_ring ring = {};
    velkor_host_ring_get(1, &ring);
    return ring;
}

bool is_the_librarys(const std::string &line) { return line.find(" libvelkor]") != std::string::npos; }

}  // namespace

void count_line(int result) { ++(result == 0 ? accepted : filtered); }

// ---- The terminal ----

LogTerminal::LogTerminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    char name[64] = "";
    struct termios settings;
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0 || ptsname_r(master_, name, sizeof name) != 0 ||
        tcgetattr(master_, &settings) != 0) {
        return;
    }
    cfmakeraw(&settings);
    is_ready_ = tcsetattr(master_, TCSANOW, &settings) == 0 && symlink(name, place::LOG_TERMINAL) == 0;
    if (is_ready_) {
        collector_ = std::thread([this] { collect(); });
    }
}

LogTerminal::~LogTerminal() {
    is_over_ = true;
    if (is_ready_) {
        collector_.join();
        unlink(place::LOG_TERMINAL);
    }
    close(master_);
}

void LogTerminal::collect() {
    std::string text;
    while (!is_over_) {
        struct pollfd waiting = {master_, POLLIN, 0};
        char piece[4096];
        const ssize_t length = poll(&waiting, 1, 20) > 0 ? read(master_, piece, sizeof piece) : 0;
        text.append(piece, length > 0 ? static_cast<size_t>(length) : 0);
        for (size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
            keep(text.substr(0, end));
        }
    }
}

void LogTerminal::keep(const std::string &line) {
    own_lines_ += is_the_librarys(line) ? 0 : 1;
    {
        const std::lock_guard guard(lock_);
        last_.push_back(line);
        if (last_.size() > KEPT_LINES) {
            last_.pop_front();
        }
    }
    ++lines_;
}

std::vector<std::string> LogTerminal::last(size_t count) const {
    const std::lock_guard guard(lock_);
    const size_t skipped = last_.size() > count ? last_.size() - count : 0;
    return {last_.begin() + static_cast<std::ptrdiff_t>(skipped), last_.end()};
}

// ---- The part ----

void Log::prepare() {
    std::ofstream(place::LOG_SWITCH) << "dbgprint=1\ninvert=heartbeat\n";
    logman_init();
    expect(vk_GetLogmanEnable() == 1, "the log is on");
}

// The heartbeat is what the switch file's invert text keeps out.
void Log::turn() {
    ++heartbeats_;
    RECORDER_LOG("log", "heartbeat %u", heartbeats_.load());
}

void Log::conclude() {
    const auto is_drained = [this] {
        const struct velkor_host_ring ring = ring_now();
        return ring.held == 0 && terminal_.lines() == ring.written - ring.dropped;
    };
    expect(eventually(is_drained), "every line that the ring kept reaches the terminal");
    unlink(place::LOG_SWITCH);
    expect(eventually([] { return vk_GetLogmanEnable() == 0; }), "the log goes off with its file");

    const struct velkor_host_ring ring = ring_now();
    expect(accepted > 0 && terminal_.own_lines() <= accepted && terminal_.own_lines() + ring.dropped >= accepted,
           "the lines of the recorder's own are those that were accepted");
    expect(filtered == heartbeats_, "the heartbeats, and nothing else, are filtered");
}

Panel Log::panel() const {
    const struct velkor_host_ring ring = ring_now();
    const double fraction = ring.capacity != 0 ? 1.0 * ring.held / ring.capacity : 0;
    return {format("%u lines shown, %u filtered out", terminal_.lines(), filtered.load()),
            format("ring %s %llu written", bar(fraction).c_str(), static_cast<unsigned long long>(ring.written))};
}

std::string Log::tally() const { return format("%u log lines", terminal_.lines()); }

std::string Log::summary() const {
    const struct velkor_host_ring ring = ring_now();
    return format("%u lines on the terminal of %llu in the ring, %u of them the recorder's own; %u filtered out",
                  terminal_.lines(), static_cast<unsigned long long>(ring.written), terminal_.own_lines(),
                  filtered.load());
}

}  // namespace recorder

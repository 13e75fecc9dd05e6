// A small recorder process: a few modules on threads of their own log and allocate under their own names, the log
// manager drains their lines to a terminal, and at the end everything is counted up. Exit status 0 only if the
// numbers agree.
//
//     recorder [--seconds N]       runs where /dvrfile and /tmp/tty.logman are free: ./dev sandbox recorder
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>
#include <velkor/allocation.h>
#include <velkor/calendar.h>
#include <velkor/concurrency.h>
#include <velkor/diagnostics.h>
#include <velkor_host.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr const char *SWITCH_FILE = "/dvrfile/logman";
constexpr const char *TERMINAL = "/tmp/tty.logman";

// ---- The log terminal: a pseudo-terminal whose other end prints to the screen and counts ----

class LogTerminal {
public:
    LogTerminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        char name[64] = "";
        struct termios settings;
        ready_ = master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0 &&
                 ptsname_r(master_, name, sizeof name) == 0 && tcgetattr(master_, &settings) == 0;
        if (!ready_) {
            return;
        }
        cfmakeraw(&settings);
        ready_ = tcsetattr(master_, TCSANOW, &settings) == 0 && symlink(name, TERMINAL) == 0;
        if (ready_) {
            printer_ = std::thread([this] { print(); });
        }
    }

    ~LogTerminal() {
        stop_ = true;
        if (printer_.joinable()) {
            printer_.join();
            unlink(TERMINAL);
        }
        close(master_);
    }

    LogTerminal(const LogTerminal &) = delete;
    LogTerminal &operator=(const LogTerminal &) = delete;

    bool ready() const { return ready_; }
    unsigned lines() const { return lines_; }

private:
    void print() {
        const bool colour = isatty(STDOUT_FILENO) != 0;
        std::string text;
        while (!stop_) {
            struct pollfd waiting = {master_, POLLIN, 0};
            char piece[4096];
            const ssize_t length = poll(&waiting, 1, 20) > 0 ? read(master_, piece, sizeof piece) : 0;
            text.append(piece, length > 0 ? static_cast<size_t>(length) : 0);
            for (size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
                const std::string line = text.substr(0, end);
                printf(colour ? "\033[2m%s\033[0m%s\n" : "%s%s\n", line.substr(0, 21).c_str(),
                       line.size() > 21 ? line.c_str() + 21 : "");
                ++lines_;
            }
            fflush(stdout);
        }
    }

    int master_;
    bool ready_ = false;
    std::atomic<bool> stop_{false};
    std::atomic<unsigned> lines_{0};
    std::thread printer_;
};

// ---- What happened ----

struct Counters {
    std::atomic<unsigned> accepted{0};
    std::atomic<unsigned> refused{0};
    std::atomic<unsigned> expected_refusals{0};
    std::atomic<unsigned> failures{0};
};
Counters counters;

void expect(bool condition, const char *what) {
    if (!condition) {
        ++counters.failures;
        fprintf(stderr, "recorder: FAILED: %s\n", what);
    }
}

void count(int result) { ++(result == 0 ? counters.accepted : counters.refused); }

#define LOG(module, ...)                                        \
    do {                                                        \
        if (vk_GetLogmanEnable() != 0) {                        \
            count(vk_printftomem(0, (module), 0, __VA_ARGS__)); \
        }                                                       \
    } while (false)

template <typename Condition>
bool eventually(Condition condition) {
    const Clock::time_point end = Clock::now() + 10s;
    while (!condition()) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// ---- The modules ----

// Holds a few frames at a time, as an encoder does, and gives every one of them back.
void encode(Clock::time_point end) {
    ThrInfo_DoRecord("encoder", __LINE__, nullptr);
    std::vector<char *> frames;
    for (int number = 0; Clock::now() < end; ++number) {
        char *const frame = static_cast<char *>(dvrMalloc(64000, "src/media/encoder/channel.c", __LINE__));
        expect(frame != nullptr, "a frame is allocated");
        frames.push_back(frame);
        LOG("encoder", "%s %d frame %d, %zu in work", "encode", __LINE__, number, frames.size());
        if (frames.size() == 4) {
            for (char *const done : std::exchange(frames, {})) {
                expect(dvrFree(done) == 0, "a frame is released");
            }
        }
        std::this_thread::sleep_for(110ms);
    }
    for (char *const done : frames) {
        expect(dvrFree(done) == 0, "a frame is released");
    }
    ThrInfo_Clear();
}

// Its heartbeat is what the log's invert text keeps out.
void watch_motion(Clock::time_point end) {
    ThrInfo_DoRecord("motion", __LINE__, nullptr);
    char *const area = dvrStrdup("area 16x12", "src/detection/motion/detect.c", __LINE__);
    expect(area != nullptr && strcmp(area, "area 16x12") == 0, "a text is copied");
    while (Clock::now() < end) {
        ++counters.expected_refusals;
        LOG("motion", "heartbeat of %s", area);
        LOG("motion", "movement in\t%s\r\n", area);
        std::this_thread::sleep_for(230ms);
    }
    expect(dvrFree(area) == 0, "the text is released");
    ThrInfo_Clear();
}

constexpr size_t KIB = 1024;

// A module that its own limit stops: the failure is logged by the library itself, under its own name.
void store(Clock::time_point end) {
    ThrInfo_DoRecord("archive", __LINE__, nullptr);
    expect(dvrRegMem("demo_archive", 256) == 0, "a module is registered with a limit of 256 KiB");
    void *block = dvrCalloc(100, KIB, "demo_archive/index.c", __LINE__);
    expect(block != nullptr, "100 KiB are within the limit");
    block = dvrRealloc(block, 200 * KIB, "demo_archive/index.c", __LINE__);
    expect(block != nullptr, "200 KiB are within the limit");
    while (Clock::now() < end) {
        LOG("archive", "index holds %d entries", 100);
        std::this_thread::sleep_for(370ms);
    }
    expect(dvrMalloc(100 * KIB, "demo_archive/index.c", __LINE__) == nullptr, "300 KiB are not");
    ++counters.accepted;  // the library's own line about it
    expect(dvrFree(block) == 0, "the index is released");
    ThrInfo_Clear();
}

// Keeps the remembered clocks fresh, and writes what the screen shows: the time in both calendars.
void show_time(Clock::time_point end) {
    ThrInfo_DoRecord("clock", __LINE__, nullptr);
    while (Clock::now() < end) {
        const time_t now = setmytime();
        expect(set_uptime() == 0, "the uptime is read");
        char gregorian[64];
        TimeToString("Y-M-D H:I:S", gregorian, now);
        char persian[64];
        CalTimeToString("Y-M-D", persian, now);
        counters.accepted += 2;  // the library's own lines about the date
        velkor_date day = {};
        sscanf(persian, "%4d-%2d-%2d", &day.year, &day.month, &day.day);
        expect(conversionDate(VELKOR_PERSIAN, day.year, day.month, day.day, &day) == 0, "a date is converted");
        char back[64];
        snprintf(back, sizeof back, "%04d-%02d-%02d", day.year, day.month, day.day);
        expect(strncmp(back, gregorian, 10) == 0, "a Persian date is the day that it came from");
        LOG("clock", "on the screen: %s, %s", gregorian, persian);
        std::this_thread::sleep_for(290ms);
    }
    ThrInfo_Clear();
}

// ---- The process ----

void *run_module(void *module) {
    (*static_cast<std::function<void()> *>(module))();
    return nullptr;
}

void run_modules(Clock::time_point end) {
    std::vector<std::function<void()>> modules = {[=] { encode(end); }, [=] { watch_motion(end); }, [=] { store(end); },
                                                  [=] { show_time(end); }};
    std::vector<pthread_t> threads(modules.size());
    for (size_t i = 0; i < modules.size(); ++i) {
        expect(__pthread_create(&threads[i], nullptr, run_module, &modules[i]) == 0, "a module's thread starts");
    }
    std::this_thread::sleep_for(100ms);
    puts("\nthreads");
    velkor_host_thread_report(stdout);
    puts("");
    for (const pthread_t thread : threads) {
        pthread_join(thread, nullptr);
    }
}

void check_pools() {
    struct velkor_host_pool pool;
    unsigned pools = 0;
    for (; velkor_host_pool_get(pools, &pool) == 0; ++pools) {
        expect(pool.bytes == 0 && pool.blocks == 0, "a pool is empty at the end");
        expect(pool.peak_bytes > 0, "a pool was used");
    }
    expect(pools == 3, "three pools are open");
}

int report(const LogTerminal &terminal) {
    struct velkor_host_ring ring = {};
    expect(velkor_host_ring_get(1, &ring) == 0, "there is a ring buffer");
    puts("\npools");
    velkor_host_pool_report(stdout);
    check_pools();
    const unsigned accepted = counters.accepted;
    const unsigned refused = counters.refused;
    printf("\nlog\n  accepted %u, filtered %u, in the ring %llu, dropped by it %llu, on the terminal %u\n", accepted,
           refused, static_cast<unsigned long long>(ring.written), static_cast<unsigned long long>(ring.dropped),
           terminal.lines());
    expect(accepted > 0 && ring.written == accepted, "every accepted line went into the ring");
    expect(terminal.lines() == accepted - ring.dropped, "every line that the ring kept reached the terminal");
    expect(refused == counters.expected_refusals, "the heartbeats, and nothing else, were filtered");
    puts(counters.failures == 0 ? "\neverything agrees" : "\nSOMETHING DID NOT WORK");
    return counters.failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int seconds_of(int argc, char **argv) {
    if (argc == 1) {
        return 3;
    }
    const bool is_given = argc == 3 && std::string_view(argv[1]) == "--seconds";
    const long seconds = is_given ? strtol(argv[2], nullptr, 10) : 0;
    return seconds > 0 && seconds < 86400 ? static_cast<int>(seconds) : -1;
}

}  // namespace

int main(int argc, char **argv) {
    const int seconds = seconds_of(argc, argv);
    if (seconds < 0) {
        fputs("usage: recorder [--seconds N]\n", stderr);
        return 2;
    }
    LogTerminal terminal;
    std::ofstream(SWITCH_FILE) << "dbgprint=1\ninvert=heartbeat\n";
    if (!terminal.ready() || access(SWITCH_FILE, R_OK) != 0) {
        fprintf(stderr, "recorder: cannot make %s and %s; try it in ./dev sandbox\n", TERMINAL, SWITCH_FILE);
        return 1;
    }
    printf("%s is here, the log is on; %d seconds of work\n", SWITCH_FILE, seconds);
    logman_init();
    expect(vk_GetLogmanEnable() == 1, "the log is on");

    run_modules(Clock::now() + std::chrono::seconds(seconds));

    struct velkor_host_ring ring;
    expect(eventually([&] { return velkor_host_ring_get(1, &ring) == 0 && ring.held == 0; }), "the ring is drained");
    expect(eventually([&] { return terminal.lines() == counters.accepted; }), "the terminal has shown it all");
    unlink(SWITCH_FILE);
    expect(eventually([] { return vk_GetLogmanEnable() == 0; }), "the log goes off with its file");
    return report(terminal);
}

// A small recorder process: it runs shell commands through its runner, looks for tasks and tries to swap; then a few
// modules on threads of their own log and allocate under their own names, a timer orders snapshots that a queue keeps
// and the workers of the pool take, a clock shows both calendars, recordings are copied, the load is watched, and the
// log manager drains everybody's lines to a terminal. At the end everything is counted up. Exit status 0 only if the
// numbers agree.
//
//     recorder [--seconds N]       runs where /dvrfile and /tmp/tty.logman are free: ./dev sandbox recorder
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <velkor/allocation.h>
#include <velkor/calendar.h>
#include <velkor/concurrency.h>
#include <velkor/diagnostics.h>
#include <velkor/files.h>
#include <velkor/process.h>
#include <velkor/system_info.h>
#include <velkor_host.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
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

// ---- The command runner: the first thing that a recorder starts, while it is small and has one thread ----

class CommandRunner {
public:
    CommandRunner() {
        if (chdir("/dvrfile") == 0) {
            std::ofstream("TODO") << "";  // the shared memory's key is made of it
            process_ = VkSystemInit();
        }
    }

    // The library never ends the runner: whoever goes for good does.
    ~CommandRunner() {
        if (ready()) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
            VkSystemUninit();
        }
    }

    CommandRunner(const CommandRunner &) = delete;
    CommandRunner &operator=(const CommandRunner &) = delete;

    bool ready() const { return process_ > 0; }

private:
    pid_t process_ = -1;
};

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

// ---- Commands, tasks, swap: before other threads log, so that the ring tells how many lines the library wrote ----

template <typename Work>
void count_librarys_lines(Work work) {
    struct velkor_host_ring before = {};
    struct velkor_host_ring after = {};
    velkor_host_ring_get(1, &before);
    work();
    velkor_host_ring_get(1, &after);
    counters.accepted += static_cast<unsigned>(after.written - before.written);
}

unsigned print_lines(FILE *stream) {
    unsigned lines = 0;
    for (char line[256]; fgets(line, sizeof line, stream) != nullptr; ++lines) {
        printf("  %s", line);
    }
    return lines;
}

void run_commands() {
    expect(VkSystem("mkdir -p /tmp/record/channel1 /tmp/record/channel2") == 0, "a command runs");
    expect(VkSystem("exit 3") == 3 << 8, "a command's exit status comes back");

    puts("\noutput of a command, through a pipe of the runner's");
    FILE *const space = VkPipeOpen("df -k /tmp", "r");
    expect(space != nullptr && print_lines(space) == 2, "a pipe command's output comes");
    expect(VkPipeClose(space) == 0, "its stream is closed");

    FILE *const sorter = vk_popen("sort >/tmp/record/index", "w");
    expect(sorter != nullptr && fputs("channel2\nchannel1\n", sorter) >= 0, "a command of our own reads what we write");
    expect(vk_pclose(sorter) == 0, "and ends well");
    expect(VkSystem("test \"$(head -n 1 /tmp/record/index)\" = channel1") == 0, "it has done its work");
}

void look_for_tasks() {
    std::array<int, VELKOR_TASK_IDS> ids = {};
    int count = 0;
    expect(vk_FindRunningTask("recorder", &count, ids.data()) == 0, "tasks are looked for");
    printf("\ntasks named recorder\n ");
    std::for_each_n(ids.begin(), count, [](int id) { printf(" %d", id); });
    puts("");
    expect(std::find(ids.begin(), ids.begin() + count, getpid()) != ids.begin() + count, "this one is found");
}

// The kernel decides: it does not swap on a file system in memory, such as a sandbox has.
void try_to_swap() {
    std::ofstream(VELKOR_HOST_SETTINGS_FILE) << "[disk 0]\npath = /tmp/record\n[swap]\nmax_size = 1\n";
    puts("\nswap");
    const int started = swapmem_Start(-1);
    expect(started == 0 || started == -4, "swap starts, or the script says why not");
    int active = 0;
    int size = 0;
    int used = 0;
    expect(swapmem_Check(&active, &size, &used) == 0, "the swap areas are looked at");
    printf("  %s, %d kB, %d kB in use\n", active != 0 ? "on" : "off", size, used);
    expect(swapmem_Stop(0) == (started == 0 ? 0 : -2), "swap stops where it was started");
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

// ---- Snapshots: a timer orders them, a queue keeps the orders, workers of the pool take them ----

constexpr uint32_t SNAPSHOT_TICKS = 2;       // of 185 ms
constexpr uint32_t HUNGRY_DOG_TURNS = 1000;  // of 10 ms: many ticks that did not come

struct Order {
    unsigned number;
    const char *camera;
};

struct Snapshots {
    sList cameras;
    SafeQueue orders;
    std::atomic<unsigned> ordered{0};
    std::atomic<unsigned> taken{0};
};
Snapshots snapshots;

void list_cameras(sList &cameras) {
    sList_Init(&cameras);
    cameras.Add(&cameras, "yard");
    cameras.Add(&cameras, "spare");
    cameras.Insert(&cameras, "gate", 0);
    cameras.Delete(&cameras, cameras.IndexOf(&cameras, "spare"));
    expect(cameras.count == 2 && cameras.IndexOf(&cameras, "gate") == 0, "the cameras are listed");
}

// Runs on the timer thread, with all timers waiting: it leaves an order behind, and nothing more.
void *order_snapshot(void *) {
    const sList &cameras = snapshots.cameras;
    auto *const order = static_cast<Order *>(sqe_new(sizeof(Order)));
    expect(order != nullptr, "an order is allocated");
    if (order == nullptr) {
        return nullptr;
    }
    const unsigned number = ++snapshots.ordered;
    *order = {number, cameras.items[number % static_cast<unsigned>(cameras.count)]};
    expect(sq_insert_tail(&snapshots.orders, order) == 0, "an order is queued");
    return nullptr;
}

// Runs on a worker of the pool.
void *take_snapshot(void *argument) {
    const auto *const order = static_cast<Order *>(argument);
    LOG("snapshot", "snapshot %u of the %s", order->number, order->camera);
    sqe_delete(argument);
    ++snapshots.taken;
    return nullptr;
}

void hand_out_orders() {
    const auto oldest = [](void *, void *) { return 0; };
    while (void *const order = sq_remove(&snapshots.orders, oldest, nullptr)) {
        pthread_t worker;
        expect(CreateThreadInPool(&worker, take_snapshot, order) == 0, "a worker has the order");
        ThrInfo_DoRecord("snapshots", __LINE__, nullptr);  // the pool clears its callers' registrations
    }
}

// Each tick of the timer thread feeds the dog, each turn of whoever watches makes it hungrier.
void watch_timers() {
    timer_IncreaseDog();
    expect(timer_GetSoftDog() < HUNGRY_DOG_TURNS, "the timer thread is alive");
}

void take_snapshots(Clock::time_point end) {
    ThrInfo_DoRecord("snapshots", __LINE__, nullptr);
    list_cameras(snapshots.cameras);
    expect(sq_construct(&snapshots.orders) == 0, "the queue is made");
    const TimerEntry timer = {SNAPSHOT_TICKS, order_snapshot, nullptr};
    expect(init_timer(&timer) == 0, "the timers start");
    while (Clock::now() < end) {
        hand_out_orders();
        watch_timers();
        std::this_thread::sleep_for(10ms);
    }
    expect(del_timer(&timer) == 0, "the timer is deleted");  // from here on it orders nothing
    hand_out_orders();
    expect(eventually([] { return snapshots.taken == snapshots.ordered; }), "every order is carried out");
    expect(sq_destruct(&snapshots.orders) == 0, "the queue is ended");
    snapshots.cameras.Destroy(&snapshots.cameras);
    ThrInfo_Clear();
}

void report_snapshots() {
    char timers[256] = "";
    timer_GetDebug(timers, sizeof timers);
    printf("\nsnapshots\n  ordered by the timer %u, taken by the workers %u\n%s", snapshots.ordered.load(),
           snapshots.taken.load(), timers);
    expect(snapshots.ordered > 0, "the timer ran");
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

// Copies a recording to another directory again and again, and says how far it is.
void back_up(Clock::time_point end) {
    ThrInfo_DoRecord("backup", __LINE__, nullptr);
    char directory[] = "/tmp/backupXXXXXX";
    expect(mkdtemp(directory) != nullptr, "there is room for recordings");
    const std::string recording = std::string(directory) + "/recording";
    const std::string copy = std::string(directory) + "/copy";
    std::ofstream(recording) << std::string(8 * KIB * KIB, 'v');
    while (Clock::now() < end) {
        std::atomic<bool> is_running{true};
        std::thread copier([&] {
            expect(copy_file(recording.c_str(), copy.c_str(), nullptr, -1, 1) == 0, "a recording is copied");
            ++counters.accepted;  // the library's own line: this memory service does not take the copy's buffer
            is_running = false;
        });
        while (is_running) {
            std::error_code not_there_yet;
            const auto size = std::filesystem::file_size(copy, not_there_yet);
            LOG("backup", "%zu KiB are copied", not_there_yet ? 0 : static_cast<size_t>(size) / KIB);
            std::this_thread::sleep_for(20ms);
        }
        copier.join();
        expect(du(copy.c_str(), 0x200) == du(recording.c_str(), 0x200), "the copy is as large");
        expect(remove_file(copy.c_str()) == 0, "the copy is removed");
        std::this_thread::sleep_for(400ms);
    }
    expect(remove_file(directory) == 0, "the recordings are removed");
    ThrInfo_Clear();
}

// Keeps what the processor did in a message buffer.
void watch_load(Clock::time_point end) {
    static RtMsgBuf messages = {};
    ThrInfo_DoRecord("load", __LINE__, nullptr);
    pthread_mutex_init(&messages.lock, nullptr);
    const int slot = find_empty_pointer();
    expect(slot == 0, "the first message buffer is free");
    insert_global_pointer(static_cast<unsigned>(slot), &messages);
    expect(mkdir("rt_debug", 0755) == 0, "the debug channel is switched on");
    SwitchCpuTimer(1);
    while (Clock::now() < end) {
        rt_JudgePrintEn();
        GetCpuTimer();
        double idle = 0;
        double iowait = 0;
        if (GetCpuInfoNew(&idle, &iowait) == 0) {
            rt_printf(static_cast<unsigned>(slot + 1), "idle %.1f %%, waiting for disks %.1f %%", idle, iowait);
            LOG("load", "idle %.1f %%, memory %.1f %%, flash %.1f %%", idle, GetMemInfo(nullptr, nullptr),
                GetFlashInfo());
        }
        std::this_thread::sleep_for(250ms);
    }
    std::string kept(VELKOR_MESSAGE_TEXT_SIZE, '\0');
    expect(get_msg0(kept.data(), VELKOR_MESSAGE_TEXT_SIZE) == 0, "the message buffer is read");
    expect(kept.find("waiting for disks") != std::string::npos, "the message buffer has kept the load");
    expect(remove_file("rt_debug") == 0, "the debug channel is switched off");
    ThrInfo_Clear();
}

// ---- The process ----

void *run_module(void *module) {
    (*static_cast<std::function<void()> *>(module))();
    return nullptr;
}

void run_modules(Clock::time_point end) {
    std::vector<std::function<void()>> modules = {
        [=] { encode(end); },    [=] { watch_motion(end); }, [=] { store(end); },     [=] { take_snapshots(end); },
        [=] { show_time(end); }, [=] { back_up(end); },      [=] { watch_load(end); }};
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
    expect(pools == 5, "five pools are open: three modules' own, the general one, and that of joined paths");
}

int report(const LogTerminal &terminal) {
    struct velkor_host_ring ring = {};
    expect(velkor_host_ring_get(1, &ring) == 0, "there is a ring buffer");
    report_snapshots();
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
    const CommandRunner runner;
    LogTerminal terminal;
    std::ofstream(SWITCH_FILE) << "dbgprint=1\ninvert=heartbeat\n";
    if (!runner.ready() || !terminal.ready() || access(SWITCH_FILE, R_OK) != 0) {
        fprintf(stderr, "recorder: cannot make %s and %s; try it in ./dev sandbox\n", TERMINAL, SWITCH_FILE);
        return 1;
    }
    char working[] = "/tmp/recorderXXXXXX";  // where the debug channel has its switch
    if (mkdtemp(working) == nullptr || chdir(working) != 0) {
        fputs("recorder: cannot make a directory to work in\n", stderr);
        return 1;
    }
    printf("%s is here, the log is on; %d seconds of work\n", SWITCH_FILE, seconds);
    logman_init();
    expect(vk_GetLogmanEnable() == 1, "the log is on");

    count_librarys_lines(run_commands);
    count_librarys_lines(look_for_tasks);
    count_librarys_lines(try_to_swap);

    run_modules(Clock::now() + std::chrono::seconds(seconds));
    expect(remove_file(working) == 0, "the working directory is removed");

    struct velkor_host_ring ring;
    expect(eventually([&] { return velkor_host_ring_get(1, &ring) == 0 && ring.held == 0; }), "the ring is drained");
    expect(eventually([&] { return terminal.lines() == counters.accepted; }), "the terminal has shown it all");
    unlink(SWITCH_FILE);
    expect(eventually([] { return vk_GetLogmanEnable() == 0; }), "the log goes off with its file");
    return report(terminal);
}

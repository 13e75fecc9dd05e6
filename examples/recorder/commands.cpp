#include "commands.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/concurrency.h>
#include <velkor/process.h>
#include <velkor_host.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <thread>
#include <utility>

#include "eventually.h"
#include "log.h"
#include "place.h"

namespace recorder {

namespace {

// The runner keeps the standard streams that it finds. What its commands complain of belongs beside the picture, not
// into it.
pid_t start_runner() {
    const int complaints = open("commands.err", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const int own = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);  // commands are not to have it
    dup2(complaints, STDERR_FILENO);
    const pid_t runner = VkSystemInit();
    dup2(own, STDERR_FILENO);
    close(own);
    close(complaints);
    return runner;
}

}  // namespace

Commands::Commands() : Subsystem("commands") {
    std::ofstream("TODO") << "";  // the shared memory's key is made of it
    runner_ = start_runner();
}

Commands::~Commands() {
    if (is_ready()) {
        kill(runner_, SIGKILL);
        waitpid(runner_, nullptr, 0);
        VkSystemUninit();
    }
}

void Commands::prepare() {
    look_for_tasks();
    try_to_swap();
}

// ---- The runner ----

bool Commands::has_runner_died() { return waitpid(runner_, nullptr, WNOHANG) == runner_; }

void Commands::restart() {
    const pid_t former = runner_;
    answers_since_restart_ = 0;
    VkSystemUninit();
    runner_ = start_runner();
    ++restarts_;
    expect(is_ready(), "a runner is started in place of the one that died");
    RECORDER_LOG("commands", "runner %d died, %d took its place", former, runner_.load());
}

// ---- Calls ----

// Its streams end a moment before the runner itself has ended.
bool Commands::has_runner_broken(const Call &call) {
    return call.is_broken && eventually([this] { return has_runner_died(); });
}

std::shared_ptr<Commands::Call> Commands::make(std::function<void(Call &)> work) {
    auto call = std::make_shared<Call>();
    call->work = std::move(work);
    ++called_;
    const auto job = [](void *argument) -> void * {
        const std::unique_ptr<std::shared_ptr<Call>> mine(static_cast<std::shared_ptr<Call> *>(argument));
        Call &todo = **mine;
        todo.work(todo);
        todo.is_done = true;
        return nullptr;
    };
    pthread_t worker;
    if (!expect(CreateThreadInPool(&worker, job, new std::shared_ptr<Call>(call)) == 0, "a worker takes the call")) {
        return nullptr;
    }
    bool has_died = false;
    while (!call->is_done && !has_died) {
        has_died = has_runner_died();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (has_died || has_runner_broken(*call)) {
        ++lost_;
        restart();
        return nullptr;
    }
    ++answered_;
    ++answers_since_restart_;
    return call;
}

void Commands::turn() {
    if (has_runner_died()) {
        restart();
    }
    run_one("exit 3", 3 << 8);
    is_waiting_ = true;
    run_one("sleep 0.1", 0);
    is_waiting_ = false;
    look_at_disk();
}

void Commands::run_one(const char *command, int status) {
    const std::shared_ptr<Call> call = make([command](Call &made) { made.result = VkSystem(command); });
    expect(call == nullptr || call->result == status, format("'%s' comes back with %d", command, status));
}

// Through a pipe: the output of a command, a line at a time.
void Commands::look_at_disk() {
    const std::shared_ptr<Call> call = make([](Call &made) {
        FILE *const lines = VkPipeOpen("df -kP /tmp/disk0", "r");
        unsigned count = 0;
        for (char line[256]; lines != nullptr && fgets(line, sizeof line, lines) != nullptr; ++count) {
            made.output = line;
        }
        made.is_broken = count != 2;
        made.result = VkPipeClose(lines);
    });
    if (call == nullptr) {
        return;
    }
    int percent = -1;
    const bool is_read = sscanf(call->output.c_str(), "%*s %*s %*s %*s %d%%", &percent) == 1;
    expect(call->result == 0 && is_read, "a command's output comes through its pipe");
    disk_percent_ = is_read ? percent : disk_percent_.load();
}

// ---- Tasks and swap, once ----

namespace {

// Whether ps, asked without the runner, has a line of this process in which the search looks for a name: it leaves out
// every line with "sh" or "grep" in it, wherever that stands.
bool is_listed(const char *name) {
    FILE *const lines = vk_popen("ps", "r");
    bool is_found = false;
    for (char line[256]; lines != nullptr && fgets(line, sizeof line, lines) != nullptr;) {
        const bool is_left_out = strstr(line, "sh") != nullptr || strstr(line, "grep") != nullptr;
        is_found = is_found || (atoi(line) == getpid() && strstr(line, name) != nullptr && !is_left_out);
    }
    vk_pclose(lines);
    return is_found;
}

}  // namespace

void Commands::look_for_tasks() {
    std::array<int, VELKOR_TASK_IDS> ids = {};
    int count = 0;
    expect(vk_FindRunningTask("recorder", &count, ids.data()) == 0, "tasks are looked for");
    tasks_ = count;
    const bool is_found = std::find(ids.begin(), ids.begin() + count, getpid()) != ids.begin() + count;
    expect(is_found == is_listed("recorder") || count == VELKOR_TASK_IDS, "the tasks are those that ps lists");
}

// The kernel decides: it does not swap on a file system in memory, such as this disk is.
void Commands::try_to_swap() {
    std::ofstream(VELKOR_HOST_SETTINGS_FILE) << "[disk 0]\npath = " << place::DISK << "\n[swap]\nmax_size = 1\n";
    const int started = swapmem_Start(-1);
    expect(started == 0 || started == -4, "swap starts, or the script says why not");
    int is_active = 0;
    expect(swapmem_Check(&is_active, nullptr, nullptr) == 0, "the swap areas are looked at");
    swap_.set(is_active != 0 ? "on" : "off");
    expect(swapmem_Stop(0) == (started == 0 ? 0 : -2), "swap stops where it was started");
}

// ---- What people see ----

void Commands::conclude() {
    expect(called_ == answered_ + lost_, "every call is answered, or lost with its runner");
    expect(lost_ <= restarts_, "no call is lost while the runner lives");
    expect(answered_ > 0, "commands are run");
}

Panel Commands::panel() const {
    return {format("runner %d, %u run, %u lost", runner_.load(), answered_.load(), lost_.load()),
            format("disk %s %d %% full", bar(disk_percent_ / 100.0).c_str(), disk_percent_.load())};
}

std::string Commands::tally() const { return format("%u commands", answered_.load()); }

std::string Commands::summary() const {
    return format("%u called, %u answered rightly, %u lost; runners died: %u; %d tasks found, swap %s", called_.load(),
                  answered_.load(), lost_.load(), restarts_.load(), tasks_.load(), swap_.get().c_str());
}

}  // namespace recorder

// What a command costs through the runner, beside the ways that copy the caller or start a shell from it; from a small
// process, and from one that holds two gigabytes. Then what becomes of the time, and how fast a pipe carries.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/process.h>

#include <atomic>
#include <chrono>
#include <string>

namespace {

constexpr size_t LARGE = size_t{2} << 30;
constexpr size_t CARRIED = size_t{1} << 30;

// ---- One command ----

void System(benchmark::State &state) {
    for ([[maybe_unused]] auto pass : state) {
        benchmark::DoNotOptimize(system("true"));
    }
}

void ThroughRunner(benchmark::State &state) {
    for ([[maybe_unused]] auto pass : state) {
        benchmark::DoNotOptimize(VkSystem("true"));
    }
}

void ForkAndExec(benchmark::State &state) {
    for ([[maybe_unused]] auto pass : state) {
        const pid_t child = fork();
        if (child == 0) {
            execl("/bin/sh", "sh", "-c", "true", static_cast<char *>(nullptr));
            _exit(127);
        }
        waitpid(child, nullptr, 0);
    }
}

void Popen(benchmark::State &state) {
    for ([[maybe_unused]] auto pass : state) {
        pclose(popen("true", "r"));
    }
}

void VkPopen(benchmark::State &state) {
    for ([[maybe_unused]] auto pass : state) {
        vk_pclose(vk_popen("true", "r"));
    }
}

void PipeThroughRunner(benchmark::State &state) {
    for ([[maybe_unused]] auto pass : state) {
        FILE *const stream = VkPipeOpen("true", "r");
        benchmark::DoNotOptimize(fgetc(stream));
        VkPipeClose(stream);
    }
}

// ---- What becomes of the time ----

// As the runner knows it, to send it something that needs no answer.
struct Words {
    std::atomic<int32_t> in_use, kind, request, status, result;
    char command[2048];
    uintptr_t streams[3];
};

Words *attach() {
    void *const memory = shmat(shmget(ftok("TODO", 'a'), 0, 0), nullptr, 0);
    return static_cast<Words *>(memory);
}

// From a request to the moment when an idle runner has seen it: an unknown kind, whose slot it frees. Nobody rings, so
// that this is the polling alone; the requests come at all moments of the runner's pause.
void PollingAlone(benchmark::State &state) {
    using Clock = std::chrono::steady_clock;
    constexpr unsigned PAUSE_US = 1100;
    Words *const area = attach();
    Words &slot = area[20];
    unsigned moment = 0;
    for ([[maybe_unused]] auto pass : state) {
        usleep(2 * PAUSE_US + (moment += 137) % PAUSE_US);
        const Clock::time_point before = Clock::now();
        slot.kind = 99;
        slot.in_use = 1;
        slot.request = 1;
        while (slot.in_use != 0) {
            usleep(1);
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - before).count());
    }
    shmdt(area);
}

// A program without a shell: the kernel's share.
void SpawnAlone(benchmark::State &state) {
    for ([[maybe_unused]] auto pass : state) {
        pid_t child = -1;
        char name[] = "true";
        char *arguments[] = {name, nullptr};
        if (posix_spawn(&child, "/bin/true", nullptr, nullptr, arguments, environ) == 0) {
            waitpid(child, nullptr, 0);
        }
    }
}

// ---- How fast a pipe carries ----

const std::string ZEROS = "head -c " + std::to_string(CARRIED) + " /dev/zero";

void drain(FILE *stream) {
    static char block[65536];
    while (read(fileno(stream), block, sizeof block) > 0) {
    }
}

void CarryPlain(benchmark::State &state) {
    for ([[maybe_unused]] auto pass : state) {
        FILE *const stream = popen(ZEROS.c_str(), "r");
        drain(stream);
        pclose(stream);
    }
    state.SetBytesProcessed(static_cast<int64_t>(CARRIED) * state.iterations());
}

void CarryThroughRunner(benchmark::State &state) {
    for ([[maybe_unused]] auto pass : state) {
        FILE *const stream = VkPipeOpen(ZEROS.c_str(), "r");
        drain(stream);
        VkPipeClose(stream);
    }
    state.SetBytesProcessed(static_cast<int64_t>(CARRIED) * state.iterations());
}

// ---- Small and large ----

void *large = nullptr;

void grow(const benchmark::State & /*state*/) {
    if (large == nullptr) {
        large = mmap(nullptr, LARGE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        madvise(large, LARGE, MADV_NOHUGEPAGE);  // a recorder's memory is not in one piece
        memset(large, 1, LARGE);
    }
}

BENCHMARK(System)->Name("Command/small/system")->UseRealTime();
BENCHMARK(ThroughRunner)->Name("Command/small/VkSystem")->UseRealTime();
BENCHMARK(ForkAndExec)->Name("Command/small/fork_exec")->UseRealTime();
BENCHMARK(Popen)->Name("Command/small/popen")->UseRealTime();
BENCHMARK(VkPopen)->Name("Command/small/vk_popen")->UseRealTime();
BENCHMARK(PipeThroughRunner)->Name("Command/small/VkPipeOpen")->UseRealTime();
BENCHMARK(PollingAlone)->Name("Latency/polling_alone")->UseManualTime();
BENCHMARK(SpawnAlone)->Name("Latency/spawn_alone")->UseRealTime();
BENCHMARK(CarryPlain)->Name("Carry/plain_pipe")->UseRealTime();
BENCHMARK(CarryThroughRunner)->Name("Carry/VkPipeOpen")->UseRealTime();
// From here on the process is large.
BENCHMARK(System)->Name("Command/2GiB/system")->Setup(grow)->UseRealTime();
BENCHMARK(ThroughRunner)->Name("Command/2GiB/VkSystem")->Setup(grow)->UseRealTime();
BENCHMARK(ForkAndExec)->Name("Command/2GiB/fork_exec")->Setup(grow)->UseRealTime();
BENCHMARK(VkPopen)->Name("Command/2GiB/vk_popen")->Setup(grow)->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
    if (chdir("/tmp") != 0) {
        return 1;
    }
    close(open("TODO", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    const int runner = VkSystemInit();
    if (runner == -1) {
        fputs("cannot start the runner; try it in ./dev sandbox\n", stderr);
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    kill(runner, SIGKILL);
    waitpid(runner, nullptr, 0);
    VkSystemUninit();
    return 0;
}

// Copying and measuring on a disk, beside what people would use instead, in one run. Run it where /var/tmp is a disk
// with direct I/O. "cpu" is the caller's and its children's processor time, the kernel's part included.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/files.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr int64_t MIB = 1024 * 1024;

double cpu_seconds() {
    double seconds = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        struct rusage usage = {};
        getrusage(who, &usage);
        seconds += static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                   static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    }
    return seconds;
}

void run_command(const std::string &command) {
    if (system(command.c_str()) != 0) {  // NOLINT(cert-env33-c): the peers are commands
        fprintf(stderr, "cannot run: %s\n", command.c_str());
        exit(1);
    }
}

// A directory with a source in it that is no longer in the page cache.
class CopyPlace {
public:
    CopyPlace(const std::string &parent, int64_t mebibytes) : path_(parent + "/velkor-bench") {
        fs::create_directories(path_);
        run_command("head -c " + std::to_string(mebibytes * MIB) + " /dev/urandom >" + source() + " && sync " +
                    source());
    }
    ~CopyPlace() { fs::remove_all(path_); }
    CopyPlace(const CopyPlace &) = delete;
    CopyPlace &operator=(const CopyPlace &) = delete;

    std::string source() const { return path_ + "/source"; }
    std::string destination() const { return path_ + "/destination"; }

    // What removing the last copy left to do for the disk is done before the next one is measured.
    void make_cold() const {
        fs::remove(destination());
        run_command("sync -f " + path_);
        const int file = open(source().c_str(), O_RDONLY | O_CLOEXEC);
        posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
        close(file);
    }

private:
    std::string path_;
};

template <typename Copy>
void copy_with(benchmark::State &state, const std::string &parent, Copy copy) {
    const int64_t mebibytes = state.range(0);
    const CopyPlace place(parent, mebibytes);
    double cpu = 0;
    for ([[maybe_unused]] auto _ : state) {
        state.PauseTiming();
        place.make_cold();
        const double before = cpu_seconds();
        state.ResumeTiming();
        copy(place);
        cpu += cpu_seconds() - before;
    }
    state.SetBytesProcessed(state.iterations() * mebibytes * MIB);
    state.counters["cpu_ms"] = benchmark::Counter(cpu * 1000, benchmark::Counter::kAvgIterations);
}

void copy_by_library(const CopyPlace &place) {
    if (copy_file(place.source().c_str(), place.destination().c_str(), nullptr, -1, 1) != 0) {
        exit(1);
    }
}

// What the copy is made of: 512 KiB read and written in turn, past the cache, and a sync.
void copy_by_dd(const CopyPlace &place) {
    run_command("dd if=" + place.source() + " of=" + place.destination() +
                " bs=512K iflag=direct oflag=direct conv=fsync status=none");
}

// The same with the syncs that the library makes: a command for each 10 MiB, which is a millisecond or two more.
void copy_by_dd_and_syncs(const CopyPlace &place) {
    run_command("for part in $(seq 0 $(( $(stat -c %s " + place.source() +
                ") / 10485760 ))); do dd if=" + place.source() + " of=" + place.destination() +
                " bs=512K iflag=direct oflag=direct conv=fsync,notrunc status=none"
                " count=20 skip=$((part * 20)) seek=$((part * 20)) || exit 1; done");
}

void copy_by_cp(const CopyPlace &place) {
    run_command("cp --reflink=never " + place.source() + " " + place.destination());
}

void copy_by_cp_and_sync(const CopyPlace &place) {
    copy_by_cp(place);
    run_command("sync " + place.destination());
}

void copy_by_standard_library(const CopyPlace &place) { fs::copy_file(place.source(), place.destination()); }

constexpr const char *DISK = "/var/tmp";
constexpr const char *MEMORY = "/tmp";

#define COPY_BENCHMARK(where, how)                                    \
    BENCHMARK_CAPTURE(copy_with, where##_##how, where, copy_by_##how) \
        ->Arg(1024)                                                   \
        ->Iterations(3)                                               \
        ->UseRealTime()                                               \
        ->Unit(benchmark::kMillisecond)
COPY_BENCHMARK(DISK, library);
COPY_BENCHMARK(DISK, dd);
COPY_BENCHMARK(DISK, dd_and_syncs);
COPY_BENCHMARK(DISK, cp_and_sync);
COPY_BENCHMARK(DISK, cp);
COPY_BENCHMARK(DISK, standard_library);
COPY_BENCHMARK(MEMORY, library);
COPY_BENCHMARK(MEMORY, cp);
COPY_BENCHMARK(MEMORY, standard_library);

// ---- A tree of 100,000 files ----

class Tree {
public:
    Tree() {
        for (int directory = 0; directory < 1000; ++directory) {
            const std::string path = root() + "/" + std::to_string(directory);
            fs::create_directories(path);
            for (int file = 0; file < 100; ++file) {
                std::ofstream(path + "/file" + std::to_string(file)).put('x');
            }
        }
    }
    ~Tree() { fs::remove_all(root()); }
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;
    static std::string root() { return std::string(MEMORY) + "/velkor-tree"; }
};

template <typename Measure>
void measure_tree(benchmark::State &state, Measure measure) {
    static const Tree tree;
    for ([[maybe_unused]] auto _ : state) {
        measure();
    }
}
BENCHMARK_CAPTURE(measure_tree, library, [] { benchmark::DoNotOptimize(du(Tree::root().c_str(), 0x200)); })
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(measure_tree, du_s, [] { run_command("du -s " + Tree::root() + " >/dev/null"); })
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(measure_tree, nothing_but_a_command, [] { run_command(":"); })
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

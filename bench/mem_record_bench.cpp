// What charging an allocation to its module costs: against plain malloc() and against the memory service alone.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>
#include <velkor/allocation.h>
#include <velkor/firmware.h>

#include <array>
#include <iterator>
#include <string>

namespace {

constexpr size_t SIZE = 64;
constexpr size_t FILES = 64;
constexpr size_t LONGEST = 64;

// Paths as a compiler gives them: each at an address of its own, most of them some module's.
const std::array<std::string, FILES> &source_files() {
    static const std::array<std::string, FILES> files = [] {
        constexpr const char *FOLDERS[] = {"media/encoder", "storage/disk", "network/rtsp", "product/main"};
        std::array<std::string, FILES> made;
        for (size_t i = 0; i < FILES; ++i) {
            made[i] = std::string("src/") + FOLDERS[i % std::size(FOLDERS)] + "/part_" + std::to_string(i) + ".cpp";
        }
        return made;
    }();
    return files;
}

// The next of the files, for a caller that goes round them.
size_t next(size_t i) { return (i + 1) % FILES; }

void fill_registry() {
    int modules = 0;
    while (dvrRegMem(("module_" + std::to_string(modules) + "/").c_str(), 0) == 0) {
        ++modules;
    }
}

void allocate_and_free(const char *file) {
    void *const block = dvrMalloc(SIZE, file, __LINE__);
    benchmark::DoNotOptimize(block);
    dvrFree(block);
}

void PlainMallocFree(benchmark::State &state) {
    for ([[maybe_unused]] auto pass : state) {
        void *const block = malloc(SIZE);
        benchmark::DoNotOptimize(block);
        free(block);
    }
}

// The service without the library: the rest of a dvrMalloc() is the search for the file's pool.
void ServiceAlone(benchmark::State &state) {
    const auto pool = static_cast<unsigned short>(VkMem_Open("bench", 0, 0));
    for ([[maybe_unused]] auto pass : state) {
        void *const block = VkMem_Alloc(pool, SIZE);
        benchmark::DoNotOptimize(block);
        VkMem_Free(block);
    }
}

void OneFile(benchmark::State &state) {
    const char *const file = source_files()[0].c_str();
    for ([[maybe_unused]] auto pass : state) {
        allocate_and_free(file);
    }
}

void RotatingFiles(benchmark::State &state) {
    const auto &files = source_files();
    size_t i = 0;
    for ([[maybe_unused]] auto pass : state) {
        allocate_and_free(files[i].c_str());
        i = next(i);
    }
}

// A caller that builds its file name anew each time, always in the same place.
void ReusedBuffer(benchmark::State &state) {
    const auto &files = source_files();
    char buffer[LONGEST] = "";
    size_t i = 0;
    for ([[maybe_unused]] auto pass : state) {
        memcpy(buffer, files[i].c_str(), files[i].size() + 1);
        allocate_and_free(buffer);
        i = next(i);
    }
}

void UnknownFileAmong255Modules(benchmark::State &state) {
    fill_registry();
    for ([[maybe_unused]] auto pass : state) {
        allocate_and_free("src/product/unknown.cpp");
    }
}

// What every call would cost if no file were remembered: a path that is too long for it.
void UnrememberedFileAmong255Modules(benchmark::State &state) {
    fill_registry();
    const std::string file = "src/" + std::string(200, 'x') + "/unknown.cpp";
    for ([[maybe_unused]] auto pass : state) {
        allocate_and_free(file.c_str());
    }
}

BENCHMARK(PlainMallocFree)->Name("Allocation/plain_malloc")->Threads(1)->Threads(4);
BENCHMARK(ServiceAlone)->Name("Allocation/service_alone")->Threads(1)->Threads(4);
BENCHMARK(OneFile)->Name("Allocation/one_file")->Threads(1)->Threads(4);
BENCHMARK(RotatingFiles)->Name("Allocation/64_files")->Threads(1)->Threads(4);
BENCHMARK(ReusedBuffer)->Name("Allocation/64_files_in_one_buffer")->Threads(1)->Threads(4);
// From here on the registry is full.
BENCHMARK(UnknownFileAmong255Modules)->Name("Allocation/unknown_file")->Threads(1)->Threads(4);
BENCHMARK(UnrememberedFileAmong255Modules)->Name("Allocation/unremembered_file")->Threads(1)->Threads(4);

}  // namespace

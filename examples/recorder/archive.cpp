#include "archive.h"

#include <velkor/files.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>
#include <vector>

#include "eventually.h"
#include "log.h"
#include "place.h"

namespace recorder {

namespace {

namespace fs = std::filesystem;

constexpr const char *RECORDING = "recording";
constexpr size_t RECORDING_SIZE = size_t{6} * 1024 * 1024 + 12345;  // whole blocks and a tail
constexpr size_t OLD_SIZE = size_t{2} * 1024 * 1024;
constexpr size_t KEPT = 4;
constexpr double MIB = 1024.0 * 1024;

size_t size_of(const std::string &path) {
    std::error_code not_there;
    const auto size = fs::file_size(path, not_there);
    return not_there ? 0 : static_cast<size_t>(size);
}

// Compared as memory, byte by byte.
bool is_identical(const std::string &path) {
    if (size_of(path) != RECORDING_SIZE) {
        return false;
    }
    void *const recording = mmapfile_r(RECORDING, RECORDING_SIZE);
    void *const copy = mmapfile_r(path.c_str(), RECORDING_SIZE);
    const bool is_same = memcmp(recording, copy, RECORDING_SIZE) == 0;
    HI_MUnMap(recording, RECORDING_SIZE);
    HI_MUnMap(copy, RECORDING_SIZE);
    return is_same;
}

bool has_room() { return fs::space(place::DISK).available > RECORDING_SIZE + OLD_SIZE; }

// The names tell the age.
std::string oldest_on_disk() {
    std::vector<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(place::DISK)) {
        names.push_back(entry.path());
    }
    return names.empty() ? "" : *std::min_element(names.begin(), names.end());
}

}  // namespace

void Archive::prepare() {
    std::mt19937 random(20261115);  // NOLINT(cert-msc32-c,cert-msc51-cpp): any content will do, always the same
    std::vector<uint32_t> content(RECORDING_SIZE / sizeof(uint32_t) + 1);
    std::generate(content.begin(), content.end(), [&] { return static_cast<uint32_t>(random()); });
    std::ofstream(RECORDING).write(reinterpret_cast<const char *>(content.data()), RECORDING_SIZE);
    expect(size_of(RECORDING) == RECORDING_SIZE, "there is a recording");
}

void Archive::turn() {
    const unsigned number = ++number_;
    const std::string path = format("%s/recording-%u", place::DISK, number);
    under_way_.set(path);
    if (number % 3 == 2) {
        copy_and_cancel(path);
    } else {
        copy(path);
    }
    under_way_.set("");
}

void Archive::copy(const std::string &path) { take_result(copy_file(RECORDING, path.c_str(), nullptr, -1, 1), path); }

// The user looks on, and does not want it any more when a quarter is copied.
void Archive::copy_and_cancel(const std::string &path) {
    std::atomic<bool> is_over{false};
    std::thread user([&] {
        while (!is_over && size_of(path) < RECORDING_SIZE / 4) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        SetCopyCtrlStatus(is_over ? 0 : 1);
    });
    const int result = copy_file(RECORDING, path.c_str(), nullptr, -1, 1);
    is_over = true;
    user.join();
    SetCopyCtrlStatus(0);  // where it came too late
    if (result == VELKOR_COPY_OK && !fs::exists(path)) {
        ++cancelled_;
        RECORDER_LOG("archive", "%s was cancelled", path.c_str());
    } else {
        take_result(result, path);
    }
}

void Archive::take_result(int result, const std::string &path) {
    if (result == VELKOR_COPY_OK) {
        keep(path);
        return;
    }
    expect(result == VELKOR_COPY_WRITE_FAILED && filled_with_ > 0, format("a copy does not fail (%d)", result));
    ++found_full_;
    copied_since_full_ = 0;
    RECORDER_LOG("archive", "the disk is full: %s was not copied", path.c_str());
    expect(remove_file(path.c_str()) == 0, "the part that was copied is removed");
    make_room();
}

void Archive::keep(const std::string &path) {
    expect(is_identical(path), "a copy is identical");
    ++copied_;
    ++copied_since_full_;
    RECORDER_LOG("archive", "%s is copied", path.c_str());
    kept_.push_back(path);
    if (kept_.size() > KEPT) {
        expect(remove_file(kept_.front().c_str()) == 0, "an old copy is removed");
        kept_.pop_front();
    }
}

void Archive::make_room() {
    while (!has_room()) {
        const std::string oldest = oldest_on_disk();
        if (!expect(!oldest.empty() && remove_file(oldest.c_str()) == 0, "what is oldest is removed")) {
            return;
        }
        std::erase(kept_, oldest);
        ++made_room_;
        RECORDER_LOG("archive", "%s was removed to make room", oldest.c_str());
    }
}

bool Archive::fill_disk() {
    const std::string content(OLD_SIZE, 'o');
    bool fits = true;
    for (unsigned i = 100; fits && i < 1000; ++i) {
        ++filled_with_;
        std::ofstream file(format("%s/recording-0%u", place::DISK, i));
        fits = static_cast<bool>(file << content << std::flush);
    }
    return !fits;
}

void Archive::conclude() {
    for (unsigned turns = 0; turns < 30 && (copied_ == 0 || cancelled_ == 0); ++turns) {
        turn();  // a short run, or a user whose every cancel came too late
    }
    expect(copied_ > 0 && cancelled_ > 0, "recordings are copied, and one is cancelled");
    expect(std::all_of(kept_.begin(), kept_.end(), is_identical), "the copies that are kept are identical");
}

Panel Archive::panel() const {
    const std::string path = under_way_.get();
    const double done = path.empty() ? 0 : static_cast<double>(size_of(path)) / MIB;
    return {format("copy %s %.1f of %.1f MiB", bar(done * MIB / RECORDING_SIZE).c_str(), done, RECORDING_SIZE / MIB),
            format("%u copied, %u cancelled, %u full", copied_.load(), cancelled_.load(), found_full_.load())};
}

std::string Archive::tally() const { return format("%u copies", copied_.load()); }

std::string Archive::summary() const {
    return format("%u copies of %zu bytes, each identical, %u cancelled; disk found full %u times, %u removed for room",
                  copied_.load(), RECORDING_SIZE, cancelled_.load(), found_full_.load(), made_room_.load());
}

}  // namespace recorder

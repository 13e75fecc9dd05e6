// The archive: a recording is copied to a disk again and again. The user cancels one now and then; a full disk is made
// room on, by removing what is oldest.
#pragma once

#include <atomic>
#include <deque>
#include <string>

#include "subsystem.h"
#include "text.h"

namespace recorder {

class Archive : public Subsystem {
public:
    Archive() : Subsystem("archive") {}

    unsigned found_full() const { return found_full_; }
    unsigned copied() const { return copied_; }
    unsigned copied_since_full() const { return copied_since_full_; }
    // With old recordings, as many as there is room for.
    bool fill_disk();

    void prepare() override;
    void conclude() override;
    Panel panel() const override;
    std::string tally() const override;
    std::string summary() const override;
    bool is_troubled() const override { return found_full_ > 0 && copied_since_full_ == 0; }

private:
    void turn() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(150); }

    void copy(const std::string &path);
    void copy_and_cancel(const std::string &path);
    void take_result(int result, const std::string &path);
    void keep(const std::string &path);
    void make_room();

    SharedText under_way_;  // the copy's path
    std::deque<std::string> kept_;
    std::atomic<unsigned> number_{1000};
    std::atomic<unsigned> copied_{0};
    std::atomic<unsigned> copied_since_full_{0};
    std::atomic<unsigned> cancelled_{0};
    std::atomic<unsigned> found_full_{0};
    std::atomic<unsigned> filled_with_{0};
    std::atomic<unsigned> made_room_{0};
};

}  // namespace recorder

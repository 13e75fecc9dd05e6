// The clock on the screen: Gregorian and Persian, and when daylight time comes and goes.
#pragma once

#include <atomic>

#include "subsystem.h"
#include "text.h"

namespace recorder {

class WallClock : public Subsystem {
public:
    WallClock() : Subsystem("clock") {}

    void prepare() override;
    void conclude() override;
    Panel panel() const override;
    std::string tally() const override;
    std::string summary() const override;

private:
    void turn() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(200); }

    SharedText gregorian_;
    SharedText persian_;
    std::string daylight_;
    std::atomic<unsigned> converted_{0};
};

}  // namespace recorder

// What the recorder is busy with: processor, memory, flash, and its own memory. A timer takes the samples.
#pragma once

#include <atomic>

#include "subsystem.h"
#include "timers.h"

namespace recorder {

class Load : public Subsystem {
public:
    Load() : Subsystem("load") {}

    void prepare() override;
    void conclude() override;
    Panel panel() const override;
    std::string tally() const override;
    std::string summary() const override;

private:
    void turn() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(200); }
    void sample();

    PeriodicCall samples_by_timer_{2, [](void *part) { static_cast<Load *>(part)->sample(); }, this};
    std::atomic<unsigned> samples_{0};
    std::atomic<unsigned> looks_{0};
    std::atomic<double> busy_{0};
    std::atomic<double> memory_{0};
    std::atomic<double> flash_{0};
    std::atomic<unsigned> resident_kib_{0};
};

}  // namespace recorder

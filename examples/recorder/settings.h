// A configuration file that is loaded, edited and saved: what people wrote into it stays.
#pragma once

#include <atomic>

#include "subsystem.h"

namespace recorder {

class Settings : public Subsystem {
public:
    Settings() : Subsystem("settings") {}

    void prepare() override;
    void conclude() override;
    Panel panel() const override;
    std::string tally() const override;
    std::string summary() const override;

private:
    void turn() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(200); }

    std::atomic<unsigned> saved_{0};
    std::atomic<int> bitrate_{0};
    std::atomic<unsigned> bytes_{0};
};

}  // namespace recorder

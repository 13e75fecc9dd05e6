// What the recorder says of itself for later: recent text in a buffer of the debug channel, and the upgrade log, which
// survives a power cut.
#pragma once

#include <velkor/diagnostics.h>

#include <atomic>

#include "subsystem.h"

namespace recorder {

class Messages : public Subsystem {
public:
    Messages() : Subsystem("messages") {}

    // Into the upgrade log.
    void note(const std::string &what, const std::string &how);

    void prepare() override;
    void conclude() override;
    Panel panel() const override;
    std::string tally() const override;
    std::string summary() const override;

private:
    void turn() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(150); }

    std::string directory_;
    unsigned channel_ = 0;
    std::atomic<unsigned> printed_{0};
    std::atomic<unsigned> noted_{0};
    unsigned kept_ = 0;
};

}  // namespace recorder

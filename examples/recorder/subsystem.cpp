#include "subsystem.h"

#include <velkor/concurrency.h>
#include <velkor/firmware.h>

#include <algorithm>
#include <thread>

namespace recorder {

void Subsystem::start() {
    const auto body = [](void *part) -> void * {
        static_cast<Subsystem *>(part)->run();
        return nullptr;
    };
    is_started_ = __pthread_create(&thread_, nullptr, body, this) == 0;
    expect(is_started_, "its thread starts");
}

void Subsystem::join() {
    if (is_started_) {
        pthread_join(thread_, nullptr);
    }
}

void Subsystem::run() {
    do {
        // Each turn anew: handing a job to the pool takes its caller out of the thread registry.
        ThrInfo_DoRecord(name_, __LINE__, nullptr);
        turn();
        std::this_thread::sleep_for(pause());
    } while (!is_stopped_);
    ThrInfo_Clear();
}

bool Subsystem::expect(bool holds, const std::string &what) {
    if (!holds) {
        const std::lock_guard guard(lock_);
        if (std::find(failures_.begin(), failures_.end(), what) == failures_.end()) {
            failures_.push_back(what);
        }
    }
    return holds;
}

std::vector<std::string> Subsystem::failures() const {
    const std::lock_guard guard(lock_);
    return failures_;
}

}  // namespace recorder

// A function in several versions, of which the processor decides the best one.
#pragma once

#include <atomic>

namespace velkor {

// The first call asks, the later ones remember. Threads that ask at the same moment get the same answer.
template <typename Function>
class BestVersion {
public:
    using Choose = Function *();

    explicit constexpr BestVersion(Choose *choose) : choose_(choose) {}

    Function *get() {
        Function *const known = known_.load(std::memory_order_relaxed);
        return known != nullptr ? known : ask();
    }

private:
    Function *ask() {
        Function *const best = choose_();
        known_.store(best, std::memory_order_relaxed);
        return best;
    }

    Choose *choose_;
    std::atomic<Function *> known_ = nullptr;
};

}  // namespace velkor

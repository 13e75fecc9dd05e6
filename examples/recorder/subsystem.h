// One part of the recorder: it works on a thread of its own, shows what it does in a panel, and says at the end whether
// what it counted is true.
#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

namespace recorder {

// What a part shows while it works: two lines of some 38 characters.
struct Panel {
    std::string first;
    std::string second;
};

class Subsystem {
public:
    explicit Subsystem(const char *name) : name_(name) {}
    virtual ~Subsystem() = default;
    Subsystem(const Subsystem &) = delete;
    Subsystem &operator=(const Subsystem &) = delete;

    const char *name() const { return name_; }

    // ---- Its life, in this order ----

    // On the main thread, before any part works.
    virtual void prepare() {}
    // Starts the thread, which does one turn after the other. At least one is done.
    void start();
    // Lets the thread end after its turn.
    void stop() { is_stopped_ = true; }
    void join();
    // On the main thread, when all threads have ended: gives back what it has, and looks whether all is as it should
    // be.
    virtual void conclude() = 0;

    // ---- What people see, at any time ----

    virtual Panel panel() const = 0;
    // How much it has done, in a word or two: "12 commands".
    virtual std::string tally() const = 0;
    // What it did, once it is concluded.
    virtual std::string summary() const = 0;
    // Whether something goes wrong at the moment that is not its own fault.
    virtual bool is_troubled() const { return false; }

    // What did not hold, each once.
    std::vector<std::string> failures() const;

protected:
    virtual void turn() = 0;
    virtual std::chrono::milliseconds pause() const = 0;

    // Remembers what did not hold; answers whether it held.
    bool expect(bool holds, const std::string &what);

private:
    void run();

    const char *const name_;
    std::atomic<bool> is_stopped_{false};
    bool is_started_ = false;
    pthread_t thread_{};
    mutable std::mutex lock_;
    std::vector<std::string> failures_;
};

}  // namespace recorder

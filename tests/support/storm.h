// What the storms over the table of exported functions (export_table.h) have in common: their subjects, the files and
// streams that all rows need, and processes that are watched until they end.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "support/export_table.h"

namespace storm {

// An emulator or a sanitizer makes everything slow, so that a part of the storm has to show the same.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
inline constexpr bool IS_FULL = false;
#else
inline constexpr bool IS_FULL = true;
#endif

// The rows that go through a storm together: one, or all the plain ones of a header, which would show little alone.
class Subject {
public:
    explicit Subject(std::vector<const exports::Row *> rows) : rows_(std::move(rows)) {}

    std::string name() const;

    // Of its first row; plain rows all have the same.
    const exports::Traits &traits() const { return rows_.front()->traits; }

    // Calls each row once; returns their results.
    std::vector<std::string> call() const;

    // Calls each row once; returns a line for each result that is not the expected one.
    std::string differences(const std::vector<std::string> &expected) const;

private:
    std::vector<const exports::Row *> rows_;
};

// A storm returns what it complains of, "" when all is well.
using Storm = std::function<std::string(const Subject &)>;

// Runs a storm for each subject of a group, in a process of its own. The test fails where it complains, crashes, hangs,
// or where a sanitizer reports something. When VELKOR_STORM is in the environment, only for rows whose names contain
// it.
void over(const exports::Group &group, const Storm &storm);

// How long one storm goes on: `usual_ms`, or as long as VELKOR_STRESS_SECONDS says.
int length_ms(int usual_ms);

// Waits until a child ends by itself with status 0, and returns "". Otherwise returns how it ended, or that it hangs:
// it has written where to standard error, and is ended then.
std::string fault_of_child(pid_t child, int patience_ms);

// The moment when a storm is over.
class Deadline {
public:
    explicit Deadline(int milliseconds) : end_(Clock::now() + std::chrono::milliseconds(milliseconds)) {}
    bool is_over() const { return Clock::now() >= end_; }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point end_;
};

}  // namespace storm

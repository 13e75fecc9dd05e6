// A valid call of every exported function. The storms (storm.h) make these calls from many threads, under signals, and
// in forked children.
//
// A new function needs a row in the file of its header in support/exports/: copy a line. A test fails until it has one.
#pragma once

#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <type_traits>

namespace exports {

// What the header says about calls from several threads at the same moment.
enum class Threads {
    AT_ONCE,   // any number of them, and each gets the same result
    SHARING,   // any number of them, but the results depend on each other
    IN_TURNS,  // one at a time
};

struct Traits {
    bool is_plain = false;  // takes no lock, and does not log, allocate or open anything
    Threads threads = Threads::AT_ONCE;
    int lasts_ms = 0;             // the pause that the header describes
    bool is_for_child = true;     // a forked child can call it
    bool starts_threads = false;  // also in a forked child, which sanitizers and emulators do not support
    const char *reason = "";      // what the header says, where `threads` or `is_for_child` is not as usual
};

inline constexpr Traits PLAIN = {.is_plain = true};
inline constexpr Traits STARTS_THREADS = {.starts_threads = true};
constexpr Traits sharing(const char *reason) { return {.threads = Threads::SHARING, .reason = reason}; }
constexpr Traits in_turns(const char *reason) { return {.threads = Threads::IN_TURNS, .reason = reason}; }
constexpr Traits lasting(int milliseconds) { return {.lasts_ms = milliseconds}; }

struct Row {
    // The function, or several that make sense together only. A remark in brackets tells several rows of one function
    // apart.
    const char *names;

    // Makes the call and returns its results as a text, the same each time. One thread makes the first call, before the
    // storm begins: what is static in it is initialised then.
    std::string (*call)();

    Traits traits = {};
};

// The functions of one public header.
struct Group {
    std::span<const Row> rows;

    // Makes what the rows need, which exists as long as the result does.
    std::shared_ptr<void> (*prepare)();
};

std::span<const Group> groups();

// The files of support/exports/.
extern const Group ALLOCATION;
extern const Group CALENDAR;
extern const Group CONCURRENCY;
extern const Group CONFIGURATION;
extern const Group DIAGNOSTICS;
extern const Group FILES;
extern const Group NETWORK;
extern const Group PROCESS;
extern const Group SYSTEM_INFO;
extern const Group TEXT;

// ---- For the rows -------------------------------------------------------------------------------------------------

inline constexpr int BUFFER_SIZE = 256;

inline std::shared_ptr<void> prepare_nothing() { return nullptr; }

std::string one_text(double value);
std::string one_text(const char *value);  // NULL, too
inline std::string one_text(char *value) { return one_text(static_cast<const char *>(value)); }
inline std::string one_text(const std::string &value) { return value; }

template <typename Integer>
requires std::is_integral_v<Integer> std::string one_text(Integer value) { return std::to_string(value); }

// Results and outputs as one text. The order in which arguments are evaluated is unspecified: what depends on an
// earlier call belongs into a variable.
template <typename... Values>
std::string text_of(const Values &...values) {
    std::string text;
    ((text += one_text(values) + '|'), ...);
    return text;
}

// The result of a call that changes a buffer, and the text in the buffer afterwards. The buffer begins with `text`, and
// the rest of it is 0.
template <typename Call>
std::string changed(const char *text, Call call) {
    char buffer[BUFFER_SIZE] = "";
    strncpy(buffer, text, sizeof buffer - 1);
    if constexpr (std::is_void_v<decltype(call(buffer))>) {
        call(buffer);
        return text_of(buffer);
    } else {
        const auto result = call(buffer);
        return text_of(result, buffer);
    }
}

template <typename Call>
std::string filled(Call call) {
    return changed("", call);
}

// A copy of a text that other threads may be changing.
std::string shared_text(const char *text);

// True at the first call in this process, and at the first in a forked child.
class FirstTime {
public:
    bool operator()();

private:
    int process_ = 0;
};

}  // namespace exports

// The terminal to which all processes copy their log: what is there, who has it open, and one of our own.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "descriptor.h"

namespace tool::log {

inline constexpr const char *TERMINAL = "/tmp/tty.logman";

// What is at the terminal's path.
struct TerminalView {
    enum class Kind { missing, dangling_link, terminal, file, other };

    Kind kind = Kind::missing;
    std::string target;  // of a link
    int error = 0;       // that a process would get when it opens it, 0 when it could be opened

    const char *kind_name() const;
    std::string description() const;
};

TerminalView look_at_terminal();

struct Holder {
    pid_t process;
    std::string name;
};

// The processes that hold the terminal open, as far as this user may see.
std::vector<Holder> holders_of_terminal();

// A pseudo-terminal under the terminal's path for as long as it lives.
class OwnTerminal {
public:
    // Throws a Failure when something is there that somebody may need, unless it is to be replaced. A link to a
    // terminal that is gone is nobody's.
    explicit OwnTerminal(bool replace);

    // Removes the link, unless it became another's.
    ~OwnTerminal();
    OwnTerminal(const OwnTerminal &) = delete;
    OwnTerminal &operator=(const OwnTerminal &) = delete;

    const std::string &path() const { return path_; }

    // Where to read what processes write.
    int descriptor() const { return master_.get(); }

private:
    void start_keeper();

    Descriptor master_;
    std::string path_;
    pid_t keeper_ = -1;
};

}  // namespace tool::log

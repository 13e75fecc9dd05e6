#include "options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <string_view>

namespace recorder {

const char *const USAGE =
    "usage: recorder [--seconds N] [--fault KIND]\n"
    "\n"
    "A small recorder process at work: every subsystem of libvelkor on real processes, files, disks and a network "
    "with\n"
    "a second host. On a terminal it shows a live picture, else plain lines. At the end each part says what it did, "
    "and\n"
    "whether its counts are true.\n"
    "\n"
    "  --seconds N    how long to work (default 8); a fault that is not over yet is waited for\n"
    "  --fault KIND   make trouble after a third of the time, and watch the recorder cope:\n"
    "                   runner    the process that runs the commands is killed\n"
    "                   disk      the disk is filled\n"
    "                   link      the cable is pulled\n"
    "                   resolver  the name server hangs\n"
    "                   pool      a memory pool is emptied, and more jobs come than there are workers\n"
    "  --help         this text\n"
    "\n"
    "Status 0: everything that should have happened has. 1: something has not. 2: bad use. 128 + N: ended by signal "
    "N.\n"
    "It needs the place that ./dev demo makes for it.\n";

namespace {

constexpr int MOST_SECONDS = 86400;
constexpr std::array<std::string_view, 5> KINDS = {"runner", "disk", "link", "resolver", "pool"};

bool read_seconds(std::string_view text, int &seconds) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    return error == std::errc() && end == text.data() + text.size() && seconds > 0 && seconds <= MOST_SECONDS;
}

bool read_fault(std::string_view text, std::string &fault) {
    fault = text;
    return std::find(KINDS.begin(), KINDS.end(), text) != KINDS.end();
}

}  // namespace

std::optional<Options> read_options(int argc, char **argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view name = argv[i];
        const std::string_view value = i + 1 < argc ? argv[i + 1] : "";
        if (name == "--help") {
            options.help = true;
        } else if ((name == "--seconds" && read_seconds(value, options.seconds)) ||
                   (name == "--fault" && read_fault(value, options.fault))) {
            ++i;
        } else {
            fprintf(stderr, "recorder: cannot understand %s %s\n%s", argv[i], i + 1 < argc ? argv[i + 1] : "", USAGE);
            return std::nullopt;
        }
    }
    return options;
}

}  // namespace recorder

#include "pseudo_terminal.h"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>

#include <array>

#include "exit_status.h"

namespace tool {

Descriptor open_pseudo_terminal(std::string &path) {
    Descriptor master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    std::array<char, 64> name = {};
    if (!master || grantpt(master.get()) != 0 || unlockpt(master.get()) != 0 ||
        ptsname_r(master.get(), name.data(), name.size()) != 0) {
        fail_call("make a pseudo-terminal");
    }
    path = name.data();
    struct termios settings = {};
    if (tcgetattr(master.get(), &settings) != 0) {
        fail_call("set up " + path);
    }
    cfmakeraw(&settings);  // no CR before LF, no echo
    if (tcsetattr(master.get(), TCSANOW, &settings) != 0) {
        fail_call("set up " + path);
    }
    return master;
}

}  // namespace tool

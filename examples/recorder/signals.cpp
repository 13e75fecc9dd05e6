#include "signals.h"

#include <signal.h>

#include <initializer_list>

namespace recorder {

namespace {

volatile sig_atomic_t came = 0;

extern "C" void note_signal(int number) { came = number; }

}  // namespace

void heed_signals() {
    struct sigaction action = {};
    action.sa_handler = note_signal;
    action.sa_flags = SA_RESTART;  // the parts are told in another way
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(number, &action, nullptr);
    }
    signal(SIGPIPE, SIG_IGN);
}

int signal_that_came() { return came; }

}  // namespace recorder

// Signals that ask the recorder to end: it does so in good order.
#pragma once

namespace recorder {

// Heeds SIGINT, SIGTERM and SIGHUP from now on, and lives with readers that are gone.
void heed_signals();

// The signal that came, or 0.
int signal_that_came();

}  // namespace recorder

// When the library's draining thread has written out everything that this process logged.
#pragma once

#include <chrono>

namespace tool::log {

// Whether the ring exists: it does from when printing was on and the terminal could be opened.
bool has_ring();

// Waits until the ring has room for another line, so that none pushes out an older one. False when nothing moved for
// `patience`.
bool wait_for_room(std::chrono::milliseconds patience);

// Waits until the last line is in the terminal's stream. False when nothing moved for `patience`.
bool wait_until_drained(std::chrono::milliseconds patience);

// Lines that wait in the ring.
size_t waiting_lines();

}  // namespace tool::log

// Sizes, times and bars as people read them.
#pragma once

#include <cstdint>
#include <string>

#include "descriptor.h"

namespace tool {

// "512 B", "1.5 KiB", "2.0 GiB"
std::string size_text(uint64_t bytes);

// "8 s", "2:05", "1:02:05"
std::string time_text(uint64_t seconds);

// "[#####-----]"; a fraction out of 0 to 1 is taken for the nearer one.
std::string bar(double fraction, unsigned width);

// A descriptor that becomes readable every so many milliseconds, the first time after as many.
Descriptor ticks_every(unsigned milliseconds);

// Makes it unreadable until the next tick.
void take_ticks(const Descriptor &ticks);

}  // namespace tool

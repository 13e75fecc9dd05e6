// What is written for one second of local time is the same until the second changes, or the time zone within it.
#pragma once

#include <time.h>

#include "support/zone_words.h"

namespace velkor {

class RememberedSecond {
public:
    bool is(time_t now) const { return known_ && second_ == now && zone_ == zone_words(); }

    // After the conversion to local time, which is what sets the C library's zone variables.
    void remember(time_t now) {
        known_ = true;
        second_ = now;
        zone_ = zone_words();
    }

    void forget() { known_ = false; }

private:
    bool known_;
    time_t second_;
    ZoneWords zone_;
};

}  // namespace velkor

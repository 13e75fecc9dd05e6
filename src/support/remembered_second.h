// What is written for one second of local time is the same until the second changes, or the time zone within it.
#pragma once

#include <time.h>

namespace velkor {

class RememberedSecond {
public:
    bool is(time_t now) const {
        return known_ && second_ == now && zone_ == timezone && zone_has_summer_time_ == daylight;
    }

    // After the conversion to local time, which is what sets the C library's zone variables. (Not the names of the
    // zone: a conversion in another thread clears them for a moment.)
    void remember(time_t now) {
        known_ = true;
        second_ = now;
        zone_ = timezone;
        zone_has_summer_time_ = daylight;
    }

    void forget() { known_ = false; }

private:
    bool known_;
    time_t second_;
    long zone_;
    int zone_has_summer_time_;
};

}  // namespace velkor

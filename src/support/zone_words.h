// What the C library tells of its time zone without a lock. (Not the names of the zone: a conversion in another thread
// clears them for a moment.)
#pragma once

#include <time.h>

namespace velkor {

struct ZoneWords {
    long west;  // seconds that standard time is behind UTC
    int has_summer_time;

    bool operator==(const ZoneWords &) const = default;
};

// A conversion to local time, or a change of the zone, sets them.
inline ZoneWords zone_words() { return {timezone, daylight}; }

}  // namespace velkor

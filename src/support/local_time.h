// The one way to local time and back.
//
// The C library converts under a lock of its own, and a forked child inherits that lock as it was at the fork: held for
// ever, when another thread was in a conversion. So this library converts one at a time, under the clock lock, which is
// held over a fork. No thread of the library is in the C library's conversions then.
//
// A thread of the program may be. What a child stamps its lines with therefore does not come from the C library where
// the process that forked had several threads: the parent notes how far local time is ahead of UTC just before the
// fork, and the child goes by that, and so do its own children. It goes by the C library again as soon as a thread of
// its own has been through there: the words that tell of the zone have changed, or one of the conversions below
// returned.
#pragma once

#include <time.h>

namespace velkor {

// localtime_r(). A time that it refuses has no date but zeros.
struct tm local_time(time_t instant);

// mktime().
time_t instant_of(struct tm &date);

// What the clock shows now, for a stamp: never waits for a lock that a forked child has inherited.
struct tm stamp_time(time_t now);

}  // namespace velkor

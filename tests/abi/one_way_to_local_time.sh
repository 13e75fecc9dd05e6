#!/bin/sh
# One source file alone calls the C library's conversions of local time: src/support/local_time.cpp, whose lock a fork holds.
#     one_way_to_local_time.sh NM ARCHIVE
set -eu
nm=$1 archive=$2

# Under any name that a C library gives them for a wider time_t: __localtime64_r.
calls=$("$nm" -A --undefined-only "$archive" |
    grep -E ' U _*(localtime|mktime|timelocal|ctime|strftime|tzset)(64)?(_r)?$' | sed 's/^[^:]*://')
echo "$calls"
others=$(echo "$calls" | grep -v '^local_time\.cpp\.o:' || true)
[ -z "$others" ] || {
    echo "these do not go by local_time.h:"
    echo "$others"
    exit 1
}
# Otherwise nothing was looked at.
echo "$calls" | grep -q localtime && echo "$calls" | grep -q mktime

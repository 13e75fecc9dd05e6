#!/bin/sh
# The check of the ABI finds what breaks programs, and only that: each change is made to a small library and held against
# the record of the library as it was.
#     abi_check.sh ABI_SCRIPT CC
set -eu
script=$1 cc=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/before" "$work/now"

cat >"$work/before/recorder.h" <<'TEXT'
struct channel { int number; short state; };
extern int channels[16];
int open_channel(struct channel *channel, int flags);
void close_channel(struct channel *channel);
TEXT
cat >"$work/before/recorder.c" <<'TEXT'
#include "recorder.h"
int channels[16];
int open_channel(struct channel *channel, int flags) { return channel->number + flags; }
void close_channel(struct channel *channel) { channel->state = 0; }
TEXT

library() { # DIRECTORY
    "$cc" -g -shared -fPIC -Wl,-soname,librecorder.so.1 "$work/$1/recorder.c" -o "$work/$1/librecorder.so.1"
}
library before
abidw --exported-interfaces-only --drop-undefined-syms --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed \
    --headers-dir "$work/before" --out-file "$work/record" "$work/before/librecorder.so.1"

failed=0
# The change is a program for sed, applied to the header and the source.
expect() { # holds|breaks WHAT CHANGE
    for file in recorder.h recorder.c; do
        sed -e "$3" "$work/before/$file" >"$work/now/$file"
    done
    library now
    verdict=holds
    "$script" compare "$work/record" "$work/now/librecorder.so.1" "$work/now" >"$work/report" 2>&1 || verdict=breaks
    if [ "$verdict" != "$1" ]; then
        echo "$2: the check says that it $verdict what was recorded"
        cat "$work/report"
        failed=1
    fi
}
expect holds 'no change' ''
expect holds 'a new function' 's/^void close_channel.*}/&\nint count_channels(void) { return 16; }/'
expect holds 'other code' 's/= 0; }/= 1; }/'
expect breaks 'a name that is gone' '/close_channel/d'
expect breaks 'one more parameter' 's/int flags)/int flags, int rate)/'
expect breaks 'another type of a parameter' 's/int flags)/long long flags)/'
expect breaks 'another type of a result' 's/^int open_channel/long long open_channel/'
expect breaks 'a record that grew' 's/short state;/short state; int rate;/'
expect breaks 'fields in another order' 's/int number; short state;/short state; int number;/'
expect breaks 'a shorter table' 's/channels\[16\]/channels[8]/'

# A library without descriptions of its types proves nothing, and must not pass.
"$cc" -shared -fPIC -Wl,-soname,librecorder.so.1 "$work/before/recorder.c" -o "$work/now/librecorder.so.1"
if "$script" compare "$work/record" "$work/now/librecorder.so.1" "$work/before" >/dev/null 2>&1; then
    echo 'a library without descriptions of its types passes'
    failed=1
fi
exit $failed

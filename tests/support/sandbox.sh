#!/bin/sh
# Run a command in the recorder's place: fresh /dvrfile, /dvr, /tmpfile and /tmp, its own /etc/TZ, and mount, network,
# IPC and PID namespaces of its own. Nothing that it does there is seen outside, and all of it is gone afterwards.
#
#     tests/support/sandbox.sh COMMAND [ARGUMENT...]
#
# Works as root, and as an ordinary user where the kernel grants user namespaces. The rest of the machine's files are
# there as they are. Inside, the command is the child of process 1 and has all rights over its namespaces.
set -eu

if [ $# -eq 0 ]; then
    sed -n 's/^# \{0,1\}//; 2,9p' "$0" >&2
    exit 2
fi

project=$(cd "${0%/*}/../.." && pwd)
program=$project/build/sandbox
source=$project/tests/support/sandbox.c
# Compiled when it is first needed, for this machine whatever the preset.
# shellcheck disable=SC3013 # every Debian shell knows "newer than"
if ! [ "$program" -nt "$source" ]; then
    mkdir -p "$project/build"
    cc -std=gnu11 -O1 -Wall -Wextra -Werror -D_GNU_SOURCE -o "$program.$$" "$source"
    mv "$program.$$" "$program"
fi
exec "$program" "$project" "$@"

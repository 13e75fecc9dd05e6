#!/bin/sh
# Run a command in the sandbox: fresh /dvrfile, /dvr, /tmpfile, /tmp, /var/tmp, /run and /dev, its own /etc/TZ, and mount,
# network, IPC, PID and user namespaces of its own. The machine's other files are there to be read and cannot be written,
# whatever rights the command has. All that it does is gone afterwards.
#
#     tests/support/sandbox.sh [OPTION...] COMMAND [ARGUMENT...]
#
#     --write DIRECTORY   this one can be written, and keeps what is written
#     --disk DIRECTORY    /var/tmp is on the disk that this directory is on, not in memory: an entry of its own there
#     --lib DIRECTORY     the libraries in it are in /lib, too: the C library of an emulated processor
#
# Works as root, and as an ordinary user where the kernel grants user namespaces. Inside, the command is the child of
# process 1 and has all rights over its namespaces.
set -eu

if [ $# -eq 0 ]; then
    sed -n 's/^# \{0,1\}//; 2,13p' "$0" >&2
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

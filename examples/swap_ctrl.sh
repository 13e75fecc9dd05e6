#!/bin/sh
# Swap on a recording disk, for libvelkor's swapmem_Start() and swapmem_Stop(). Its place on a recorder is
# /dvr/swap_ctrl.sh.
#
#     swap_ctrl.sh start DIRECTORY MEGABYTES     make DIRECTORY/swapfile.dat and swap on it
#     swap_ctrl.sh stop                          give it back to the disk
#
# Exit status 0 when it is done, 1 when the kernel or the disk would not have it: standard error says which. Nothing is
# left behind then.
set -u

NAME=swapfile.dat

fail() {
    echo "swap_ctrl.sh: $*" >&2
    exit 1
}

# The kernel writes a blank in a path as \040.
running_file() {
    sed -n "s|^\(/[^[:space:]]*/$NAME\)[[:space:]].*|\1|p" /proc/swaps | head -n 1 | sed 's/\\040/ /g'
}

start() {
    directory=$1 megabytes=$2
    file=${directory%/}/$NAME
    case $megabytes in
    '' | *[!0-9]*) fail "not a number of megabytes: $megabytes" ;;
    esac
    [ -d "$directory" ] || fail "no such directory: $directory"
    [ -z "$(running_file)" ] || fail "swap is on already: $(running_file)"

    # A file of an earlier run that nobody ended.
    rm -f "$file"
    trap 'rm -f "$file"' EXIT
    # Written in full: the kernel takes no file with holes.
    (umask 077 && dd if=/dev/zero of="$file" bs=1048576 count="$megabytes" 2>/dev/null) ||
        fail "no room for $megabytes megabytes in $directory"
    mkswap "$file" >/dev/null || fail "cannot make a swap area of $megabytes megabytes"
    swapon "$file" || fail "this kernel does not swap on $file"
    trap - EXIT
}

stop() {
    file=$(running_file)
    [ -n "$file" ] || fail 'no swap is on'
    swapoff "$file" || fail "the kernel keeps $file"
    rm -f "$file" || fail "cannot remove $file"
}

case ${1-} in
start)
    [ $# -eq 3 ] || fail 'usage: swap_ctrl.sh start DIRECTORY MEGABYTES'
    start "$2" "$3"
    ;;
stop) stop ;;
*) fail 'usage: swap_ctrl.sh start DIRECTORY MEGABYTES | stop' ;;
esac

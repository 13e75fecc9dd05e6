#!/bin/sh
# Run a command in the recorder's place: fresh /dvrfile, /dvr, /tmpfile and /tmp, its own /etc/TZ, and mount, network,
# IPC and PID namespaces of its own. Nothing that it does there is seen outside, and all of it is gone afterwards.
#
#     tests/support/sandbox.sh COMMAND [ARGUMENT...]
#
# Works as root, and as an ordinary user where the kernel grants user namespaces. The rest of the machine's files are
# there as they are. Inside, the command is the child of process 1 and has all rights over its namespaces.
set -eu

STAGE=/tmp/.velkor-sandbox # only a place to mount on; each run mounts its own file system there

if [ "${1-}" != --inside ]; then
    if [ $# -eq 0 ]; then
        sed -n 's/^# \{0,1\}//; 2,9p' "$0" >&2
        exit 2
    fi
    become_root=
    [ "$(id -u)" -eq 0 ] || become_root='--user --map-root-user'
    # Below a chroot the root is no mount point, and can only be taken as it is.
    propagation=private
    awk '$5 == "/" { found = 1 } END { exit !found }' /proc/self/mountinfo || propagation=unchanged
    mkdir -p "$STAGE"
    here=$(cd "$(dirname "$0")" && pwd)
    # shellcheck disable=SC2086 # no word at all when root
    exec unshare $become_root --mount --propagation $propagation --net --ipc --pid --fork --kill-child --mount-proc \
        "$here/sandbox.sh" --inside "$here/../.." "$PWD" "$@"
fi

project=$(cd "$2" && pwd)
directory=$3
shift 3

mount -t tmpfs -o mode=755 velkor "$STAGE"

# Every file system of the machine, except where the recorder's own paths are. Gathered first and done in few steps:
# this is what each of some thousand tests begins with.
links=
directories=
for entry in /* /.[!.]*; do
    case $entry in
    /tmp | /etc | /dvrfile | /dvr | /tmpfile | '/*' | '/.[!.]*' | *[[:space:]\\]*) ;;
    *)
        if [ -L "$entry" ]; then
            links="$links $entry"
        elif [ -d "$entry" ]; then
            directories="$directories $entry"
        fi
        ;;
    esac
done
cd "$STAGE"
# shellcheck disable=SC2046,SC2086 # lists of words
{
    [ -z "$links" ] || cp -P $links .
    mkdir dvrfile dvr tmpfile tmp etc .etc $(printf ' .%s' $directories)
}
chmod 1777 tmp
{
    for entry in $directories; do
        echo "$entry $STAGE$entry none rbind"
    done
    echo "/etc $STAGE/.etc none rbind"
} >.mounts
mount --all --fstab .mounts
rm .mounts

# /etc must take new files: links to the machine's own, and room beside them.
find "$STAGE/.etc" -mindepth 1 -maxdepth 1 ! -name TZ -printf '/.etc/%f\0' |
    xargs -0 -r ln -s -t "$STAGE/etc"
echo UTC0 >"$STAGE/etc/TZ"
cp "$project/examples/swap_ctrl.sh" "$STAGE/dvr/"

# A project that was unpacked below /tmp stays within reach.
for needed in "$project" "$directory"; do
    case $needed in
    /tmp/*)
        mkdir -p "$STAGE$needed"
        mount --rbind "$needed" "$STAGE$needed"
        ;;
    esac
done

ip link set lo up
# The shell in between stays process 1 and collects whatever the command leaves behind.
# shellcheck disable=SC2016 # expanded by that shell
chroot "$STAGE" /bin/sh -c 'cd "$1" && shift && exec "$@"' sh "$directory" "$@" && exit 0
exit $?

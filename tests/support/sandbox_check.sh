#!/bin/sh
# Does the sandbox keep what is in it from the machine? Tries to write, remove, remount, unmount and make devices
# everywhere, as root and as an ordinary user, and looks for ways back. Everything that must fail is harmless here if it
# does not: it is about files that this script made itself, or changes nothing.
#     tests/support/sandbox_check.sh
set -eu

# ---- Inside: one line for each thing that went wrong ----

refused() {
    tried=$((tried + 1))
    if "$@" >/dev/null 2>&1; then
        echo "not refused: $*"
        wrong=$((wrong + 1))
    fi
}

granted() {
    tried=$((tried + 1))
    "$@" >/dev/null 2>&1 || {
        echo "failed: $*"
        wrong=$((wrong + 1))
    }
}

# Opening is enough to see it, and writes nothing.
# shellcheck disable=SC2317 # called by its name
open_to_write() { sh -c 'exec 3>>"$1"' sh "$1"; }

try_mount_points() {
    cut -d ' ' -f 5,6 /proc/self/mountinfo >/tmp/mounts
    while read -r point options; do
        case $options in ro*) ;; *) continue ;; esac
        refused mount -o remount,bind,rw "$point"
        refused mount -o remount,rw "$point"
        refused umount "$point"
        refused umount -l "$point"
        [ -d "$point" ] || continue
        refused touch "$point/.velkor-probe"
        refused mkdir "$point/.velkor-probe"
        refused mknod "$point/.velkor-probe" c 1 3
    done </tmp/mounts
}

inside() { # SCRATCH-FILE... : files of the machine
    wrong=0
    tried=0
    try_mount_points
    for scratch in "$@"; do
        refused rm "/proc/1/root$scratch"
        [ -e "$scratch" ] || continue # in a directory of which the sandbox has its own
        refused rm "$scratch"
        refused mv "$scratch" "$scratch.moved"
        refused open_to_write "$scratch"
        refused chmod 600 "$scratch"
        refused ln "$scratch" "$scratch.linked"
    done
    refused umount -l /
    refused mknod /tmp/device c 1 3
    refused mknod /tmp/device b 7 0
    refused mknod /dev/device c 1 3
    refused chmod 666 /dev/null # which it has
    for setting in sys/kernel/panic sys/vm/swappiness sysrq-trigger irq/default_smp_affinity; do
        [ ! -e "/proc/$setting" ] || refused open_to_write "/proc/$setting"
    done
    refused test -e /proc/self/fd/9 # a directory that was open outside
    refused chmod 666 "/proc/$$/fd/0" # the device that was
    granted test "$(stat -L -c %d:%i /proc/1/root)" = "$(stat -c %d:%i /)"
    granted nsenter --mount=/proc/1/ns/mnt test -e /dvr/swap_ctrl.sh
    refused nsenter --mount=/proc/1/ns/mnt test -e "$1"
    for own in /tmp /var/tmp /dvr /dvrfile /tmpfile /etc /run /dev /dev/shm; do
        granted touch "$own/.velkor-probe"
    done
    granted sh -c 'echo x >/dev/null && head -c 1 /dev/urandom && echo UTC0 >/etc/TZ && cat /etc/passwd'
    granted touch "$WRITABLE/written"
    echo "$tried things tried, $wrong wrong"
    [ "$wrong" -eq 0 ]
}

if [ "${1-}" = --inside ]; then
    shift
    inside "$@"
    exit
fi

# ---- Outside ----

project=$(cd "${0%/*}/../.." && pwd)
mkdir -p "$project/build"
work=$(mktemp -d /tmp/velkor-sandbox-check.XXXXXX)
scratches=
# shellcheck disable=SC2086 # a list of words
trap 'rm -rf $scratches "$work"' EXIT
failed=0

# A copy that everybody may read, wherever the project is.
copy=$work/project
mkdir -p "$copy/tests/support" "$copy/examples" "$copy/build"
cp "$project"/tests/support/sandbox* "$copy/tests/support/"
cp "$project/examples/swap_ctrl.sh" "$copy/examples/"
chmod -R a+rX "$work"
"$copy/tests/support/sandbox.sh" true # compiles it

for directory in /tmp /var/tmp /dev/shm /usr /home /root /srv "$project/build" "$HOME"; do
    [ -w "$directory" ] || continue
    file=$(mktemp "$directory/velkor-scratch.XXXXXX")
    chmod 666 "$file"
    scratches="$scratches $file"
done

try() { # WHO RUNNER...
    who=$1
    shift
    mkdir -m 777 "$work/$who" "$work/$who.disk"
    # shellcheck disable=SC2086 # lists of words
    if ! WRITABLE=$work/$who "$@" "$copy/tests/support/sandbox.sh" --write "$work/$who" --disk "$work/$who.disk" \
        "$copy/tests/support/sandbox_check.sh" --inside $scratches 9</ </dev/null; then
        echo "the sandbox does not hold: $who"
        failed=1
    fi
    for scratch in $scratches; do
        if [ "$(stat -c '%a %s %h' "$scratch" 2>&1)" != '666 0 1' ]; then
            echo "$who reached $scratch"
            failed=1
        fi
    done
    for probe in /tmp /var/tmp /etc /run /dev /dev/shm /usr; do
        if [ -e "$probe/.velkor-probe" ]; then
            echo "$who left something in $probe"
            rm -f "$probe/.velkor-probe"
            failed=1
        fi
    done
    if [ ! -e "$work/$who/written" ] || [ -n "$(ls "$work/$who.disk")" ]; then
        echo "$who: what may be written is not kept, or the disk's files are"
        failed=1
    fi
}

if [ "$(id -u)" -ne 0 ]; then
    try a-user env
else
    try root env
    as_user='setpriv --reuid=65534 --regid=65534 --clear-groups'
    # shellcheck disable=SC2086 # a list of words
    if $as_user unshare --user true 2>/dev/null; then
        try an-ordinary-user $as_user
    else
        echo 'an ordinary user: the kernel grants no user namespaces here (below a chroot it never does)'
    fi
fi
exit $failed

#!/bin/sh
# How large the stripped library is on both platforms, and what a process pays for linking it. Sizes and relocations
# are held against packaging/size-baseline.txt and may grow by 5 %; memory and time depend on the machine and are shown.
#     packaging/size.sh [--record]
# Reads build/release and build/arm, writes below build/size.
set -eu
cd "$(dirname "$0")/.."
baseline=packaging/size-baseline.txt
work=build/size
mkdir -p "$work"

# PLATFORM FIGURE VALUE, one a line.
figures() { # PLATFORM PREFIX-OF-TOOLS BUILD
    stripped=$work/libvelkor-$1.so
    "$2strip" -o "$stripped" "$3/src/libvelkor.so.1"
    echo "$1 file-bytes $(wc -c <"$stripped")"
    "$2size" "$stripped" |
        awk -v p="$1" 'NR == 2 { print p, "text-bytes", $1; print p, "data-bytes", $2; print p, "bss-bytes", $3 }'
    echo "$1 relocations $("$2readelf" --relocs --wide "$stripped" | grep -c '[[:space:]]R_')"
}
{
    figures armhf arm-linux-gnueabihf- build/arm
    figures x86_64 '' build/release
} >"$work/figures"

if [ "${1-}" = --record ]; then
    {
        echo '# The stripped libvelkor.so.1, recorded by ./dev size --record. ./dev size fails where one grows by over 5 %.'
        cat "$work/figures"
    } >"$baseline"
fi

echo '                                   now    recorded    growth'
failed=0
awk '
    FNR == NR { if ($1 !~ /^#/) recorded[$1 " " $2] = $3; next }
    {
        name = $1 " " $2
        if (!(name in recorded)) {
            printf "%-26s %11d   not recorded\n", name, $3
            bad = 1
            next
        }
        growth = $3 - recorded[name]
        over = growth * 100 > recorded[name] * 5
        percent = recorded[name] > 0 ? growth * 100 / recorded[name] : 0
        printf "%-26s %11d %11d   %+6.1f %%%s\n", name, $3, recorded[name], percent, over ? "  TOO MUCH" : ""
        bad = bad || over
    }
    END { exit bad }' "$baseline" "$work/figures" || failed=1

# A process that asks libvelkor whether it logs, and the same process without libvelkor. The stand-ins are left out: a
# recorder has none.
set -- -O2 -Iinclude packaging/minimal_process.c
lazily='-Wl,--allow-shlib-undefined -Wl,-z,lazy -lm -lpthread'
cc "$@" -DBARE -o "$work/bare"
# shellcheck disable=SC2086 # a list of words
{
    cc "$@" -o "$work/linked" build/release/src/libvelkor.so.1 $lazily
    arm-linux-gnueabihf-gcc "$@" -o "$work/linked-armhf" build/arm/src/libvelkor.so.1 $lazily
}
cc -O2 packaging/start_up.c -o "$work/start_up"
native=$PWD/build/release/src
emulated=$PWD/build/arm/src

# KiB of one kind in the mappings whose file matches.
kib() { # KIND FILE-PATTERN MAPS
    awk -v kind="$1:" -v file="$2" '/^[0-9a-f]+-[0-9a-f]+ / { name = $6 } $1 == kind && name ~ file { sum += $2 }
        END { print sum + 0 }' "$3"
}
"$work/bare" - >"$work/bare.maps"
LD_LIBRARY_PATH=$native "$work/linked" - >"$work/linked.maps"
LD_LIBRARY_PATH=$emulated tests/support/sandbox.sh --lib /usr/arm-linux-gnueabihf/lib \
    qemu-arm "$PWD/$work/linked-armhf" - >"$work/armhf.maps"

runs=200
echo
echo 'a minimal process on this machine             linked    without'
row() { printf '%-40s %11s %10s\n' "$@"; }
# shellcheck disable=SC2046 # two words
row "start to end, us (best of $runs)" $(LD_LIBRARY_PATH=$native "$work/start_up" $runs "$work/linked" "$work/bare")
row 'resident, KiB' "$(kib Rss "" "$work/linked.maps")" "$(kib Rss "" "$work/bare.maps")"
row 'its own, KiB' "$(kib Private_Dirty '' "$work/linked.maps")" "$(kib Private_Dirty '' "$work/bare.maps")"
echo
echo "libvelkor's file in that process             resident    its own"
row 'armhf (emulated), KiB' "$(kib Rss /libvelkor.so "$work/armhf.maps")" \
    "$(kib Private_Dirty /libvelkor.so "$work/armhf.maps")"
row 'x86_64, KiB' "$(kib Rss /libvelkor.so "$work/linked.maps")" \
    "$(kib Private_Dirty /libvelkor.so "$work/linked.maps")"
exit $failed

#!/bin/sh
# The calendar's code holds no fused multiplication and addition, even when it is compiled for a processor that has them.
#     no_fused_arithmetic.sh OBJDUMP CXX TARGET_OPTION OBJECT...
set -eu
objdump=$1 cxx=$2 option=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# vfmadd132sd and its like on x86-64, vfma.f64 on ARM.
fused() { "$objdump" -d "$1" | grep -E 'vfn?m(add|sub|a\.|s\.)' || true; }

# Left alone, the compiler does fuse: otherwise this test would prove nothing.
echo 'double fused(double a, double b, double c) { return a * b + c; }' >"$work/control.cpp"
"$cxx" -O2 "$option" -c "$work/control.cpp" -o "$work/control.o"
if [ -z "$(fused "$work/control.o")" ]; then
    echo "$cxx $option does not fuse"
    exit 1
fi

failed=0
for object in "$@"; do
    found=$(fused "$object")
    [ -z "$found" ] || {
        printf '%s:\n%s\n' "$object" "$found"
        failed=1
    }
done
exit $failed

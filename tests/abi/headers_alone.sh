#!/bin/sh
# Each public header compiles by itself, as C99 and as C++17, without a warning.
#     headers_alone.sh CC CXX PROJECT
set -eu
cc=$1 cxx=$2 project=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
count=0
for header in "$project"/include/velkor/*.h "$project"/host/include/*.h; do
    set -- -Wall -Wextra -pedantic -Werror -fsyntax-only -I"$project/include" -I"$project/host/include"
    printf '#include "%s"\nextern int a_program;\n' "$header" >"$work/program"
    "$cc" -std=c99 "$@" -x c "$work/program"
    "$cxx" -std=c++17 "$@" -x c++ "$work/program"
    count=$((count + 1))
done
echo "$count headers"
[ "$count" -gt 0 ]

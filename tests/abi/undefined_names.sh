#!/bin/sh
# Whatever the library leaves undefined is an import that firmware.h declares (and libvelkor-host defines), or comes
# from the C library.
#     undefined_names.sh NM LIBRARY FIRMWARE_H HOST_LIBRARY
set -eu
nm=$1 library=$2 header=$3 host=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The C library's names carry a version; the linker's and the sanitizers' own are weak or begin with underscores.
"$nm" -D --undefined-only "$library" | awk '$1 == "U" { print $2 }' |
    grep -vE '@(GLIBC|GCC)_' | grep -vE '^(__asan|__ubsan|__tsan|__sanitizer|__interceptor)' |
    LC_ALL=C sort -u >"$work/undefined" || true
"$nm" -D --defined-only "$host" | awk '{ print $3 }' | LC_ALL=C sort -u >"$work/provided"

failed=0
while read -r name; do
    if ! grep -qE "\b$name\b" "$header"; then
        echo "undefined, and firmware.h does not declare it: $name"
        failed=1
    elif ! grep -qx "$name" "$work/provided"; then
        echo "an import that libvelkor-host does not provide: $name"
        failed=1
    fi
done <"$work/undefined"
echo "$(wc -l <"$work/undefined") imports"
exit $failed

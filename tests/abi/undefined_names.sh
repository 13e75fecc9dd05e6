#!/bin/sh
# Whatever the library leaves undefined is an import that firmware.h declares (and libvelkor-host defines), or comes
# from the C library: from one of the libraries that it needs, as the compiler finds them.
#     undefined_names.sh CC NM READELF LIBRARY FIRMWARE_H HOST_LIBRARY
set -eu
cc=$1 nm=$2 readelf=$3 library=$4 header=$5 host=$6
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Some C libraries give their names versions, others do not.
defined() { "$nm" -D --defined-only "$1" | sed -e 's/^.* //' -e 's/@.*//'; }

: >"$work/needed"
needed=$("$readelf" -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
for name in $needed; do
    file=$("$cc" -print-file-name="$name")
    [ -e "$file" ] || {
        echo "$cc does not find $name"
        exit 1
    }
    defined "$file" >>"$work/needed"
done
LC_ALL=C sort -u "$work/needed" >"$work/c_library"
defined "$host" | LC_ALL=C sort -u >"$work/provided"
"$nm" -D --undefined-only "$library" | awk '$1 == "U" { sub(/@.*/, "", $2); print $2 }' |
    LC_ALL=C sort -u | LC_ALL=C comm -23 - "$work/c_library" >"$work/undefined"

failed=0
while read -r name; do
    if ! grep -qE "\b$name\b" "$header"; then
        echo "undefined, and neither firmware.h nor a library that is needed knows it: $name"
        failed=1
    elif ! grep -qx "$name" "$work/provided"; then
        echo "an import that libvelkor-host does not provide: $name"
        failed=1
    fi
done <"$work/undefined"
echo "$(wc -l <"$work/undefined") imports"
exit $failed

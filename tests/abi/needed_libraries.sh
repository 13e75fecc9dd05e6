#!/bin/sh
# The libraries run with nothing but the C library: no C++ library, no compiler's run-time library.
#     needed_libraries.sh READELF LIBRARY...
set -eu
readelf=$1
shift
failed=0
for library in "$@"; do
    needed=$("$readelf" -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    for name in $needed; do
        case $name in
        libc.so.* | libm.so.* | libpthread.so.* | ld-linux*.so.* | ld-uClibc*.so.*) ;;
        libasan.so.* | libubsan.so.* | libtsan.so.*) ;; # only in a build that is watched
        *)
            echo "$library needs $name"
            failed=1
            ;;
        esac
    done
done
exit $failed

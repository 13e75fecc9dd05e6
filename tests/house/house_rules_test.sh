#!/bin/sh
# Does tests/house/house_rules.py find what breaks its rules? Breaks a copy of the tree in one way at a time.
#     tests/house/house_rules_test.sh
set -eu
cd "$(dirname "$0")/../.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

fresh_copy() {
    rm -rf "$work/tree"
    mkdir "$work/tree"
    git -c safe.directory='*' ls-files -z include src host tools examples cmake/exports.txt |
        xargs -0 cp --parents -t "$work/tree"
    git -C "$work/tree" init -q
}

rules() { python3 -B tests/house/house_rules.py "$work/tree"; }

found() { # WHAT FILE COMPLAINT
    if said=$(rules) || ! echo "$said" | grep -q "^$2:[0-9]*: .*$3"; then
        echo "not found: $1"
        failed=1
    fi
    fresh_copy
}

fresh_copy
rules >/dev/null || {
    rules
    exit 1
}
tree=$work/tree

echo '#include "logman/logman.cpp"' >>"$tree/src/timer.cpp"
found 'a file of another folder' src/timer.cpp 'is not for this folder'
echo '#include "support/log.h"' >>"$tree/host/disks.cpp"
found 'a stand-in that includes the library' host/disks.cpp 'is not for this folder'
echo '#include <string>' >>"$tree/src/timer.cpp"
found 'the C++ library at run time' src/timer.cpp 'at run time'
echo '#include <execinfo.h>' >>"$tree/src/timer.cpp"
found 'a header that a small C library lacks' src/timer.cpp 'small C library'
yes '' | head -n 400 >>"$tree/src/timer.cpp"
found 'a long file' src/timer.cpp '400 at most'
{ echo 'void f() {'; yes '    g();' | head -n 60; echo '}'; } >>"$tree/src/daylight.cpp"
found 'a long function' src/daylight.cpp 'f has 62 lines'
for call in 'vk_printftomem(0)' 'abort()' 'pthread_mutex_lock(0)' 'localtime_r(0)' 'usleep(1)' 'select(0)' 'poll(0)' \
    'syscall(1)' 'pthread_atfork(0)' 'fopen(0)' 'getauxval(1)'; do
    echo "void f() { $call; }" >>"$tree/src/timer.cpp"
    found "$call" src/timer.cpp "${call%%(*}"
done
echo 'VELKOR_API int new_name(int number);' >>"$tree/include/velkor/text.h"
found 'a name that is not exported' include/velkor/text.h 'new_name has VELKOR_API'
echo 'gone_name' >>"$tree/cmake/exports.txt"
found 'an export that no header has' cmake/exports.txt 'gone_name has no VELKOR_API'
echo '// usleep(1), "fopen(0)"' >>"$tree/src/timer.cpp"
rules >/dev/null || {
    echo 'a comment counts'
    failed=1
}
[ $failed -eq 0 ] && echo 'each rule finds what breaks it'
exit $failed

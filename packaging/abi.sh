#!/bin/sh
# What the libraries promise to programs that were built against the last release: names, versions, parameters, records.
# The last release's promise is recorded in packaging/abi; a change that breaks it fails, a new name does not. The
# stand-ins are held too: what they export is what libvelkor imports, so that it is the promise of firmware.h.
#     packaging/abi.sh                   hold build/release and build/arm against the records
#     packaging/abi.sh --record          record them: once a release
#     packaging/abi.sh compare RECORD LIBRARY HEADER-DIRECTORY...
set -eu

# What LIBRARY promises, without anything of the place where it was built.
describe() { # OUTPUT LIBRARY HEADER-DIRECTORY...
    output=$1 described=$2
    shift 2
    headers=
    for directory in "$@"; do
        headers="$headers --headers-dir $directory"
    done
    # shellcheck disable=SC2086 # a list of words
    abidw --exported-interfaces-only --drop-undefined-syms --no-corpus-path --no-comp-dir-path --no-show-locs \
        --no-elf-needed $headers --out-file "$output" "$described"
    # Without descriptions of types only names would be compared.
    grep -q '<function-decl' "$output" || {
        echo "$described: built without descriptions of its types" >&2
        return 1
    }
}

compare() { # RECORD LIBRARY HEADER-DIRECTORY...
    record=$1
    shift
    now=$(mktemp)
    describe "$now" "$@" || {
        rm "$now"
        return 1
    }
    result=0
    abidiff --no-added-syms "$record" "$now" || result=$?
    rm "$now"
    return $result
}

if [ "${1-}" = compare ]; then
    shift
    compare "$@"
    exit
fi

cd "$(dirname "$0")/.."
recording=
[ "${1-}" != --record ] || recording=yes
failed=0
for platform in x86_64=build/release armhf=build/arm; do
    build=${platform#*=}
    for library in src/libvelkor host/libvelkor-host; do
        record=packaging/abi/${library#*/}-${platform%=*}.abi
        set -- "$build/$library.so.1" include/velkor host/include
        if [ "$recording" ]; then
            describe "$record" "$@"
            echo "recorded: $record"
        elif compare "$record" "$@"; then
            echo "${library#*/} on ${platform%=*}: as recorded"
        else
            echo "${library#*/} on ${platform%=*}: breaks programs built against the last release"
            failed=1
        fi
    done
done
exit $failed

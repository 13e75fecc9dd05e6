#!/bin/sh
# The library exports exactly the listed names, all under its one version; a name that is still to come must say so in
# the list of pending names, and must leave that list when it is there.
#     exported_names.sh NM LIBRARY LIST PENDING
set -eu
nm=$1 library=$2 list=$3 pending=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

names() { sed -e 's/#.*//' -e 's/[[:space:]]//g' -e '/^$/d' "$1" | LC_ALL=C sort -u; }
names "$list" >"$work/listed"
names "$pending" >"$work/pending"
"$nm" -D --defined-only "$library" | awk '$2 != "A" { print $3 }' >"$work/symbols"
sed -n 's/@@VELKOR_1$//p' "$work/symbols" | LC_ALL=C sort -u >"$work/exported"

failed=0
complain() { # TITLE FILE
    if [ -s "$2" ]; then
        echo "$1:"
        sed 's/^/    /' "$2"
        failed=1
    fi
}
grep -v '@@VELKOR_1$' "$work/symbols" >"$work/unversioned" || true
LC_ALL=C comm -13 "$work/listed" "$work/exported" >"$work/extra"
LC_ALL=C comm -23 "$work/listed" "$work/exported" | LC_ALL=C comm -23 - "$work/pending" >"$work/missing"
LC_ALL=C comm -12 "$work/exported" "$work/pending" >"$work/arrived"
LC_ALL=C comm -23 "$work/pending" "$work/listed" >"$work/unknown"
complain 'exported without the version VELKOR_1' "$work/unversioned"
complain 'exported but not listed' "$work/extra"
complain 'listed but not exported' "$work/missing"
complain 'exported, but still in the list of pending names' "$work/arrived"
complain 'pending, but not in the list of names' "$work/unknown"

sed 's/^/still to come: /' "$work/pending"
echo "$(wc -l <"$work/exported") of $(wc -l <"$work/listed") names exported, $(wc -l <"$work/pending") still to come"
exit $failed

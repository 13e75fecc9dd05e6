#!/bin/sh
# Makes the Debian packages of build/release and the board's tarball of build/arm in build/packages, and looks at what
# came out: lintian at the packages, a run of its tool at the tarball.
#     packaging/package.sh
set -eu
cd "$(dirname "$0")/.."
packages=$PWD/build/packages
rm -rf "$packages"
mkdir -p "$packages"

# The same build gives the same packages: everything has the date of the last commit, or of the changelog.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git -c safe.directory='*' log -1 --format=%ct 2>/dev/null || date -r CHANGELOG.md +%s)}
export SOURCE_DATE_EPOCH
for preset in release arm; do
    (cd "build/$preset" && cpack -B "$packages") >"$packages/$preset.log" 2>&1 || {
        cat "$packages/$preset.log"
        exit 1
    }
done
rm -rf "$packages/_CPack_Packages"

# A tool without its manual page is worth a warning; where the pages are made, no warning is left.
fatal=error
[ ! -d build/release/man ] || fatal=error,warning
lintian --allow-root --fail-on $fatal "$packages"/*.deb

# Every header and every manual page that was made is in the package: what belongs to no component would be left out.
dpkg-deb --contents "$packages"/libvelkor-dev_*.deb >"$packages/contents"
for file in include/velkor/*.h build/release/man/man*/*; do
    [ -e "$file" ] || continue # no manual pages
    name=${file#build/release/}
    case $(cat "$packages/contents") in
    *"/${name%.gz}"*) ;;
    *)
        echo "not in the package: $name"
        exit 1
        ;;
    esac
done

# The tarball, as on a board: unpacked somewhere, with nothing installed.
board=$packages/board
mkdir "$board"
tar -C "$board" -xzf "$packages"/*.tar.gz
for file in "$board/bin/velkor" "$board"/lib/*.so.1; do
    if arm-linux-gnueabihf-readelf --sections --wide "$file" | grep -qE ' \.(debug_|symtab)'; then
        echo "$file is not stripped"
        exit 1
    fi
    needed=$(arm-linux-gnueabihf-readelf --dynamic "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    for name in $needed; do
        case $name in
        libc.so.* | libm.so.* | ld-linux*.so.* | libvelkor.so.1 | libvelkor-host.so.1) ;;
        *)
            echo "$file needs $name, which a board may not have"
            exit 1
            ;;
        esac
    done
done
printf abc >"$board/abc"
digest=$(tests/support/sandbox.sh --lib /usr/arm-linux-gnueabihf/lib qemu-arm "$board/bin/velkor" sha1 "$board/abc")
[ "${digest%% *}" = a9993e364706816aba3e25717850c26c9cd0d89d ] || {
    echo "the board's tool answers: $digest"
    exit 1
}
rm -rf "$board"
ls -l build/packages/*.deb build/packages/*.tar.gz

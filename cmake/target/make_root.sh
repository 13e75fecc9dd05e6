#!/bin/sh
# Make a root of the recorder's system out of Debian's packages alone: its small C library, a static C++ library for what
# runs beside libvelkor, and compilers that build for it.
#
#     cmake/target/make_root.sh ROOT
#
#     ROOT/bin/arm-linux-uclibcgnueabihf-gcc   (and g++, ar, ...) found relative to itself, so the folder may be moved
#     ROOT/lib                                 what a program needs to run
#     ROOT/usr                                 headers and libraries to build with
#
# Made again only when what it is made of changed. ROOT.log tells what was done.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
root=$(realpath -m "${1:?where to make the root}")
triple=arm-linux-uclibcgnueabihf
cross=arm-linux-gnueabihf
gcc_folder=$(dirname "$($cross-gcc -print-libgcc-file-name)")

# A build in progress, in a place that is the same each time, so that ccache finds what it compiled before.
work=$root.work
new=$work/root
log=$root.log

# What a caller's own build is told is not meant for this one.
unset CFLAGS CXXFLAGS CPPFLAGS LDFLAGS CC CXX CPP AR MAKEFLAGS MFLAGS CPATH C_INCLUDE_PATH CPLUS_INCLUDE_PATH LIBRARY_PATH
export LC_ALL=C
export CCACHE_BASEDIR="${root%/*}" CCACHE_NOHASHDIR=1
[ ! -d /usr/lib/ccache ] || PATH=/usr/lib/ccache:$PATH

# The scripts, the configuration, and the packages.
inputs() {
    cat "$here"/*
    dpkg-query -W uclibc-source gcc-12-source linux-libc-dev-armhf-cross g++-12-arm-linux-gnueabihf \
        gcc-12-arm-linux-gnueabihf libgcc-12-dev-armhf-cross binutils-arm-linux-gnueabihf
}

# A file, so that what fails to be told is not taken for something told.
inputs_digest() {
    inputs >"$work.inputs"
    sha256sum <"$work.inputs" | cut -c -40
    rm "$work.inputs"
}

copy_kernel_headers() {
    mkdir -p "$new/usr/include"
    dpkg -L linux-libc-dev-armhf-cross | sed -n "s,^/usr/$cross/include/,,p" |
        tar -C "/usr/$cross/include" --no-recursion -cf - -T - | tar -C "$new/usr/include" -xf -
}

make_c_library() {
    tar -C "$work" -xf /usr/src/uClibc-ng-*.tar.xz
    cd "$work"/uClibc-ng-*
    {
        cat "$here/c_library.config"
        echo "KERNEL_HEADERS=\"$new/usr/include\""
    } >.config
    make ARCH=arm oldconfig </dev/null
    refused=$(sed -n '/^[A-Z].*=[^n]/p' "$here/c_library.config" | grep -vxFf .config) || true
    [ -z "$refused" ] || {
        echo "not taken: $refused"
        return 1
    }
    make ARCH=arm -j"$(nproc)"
    make ARCH=arm PREFIX="$new" install
    rm "$new"/usr/lib/*_pic.a # second names
}

# As a vendor's compiler: all its tools under one prefix. ccache tells compilers apart by their date, so that the date is
# made of the inputs.
make_compilers() { # DIGEST
    mkdir "$new/bin"
    cp "$here/compiler.specs" "$new/lib/"
    for driver in gcc g++; do
        compiler=$new/bin/$triple-$driver
        cat >"$compiler" <<TEXT
#!/bin/sh
# Debian's cross compiler with the C library of the root that this file is in.
here=\$(readlink -f "\$0")
root=\${here%/bin/*}
exec $cross-$driver-12 -specs="\$root/lib/compiler.specs" --sysroot="\$root" "\$@"
TEXT
        chmod +x "$compiler"
        touch -d "@$((0x$(echo "$1" | cut -c -7)))" "$compiler"
    done
    for tool in addr2line ar as ld nm objcopy objdump ranlib readelf size strings strip; do
        ln -s "/usr/bin/$cross-$tool" "$new/bin/$triple-$tool"
    done
}

# Threads that are cancelled, or leave by pthread_exit(), and backtrace() load it by its name.
make_unwinder() {
    seen=$(sed -n 's/^ *seen \([_A-Za-z0-9]*\)$/\1/p' "$here/unwinder.S")
    for name in $seen; do
        echo "$name linked_$name"
    done >"$work/prefixed"
    $cross-objcopy --redefine-syms="$work/prefixed" "$gcc_folder/libgcc_eh.a" "$work/unwinder.a"
    "$new/bin/$triple-gcc" -shared -nostdlib -Wl,-soname,libgcc_s.so.1 -Wl,-z,defs -o "$new/lib/libgcc_s.so.1" \
        "$here/unwinder.S" "$work/unwinder.a" -lgcc -lc
}

# Its own folders of the compiler's sources alone, configured as the compiler's build would.
make_cpp_library() {
    sources=$(echo /usr/src/gcc-12/gcc-12.*-dfsg.tar.xz)
    top=$(basename "$sources" -dfsg.tar.xz)
    mkdir -p "$work/sources"
    # shellcheck disable=SC2046 # a list of words
    tar -C "$work/sources" -xf "$sources" --strip-components=1 --exclude='*/testsuite/*/*' --exclude='*/doc/html' \
        --exclude='*/doc/xml' --exclude='*/libgcc/config' --exclude='*/ChangeLog*' \
        $(printf "$top/%s " libstdc++-v3 libgcc libiberty libbacktrace config include gcc/BASE-VER gcc/DATESTAMP \
            config.guess config.sub config-ml.in install-sh ltmain.sh missing mkinstalldirs move-if-change)
    # What the compiler's build leaves beside it: which threads there are.
    mkdir -p "$work/built/libgcc" "$work/built/libstdc++-v3"
    cp "$work/sources/libgcc/gthr-posix.h" "$work/built/libgcc/gthr-default.h"
    cd "$work/built/libstdc++-v3"
    flags='-O2 -ffunction-sections -fdata-sections'
    PATH=$new/bin:$PATH
    cc=$new/bin/$triple-gcc
    "$work/sources/libstdc++-v3/configure" \
        --build=x86_64-linux-gnu --host=$triple --target=$triple --with-cross-host=x86_64-linux-gnu --prefix=/usr \
        --disable-shared --enable-static --disable-multilib --disable-nls --disable-libstdcxx-pch \
        --disable-libstdcxx-filesystem-ts --enable-clocale=generic --enable-libstdcxx-time=yes \
        --with-gxx-include-dir=/usr/include/c++/12 --with-toolexeclibdir=/usr/lib --with-default-libstdcxx-abi=new \
        CC="$cc" CPP="$cc -E" CFLAGS="$flags" \
        CXX="$cc -nostdinc++" CXXCPP="$cc -x c++ -nostdinc++ -E" CXXFLAGS="$flags -D_GNU_SOURCE"
    make -j"$(nproc)"
    make install DESTDIR="$new"
    rm -rf "$new"/usr/lib/*.la "${new:?}/usr/share"
}

strip_all() {
    $cross-strip --strip-unneeded "$new"/lib/*.so*
    $cross-strip -g "$new"/usr/lib/*.a
}

# One part: its output to the log, its time to whoever looks on.
part() {
    name=$1
    shift
    echo "== $name" >>"$log"
    begin=$(date +%s)
    # Not in a condition, where the shell would go on after what fails.
    set +e
    (set -eu && "$@") >>"$log" 2>&1
    status=$?
    set -e
    if [ $status -ne 0 ]; then
        tail -n 40 "$log" >&2
        echo "$0: $name failed; $log has all of it" >&2
        exit 1
    fi
    echo "    $name: $(($(date +%s) - begin)) s"
}

mkdir -p "${root%/*}"
exec 9>"$root.lock"
flock 9

digest=$(inputs_digest)
[ "$(cat "$root/made-of" 2>/dev/null)" != "$digest" ] || exit 0

echo "making $root"
rm -rf "$work"
mkdir -p "$new"
: >"$log"
part 'kernel headers' copy_kernel_headers
part 'C library' make_c_library
part 'compilers' make_compilers "$digest"
part 'unwinder' make_unwinder
part 'C++ library' make_cpp_library
part 'stripping' strip_all
echo "$digest" >"$new/made-of"
rm -rf "$root"
mv "$new" "$root"
rm -rf "$work"

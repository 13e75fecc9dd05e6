#!/bin/sh
# Programs of somebody else, in C and in C++, find the installed library by pkg-config, by CMake and by hand, link it
# shared and static, the C program with the C driver alone, and run, wherever the tree was installed to.
#     installed_tree.sh CMAKE CC CXX BUILD SANDBOX...
set -eu
cmake=$1 cc=$2 cxx=$3 build=$4
shift 4 # what is left runs a program of the target, and lets it read the directory where it is run
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Installed to one place, used from another.
"$cmake" --install "$build" --prefix "$work/installed" >/dev/null
tree=$work/tree
mv "$work/installed" "$tree"
libraries=$(dirname "$(find "$tree" -name libvelkor.a)")

expected_c='a digest from C'
expected_cxx='a date from C++'
run() { # EXPECTED PROGRAM
    wanted=$1 program=$2
    shift 2
    answer=$(cd "$work" && LD_LIBRARY_PATH=$libraries "$@" "$program") || {
        echo "$program failed: $answer"
        exit 1
    }
    [ "$answer" = "$wanted" ] || {
        echo "$program says: $answer"
        exit 1
    }
}

PKG_CONFIG_PATH=$libraries/pkgconfig
PKG_CONFIG_LIBDIR=$PKG_CONFIG_PATH
export PKG_CONFIG_PATH PKG_CONFIG_LIBDIR
found=$(pkg-config --cflags --libs velkor-host)
# shellcheck disable=SC2086 # lists of words
{
    "$cc" -std=c99 "$here/consumer.c" $found -o "$work/c_by_pkg_config"
    "$cxx" -std=c++17 "$here/consumer.cpp" $found -o "$work/cxx_by_pkg_config"
}
run "$expected_c" "$work/c_by_pkg_config" "$@"
run "$expected_cxx" "$work/cxx_by_pkg_config" "$@"

"$cc" -std=c99 "$here/consumer.c" -I"$tree/include" -L"$libraries" -lvelkor -lvelkor-host -o "$work/c_by_hand"
"$cc" -std=c99 "$here/consumer.c" -I"$tree/include" "$libraries/libvelkor.a" "$libraries/libvelkor-host.a" -lpthread -lm \
    -o "$work/c_static"
run "$expected_c" "$work/c_by_hand" "$@"
run "$expected_c" "$work/c_static" "$@"

cat >"$work/CMakeLists.txt" <<TEXT
cmake_minimum_required(VERSION 3.22)
project(consumer C CXX)
find_package(velkor 1.0 REQUIRED)
add_executable(c_by_cmake "$here/consumer.c")
target_link_libraries(c_by_cmake velkor::velkor velkor::velkor-host)
add_executable(cxx_by_cmake "$here/consumer.cpp")
target_link_libraries(cxx_by_cmake velkor::velkor-static velkor::velkor-host-static)
TEXT
"$cmake" -G Ninja -S "$work" -B "$work/build" -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
    -Dvelkor_DIR="$libraries/cmake/velkor" >/dev/null
"$cmake" --build "$work/build" >/dev/null
run "$expected_c" "$work/build/c_by_cmake" "$@"
run "$expected_cxx" "$work/build/cxx_by_cmake" "$@"

answer=$(cd "$work" && LD_LIBRARY_PATH=$libraries "$@" "$tree/bin/velkor" --version)
case $answer in
*[0-9].[0-9]*) ;;
*)
    echo "the installed tool says: $answer"
    exit 1
    ;;
esac
echo 'found by pkg-config, by hand and by CMake, and run'

#!/bin/sh
# A C program finds the installed library by pkg-config, by CMake and by hand, and links it with the C driver alone,
# shared and static, wherever the tree was installed to.
#     installed_tree.sh CMAKE CC BUILD PROGRAM
set -eu
cmake=$1 cc=$2 build=$3 program=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build" --prefix "$work/tree" >/dev/null

PKG_CONFIG_PATH=$(dirname "$(find "$work/tree" -name velkor.pc)")
PKG_CONFIG_LIBDIR=$PKG_CONFIG_PATH
export PKG_CONFIG_PATH PKG_CONFIG_LIBDIR
# shellcheck disable=SC2046 # lists of words
"$cc" -std=c99 "$program" $(pkg-config --cflags --libs velkor-host) -o "$work/by_pkg_config"

libraries=$(dirname "$(find "$work/tree" -name libvelkor.a)")
"$cc" -std=c99 "$program" -I"$work/tree/include" "$libraries/libvelkor.a" "$libraries/libvelkor-host.a" -lpthread -lm \
    -o "$work/by_hand"

cat >"$work/CMakeLists.txt" <<TEXT
cmake_minimum_required(VERSION 3.22)
project(consumer C)
find_package(velkor REQUIRED)
add_executable(by_cmake "$program")
target_link_libraries(by_cmake velkor::velkor velkor::velkor-host)
TEXT
"$cmake" -G Ninja -S "$work" -B "$work/build" -DCMAKE_C_COMPILER="$cc" -Dvelkor_DIR="$libraries/cmake/velkor" >/dev/null
"$cmake" --build "$work/build" >/dev/null
echo 'found by pkg-config, by hand and by CMake'

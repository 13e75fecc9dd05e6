# The recorder's processor: 32-bit ARM, hard-float. Debian's cross compiler builds, user-mode emulation runs.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Not told a root of its own (-L): it would look up each path there first and then here, so that one path is two files.
# Whoever runs a program has the C library of this root in /lib (tests/support/sandbox.sh --lib).
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
set(VELKOR_TARGET_ROOT /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH ${VELKOR_TARGET_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)

# Any board's toolchain, its vendor's, Buildroot's, or the one that this project makes for itself (the preset `target`):
#
#     cmake -B build/board -G Ninja --toolchain cmake/board.cmake -DVELKOR_BOARD_PREFIX=/opt/sdk/bin/arm-board-linux-
#
#     VELKOR_BOARD_PREFIX    what its tools' names begin with, in front of "gcc", "g++", "ar"; with the folder, unless they
#                            are in PATH
#     VELKOR_BOARD_SYSROOT   the folder with its C library, in lib/ and usr/; not needed where the compiler knows it
#     VELKOR_BOARD_FLAGS     its processor, for example "-mcpu=cortex-a7 -mfpu=neon-vfpv4 -mfloat-abi=hard"; not needed
#                            where the compiler knows it
#
# Each of the three may be an environment variable instead.
set(settings VELKOR_BOARD_PREFIX VELKOR_BOARD_SYSROOT VELKOR_BOARD_FLAGS)
foreach(setting ${settings})
  if(NOT DEFINED ${setting})
    set(${setting} "$ENV{${setting}}" CACHE STRING "See cmake/board.cmake")
  endif()
endforeach()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ${settings})

set(CMAKE_C_COMPILER ${VELKOR_BOARD_PREFIX}gcc)
set(CMAKE_CXX_COMPILER ${VELKOR_BOARD_PREFIX}g++)
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_INIT "${VELKOR_BOARD_FLAGS}")
endforeach()

# The compiler knows its processor, and mostly its sysroot. Without a prefix it would be this machine's.
set(triple "")
if(VELKOR_BOARD_PREFIX)
  execute_process(COMMAND ${CMAKE_C_COMPILER} -dumpmachine OUTPUT_VARIABLE triple OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
if(NOT triple)
  message(FATAL_ERROR "VELKOR_BOARD_PREFIX is \"${VELKOR_BOARD_PREFIX}\", and there is no compiler ${CMAKE_C_COMPILER}")
endif()
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR "${triple}")
set(CMAKE_SYSTEM_NAME Linux)

set(root "${VELKOR_BOARD_SYSROOT}")
if(root)
  set(CMAKE_SYSROOT ${root})
else()
  execute_process(COMMAND ${CMAKE_C_COMPILER} -print-sysroot OUTPUT_VARIABLE root OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

# Libraries, headers and packages of the board alone. Those of the machine that builds are for another C library.
set(CMAKE_FIND_ROOT_PATH ${root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()

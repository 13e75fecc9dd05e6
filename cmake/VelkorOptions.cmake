# How this project's own code is compiled. Nothing here reaches whoever links the library.

option(VELKOR_STRICT "Warnings are errors (for the project's own builds)" OFF)
option(VELKOR_PROGRAMS "Build the command-line tool and the examples; the tests need them" ON)
option(VELKOR_BENCH "Build the benchmarks" OFF)
option(VELKOR_FUZZ "Build the fuzzers" OFF)
option(VELKOR_MAN "Make and install the manual pages; needs Doxygen and Python 3" OFF)
option(VELKOR_WHOLE_TOOL "Compile the command-line tool as one unit: quicker from nothing, slower after an edit" OFF)
option(VELKOR_COVERAGE "Count how often each line of src/ runs (GCC)" OFF)
set(VELKOR_SANITIZE "" CACHE STRING "Sanitizers to build with, for example address,undefined")

# GCC's C driver would otherwise be handed the C++ library for every target that holds C++ code.
set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")
# And the C++ driver the C library, in front of the compiler's unwinder: some have names in it that are the unwinder's.
set(CMAKE_C_IMPLICIT_LINK_LIBRARIES "")

# ccache only where it is installed: a build must not need it.
find_program(VELKOR_CCACHE ccache)
if(VELKOR_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${VELKOR_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${VELKOR_CCACHE})
endif()

# The recorder counts instructions in the cache before it counts them in the loop.
set(CMAKE_C_FLAGS_RELEASE "-O2 -g1")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g1")
set(CMAKE_C_FLAGS_RELWITHDEBINFO "-O2 -g1")
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1")

# Tests are built for every preset and run once: optimising them, half of which are their framework's templates, takes
# longer than running them. Where they are watched this holds for the command-line tool too.
set(VELKOR_QUICK_BUILD -O0)

add_library(velkor-warnings INTERFACE)
target_compile_options(velkor-warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wundef -Wvla -Wcast-qual -Wpointer-arith -Wconversion
  -Wsign-conversion $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  $<$<BOOL:${VELKOR_STRICT}>:-Werror>)

add_library(velkor-sanitizers INTERFACE)
if(VELKOR_SANITIZE)
  target_compile_options(velkor-sanitizers INTERFACE
    -fsanitize=${VELKOR_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(velkor-sanitizers INTERFACE -fsanitize=${VELKOR_SANITIZE})
endif()
# ThreadSanitizer does not see what a fence orders. Here fences stand between atomics only, where it has nothing to say.
if(VELKOR_SANITIZE MATCHES thread)
  target_compile_options(velkor-sanitizers INTERFACE -Wno-tsan)
endif()

# Counted are the lines of src/ alone. Counters of a process are written at its end, so the compiler must not put in calls
# that write and clear them before a fork or an exec: the child of vfork() has its parent's counters.
add_library(velkor-coverage INTERFACE)
if(VELKOR_COVERAGE)
  target_compile_options(velkor-coverage INTERFACE
    --coverage -fprofile-abs-path -fprofile-update=atomic -fno-builtin-fork -fno-builtin-execl)
  target_link_options(velkor-coverage INTERFACE --coverage)
endif()

# Code for the recorder: no exceptions, no run-time types, no C++ library at run time, 64-bit file sizes.
add_library(velkor-firmware-code INTERFACE)
target_compile_options(velkor-firmware-code INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
  $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:GNU>>:-fno-gnu-unique>)
target_compile_definitions(velkor-firmware-code INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
target_link_libraries(velkor-firmware-code INTERFACE velkor-warnings velkor-sanitizers)

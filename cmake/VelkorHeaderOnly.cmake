# A library that is headers alone, for whatever is built. As a package it is found where all packages are: for a board, in
# its sysroot, which rarely has it. The headers of the machine that builds are as good, but the folder that they are in
# also has those of another C library: what is looked into is a folder that holds a link to these headers, and no others.
#
#     velkor_header_only(CLI11 CLI11::CLI11 CLI CLI/CLI.hpp)
function(velkor_header_only package target folder header)
  find_package(${package} QUIET)
  if(TARGET ${target} OR NOT CMAKE_CROSSCOMPILING)
    return()
  endif()
  find_path(VELKOR_${package}_HEADERS ${header} PATHS /usr/local/include /usr/include
    DOC "A folder with ${header} of the machine that builds" NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT VELKOR_${package}_HEADERS)
    return()
  endif()
  set(alone ${PROJECT_BINARY_DIR}/header-only/${package})
  file(MAKE_DIRECTORY ${alone})
  file(CREATE_LINK ${VELKOR_${package}_HEADERS}/${folder} ${alone}/${folder} SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} SYSTEM INTERFACE ${alone})
endfunction()

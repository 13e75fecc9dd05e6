# What `cpack` makes of a build: two Debian packages for this machine, or, cross-compiled, a tarball for a board.

set(VELKOR_PACKAGE_CONTACT "libvelkor maintainers <maintainers@velkor.invalid>" CACHE STRING
  "Whom the Debian packages name as their maintainer")
set(VELKOR_PACKAGE_REVISION 1 CACHE STRING "How often this version was packaged for Debian")

# Whatever a package holds: cpack itself builds nothing.
add_custom_target(velkor-package-contents)
foreach(target velkor velkor-static velkor-host velkor-host-static velkor-tool velkor-man)
  if(TARGET ${target})
    add_dependencies(velkor-package-contents ${target})
  endif()
endforeach()

set(CPACK_PACKAGE_NAME libvelkor)
set(CPACK_PACKAGE_VENDOR libvelkor)
set(CPACK_PACKAGE_CONTACT ${VELKOR_PACKAGE_CONTACT})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package describes itself
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

if(CMAKE_CROSSCOMPILING)
  # The board: what runs, to be unpacked into any prefix. Named after what its compiler's name begins with.
  get_filename_component(board ${CMAKE_C_COMPILER} NAME)
  string(REGEX REPLACE "-?gcc.*$" "" board ${board})
  set(CPACK_GENERATOR TGZ)
  set(CPACK_PACKAGE_FILE_NAME libvelkor-${PROJECT_VERSION}-${board})
  set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
  set(CPACK_COMPONENTS_ALL runtime host-runtime)
  include(CPack)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENTS_ALL runtime development host-runtime host)
set(CPACK_COMPONENT_RUNTIME_GROUP library)
set(CPACK_COMPONENT_DEVELOPMENT_GROUP library)
set(CPACK_COMPONENT_HOST-RUNTIME_GROUP stand-ins)
set(CPACK_COMPONENT_HOST_GROUP stand-ins)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${VELKOR_PACKAGE_REVISION})
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src ${PROJECT_BINARY_DIR}/host)

set(same_version "(= ${PROJECT_VERSION}-${VELKOR_PACKAGE_REVISION})")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libvelkor-dev)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libvelkor-host-dev ${same_version}") # the tool runs on the stand-ins
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION
"${PROJECT_DESCRIPTION}
libvelkor gives the processes of a recorder a log pipeline, tracked
allocation, configuration files, queues, timers and workers, shell commands,
calendars, network checks and text helpers behind a C interface.

This package holds the library, its headers, the velkor tool, the manual
pages, and what pkg-config and CMake need to find it.")
set(CPACK_DEBIAN_STAND-INS_PACKAGE_NAME libvelkor-host-dev)
set(CPACK_DEBIAN_STAND-INS_PACKAGE_RECOMMENDS "libvelkor-dev ${same_version}")
set(CPACK_DEBIAN_STAND-INS_DESCRIPTION
"stand-ins for a recorder's other libraries, to run libvelkor on a PC
libvelkor leaves the functions of the firmware undefined. This package
brings them for a PC: ring buffer, memory pools, thread registry, disks, time
service, network configuration, character sets and an operation log.

It is never linked on a recorder.")

# What dpkg runs and reads beside the files. The list of symbols is written when the library is there to be read.
set(CPACK_VELKOR_CONTROL_DIR ${PROJECT_BINARY_DIR}/debian)
foreach(entry LIBRARY=libvelkor-dev=libvelkor STAND-INS=libvelkor-host-dev=libvelkor-host)
  string(REGEX MATCH "^(.+)=(.+)=(.+)$" entry ${entry})
  set(control ${CPACK_VELKOR_CONTROL_DIR}/${CMAKE_MATCH_2})
  # dpkg-gensymbols wants to see that it stands in a package's sources, and what a user of the library builds with.
  file(CONFIGURE OUTPUT ${control}/debian/control
    CONTENT "Source: libvelkor\n\nPackage: ${CMAKE_MATCH_2}\nArchitecture: any\n")
  file(CONFIGURE OUTPUT ${control}/debian/symbols
    CONTENT "${CMAKE_MATCH_3}.so.1 ${CMAKE_MATCH_2} #MINVER#\n* Build-Depends-Package: ${CMAKE_MATCH_2}\n")
  file(CONFIGURE OUTPUT ${control}/triggers CONTENT "activate-noawait ldconfig\n")
  file(CONFIGURE OUTPUT ${control}/shlibs
    CONTENT "${CMAKE_MATCH_3} 1 ${CMAKE_MATCH_2} (>= ${PROJECT_VERSION})\n")
  set(CPACK_DEBIAN_${CMAKE_MATCH_1}_PACKAGE_CONTROL_EXTRA ${control}/triggers ${control}/shlibs ${control}/symbols)
endforeach()

set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/finish_debian.cmake)
set(CPACK_VELKOR_SOURCE_DIR ${PROJECT_SOURCE_DIR})
set(CPACK_VELKOR_VERSION ${PROJECT_VERSION})
set(CPACK_VELKOR_STRIP ${CMAKE_STRIP})
set(CPACK_VELKOR_PACKAGES library=libvelkor-dev stand-ins=libvelkor-host-dev)
include(CPack)

# What `cmake --install` puts where, and how an outside project finds it: by find_package(velkor) or by pkg-config.
# Components: runtime and host-runtime are what runs, development and host are what is built against.
include(CMakePackageConfigHelpers)

install(TARGETS velkor velkor-static EXPORT velkor-targets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)
install(TARGETS velkor-host velkor-host-static EXPORT velkor-host-targets
  LIBRARY COMPONENT host-runtime NAMELINK_COMPONENT host
  ARCHIVE COMPONENT host)
if(TARGET velkor-tool)
  install(TARGETS velkor-tool COMPONENT runtime)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/velkor DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/host/include/velkor_host.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT host)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/velkor)
install(EXPORT velkor-targets NAMESPACE velkor:: DESTINATION ${package_directory} COMPONENT development)
install(EXPORT velkor-host-targets NAMESPACE velkor:: DESTINATION ${package_directory} COMPONENT host)
configure_package_config_file(cmake/velkor-config.cmake.in ${PROJECT_BINARY_DIR}/velkor-config.cmake
  INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velkor-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velkor-config.cmake ${PROJECT_BINARY_DIR}/velkor-config-version.cmake
  DESTINATION ${package_directory} COMPONENT development)

file(RELATIVE_PATH VELKOR_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
foreach(module velkor velkor-host)
  configure_file(cmake/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/velkor.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/velkor-host.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT host)

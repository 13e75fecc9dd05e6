# What `cmake --install` puts where, and how an outside project finds it: by find_package(velkor) or by pkg-config.
include(CMakePackageConfigHelpers)

install(TARGETS velkor velkor-static EXPORT velkor-targets COMPONENT velkor)
install(TARGETS velkor-host velkor-host-static EXPORT velkor-host-targets COMPONENT velkor-host)
if(TARGET velkor-tool)
  install(TARGETS velkor-tool COMPONENT velkor)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/velkor DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT velkor)
install(FILES ${PROJECT_SOURCE_DIR}/host/include/velkor_host.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT velkor-host)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/velkor)
install(EXPORT velkor-targets NAMESPACE velkor:: DESTINATION ${package_directory} COMPONENT velkor)
install(EXPORT velkor-host-targets NAMESPACE velkor:: DESTINATION ${package_directory} COMPONENT velkor-host)
configure_package_config_file(cmake/velkor-config.cmake.in ${PROJECT_BINARY_DIR}/velkor-config.cmake
  INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velkor-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velkor-config.cmake ${PROJECT_BINARY_DIR}/velkor-config-version.cmake
  DESTINATION ${package_directory} COMPONENT velkor)

file(RELATIVE_PATH VELKOR_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
foreach(module velkor velkor-host)
  configure_file(cmake/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${module}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${module})
endforeach()

# The last touches to the trees that become Debian packages: what Debian's policy asks beyond the installed files.
# CPack runs this between installing and packing, with its variables set.

# One date for all that is packed, so that the same sources give the same packages.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  set(date $ENV{SOURCE_DATE_EPOCH})
else()
  file(TIMESTAMP ${CPACK_VELKOR_SOURCE_DIR}/CHANGELOG.md date "%s" UTC)
endif()

foreach(entry IN LISTS CPACK_VELKOR_PACKAGES)
  string(REGEX MATCH "^(.+)=(.+)$" entry ${entry})
  set(group ${CMAKE_MATCH_1})
  set(package ${CMAKE_MATCH_2})
  set(tree ${CPACK_TEMPORARY_DIRECTORY}/${group}/usr)
  set(documents ${tree}/share/doc/${package})

  file(REMOVE_RECURSE ${tree}/share/doc)
  file(MAKE_DIRECTORY ${documents} ${tree}/share/lintian/overrides)
  file(COPY_FILE ${CPACK_VELKOR_SOURCE_DIR}/packaging/copyright ${documents}/copyright)
  execute_process(
    COMMAND ${CPACK_VELKOR_SOURCE_DIR}/packaging/debian_changelog.sh libvelkor ${CPACK_DEBIAN_PACKAGE_RELEASE}
      ${CPACK_PACKAGE_CONTACT} ${date}
    INPUT_FILE ${CPACK_VELKOR_SOURCE_DIR}/CHANGELOG.md OUTPUT_FILE ${documents}/changelog.Debian
    COMMAND_ERROR_IS_FATAL ANY)
  file(COPY_FILE ${CPACK_VELKOR_SOURCE_DIR}/packaging/${package}.lintian-overrides
    ${tree}/share/lintian/overrides/${package})

  file(GLOB_RECURSE pages ${tree}/share/man/*.[1-9])
  execute_process(COMMAND gzip -9nf ${documents}/changelog.Debian ${pages} COMMAND_ERROR_IS_FATAL ANY)

  # CMake strips programs and shared libraries only, and leaves the compiler's notes.
  file(GLOB_RECURSE libraries ${tree}/lib/*.so.*.*)
  file(GLOB programs ${tree}/bin/*)
  file(GLOB_RECURSE archives ${tree}/*.a)
  set(notes --remove-section=.comment --remove-section=.note)
  execute_process(COMMAND ${CPACK_VELKOR_STRIP} --strip-unneeded ${notes} ${libraries} ${programs}
    COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${CPACK_VELKOR_STRIP} --strip-debug --enable-deterministic-archives ${notes} ${archives}
    COMMAND_ERROR_IS_FATAL ANY)

  set(control ${CPACK_VELKOR_CONTROL_DIR}/${package})
  execute_process(
    COMMAND dpkg-gensymbols -p${package} -v${CPACK_VELKOR_VERSION} -P${CPACK_TEMPORARY_DIRECTORY}/${group}
      -Idebian/symbols -O${control}/symbols -q
    WORKING_DIRECTORY ${control} COMMAND_ERROR_IS_FATAL ANY)

  execute_process(COMMAND find ${tree} -exec touch --no-dereference --date=@${date} {} +
    COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND chmod -R u=rwX,go=rX ${tree} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

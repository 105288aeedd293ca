# Run by cpack on the folders that become packages: changelog, copyright and compressed man pages.
string(TIMESTAMP _date "%a, %d %b %Y %H:%M:%S +0000" UTC)  # of SOURCE_DATE_EPOCH, when it is set

foreach(_pair IN LISTS CPACK_TAVRIN_PACKAGES)
  string(REGEX MATCH "^(.*)=(.*)$" _pair "${_pair}")
  set(_root "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${CMAKE_MATCH_1}/usr")
  set(_documents "${_root}/share/doc/${CMAKE_MATCH_2}")
  file(WRITE "${_documents}/changelog.Debian"
    "tavrin (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium\n\n"
    "  * Version ${CPACK_PACKAGE_VERSION}; CHANGELOG.md of the sources says what is new.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${_date}\n")
  file(COPY "${CPACK_TAVRIN_COPYRIGHT}" DESTINATION "${_documents}"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  file(GLOB _pages "${_root}/share/man/man1/*.1")
  execute_process(COMMAND gzip -9n "${_documents}/changelog.Debian" ${_pages} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

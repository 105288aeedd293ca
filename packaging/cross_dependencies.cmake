# Run by cpack before it begins, for another machine's packages: dpkg-shlibdeps finds the cross compiler's libraries, which
# have names of their own there, and the machine's names are made from those.
set(_folder "${CPACK_PACKAGE_DIRECTORY}/dependencies")
file(WRITE "${_folder}/debian/control" "Source: tavrin\n\nPackage: tavrin\nArchitecture: any\n")
set(_runtime_folder "${CPACK_TAVRIN_RUNTIME}")
cmake_path(GET _runtime_folder PARENT_PATH _runtime_folder)
execute_process(
  COMMAND "${CMAKE_COMMAND}" -E env DEB_HOST_ARCH=${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}
    dpkg-shlibdeps --ignore-missing-info -O "-l${_runtime_folder}" "-l${CPACK_TAVRIN_CROSS_LIBRARIES}"
    "${CPACK_TAVRIN_LIBRARY}" "${CPACK_TAVRIN_RUNTIME}"
  WORKING_DIRECTORY "${_folder}" OUTPUT_VARIABLE _depends ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE
  COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "^shlibs:Depends=|:arm64|-arm64-cross" "" CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "${_depends}")

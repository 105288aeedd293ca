# Untested; see ../README.md. Builds the sources that the port lies in.
get_filename_component(SOURCE_PATH "${CURRENT_PORT_DIR}/../.." ABSOLUTE)
foreach(prefix IN ITEMS TAVRIN_PFFFT_PREFIX TAVRIN_RUNTIME_PREFIX)
  if("$ENV{${prefix}}" STREQUAL "")
    message(FATAL_ERROR "set ${prefix}, and name it in VCPKG_KEEP_ENV_VARS; packaging/README.md says to what")
  endif()
endforeach()

string(COMPARE EQUAL "${VCPKG_LIBRARY_LINKAGE}" "dynamic" SHARED)
vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS
    "-DBUILD_SHARED_LIBS=${SHARED}"
    "-Dpffft_ROOT=$ENV{TAVRIN_PFFFT_PREFIX}"
    "-Donnxruntime_ROOT=$ENV{TAVRIN_RUNTIME_PREFIX}"
    -DTAVRIN_INSTALL=ON
    -DTAVRIN_BUILD_TOOLS=OFF
    -DTAVRIN_BUILD_EXAMPLES=OFF
    -DTAVRIN_BUILD_TESTS=OFF
    -DTAVRIN_BUILD_PYTHON=OFF
    -DTAVRIN_INSTALL_RUNTIME=ON)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(CONFIG_PATH lib/cmake/tavrin)
vcpkg_fixup_pkgconfig()
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE")

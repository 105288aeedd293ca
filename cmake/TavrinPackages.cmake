# Debian packages, built by cpack -G DEB (make package): the library with its runtime in a folder of its own, where no
# other program's loader looks; what a developer needs; the commands with their models.
file(READ /etc/os-release _system)
string(REGEX REPLACE ".*\nVERSION_ID=\"?([0-9.]+).*" "\\1" _system "\n${_system}")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavrin)
set(CPACK_PACKAGE_CONTACT "The Tavrin developers <developers@tavrin.example>")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development)
if(TAVRIN_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools models)
endif()
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENT_RUNTIME_GROUP library)
set(CPACK_COMPONENT_DEVELOPMENT_GROUP development)
set(CPACK_COMPONENT_TOOLS_GROUP commands)
set(CPACK_COMPONENT_MODELS_GROUP commands)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE "1~deb${_system}")  # one build for each release: FFmpeg's libraries have other names
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/src")
cmake_path(GET onnxruntime_LIBRARY PARENT_PATH _runtime_folder)
if(TAVRIN_INSTALL_RUNTIME)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${_runtime_folder}")
endif()
if(CMAKE_CROSSCOMPILING)
  # dpkg-shlibdeps, which cpack calls, looks for the libraries of the machine in DEB_HOST_ARCH.
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
  set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_BINARY_DIR}/packages/cross.cmake")
  file(WRITE "${CPACK_PROJECT_CONFIG_FILE}" "set(ENV{DEB_HOST_ARCH} ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE})\n")
endif()

set(_so_version "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}")
set(_library "libtavrin-proc${_so_version}")
set(_same "${_library} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${_library})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "The library takes a stereo stream in blocks of any size and returns its
stems, found by a neural network in the ONNX format, sample for sample
in place. Memory is bounded; nothing is read from disk and nothing is
printed.")
file(CONFIGURE OUTPUT packages/triggers CONTENT "activate-noawait ldconfig\n")
file(CONFIGURE OUTPUT packages/shlibs CONTENT "libtavrin_proc ${_so_version} ${_library} (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
  "${PROJECT_BINARY_DIR}/packages/triggers" "${PROJECT_BINARY_DIR}/packages/shlibs")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtavrin-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${_same}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "tavrin, libxtensor-dev, libxsimd-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "What developers need: headers for C++ and C, and the packages for CMake
and pkg-config. The engine's own classes (component pipeline) need
xtensor and xsimd as well.")

set(CPACK_DEBIAN_COMMANDS_PACKAGE_NAME tavrin)
set(CPACK_DEBIAN_COMMANDS_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_COMMANDS_PACKAGE_DEPENDS "${_same}")
set(CPACK_COMPONENT_COMMANDS_DESCRIPTION "The commands: tavrin-separate writes the stems of songs beside them;
tavrin-model shows what a model in the ONNX format is and whether it can
be used. They come with models that are formulas, not trained networks.")

# The licences of all that is inside. The notices lie beside the headers' folder, in a set-up's tree as in a system's.
get_target_property(_headers xtensor INTERFACE_INCLUDE_DIRECTORIES)
list(GET _headers 0 _headers)
file(GLOB _notices "${_headers}/../share/doc/libxtensor-dev/copyright" "${_headers}/../share/doc/xtl-dev/copyright"
  "${_headers}/../share/doc/libxsimd-dev/copyright" "${_headers}/../share/doc/libplog-dev/copyright"
  "${pffft_INCLUDE_DIR}/../COPYING")
foreach(_file IN LISTS _notices)
  file(READ "${_file}" _notice)
  string(APPEND _all_notices "\n---\n\n${_notice}")
endforeach()
file(READ LICENSE _licence)
string(REGEX REPLACE "^.*(Permission is)" "\\1" _licence "${_licence}")
configure_file(packaging/copyright packages/copyright @ONLY)

# Documents in Debian's places, man pages compressed.
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/packaging/debian_documents.cmake")
set(CPACK_TAVRIN_COPYRIGHT "${PROJECT_BINARY_DIR}/packages/copyright")
set(CPACK_TAVRIN_PACKAGES "library=${_library}" "development=libtavrin-dev")
if(TAVRIN_BUILD_TOOLS)
  list(APPEND CPACK_TAVRIN_PACKAGES "commands=tavrin")
endif()
include(CPack)

# Builds and runs the example of a host with COMPILER and what pkg-config says about the tree at PREFIX.
set(ENV{PKG_CONFIG_LIBDIR} "${PREFIX}/${LIBDIR}/pkgconfig")  # and nowhere else
execute_process(COMMAND "${PKG_CONFIG}" --cflags --libs tavrin
  OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${PKG_CONFIG}" --variable=models tavrin
  OUTPUT_VARIABLE models OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags UNIX_COMMAND "${flags}")
file(MAKE_DIRECTORY "${WORK}")
execute_process(
  COMMAND "${COMPILER}" -std=c++17 -Wall -Wextra -Wpedantic -Werror
    "${CMAKE_CURRENT_LIST_DIR}/../../examples/minimal_host.cpp" ${flags} "-Wl,-rpath,${PREFIX}/${LIBDIR}"
    -o "${WORK}/consumer"
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(
  COMMAND "${CMAKE_COMMAND}" -DHOST=./consumer -DMODEL=${models}/centre.onnx
    -P "${CMAKE_CURRENT_LIST_DIR}/../examples/minimal_host.cmake"
  WORKING_DIRECTORY "${WORK}" COMMAND_ERROR_IS_FATAL ANY)

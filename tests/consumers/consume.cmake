# Configures the project SOURCE in BINARY_DIR, builds it and runs its program "consumer": one of the examples' hosts on the
# model whose place the project has written down, or a program that looks at its own results.
execute_process(
  COMMAND "${CMAKE_COMMAND}" -S "${SOURCE}" -B "${BINARY_DIR}" -G "${GENERATOR}" --no-warn-unused-cli
    "-DCMAKE_PREFIX_PATH=${PREFIX_PATH}" ${OPTIONS}
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${BINARY_DIR}" --parallel 2 COMMAND_ERROR_IS_FATAL ANY)
if(EXISTS "${BINARY_DIR}/model.txt")
  file(READ "${BINARY_DIR}/model.txt" MODEL)
  execute_process(
    COMMAND "${CMAKE_COMMAND}" -DHOST=./consumer -DMODEL=${MODEL} -P "${CMAKE_CURRENT_LIST_DIR}/../examples/minimal_host.cmake"
    WORKING_DIRECTORY "${BINARY_DIR}" COMMAND_ERROR_IS_FATAL ANY)
else()
  execute_process(COMMAND "${BINARY_DIR}/consumer" COMMAND_ERROR_IS_FATAL ANY)
endif()

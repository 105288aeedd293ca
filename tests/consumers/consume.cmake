# Configures the project SOURCE in BINARY_DIR, builds it and runs its program "consumer".
execute_process(
  COMMAND "${CMAKE_COMMAND}" -S "${SOURCE}" -B "${BINARY_DIR}" -G "${GENERATOR}" --no-warn-unused-cli
    "-DCMAKE_PREFIX_PATH=${PREFIX_PATH}" ${OPTIONS}
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${BINARY_DIR}" --parallel 2 COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${BINARY_DIR}/consumer" COMMAND_ERROR_IS_FATAL ANY)

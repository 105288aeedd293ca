# Compares the symbols that LIBRARY exports, demangled, with the list in EXPECTED. Run with -DUPDATE=ON to rewrite it.
execute_process(COMMAND "${NM}" --dynamic --defined-only --demangle --format=posix "${LIBRARY}"
  OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE " [A-Za-z] [0-9a-f]+( [0-9a-f]+)?\n" "\n" listing "${listing}")
string(REGEX REPLACE "\n$" "" listing "${listing}")
# Constructors and destructors stand there once per variant.
string(REPLACE "\n" ";" symbols "${listing}")
list(SORT symbols)
list(REMOVE_DUPLICATES symbols)
list(JOIN symbols "\n" found)
if(UPDATE)
  file(WRITE "${EXPECTED}" "${found}\n")
  return()
endif()
file(READ "${EXPECTED}" expected)
if(NOT "${found}\n" STREQUAL expected)
  message(FATAL_ERROR "The exported symbols differ from ${EXPECTED}; found:\n${found}")
endif()

# Installs BUILD, moves the tree to PREFIX, and looks for traces of the places that it came from.
file(REMOVE_RECURSE "${WORK}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${WORK}/installed"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME "${WORK}/installed" "${PREFIX}")

file(GLOB_RECURSE texts "${PREFIX}/*.cmake" "${PREFIX}/*.pc" "${PREFIX}/*.h" "${PREFIX}/*.md" "${PREFIX}/*.1")
if(NOT texts)
  message(FATAL_ERROR "nothing was installed to ${PREFIX}")
endif()
foreach(text IN LISTS texts)
  file(READ "${text}" content)
  foreach(place IN ITEMS "${WORK}" "${BUILD}" "${SOURCE}")
    string(FIND "${content}" "${place}" found)
    if(NOT found EQUAL -1)
      message(FATAL_ERROR "${text} names ${place}")
    endif()
  endforeach()
endforeach()

# The commands, too, find their library and its runtime where they have been moved to.
file(GLOB commands "${PREFIX}/bin/*")
foreach(command IN LISTS commands)
  execute_process(COMMAND "${command}" --version COMMAND_ERROR_IS_FATAL ANY)
endforeach()

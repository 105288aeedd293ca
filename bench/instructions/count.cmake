# Counts the instructions of one block through the pipeline and of its bare transforms, which is repeatable on a busy
# machine, and fails when the first is more than BOUND percent of the second.
#
#   cmake -DVALGRIND=… -DPROGRAM=… -DBOUND=125 -P count.cmake
function(count function result)
  execute_process(
    COMMAND "${VALGRIND}" --tool=callgrind --callgrind-out-file=/dev/null "--toggle-collect=${function}*" "${PROGRAM}"
    ERROR_VARIABLE log RESULT_VARIABLE code)
  if(NOT code EQUAL 0 OR NOT log MATCHES "Collected : ([0-9]+)")
    message(FATAL_ERROR "callgrind gave no count for ${function}:\n${log}")
  endif()
  set(${result} "${CMAKE_MATCH_1}" PARENT_SCOPE)
endfunction()

count(countedTransforms floor)
count(countedPipeline pipeline)
math(EXPR percent "(100 * ${pipeline} + ${floor} / 2) / ${floor}")
message("bare transforms ${floor}, pipeline ${pipeline} instructions: ${percent} % (at most ${BOUND} %)")
if(floor LESS 1000000 OR percent GREATER BOUND)
  message(FATAL_ERROR "the pipeline around the transforms has become more expensive; make bench shows where")
endif()

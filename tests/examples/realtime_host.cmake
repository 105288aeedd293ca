# Plays 16 seconds of noise in four, with the latency of half a second: the output is that of the plain host, later by
# the delay that the host names. Bit by bit, because the model looks at one frame at a time.
string(RANDOM LENGTH 5600000 ALPHABET ":<=>?" RANDOM_SEED 1 song)  # four such bytes are a float between 0.0007 and 0.8
file(WRITE live.f32 "${song}")
execute_process(COMMAND "${HOST}" "${MODEL}" live.f32 live_stem.f32 0.5 2 4 OUTPUT_QUIET ERROR_VARIABLE said
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${PLAIN_HOST}" "${MODEL}" live.f32 plain_stem.f32 OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
if(NOT said MATCHES "delay: ([0-9]+) samples, underruns: 0\n")
  message(FATAL_ERROR "the host said: ${said}")
endif()

math(EXPR late "8 * ${CMAKE_MATCH_1}")
file(SIZE live_stem.f32 size)
math(EXPR heard "${size} - ${late}")
file(READ live_stem.f32 silence LIMIT ${late} HEX)
file(READ live_stem.f32 live OFFSET ${late} HEX)
file(READ plain_stem.f32 plain LIMIT ${heard} HEX)
string(REPEAT "00" ${late} zeros)
if(heard LESS 2100000)  # more than one model call
  message(FATAL_ERROR "only ${heard} bytes were heard")
elseif(NOT silence STREQUAL zeros OR NOT live STREQUAL plain)
  message(FATAL_ERROR "the live stem is not the plain host's, ${late} bytes later")
endif()

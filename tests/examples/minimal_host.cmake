# Runs HOST, which takes the minimal host's arguments, on 15 000 stereo samples: MODEL gives what both channels share, and
# here that is all. Then on an empty model and on a file that is no model: the library's exceptions reach the host.
string(REPEAT "tun>" 30000 song)  # as a float, each is 0.23
file(WRITE song.f32 "${song}")
execute_process(COMMAND "${HOST}" "${MODEL}" song.f32 stem.f32 COMMAND_ERROR_IS_FATAL ANY)
file(SIZE stem.f32 size)
file(READ stem.f32 middle OFFSET 56000 LIMIT 8000 HEX)
if(NOT size EQUAL 120000 OR NOT middle MATCHES "^(....6e3e)+$")  # 0.2324 to 0.2334
  message(FATAL_ERROR "120000 bytes in, ${size} bytes out, in their middle ${middle}")
endif()
file(WRITE empty.onnx "")
foreach(none IN ITEMS empty.onnx song.f32)
  execute_process(COMMAND "${HOST}" ${none} song.f32 stem.f32 RESULT_VARIABLE result ERROR_VARIABLE said)
  if(NOT result EQUAL 3 OR NOT said MATCHES ": .*model")
    message(FATAL_ERROR "exit code ${result} without a model: ${said}")
  endif()
endforeach()

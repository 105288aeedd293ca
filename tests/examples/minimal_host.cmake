# Runs the minimal host on 15 000 stereo samples and looks for as many in its output; then without a model.
string(REPEAT "tun>" 30000 song)  # as a float, each is 0.23
file(WRITE song.f32 "${song}")
execute_process(COMMAND "${HOST}" "${MODEL}" song.f32 stem.f32 COMMAND_ERROR_IS_FATAL ANY)
file(SIZE stem.f32 size)
if(NOT size EQUAL 120000)
  message(FATAL_ERROR "120000 bytes in, ${size} bytes out")
endif()
execute_process(COMMAND "${HOST}" nowhere.onnx song.f32 stem.f32 RESULT_VARIABLE result)
if(NOT result EQUAL 3)
  message(FATAL_ERROR "exit code ${result} without a model")
endif()

# Separates a WAV file from Python. It has four seconds of a tone in both channels, which are the model's centre, then
# four of the left channel alone, which are not.
file(WRITE make_song.py [[
import array, math, wave
tone = [round(9000 * math.sin(0.06 * i)) for i in range(4 * 44100)]
with wave.open("song.wav", "wb") as song:
    song.setparams((2, 2, 44100, 0, "NONE", ""))
    for gain in 1, 0:
        song.writeframes(array.array("h", (s for left in tone for s in (left, gain * left))).tobytes())
]])
file(WRITE check_stem.py [[
import array, wave
song, stem = (wave.open(name) for name in ("song.wav", "stem.wav"))
assert song.getparams() == stem.getparams(), stem.getparams()
song, stem = (array.array("h", file.readframes(8 * 44100)) for file in (song, stem))
middle, left_only = range(44100, 6 * 44100), range(10 * 44100, 15 * 44100)
assert max(abs(song[i] - stem[i]) for i in middle) <= 1
assert max(abs(stem[i]) for i in left_only) <= 1
]])
execute_process(COMMAND "${PYTHON}" make_song.py COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${PYTHON}" "${SCRIPT}" "${LIBRARY}" "${MODEL}" song.wav stem.wav COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${PYTHON}" check_stem.py COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${PYTHON}" "${SCRIPT}" "${LIBRARY}" song.wav song.wav stem.wav
  RESULT_VARIABLE result ERROR_VARIABLE said)
if(NOT result EQUAL 1 OR NOT said MATCHES "separate_wav.py: .*ONNX model")
  message(FATAL_ERROR "exit code ${result} without a model: ${said}")
endif()

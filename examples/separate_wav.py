#!/usr/bin/env python3
"""Separates a 16-bit stereo WAV file into a model's first stem, with the C interface and the standard library alone:
separate_wav.py LIBRARY MODEL.onnx SONG.wav STEM.wav"""
import array
import ctypes
import pathlib
import sys
import wave
from ctypes import byref, c_char_p, c_double, c_float, c_int, c_size_t, c_void_p

BLOCK = 65536  # samples per channel; any size will do


class SeparatorConfig(ctypes.Structure):
    _fields_ = [("struct_size", c_size_t), ("stems", c_void_p), ("stem_count", c_size_t), ("rest", c_int),
                ("planar", c_int), ("latency", c_double), ("context", c_size_t)]


library_path, model_path, song_path, stem_path = sys.argv[1:]
library = ctypes.CDLL(library_path)
library.tavrin_last_error.restype = c_char_p
for question in "output_count", "latency":
    library["tavrin_separator_" + question].restype = c_size_t


def call(name, *arguments):
    """Calls a function that returns a status."""
    if library["tavrin_" + name](*arguments) != 0:
        sys.exit(f"separate_wav.py: {library.tavrin_last_error().decode()}")


bytes_of_model = pathlib.Path(model_path).read_bytes()
model, separator, written = c_void_p(), c_void_p(), c_size_t()
call("model_create", bytes_of_model, c_size_t(len(bytes_of_model)), None, byref(model))
config = SeparatorConfig(struct_size=ctypes.sizeof(SeparatorConfig))  # every stem, interleaved
call("separator_create", model, byref(config), byref(separator))
capacity = library.tavrin_separator_latency(separator) + BLOCK  # enough for every call
out = (c_float * (2 * capacity))()
# One pointer for each output; null for all but the first, so these are not written.
outputs = (c_void_p * library.tavrin_separator_output_count(separator))(ctypes.addressof(out))

with wave.open(song_path) as song, wave.open(stem_path, "wb") as stem:
    if (song.getnchannels(), song.getsampwidth()) != (2, 2):
        sys.exit(f"separate_wav.py: {song_path} is not a 16-bit stereo file")
    stem.setparams(song.getparams())
    samples = True
    while samples:
        samples = array.array("h", song.readframes(BLOCK))
        if samples:
            block = (c_float * len(samples))(*(sample / 32768 for sample in samples))
            start = c_void_p(ctypes.addressof(block))
            call("separator_process", separator, byref(start), c_size_t(len(samples) // 2), outputs, c_size_t(capacity),
                 byref(written))
        else:
            call("separator_finish", separator, outputs, c_size_t(capacity), byref(written))
        clipped = (max(-32768, min(32767, round(32768 * sample))) for sample in out[:2 * written.value])
        stem.writeframes(array.array("h", clipped).tobytes())
library.tavrin_separator_destroy(separator)
library.tavrin_model_destroy(model)

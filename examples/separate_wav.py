#!/usr/bin/env python3
"""Separates a 16-bit stereo WAV file through the C interface:  separate_wav.py LIBRARY MODEL.onnx SONG.wav STEM.wav"""
import array
import ctypes
import pathlib
import sys
import wave
from ctypes import byref, c_char_p, c_float, c_int, c_size_t, c_void_p

BLOCK = 65536  # samples per channel; any size will do


class StreamConfig(ctypes.Structure):
    _fields_ = [("struct_size", c_size_t), ("tag", c_char_p), ("rest", c_int), ("planar", c_int)]


library_path, model_path, song_path, stem_path = sys.argv[1:]
library = ctypes.CDLL(library_path)
library.tavrin_last_error.restype = c_char_p
library.tavrin_latency.restype = c_size_t


def call(name, *arguments):
    """Calls a function that returns a status."""
    if library["tavrin_" + name](*arguments) != 0:
        sys.exit(f"separate_wav.py: {library.tavrin_last_error().decode()}")


model = pathlib.Path(model_path).read_bytes()
call("load", b"model", model, c_size_t(len(model)), None, c_size_t(0))
stream, written = c_void_p(), c_size_t()
call("stream_create", byref(StreamConfig(ctypes.sizeof(StreamConfig), b"model")), byref(stream))
capacity = library.tavrin_latency() + BLOCK  # enough for every call
out = (c_float * (2 * capacity))()

with wave.open(song_path) as song, wave.open(stem_path, "wb") as stem:
    if (song.getnchannels(), song.getsampwidth()) != (2, 2):
        sys.exit(f"separate_wav.py: {song_path} is not a 16-bit stereo file")
    stem.setparams(song.getparams())
    samples = True
    while samples:
        samples = array.array("h", song.readframes(BLOCK))
        if samples:
            block = (c_float * len(samples))(*(sample / 32768 for sample in samples))
            call("stream_process", stream, block, c_size_t(len(samples) // 2), out, c_size_t(capacity), byref(written))
        else:
            call("stream_finish", stream, out, c_size_t(capacity), byref(written))
        clipped = (max(-32768, min(32767, round(32768 * sample))) for sample in out[:2 * written.value])
        stem.writeframes(array.array("h", clipped).tobytes())
library.tavrin_stream_destroy(stream)

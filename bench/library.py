"""The library from Python, through its C interface: a whole signal in one call."""

import ctypes
from ctypes import byref, c_char_p, c_double, c_int, c_size_t, c_void_p

import numpy


class Config(ctypes.Structure):
    _fields_ = [("struct_size", c_size_t), ("stems", c_void_p), ("stem_count", c_size_t), ("rest", c_int),
                ("planar", c_int), ("latency", c_double), ("context", c_size_t)]


class Options(ctypes.Structure):
    _fields_ = [("struct_size", c_size_t), ("providers", c_void_p), ("provider_count", c_size_t), ("strict", c_int),
                ("threads", c_size_t), ("key", c_void_p), ("key_size", c_size_t)]


class Library:
    def __init__(self, path):
        self.library = ctypes.CDLL(str(path))
        for name in ("last_error", "separator_output_name"):
            getattr(self.library, "tavrin_" + name).restype = c_char_p
        for name in ("separator_output_count", "separator_output_for", "separator_pending"):
            getattr(self.library, "tavrin_" + name).restype = c_size_t

    def call(self, name, *arguments):
        if self.library["tavrin_" + name](*arguments) != 0:
            raise RuntimeError(self.library.tavrin_last_error().decode())

    def separate(self, model, audio, context=0, rest=False, threads=0):
        """{stem: float [2, samples]} of audio [2, samples] and the model's bytes."""
        handle, separator, written = c_void_p(), c_void_p(), c_size_t()
        options = Options(struct_size=ctypes.sizeof(Options), threads=threads)
        self.call("model_create", model, c_size_t(len(model)), byref(options), byref(handle))
        config = Config(struct_size=ctypes.sizeof(Config), planar=1, rest=rest, context=context)
        try:
            self.call("separator_create", handle, byref(config), byref(separator))
            return self.run(separator, numpy.ascontiguousarray(audio, numpy.float32), written)
        finally:
            self.library.tavrin_separator_destroy(separator)
            self.library.tavrin_model_destroy(handle)

    def run(self, separator, audio, written):
        count, samples = self.library.tavrin_separator_output_count(separator), audio.shape[1]
        out = numpy.zeros((count, 2, samples), numpy.float32)

        def rows(start):
            return (c_void_p * (2 * count))(*(row[start:].ctypes.data for row in out.reshape(-1, samples)))

        inputs = (c_void_p * 2)(*(row.ctypes.data for row in audio))
        room = c_size_t(samples)
        self.call("separator_process", separator, inputs, c_size_t(samples), rows(0), room, byref(written))
        done = written.value
        self.call("separator_finish", separator, rows(done), c_size_t(samples - done), byref(written))
        assert done + written.value == samples
        names = [self.library.tavrin_separator_output_name(separator, k).decode() for k in range(count)]
        return dict(zip(names, out))

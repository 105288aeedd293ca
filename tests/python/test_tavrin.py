"""The Python package as its users see it, on the module of a build or on an installed wheel.

TAVRIN_HOST is the minimal host in C++, whose bits are compared.
"""
import concurrent.futures
import os
import pickle
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

import numpy
import pytest

import tavrin

MODELS = Path(__file__).parents[1] / "models"
NOISE = numpy.random.default_rng(1).uniform(-0.5, 0.5, (300_000, 2)).astype("float32")
CENTRE = tavrin.Model("centre")
WHOLE = tavrin.separate(CENTRE, NOISE)


def test_the_bits_are_those_of_the_host_in_cpp(tmp_path):
    (tmp_path / "noise.f32").write_bytes(NOISE.tobytes())
    command = [os.environ["TAVRIN_HOST"], tavrin.models()["centre"], "noise.f32", "stem.f32"]
    subprocess.run(command, cwd=tmp_path, check=True)
    assert (tmp_path / "stem.f32").read_bytes() == WHOLE["centre"].tobytes()
    assert numpy.abs(WHOLE["rest"] - (NOISE - WHOLE["centre"])).max() < 1e-6  # as floats subtract


class Array:
    """What offers an array in one of the ways that other packages have for it."""

    def __init__(self, array, way):
        setattr(type(self), way, lambda _, *arguments, **named: getattr(array, way)(*arguments, **named))


@pytest.mark.parametrize("view", [
    lambda x: x.T.copy(), lambda x: x.T, lambda x: numpy.asfortranarray(x), lambda x: numpy.repeat(x, 2, axis=0)[::2],
    lambda x: numpy.stack([x.T[1], x.T[0]])[::-1],
    lambda x: numpy.frombuffer(b"-" + x.tobytes(), "float32", offset=1).reshape(x.shape),
    lambda x: type("ArrayLike", (Array,), {})(x, "__array__"),
    lambda x: type("Tensor", (Array,), {"__dlpack_device__": lambda _: (1, 0)})(x, "__dlpack__")],
    ids="planar transposed columns strided swapped unaligned array dlpack".split())
def test_every_view_of_the_samples_gives_the_same_bits_in_its_own_shape(view):
    samples = view(NOISE)
    shape = getattr(samples, "shape", NOISE.shape)
    for name, part in tavrin.separate(CENTRE, samples).items():
        assert part.dtype == numpy.float32 and part.shape == shape
        assert numpy.array_equal(part if shape == NOISE.shape else part.T, WHOLE[name])


@pytest.mark.parametrize("axis", [0, 1])
def test_streams_give_the_same_bits_however_they_are_cut(axis):
    model = tavrin.Model(tavrin.models()["centre"].read_bytes(), threads=1)
    with tavrin.Separator(model, stems=["centre"]) as separator:
        parts, cuts = [], numpy.sort(numpy.random.default_rng(1).integers(502, len(NOISE), 40))
        for block in numpy.split(NOISE.T if axis else NOISE, [500, 502, *cuts], axis=axis):  # one of them [2, 2]
            expected = separator.output_for(block.shape[axis])
            parts.append(separator.process(block))
            assert parts[-1]["rest"].shape[axis] == expected and separator.pending <= separator.latency_samples
        parts.append(separator.finish())
        for name, part in WHOLE.items():
            joined = numpy.concatenate([part[name] for part in parts], axis=axis)
            assert numpy.array_equal(joined, part.T if axis else part)
        with pytest.raises(RuntimeError):
            separator.process(block)


def test_stems_are_chosen_by_name_and_latency_in_seconds():
    six = tavrin.Model(MODELS / "six_stems.onnx")
    wanted = [six.stems[2], six.stems[0]]
    separator = tavrin.Separator(six, stems=wanted, latency=0.3)
    assert separator.outputs == wanted + ["rest"] and separator.latency <= 0.3
    separator.select(wanted[:1])  # before the first block, whose shape begins the stream anew
    out = separator.process(NOISE.T)
    assert numpy.any(out[wanted[0]]) and not numpy.any(out[wanted[1]][:, 4096:])
    assert (six.sample_rate, six.frame_length, six.hop, six.window, six.frames, six.bins) == (
        44100, 4096, 1024, "blackman", 256, 2048)
    assert six.provider in tavrin.providers() and len(six.stems) == 6 and six.context == 1 and not six.title


@pytest.mark.parametrize("call, error, words", [
    (lambda m: tavrin.separate(m, NOISE.astype("float64")), TypeError, "float64.*astype"),
    (lambda m: tavrin.separate(m, NOISE.astype(">f4")), TypeError, ">f4"),
    (lambda m: tavrin.separate(m, NOISE[:, 0]), ValueError, r"\[300000\].*stereo"),
    (lambda m: tavrin.separate(m, NOISE[None]), ValueError, r"\[1, 300000, 2\]"),
    (lambda m: tavrin.Separator(m, stems=["kazoo"]), ValueError, "kazoo"),
    (lambda m: tavrin.Separator(m, stems="centre"), TypeError, r"\['centre'\]"),
    (lambda m: tavrin.Model("kazoo"), FileNotFoundError, "kazoo.*centre"),
    (lambda m: tavrin.Model(b"no model"), RuntimeError, "no ONNX model"),
    (lambda m: tavrin.Model(m), TypeError, "bytes-like"),
    (lambda m: pickle.dumps(m), TypeError, "load it from its file"),
    (lambda m: pickle.dumps(tavrin.Separator(m)), TypeError, "middle of a stream"),
    (lambda m: tavrin.separate(tavrin.Model(MODELS / "failing.onnx"), NOISE), RuntimeError, "out of data bounds"),
])
def test_errors_name_what_is_wrong(call, error, words):
    with pytest.raises(error, match=words):
        call(CENTRE)


def test_a_stream_keeps_its_shape_until_it_is_reset():
    separator = tavrin.Separator(CENTRE)
    separator.process(NOISE)
    with pytest.raises(ValueError, match=r"\[2, 300000\].*\[n, 2\]"):
        separator.process(NOISE.T)
    separator.reset()
    assert separator.process(NOISE.T)["rest"].shape[0] == 2
    separator.close()
    with pytest.raises(ValueError, match="closed"):
        separator.finish()


def test_threads_share_a_model_but_not_a_separator():
    errors, shared = [], tavrin.Separator(CENTRE)

    def work(_):
        for _ in range(20):
            try:
                shared.process(NOISE)
            except RuntimeError as error:
                errors.append(str(error))
        return tavrin.separate(CENTRE, NOISE)["rest"]

    with concurrent.futures.ThreadPoolExecutor(3) as threads:
        assert all(numpy.array_equal(rest, WHOLE["rest"]) for rest in threads.map(work, range(3)))
    assert errors and all("another thread" in error for error in errors)


def test_other_threads_run_during_a_call():
    silence, struck, start = numpy.zeros((4_000_000, 2), "float32"), [], time.monotonic()
    threading.Timer(0.01, lambda: struck.append(time.monotonic())).start()
    tavrin.Separator(CENTRE, rest=False).process(silence)
    assert struck[0] - start < (time.monotonic() - start) / 2  # with the interpreter's lock held, after it


def test_control_c_stops_a_long_separation():
    signal.signal(signal.SIGINT, signal.default_int_handler)  # what runs in the background inherits that it is ignored
    silence, start = numpy.zeros((200_000_000, 2), "float32"), time.monotonic()
    threading.Timer(0.3, signal.raise_signal, [signal.SIGINT]).start()
    with pytest.raises(KeyboardInterrupt):
        tavrin.separate(CENTRE, silence, rest=False)
    assert time.monotonic() - start < 1.3


def test_memory_is_flat_over_an_hour():
    separator = tavrin.Separator(tavrin.Model(MODELS / "passthrough.onnx"), rest=False)
    second, pages = numpy.zeros((44100, 2), "float32"), []
    for k in range(3600):
        separator.process(second)
        pages.append(int(Path("/proc/self/statm").read_text().split()[1]))  # that are resident
    assert (pages[-1] - pages[60]) * os.sysconf("SC_PAGE_SIZE") < 2 << 20


def test_the_package_says_where_the_command_is(tmp_path):
    command = tmp_path / "tavrin-separate"
    command.touch(0o755)
    for path, code in (tmp_path, 0), (tmp_path / "nowhere", 1):
        ran = subprocess.run([sys.executable, "-m", "tavrin"], env={**os.environ, "PATH": str(path)}, text=True,
                             stdout=subprocess.PIPE)
        assert ran.returncode == code and ("tavrin-separate" if code else str(command)) in ran.stdout

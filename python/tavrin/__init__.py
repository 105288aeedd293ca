"""Separates stereo music into its parts with a neural network, in memory or as a stream.

    import tavrin

    model = tavrin.Model("centre")               # a file, its bytes, or the name of a model that is here
    out = tavrin.separate(model, samples)        # {"centre": ..., "rest": ...}

    with tavrin.Separator(model, latency=0.5) as separator:
        for block in blocks:                     # of any size
            play(separator.process(block)["rest"])
        play(separator.finish()["rest"])

Samples are float32 arrays of NumPy, or what can be viewed as one (a torch tensor, anything with `__array__` or DLPack):
[n, 2], as audio files are read, or [2, n], as networks take them; the outputs have the shape of the input. Arrays whose
rows (or, for [n, 2], whose whole memory) are contiguous are read where they lie, others are copied. A block of [2, 2] is
taken as those before it; a stream's first block of that shape counts as [2, n].

Audio has to have the sample rate that the model was made for (`Model.sample_rate`). The interpreter's lock is released
while a model runs. Errors are ValueError, TypeError and RuntimeError with a sentence that says what to do.
"""
from __future__ import annotations

import contextlib
import os
import sys
import threading
from collections.abc import Iterable, Iterator, Sequence
from pathlib import Path
from typing import Any, Union

import numpy
import numpy.typing

from . import _tavrin

__all__ = ["Model", "Separator", "separate", "providers", "models", "__version__"]
__version__: str = _tavrin.version

Samples = numpy.typing.NDArray[numpy.float32]


def providers() -> list[str]:
    """The execution providers that the runtime offers, as it spells them."""
    return _tavrin.providers()


def models() -> dict[str, Path]:
    """The models that are here, by name: those of the folders in the environment variable TAVRIN_MODELS, the user's own,
    those beside this package, those that were installed with the commands. The first of a name counts."""
    folders = [Path(folder) for folder in os.environ.get("TAVRIN_MODELS", "").split(os.pathsep) if folder]
    folders.append(Path(os.environ.get("XDG_DATA_HOME") or Path.home() / ".local/share") / "tavrin/models")
    folders.append(Path(__file__).parent / "models")
    folders += [Path(prefix) / "share/tavrin/models" for prefix in (sys.prefix, "/usr/local", "/usr")]
    found: dict[str, Path] = {}
    for folder in folders:
        for file in sorted(folder.glob("*.onnx")):
            found.setdefault(file.stem, file)
    return found


def _bytes_of(source: Any) -> memoryview:
    """The model itself, or its file's contents."""
    if not isinstance(source, (str, os.PathLike)):
        return memoryview(source).cast("B")
    name, here = os.fspath(source), models()
    if name not in here and not os.path.isfile(name):
        raise FileNotFoundError(f"{name!r} is neither a file nor a model that is here: "
                                + (", ".join(here) or "there is none"))
    return memoryview(Path(here.get(name, name)).read_bytes())


class Model:
    """A loaded model. Any number of separators on any threads may use it. What it says of itself:

    stems: names of the stems, in the model's order
    sample_rate: Hz that it was made for
    frame_length, hop: samples of a frame, and from one to the next
    window: "blackman" or "hann"
    frames, bins: frames of one model call; frequency bins that it sees, from DC up
    context: frames that it wants to see on both sides of a frame
    title, licence, source: for people; may be empty
    provider: the execution provider that runs it, as the runtime spells it
    not_used: why preferred providers do not, a line each
    """

    stems: list[str]
    sample_rate: int
    frame_length: int
    hop: int
    window: str
    frames: int
    bins: int
    context: int
    title: str
    licence: str
    source: str
    provider: str
    not_used: list[str]

    def __init__(self, source: Union[str, os.PathLike[str], bytes, bytearray, memoryview], *,
                 providers: Sequence[str] = (), strict: bool = False, threads: int = 0, key: bytes = b"") -> None:
        """
        source: an ONNX file, its bytes, or the name of a model that is here (see `models`).
        providers: execution providers in order of preference ("cuda", "cpu", or as the runtime spells them); the CPU
            stands behind them all. None: the accelerators that the runtime offers, then the CPU.
        strict: raise an error unless one of `providers` runs the model.
        threads: threads of one model call; 0: one per core.
        key: what descrambles the model, if it is scrambled.
        """
        self._native = _tavrin.Model(_bytes_of(source), list(providers), strict, threads, key)
        self.__dict__.update(self._native.info())

    def __repr__(self) -> str:
        return f"<tavrin.Model {self.title or '/'.join(self.stems)!r}: {self.sample_rate} Hz, {self.provider}>"

    def __reduce__(self) -> Any:
        raise TypeError("a tavrin.Model cannot be pickled or copied; load it from its file in each process")


class Separator:
    """Separates one stereo stream that arrives in blocks of any size.

    Each output as a whole has exactly as many samples as the input, sample k of the one belongs to sample k of the
    other, and the bits are the same however the stream was cut. Samples that are not finite count as silence.

    One stream, one thread at a time; separators on different threads may share a model.
    """

    def __init__(self, model: Model, *, stems: Sequence[str] = (), rest: bool = True, latency: float = 0.0,
                 context: int = 0) -> None:
        """
        stems: those to give out, in this order; none: all, in the model's order.
        rest: give out the input minus all these stems, too, as "rest".
        latency: longest allowed latency in seconds; 0: the cheapest, which is the longest. A short one costs model calls.
        context: frames to see on both sides of a frame; 0: as many as the model wants.
        """
        if isinstance(stems, str):
            raise TypeError(f"stems is the string {stems!r}; a list of names is needed: stems=[{stems!r}]")
        self._model, self._config = model, (list(stems), rest, latency, context)
        self._selected: list[str] | None = None
        self._exclusive = threading.Lock()
        self._start(planar=False)

    def _start(self, planar: bool) -> None:
        stems, rest, latency, context = self._config
        self._native = _tavrin.Separator(self._model._native, stems, rest, planar, latency, context)
        self._planar, self._begun = planar, False
        if self._selected is not None:
            self._native.select(self._selected)

    @contextlib.contextmanager
    def _alone(self) -> Iterator[None]:
        # Another thread may come while the interpreter's lock is released.
        if not self._exclusive.acquire(blocking=False):
            raise RuntimeError("this separator is at work on another thread; give each thread its own, of one model")
        try:
            if not hasattr(self, "_native"):
                raise ValueError("this separator has been closed; make a new one")
            yield
        finally:
            self._exclusive.release()

    @property
    def outputs(self) -> list[str]:
        """The names of the outputs: the stems, then "rest" if it is wanted."""
        with self._alone():
            return self._native.outputs

    @property
    def latency_samples(self) -> int:
        """The most samples that are ever held back: a bound, not a shift."""
        with self._alone():
            return self._native.latency

    @property
    def latency(self) -> float:
        """The same in seconds."""
        return self.latency_samples / self._model.sample_rate

    @property
    def step(self) -> int:
        """Frames from one model call to the next: each serves `step * model.hop` samples."""
        with self._alone():
            return self._native.step

    @property
    def pending(self) -> int:
        """Samples taken and not yet given back: what `finish` will return."""
        with self._alone():
            return self._native.pending

    def output_for(self, samples: int) -> int:
        """How many samples `process` will return for so many more."""
        with self._alone():
            return self._native.output_for(samples)

    def process(self, samples: Any) -> dict[str, Samples]:
        """Takes any number of samples, [n, 2] or [2, n], and returns those that have become final, by output."""
        with self._alone():
            block, planar = _stereo(samples, self._planar if self._begun else None)
            if planar != self._planar:
                self._start(planar)
            self._begun = True
            result = self._room(self._native.output_for(_length(block, planar)))
            self._process(block, result)
            return result

    def finish(self) -> dict[str, Samples]:
        """Ends the stream and returns the rest of the outputs; the separator can then only be reset or closed."""
        with self._alone():
            result = self._room(self._native.pending)
            self._finish(result)
            return result

    def _room(self, n: int) -> dict[str, Samples]:
        return {name: numpy.empty((2, n) if self._planar else (n, 2), numpy.float32) for name in self._native.outputs}

    # Each piece of contiguous memory: both channels of a planar signal, or the signal.
    def _rows(self, arrays: Iterable[Samples]) -> list[Samples]:
        return [row for array in arrays for row in (array if self._planar else [array])]

    def _process(self, block: Samples, outputs: dict[str, Samples]) -> int:
        room = min(_length(array, self._planar) for array in outputs.values()) if outputs else 0
        return self._native.process(self._rows([block]), _length(block, self._planar), self._rows(outputs.values()), room)

    def _finish(self, outputs: dict[str, Samples]) -> int:
        return self._native.finish(self._rows(outputs.values()), self._native.pending)

    def select(self, stems: Iterable[str]) -> None:
        """Switches to a choice of the stems, from the next model call on; they fade in and out. A stem that is off is
        silent, and stays in the rest."""
        with self._alone():
            chosen = list(stems)
            self._native.select(chosen)
            self._selected = chosen

    def reset(self) -> None:
        """Forgets the stream and starts a new one with the same bits as a new separator of the present selection."""
        with self._alone():
            self._native.reset()
            self._begun = False

    def close(self) -> None:
        """Frees the memory of the stream; nothing can be asked of the separator then. `with` does it, too."""
        with self._exclusive:
            self.__dict__.pop("_native", None)

    def __enter__(self) -> Separator:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __reduce__(self) -> Any:
        raise TypeError("a tavrin.Separator cannot be pickled or copied: it is in the middle of a stream; make another "
                        "one of the same model")


def separate(model: Model, samples: Any, *, stems: Sequence[str] = (), rest: bool = True,
             context: int = 0) -> dict[str, Samples]:
    """Separates a whole recording, [n, 2] or [2, n], and returns each output by its name, shaped like `samples`.

    The arguments are those of `Separator`. Control-C is heard after each model call.
    """
    whole, planar = _stereo(samples)
    with Separator(model, stems=stems, rest=rest, context=context) as separator:
        separator._start(planar)
        n, step, done = _length(whole, planar), separator.step * model.hop, 0
        result = separator._room(n)
        for start in range(0, n, step):
            done += separator._process(_part(whole, planar, start, start + step), _parts(result, planar, done))
        separator._finish(_parts(result, planar, done))
        return result


def _stereo(samples: Any, planar: bool | None = None) -> tuple[Samples, bool]:
    """The samples as the library can read them, and whether they are [2, n]. `planar` is what the stream was so far."""
    if not isinstance(samples, numpy.ndarray) and hasattr(samples, "__dlpack__") and not hasattr(samples, "__array__"):
        samples = numpy.from_dlpack(samples)
    array = numpy.asarray(samples)
    if array.dtype != numpy.float32:
        raise TypeError(f"the samples are {array.dtype}; float32 between -1 and 1 is needed"
                        + (": samples.astype('float32')" if array.dtype.kind == "f" else ""))
    shape = list(array.shape)
    if len(shape) != 2 or 2 not in shape:
        raise ValueError(f"the samples have the shape {shape}; stereo is needed, [n, 2] or [2, n]")
    if planar is None:
        planar = shape[0] == 2
    elif shape[0 if planar else 1] != 2:
        raise ValueError(f"the block has the shape {shape}, but its stream began with {'[2, n]' if planar else '[n, 2]'}")
    if not array.flags.aligned or not all(row.flags.c_contiguous for row in (array if planar else [array])):
        array = array.copy(order="C")
    return array, planar


def _length(array: Samples, planar: bool) -> int:
    return int(array.shape[1 if planar else 0])


def _part(array: Samples, planar: bool, start: int, end: int | None = None) -> Samples:
    return array[:, start:end] if planar else array[start:end]


def _parts(arrays: dict[str, Samples], planar: bool, start: int) -> dict[str, Samples]:
    return {name: _part(array, planar, start) for name, array in arrays.items()}

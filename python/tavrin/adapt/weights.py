"""Reads a network's weights from what people have, as arrays by name, without running anything that the file says.

    weights.load("vocals.pth")        a PyTorch checkpoint, of the zip format or the one before it
    weights.load("vocals.safetensors")
    weights.load("vocals.npz")
    weights.load("vocals/")           a folder of .npy and .npz files

A checkpoint is a pickled program. It is run by an interpreter of its own that knows tensors, NumPy's arrays and the
containers around them; whatever else it asks for is refused by name. Needs numpy alone.
"""

from dataclasses import dataclass
import io
import json
import math
from pathlib import Path
import pickletools
import re
import struct
import zipfile

import numpy

# An ONNX file holds less than 2 GiB, so more weights cannot be used. Also keeps small files from becoming large arrays.
MOST_BYTES = 2**31
MOST_ENTRIES = 100_000
DEEPEST = 4  # dictionaries in dictionaries

# Where training programs put the weights when they store more than these.
STATE = "state_dict", "model_state_dict", "model"

# bfloat16 is the upper half of a float, and numpy has no type for it.
BFLOAT16 = "bfloat16"


class WeightsError(Exception):
    """What is wrong with the file, in one line that names it."""


def load(path):
    """Weights by name, {str: numpy.ndarray}, from a file or folder. Raises WeightsError."""
    path = Path(path)
    try:
        found = _folder(path) if path.is_dir() else _file(path)
    except WeightsError as reason:
        raise WeightsError(f"{path}: {reason}") from None
    except OSError as reason:
        raise WeightsError(f"{path}: cannot be read ({reason.strerror or reason})") from None
    except Exception as reason:  # damaged or hostile bytes; which of all exceptions says nothing to the user
        text = " ".join(str(reason).split())[:100] or type(reason).__name__
        raise WeightsError(f"{path}: damaged, or no file of weights ({text})") from None
    if any(array.dtype.kind not in "fiub" for array in found.values()):
        raise WeightsError(f"{path}: has arrays of something else than real numbers")
    if not found:
        raise WeightsError(f"{path}: has no weights; a PyTorch checkpoint, .safetensors, .npz or .npy files are needed")
    return found


def _folder(path):
    found = {}
    for file in sorted([*path.rglob("*.npy"), *path.rglob("*.npz")]):
        name = ".".join(file.relative_to(path).with_suffix("").parts)
        loaded = load(file)
        found |= {name: loaded[""]} if "" in loaded else {f"{name}.{key}": value for key, value in loaded.items()}
    return found


def _file(path):
    size = path.stat().st_size
    with open(path, "rb") as file:
        start = file.read(16)
        file.seek(0)
        if start.startswith(b"\x93NUMPY"):
            return {"": _npy(file)}
        if start.startswith(b"PK"):
            return _zip(zipfile.ZipFile(file))
        if start[8:9] == b"{" and int.from_bytes(start[:8], "little") < size:
            return _safetensors(file.read())
        if start.startswith((b"\x80", b"c", b"(")):  # a pickle of any protocol
            return _legacy(io.BytesIO(file.read()))
    raise WeightsError("is neither a PyTorch checkpoint nor .safetensors, .npz or .npy")


def _npy(file):
    return numpy.lib.format.read_array(file, allow_pickle=False)


def _zip(archive):
    if sum(entry.file_size for entry in archive.infolist()) > MOST_BYTES:
        raise WeightsError("holds more than 2 GiB, which no ONNX file can")
    names = archive.namelist()
    programs = [name for name in names if name == "data.pkl" or name.endswith("/data.pkl")]
    if not programs:
        return {name[:-4]: _npy(io.BytesIO(archive.read(name))) for name in names if name.endswith(".npy")}
    root = programs[0].removesuffix("data.pkl")
    if root + "byteorder" in names and archive.read(root + "byteorder") != b"little":
        raise WeightsError("was written on a big-endian machine")
    state = _Program(io.BytesIO(archive.read(programs[0])))
    for storage in state.storages.values():
        storage.fill(archive.read(f"{root}data/{storage.key}"))
    return _tensors(state.result)


def _legacy(stream):
    """Pickles in a row (a magic number, a version, facts on the machine, the checkpoint, the keys of the storages),
    then the storages: the number of elements and these."""
    if _Program(stream).result != 0x1950A86A20F9469CFC6C:
        raise WeightsError("is a pickle, but no PyTorch checkpoint")
    _Program(stream), _Program(stream)
    state = _Program(stream)
    for key in _Program(stream).result:
        (count,) = struct.unpack("<q", stream.read(8))
        storage = state.storages[str(key)]
        storage.fill(stream.read(max(count, 0) * storage.itemsize))
    return _tensors(state.result)


def _safetensors(data):
    end = 8 + int.from_bytes(data[:8], "little")
    body = memoryview(data)[end:]
    types = {"F64": "<f8", "F32": "<f4", "F16": "<f2", "BF16": BFLOAT16, "I64": "<i8", "I32": "<i4", "I16": "<i2",
             "I8": "i1", "U8": "u1", "BOOL": "?"}
    entries = {name: entry for name, entry in json.loads(data[8:end]).items() if name != "__metadata__"}
    if sum(len(body[slice(*entry["data_offsets"])]) for entry in entries.values()) > len(body):
        raise WeightsError("has tensors that overlap")
    found = {}
    for name, entry in entries.items():
        if entry["dtype"] not in types:
            raise WeightsError(f"'{name}' has elements of type {entry['dtype']}")
        found[name] = _array(body[slice(*entry["data_offsets"])], types[entry["dtype"]]).reshape(entry["shape"])
    return found


def _array(data, kind):
    if kind == BFLOAT16:
        return (numpy.frombuffer(data, "<u2").astype("<u4") << 16).view("<f4")
    return numpy.frombuffer(data, kind)


def _tensors(checkpoint):
    """The checkpoint's tensors by name; what else training left there is passed over."""
    if isinstance(checkpoint, dict):
        checkpoint = next((checkpoint[key] for key in STATE if isinstance(checkpoint.get(key), dict)), checkpoint)
    found = {}
    work, seen, size = [("", checkpoint, 0)], 0, 0
    while work:
        name, value, depth = work.pop()
        seen += 1
        if isinstance(value, (_Tensor, _Array)):
            found[name] = value.array()
            size += found[name].nbytes
            if size > MOST_BYTES:
                raise WeightsError("holds more than 2 GiB, which no ONNX file can")
        elif isinstance(value, dict):
            if depth == DEEPEST or seen + len(value) > MOST_ENTRIES:
                raise WeightsError(f"has dictionaries deeper than {DEEPEST}, or more than {MOST_ENTRIES} entries")
            work += [(f"{name}.{key}" if name else str(key), part, depth + 1) for key, part in reversed(value.items())]
    return found


@dataclass
class _Storage:
    key: str
    kind: str
    elements: numpy.ndarray = None

    @property
    def itemsize(self):
        return 2 if self.kind == BFLOAT16 else numpy.dtype(self.kind).itemsize

    def fill(self, data):
        self.elements = _array(data, self.kind)


@dataclass(frozen=True)
class _Tensor:
    """A view of a storage, which in the older format comes after it in the file."""

    storage: _Storage
    offset: int
    shape: tuple
    strides: tuple

    def array(self):
        numbers = [self.offset, *self.shape, *self.strides]
        if any(type(n) is not int or n < 0 for n in numbers) or len(self.shape) != len(self.strides):
            raise WeightsError("has a tensor of impossible shape")
        elements, count = self.storage.elements, math.prod(self.shape)
        last = self.offset + sum((n - 1) * stride for n, stride in zip(self.shape, self.strides))
        if elements is None or count > 0 and last >= elements.size or count > elements.size:
            raise WeightsError("has a tensor that reaches beyond its data; the file is damaged or cut off")
        if count == 0:
            return numpy.zeros(self.shape, elements.dtype)
        strides = [stride * elements.itemsize for stride in self.strides]
        return numpy.lib.stride_tricks.as_strided(elements[self.offset :], self.shape, strides, writeable=False)


@dataclass
class _ElementType:
    """numpy.dtype: its text, and an order of bytes that is told later."""

    text: str
    order: str = "="

    def build(self, state):
        self.order = state[1]

    def dtype(self):
        if re.fullmatch("[fiu][1248]|b1", self.text) is None or self.order not in "<>=|":
            raise WeightsError(f"has arrays of {self.text[:20]}, which are no real numbers")
        return numpy.dtype(self.text).newbyteorder(self.order)


class _Array:
    """numpy.ndarray: empty when it is made, and filled by the next operation."""

    def build(self, state):
        self.shape, self.type, self.columns_first, self.data = state[1:5]

    def array(self):
        data = self.data.encode("latin1") if isinstance(self.data, str) else self.data
        return numpy.frombuffer(data, self.type.dtype()).reshape(self.shape, order="F" if self.columns_first else "C")


STORAGES = {"Double": "<f8", "Float": "<f4", "Half": "<f2", "BFloat16": BFLOAT16, "Long": "<i8", "Int": "<i4",
            "Short": "<i2", "Char": "i1", "Byte": "u1", "Bool": "?"}

# All that a checkpoint may name: what to call, or the element type for which a storage's class stands.
ALLOWED = {
    "collections.OrderedDict": lambda: {},
    "torch.Size": lambda sizes: sizes,
    "torch._utils._rebuild_tensor": lambda *view: _Tensor(*view),
    "torch._utils._rebuild_tensor_v2": lambda *view: _Tensor(*view[:4]),
    "torch._utils._rebuild_parameter": lambda tensor, *_: tensor,
    **{f"numpy.{core}.multiarray._reconstruct": lambda *_: _Array() for core in ("core", "_core")},
    **{f"numpy.{core}.multiarray.scalar": lambda *_: None for core in ("core", "_core")},
    "numpy.ndarray": None,
    "numpy.dtype": lambda text, *_: _ElementType(text),
    "_codecs.encode": lambda text, encoding: text,  # bytes as text; only arrays have them, and they are Latin-1
    **{f"torch.{name}Storage": kind for name, kind in STORAGES.items()},
}
MARK = object()


class _Program:
    """Runs the pickle at the stream's position: a stack, a memo, and the operations that checkpoints are made of."""

    def __init__(self, stream):
        self.stack, self.memo, self.storages = [], {}, {}
        for operation, argument, _ in pickletools.genops(stream):
            self.step(operation.name, argument)
        self.result = self.stack.pop()

    def step(self, name, argument):
        push, pop = self.stack.append, self.stack.pop
        match name:
            case "PROTO" | "FRAME" | "STOP":
                pass
            case "NONE" | "NEWTRUE" | "NEWFALSE":
                push({"NONE": None, "NEWTRUE": True, "NEWFALSE": False}[name])
            case (
                "BININT" | "BININT1" | "BININT2" | "INT" | "LONG" | "LONG1" | "LONG4" | "FLOAT" | "BINFLOAT"
                | "BINUNICODE" | "BINUNICODE8" | "SHORT_BINUNICODE" | "BINSTRING" | "SHORT_BINSTRING"
                | "BINBYTES" | "SHORT_BINBYTES"
            ):
                push(argument)
            case "MARK":
                push(MARK)
            case "EMPTY_TUPLE" | "EMPTY_LIST" | "EMPTY_DICT":
                push({"EMPTY_TUPLE": (), "EMPTY_LIST": [], "EMPTY_DICT": {}}[name])
            case "TUPLE1" | "TUPLE2" | "TUPLE3":
                push(tuple([pop() for _ in range(int(name[-1]))][::-1]))
            case "TUPLE":
                push(tuple(self.marked()))
            case "LIST":
                push(self.marked())
            case "DICT":
                items = self.marked()
                push(dict(zip(items[::2], items[1::2])))
            case "APPEND" | "APPENDS":
                items = [pop()] if name == "APPEND" else self.marked()
                self.stack[-1].extend(items)
            case "SETITEM" | "SETITEMS":
                items = [pop(), pop()][::-1] if name == "SETITEM" else self.marked()
                self.stack[-1].update(zip(items[::2], items[1::2]))
            case "BINPUT" | "LONG_BINPUT" | "PUT":
                self.memo[argument] = self.stack[-1]
            case "MEMOIZE":
                self.memo[len(self.memo)] = self.stack[-1]
            case "BINGET" | "LONG_BINGET" | "GET":
                push(self.memo[argument])
            case "POP":
                pop()
            case "GLOBAL":
                push(self.allowed(*argument.split(" ", 1)))
            case "STACK_GLOBAL":
                what, module = pop(), pop()
                push(self.allowed(module, what))
            case "REDUCE":
                arguments, function = pop(), pop()
                push(function(*arguments))
            case "BUILD":  # what a state dict has beside its tensors, such as versions, is not needed
                state = pop()
                if isinstance(self.stack[-1], (_Array, _ElementType)):
                    self.stack[-1].build(state)
            case "BINPERSID":
                push(self.storage(*pop()))
            case _:
                raise WeightsError(f"is a pickle with the operation {name}, which no file of tensors needs")

    def marked(self):
        """What stands above the last mark."""
        place = len(self.stack) - 1
        while self.stack[place] is not MARK:
            place -= 1
            if place < 0:
                raise ValueError("mark missing")
        items = self.stack[place + 1 :]
        del self.stack[place:]
        return items

    def allowed(self, module, name):
        if f"{module}.{name}" not in ALLOWED:
            raise WeightsError(f"wants {str(module)[:60]}.{str(name)[:60]}, which is no tensor; store the state_dict alone")
        return ALLOWED[f"{module}.{name}"]

    def storage(self, what, kind, key, _location, _count, view=None):
        if what != "storage" or kind not in STORAGES.values() or view is not None:
            raise WeightsError("refers to something outside that is no tensor's data")
        return self.storages.setdefault(str(key), _Storage(str(key), kind))

"""Puts operators around an ONNX model that nearly meets the contract, and leaves it as it is inside. Names of inputs
and outputs stay; dimensions that were open become numbers; weights in separate files come into the one that is written.
"""

from dataclasses import dataclass, field
from pathlib import Path

import google.protobuf.message
import numpy
import onnx
from onnx import TensorProto, helper, numpy_helper

FRAMES = 256
INNER = "wrapped_"  # before the names of the wrapped model's own spectra


class WrapError(Exception):
    """What keeps the model from being wrapped, in one line."""


@dataclass
class Wrapping:
    """What happens between the contract's spectra [1, 4, frames, bins] and the model's own."""

    half_frame: int  # bins below the Nyquist bin; the contract's most
    frames: int = None  # None: as the model says, or else 256
    bins: int = None  # None: as the model says, or else half_frame
    swap: bool = False  # the model has bins before frames
    gain: float = 1.0  # times what goes in
    gain_out: float = 1.0  # times what comes out
    real_dc: bool = False  # the model may give DC an imaginary part, which the pipeline takes for the Nyquist bin
    invert: bool = False  # the outputs are what is to be left out
    names: list = field(default_factory=list)  # of the outputs; none: as they are


def read(path):
    """The model with all its weights. Those in other files have to lie beside it: names are not followed elsewhere."""
    try:
        model = onnx.load(path, load_external_data=False)
        for tensor in tensors(model.graph):
            for entry in tensor.external_data:
                if entry.key == "location" and Path(entry.value).name != entry.value:
                    raise WrapError(f"{path}: wants weights from '{entry.value}', which does not lie beside it")
        onnx.load_external_data_for_model(model, str(Path(path).parent))
    except (OSError, ValueError, TypeError, google.protobuf.message.DecodeError) as reason:
        raise WrapError(f"{path}: cannot be read as an ONNX model ({one_line(reason)})") from None
    return model


def tensors(graph):
    yield from graph.initializer
    for attribute in (attribute for node in graph.node for attribute in node.attribute):
        yield from [attribute.t, *attribute.tensors]
        for body in [attribute.g, *attribute.graphs]:
            yield from tensors(body)


def one_line(reason):
    return " ".join(str(reason).split())[:200] or type(reason).__name__


def check(model):
    """The package's own check, if it is not older than the model: then inspecting the result has to do."""
    if model.ir_version > onnx.IR_VERSION or any(
        opset.domain == "" and opset.version > onnx.defs.onnx_opset_version() for opset in model.opset_import
    ):
        return f"the package onnx {onnx.__version__} is older than this model and cannot check it"
    try:
        onnx.checker.check_model(model)
    except onnx.checker.ValidationError as reason:
        raise WrapError(f"the package onnx finds the model faulty: {one_line(reason)}") from None
    return ""


def dimensions(value):
    return [d.dim_value if d.HasField("dim_value") else d.dim_param or "?" for d in value.type.tensor_type.shape.dim]


def spectra(graph):
    """Inputs and outputs of four dimensions. Flags and the like have fewer and stay as they are."""
    weights = {weight.name for weight in graph.initializer}
    inputs = [value for value in graph.input if len(dimensions(value)) == 4 and value.name not in weights]
    outputs = [value for value in graph.output if len(dimensions(value)) == 4]
    if not inputs or not outputs:
        raise WrapError("the model has no input or no output with four dimensions")
    if len(inputs) > 1:
        raise WrapError(
            f"the model has {len(inputs)} spectra as inputs ({', '.join(v.name for v in inputs)}); one is needed"
        )
    return inputs, outputs


def rename(graph, names):
    """Renames tensors where they are made and used, also in the bodies of If and Loop."""
    for node in graph.node:
        for texts in (node.input, node.output):
            texts[:] = [names.get(text, text) for text in texts]
        for attribute in node.attribute:
            for body in [attribute.g, *attribute.graphs]:
                rename(body, names)
    for weight in graph.initializer:
        weight.name = names.get(weight.name, weight.name)


class Wrapper:
    def __init__(self, model, wrapping):
        self.model, self.graph, self.wrapping = model, model.graph, wrapping
        self.inputs, self.outputs = spectra(model.graph)
        if any(name.startswith(INNER) for node in self.graph.node for name in node.output):
            raise WrapError("the model is wrapped already; wrap the original, with all options in one go")
        self.frames, self.inner_bins = self.size()
        self.bins = min(self.inner_bins, wrapping.half_frame)
        for value in self.inputs + self.outputs:
            self.require(value)

    def axes(self):
        return (3, 2) if self.wrapping.swap else (2, 3)

    def size(self):
        """Frames and bins: what the input says, what is asked for where it says nothing."""
        found, sizes = dimensions(self.inputs[0]), []
        wanted = ("frames", self.wrapping.frames, FRAMES), ("bins", self.wrapping.bins, self.wrapping.half_frame)
        for axis, (name, asked, usual) in zip(self.axes(), wanted):
            fixed = next(
                (d[axis] for d in map(dimensions, self.inputs + self.outputs) if isinstance(d[axis], int)), None
            )
            if asked and fixed and asked != fixed:
                raise WrapError(f"'{self.inputs[0].name}' is {found}; --{name} {asked} does not fit it")
            sizes.append(fixed or asked or usual)
        if sizes[1] > self.wrapping.half_frame + 1:
            raise WrapError(
                f"'{self.inputs[0].name}' is {found}: {sizes[1]} bins; frames of {2 * self.wrapping.half_frame} samples "
                f"have {self.wrapping.half_frame}{self.hint(found)}; --frame-length tells another length"
            )
        if not self.wrapping.swap and isinstance(found[2], int) and sizes[1] < sizes[0] and not self.wrapping.frames:
            raise WrapError(f"'{self.inputs[0].name}' is {found}: fewer bins than frames{self.hint(found)}")
        return sizes

    def hint(self, found):
        axis = self.axes()[0]
        if isinstance(found[axis], int) and found[axis] > self.wrapping.half_frame // 2:
            return f"; frames and bins look swapped: try {'without' if self.wrapping.swap else 'with'} --swap"
        return ""

    def require(self, value):
        shape = [1, 4, 0, 0]
        shape[self.axes()[0]], shape[self.axes()[1]] = self.frames, self.inner_bins
        found = dimensions(value)
        if not all(f == n or isinstance(f, str) for f, n in zip(found, shape)):
            raise WrapError(f"'{value.name}' is {found}; it needs to be {shape}")
        if value.type.tensor_type.elem_type not in (TensorProto.FLOAT, TensorProto.FLOAT16):
            raise WrapError(f"'{value.name}' is neither float nor half; export the model in single precision")

    def wrap(self):
        names = self.wrapping.names or [value.name for value in self.outputs]
        if len(names) != len(self.outputs):
            raise WrapError(f"the model has {len(self.outputs)} outputs; --stems names {len(names)}")
        rename(self.graph, {value.name: INNER + value.name for value in self.inputs + self.outputs})
        source = self.inputs[0]
        before = self.chain(source.name, INNER + source.name, self.steps_in(source))
        after = []
        for value, name in zip(self.outputs, names):
            after += self.chain(INNER + value.name, name, self.steps_out(value))
            value.name = name
        nodes = [*before, *self.graph.node, *after]
        del self.graph.node[:]
        self.graph.node.extend(nodes)
        del self.graph.value_info[:]  # may speak of dimensions that were open
        for value in self.inputs + self.outputs:
            shape = [1, 4, self.frames, self.bins]
            value.CopyFrom(helper.make_tensor_value_info(value.name, TensorProto.FLOAT, shape))

    def steps_in(self, value):
        missing = self.inner_bins - self.bins  # the Nyquist bin
        steps = [("Pad", [self.integers("nyquist", [0] * 7 + [missing])], {})] if missing else []
        steps += [("Mul", [self.number("gain", self.wrapping.gain)], {})] if self.wrapping.gain != 1 else []
        steps += [("Transpose", [], {"perm": [0, 1, 3, 2]})] if self.wrapping.swap else []
        return steps + self.cast(value, TensorProto.FLOAT16)

    def steps_out(self, value):
        steps = self.cast(value, TensorProto.FLOAT)
        steps += [("Transpose", [], {"perm": [0, 1, 3, 2]})] if self.wrapping.swap else []
        if self.inner_bins > self.bins:
            ends = [self.integers(name, [n]) for name, n in (("start", 0), ("end", self.bins), ("axis", 3))]
            steps += [("Slice", ends, {})]
        gain = self.wrapping.gain_out / self.wrapping.gain * (-1 if self.wrapping.invert else 1)
        if self.wrapping.real_dc:
            gain = numpy.full([1, 4, 1, self.bins], gain)
            gain[:, 1::2, :, 0] = 0
        steps += [("Mul", [self.number("gain_out", gain)], {})] if numpy.any(gain != 1) else []
        return steps + ([("Add", [self.inputs[0].name], {})] if self.wrapping.invert else [])

    @staticmethod
    def cast(value, to):
        half = value.type.tensor_type.elem_type == TensorProto.FLOAT16
        return [("Cast", [], {"to": to})] if half else []

    @staticmethod
    def chain(source, target, steps):
        """Nodes from one tensor to another, one after the other."""
        nodes = []
        for i, (operator, more, attributes) in enumerate(steps or [("Identity", [], {})]):
            result = target if i + 1 >= len(steps) else f"wrapping_{target}_{i}"
            nodes.append(helper.make_node(operator, [source, *more], [result], **attributes))
            source = result
        return nodes

    def number(self, name, value):
        return self.constant(name, numpy.array(value, numpy.float32))

    def integers(self, name, values):
        if next(opset.version for opset in self.model.opset_import if opset.domain == "") < 11:
            raise WrapError("the model has a Nyquist bin and an opset below 11; export it with a newer one")
        return self.constant(name, numpy.array(values, numpy.int64))

    def constant(self, name, array):
        name = f"wrapping_{name}"
        if all(weight.name != name for weight in self.graph.initializer):
            self.graph.initializer.append(numpy_helper.from_array(array, name))
        return name


def wrap(model, wrapping, metadata):
    """Wraps the model in place and adds what it says of itself."""
    try:
        Wrapper(model, wrapping).wrap()
    except TypeError:  # what is not UTF-8 arrives as bytes
        raise WrapError("a name in the model is no text; the file is damaged") from None
    kept = {entry.key: entry.value for entry in model.metadata_props}
    helper.set_model_props(model, kept | {f"tavrin.{key}": str(value) for key, value in metadata.items()})
    return model

"""Builds ONNX graphs: operators are functions of tensor names, constants are kept once, the bytes are always the same.

    graph = Graph("half")
    out = graph.Mul("spectrum", graph.constant(0.5))
    save(graph.model(shape, {"half": out}, {"title": "Half of everything"}), "half.onnx")

Needs Debian's python3-onnx.
"""

import hashlib
import os
from pathlib import Path

import numpy
import onnx
from onnx import TensorProto, helper, numpy_helper

# Old on purpose, so that old runtimes read them.
OPSET, IR_VERSION = 13, 7


class Graph:
    def __init__(self, name):
        self.name = name
        self.nodes = []
        self.constants = {}  # by name
        self._names = {}  # of constants, by digest

    def constant(self, value, dtype=numpy.float32):
        """The name of a constant; equal ones share it."""
        array = numpy.ascontiguousarray(value, dtype).reshape(numpy.shape(value))
        digest = hashlib.sha256(repr((array.dtype.str, array.shape)).encode() + array.tobytes()).hexdigest()
        if digest not in self._names:
            name = f"constant{len(self._names)}"
            self._names[digest] = name
            self.constants[name] = array
        return self._names[digest]

    def integers(self, values):
        return self.constant(values, numpy.int64)

    def add(self, operator, *inputs, outputs=1, **attributes):
        """Adds a node and returns the name of its output, or a list of names. An input that is no string is a constant;
        None is an optional one left out."""
        inputs = [self._input(value) for value in inputs]
        names = [f"{operator.lower()}{len(self.nodes)}" + (f"_{k}" if outputs > 1 else "") for k in range(outputs)]
        self.nodes.append(helper.make_node(operator, inputs, names, **attributes))
        return names if outputs > 1 else names[0]

    def _input(self, value):
        if value is None:
            return ""
        return value if isinstance(value, str) else self.constant(value)

    def __getattr__(self, operator):
        """graph.Mul(a, b) is graph.add("Mul", a, b)."""
        if not operator[:1].isupper():
            raise AttributeError(operator)
        return lambda *inputs, **more: self.add(operator, *inputs, **more)

    def model(self, shape, outputs, metadata, text=""):
        """The model: its input is `spectrum` of this shape, its outputs, of the same, are given as {stem: name}."""
        final = {name: stem for stem, name in outputs.items()}
        for node in self.nodes:
            node.input[:] = [final.get(name, name) for name in node.input]
            node.output[:] = [final.get(name, name) for name in node.output]
        graph = helper.make_graph(
            self.nodes,
            self.name,
            [helper.make_tensor_value_info("spectrum", TensorProto.FLOAT, shape)],
            [helper.make_tensor_value_info(stem, TensorProto.FLOAT, shape) for stem in outputs],
            [numpy_helper.from_array(array, name) for name, array in self.constants.items()],
        )
        made = helper.make_model(
            graph,
            producer_name="tavrin",
            opset_imports=[helper.make_opsetid("", OPSET)],
            ir_version=IR_VERSION,
            doc_string=text,
        )
        helper.set_model_props(made, {f"tavrin.{key}": str(value) for key, value in metadata.items()})
        onnx.checker.check_model(made, full_check=True)
        return made


def save(model, path):
    """Writes the file whole or not at all."""
    part = Path(f"{path}.part")
    part.write_bytes(model.SerializeToString(deterministic=True))
    os.replace(part, path)

#!/usr/bin/python3
"""Wraps an ONNX model that nearly meets the contract: same inputs and outputs outside, float [1, 4, 256, 2048].

    scripts/wrap_model.py MODEL.onnx WRAPPED.onnx --swap        frames and bins are swapped: [1, 4, 2048, 256]
    scripts/wrap_model.py MODEL.onnx WRAPPED.onnx --gain 1.19   it expects spectra 1.19 times as large
    scripts/wrap_model.py MODEL.onnx WRAPPED.onnx               only fixes dimensions that were left open

Needs the Python package onnx (Debian's python3-onnx). Weights in separate files are brought in.
"""

import argparse
import os
import sys

import google.protobuf.message
import numpy
import onnx
from onnx import TensorProto, helper, numpy_helper

SPECTRUM = [1, 4, 256, 2048]  # batch; Re L, Im L, Re R, Im R; frames; bins
INNER = "wrapped_"  # before the names of the wrapped model's own spectra


def fail(message):
    sys.exit(f"wrap_model.py: {message}")


def dimensions(value):
    return [d.dim_value if d.HasField("dim_value") else d.dim_param or "?" for d in value.type.tensor_type.shape.dim]


def is_spectrum(value):
    """Flags and the like have fewer dimensions and stay as they are."""
    return len(value.type.tensor_type.shape.dim) == len(SPECTRUM)


def require_shape(value, swap):
    orders = SPECTRUM, [SPECTRUM[axis] for axis in (0, 1, 3, 2)]
    found = dimensions(value)
    fits = [all(f == n or isinstance(f, str) for f, n in zip(found, order)) for order in orders]
    if value.type.tensor_type.elem_type != TensorProto.FLOAT:
        fail(f"'{value.name}' is not float; export the model in single precision")
    if not fits[swap]:
        hint = f"; try {'without' if swap else 'with'} --swap" if fits[not swap] else ""
        fail(f"'{value.name}' is {found}; it needs to be {orders[swap]}{hint}")


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


def adapt(source, target, gain, swap):
    """Nodes from one tensor to another: times the gain, frames and bins swapped, either or both."""
    steps = [("Mul", [gain], {})] if gain else []
    steps += [("Transpose", [], {"perm": [0, 1, 3, 2]})] if swap else []
    steps = steps or [("Identity", [], {})]
    nodes = []
    for i, (operator, more, attributes) in enumerate(steps):
        result = target if i + 1 == len(steps) else f"wrapping_{target}"
        nodes.append(helper.make_node(operator, [source, *more], [result], **attributes))
        source = result
    return nodes


def wrap(model, swap, gain):
    graph = model.graph
    weights = {weight.name for weight in graph.initializer}
    inputs = [value for value in graph.input if is_spectrum(value) and value.name not in weights]
    outputs = [value for value in graph.output if is_spectrum(value)]
    if not inputs or not outputs:
        fail("the model has no input or no output with four dimensions")
    if any(name.startswith(INNER) for node in graph.node for name in node.output):
        fail("the model is wrapped already; wrap the original, with all options in one go")
    for value in inputs + outputs:
        require_shape(value, swap)

    inner = {value.name: INNER + value.name for value in inputs + outputs}
    rename(graph, inner)
    before = [node for value in inputs for node in adapt(value.name, inner[value.name], gain and "wrapping_gain", swap)]
    after = [node for value in outputs for node in adapt(inner[value.name], value.name, gain and "wrapping_inverse", swap)]
    nodes = [*before, *graph.node, *after]
    del graph.node[:]
    graph.node.extend(nodes)
    del graph.value_info[:]  # may speak of dimensions that were open
    for value in inputs + outputs:
        value.CopyFrom(helper.make_tensor_value_info(value.name, TensorProto.FLOAT, SPECTRUM))
    if gain:
        for name, factor in (("wrapping_gain", gain), ("wrapping_inverse", 1 / gain)):
            graph.initializer.append(numpy_helper.from_array(numpy.array(factor, numpy.float32), name))


def main():
    parser = argparse.ArgumentParser(description="Makes a model that nearly meets the contract meet it.")
    parser.add_argument("model")
    parser.add_argument("wrapped")
    parser.add_argument("--swap", action="store_true", help="the model's spectra are [1, 4, bins, frames]")
    parser.add_argument("--gain", type=float, help="multiply what goes in, and divide what comes out")
    options = parser.parse_args()
    if options.gain is not None and not 0 < options.gain < float("inf"):
        fail(f"--gain {options.gain}: a finite number above 0 is needed")
    try:
        model = onnx.load(options.model)
    except (OSError, google.protobuf.message.DecodeError) as reason:
        fail(f"{options.model}: cannot be read as a model ({reason})")
    if os.path.exists(options.wrapped) and os.path.samefile(options.model, options.wrapped):
        fail(f"{options.wrapped}: would replace the original; name another file")
    wrap(model, options.swap, options.gain)
    onnx.checker.check_model(model)
    onnx.save(model, options.wrapped)


if __name__ == "__main__":
    main()

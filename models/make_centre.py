#!/usr/bin/python3
"""Writes centre.onnx beside this script: what both channels share, as a graph of plain operators.

Needs Debian's python3-onnx. The file is checked in, so this runs only when the graph changes.

    apt-get install python3-onnx && /usr/bin/python3 models/make_centre.py
"""

from pathlib import Path

import onnx
from onnx import TensorProto, helper, numpy_helper
import numpy

FRAMES, BINS = 256, 2048
SHAPE = [1, 4, FRAMES, BINS]  # batch; Re L, Im L, Re R, Im R; frames; bins

# Keeps silence from dividing 0 by 0. Far below anything that is heard: a full-scale sine has an energy near 1e6, and
# one 240 dB weaker still 1e-18.
TINY = 1e-30

# Old on purpose, so that old runtimes read it: tried with ONNX Runtime 1.10 and 1.21.
OPSET, IR_VERSION = 13, 7


def nodes():
    """Between the split and the join every value is one plane [1, 1, frames, bins] and every step goes element by
    element. Of the formulations timed this is the fastest: sums over an axis (ReduceSum, MatMul, Conv) take several
    times as long. And it is exact where that matters: equal channels pass bit by bit, a silent one gives 0."""

    def node(operator, inputs, outputs, **attributes):
        return helper.make_node(operator, inputs.split(), outputs.split(), **attributes)

    return [
        node("Split", "spectrum", "left_re left_im right_re right_im", axis=1),
        # Re(L * conj R)
        node("Mul", "left_re right_re", "shared_re"),
        node("Mul", "left_im right_im", "shared_im"),
        node("Add", "shared_re shared_im", "shared"),
        # |L|^2 + |R|^2 + tiny
        node("Mul", "left_re left_re", "left_re_squared"),
        node("Mul", "left_im left_im", "left_im_squared"),
        node("Mul", "right_re right_re", "right_re_squared"),
        node("Mul", "right_im right_im", "right_im_squared"),
        node("Add", "left_re_squared left_im_squared", "left_energy"),
        node("Add", "right_re_squared right_im_squared", "right_energy"),
        node("Add", "left_energy right_energy", "energy"),
        node("Add", "energy tiny", "safe_energy"),
        # clip(2 x, 0, 1) * (L + R) / 2 = clip(x, 0, 1/2) * (L + R): neither factor needs a step of its own.
        node("Div", "shared safe_energy", "likeness"),
        node("Clip", "likeness zero half", "half_mask"),
        node("Add", "left_re right_re", "sum_re"),
        node("Add", "left_im right_im", "sum_im"),
        node("Mul", "sum_re half_mask", "centre_re"),
        node("Mul", "sum_im half_mask", "centre_im"),
        node("Concat", "centre_re centre_im centre_re centre_im", "centre", axis=1),
    ]


def model():
    constants = {"tiny": TINY, "zero": 0.0, "half": 0.5}
    graph = helper.make_graph(
        nodes(),
        "centre",
        [helper.make_tensor_value_info("spectrum", TensorProto.FLOAT, SHAPE)],
        [helper.make_tensor_value_info("centre", TensorProto.FLOAT, SHAPE)],
        [numpy_helper.from_array(numpy.array(value, numpy.float32), name) for name, value in constants.items()],
    )
    made = helper.make_model(
        graph,
        producer_name="tavrin",
        opset_imports=[helper.make_opsetid("", OPSET)],
        ir_version=IR_VERSION,
        doc_string="What both channels share. MIT licence.",
    )
    onnx.checker.check_model(made, full_check=True)
    return made


if __name__ == "__main__":
    onnx.save(model(), str(Path(__file__).with_name("centre.onnx")))

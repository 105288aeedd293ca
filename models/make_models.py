#!/usr/bin/python3
"""Writes the shipped models beside this script: centre.onnx, what both channels share, and percussive.onnx, what is
struck rather than held. Both are graphs of plain operators without weights.

Needs Debian's python3-onnx. The files are checked in, so this runs only when a graph changes.

    apt-get install python3-onnx && /usr/bin/python3 models/make_models.py
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

# Old on purpose, so that old runtimes read them.
OPSET, IR_VERSION = 13, 7


def node(operator, inputs, outputs, **attributes):
    return helper.make_node(operator, inputs.split(), outputs.split(), **attributes)


def centre():
    """Between the split and the join every value is one plane [1, 1, frames, bins] and every step goes element by
    element. Of the formulations timed this is the fastest: sums over an axis (ReduceSum, MatMul, Conv) take several
    times as long. And it is exact where that matters: equal channels pass bit by bit, a silent one gives 0."""
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


REACH = 8  # frames or bins to either side: openings 17 long


def opening(name, axis):
    """Energy opened along frames (axis 0) or bins (axis 1): the minimum around every place, then of these minima the
    maximum around every place. Only what is at least as long as the opening stays. Pooling pads with minus infinity, so
    at the edges of the block the neighbourhood is shorter and nothing comes in from outside."""
    reach = [REACH if axis == 0 else 0, REACH if axis == 1 else 0]
    window = {"kernel_shape": [2 * r + 1 for r in reach], "pads": reach + reach}
    return [
        node("MaxPool", "minus_energy", f"minus_{name}_floor", **window),
        node("Neg", f"minus_{name}_floor", f"{name}_floor"),
        node("MaxPool", f"{name}_floor", name, **window),
    ]


def percussive():
    """Minimum and maximum commute with squaring, so opened energies are the squares of opened magnitudes."""
    return [
        node("Mul", "spectrum spectrum", "squares"),
        node("Split", "squares", "left_re_squared left_im_squared right_re_squared right_im_squared", axis=1),
        node("Add", "left_re_squared left_im_squared", "left_energy"),
        node("Add", "right_re_squared right_im_squared", "right_energy"),
        node("Add", "left_energy right_energy", "energy"),
        node("Neg", "energy", "minus_energy"),
        *opening("held", 0),  # ridges along time
        *opening("struck", 1),  # ridges along frequency
        node("Add", "held struck", "both"),
        node("Add", "both tiny", "safe_both"),
        node("Div", "struck safe_both", "mask"),
        node("Mul", "spectrum mask", "percussive"),
    ]


def write(name, nodes, constants, text):
    graph = helper.make_graph(
        nodes,
        name,
        [helper.make_tensor_value_info("spectrum", TensorProto.FLOAT, SHAPE)],
        [helper.make_tensor_value_info(name, TensorProto.FLOAT, SHAPE)],
        [numpy_helper.from_array(numpy.array(value, numpy.float32), key) for key, value in constants.items()],
    )
    made = helper.make_model(
        graph,
        producer_name="tavrin",
        opset_imports=[helper.make_opsetid("", OPSET)],
        ir_version=IR_VERSION,
        doc_string=text + " MIT licence.",
    )
    onnx.checker.check_model(made, full_check=True)
    onnx.save(made, str(Path(__file__).with_name(name + ".onnx")))


if __name__ == "__main__":
    write("centre", centre(), {"tiny": TINY, "zero": 0.0, "half": 0.5}, "What both channels share.")
    write("percussive", percussive(), {"tiny": TINY}, "What is struck rather than held.")

#!/usr/bin/python3
"""Writes a model with random weights that costs what a small trained network does, for tavrin_latency: a chain of
convolutions at half the resolution, whose mask hangs on everything.

    apt-get install python3-onnx && /usr/bin/python3 bench/make_network.py network.onnx
"""

import sys

import numpy
import onnx
from onnx import TensorProto, helper, numpy_helper

FRAMES, BINS, CHANNELS, LAYERS = 256, 2048, 64, 10
SHAPE = [1, 4, FRAMES, BINS]


def main(file):
    random = numpy.random.default_rng(1)
    nodes, weights = [], []

    def layer(kind, source, target, shape, **attributes):
        scale = (2 / (shape[1] * shape[2] * shape[3])) ** 0.5
        weights.append(numpy_helper.from_array(random.normal(0, scale, shape).astype(numpy.float32), target + "_weight"))
        nodes.append(helper.make_node(kind, [source, target + "_weight"], [target], **attributes))

    layer("Conv", "spectrum", "layer0", [CHANNELS, 4, 2, 2], strides=[2, 2])
    for i in range(LAYERS):
        nodes.append(helper.make_node("Relu", [f"layer{i}"], [f"active{i}"]))
        layer("Conv", f"active{i}", f"layer{i + 1}", [CHANNELS, CHANNELS, 3, 3], pads=[1, 1, 1, 1])
    layer("ConvTranspose", f"layer{LAYERS}", "logits", [CHANNELS, 4, 2, 2], strides=[2, 2])
    nodes += [helper.make_node("Sigmoid", ["logits"], ["mask"]), helper.make_node("Mul", ["spectrum", "mask"], ["part"])]
    tensors = [helper.make_tensor_value_info(name, TensorProto.FLOAT, SHAPE) for name in ("spectrum", "part")]
    graph = helper.make_graph(nodes, "network", tensors[:1], tensors[1:], weights)
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 13)], ir_version=7)
    onnx.checker.check_model(model, full_check=True)
    onnx.save(model, file)


if __name__ == "__main__":
    main(sys.argv[1])

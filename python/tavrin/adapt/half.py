"""Stores a model's weights in half precision. Everything is still computed in single precision."""

import numpy
from onnx import TensorProto, helper, numpy_helper

FEWEST = 1024  # elements; smaller ones are not worth a node
LARGEST = float(numpy.finfo(numpy.float16).max)


def halve(model):
    graph, casts = model.graph, []
    for weight in graph.initializer:
        if weight.data_type != TensorProto.FLOAT or numpy.prod(weight.dims) < FEWEST:
            continue
        array = numpy_helper.to_array(weight)
        if numpy.abs(array).max() <= LARGEST:
            name = weight.name
            weight.CopyFrom(numpy_helper.from_array(array.astype(numpy.float16), f"half_{name}"))
            casts.append(helper.make_node("Cast", [weight.name], [name], to=TensorProto.FLOAT))
    nodes = [*casts, *graph.node]
    del graph.node[:]
    graph.node.extend(nodes)

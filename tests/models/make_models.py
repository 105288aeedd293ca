#!/usr/bin/env python3
"""Writes the tiny models of the tests beside this script. Needs Debian's python3-onnx; the same bytes on each run."""
from pathlib import Path

import numpy
from onnx import TensorProto, checker, helper, numpy_helper

CONTRACT = [1, 4, 256, 2048]  # batch, planes (real and imaginary per channel), frames, bins


def write(name, nodes, shape, kind=TensorProto.FLOAT, constants=(), inputs=("spectrum",), outputs=("separated",),
          flags=(), metadata=(), turned=False, results=None):
    tensor = helper.make_tensor_value_info
    order = slice(None, None, -1 if turned else 1)
    graph = helper.make_graph(
        nodes, name,
        ([tensor(text, kind, shape) for text in inputs] + [tensor(text, TensorProto.BOOL, [1]) for text in flags])[order],
        results or [tensor(text, kind, shape) for text in outputs][order],
        [numpy_helper.from_array(value, constant) for constant, value in constants])
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 13)], ir_version=8, producer_name="")
    helper.set_model_props(model, dict(metadata))
    checker.check_model(model)
    (Path(__file__).parent / f"{name}.onnx").write_bytes(model.SerializeToString(deterministic=True))


def write_gains(name, shape, gains, source="spectrum", **more):
    """Each output is the input times its gain."""
    nodes = [helper.make_node("Mul", [source, f"{output}_gain"], [output]) for output in gains]
    constants = [(f"{output}_gain", numpy.array([gain], numpy.float32)) for output, gain in gains.items()]
    write(name, nodes, shape, constants=constants, inputs=[source], outputs=list(gains), **more)


identity = [helper.make_node("Identity", ["spectrum"], ["separated"])]
write("passthrough", identity, CONTRACT)
write("small", identity, [1, 4, 8, 16])
write("symbolic", identity, [1, 4, "frames", 2048])
write("half", identity, CONTRACT, TensorProto.FLOAT16)

# Picks planes that do not exist. Which ones depends on the spectrum, so nothing notices before the model runs.
write("failing", [
    helper.make_node("ReduceMax", ["spectrum"], ["peaks"], axes=[0, 2, 3], keepdims=0),
    helper.make_node("Abs", ["peaks"], ["magnitudes"]),
    helper.make_node("Add", ["magnitudes", "planes"], ["beyond"]),
    helper.make_node("Cast", ["beyond"], ["indices"], to=TensorProto.INT64),
    helper.make_node("Gather", ["spectrum", "indices"], ["separated"], axis=1),
], CONTRACT, constants=[("planes", numpy.array([4], numpy.float32))])

# Frames and bins the other way round. Drops the upper half of the bins and clips, so that a wrong order or scale shows.
write("swapped", [
    helper.make_node("Slice", ["spectrum", "from", "to", "axis"], ["lower"]),
    helper.make_node("Pad", ["lower", "after"], ["all"]),
    helper.make_node("Clip", ["all", "lowest", "highest"], ["separated"]),
], [1, 4, 2048, 256], constants=[
    *[(name, numpy.array(value)) for name, value in
      [("from", [0]), ("to", [1024]), ("axis", [2]), ("after", [0, 0, 0, 0, 0, 0, 1024, 0])]],
    ("lowest", numpy.array(-8, numpy.float32)), ("highest", numpy.array(8, numpy.float32))])

# Each stem has a gain of its own, 1/2, 1/4, 1/8 …, and none looks at its flag: silence comes from the library's gating.
STEMS = ["vocals", "drum", "bass", "piano", "acoustic_guitar", "electric_guitar"]
write_gains("six_stems", CONTRACT, {f"{stem}_output": 0.5 ** (i + 1) for i, stem in enumerate(STEMS)}, "unified_input",
            flags=[f"{stem}_flag" for stem in STEMS])

# Says which flags are set, as a sum of 1, 2, 4 … in every value of each output. Names count, so all stands in the reverse
# order.
write("flags", [
    *[helper.make_node("Where", [f"{stem}_flag", f"{stem}_bit", "zero"], [f"{stem}_set"]) for stem in STEMS],
    helper.make_node("Mul", ["unified_input", "zero"], ["silence"]),
    *[helper.make_node("Sum", ["silence", *[f"{other}_set" for other in STEMS]], [f"{stem}_output"]) for stem in STEMS],
], [1, 4, 3, 8], inputs=["unified_input"], flags=[f"{stem}_flag" for stem in STEMS],
    outputs=[f"{stem}_output" for stem in STEMS], turned=True,
    constants=[("zero", numpy.zeros(1, numpy.float32)),
               *[(f"{stem}_bit", numpy.full(1, 2 ** i, numpy.float32)) for i, stem in enumerate(STEMS)]])

# As many stems as a model of this kind may have, each a power of two quieter than the one before, and all that a model can
# say of itself, nothing of it usual.
EIGHT = ["voice", "choir", "drums", "bass", "piano", "guitar", "strings", "wind"]
write_gains("eight_stems", [1, 4, 40, 700], {f"{stem}_of_eight": 0.5 ** (i + 1) for i, stem in enumerate(EIGHT)}, metadata={
    "tavrin.frame_length": "2048", "tavrin.hop": "512", "tavrin.window": "hann", "tavrin.sample_rate": "48000",
    "tavrin.context": "3", "tavrin.stems": ", ".join(EIGHT), "tavrin.title": "Eight", "tavrin.licence": "MIT",
    "tavrin.source": "made here"})

# Its output is a sequence, which has no dimensions to ask for.
write("no_tensor", [helper.make_node("SequenceConstruct", ["spectrum"], ["separated"])], CONTRACT,
      results=[helper.make_tensor_sequence_value_info("separated", TensorProto.FLOAT, None)])

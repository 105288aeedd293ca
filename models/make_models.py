#!/usr/bin/python3
"""Writes the shipped models beside this script, graphs of plain operators without weights:

    centre.onnx      what both channels share
    percussive.onnx  what is struck rather than held
    voice.onnx       what joins in the middle, in the range of voices

Needs Debian's python3-onnx. The files are checked in, so this runs only when a graph changes.

    apt-get install python3-onnx && /usr/bin/python3 models/make_models.py
"""

from pathlib import Path
import sys

import numpy

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "python/tavrin"))
from adapt.graph import Graph, save

FRAMES, BINS = 256, 2048
SHAPE = [1, 4, FRAMES, BINS]  # batch; Re L, Im L, Re R, Im R; frames; bins

# Keeps silence from dividing 0 by 0. Far below anything that is heard: a full-scale sine has an energy near 1e6, and
# one 240 dB weaker still 1e-18.
TINY = 1e-30


def shared_and_energy(graph, planes):
    """Re(L * conj R) and |L|^2 + |R|^2, each a plane [1, 1, frames, bins].

    Between the split and the join of a graph every step goes element by element. Of the formulations timed this is the
    fastest: sums over an axis (ReduceSum, MatMul) take several times as long."""
    left_re, left_im, right_re, right_im = planes
    shared = graph.Add(graph.Mul(left_re, right_re), graph.Mul(left_im, right_im))
    left = graph.Add(graph.Mul(left_re, left_re), graph.Mul(left_im, left_im))
    right = graph.Add(graph.Mul(right_re, right_re), graph.Mul(right_im, right_im))
    return shared, graph.Add(left, right)


def middle(graph, planes, half_mask):
    """half_mask * (L + R), the same in both channels."""
    left_re, left_im, right_re, right_im = planes
    re = graph.Mul(graph.Add(left_re, right_re), half_mask)
    im = graph.Mul(graph.Add(left_im, right_im), half_mask)
    return graph.Concat(re, im, re, im, axis=1)


def centre(graph):
    """Exact where that matters: equal channels pass bit by bit, a silent one gives 0."""
    planes = graph.add("Split", "spectrum", axis=1, outputs=4)
    shared, energy = shared_and_energy(graph, planes)
    # clip(2 x, 0, 1) * (L + R) / 2 = clip(x, 0, 1/2) * (L + R): neither factor needs a step of its own.
    return middle(graph, planes, graph.Clip(graph.Div(shared, graph.Add(energy, TINY)), 0.0, 0.5))


NEAR = 2, 1  # frames and bins to either side that a place is judged by
USUAL = 32  # frames to either side that say what is usual
BAND = 16  # bins, 172 Hz, that have one value of what is usual


def voice(graph):
    """What is in the middle now and not all the time: the sides' share of a place's energy beside its usual one."""
    planes = graph.add("Split", "spectrum", axis=1, outputs=4)
    left_re, left_im, right_re, right_im = planes
    middle_re, middle_im = graph.Add(left_re, right_re), graph.Add(left_im, right_im)
    sides_re, sides_im = graph.Sub(left_re, right_re), graph.Sub(left_im, right_im)
    middle = graph.Add(graph.Mul(middle_re, middle_re), graph.Mul(middle_im, middle_im))
    sides = graph.Add(graph.Mul(sides_re, sides_re), graph.Mul(sides_im, sides_im))
    kernel = [2 * side + 1 for side in NEAR]
    energies = graph.Conv(
        graph.Concat(middle, sides, axis=1), numpy.ones((2, 1, *kernel)), kernel_shape=kernel, pads=[*NEAR] * 2, group=2
    )
    middle, sides = graph.add("Split", energies, axis=1, outputs=2)
    share = graph.Div(sides, graph.Add(graph.Add(middle, sides), TINY))

    usual = graph.AveragePool(share, kernel_shape=[1, BAND], strides=[1, BAND])
    # Along the last axis the runtime takes a seventh of the time.
    usual = graph.Transpose(usual, perm=[0, 1, 3, 2])
    usual = graph.AveragePool(usual, kernel_shape=[1, 2 * USUAL + 1], pads=[0, USUAL, 0, USUAL])
    usual = graph.Transpose(usual, perm=[0, 1, 3, 2])
    # A half is a channel beside a silent one, which is nothing of the middle whatever is usual.
    usual = graph.Clip(graph.Add(usual, 0.01), 0.0, 0.5)
    bands = [FRAMES, BINS // BAND]
    usual = graph.Reshape(usual, graph.integers([*bands, 1]))
    band = graph.Clip(graph.Div(graph.Reshape(share, graph.integers([*bands, BAND])), usual), 0.0, 1.0)
    band = graph.Reshape(band, graph.integers([1, 1, FRAMES, BINS]))

    doubt = 2 * (1 + (numpy.arange(BINS) * 44100 / 4096 / 1000) ** 2)
    mask = graph.Div(graph.Sub(1.0, band), graph.Add(graph.Mul(band, doubt), 1.0))
    mask = graph.Mul(mask, voice_range() / 2)
    re, im = graph.Mul(middle_re, mask), graph.Mul(middle_im, mask)
    return graph.Concat(re, im, re, im, axis=1)


def voice_range():
    """1 for the bins of voices and 0 for those of bass and treble, with raised cosines an octave wide between them."""
    frequency = numpy.maximum(numpy.arange(BINS), 0.5) * 44100 / 4096
    above_bass = numpy.clip(numpy.log2(frequency / 120) + 0.5, 0, 1)
    below_treble = numpy.clip(numpy.log2(12000 / frequency) + 0.5, 0, 1)
    return numpy.sin(numpy.pi / 2 * above_bass) ** 2 * numpy.sin(numpy.pi / 2 * below_treble) ** 2


REACH = 8  # frames or bins to either side: openings 17 long
PART = 256  # places of a row that fit into a core's nearest memory 17 times


def opening(graph, minus_energy):
    """Energy opened along the axis before the last, given its negative: the minimum around every place, then of these
    minima the maximum around every place. Only what is at least as long as the opening stays. Pooling pads with minus
    infinity, so at the edges of the block the neighbourhood is shorter and nothing comes in from outside."""
    window = {"kernel_shape": [2 * REACH + 1, 1], "pads": [REACH, 0, REACH, 0]}
    return graph.MaxPool(graph.Neg(graph.MaxPool(minus_energy, **window)), **window)


def percussive(graph):
    """Minimum and maximum commute with squaring, so opened energies are the squares of opened magnitudes."""
    planes = graph.add("Split", graph.Mul("spectrum", "spectrum"), axis=1, outputs=4)
    minus_energy = graph.Neg(graph.Add(graph.Add(*planes[:2]), graph.Add(*planes[2:])))

    # Ridges along time. The bins are taken in parts, which is four times as fast as whole rows.
    parts = graph.Reshape(minus_energy, graph.integers([1, FRAMES, BINS // PART, PART]))
    held = opening(graph, graph.Transpose(parts, perm=[0, 2, 1, 3]))
    held = graph.Reshape(graph.Transpose(held, perm=[0, 2, 1, 3]), graph.integers([1, 1, FRAMES, BINS]))

    # Ridges along frequency.
    struck = graph.Transpose(opening(graph, graph.Transpose(minus_energy, perm=[0, 1, 3, 2])), perm=[0, 1, 3, 2])

    mask = graph.Div(struck, graph.Add(graph.Add(held, struck), TINY))
    return graph.Mul("spectrum", mask)


def write(build, context, title):
    name, graph = build.__name__, Graph(build.__name__)
    metadata = {"context": context, "stems": name, "title": title, "licence": "MIT", "source": "models/make_models.py"}
    made = graph.model(SHAPE, {name: build(graph)}, metadata, title + ". MIT licence.")
    save(made, Path(__file__).with_name(name + ".onnx"))


if __name__ == "__main__":
    write(centre, 1, "What both channels share")
    write(percussive, 2 * REACH, "What is struck rather than held")
    write(voice, USUAL + NEAR[0], "What joins in the middle, in the range of voices")

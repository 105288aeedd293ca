"""Writes the two-, four- and five-stem U-Nets of spectrum masks as ONNX graphs that take and give complex spectra.

    made = unet.model({"vocals": weights, "accompaniment": weights}, frames=512)

One network per stem sees the magnitudes of both channels, [1, 2, frames, bins], and gives a mask of that shape: six
convolutions of 5×5 with stride 2, six transposed ones with skips from before the normalisation, a dilated convolution of
4×4. A stem is the mix times the ratio of its squared estimate to the sum of all.

Weights are a dictionary of arrays with the names of the family's PyTorch ports, kernels [out, in, 5, 5] on the way down and
[in, out, 5, 5] on the way up:

    down1_conv.1.weight, .bias      the convolution            … down6_conv
    down1_act.0.weight, .bias, .running_mean, .running_var     … down5_act: normalisation (that of level 6 leads nowhere)
    up1.0.weight, .bias             the transposed convolution … up6
    up1.3.weight, .bias, .running_mean, .running_var           … up6: normalisation
    up7.0.weight, .bias             the mask's convolution, [2, 1, 4, 4]
"""

import numpy

from .graph import Graph

LEVELS = 6
MULTIPLE = 2**LEVELS  # frames and bins are halved six times
NORM_EPSILON = 1e-3
RATIO_EPSILON = 1e-10

ACTIVATIONS = ("relu", "elu")
MASKS = ("sigmoid", "softmax")
ABOVE = ("silence", "mean")


def model(
    networks, frames, metadata, *, bins=1024, activation="relu", mask="sigmoid", above="silence", wanted=None, text=""
):
    """The ONNX model of a family member.

    networks: {stem: weights}; frames: of one call, a multiple of 64; bins: of the network, a multiple of 64.
    activation: `relu` (leaky on the way down, plain on the way up; the two-stem models) or `elu` (the others).
    mask: `sigmoid`, or `softmax` over the stems (the five-stem models).
    above: what becomes of the bins above the network's. `silence`: nothing of them is in any stem, and the model has only
    the network's bins. `mean`: the mask's mean over the network's bins goes on up to half the frame length.
    wanted: the stems to give out; default: all. metadata: without the prefix `tavrin.`; the stems are added.
    """
    for name, value, choices in ("activation", activation, ACTIVATIONS), ("mask", mask, MASKS), ("above", above, ABOVE):
        if value not in choices:
            raise ValueError(f"{name} '{value}' is none of: {', '.join(choices)}")
    for name, value in ("frames", frames), ("bins", bins):
        if value < MULTIPLE or value % MULTIPLE:
            raise ValueError(f"{value} {name}: a positive multiple of {MULTIPLE} is needed")
    wanted = list(wanted or networks)
    all_bins = bins if above == "silence" else int(metadata["frame_length"]) // 2

    graph = Graph("unet")
    seen = "spectrum" if all_bins == bins else graph.Slice("spectrum", *map(graph.integers, ([0], [bins], [3])))
    planes = graph.add("Split", graph.Mul(seen, seen), axis=1, outputs=4)
    magnitude = graph.Sqrt(graph.Concat(graph.Add(*planes[:2]), graph.Add(*planes[2:]), axis=1))

    logits = {stem: _network(graph, magnitude, Weights(stem, weights), activation) for stem, weights in networks.items()}
    masks = _softmax(graph, logits) if mask == "softmax" else {stem: _sigmoid(graph, x) for stem, x in logits.items()}
    outputs = {}
    for stem, ratio in _ratios(graph, magnitude, masks, wanted).items():
        if all_bins > bins:
            upper = graph.Expand(graph.ReduceMean(ratio, axes=[3]), graph.integers([1, 2, frames, all_bins - bins]))
            ratio = graph.Concat(ratio, upper, axis=3)
        left, right = graph.add("Split", ratio, axis=1, outputs=2)
        outputs[stem] = graph.Mul("spectrum", graph.Concat(left, left, right, right, axis=1))
    return graph.model([1, 4, frames, all_bins], outputs, {**metadata, "stems": ",".join(wanted)}, text)


class Weights:
    """A network's weights with their shapes checked. Errors name the stem and the array."""

    def __init__(self, stem, arrays):
        self.stem, self.arrays = stem, arrays

    def get(self, name, *shape):
        if name not in self.arrays:
            raise ValueError(f"{self.stem}: no weights '{name}'; not a network of this family?")
        array = numpy.asarray(self.arrays[name])
        if array.ndim != len(shape) or any(want not in (None, have) for want, have in zip(shape, array.shape)):
            wanted = ", ".join("any" if n is None else str(n) for n in shape)
            raise ValueError(f"{self.stem}: '{name}' is {list(array.shape)}; [{wanted}] is needed")
        if not numpy.isfinite(array).all():
            raise ValueError(f"{self.stem}: '{name}' holds values that are not finite")
        return array.astype(numpy.float64)

    def norm(self, name, channels):
        """A trained normalisation is a scale and a shift per channel."""
        gain, bias, mean, variance = (
            self.get(f"{name}.{part}", channels) for part in ("weight", "bias", "running_mean", "running_var")
        )
        scale = gain / numpy.sqrt(variance + NORM_EPSILON)
        return scale, bias - mean * scale


def _network(graph, magnitude, weights, activation):
    """The mask's logits. Strided convolutions halve even lengths: of the padding of 3, one goes before and two after."""
    value, channels, skips = magnitude, 2, []
    for level in range(1, LEVELS + 1):
        kernel = weights.get(f"down{level}_conv.1.weight", None, channels, 5, 5)
        channels = len(kernel)
        bias = weights.get(f"down{level}_conv.1.bias", channels)
        skips.append(graph.Conv(value, kernel, bias, kernel_shape=[5, 5], strides=[2, 2], pads=[1, 1, 2, 2]))
        if level < LEVELS:
            value = _scale(graph, skips[-1], *weights.norm(f"down{level}_act.0", channels))
            value = graph.LeakyRelu(value, alpha=0.2) if activation == "relu" else graph.Elu(value)

    value = skips.pop()
    for level in range(1, LEVELS + 1):
        if level > 1:
            skip = skips.pop()
            value = graph.Concat(skip, value, axis=1)
            channels += weights.get(f"down{LEVELS + 1 - level}_conv.1.bias", None).size
        kernel = weights.get(f"up{level}.0.weight", channels, None, 5, 5)
        channels = kernel.shape[1]
        bias = weights.get(f"up{level}.0.bias", channels)
        norm = weights.norm(f"up{level}.3", channels)
        value = _double(graph, value, kernel, bias, activation, norm)

    kernel, bias = weights.get("up7.0.weight", 2, channels, 4, 4), weights.get("up7.0.bias", 2)
    return graph.Conv(value, kernel, bias, kernel_shape=[4, 4], dilations=[2, 2], pads=[3, 3, 3, 3])


def _scale(graph, value, scale, shift):
    """A scale and a shift per channel. As a convolution of 1×1 the runtime keeps its own layout of the channels and
    does the activation that follows in the same pass."""
    return graph.Conv(value, scale.reshape(-1, 1, 1, 1), shift, kernel_shape=[1, 1], group=scale.size)


def _double(graph, value, kernel, bias, activation, norm):
    """A transposed convolution of 5×5 with stride 2 whose output is cut by one at the front and two at the end,
    activation, normalisation.

    Along an axis even outputs use the taps 1 and 3, odd ones 0, 2 and 4, so it is also four plain convolutions, one per
    parity, whose outputs are put side by side. The runtime's kernels for those are twice as fast as for a transposed one
    where there are neither so many channels (the first level) nor so few (the last) that its layout does not suit.
    """
    inputs, channels = kernel.shape[:2]
    activate = graph.Relu if activation == "relu" else graph.Elu
    if channels < 16 or channels > 128:
        value = graph.ConvTranspose(value, kernel, bias, kernel_shape=[5, 5], strides=[2, 2], pads=[1, 1, 2, 2])
        return _scale(graph, activate(value), *norm)
    if channels < 32:  # four calls cost more than multiplying by the zeros that make all parities 3×3
        phases = numpy.zeros((2, 2, channels, inputs, 3, 3))
        for p, q in PARITIES:
            phases[p, q, :, :, : 2 + p, : 2 + q] = _phase(kernel, p, q)
        phases = phases.reshape(-1, inputs, 3, 3)
        value = activate(graph.Conv(value, phases, numpy.tile(bias, 4), kernel_shape=[3, 3], pads=[1, 1, 1, 1]))
        value = _scale(graph, value, *(numpy.tile(part, 4) for part in norm))
    else:
        parts = []
        for p, q in PARITIES:
            part = graph.Conv(value, _phase(kernel, p, q), bias, kernel_shape=[2 + p, 2 + q], pads=[1, 1, p, q])
            parts.append(_scale(graph, activate(part), *norm))
        value = graph.Concat(*parts, axis=1)
    return graph.DepthToSpace(value, blocksize=2, mode="DCR")


PARITIES = (0, 0), (0, 1), (1, 0), (1, 1)  # of an output's row and column


def _phase(kernel, p, q):
    """The kernel [out, in, 2 or 3, 2 or 3] that gives the outputs of this parity; its inputs begin one place before."""
    taps = [3, 1], [4, 2, 0]
    return kernel[:, :, taps[p]][:, :, :, taps[q]].swapaxes(0, 1)


def _sigmoid(graph, logits):
    """Spelt out: the ratio of two masks near 0 matters, and the runtime's own operator is exact near 1 only (it ends at
    1e-8, and music goes to 1e-30; random spectra come out at 45 dB from the original's instead of 109)."""
    return graph.Reciprocal(graph.Add(graph.Exp(graph.Neg(logits)), 1.0))


def _softmax(graph, logits):
    stacked = graph.Concat(*(graph.Unsqueeze(x, graph.integers([0])) for x in logits.values()), axis=0)
    parts = graph.add("Split", graph.Softmax(stacked, axis=0), axis=0, outputs=len(logits))
    return {stem: graph.Squeeze(part, graph.integers([0])) for stem, part in zip(logits, parts)}


def _ratios(graph, magnitude, masks, wanted):
    """(estimate² + e/n) / (sum of estimates² + e), with e against silence."""
    squares = {}
    for stem, mask in masks.items():
        estimate = graph.Mul(mask, magnitude)
        squares[stem] = graph.Mul(estimate, estimate)
    total = RATIO_EPSILON
    for square in squares.values():
        total = graph.Add(square, total)
    return {stem: graph.Div(graph.Add(squares[stem], RATIO_EPSILON / len(masks)), total) for stem in wanted}

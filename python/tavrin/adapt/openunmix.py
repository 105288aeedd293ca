"""Builds the graph of an Open-Unmix network from its checkpoint, or of several, one per target, as one model.

Magnitudes of both channels up to the trained bandwidth, scaled; dense layer and tanh; LSTM layers over the frames,
their input beside their output; two dense layers; a mask for every bin of the mixture's spectrum. Everything linear in
a row is folded into one matrix: the scalings and batch normalisations cost nothing.
"""

import numpy

from .graph import Graph
from .weights import WeightsError

FRAMES = 256
TINY = 1e-10  # keeps shares of nothing from being 0 / 0
NORM_EPSILON = 1e-5


class Network:
    """One target's weights, checked and folded. Matrices are [inputs, outputs]."""

    def __init__(self, weights, name):
        self.weights, self.name = weights, name
        hidden, columns = self.shape("fc1.weight", 2)
        (crop,) = self.shape("input_mean", 1)
        (self.all_bins,) = self.shape("output_mean", 1)  # with the Nyquist bin, which our spectra do not have
        if columns == crop or self.shape("fc3.weight", 2)[0] == self.all_bins:
            raise WeightsError(f"{name}: is for one channel; a network for stereo is needed")
        self.bins = self.all_bins - 1
        self.crop = min(crop, self.bins)

        scale, shift = self.norm("bn1", hidden)
        matrix = self.array("fc1.weight", (hidden, 2 * crop)) * numpy.tile(self.array("input_scale", (crop,)), 2)
        self.bias1 = (matrix @ numpy.tile(self.array("input_mean", (crop,)), 2)) * scale + shift
        seen = numpy.r_[0 : self.crop, crop : crop + self.crop]  # of left and right; the Nyquist bin counts as silent
        self.matrix1 = (matrix * scale[:, None])[:, seen].T

        self.layers = self.lstm(hidden)
        width = hidden + self.lstm_width
        scale, shift = self.norm("bn2", hidden)
        self.matrix2 = (self.array("fc2.weight", (hidden, width)) * scale[:, None]).T
        self.bias2 = shift

        scale, shift = self.norm("bn3", 2 * self.all_bins)
        output = numpy.tile(self.array("output_scale", (self.all_bins,)), 2)
        shift = shift * output + numpy.tile(self.array("output_mean", (self.all_bins,)), 2)
        kept = numpy.r_[0 : self.bins, self.all_bins : self.all_bins + self.bins]
        self.matrix3 = (self.array("fc3.weight", (2 * self.all_bins, hidden)) * (scale * output)[:, None])[kept].T
        self.bias3 = shift[kept]

    def shape(self, key, rank):
        if key not in self.weights:
            others = ", ".join(sorted(self.weights)[:3])
            raise WeightsError(f"{self.name}: no Open-Unmix network, '{key}' is missing (it has {others}, …)")
        found = self.weights[key].shape
        if len(found) != rank or 0 in found:
            raise WeightsError(f"{self.name}: '{key}' is {list(found)}; {rank} dimensions are needed")
        return found

    def array(self, key, shape):
        if self.shape(key, len(shape)) != shape:
            raise WeightsError(f"{self.name}: '{key}' is {list(self.weights[key].shape)}, {list(shape)} is needed")
        return self.weights[key].astype(numpy.float64)

    def norm(self, key, size):
        """Batch normalisation as a factor and a shift."""
        weight, bias, mean, variance = (
            self.array(f"{key}.{part}", (size,)) for part in ("weight", "bias", "running_mean", "running_var")
        )
        scale = weight / numpy.sqrt(variance + NORM_EPSILON)
        return scale, bias - mean * scale

    def lstm(self, width):
        """Per layer the matrices for inputs and states and the biases as the operator wants them, [directions, …]."""
        size = self.shape("lstm.weight_hh_l0", 2)[1]
        directions = ["", "_reverse"] if "lstm.weight_ih_l0_reverse" in self.weights else [""]
        self.lstm_size, self.lstm_width = size, size * len(directions)
        layers = []
        while f"lstm.weight_ih_l{len(layers)}" in self.weights:
            parts = []
            for part, shape in (("weight_ih", (width,)), ("weight_hh", (size,)), ("bias_ih", ()), ("bias_hh", ())):
                keys = [f"lstm.{part}_l{len(layers)}{direction}" for direction in directions]
                parts.append(numpy.stack([self.gates(self.array(key, (4 * size, *shape))) for key in keys]))
            layers.append((parts[0], parts[1], numpy.concatenate(parts[2:], axis=1)))
            width = self.lstm_width
        if not layers:
            self.shape("lstm.weight_ih_l0", 2)
        return layers

    @staticmethod
    def gates(rows):
        """Input, forget, cell, output as PyTorch stores them; input, output, forget, cell as the operator has them."""
        first, forget, cell, last = numpy.split(rows, 4)
        return numpy.concatenate([first, last, forget, cell])


def mask(graph, network, frames):
    """[1, 2, 1, frames, bins], at least 0: what of left and right belongs to the target."""
    size, crop = network.lstm_size, network.crop
    cropped = graph.Slice("spectrum", graph.integers([0]), graph.integers([crop]), graph.integers([3]))
    parts = graph.Split(graph.Mul(cropped, cropped), graph.integers([1, 1, 1, 1]), outputs=4, axis=1)
    energies = graph.Concat(graph.Add(*parts[:2]), graph.Add(*parts[2:]), axis=3)
    rows = graph.Reshape(graph.Sqrt(energies), graph.integers([frames, 2 * crop]))
    rows = graph.Tanh(graph.Gemm(rows, network.matrix1, network.bias1))
    states = graph.Reshape(rows, graph.integers([frames, 1, -1]))
    direction = "forward" if network.lstm_width == size else "bidirectional"
    for inputs, before, bias in network.layers:
        states = graph.LSTM(states, inputs, before, bias, hidden_size=size, direction=direction)
        states = graph.Reshape(states, graph.integers([frames, 1, -1]))
    rows = graph.Concat(rows, graph.Reshape(states, graph.integers([frames, -1])), axis=1)
    rows = graph.Relu(graph.Gemm(rows, network.matrix2, network.bias2))
    rows = graph.Relu(graph.Gemm(rows, network.matrix3, network.bias3))
    channels = graph.Reshape(rows, graph.integers([1, frames, 2, 1, network.bins]))
    return graph.Transpose(channels, perm=[0, 2, 3, 1, 4])


def build(targets, metadata, frames=FRAMES, apart=False):
    """The model of {stem: weights by name}. Of several targets each gets its share of the mixture, in the ratio of the
    estimates; `apart` leaves every estimate as it is."""
    networks = {stem: Network(weights, stem) for stem, weights in targets.items()}
    sizes = {network.bins for network in networks.values()}
    if len(sizes) > 1:
        raise WeightsError(f"the targets have different numbers of bins: {', '.join(map(str, sorted(sizes)))}")
    (bins,) = sizes
    graph = Graph("open_unmix")
    planes = graph.Reshape("spectrum", graph.integers([1, 2, 2, frames, bins]))
    masks = {stem: mask(graph, network, frames) for stem, network in networks.items()}
    if len(masks) > 1 and not apart:
        total = graph.Add(graph.Sum(*masks.values()), TINY)
        masks = {stem: graph.Div(name, total) for stem, name in masks.items()}
    shape = [1, 4, frames, bins]
    stems = {stem: graph.Reshape(graph.Mul(planes, name), graph.integers(shape)) for stem, name in masks.items()}
    geometry = {"frame_length": 2 * bins, "hop": bins // 2, "window": "hann"}
    return graph.model(shape, stems, {**geometry, "stems": ",".join(stems), **metadata})

#!/usr/bin/python3
"""The same U-Nets in plain PyTorch: what the ONNX graphs of unet.py are measured against, in parity and in speed.

Transform, networks and masks work on the whole song at once, in segments of 512 frames as the family's programs do.
Needs Debian's python3-torch. Nothing that is built, installed or tested by `make` needs it.
"""

import numpy
import torch
from torch import nn
from torch.nn import functional

FRAME, HOP, BINS, SEGMENT = 4096, 1024, 1024, 512


class Network(nn.Module):
    """Has the parameter names that unet.py reads."""

    def __init__(self, channels=(16, 32, 64, 128, 256, 512), activation="relu"):
        super().__init__()
        down = {"relu": lambda: nn.LeakyReLU(0.2), "elu": nn.ELU}[activation]
        up = {"relu": nn.ReLU, "elu": nn.ELU}[activation]
        width = [2, *channels]
        for k, (before, after) in enumerate(zip(width, width[1:]), 1):
            self.add_module(f"down{k}_conv", nn.Sequential(nn.ZeroPad2d((1, 2, 1, 2)), nn.Conv2d(before, after, 5, 2)))
            self.add_module(f"down{k}_act", nn.Sequential(nn.BatchNorm2d(after, eps=1e-3), down()))
        inputs = [channels[5], *(2 * n for n in channels[4::-1])]
        outputs = [*channels[4::-1], 1]
        for k, (before, after) in enumerate(zip(inputs, outputs), 1):
            parts = nn.ConvTranspose2d(before, after, 5, 2), nn.ZeroPad2d((-1, -2, -1, -2)), up(), nn.BatchNorm2d(after, 1e-3)
            self.add_module(f"up{k}", nn.Sequential(*parts))
        self.up7 = nn.Sequential(nn.Conv2d(1, 2, 4, dilation=2, padding=3))

    def forward(self, magnitude):
        value, skips = magnitude, []
        for k in range(1, 7):
            skips.append(getattr(self, f"down{k}_conv")(value))
            value = getattr(self, f"down{k}_act")(skips[-1])
        value = skips.pop()
        for k in range(1, 7):
            value = getattr(self, f"up{k}")(value if k == 1 else torch.cat([skips.pop(), value], 1))
        return self.up7(value)


def network(weights, activation="relu"):
    """A network with these weights, {name: array}."""
    channels = [len(weights[f"down{k}_conv.1.weight"]) for k in range(1, 7)]
    made = Network(channels, activation)
    made.load_state_dict({name: torch.from_numpy(numpy.array(array)) for name, array in weights.items()}, strict=False)
    return made.eval()


def ratios(networks, magnitude, mask="sigmoid"):
    """Masks of the stems for magnitudes [batch, 2, frames, bins]."""
    logits = torch.stack([net(magnitude) for net in networks])
    masks = torch.softmax(logits, 0) if mask == "softmax" else torch.sigmoid(logits)
    squares = (masks * magnitude) ** 2
    return (squares + 1e-10 / len(networks)) / (squares.sum(0) + 1e-10)


@torch.no_grad()
def separate(networks, audio, bins=BINS, segment=SEGMENT, mask="sigmoid"):
    """Stems [stems, 2, samples] of audio [2, samples]."""
    window = torch.hann_window(FRAME)
    spectrum = torch.stft(audio, FRAME, HOP, window=window, pad_mode="constant", return_complex=True)
    magnitude = spectrum[:, :bins].abs().transpose(1, 2)
    frames = magnitude.shape[1]
    magnitude = functional.pad(magnitude, (0, 0, 0, -frames % segment))
    segments = magnitude.unflatten(1, (-1, segment)).transpose(0, 1)
    stems = torch.stack([ratios(networks, one[None], mask)[:, 0] for one in segments], 2).flatten(2, 3)[:, :, :frames]
    return torch.stack([
        torch.istft(
            functional.pad(spectrum[:, :bins] * stem.transpose(1, 2), (0, 0, 0, FRAME // 2 + 1 - bins)),
            FRAME, HOP, window=window, length=audio.shape[1],
        )
        for stem in stems
    ])  # fmt: skip

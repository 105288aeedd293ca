#!/usr/bin/python3
"""The same U-Nets in plain PyTorch: what the ONNX graphs of unet.py are measured against, in parity and in speed.

Transform, networks and masks work on the whole song at once, in segments of 512 frames as the family's programs do, or
in overlapping windows as our engine does. Needs Debian's python3-torch, and ffmpeg; nothing that is built, installed or
tested by `make` needs it.

    models/unet_torch.py PACKAGE.whl SONG VOICE.wav [--context FRAMES]     separates SONG
"""

import argparse
import resource
import subprocess
import time

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
            double = nn.ConvTranspose2d(before, after, 5, 2), nn.ZeroPad2d((-1, -2, -1, -2))
            self.add_module(f"up{k}", nn.Sequential(*double, up(), nn.BatchNorm2d(after, 1e-3)))
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
def separate(networks, audio, bins=BINS, segment=SEGMENT, context=0, mask="sigmoid"):
    """Stems [stems, 2, samples] of audio [2, samples].

    context: frames at both ends of a segment that are only seen; the next segment begins so much earlier. With any, the
    segments lie as our engine's do, whose first frame ends where the audio begins: two before the first one here.
    """
    window = torch.hann_window(FRAME)
    spectrum = torch.stft(audio, FRAME, HOP, window=window, pad_mode="constant", return_complex=True)
    magnitude = spectrum[:, :bins].abs().transpose(1, 2)
    frames, step, first = magnitude.shape[1], segment - 2 * context, 2 if context else 0
    segments = -(-(first + frames) // step)
    before, whole = context + first, segments * step + 2 * context
    magnitude = functional.pad(magnitude, (0, 0, before, whole - before - frames))
    found = []
    for k in range(segments):
        stems = ratios(networks, magnitude[None, :, k * step : k * step + segment], mask)[:, 0]
        found.append(stems[:, :, context : segment - context])
    masks = torch.cat(found, 2)[:, :, first : first + frames].transpose(2, 3)
    upper = FRAME // 2 + 1 - bins
    return torch.stack([
        torch.istft(masked, FRAME, HOP, window=window, length=audio.shape[1])
        for masked in functional.pad(spectrum[:, :bins] * masks, (0, 0, 0, upper))
    ])  # fmt: skip


def main():
    import import_vocals

    parser = argparse.ArgumentParser(description="Takes the voice out of a song with plain PyTorch.")
    parser.add_argument("package"), parser.add_argument("song"), parser.add_argument("voice")
    parser.add_argument("--segment", type=int, default=SEGMENT)
    parser.add_argument("--context", type=int, default=0)
    parser.add_argument("--threads", type=int, default=2)
    options = parser.parse_args()
    torch.set_num_threads(options.threads)
    networks = [network(weights) for weights in import_vocals.networks(options.package).values()]
    start = time.perf_counter()
    audio = subprocess.run(
        ["ffmpeg", "-v", "error", "-i", options.song, "-ar", "44100", "-ac", "2", "-f", "f32le", "-"],
        check=True, stdout=subprocess.PIPE,
    ).stdout  # fmt: skip
    audio = torch.from_numpy(numpy.frombuffer(audio, "<f4").reshape(-1, 2).T.copy())
    voice = separate(networks, audio, segment=options.segment, context=options.context)[0]
    subprocess.run(
        [*"ffmpeg -v error -y -f f32le -ar 44100 -ac 2 -i - -c:a pcm_f32le".split(), options.voice],
        check=True, input=voice.T.contiguous().numpy().tobytes(),
    )  # fmt: skip
    seconds, song = time.perf_counter() - start, audio.shape[1] / 44100
    peak = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024
    print(f"{song:.0f} s of music in {seconds:.1f} s, {song / seconds:.1f} times real time; peak memory {peak:.0f} MiB")


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Every family of models with random weights: its own pipeline in PyTorch over a whole signal against ours.

    python3 -m venv --system-site-packages V && V/bin/pip install --no-deps openunmix==1.3.0
    V/bin/python bench/families.py parity [FAMILY …]    decibels away from the ends, by frames per call and context
    V/bin/python bench/families.py speed [FAMILY …]     processor time of a call on one thread
    V/bin/python bench/families.py store                small networks and stems for tests/families

Needs python3-torch, python3-onnx and a built build/release. FAMILY is mdx, openunmix or unet.

A network that halves the frames sees them in groups, and with random weights a shifted grouping changes all. So the
signal is delayed until our frames and groups lie where the pipeline's are. Ours end at multiples of the hop, the
pipelines' are centred there: the same thing when half a frame is a multiple of the hop.
"""

from pathlib import Path
import sys
import tempfile
import time
import types

import numpy
import torch
from torch import nn

ROOT = Path(__file__).resolve().parents[1]
# The models' folder last: a module there has the package's name.
sys.path += [str(ROOT / folder) for folder in ("tests/families", "python/tavrin", "models")]
from adapt import unet_layouts
import unet_torch
from families_test import adapt, agreement, signal
from library import Library

FOLDER = Path(tempfile.mkdtemp())
STORE = ROOT / "tests/families"


def randomize(network, audio=None):
    """Normalisations with made statistics, or with those of the sound, so that it arrives at the other end."""
    for module in network.modules():
        if isinstance(module, nn.modules.batchnorm._BatchNorm):
            nn.init.uniform_(module.weight, 0.5, 1.5)
            nn.init.normal_(module.bias, 0, 0.2)
            module.momentum = 1.0
    if audio is not None:
        with torch.no_grad():
            network.train()(audio)
    return network.eval()


class Mdx:
    """Convolutions along frames and bins, dense layers along bins, halvings of both axes, products as skips."""

    HOP = 1024

    class Block(nn.Module):
        def __init__(self, channels, layers, bins, narrow):
            super().__init__()
            one = lambda: nn.Sequential(
                nn.Conv2d(channels, channels, 3, padding=1), nn.BatchNorm2d(channels), nn.ReLU()
            )
            self.near = nn.Sequential(*(one() for _ in range(layers)))
            self.far = nn.Sequential(
                nn.Linear(bins, bins // narrow, bias=False), nn.BatchNorm2d(channels), nn.ReLU(),
                nn.Linear(bins // narrow, bins, bias=False), nn.BatchNorm2d(channels), nn.ReLU(),
            )  # fmt: skip

        def forward(self, x):
            x = self.near(x)
            return x + self.far(x)

    class Network(nn.Module):
        def __init__(self, bins, growth, halvings, layers, narrow):
            super().__init__()
            step = lambda kind, a, b, size: nn.Sequential(kind(a, b, size, size), nn.BatchNorm2d(b), nn.ReLU())
            block = lambda k: Mdx.Block(growth * (k + 1), layers, bins >> k, narrow)
            self.first = step(nn.Conv2d, 4, growth, 1)
            self.down = nn.ModuleList(block(k) for k in range(halvings))
            self.halves = nn.ModuleList(step(nn.Conv2d, growth * (k + 1), growth * (k + 2), 2) for k in range(halvings))
            self.middle = block(halvings)
            self.twice = nn.ModuleList(
                step(nn.ConvTranspose2d, growth * (k + 2), growth * (k + 1), 2) for k in reversed(range(halvings))
            )
            self.up = nn.ModuleList(block(k) for k in reversed(range(halvings)))
            self.last = nn.Conv2d(growth, 4, 1)

        def forward(self, x):
            x, skips = self.first(x).transpose(2, 3), []
            for block, half in zip(self.down, self.halves):
                skips.append(block(x))
                x = half(skips[-1])
            x = self.middle(x)
            for twice, block in zip(self.twice, self.up):
                x = block(twice(x) * skips.pop())
            return self.last(x.transpose(2, 3))

    SIZES = {  # frame length, bins, growth, halvings, layers, narrowing; seconds, 0: for speed alone
        "small": (6144, 64, 4, 2, 1, 4, 10),
        "6144 / 2048 bins": (6144, 2048, 32, 5, 3, 8, 30),
        "7680 / 3072 bins": (7680, 3072, 48, 5, 3, 8, 0),
    }

    def __init__(self, size):
        self.length, self.bins, growth, halvings, layers, narrow, self.seconds = self.SIZES[size]
        self.group, self.hop, self.halvings = 2**halvings, self.HOP, halvings
        self.network = self.Network(self.bins, growth, halvings, layers, narrow)
        self.window = torch.hann_window(self.length)
        randomize(self.network, self.spectrum(signal(5))[:, :, : self.bins, :128])

    def spectrum(self, audio):
        bins = torch.stft(torch.from_numpy(audio), self.length, self.hop, window=self.window, return_complex=True)
        return torch.view_as_real(bins).permute(0, 3, 1, 2).reshape(1, 4, self.length // 2 + 1, -1)

    def pipeline(self, audio):
        spectrum = self.spectrum(audio)
        frames = spectrum.shape[-1]
        seen = nn.functional.pad(spectrum[:, :, : self.bins], (0, -frames % self.group))
        stem = torch.zeros_like(spectrum)
        stem[:, :, : self.bins] = self.network(seen)[..., :frames]
        stem = torch.view_as_complex(stem.reshape(2, 2, -1, frames).permute(0, 2, 3, 1).contiguous())
        return {"vocals": torch.istft(stem, self.length, self.hop, window=self.window, length=audio.shape[1]).numpy()}

    def files(self, folder, frames):
        path, shape = folder / "mdx_vocals.onnx", (1, 4, self.bins, frames)
        torch.onnx.export(
            self.network, torch.zeros(shape), str(path), opset_version=13, input_names=["input"], output_names=["output"],
            dynamic_axes={"input": {0: "batch"}, "output": {0: "batch"}},
        )  # fmt: skip
        return ["mdx", path, "--frame-length", self.length]


class OpenUnmix:
    """The package's own networks and separator. Its import of torchaudio is for functions that are not used here."""

    SIZES = {  # bins, trained ones, hidden; targets; added to the forget gates' bias; seconds
        "small": (33, 21, 8, 2, 0, 2),
        "one target": (2049, 1487, 512, 1, 0, 30),
        "four targets": (2049, 1487, 512, 4, 0, 30),
        "four targets, forget +1": (2049, 1487, 512, 4, 1, 30),
        "four targets, forget +2": (2049, 1487, 512, 4, 2, 30),
        "1024 hidden": (2049, 1487, 1024, 1, 0, 0),
    }
    NAMES = "vocals", "drums", "bass", "other"

    def __init__(self, size):
        sys.modules.setdefault("torchaudio", types.ModuleType("torchaudio"))
        from openunmix.model import OpenUnmix as Network
        from openunmix.model import Separator

        bins, trained, hidden, targets, forget, self.seconds = self.SIZES[size]
        self.length, self.hop, self.group = 2 * (bins - 1), (bins - 1) // 2, 1
        self.networks = {}
        for name in self.NAMES[:targets]:
            network = Network(bins, 2, hidden, max_bin=trained)
            weights = network.state_dict()
            for key, low, high in (
                ("input_mean", -3, 0), ("input_scale", 0.1, 0.3), ("output_scale", 0.5, 1), ("output_mean", 0.1, 0.5),
            ):  # fmt: skip
                weights[key].uniform_(low, high)
            for key, bias in weights.items():
                if "bias_ih" in key:  # input, forget, cell, output
                    bias[bias.numel() // 4 : bias.numel() // 2] += forget
            self.networks[name] = randomize(network, torch.rand(4, 2, bins, 64) * 10)
        self.separator = Separator(self.networks, softmask=targets > 1, n_fft=self.length, n_hop=self.hop).eval()

    def pipeline(self, audio):
        return dict(zip(self.networks, self.separator(torch.from_numpy(audio)[None])[0].numpy()))

    def files(self, folder, frames):
        paths = [folder / f"{name}.pth" for name in self.networks]
        for path, network in zip(paths, self.networks.values()):
            torch.save(network.state_dict(), path)
        return ["openunmix", *paths, "--frames", frames]


class Unet:
    SIZES = {  # channels, stems, activation, mask; seconds
        "small": ((2, 2, 2, 2, 2, 2), 4, "elu", "sigmoid", 40),
        "small, five stems": ((2, 2, 2, 2, 2, 2), 5, "elu", "softmax", 40),
        "small, two stems": ((2, 2, 2, 2, 2, 2), 2, "relu", "sigmoid", 40),
        "two stems": ((16, 32, 64, 128, 256, 512), 2, "relu", "sigmoid", 40),
        "four stems": ((16, 32, 64, 128, 256, 512), 4, "elu", "sigmoid", 0),
        "five stems": ((16, 32, 64, 128, 256, 512), 5, "elu", "softmax", 0),
    }

    def __init__(self, size):
        channels, stems, self.activation, self.mask, self.seconds = self.SIZES[size]
        self.length, self.hop, self.group = 4096, 1024, 64
        self.networks = [unet_torch.Network(channels, self.activation) for _ in range(stems)]
        self.names = unet_layouts.STEMS[stems]
        for network in self.networks:
            randomize(network, torch.rand(1, 2, 256, 1024) * 10)

    def pipeline(self, audio):
        whole = -(-(audio.shape[1] // self.hop + 1) // self.group) * self.group  # one segment
        stems = unet_torch.separate(self.networks, torch.from_numpy(audio), segment=whole, mask=self.mask)
        return dict(zip(self.names, stems.numpy()))

    def files(self, folder, frames):
        """In the layout of the TensorFlow originals, the other way round than unet_layouts reads it."""
        arrays, counts = {}, {}

        def put(kind, parts):
            number = counts[kind] = counts.get(kind, -1) + 1
            for part, tensor in parts.items():
                arrays[f"{kind}_{number}.{part}" if number else f"{kind}.{part}"] = tensor.detach().numpy()

        for network in self.networks:
            downs = [getattr(network, f"down{k}_conv")[1] for k in range(1, 7)]
            norms = [getattr(network, f"down{k}_act")[0] for k in range(1, 7)]
            ups = [getattr(network, f"up{k}") for k in range(1, 7)]
            for layer in [*downs, network.up7[0]]:
                put("conv2d", {"kernel": layer.weight.permute(2, 3, 1, 0), "bias": layer.bias})
            for layer, *_ in ups:
                put("conv2d_transpose", {"kernel": layer.weight.permute(2, 3, 1, 0), "bias": layer.bias})
            for norm in [*norms, *(up[3] for up in ups)]:
                put("batch_normalization", {part: getattr(norm, name) for name, part in unet_layouts.NORM.items()})
        numpy.savez_compressed(folder / "stems.npz", **arrays)
        return ["unet", folder / "stems.npz", "--frames", frames]


FAMILIES = {"mdx": Mdx, "openunmix": OpenUnmix, "unet": Unet}


def delay(family, context):
    """Samples before the signal that bring our frames and groups to where the pipeline's are."""
    samples = -(family.length // 2) % family.hop
    while ((samples + family.length // 2) // family.hop + context) % family.group:
        samples += family.hop
    return samples


def ours(library, family, model, audio, context):
    before = delay(family, context)
    stems = library.separate(model, numpy.pad(audio, ((0, 0), (before, 0))), context)
    return {stem: samples[:, before:] for stem, samples in stems.items()}


@torch.no_grad()
def parity(library, wanted):
    contexts = {"small": [(256, 1), (256, 32), (1024, 256)], "mdx": [(256, 16), (256, 32), (1024, 288)],
                "openunmix": [(256, 1), (256, 16), (256, 32), (256, 64), (1024, 400)],
                "unet": [(256, 32), (512, 32), (512, 64), (1024, 256)]}  # fmt: skip
    for name in wanted:
        for size in FAMILIES[name].SIZES:
            torch.manual_seed(1)
            family = FAMILIES[name](size)
            if not family.seconds:
                continue
            audio = signal(family.seconds)
            theirs, exported = family.pipeline(audio), None
            for frames, context in contexts.get(size.partition(",")[0], contexts[name]):
                if exported != frames:
                    model, exported = adapt(FOLDER / "model.onnx", *family.files(FOLDER, frames)), frames
                stems = ours(library, family, model, audio, context)
                found = [f"{agreement(stems[stem], theirs[stem]):.0f}" for stem in theirs]
                print(f"{name}, {size}: {frames} frames, context {context}: {' '.join(found)} dB", flush=True)


@torch.no_grad()
def speed(library, wanted):
    """The time that one more call takes. Processor time of one thread says the most on a machine that is not quiet."""
    frames, context = 256, 16
    for name in wanted:
        for size in (size for size in FAMILIES[name].SIZES if "," not in size and size != "small"):
            family = FAMILIES[name](size)
            step = (frames - 2 * context) * family.hop
            model = adapt(FOLDER / "model.onnx", *family.files(FOLDER, frames))
            times = []
            for calls in 1, 2:
                audio = numpy.full((2, calls * step - step // 2), 0.01, numpy.float32)
                start = time.process_time()
                library.separate(model, audio, context, threads=1)
                times.append(time.process_time() - start)
            call, seconds = times[1] - times[0], step / 44100
            print(
                f"{name}, {size}: {len(model) / 2**20:.0f} MiB, {call:.2f} s for {seconds:.1f} s of music, "
                f"{seconds / call:.1f} times real time",
                flush=True,
            )


@torch.no_grad()
def store(_library, wanted):
    """What families_test.py reads: the networks' files, and some of the stems' samples from the middle."""
    middles = {}
    for name in wanted:
        torch.manual_seed(1)
        family = FAMILIES[name]("small")
        family.files(STORE, 256)
        if name == "openunmix":  # as PyTorch wrote it before 1.6
            state = family.networks["vocals"].state_dict()
            torch.save(state, STORE / "old_format.pth", _use_new_zipfile_serialization=False)
        for stem, samples in family.pipeline(signal(min(family.seconds, 14))).items():
            middle = samples.shape[1] // 2
            middles[f"{name}.{stem}"] = samples[:, middle : middle + 500]
        if name == "unet":  # two of them with the activation of the two-stem models
            trained, family = family.networks, Unet("small, two stems")
            for network, other in zip(family.networks, trained):
                network.load_state_dict(other.state_dict())
            middles["two.vocals"] = family.pipeline(signal(14))["vocals"][:, middle : middle + 500]
    numpy.savez_compressed(STORE / "stems_of_pytorch.npz", **middles)


if __name__ == "__main__":
    jobs = {"parity": parity, "speed": speed, "store": store}
    if len(sys.argv) < 2 or sys.argv[1] not in jobs or not set(sys.argv[2:]) <= set(FAMILIES):
        sys.exit(__doc__)
    jobs[sys.argv[1]](Library(ROOT / "build/release/src/libtavrin_proc.so"), sys.argv[2:] or list(FAMILIES))

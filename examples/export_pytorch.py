#!/usr/bin/python3
"""Trains a very small PyTorch model on made sounds and exports it for this library: tones.onnx, which keeps tones and
drops noise, and six.onnx, the same six times over, as a multi-stem model.

    apt-get install python3-torch && /usr/bin/python3 examples/export_pytorch.py
"""

import math

import torch

FRAME, HOP, FRAMES, BINS, RATE = 4096, 1024, 256, 2048, 44100
STEMS = ["vocals", "drum", "bass", "piano", "acoustic_guitar", "electric_guitar"]


def spectra(audio):
    """What the library gives to a model: [2, samples] to [1, 4, frames, bins]."""
    window = torch.blackman_window(FRAME, periodic=True)
    bins = torch.stft(audio, FRAME, HOP, window=window, center=False, return_complex=True)[:, :BINS]  # without Nyquist
    planes = torch.view_as_real(bins.transpose(1, 2)).permute(0, 3, 1, 2)  # channel, real or imaginary, frame, bin
    return planes.reshape(1, 4, -1, BINS)


class Mask(torch.nn.Module):
    """One gain between 0 and 1 per frame and bin, from the energies around it, for both channels."""

    def __init__(self):
        super().__init__()
        self.layers = torch.nn.Sequential(
            torch.nn.Conv2d(1, 8, (5, 9), padding=(2, 4)), torch.nn.ReLU(),
            torch.nn.Conv2d(8, 8, (5, 9), padding=(2, 4)), torch.nn.ReLU(),
            torch.nn.Conv2d(8, 1, 1))

    def forward(self, spectrum):
        energy = (spectrum * spectrum).sum(1, keepdim=True)
        return spectrum * torch.sigmoid(self.layers(torch.log(energy + 1e-6) / 8))


class SixStems(torch.nn.Module):
    def __init__(self, models):
        super().__init__()
        self.models = torch.nn.ModuleList(models)

    def forward(self, spectrum, *flags):
        return tuple(model(spectrum) * flag.float() for model, flag in zip(self.models, flags))


def sounds(seconds=1.0):
    """Tones and noise of random level and balance, [2, samples] each."""
    time = torch.arange(int(seconds * RATE)) / RATE
    pitches = 80 * 40 ** torch.rand(12, 1)
    tones = torch.sin(2 * math.pi * (pitches * time + torch.rand(12, 1)))
    levels = torch.rand(2, 12) * 0.1
    return levels @ tones, torch.randn(2, len(time)) * torch.rand(2, 1) * 0.1


def train(model, steps=100):
    optimiser = torch.optim.Adam(model.parameters(), 3e-3)
    for step in range(steps):
        tones, noise = sounds()
        first = 512 * (step % 4)  # a quarter of the bins at a time: the model is the same everywhere
        mix, wanted = (spectra(audio)[..., first:first + 512] for audio in (tones + noise, tones))
        loss = (model(mix) - wanted).abs().mean()
        optimiser.zero_grad()
        loss.backward()
        optimiser.step()
        if step % 25 == 0:
            print(f"step {step}: loss {loss.item():.3f}")


def export(model, file, flags, outputs):
    """Fixed dimensions, because no dynamic axes are named."""
    inputs = (torch.zeros(1, 4, FRAMES, BINS), *(torch.ones(1, dtype=torch.bool) for _ in flags))
    names = ["unified_input" if flags else "spectrum", *flags]
    torch.onnx.export(model.eval(), inputs, file, input_names=names, output_names=outputs, opset_version=13)


if __name__ == "__main__":
    torch.manual_seed(1)
    model = Mask()
    train(model)
    export(model, "tones.onnx", [], ["tones"])
    export(SixStems([model] * 6), "six.onnx", [f"{s}_flag" for s in STEMS], [f"{s}_output" for s in STEMS])

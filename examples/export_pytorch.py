#!/usr/bin/python3
"""Trains a very small PyTorch model on made sounds and exports it for this library: tones.onnx, which takes a mix apart
into tones and noise.

    apt-get install python3-torch python3-onnx && /usr/bin/python3 examples/export_pytorch.py
"""

import math

import onnx
import torch

FRAME, HOP, FRAMES, BINS, RATE = 4096, 1024, 256, 2048, 44100


def spectra(audio):
    """What the library gives to a model: [2, samples] to [1, 4, frames, bins]."""
    window = torch.blackman_window(FRAME, periodic=True)
    bins = torch.stft(audio, FRAME, HOP, window=window, center=False, return_complex=True)[:, :BINS]  # without Nyquist
    planes = torch.view_as_real(bins.transpose(1, 2)).permute(0, 3, 1, 2)  # channel, real or imaginary, frame, bin
    return planes.reshape(1, 4, -1, BINS)


class TonesAndNoise(torch.nn.Module):
    """One gain between 0 and 1 per frame and bin, from the energies around it, for both channels; what the tones do not
    get is noise."""

    REACH = 4  # frames to either side that a frame's result hangs on: two for each of the two layers

    def __init__(self):
        super().__init__()
        self.layers = torch.nn.Sequential(
            torch.nn.Conv2d(1, 8, (5, 9), padding=(2, 4)), torch.nn.ReLU(),
            torch.nn.Conv2d(8, 8, (5, 9), padding=(2, 4)), torch.nn.ReLU(),
            torch.nn.Conv2d(8, 1, 1))

    def forward(self, spectrum):
        energy = (spectrum * spectrum).sum(1, keepdim=True)
        tones = spectrum * torch.sigmoid(self.layers(torch.log(energy + 1e-6) / 8))
        return tones, spectrum - tones


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
        loss = (model(mix)[0] - wanted).abs().mean()
        optimiser.zero_grad()
        loss.backward()
        optimiser.step()
        if step % 25 == 0:
            print(f"step {step}: loss {loss.item():.3f}")


def export(model, file):
    """Fixed dimensions, because no dynamic axes are named; then what the model says of itself."""
    torch.onnx.export(model.eval(), torch.zeros(1, 4, FRAMES, BINS), file, input_names=["spectrum"],
                      output_names=["tones", "noise"], opset_version=13)
    exported = onnx.load(file)
    onnx.helper.set_model_props(exported, {
        "tavrin.frame_length": str(FRAME),
        "tavrin.hop": str(HOP),
        "tavrin.window": "blackman",
        "tavrin.sample_rate": str(RATE),
        "tavrin.context": str(model.REACH),
        "tavrin.stems": "tones,noise",
        "tavrin.title": "Tones and noise",
        "tavrin.licence": "MIT",
    })
    onnx.save(exported, file)


if __name__ == "__main__":
    torch.manual_seed(1)
    model = TonesAndNoise()
    train(model)
    export(model, "tones.onnx")

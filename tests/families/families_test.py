#!/usr/bin/python3
"""Small networks of every family, from their files through scripts/adapt_model.py and the library, and what the readers
say of files that are wrong. Needs Debian's python3-onnx.    families_test.py LIBRARY

What is stored beside this script was written by bench/families.py store, with random weights.
"""

import os
from pathlib import Path
import pickle
import subprocess
import sys
import tempfile
import unittest
import zipfile

import numpy

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[1]
sys.path += [str(ROOT / "bench"), str(ROOT / "python/tavrin")]
from adapt import weights
from library import Library

FOLDER = Path(tempfile.mkdtemp())
RATE = 44100


def signal(seconds):
    """Tones that come and go, left and right their own, none near the Nyquist bin, which our spectra leave out."""
    random, time = numpy.random.RandomState(1), numpy.arange(int(seconds * RATE)) / RATE
    audio = numpy.zeros((2, time.size))
    for _ in range(24):
        pitch, slow, phase = 40 * 450 ** random.rand(), 4 * random.rand(), 6 * random.rand()
        tone = 0.05 * numpy.sin(2 * numpy.pi * pitch * time + phase) * numpy.sin(slow * time + phase) ** 4
        audio += numpy.outer(random.rand(2), tone)
    return audio.astype(numpy.float32)


def lowpass(audio, hertz):
    return numpy.fft.irfft(numpy.fft.rfft(audio)[:, : hertz * audio.shape[1] // RATE], audio.shape[1])


def agreement(ours, theirs):
    """Decibels by which the difference is below the signal, a fifth away from both ends."""
    cut = theirs.shape[1] // 5
    ours, theirs = ours[:, cut:-cut].astype(float), theirs[:, cut:-cut].astype(float)
    return 10 * numpy.log10((theirs**2).sum() / max(((ours - theirs) ** 2).sum(), 1e-30))


def tool(*arguments):
    return subprocess.run([ROOT / "scripts/adapt_model.py", *map(str, arguments)], capture_output=True, text=True)


def adapt(out, family, *arguments):
    """The bytes of the adapted model."""
    files = [part for part in arguments if isinstance(part, Path)]
    done = tool(family, *files, out, *(part for part in arguments if not isinstance(part, Path)))
    assert done.returncode == 0, done.stderr
    return out.read_bytes()


class Families(unittest.TestCase):
    def test_giveTheStemsOfTheirOwnPipelines(self):
        expected = numpy.load(HERE / "stems_of_pytorch.npz")
        # seconds, context that covers the reach, samples that bring our frames to theirs
        for family, arguments, seconds, context, delay in [
            ("mdx", [HERE / "mdx_vocals.onnx", "--frame-length", 6144], 10, 32, 1024),
            ("openunmix", [HERE / "vocals.pth", HERE / "drums.pth"], 2, 64, 0),
            ("unet", [HERE / "stems.npz", "--frames", 1024], 14, 256, 62 * 1024),
        ]:
            model = adapt(FOLDER / "model.onnx", family, *arguments)
            audio = numpy.pad(signal(seconds), ((0, 0), (delay, 0)))
            stems = LIBRARY.separate(model, audio, context)
            names = [name for name in expected if name.startswith(family + ".")]
            self.assertEqual([f"{family}.{stem}" for stem in stems], names)
            for name in names:
                theirs, ours = expected[name], stems[name.partition(".")[2]][:, delay:]
                middle = ours.shape[1] // 2
                with self.subTest(name):
                    self.assertGreater(agreement(ours[:, middle : middle + theirs.shape[1]], theirs), 60)

    def test_invertIsTheMixWithoutTheStemAndHalfIsClose(self):
        audio, options = signal(3), [HERE / "mdx_vocals.onnx", "--frame-length", 6144]
        switches = [], ["--invert", "--stems", "band"], ["--compensate", 2, "--half"]
        models = (adapt(FOLDER / "model.onnx", "mdx", *options, *more) for more in switches)
        (stem,), (rest,), (loud,) = (LIBRARY.separate(model, audio).values() for model in models)
        # The network sees 64 bins, up to 459 Hz: above it the inverted stem has nothing.
        self.assertGreater(agreement(lowpass(stem + rest, 400), lowpass(audio, 400)), 60)
        self.assertGreater(agreement(loud, 2 * stem), 40)

    def test_otherFramesBinsAndRatesGiveEightStemsAndTheRest(self):
        low = lowpass(signal(3), 11025)  # below the model's 700 bins
        stems = LIBRARY.separate((ROOT / "tests/models/eight_stems.onnx").read_bytes(), low, rest=True)
        self.assertEqual(list(stems), "voice choir drums bass piano guitar strings wind rest".split())
        self.assertGreater(agreement(2 * stems["voice"], low), 100)
        self.assertTrue(numpy.array_equal(stems["voice"], 128 * stems["wind"]))
        self.assertLess(numpy.abs(sum(stems.values()) - low).max(), 1e-6)


class Hostile:
    def __reduce__(self):
        return os.mkdir, (str(FOLDER / "hostile"),)


class Readers(unittest.TestCase):
    def test_sayInOneLineWhatIsWrong(self):
        with zipfile.ZipFile(FOLDER / "zipped.pth", "w") as archive:
            archive.writestr("zipped/data.pkl", pickle.dumps({"fc1.weight": Hostile()}, 2))
        with zipfile.ZipFile(HERE / "vocals.pth") as whole, zipfile.ZipFile(FOLDER / "short.pth", "w") as archive:
            for name in whole.namelist():  # the tensors are as large as before, their data is not
                archive.writestr(name, whole.read(name)[: 8 if "/data/" in name else None])
        (FOLDER / "bare.pth").write_bytes(pickle.dumps(Hostile(), 0))
        numpy.savez(FOLDER / "other.npz", **weights.load(HERE / "vocals.pth") | {"fc2.weight": numpy.zeros((3, 3))})
        for text, family, *arguments in [
            ("wants posix.mkdir, which is no tensor", "openunmix", FOLDER / "zipped.pth"),
            ("wants posix.mkdir, which is no tensor", "unet", FOLDER / "bare.pth"),
            ("reaches beyond its data", "openunmix", FOLDER / "short.pth"),
            ("'fc1.weight' is missing", "openunmix", HERE / "stems.npz"),
            ("'fc2.weight' is [3, 3], [8, 16] is needed", "openunmix", FOLDER / "other.npz"),
            ("neither 'down1_conv.1.weight' nor 'conv2d.kernel'", "unet", HERE / "vocals.pth"),
            ("--frame-length", "mdx", HERE / "mdx_vocals.onnx"),
            ("--bins 4096 does not fit it", "plain", HERE / "mdx_vocals.onnx", "--bins", "4096"),
            ("cannot be read as an ONNX model", "mdx", HERE / "vocals.pth"),
            ("neither a PyTorch checkpoint", "openunmix", HERE / "families_test.py"),
            ("No such file", "plain", FOLDER / "absent.onnx"),
        ]:
            done = tool(family, *arguments, FOLDER / "out.onnx")
            with self.subTest(text):
                self.assertEqual((done.returncode, done.stderr.count("\n")), (1, 1), done.stderr)
                self.assertIn(text, done.stderr)
        self.assertFalse((FOLDER / "hostile").exists() or (FOLDER / "out.onnx").exists())

    def test_refuseFilesThatAreCutOffOrDamaged(self):
        """Whatever is loaded in spite of it has real arrays."""
        random = numpy.random.RandomState(1)
        for name in "vocals.pth", "old_format.pth", "stems.npz":
            whole = (HERE / name).read_bytes()
            for k in range(60):
                damaged = bytearray(whole[: random.randint(len(whole))] if k < 20 else whole)
                for place in random.randint(len(whole), size=0 if k < 20 else 3):
                    damaged[place % 2000 if k < 40 else place] = random.randint(256)
                (FOLDER / name).write_bytes(damaged)
                try:
                    found = weights.load(FOLDER / name)
                except weights.WeightsError as reason:
                    self.assertNotIn("\n", str(reason))
                else:
                    self.assertTrue(k >= 20 and all(isinstance(array, numpy.ndarray) for array in found.values()))


if __name__ == "__main__":
    LIBRARY = Library(sys.argv.pop(1))
    unittest.main()

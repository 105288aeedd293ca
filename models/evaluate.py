#!/usr/bin/python3
"""Measures how well models take a voice out of music whose parts are known: prints the tables of the models' cards.

    scripts/setup.sh songs && scripts/setup.sh voices && scripts/setup.sh vocals
    models/evaluate.py build/release/tools/tavrin-separate [MODEL...]

Recorded speech (a man's and a woman's, in turn) is mixed over a minute of each of the demo's songs, at three levels, in
the middle and halfway to the left, and separated by the command. Nothing of this material was used to choose a model's
constants. SDR is 10 log10(|s|² / |s - e|²) of the part s and its estimate e over both channels; SI-SDR the same after
the estimate's best scaling. Needs ffmpeg and Debian's python3-numpy; takes some minutes.
"""

import math
from pathlib import Path
import subprocess
import sys
import tempfile

import numpy

DEPS = Path(__file__).parent.parent / ".deps"
RATE, START, SECONDS, GAP = 44100, 30, 60, 0.3
LEVELS = 0, -6, 6  # dB of the voice against the band
PLACES = {"middle": (1, 1), "left": (math.sqrt(2) * math.cos(math.pi / 8), math.sqrt(2) * math.sin(math.pi / 8))}


def read(path):
    """[samples, 2]"""
    command = ["ffmpeg", "-v", "error", "-i", path, "-ar", str(RATE), "-ac", "2", "-f", "f32le", "-"]
    return numpy.frombuffer(subprocess.run(command, check=True, capture_output=True).stdout, "<f4").reshape(-1, 2)


def write(path, samples):
    command = f"ffmpeg -v error -y -f f32le -ar {RATE} -ac 2 -i - -c:a pcm_f32le".split()
    subprocess.run([*command, path], check=True, input=samples.astype("<f4").tobytes())


def speech(seconds, skip):
    """The recordings one after the other, each as loud as the others, beginning with number `skip`."""
    recordings = sorted((DEPS / "voices").glob("*/*.ogg"), key=lambda path: path.name[1:])  # m- and v- are the speakers
    parts, length = [], 0
    for path in (recordings[skip:] + recordings) * 2:
        if length >= seconds * RATE:
            break
        mono = read(path).astype(float).mean(1)
        parts += [mono / numpy.sqrt(numpy.mean(mono**2)), numpy.zeros(int(GAP * RATE))]
        length += sum(map(len, parts[-2:]))
    return numpy.concatenate(parts)[: seconds * RATE]


def sdr(part, estimate):
    return 10 * math.log10(numpy.sum(part**2) / numpy.sum((part - estimate) ** 2))


def si_sdr(part, estimate):
    return sdr(part * (numpy.sum(part * estimate) / numpy.sum(part**2)), estimate)


def scores(voice, band, voice_stem, band_stem):
    return [measure(*pair) for pair in ((voice, voice_stem), (band, band_stem)) for measure in (sdr, si_sdr)]


def main():
    command, models = sys.argv[1], sys.argv[2:] or ["centre", "voice", "vocals"]
    songs = [path for path in sorted((DEPS / "songs" / "sectoid").iterdir()) if (path / "song.ogg").exists()]
    with tempfile.TemporaryDirectory() as folder:
        for place, gains in PLACES.items():
            for level in LEVELS:
                found = {name: [] for name in ["mix", *models]}
                for number, song in enumerate(songs):
                    excerpt = slice(START * RATE, (START + SECONDS) * RATE)
                    band = sum(read(song / track)[excerpt].astype(float) for track in ("song.ogg", "guitar.ogg"))
                    voice = numpy.outer(speech(SECONDS, 10 * number), gains)
                    voice *= numpy.sqrt(numpy.mean(band**2) / numpy.mean(voice**2)) * 10 ** (level / 20)
                    mix = Path(folder) / "mix.wav"
                    write(mix, voice + band)
                    found["mix"].append(scores(voice, band, voice + band, voice + band))
                    for model in models:
                        out = Path(folder) / "out"
                        options = "--name {part}.{ext} --quiet --no-record --overwrite".split()
                        subprocess.run([command, mix, "--model", model, "-o", out, *options], check=True)
                        (stem,) = (path for path in out.iterdir() if path.name != "rest.wav")
                        found[model].append(scores(voice, band, read(stem), read(out / "rest.wav")))
                        stem.unlink()
                print(f"\nVoice in the {place}, {level:+} dB; mean (worst) of {len(songs)} songs\n" if level else
                      f"\nVoice in the {place}, as loud as the band; mean (worst) of {len(songs)} songs\n")
                print("| | voice SDR | voice SI-SDR | band SDR | band SI-SDR |\n|---|---|---|---|---|")
                for name, rows in found.items():
                    cells = zip(numpy.mean(rows, 0), numpy.min(rows, 0))
                    row = " | ".join(f"{mean:.1f} ({worst:.1f})" for mean, worst in cells)
                    print(f"| {Path(name).stem} | {row} |", flush=True)


if __name__ == "__main__":
    main()

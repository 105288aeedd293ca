#!/usr/bin/env python3
"""Separates an audio file of any length in bounded memory, with a progress bar:  separate_file.py MODEL SONG FOLDER

Needs soundfile and tqdm."""
import contextlib
import sys
from pathlib import Path

import soundfile
import tqdm

import tavrin

BLOCK = 65536  # samples; any number will do

model_name, song_path, folder = sys.argv[1:]
model = tavrin.Model(model_name)
with contextlib.ExitStack() as files:
    song = files.enter_context(soundfile.SoundFile(song_path))
    if (song.channels, song.samplerate) != (2, model.sample_rate):
        sys.exit(f"{song_path}: stereo at {model.sample_rate} Hz is needed; convert it first")
    separator = files.enter_context(tavrin.Separator(model))
    Path(folder).mkdir(parents=True, exist_ok=True)
    parts = {name: files.enter_context(soundfile.SoundFile(Path(folder) / f"{name}.wav", "w", song.samplerate, 2, "FLOAT"))
             for name in separator.outputs}

    def write(outputs):
        for name, samples in outputs.items():
            parts[name].write(samples)

    with tqdm.tqdm(total=song.frames, unit="samples", unit_scale=True) as progress:
        for block in song.blocks(BLOCK, dtype="float32"):
            write(separator.process(block))
            progress.update(len(block))
    write(separator.finish())

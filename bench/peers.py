#!/usr/bin/env python3
"""Times other libraries' short-time Fourier transform and its inverse over one steady-state block of stereo audio.

Prints a line per library: its name and the median seconds per block on one thread, or why there is none.
"""
import os
import statistics
import sys
import time
import warnings

for variable in ("OMP_NUM_THREADS", "MKL_NUM_THREADS", "OPENBLAS_NUM_THREADS"):
    os.environ[variable] = "1"

warnings.simplefilter("ignore")  # of windows that begin with zero

FRAME, HOP, FRAMES, REPETITIONS = 4096, 1024, 253, 15
SAMPLES = FRAME + (FRAMES - 1) * HOP


def median_seconds(round_trip):
    times = []
    round_trip()
    for _ in range(REPETITIONS):
        start = time.perf_counter()
        round_trip()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def scipy_round_trip():
    import numpy
    from scipy import signal

    audio = numpy.random.default_rng(1).uniform(-1, 1, (2, SAMPLES)).astype(numpy.float32)
    window = signal.get_window("blackman", FRAME).astype(numpy.float32)
    geometry = {"window": window, "nperseg": FRAME, "noverlap": FRAME - HOP}

    def round_trip():
        spectrum = signal.stft(audio, boundary=None, padded=False, **geometry)[2]
        return signal.istft(spectrum, boundary=False, **geometry)

    return round_trip


def torch_round_trip():
    import torch

    torch.set_num_threads(1)
    audio = torch.rand(2, SAMPLES) * 2 - 1
    window = torch.blackman_window(FRAME)

    def round_trip():
        spectrum = torch.stft(audio, FRAME, HOP, window=window, center=False, return_complex=True)
        return torch.istft(spectrum, FRAME, HOP, window=window, center=True)

    return round_trip


for name, prepare in {"scipy": scipy_round_trip, "torch": torch_round_trip}.items():
    try:
        print(name, median_seconds(prepare()))
    except ImportError as missing:
        print(name, "-", missing)
    sys.stdout.flush()

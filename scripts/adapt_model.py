#!/usr/bin/python3
"""python -m tavrin.adapt without an installed package: --help tells of it."""

from pathlib import Path
import sys

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "python/tavrin"))
from adapt.__main__ import main

main()

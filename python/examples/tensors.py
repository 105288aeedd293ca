#!/usr/bin/env python3
"""Separates a torch tensor of a channel in each row, and has the stems as tensors again. Needs torch.

Neither way copies: a tensor shows its memory to NumPy, and torch takes an array's."""
import torch

import tavrin

model = tavrin.Model("centre")
time = torch.arange(5 * model.sample_rate) / model.sample_rate
middle, left = torch.sin(2500 * time), torch.sin(3000 * time)
song = 0.3 * torch.stack([middle + left, middle])  # [2, n]

stems = {name: torch.from_numpy(part) for name, part in tavrin.separate(model, song).items()}
for name, stem in stems.items():
    print(f"{name}: {list(stem.shape)}, level of left and right {stem.square().mean(dim=1).sqrt().tolist()}")

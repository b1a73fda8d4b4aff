"""Time array programs on what bench_imaging_intervalvector times.

    python3 bench/imaging/scipy_peer.py >scipy.json

Writes what Google Benchmark would: names and nanoseconds, for bench/ratios.py. The pictures are
those of that program: discs on a grid, at a distance of 29 or 4 pixels.
"""

import json
import sys
import time

import numpy as np
from scipy import ndimage

SIDE = 4096


def nanoseconds(work, runs=2):
    """The least processor time of a run: other programs may run beside."""
    best = float("inf")
    for _ in range(runs):
        start = time.process_time()
        work()
        best = min(best, time.process_time() - start)
    return best * 1e9


def discs(pitch):
    radius, grid = pitch * 3 // 8, (SIDE - 2) // pitch
    y, x = np.mgrid[0:2 * radius + 1, 0:2 * radius + 1] - radius
    cell = np.zeros((pitch, pitch), bool)
    cell[:2 * radius + 1, :2 * radius + 1] = x * x + y * y <= radius * radius
    label = np.arange(1, grid * grid + 1, dtype=np.uint32).reshape(grid, grid)
    labels = np.zeros((SIDE, SIDE), np.uint32)
    labels[1:1 + grid * pitch, 1:1 + grid * pitch] = np.kron(label, cell)
    return labels.astype(np.uint16) if grid * grid <= 65535 else labels


def measure(picture, labels, index):
    ndimage.mean(picture, labels, index)
    ndimage.minimum(picture, labels, index)
    ndimage.maximum(picture, labels, index)


def everything():
    numbers = np.arange(SIDE * SIDE, dtype=np.uint32) * np.uint32(2654435761)
    picture = (numbers >> np.uint32(16)).astype(np.uint16).reshape(SIDE, SIDE)
    for pitch in (29, 4):
        labels = discs(pitch)
        index = np.arange(1, labels.max() + 1)
        yield f"Measure/{pitch}/scipy", nanoseconds(lambda: measure(picture, labels, index))
        yield f"StencilVector/{pitch}/argsort", nanoseconds(
            lambda: np.argsort(labels, axis=None, kind="stable"))


json.dump({"benchmarks": [{"name": name, "cpu_time": taken, "time_unit": "ns"}
                          for name, taken in everything()]}, sys.stdout, indent=1)

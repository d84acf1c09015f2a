"""Shared photos and the C++ reference program (orvane_reference, built by make python)."""
import os
import pathlib
import struct
import subprocess

import numpy as np
import pytest

import orvane


def photo(width, height, seed):
    """A photo-like BGR image: colour gradients, a bright disc and a little grain."""
    y, x = np.mgrid[0:height, 0:width]
    cx, cy = width * (1 + seed % 3) // 4, height * (1 + seed % 2) // 3
    disc = (x - cx) ** 2 + (y - cy) ** 2 < max(height // (3 + seed % 2), 1) ** 2
    blue = x * (seed + 1) * 255 // width % 256
    green = (y * 200 // height + seed * 40) % 256
    red = np.where(disc, 250, ((x + y) * 90 // (width + height) + 30 * seed) % 256)
    grain = np.random.default_rng(seed).integers(0, 12, (height, width, 3))
    return np.minimum(np.stack([blue, green, red], axis=2) + grain, 255).astype(np.uint8)


def brighter(image):
    """The same scene a little brighter: what a re-encoded copy looks like."""
    return np.minimum(image.astype(np.int16) + 5, 255).astype(np.uint8)


@pytest.fixture(scope="session")
def reference():
    """run(command, photos) -> the reference program's output lines for BGR photos."""
    given = os.environ.get("ORVANE_REFERENCE")
    program = given or pathlib.Path(orvane.__file__).parents[1] / "orvane_reference"
    if not given and not program.exists():
        pytest.skip("no orvane_reference program (make python builds it)")

    def run(command, photos):
        data = b"".join(struct.pack("<II", p.shape[1], p.shape[0]) + p.tobytes() for p in photos)
        done = subprocess.run([program, *command], input=data, capture_output=True, check=True)
        return done.stdout.decode().splitlines()

    return run

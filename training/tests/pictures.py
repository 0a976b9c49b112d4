# SPDX-License-Identifier: MIT
"""Pictures for tests: the samples, and synthetic ones that are the same everywhere."""
import struct
import zlib

import numpy as np

from training.networks.library import IMAGE, ROOT


def read_grey_png(path):
    """An 8-bit PNG without interlacing, of a coloured one the green; so these tests need numpy
    alone."""
    data = path.read_bytes()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", path
    at, packed = 8, b""
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at : at + 8])
        body = data[at + 8 : at + 8 + length]
        if kind == b"IHDR":
            width, height, depth, colour, _, _, interlace = struct.unpack(">IIBBBBB", body)
            assert depth == 8 and colour in (0, 2) and interlace == 0, path
            channels = 3 if colour == 2 else 1
        elif kind == b"IDAT":
            packed += body
        at += 12 + length
    rows = np.frombuffer(zlib.decompress(packed), np.uint8).reshape(height, -1)
    # With a border above and to the left.
    picture = np.zeros((height + 1, width + 1, channels), np.int32)
    for y in range(height):
        row = rows[y, 1:].reshape(width, channels).astype(np.int32)
        _unfilter(int(rows[y, 0]), row, picture, y + 1)
    return picture[1:, 1:, channels // 2].astype(np.uint8)


def _unfilter(kind, row, picture, y):
    above = picture[y - 1]
    if kind == 0:
        picture[y, 1:] = row
    elif kind == 1:
        picture[y, 1:] = np.cumsum(row, axis=0) & 255
    elif kind == 2:
        picture[y, 1:] = (row + above[1:]) & 255
    else:
        for x in range(1, len(above)):
            left, up, corner = picture[y, x - 1], above[x], above[x - 1]
            picture[y, x] = (row[x - 1] + _guess(kind, left, up, corner)) & 255


def _guess(kind, left, up, corner):
    if kind == 3:
        return (left + up) // 2
    nearest = left + up - corner
    distances = [np.abs(nearest - value) for value in (left, up, corner)]
    first = (distances[0] <= distances[1]) & (distances[0] <= distances[2])
    return np.where(first, left, np.where(distances[1] <= distances[2], up, corner))


def _smooth(random, size, cells):
    """Random grey levels on a coarse grid, stretched linearly."""
    grid = random.uniform(0, 255, (cells + 1, cells + 1))
    at = np.linspace(0, cells, size)
    low = np.minimum(at.astype(int), cells - 1)
    part = at - low
    rows = grid[low] * (1 - part)[:, None] + grid[low + 1] * part[:, None]
    return rows[:, low] * (1 - part) + rows[:, low + 1] * part


def synthetic(count, size=IMAGE, seed=7):
    """Smooth pictures, noise, edges, flat and extreme ones."""
    random = np.random.default_rng(seed)
    out = []
    for i in range(count):
        kind = i % 5
        if kind == 0:
            picture = _smooth(random, size, int(random.integers(2, 12)))
        elif kind == 1:
            picture = random.uniform(0, 255, (size, size))
        elif kind == 2:
            picture = _smooth(random, size, 6) + random.normal(0, 20, (size, size))
        elif kind == 3:
            picture = 255.0 * (_smooth(random, size, 5) > 127)
        else:
            picture = np.full((size, size), float(random.choice([0, 1, 127, 128, 254, 255])))
        out.append(np.clip(picture, 0, 255).astype(np.uint8))
    return np.stack(out)


def samples():
    """The project's sample faces, each brought to a frame's size."""
    frames = []
    for path in sorted((ROOT / "samples").glob("**/*.png")):
        picture = read_grey_png(path)
        rows = np.arange(IMAGE) * picture.shape[0] // IMAGE
        columns = np.arange(IMAGE) * picture.shape[1] // IMAGE
        frames.append(picture[rows][:, columns])
    return np.stack(frames)

# SPDX-License-Identifier: MIT
"""Features to compare with: normalised pixels, and local binary patterns. Cosines tell how alike
two are."""
import numpy as np


def _unit(features):
    return features / np.maximum(np.linalg.norm(features, axis=1, keepdims=True), 1e-9)


def normalised_pixels(crops):
    """Grey levels less their mean, of length 1."""
    flat = crops.reshape(len(crops), -1).astype(np.float32)
    return _unit(flat - flat.mean(1, keepdims=True))


def _uniform_codes():
    """The 58 patterns with at most two changes around the circle, all others as one."""
    table, count = np.zeros(256, np.int64), 0
    for code in range(256):
        bits = [(code >> i) & 1 for i in range(8)]
        if sum(bits[i] != bits[i - 1] for i in range(8)) <= 2:
            table[code], count = count, count + 1
        else:
            table[code] = 58
    return table


def local_binary_patterns(crops, grid=8):
    """Histograms of 59 patterns in a grid of cells; square roots, so that the cosine is the
    histograms' overlap."""
    table, out = _uniform_codes(), []
    around = ((0, 0), (0, 1), (0, 2), (1, 2), (2, 2), (2, 1), (2, 0), (1, 0))
    size = crops.shape[1] - 2
    cell = np.minimum(np.arange(size) * grid // size, grid - 1)
    cells = cell[:, None] * grid + cell
    for crop in crops:
        centre = crop[1:-1, 1:-1]
        codes = np.zeros(centre.shape, np.int64)
        for bit, (y, x) in enumerate(around):
            codes |= (crop[y : y + size, x : x + size] >= centre).astype(np.int64) << bit
        place = (cells * 59 + table[codes]).ravel()
        out.append(np.sqrt(np.bincount(place, minlength=grid * grid * 59)))
    return _unit(np.array(out, np.float32))

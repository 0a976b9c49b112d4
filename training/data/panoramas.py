# SPDX-License-Identifier: MIT
"""Natural pictures that show no face: views into panoramas of real places (*.hdr, Radiance RGBE)."""
from pathlib import Path

import numpy as np


def read_panorama(path):
    """Grey radiance [rows, columns] of a run-length coded file."""
    data = Path(path).read_bytes()
    head, _, rest = data.partition(b"\n\n")
    size, _, rest = rest.partition(b"\n")
    words = size.split()
    if not head.startswith(b"#?") or len(words) != 4 or words[0] != b"-Y" or words[2] != b"+X":
        raise ValueError(f"{path}: not a Radiance picture as it is read here")
    rows, columns = int(words[1]), int(words[3])
    picture, at = np.empty((rows, 4, columns), np.uint8), 0
    for row in range(rows):
        if rest[at : at + 2] != b"\2\2":
            raise ValueError(f"{path}: its lines are not run-length coded")
        at += 4
        for channel in range(4):
            x = 0
            while x < columns:
                count = rest[at]
                if count > 128:
                    picture[row, channel, x : x + count - 128] = rest[at + 1]
                    x, at = x + count - 128, at + 2
                else:
                    picture[row, channel, x : x + count] = np.frombuffer(rest, np.uint8, count, at + 1)
                    x, at = x + count, at + 1 + count
    red, green, blue, exponent = picture.transpose(1, 0, 2).astype(np.float64)
    return (0.2126 * red + 0.7152 * green + 0.0722 * blue) * np.exp2(exponent - 136)


def views(folder, count, size, seed=0):
    """Float pictures [count, size, size] in 0 to 1, each a square out of a panorama as a camera tones it."""
    panoramas = [read_panorama(path) for path in sorted(Path(folder).glob("*.hdr"))]
    if not panoramas:
        raise ValueError(f"{folder}: no panoramas (*.hdr)")
    random = np.random.default_rng(seed)
    pictures = np.empty((count, size, size), np.float32)
    for picture in pictures:
        panorama = panoramas[random.integers(len(panoramas))]
        rows, columns = panorama.shape
        side = int(random.integers(rows // 5, rows // 2))
        top, left = random.integers(rows - side), random.integers(columns - side)
        place = (np.arange(size) * side // size).astype(int)
        part = panorama[top + place][:, left + place]
        picture[:] = np.clip(0.3 * part / np.median(part).clip(1e-6), 0, 1) ** (1 / 2.2)
    return pictures

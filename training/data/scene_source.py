# SPDX-License-Identifier: MIT
"""Batches of scenes: cut, mirrored and lit anew each time."""
from pathlib import Path

import numpy as np
import torch

from .scenes import COLUMNS, MOST, SWAPPED

_END = 128  # grey level of what lies beyond a picture's end


class SceneSource:
    """Shards of scenes, of several folders, as they appear."""

    def __init__(self, folders, seed):
        self.folders = [Path(folder) for folder in folders]
        self.random = np.random.default_rng(seed)
        self._known, self.shards = set(), []
        self.refresh()

    def refresh(self):
        for folder in self.folders:
            for path in sorted(folder.glob("scenes-*.faces.npy")):
                if path not in self._known and not path.name.endswith(".new.npy"):
                    self._known.add(path)
                    pictures = np.load(str(path)[: -len("faces.npy")] + "pictures.npy")
                    self.shards.append((pictures, np.load(path)))

    def draw(self):
        pictures, faces = self.shards[self.random.integers(len(self.shards))]
        i = self.random.integers(len(pictures))
        return pictures[i], faces[i]


class SceneAugmenter:
    def __init__(self, side, seed):
        self.side, self.random = side, np.random.default_rng(seed)

    def __call__(self, picture, faces):
        """[side, side] and the faces' rows in it."""
        random, side = self.random, self.side
        faces = faces.copy()
        left, top = (int(v) for v in random.integers(0, picture.shape[0] - side + 1, 2))
        picture = picture[top : top + side, left : left + side]
        faces[:, 1] -= left
        faces[:, 2] -= top
        faces[:, 4:14:2] -= left
        faces[:, 5:14:2] -= top
        if random.random() < 0.5:
            picture, faces = picture[:, ::-1], mirrored(faces, side)
        gain, lift = np.exp(random.normal(0, 0.15)), random.normal(0, 10)
        table = np.clip((np.arange(256) - 128) * gain + 128 + lift, 0, 255).astype(np.uint8)
        picture = table[picture]
        if random.random() < 0.12:
            self._end_early(picture, faces)
        return picture, faces

    def _end_early(self, picture, faces):
        """The picture ends within the plane, as small pictures do."""
        random, side = self.random, self.side
        real = faces[faces[:, 0] > 0]
        width, height = (int(v) for v in np.exp(random.uniform(np.log(24), np.log(side), 2)))
        if len(real) and random.random() < 0.8:
            face = real[random.integers(len(real))]
            width, height = (int(v + 0.5 * face[3] + random.uniform(0, 16)) for v in face[1:3])
        picture[:, max(width, 8) :] = _END
        picture[max(height, 8) :] = _END
        for face in faces:
            half = 0.31 * face[3]
            seen = 1.0
            for at, end in ((face[1], width), (face[2], height)):
                seen *= np.clip((end - (at - half)) / (2 * half + 1e-6), 0, 1)
            if face[0] and seen < 0.75:
                face[0] = 2 if seen > 0.1 else 0


def mirrored(faces, side):
    faces = faces.copy()
    faces[:, 1] = side - faces[:, 1]
    points = faces[:, 4:14].reshape(-1, 5, 2)[:, SWAPPED]
    points[:, :, 0] = side - points[:, :, 0]
    faces[:, 4:14] = points.reshape(-1, 10)
    faces[:, 14] *= -1
    faces[:, 18] *= -1
    faces[faces[:, 0] == 0] = 0
    return faces


class SceneBatches:
    def __init__(self, folders, side, seed):
        self.source = SceneSource(folders, seed)
        self.augment = SceneAugmenter(side, seed + 1)

    def batch(self, size):
        """Grey levels less 128 [size, 1, side, side], faces [size, MOST, COLUMNS]."""
        side = self.augment.side
        pictures = np.empty((size, 1, side, side), np.float32)
        faces = np.empty((size, MOST, COLUMNS), np.float32)
        for i in range(size):
            picture, faces[i] = self.augment(*self.source.draw())
            pictures[i, 0] = picture
        return torch.from_numpy(pictures - 128), torch.from_numpy(faces)

    def seed(self, number):
        self.source.random = np.random.default_rng(number)
        self.augment.random = np.random.default_rng(number + 1)

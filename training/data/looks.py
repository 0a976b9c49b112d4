# SPDX-License-Identifier: MIT
"""Looks: 64 x 64 pixels around a box that the finder may have found, from scenes. What follows is of the wide
ones; the close ones are of faces alone, and of boxes by points that lie as a wide look leaves them.

Boxes lie about faces as inexactly as that network's, or where no face is: anywhere in a scene, on parts of
heads, and where an earlier state of it saw one (looks-*.npy beside a scene shard, rows of picture, x, y, side,
turn)."""
from dataclasses import dataclass
from pathlib import Path

import cv2
import numpy as np

from ..networks.look_net import CLOSE, MEAN_POINTS, SIDE, WIDE
from . import covers
from .scenes import SWAPPED

MOST_SCALE = 1.5  # pixels of a level from one of a look to the next
FINE = 16  # steps of a grey level that a sampled pixel is known to
_MIDDLE = slice(12, 52)  # rows and columns whose greys are brought to the same mean and spread
SPREAD = 36  # their mean distance from the mean
MOST_GAIN = 6
PARTS = 0.3  # of the looks that are at no face
PART_SIDES = (0.18, 0.6)  # over the face's
COVERED = 0.15  # of the close looks get something before the face that the scenes do not have
# By kind, pixels of a face's side: near them a fifth of the faces is taken, from 14 more on all of them.
RARE = {WIDE.name: 6, CLOSE.name: 10}
# By kind: how boxes lie about faces. Each way with its share of the looks; deviations of a box's place over
# the face's side, the mean and the deviation of the logarithm of its side, and the deviation of its turn in
# degrees, beyond that of faces. Close ones as by the points that the first network, a wide look and a close
# look found in the faces of 500 unseen scenes, and seldom further off.
SPREADS = {
    WIDE.name: ((0.8, 0.05, 0, 0.09, 0), (0.2, 0.1, 0, 0.18, 0)),
    CLOSE.name: (
        (0.2, 0.025, -0.05, 0.1, 4.5),
        (0.2, 0.015, -0.01, 0.055, 2.7),
        (0.54, 0.01, -0.005, 0.037, 1.8),
        (0.06, 0.05, 0, 0.13, 9),
    ),
}
# Columns of a goal: face (1), none (0) or not asked (-1); middle and side of the box and the points in
# pixels of the look, from its middle; yaw; covered share; side of the true box in the picture.
GOALS = 17
_POINTS = slice(4, 14)


@dataclass
class Box:
    x: float
    y: float
    side: float
    turn: float  # degrees, clockwise in the picture


def sampled(picture, box, kind):
    """In sixteenths, as the library does but for its rounding: every level halves the one before it, and
    beyond the picture's borders these are repeated."""
    scale = box.side / (kind.face * SIDE)
    x, y = box.x, box.y
    reach = 0.75 * SIDE * scale + 4
    left, top = (max(0, int(v - reach)) & ~7 for v in (x, y))
    picture = picture[top : max(top + 8, int(y + reach)), left : max(left + 8, int(x + reach))]
    if min(picture.shape) < 8:
        return np.full((SIDE, SIDE), 128 * FINE, np.uint16)
    x, y = x - left, y - top
    while scale > MOST_SCALE and min(picture.shape) >= 4:
        height, width = picture.shape
        picture = cv2.resize(picture[: height & ~1, : width & ~1], (width // 2, height // 2),
                             interpolation=cv2.INTER_AREA)  # fmt: skip
        x, y, scale = x / 2, y / 2, scale / 2
    c, s = scale * np.cos(np.radians(box.turn)), scale * np.sin(np.radians(box.turn))
    last = 0.5 * (SIDE - 1)
    matrix = np.array([[c, -s, x - 0.5 - last * c + last * s], [s, c, y - 0.5 - last * s - last * c]])
    return cv2.warpAffine(picture.astype(np.uint16) * FINE, matrix, (SIDE, SIDE),
                          flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP,
                          borderMode=cv2.BORDER_REPLICATE)  # fmt: skip


def normalised(fine):
    """Sixteenths of grey levels -> grey levels of the same mean and spread in the middle."""
    fine = fine.astype(np.int32)
    middle = fine[_MIDDLE, _MIDDLE]
    mean = (int(middle.sum()) + middle.size // 2) // middle.size
    spread = int(np.abs(middle - mean).sum()) // middle.size  # sixteenths
    gain = min(256 * FINE * SPREAD // max(spread, 1), 256 * MOST_GAIN)
    return np.clip(128 + (((fine - mean) * gain + 2048) >> 12), 0, 255).astype(np.uint8)


def roll(face):
    p = face[_POINTS].reshape(5, 2)
    eyes, down = p[1] - p[0], (p[3] + p[4]) / 2 - (p[0] + p[1]) / 2
    return np.degrees(np.arctan2(eyes[1] - down[0], eyes[0] + down[1]))


def by_points(face):
    """The box of the mean face whose points lie nearest to these. It knows better than the box itself
    where points are: heads differ in what is around them."""
    points, mean, turn = face[_POINTS].reshape(5, 2), np.array(MEAN_POINTS), roll(face)
    middle, usual = points.mean(0), mean.mean(0)
    side = np.sqrt(np.square(points - middle).sum() / np.square(mean - usual).sum())
    c, s = np.cos(np.radians(turn)), np.sin(np.radians(turn))
    x, y = middle - side * np.array([[c, -s], [s, c]]) @ usual
    return Box(x, y, side, turn)


def goal(face, box, kind=WIDE):
    """What the network is to say of a row of a scene's faces."""
    scale = box.side / (kind.face * SIDE)
    c, s = np.cos(np.radians(box.turn)) / scale, np.sin(np.radians(box.turn)) / scale
    places = np.concatenate([face[1:3], face[_POINTS]]).reshape(-1, 2) - (box.x, box.y)
    places = places @ np.array([[c, -s], [s, c]])
    row = np.zeros(GOALS, np.float32)
    row[0] = 1
    row[1:3], row[3], row[_POINTS] = places[0], face[3] / scale, places[1:].ravel()
    row[14:16], row[16] = face[14:16], face[3]
    return row


def mirrored(pictures, rows):
    rows = rows.copy()
    rows[:, 1] *= -1
    points = rows[:, _POINTS].reshape(-1, 5, 2)[:, SWAPPED]
    points[:, :, 0] *= -1
    rows[:, _POINTS] = points.reshape(-1, 10)
    rows[:, 14] *= -1
    return pictures[:, :, ::-1], rows


class LookSource:
    def __init__(self, folders, seed, faces_share=0.85, kind=WIDE):
        self.kind = kind
        self.folders = [Path(folder) for folder in folders]
        self.random = np.random.default_rng(seed)
        self.faces_share = 1 if kind.is_close else faces_share
        self._known, self.shards, self.rows, self.mined = set(), [], [], []
        self.refresh()

    def refresh(self):
        for folder in self.folders:
            for path in sorted(folder.glob("scenes-*.faces.npy")):
                if path not in self._known and not path.name.endswith(".new.npy"):
                    self._known.add(path)
                    stem = str(path)[: -len(".faces.npy")]
                    self._take(stem, np.load(path))
        self._look_for_mined()

    def _take(self, stem, faces):
        pictures = np.load(stem + ".pictures.npy", mmap_mode="r")
        shard = len(self.shards)
        self.shards.append((Path(stem), pictures, faces))
        good = (faces[:, :, 0] == 1) & (faces[:, :, 3] >= 12)
        at = np.argwhere(good)
        # Small ones are plenty, and tell little.
        side = faces[at[:, 0], at[:, 1], 3]
        at = at[self.random.random(len(at)) < np.clip((side - RARE[self.kind.name]) / 14, 0.2, 1)]
        self.rows += [(shard, int(i), int(k)) for i, k in at]

    def _look_for_mined(self):
        for shard, (stem, _, _) in enumerate(self.shards):
            path = stem.parent / (stem.name.replace("scenes", "looks") + ".npy")
            if path not in self._known and path.exists():
                self._known.add(path)
                self.mined += [(shard, int(r[0]), Box(*map(float, r[1:5]))) for r in np.load(path)]

    def draw(self):
        """A look and its goal."""
        random = self.random
        if random.random() < self.faces_share:
            shard, i, k = self.rows[random.integers(len(self.rows))]
            _, pictures, faces = self.shards[shard]
            face = faces[i, k]
            box = self._about(face)
            row = goal(face, box, self.kind)
            size = max(face[3], box.side) / min(face[3], box.side)
            if max(abs(face[1] - box.x), abs(face[2] - box.y)) > 0.32 * face[3] or size > 1.5:
                row[0] = -1
        elif random.random() < PARTS:
            shard, i, k = self.rows[random.integers(len(self.rows))]
            _, pictures, faces = self.shards[shard]
            box = self._part_of(faces[i, k])
            row = self._without(np.delete(faces[i], k, 0), box)
        elif self.mined and random.random() < 0.7:
            shard, i, box = self.mined[random.integers(len(self.mined))]
            _, pictures, faces = self.shards[shard]
            box = Box(
                box.x + 0.06 * box.side * random.normal(), box.y + 0.06 * box.side * random.normal(),
                box.side * np.exp(0.1 * random.normal()), box.turn + self._turn(),
            )  # fmt: skip
            row = self._without(faces[i], box)
        else:
            shard = random.integers(len(self.shards))
            _, pictures, faces = self.shards[shard]
            i = random.integers(len(pictures))
            side = np.exp(random.uniform(np.log(14), np.log(110)))
            box = Box(*random.uniform(0, pictures.shape[1], 2), side, self._turn())
            row = self._without(faces[i], box)
        fine = sampled(pictures[i], box, self.kind)
        if self.kind.is_close and random.random() < COVERED:
            covers.put_before(fine, row, random)
        return normalised(fine), row

    def _part_of(self, face):
        """A mouth, an ear or a forehead is no face, however much it looks like one by itself."""
        random, side = self.random, face[3]
        x, y = face[1:3] + side * random.uniform((-0.75, -0.8), (0.75, 0.65))
        return Box(x, y, side * np.exp(random.uniform(*np.log(PART_SIDES))), self._turn())

    @staticmethod
    def _without(faces, box):
        row = np.zeros(GOALS, np.float32)
        faces = faces[faces[:, 0] > 0]
        far = np.abs(faces[:, 1:3] - (box.x, box.y)).max(1, initial=0)
        if (far < 0.6 * np.maximum(faces[:, 3], 0.7 * box.side)).any():
            row[0] = -1
        return row

    def _turn(self):
        random = self.random
        return random.normal(0, 9) if random.random() < 0.94 else random.uniform(-180, 180)

    def _about(self, face):
        """As boxes lie before such a look, which is turned upright by the points known then."""
        random = self.random
        ways = SPREADS[self.kind.name]
        _, place, larger, size, lean = ways[random.choice(len(ways), p=[way[0] for way in ways])]
        about = by_points(face) if self.kind.is_close else Box(*face[1:4], self._turn_of(face))
        x, y = (v + place * about.side * random.normal() for v in (about.x, about.y))
        turn = about.turn + lean * random.normal()
        return Box(x, y, about.side * np.exp(larger + size * random.normal()), turn)

    def _turn_of(self, face):
        """The first network's points may also be no help."""
        random = self.random
        turn = self._turn()
        if random.random() < 0.93:
            turn += roll(face)
        return turn

    def fresh(self, size):
        drawn = [self.draw() for _ in range(size)]
        return np.stack([picture for picture, _ in drawn]), np.stack([row for _, row in drawn])


class LookBatches:
    """An eighth of a batch is cut out anew, the rest drawn from what was cut out before; all mirrored
    and lit anew."""

    KEPT = 48000

    def __init__(self, source):
        self.source = source
        self.count = 0
        self._pictures = np.empty((self.KEPT, SIDE, SIDE), np.uint8)
        self._rows = np.empty((self.KEPT, GOALS), np.float32)
        self._cut = 0

    def batch(self, size):
        """int8 [size, 1, SIDE, SIDE], and the goals."""
        random = self.source.random
        new = -(-size // 8) if self._cut > self.KEPT // 8 else size // 2
        at = (self._cut + np.arange(new)) % self.KEPT
        self._pictures[at], self._rows[at] = self.source.fresh(new)
        self._cut += new
        self.count += 1
        old = random.integers(min(self._cut, self.KEPT), size=size - new)
        at = np.concatenate([at, old])
        pictures, rows = self._pictures[at], self._rows[at]
        other = random.random(size) < 0.5
        pictures[other], rows[other] = mirrored(pictures[other], rows[other])
        gains = np.exp(random.normal(0, 0.12, size))
        lifts = random.normal(0, 6, size)
        for picture, gain, lift in zip(pictures, gains, lifts):
            lit = (np.arange(256) - 128) * gain + lift
            cv2.LUT(picture, np.clip(np.rint(lit) + 128, 0, 255).astype(np.uint8), picture)
        return (pictures ^ 0x80).view(np.int8)[:, None], rows

# SPDX-License-Identifier: MIT
"""Whole frames for the alignment network: another size and place of the face, another light, then
the library's own reduction to 24 x 24."""
import cv2
import numpy as np

from ..networks.library import ALIGN, IMAGE
from .shards import COLUMN, Shards, is_held_out

MIDDLE = (64, 64, 192, 192)  # what is answered when there is no face
_BORDERS = (cv2.BORDER_REPLICATE, cv2.BORDER_REFLECT_101, cv2.BORDER_CONSTANT)


def box_of(label):
    """Left, top, right, bottom in pixels, or None."""
    left, top, size = (label[COLUMN[name]] for name in ("box_left", "box_top", "box_size"))
    return (left, top, left + size, top + size) if size > 0 else None


class FrameSource:
    """Frames of rendered shards, people held out by the same rule as everywhere."""

    def __init__(self, folders, held_out=0.05, seed=0):
        self.shards = Shards(folders, kind="frames")
        self.held_out = held_out
        self.random = np.random.default_rng(seed)
        self._index()

    def _index(self):
        self.training, self.validation = [], []
        for shard, (_, people) in enumerate(self.shards.labels):
            for row, person in enumerate(people.tolist()):
                # Frames without a face are told apart by their place.
                name = person if person >= 0 else f"{shard} {row}"
                held = is_held_out(name, self.held_out)
                (self.validation if held else self.training).append((shard, row))

    def refresh(self):
        added = self.shards.refresh()
        if added:
            self._index()
        return added

    def get(self, place):
        return self.shards.picture(place), box_of(self.shards.label(place))

    def draw(self):
        return self.get(self.training[self.random.integers(len(self.training))])


class FrameAugmenter:
    """Moves the face to a size from a third to nine tenths of the frame and to any place at which
    most of it is seen."""

    least, most = 80, 230  # side of the box
    enlarge = (0.6, 1.8)  # how far a frame may be reduced or enlarged
    outside = 0.12  # of the side, how much of the box may leave the frame
    exposed = 70  # pixels beyond the frame's edge that may be filled in
    unmoved = 0.7  # share of frames that are taken as they are rendered, or mirrored
    portraits = 0.25  # share of the others that are cut around the head, with the borders filled in

    def __init__(self, library, seed=0):
        self.library = library
        self.random = np.random.default_rng(seed)

    def _map(self, box):
        """Scale and displacement from the frame to the picture."""
        uniform = self.random.uniform
        side = (box[2] - box[0]) if box else 128.0
        low = max(self.least / side, self.enlarge[0])
        high = max(low, min(self.most / side, self.enlarge[1]))
        scale = float(np.exp(uniform(np.log(low), np.log(high))))
        new = side * scale
        shift = []
        for axis in (0, 1):
            centre = 0.5 * (box[axis] + box[axis + 2]) if box else IMAGE / 2
            margin = new * (0.5 - self.outside)
            low, high = margin, IMAGE - margin
            # As far as that leaves not too much to fill in at either edge.
            low = max(low, scale * centre + IMAGE - self.exposed - scale * IMAGE)
            high = min(high, scale * centre + self.exposed)
            place = uniform(low, high) if low < high else 0.5 * (low + high)
            shift.append(place - scale * centre)
        return scale, shift

    def _light(self, picture):
        r = self.random
        line = np.linspace(-1, 1, ALIGN)
        slope = r.uniform(-0.3, 0.3, 2)
        x = np.maximum(picture / 255.0, 1e-3) ** np.exp(np.clip(0.3 * r.normal(), -0.9, 0.9))
        x = x * np.exp(slope[0] * line[:, None] + slope[1] * line)
        x = (x - 0.5) * np.exp(r.uniform(-0.4, 0.4)) + 0.5 + 0.12 * r.normal()
        x = x + max(0.0, r.uniform(-0.03, 0.03)) * r.normal(size=x.shape)
        return np.clip(255 * x + 0.5, 0, 255).astype(np.uint8)

    def _cut_portrait(self, frame, box):
        """What is left of a frame when somebody else has cut the face out of it, put back in its
        place: applications hand over such pictures, too, without shoulders or background."""
        uniform, side = self.random.uniform, box[2] - box[0]
        left = int(max(0, box[0] - uniform(-0.05, 0.45) * side))
        top = int(max(0, box[1] - uniform(0.0, 0.55) * side))
        right = int(min(IMAGE, box[2] + uniform(-0.05, 0.45) * side))
        bottom = int(min(IMAGE, box[3] + uniform(-0.05, 0.5) * side))
        return cv2.copyMakeBorder(
            frame[top:bottom, left:right],
            top, IMAGE - bottom, left, IMAGE - right,
            int(self.random.choice(_BORDERS)),
            value=float(self.random.integers(256)),
        )  # fmt: skip

    def _prepare(self, frame):
        if self.random.random() < 0.2:
            frame = cv2.blur(frame, (3, 3))
        return frame[:, ::-1] if self.flipped else frame

    def __call__(self, frame, box):
        """24 x 24 picture and the box in it, in pixels of a 256 x 256 frame."""
        self.flipped = self.random.random() < 0.5
        frame = self._prepare(frame)
        if box and self.flipped:
            box = (IMAGE - box[2], box[1], IMAGE - box[0], box[3])
        if self.random.random() < self.unmoved:
            return self.library.resize(np.ascontiguousarray(frame), ALIGN), box or MIDDLE
        if box and self.random.random() < self.portraits:
            frame = self._cut_portrait(np.ascontiguousarray(frame), box)
        scale, (dx, dy) = self._map(box)
        # Positions are those of pixels' corners, OpenCV's those of their centres.
        offset = 0.5 * (scale - 1)
        matrix = np.array([[scale, 0, dx + offset], [0, scale, dy + offset]])
        moved = cv2.warpAffine(
            np.ascontiguousarray(frame),
            matrix,
            (IMAGE, IMAGE),
            flags=cv2.INTER_AREA if scale < 0.7 else cv2.INTER_LINEAR,
            borderMode=int(self.random.choice(_BORDERS)),
            borderValue=float(self.random.integers(256)),
        )
        small = self._light(self.library.resize(moved, ALIGN))
        if box is None:
            return small, MIDDLE
        return small, tuple(scale * v + d for v, d in zip(box, (dx, dy, dx, dy)))


def intersection_over_union(a, b):
    """Of boxes [..., 4]; numpy or torch."""
    width = (_least(a[..., 2], b[..., 2]) - _most(a[..., 0], b[..., 0])).clip(0)
    height = (_least(a[..., 3], b[..., 3]) - _most(a[..., 1], b[..., 1])).clip(0)
    both = width * height
    area_a = (a[..., 2] - a[..., 0]).clip(0) * (a[..., 3] - a[..., 1]).clip(0)
    area_b = (b[..., 2] - b[..., 0]).clip(0) * (b[..., 3] - b[..., 1]).clip(0)
    return both / (area_a + area_b - both + 1e-6)


def _least(a, b):
    return a.minimum(b) if hasattr(a, "minimum") else np.minimum(a, b)


def _most(a, b):
    return a.maximum(b) if hasattr(a, "maximum") else np.maximum(a, b)

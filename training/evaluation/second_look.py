# SPDX-License-Identifier: MIT
"""Another look at a found face, as the library takes it: its surroundings turned upright, at one size
and at the same grey levels, and what the network's answer means. Whole numbers throughout."""
import math
from dataclasses import dataclass, replace

import numpy as np

from ..data.scenes import SWAPPED
from ..networks.look_net import WIDE

SIDE = 64
FINENESS = 4  # so many parts of a quarter pixel are what points are known to
_ONE = 1 << 14
_PLACE = 16  # bits behind the point of places in a level
_MIDDLE = slice(12, 52)
_FINE, _SPREAD, _MOST_GAIN = 16, 36, 6
_HEAT = np.array([round(2**20 * math.exp((s - 127) / 16)) for s in range(-128, 128)], np.int64)
_CELLS = SIDE // 8
_SIDES = np.round(1024 * 2.0 ** (np.arange(-128, 128) / 64)).astype(np.int64)


@dataclass
class View:
    """A box in quarter pixels, and the direction of an upright face's rows in 2^14ths."""

    x: int
    y: int
    side: int
    cosine: int
    sine: int
    step: int = WIDE.step  # from pixel to pixel, in 256ths of the side
    mirrored: bool = False  # what the network sees


def view_of(face, kind=WIDE):
    """A close one is of the box that the mean face with these points has."""
    p = face.points.astype(int).tolist()
    x = 2 * (p[1][0] - p[0][0]) + p[3][1] + p[4][1] - p[0][1] - p[1][1]
    y = 2 * (p[1][1] - p[0][1]) - p[3][0] - p[4][0] + p[0][0] + p[1][0]
    length = math.isqrt(x * x + y * y)
    box = (int(face.middle[0]), int(face.middle[1]), int(face.side))
    if length < 8 * FINENESS:
        return View(*box, _ONE, 0, kind.step)
    cosine, sine = ((2 * v * _ONE + length) // (2 * length) for v in (x, y))
    if kind.is_close:
        box = _box_of(p, cosine, sine)
    return View(*box, cosine, sine, kind.step)


def _box_of(points, cosine, sine):
    x, y = (sum(v) for v in zip(*points))
    squares = sum((5 * p - x) ** 2 + (5 * q - y) ** 2 for p, q in points)
    side = math.isqrt(10 * squares // (76 * FINENESS**2))
    unit, below = 512 * _ONE, 5 * FINENESS * 35 * side
    places, whole = (unit * x + below * sine, unit * y - below * cosine), 5 * FINENESS * unit
    return *((2 * v + whole) // (2 * whole) for v in places), side


def can_be_seen(picture, x, y, side):
    height, width = picture.shape
    return 0 <= x < 4 * width and 0 <= y < 4 * height and 4 <= side <= 16 * min(width, height)


def _level_of(view):
    level = 0
    while view.side * view.step > 1536 << level:
        level += 1
    return level


def fine_look(planes, view):
    """Sixteenths of grey levels. planes: the picture, halved once, twice, ..."""
    level = _level_of(view)
    plane = planes[level].astype(np.int64)
    along, aside = (v * view.side * view.step >> (8 + level) for v in (view.cosine, view.sine))
    half = 2 * np.arange(SIDE, dtype=np.int64) + 1 - SIDE
    right, down = half[None, :], half[:, None]
    middle = [(v << (_PLACE - 2) >> level) - (1 << (_PLACE - 1)) for v in (view.x, view.y)]
    x = middle[0] + ((right * along - down * aside) >> 1)
    y = middle[1] + ((right * aside + down * along) >> 1)
    column, row = x >> _PLACE, y >> _PLACE
    fx, fy = (v >> (_PLACE - 8) & 255 for v in (x, y))
    height, width = plane.shape

    def at(dx, dy):
        return plane[np.clip(row + dy, 0, height - 1), np.clip(column + dx, 0, width - 1)]

    upper = at(0, 0) * (256 - fx) + at(1, 0) * fx
    lower = at(0, 1) * (256 - fx) + at(1, 1) * fx
    return (upper * (256 - fy) + lower * fy + 2048) >> 12


def toned(fine):
    middle = fine[_MIDDLE, _MIDDLE]
    mean = (int(middle.sum()) + middle.size // 2) // middle.size
    spread = max(int(np.abs(middle - mean).sum()) // middle.size, 1)
    gain = min((_SPREAD * _FINE << 8) // spread, _MOST_GAIN << 8)
    return np.clip(128 + (((fine - mean) * gain + 2048) >> 12), 0, 255).astype(np.uint8)


def look(planes, view):
    seen = toned(fine_look(planes, view))
    return seen[:, ::-1] if view.mirrored else seen


def points_of(heat):
    """Eighths of the look's pixels from its middle: [(right, down)] * 5."""
    logits, right, down = (heat[i : i + 5].reshape(5, -1).astype(np.int64) for i in (0, 5, 10))
    weight = _HEAT[logits + 128]
    middle = (2 * np.arange(_CELLS) + 1 - _CELLS) * 32
    x, y = np.tile(middle, _CELLS), np.repeat(middle, _CELLS)
    total = np.maximum(weight.sum(1), 1)
    return [
        [int((2 * v + w) // (2 * w)) for v, w in ((a, w), (b, w))]
        for a, b, w in zip((weight * (x + right)).sum(1), (weight * (y + down)).sum(1), total)
    ]


def described(face, view, heat, answer):
    """The face as the answers have it."""
    o = [int(v) for v in answer]

    def in_picture(right, down, fineness):  # from sixteenths of the look's pixels
        right, step = -right if view.mirrored else right, view.side * view.step * fineness
        x = (right * view.cosine - down * view.sine) * step
        y = (right * view.sine + down * view.cosine) * step
        return tuple(fineness * at + ((off + (1 << 25)) >> 26) for at, off in ((view.x, x), (view.y, y)))

    plain = zip(o[4:14:2], o[5:14:2])
    told = zip(points_of(heat), plain)
    points = [in_picture(x + 2 * u, y + 2 * v, FINENESS) for (x, y), (u, v) in told]
    yaw = o[14]
    if view.mirrored:
        points, yaw = [points[i] for i in SWAPPED], -yaw
    return replace(
        face, middle=in_picture(4 * o[1], 4 * o[2], 1), side=(int(_SIDES[o[3] + 128]) * view.side + 512) >> 10,
        points=np.array(points, np.int64), yaw=yaw, covered=o[15],
    )  # fmt: skip


def weighed_mean_of(a, b):
    """Of two looks at one face; the second, which was at a better box, counts three times."""

    def mean(first, second):
        return (first + 3 * second + 2) >> 2

    x, y = map(mean, a.middle, b.middle)
    return replace(
        a, middle=(x, y), side=mean(a.side, b.side), points=mean(a.points, b.points),
        yaw=mean(a.yaw, b.yaw), covered=mean(a.covered, b.covered),
    )  # fmt: skip

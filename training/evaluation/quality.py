# SPDX-License-Identifier: MIT
"""What the library measures of a face and how it judges that, in the library's whole numbers and with
its constants, for many faces at a time."""
import math
import re
from pathlib import Path

import numpy as np

from .find_faces import PROBABILITY

CROP = 96
REASONS = ("small", "blurred", "dark", "overexposed", "turned", "tilted", "covered", "cut off",
           "grimacing")  # fmt: skip
_SETTINGS = Path(__file__).resolve().parents[2] / "find" / "settings.h"
_MARGIN = 16


def read_settings(text=None):
    """The numbers in find/settings.h that quality depends on: ramps as pairs."""
    text = text or _SETTINGS.read_text(encoding="utf-8")
    out = {}
    for name, value in re.findall(r"inline constexpr \w+ (k\w+) =\s*([^;]+);", text):
        pair = re.fullmatch(r"\{(.+),(.+)\}", value.strip())
        out[name] = tuple(eval(v, {}) for v in pair.groups()) if pair else eval(value, {})  # sums of literals
    return out


def _sharpness(crop):
    """In sixteenths."""
    c = crop.astype(np.int64)
    bends = int(np.abs(c[:, :-2] - 2 * c[:, 1:-1] + c[:, 2:]).sum())
    bends += int(np.abs(c[:-2] - 2 * c[1:-1] + c[2:]).sum())
    pixels = CROP * CROP
    deviation = math.isqrt(256 * (pixels * int((c * c).sum()) - int(c.sum()) ** 2)) // pixels
    return 16 * 256 * 16 * bends // (2 * (CROP - 2) * CROP * (256 + deviation))


def _nose_off(points, settings):
    p = [[int(v) for v in point] for point in points]
    down = [p[3][k] + p[4][k] - p[0][k] - p[1][k] for k in (0, 1)]
    nose = [2 * p[2][k] - p[0][k] - p[1][k] for k in (0, 1)]
    length = down[0] ** 2 + down[1] ** 2
    if length == 0:
        return settings["kTiltedRamp"][0]
    along = 100 * (down[0] * nose[0] + down[1] * nose[1])
    place = abs(along) // length * (1 if along >= 0 else -1)
    usual = settings["kNosePlace"]
    return min(abs(place - usual), usual) * 100 // usual


def _mouth_off(points, yaw, settings):
    """points in sixteenths of pixels, yaw in quarter degrees."""
    def distance(a, b):
        return math.isqrt(256 * sum((int(b[k]) - int(a[k])) ** 2 for k in (0, 1)))

    eyes = distance(points[0], points[1])
    if eyes == 0:
        return 0
    width = 100 * distance(points[3], points[4]) // eyes
    return min(abs(width - settings["kMouthPlace"]), 100) * min(max(180 - yaw, 0), 60) // 60


def _inside(middle, side, size):
    return max(0, min(2 * middle + side, 8 * size) - max(2 * middle - side, 0))


def score_of(probability):
    """The least score, a logit in sixteenths, that has this probability in 1024ths."""
    return int(np.searchsorted(PROBABILITY, probability)) - 128


def measure(face, shape, crop, settings):
    """A row of MEASURES for a library's face in a picture of that shape; crop: the face upright."""
    side, yaw = int(4 * face.side), abs(int(4 * face.yaw))
    points = [[16 * v for v in point] for point in face.points]
    x, y = int(4 * face.left + 2 * face.side), int(4 * face.top + 2 * face.side)
    levels = np.sort(crop[_MARGIN:-_MARGIN, _MARGIN:-_MARGIN].ravel())
    whole = 4 * side * side
    seen = _inside(x, side, shape[1]) * _inside(y, side, shape[0])
    return [
        side,
        _sharpness(crop),
        int(levels[(9 * len(levels) + 9) // 10 - 1]),
        int((levels >= settings["kWhite"]).sum()) * 1000 // len(levels),
        yaw,
        _nose_off(points, settings),
        round(255 * face.covered) * 100 // 255,
        100 * (whole - seen) // whole,
        _mouth_off(points, yaw, settings),
        score_of(round(1024 * face.score)),
    ]


MEASURES = ("side", "sharpness", "brightness", "white", "yaw", "nose off", "covered", "cut off", "mouth off",
            "score")  # fmt: skip
RAMPS = ("kSmallRamp", "kBlurredRamp", "kDarkRamp", "kOverexposedRamp", "kTurnedRamp", "kTiltedRamp",
         "kCoveredRamp", "kCutOffRamp", "kGrimacingRamp")  # fmt: skip


def _quotient(a, b):
    """As C divides."""
    return np.sign(a) * np.sign(b) * (np.abs(a) // abs(b))


def judge(rows, settings):
    """Qualities and sums of reasons' bits for rows of measures."""
    rows = np.asarray(rows, np.int64)
    least, first = settings["kLeastScoreFactor"], score_of(settings["kReportedProbability"])
    more = _quotient((256 - least) * (rows[:, len(RAMPS)] - first), settings["kSureScore"] - first)
    left = 100 * 65536 * np.clip(least + more, 0, 256) // 256
    reasons = np.zeros(len(rows), np.int64)
    for at, name in enumerate(RAMPS):
        none, full = settings[name]
        factor = np.clip(_quotient(256 * (rows[:, at] - none), full - none), 0, 256)
        left = left * factor // 256
        reasons |= np.where(factor < 128, 1 << at, 0)
    return (left + 32768) // 65536, reasons

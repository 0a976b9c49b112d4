# SPDX-License-Identifier: MIT
"""What people hold before their faces: hands, things, scarves; and what they look out from behind."""
import cv2
import numpy as np

_FINE = 16  # steps of a grey level
_FINER = 4  # lines of a drawing to a row of pixels
_INNER = 0.62  # of a box: the face in it, whose covered share is told


def put_before(face, goal, random):
    """Draws a cover into a look in place, before its tones are brought to the same mean. face: [side,
    side], sixteenths of grey levels; goal: its row, whose covered share grows."""
    side = len(face)
    middle = goal[1:3] + side / 2
    canvas = _Canvas(face, middle, goal[3], random)
    random.choice((_hand, _thing, _scarf, _edge), p=(0.5, 0.2, 0.15, 0.15))(canvas)
    half = _INNER * goal[3] / 2
    left, top = np.clip(np.round(middle - half), 0, side - 1).astype(int)
    right, bottom = np.clip(np.round(middle + half), 1, side).astype(int)
    share = float(canvas.covered[top:bottom, left:right].mean())
    goal[15] = 1 - (1 - goal[15]) * (1 - share)


class _Canvas:
    """A face, its place, and what of it is covered so far."""

    def __init__(self, face, middle, unit, random):
        self.face, self.middle, self.unit, self.random = face, middle, unit, random
        self.covered = np.zeros(face.shape, np.float32)
        self.tone = float(np.median(face)) * random.uniform(0.7, 1.25)
        angle = random.uniform(0, 2 * np.pi)
        self.light = np.array([np.cos(angle), np.sin(angle)]) * random.uniform(0, 0.5)
        self.softness = random.uniform(0.3, 1.0)  # of edges: the camera's

    def at(self, x, y):
        """In sides of the face's box, from its middle."""
        return self.middle + self.unit * np.array([x, y])

    def limb(self, begin, end, width, tone):
        """A round thing between two points; width in sides of the box."""
        thick = max(1, round(width * self.unit * _FINER))
        self._put(lambda mask: cv2.line(mask, _fine(begin), _fine(end), 255, thick), tone, width)

    def area(self, corners, tone, roundness):
        points = np.array([_fine(corner) for corner in corners], np.int32)
        self._put(lambda mask: cv2.fillPoly(mask, [points], 255), tone, roundness)

    def _put(self, draw, tone, roundness):
        mask = np.zeros([_FINER * n for n in self.face.shape], np.uint8)
        draw(mask)
        side = len(self.face)
        mask = cv2.resize(mask, (side, side), interpolation=cv2.INTER_AREA).astype(np.float32) / 255
        mask = cv2.GaussianBlur(mask, (0, 0), self.softness)
        # Round: it gets darker on the side that the light does not come from.
        height = cv2.GaussianBlur(mask, (0, 0), max(0.5, 0.35 * roundness * self.unit))
        down, right = np.gradient(height)
        steep = max(float(np.hypot(right, down).max()), 1e-3)
        shade = 1 + (right * self.light[0] + down * self.light[1]) / steep
        grain = self.random.normal(0, self.random.uniform(0, 0.04), self.face.shape)
        drawn = tone * (shade + grain)
        self.face[:] = np.clip(self.face + mask * (drawn - self.face), 0, 255 * _FINE)
        self.covered = 1 - (1 - self.covered) * (1 - mask)


def _fine(point):
    return tuple(int(v) for v in np.clip(_FINER * np.asarray(point), -5000, 5000))


def _hand(canvas):
    """Fingers beside one another, and what they are on."""
    random, unit = canvas.random, canvas.unit
    finger = random.uniform(0.085, 0.13)
    tips = canvas.at(random.uniform(-0.4, 0.4), random.uniform(-0.35, 0.45))
    angle = random.uniform(0, 2 * np.pi) if random.random() < 0.25 else random.uniform(0.1, 0.9) * np.pi
    away = np.array([np.cos(angle), np.sin(angle)])  # from the tips to the wrist, mostly down
    aside = np.array([-away[1], away[0]])
    count = random.integers(2, 5)
    length = random.uniform(0.3, 0.5) * unit
    gap = finger * random.uniform(0.95, 1.5) * unit
    middle = tips + length * away
    palm = 0.85 * count * gap / unit
    canvas.limb(middle + 0.3 * palm * unit * away, middle + 1.2 * unit * away, palm, canvas.tone)
    for i in range(count):
        offset = (i - (count - 1) / 2) * gap * aside
        shorter = (0.12 * abs(i - (count - 1) / 2) + random.uniform(0, 0.1)) * length
        canvas.limb(
            tips + offset + shorter * away, middle + offset, finger,
            canvas.tone * random.uniform(0.92, 1.08),
        )  # fmt: skip


def _any_tone(random):
    return _FINE * random.uniform(5, 235)


def _thing(canvas):
    """A phone, a cup, a microphone, a sheet."""
    random = canvas.random
    middle = canvas.at(random.uniform(-0.5, 0.5), random.uniform(-0.3, 0.6))
    angle = random.uniform(0, np.pi)
    along = np.array([np.cos(angle), np.sin(angle)]) * canvas.unit * random.uniform(0.12, 0.5)
    if random.random() < 0.5:
        canvas.limb(middle - along, middle + along, random.uniform(0.06, 0.25), _any_tone(random))
    else:
        aside = np.array([-along[1], along[0]]) * random.uniform(0.3, 1.0)
        corners = [middle + a * along + b * aside for a, b in ((-1, -1), (1, -1), (1, 1), (-1, 1))]
        canvas.area(corners, _any_tone(random), 0.05)


def _scarf(canvas):
    """Over the chin, or as far up as the nose."""
    random = canvas.random
    level, slope = random.uniform(0.08, 0.45), random.uniform(-0.15, 0.15)
    bow = random.uniform(-0.05, 0.12)
    edge = [canvas.at(x, level + slope * x + bow * (1 - 4 * x * x)) for x in np.linspace(-1, 1, 9)]
    canvas.area([*edge, canvas.at(1, 2), canvas.at(-1, 2)], _any_tone(random), 0.2)


def _edge(canvas):
    """A door, a pillar, somebody's shoulder."""
    random = canvas.random
    at, lean = random.uniform(0.1, 0.5), random.uniform(-0.2, 0.2)
    side = random.choice((-1, 1))
    corners = [canvas.at(side * (at - lean), -2), canvas.at(side * (at + lean), 2)]
    corners += [canvas.at(side * 3, 2), canvas.at(side * 3, -2)]
    canvas.area(corners, _any_tone(random), 0.1)

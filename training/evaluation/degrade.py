# SPDX-License-Identifier: MIT
"""What happens to pictures of faces before real cameras, one flaw at a time and of any strength."""
import cv2
import numpy as np


def _log_uniform(random, low, high):
    return float(np.exp(random.uniform(np.log(low), np.log(high))))


def _noisy(picture, random, spread):
    return np.clip(picture + random.normal(0, spread, picture.shape), 0, 255)


def blurred(picture, box, random):
    sigma = box[2] * _log_uniform(random, 0.008, 0.07)
    return cv2.GaussianBlur(picture, (0, 0), sigma), box


def moved(picture, box, random):
    length = max(3, int(box[2] * _log_uniform(random, 0.03, 0.3)) | 1)
    kernel = np.zeros((length, length), np.float32)
    angle, middle = random.uniform(0, np.pi), length // 2
    reach = middle * np.array([np.cos(angle), np.sin(angle)])
    ends = [tuple(int(round(middle + sign * v)) for v in reach) for sign in (-1, 1)]
    cv2.line(kernel, *ends, 1.0)
    return cv2.filter2D(picture, -1, kernel / kernel.sum(), borderType=cv2.BORDER_REPLICATE), box


def dark(picture, box, random):
    return _noisy(picture * _log_uniform(random, 0.03, 0.5), random, random.uniform(0.5, 3)), box


def overexposed(picture, box, random):
    return np.clip(picture * _log_uniform(random, 1.5, 8.0), 0, 255), box


def washed_out(picture, box, random):
    share = _log_uniform(random, 0.05, 0.5)
    grey = random.uniform(70, 190)
    return _noisy(grey + share * (picture - grey), random, 1), box


def noisy(picture, box, random):
    return _noisy(picture, random, _log_uniform(random, 5, 60)), box


def packed(picture, box, random):
    code = cv2.imencode(".jpg", picture, [cv2.IMWRITE_JPEG_QUALITY, int(random.integers(2, 25))])[1]
    return cv2.imdecode(code, cv2.IMREAD_GRAYSCALE), box


def small(picture, box, random, side=None):
    """The whole picture reduced; one that becomes too small has its border mirrored outwards."""
    scale = (side or _log_uniform(random, 12, 70)) / box[2]
    size = [max(2, round(length * scale)) for length in picture.shape[::-1]]
    reduced = cv2.resize(picture, size, interpolation=cv2.INTER_AREA)
    margin = max(0, -(-(48 - min(size)) // 2))
    reduced = cv2.copyMakeBorder(reduced, *[margin] * 4, cv2.BORDER_REFLECT)
    x, y, length = (v * scale for v in box)
    return reduced, (x + margin, y + margin, length)


def covered(picture, box, random):
    """A part of the face behind a thing with straight edges: flat, or a part of another place."""
    x, y, side = box
    picture = picture.copy()
    share = random.uniform(0.15, 0.75)
    angle = random.choice([0, 90, 180, 270]) + random.normal(0, 12)
    c, s = np.cos(np.radians(angle)), np.sin(np.radians(angle))
    rows, columns = np.indices(picture.shape)
    along = ((columns - x) * c + (rows - y) * s) / side  # -0.5 to 0.5 across the face
    across = np.abs((rows - y) * c - (columns - x) * s) / side
    thing = (along > 0.5 - share) & (along < random.uniform(0.5, 1.0)) & (across < random.uniform(0.4, 0.9))
    texture = np.roll(picture[::-1], int(random.integers(picture.shape[1])), axis=1)
    filling = texture if random.random() < 0.5 else np.full_like(picture, random.integers(20, 235))
    picture[thing] = filling[thing]
    return picture, box


def cut_off(picture, box, random):
    """The picture ends somewhere in the face."""
    x, y, side = box
    lost = random.uniform(0.0, 0.55)
    edges = [0, 0, picture.shape[1], picture.shape[0]]
    at = int(random.integers(4))
    edges[at] = int(((x, y)[at % 2]) + (-1 if at < 2 else 1) * (0.5 - lost) * side)
    left, top, right, bottom = np.clip(edges, 0, [*picture.shape[::-1]] * 2)
    if right - left < 24 or bottom - top < 24:
        return picture, box
    return np.ascontiguousarray(picture[top:bottom, left:right]), (x - left, y - top, side)


def turned(picture, box, random):
    """In its plane, which is no flaw."""
    x, y, side = box
    height, width = picture.shape
    matrix = cv2.getRotationMatrix2D((width / 2, height / 2), random.uniform(-45, 45), 1.0)
    out = cv2.warpAffine(picture, matrix, (width, height), borderMode=cv2.BORDER_REFLECT)
    x, y = matrix @ (x, y, 1)
    return out, (x, y, side)


KINDS = {
    "blurred": blurred, "moved": moved, "dark": dark, "overexposed": overexposed,
    "washed out": washed_out, "noisy": noisy, "packed": packed, "small": small, "covered": covered,
    "cut off": cut_off, "turned in the plane": turned,
}  # fmt: skip


def degraded(picture, box, kind, random):
    """A picture with a flaw, uint8, and the face's box (middle x and y, side) in it."""
    picture, box = KINDS[kind](picture.astype(np.float32) if kind in _OF_LEVELS else picture, box, random)
    return np.ascontiguousarray(np.rint(picture).astype(np.uint8)), box


_OF_LEVELS = {"dark", "overexposed", "washed out", "noisy"}

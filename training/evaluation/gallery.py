# SPDX-License-Identifier: MIT
"""Pictures of people for evaluation, as 256 x 256 frames, with what is known about each."""
import json
from dataclasses import dataclass, field
from pathlib import Path

import cv2
import numpy as np

from ..data.frames import box_of
from ..data.shards import COLUMN, Shards
from ..networks.library import IMAGE

_SUFFIXES = (".png", ".jpg", ".jpeg", ".pgm", ".bmp")


@dataclass
class Shot:
    frame: np.ndarray  # uint8 [256, 256]
    person: str
    box: tuple = None  # left, top, right, bottom in pixels of the frame
    labels: dict = field(default_factory=dict)


def place(picture, height):
    """A picture of any size as a frame. A square one fills it. Another is taken for a tight
    portrait, head and little else: it is scaled to `height` rows of the 256 and its borders are
    repeated outwards, so that the face has the size that a camera application would hand over."""
    rows, columns = picture.shape
    if rows == columns:
        size = (IMAGE, IMAGE)
    else:
        size = (max(1, round(columns * height / rows)), height)
        if size[0] > IMAGE:
            size = (IMAGE, round(rows * IMAGE / columns))
    shrinks = size[1] < rows
    scaled = cv2.resize(
        picture, size, interpolation=cv2.INTER_AREA if shrinks else cv2.INTER_CUBIC
    )
    left, top = (IMAGE - size[0]) // 2, (IMAGE - size[1]) // 2
    return cv2.copyMakeBorder(
        scaled, top, IMAGE - size[1] - top, left, IMAGE - size[0] - left, cv2.BORDER_REPLICATE
    )


def _labels(row):
    return {name: float(row[column]) for name, column in COLUMN.items()}


def _from_shards(shards):
    for places in shards.people().values():
        for at in places:
            row = shards.label(at)
            person = str(int(row[COLUMN["person"]]))
            yield Shot(np.asarray(shards.picture(at)), person, box_of(row), _labels(row))


def _from_folder(folder, height):
    boxes = folder / "boxes.json"
    known = json.loads(boxes.read_text()) if boxes.exists() else {}
    for person in sorted(p for p in folder.iterdir() if p.is_dir()):
        for path in sorted(p for p in person.iterdir() if p.suffix.lower() in _SUFFIXES):
            picture = cv2.imread(str(path), cv2.IMREAD_GRAYSCALE)
            if picture is None:
                raise SystemExit(f"{path} cannot be read as a picture")
            shot = Shot(place(picture, height), person.name)
            entry = known.get(f"{person.name}/{path.name}")
            if entry:
                left, top, size = entry["left"], entry["top"], entry["size"]
                shot.box = (left, top, left + size, top + size)
                shot.labels = _labels(entry["labels"])
            yield shot


def load(folder, height):
    """Shots of a folder with frames-* shards, or with one sub-folder a person."""
    folder = Path(folder)
    shards = Shards([folder], kind="frames")
    shots = list(_from_shards(shards) if len(shards) else _from_folder(folder, height))
    if len({shot.person for shot in shots}) < 2:
        raise SystemExit(f"{folder} holds no pictures of two or more people")
    return shots


class FaceDetector:
    """OpenCV's frontal face cascade, as a reference on pictures without known boxes. Its boxes are
    1.08 times as large as ours around the same centre, measured on rendered faces seen from the
    front."""

    ratio = 1.08
    _folders = ("/usr/share/opencv4/haarcascades", "/usr/share/opencv/haarcascades")

    def __init__(self):
        for folder in self._folders:
            path = Path(folder) / "haarcascade_frontalface_alt2.xml"
            if path.exists():
                self._cascade = cv2.CascadeClassifier(str(path))
                return
        raise FileNotFoundError("the face cascades are missing: package opencv-data")

    def box(self, frame):
        """The largest face's box, or None."""
        found = self._cascade.detectMultiScale(frame, 1.05, 3, minSize=(60, 60))
        if len(found) == 0:
            return None
        x, y, width, height = max(found, key=lambda f: f[2] * f[3])
        half = 0.5 * width / self.ratio
        cx, cy = x + 0.5 * width, y + 0.5 * height
        return cx - half, cy - half, cx + half, cy + half

# SPDX-License-Identifier: MIT
"""Pictures that quality is calibrated and measured on: people as they are rendered, with flaws, from all
sides; portraits; and what is no face at all or too little of one."""
from dataclasses import dataclass
from pathlib import Path

import cv2
import numpy as np

from ..data.scenes import BACK, EXTENSION, Bank, Cutouts
from . import quality
from .degrade import KINDS, degraded
from .gallery import load

AS_IT_IS, SIDES = "as it is", "from all sides"
JUNK = ("walls", "smears", "back views", "20 pixels", "20 pixels enlarged")
_SIZE = 256
_MOST = 16  # faces that are looked at in a picture


@dataclass
class Probe:
    """A face that was found where one is, or none."""

    person: str
    original: int  # pictures of one number are made from the same
    kind: str
    measures: list = None
    feature: np.ndarray = None
    pitch: float = np.nan


class Eyes:
    """The built libraries, and what they see of a face."""

    def __init__(self, core, finder):
        self.core, self.finder = core, finder
        self.settings = quality.read_settings()

    def _measures(self, picture, face, crop):
        return quality.measure(face, picture.shape, crop, self.settings)

    def look(self, probe, picture, box):
        """Fills in the face at box (middle and side), if there is one."""
        for face in self.finder.find(picture, most=_MOST):
            x, y = face.left + face.side / 2, face.top + face.side / 2
            near = max(abs(x - box[0]), abs(y - box[1])) < 0.4 * box[2]
            if near and 0.5 < face.side / box[2] < 2:
                crop = self.finder.upright(picture, face)
                probe.measures = self._measures(picture, face, crop)
                probe.feature = self.finder.mirrored_feature(self.core, picture, face)
                break
        return probe

    def all_measures(self, picture):
        return [
            self._measures(picture, face, self.finder.upright(picture, face))
            for face in self.finder.find(picture, most=_MOST)
        ]

    def best_box(self, picture):
        for face in self.finder.find(picture, most=1):
            return face.left + face.side / 2, face.top + face.side / 2, face.side
        return None


def _middle(box):
    left, top, right, bottom = box
    return (left + right) / 2, (top + bottom) / 2, right - left


def _first(items, person_of, most):
    """The items of that many people."""
    people = list(dict.fromkeys(person_of(item) for item in items))[:most]
    return [item for item in items if person_of(item) in set(people)]


def of_frames(eyes, folder, most_people, seed):
    """Each frame as it is and with one flaw."""
    random = np.random.default_rng(seed)
    probes = []
    for number, shot in enumerate(_first(load(folder, 200), lambda shot: shot.person, most_people)):
        picture, box = np.ascontiguousarray(shot.frame), _middle(shot.box)
        probe = Probe(shot.person, number, AS_IT_IS, pitch=shot.labels["pitch"])
        probes.append(eyes.look(probe, picture, box))
        kind = list(KINDS)[random.integers(len(KINDS))]
        probes.append(eyes.look(Probe(shot.person, number, kind), *degraded(picture, box, kind, random)))
    return probes


def _before(scene, cutout, labels, random):
    """A cut-out person before a picture, and the box."""
    tones, cover = (
        cv2.copyMakeBorder(np.ascontiguousarray(p), 0, EXTENSION, 0, 0, cv2.BORDER_REPLICATE) for p in cutout
    )
    side = np.exp(random.uniform(np.log(50), np.log(120)))
    scale = side / labels[3]
    goal = random.uniform(0.5 * side + 4, _SIZE - 4 - 0.5 * side, 2)
    shift = goal - scale * (labels[1:3] + labels[3] / 2) + 0.5 * scale - 0.5
    matrix = np.array([[scale, 0, shift[0]], [0, scale, shift[1]]])
    tones = cv2.warpAffine(tones, matrix, (_SIZE, _SIZE), borderMode=cv2.BORDER_REPLICATE)
    share = cv2.warpAffine(cover, matrix, (_SIZE, _SIZE)).astype(np.float32) / 255
    return (scene + share * (tones.astype(np.float32) - scene)).astype(np.uint8), (*goal, side)


def of_cutouts(eyes, folder, bank, most_people, seed):
    """Faces from all sides before other pictures; and pictures of backs of heads."""
    random = np.random.default_rng(seed)
    cutouts, bank = Cutouts(folder), Bank(bank)
    probes, backs = [], []
    chosen = _first(range(len(cutouts)), lambda number: cutouts.labels[number][0], most_people)
    for number in chosen:
        labels = cutouts.labels[number]
        scene = np.ascontiguousarray(bank.draw(random, _SIZE)).copy()
        picture, box = _before(scene, cutouts[number], labels, random)
        if abs(labels[4]) > BACK:
            backs.append(picture)
        else:
            probe = Probe(str(int(labels[0])), number, SIDES, pitch=labels[5])
            probes.append(eyes.look(probe, picture, box))
    return probes, backs


def of_people(eyes, folder, seed):
    """Portraits in one sub-folder a person, as they are and with one flaw. Where the face is they are
    asked themselves."""
    random = np.random.default_rng(seed)
    probes, number = [], 0
    for path in sorted(p for p in Path(folder).glob("*/*") if p.suffix.lower() in (".pgm", ".png", ".jpg")):
        picture = cv2.imread(str(path), cv2.IMREAD_GRAYSCALE)
        box = eyes.best_box(picture)
        if box is None:
            continue
        person, number = path.parent.name, number + 1
        probes.append(eyes.look(Probe(person, number, AS_IT_IS), picture, box))
        kind = list(KINDS)[random.integers(len(KINDS))]
        probes.append(eyes.look(Probe(person, number, kind), *degraded(picture, box, kind, random)))
    return probes


def _plain_wall(random):
    """Even light and what a sensor adds."""
    rows, columns = np.indices((_SIZE, _SIZE)) / _SIZE - 0.5
    angle = random.uniform(0, 2 * np.pi)
    level = random.uniform(20, 230) + random.uniform(0, 60) * (rows * np.sin(angle) + columns * np.cos(angle))
    return level + random.normal(0, random.uniform(0.5, 12), level.shape)


def _smear(picture, random):
    """So far moved, or stretched from one line, that nobody can be known."""
    if random.random() < 0.5:
        length = int(random.uniform(0.35, 1.0) * _SIZE / 2)
        kernel = np.full((1, length) if random.random() < 0.5 else (length, 1), 1 / length)
        return cv2.filter2D(picture, -1, kernel, borderType=cv2.BORDER_REFLECT)
    few = int(random.integers(2, 9))
    size = (few, _SIZE) if random.random() < 0.5 else (_SIZE, few)
    return cv2.resize(cv2.resize(picture, size, interpolation=cv2.INTER_AREA), (_SIZE, _SIZE))


def junk(eyes, folder, bank, backs, seed, count=200):
    """{kind: measures of the faces that are seen in each picture}"""
    random = np.random.default_rng(seed)
    bank, shots = Bank(bank), list(load(folder, 200))
    pictures = {kind: [] for kind in JUNK}
    pictures["back views"] = backs
    for number in range(count):
        shot = shots[random.integers(len(shots))]
        frame, box = np.ascontiguousarray(shot.frame), _middle(shot.box)
        wall = _plain_wall(random) if number % 4 == 0 else bank.draw(random, _SIZE)
        pictures["walls"].append(np.clip(np.rint(wall), 0, 255))
        pictures["smears"].append(_smear(frame, random))
        small, _ = KINDS["small"](frame, box, random, side=20)
        pictures["20 pixels"].append(small)
        times = random.uniform(3, 8)
        pictures["20 pixels enlarged"].append(
            cv2.resize(small, None, fx=times, fy=times, interpolation=cv2.INTER_CUBIC)
        )
    return {
        kind: [eyes.all_measures(np.ascontiguousarray(p.astype(np.uint8))) for p in some]
        for kind, some in pictures.items()
    }

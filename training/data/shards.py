# SPDX-License-Identifier: MIT
"""Pictures of people: shards as the renderer writes them, or a folder with one sub-folder a person.

Shards may appear while a training runs; `refresh()` takes in those that are complete.
"""
import zlib
from collections import defaultdict
from pathlib import Path

import numpy as np

from .augment import CROP, STORED

LABELS = (
    "person", "box_left", "box_top", "box_size", "yaw", "pitch", "roll", "light_kind",
    "occlusion_kind", "age_band", "skin_tone", "sex", "expression_strength", "blur", "hair_id",
    "reserved",
)  # fmt: skip
COLUMN = {name: index for index, name in enumerate(LABELS)}
FOLDER_PEOPLE = 100_000_000  # numbers of people that a folder has to itself
_SUFFIXES = (".png", ".jpg", ".jpeg", ".pgm", ".bmp")


def is_held_out(person, share):
    """Whether a person is kept for validation: by the name's hash, so that it never changes."""
    return zlib.crc32(str(person).encode()) % 10000 < share * 10000


class Shards:
    """All complete shards of a kind ("crops" or "frames") below some folders. People of different
    folders are different people, unless the folders share their numbers."""

    def __init__(self, folders, kind="crops", shared=False):
        self.shared = shared
        self.folders = [Path(folder) for folder in folders]
        self.kind = kind
        self.pictures = []  # one memory map a shard
        self.labels = []
        self._known = set()
        self.refresh()

    def refresh(self):
        """Takes in new shards; returns how many."""
        before = len(self.pictures)
        for number, folder in enumerate(self.folders):
            for path in sorted(folder.rglob(f"{self.kind}-*.labels.npy")):
                if path not in self._known and self._open(path, number):
                    self._known.add(path)
        return len(self.pictures) - before

    def _open(self, path, folder_number):
        try:
            labels = np.load(path)
            pictures = np.load(str(path).replace(".labels.", ".pictures."), mmap_mode="r")
        except (OSError, ValueError, EOFError):
            return False  # still being written
        if len(pictures) != len(labels):
            return False
        people = labels[:, COLUMN["person"]].astype(np.int64)
        if not self.shared:
            people[people >= 0] += folder_number * FOLDER_PEOPLE  # -1: nobody
        self.pictures.append(pictures)
        self.labels.append((labels, people))
        return True

    def __len__(self):
        return sum(map(len, self.pictures))

    def people(self):
        """{person: [(shard, row), ...]}"""
        index = defaultdict(list)
        for shard, (_, people) in enumerate(self.labels):
            for row, person in enumerate(people.tolist()):
                if person >= 0:
                    index[person].append((shard, row))
        return index

    def picture(self, place):
        return self.pictures[place[0]][place[1]]

    def folder_of(self, place):
        """Which folder a picture is from."""
        return int(self.labels[place[0]][1][place[1]]) // FOLDER_PEOPLE

    def cell_of(self, place):
        """Age, skin and sex of whom a picture shows."""
        row = self.label(place)
        return (
            int(row[COLUMN["age_band"]]),
            int(row[COLUMN["skin_tone"]]),
            int(row[COLUMN["sex"]] > 0.5),
        )

    def label(self, place):
        return self.labels[place[0]][0][place[1]]


class Folder:
    """One sub-folder a person. Face crops are stored so that the box is central; a picture that is
    a whole frame should go through `python3 -m training.data.cut_crops` first."""

    def __init__(self, folder):
        import cv2

        self._read = lambda path: cv2.imread(str(path), cv2.IMREAD_GRAYSCALE)
        self._resize = lambda picture, size: cv2.resize(
            picture, (size, size), interpolation=cv2.INTER_AREA
        )
        self._index = {
            person.name: [p for p in sorted(person.iterdir()) if p.suffix.lower() in _SUFFIXES]
            for person in sorted(Path(folder).iterdir())
            if person.is_dir()
        }

    def refresh(self):
        return 0

    def __len__(self):
        return sum(map(len, self._index.values()))

    def people(self):
        return self._index

    def picture(self, place):
        picture = self._read(place)
        if picture.shape == (STORED, STORED):
            return picture
        edge = (STORED - CROP) // 2
        return np.pad(self._resize(picture, CROP), edge, mode="edge")


def open_pictures(paths, shared=False):
    """Shards below the given folders, or a folder of people if it holds none."""
    shards = Shards(paths, shared=shared)
    if len(shards) or len(paths) > 1 or not Path(paths[0]).is_dir():
        return shards
    folder = Folder(paths[0])
    return folder if len(folder) else shards


class PeopleSampler:
    """Batches of `people` x `each` pictures; every person of a group comes once before any comes
    again. A group is all people, or with `kinds` those of a folder; a share `cells` of the batches is
    drawn among those alike in age, sex and skin. Groups come as often as they are large, times the
    folder's number in `often`."""

    def __init__(self, source, people, each, held_out=0.02, seed=0, kinds=False, cells=0.0, often=None):
        self.source, self.each, self.held_out = source, each, held_out
        self.kinds, self.cells, self.often = kinds, cells, often
        self.people_per_batch = people
        self.random = np.random.default_rng(seed)
        self.classes = {}  # person -> number of the class, in the order of appearance
        self._queues = {}
        self._groups = {}
        self.refresh()

    def refresh(self):
        """Takes in people that have appeared; returns how many."""
        self.source.refresh()
        index = self.source.people()
        self.index = {
            person: places
            for person, places in index.items()
            if len(places) >= 2 and not is_held_out(person, self.held_out)
        }
        self.validation = {
            person: places
            for person, places in index.items()
            if len(places) >= 2 and is_held_out(person, self.held_out)
        }
        self._groups = self._grouped()
        before = len(self.classes)
        for person in self.index:
            self.classes.setdefault(person, len(self.classes))
        return len(self.classes) - before

    def _grouped(self):
        """{(kind, cell or None): people}"""
        groups = defaultdict(list)
        for person, places in self.index.items():
            kind = self.source.folder_of(places[0]) if self.kinds else 0
            groups[kind, None].append(person)
            if self.cells:
                groups[kind, self.source.cell_of(places[0])].append(person)
        return groups

    def _next_group(self):
        if not self.kinds and not self.cells:
            return (0, None)
        in_cell = self.random.random() < self.cells
        least = 2 * self.people_per_batch if in_cell else 1
        names = [
            name
            for name, people in self._groups.items()
            if (name[1] is not None) == in_cell and len(people) >= least
        ]
        names = names or [name for name in self._groups if name[1] is None]
        sizes = np.array([len(self._groups[name]) for name in names], float)
        if self.often:
            sizes *= [self.often[kind] for kind, _ in names]
        return names[self.random.choice(len(names), p=sizes / sizes.sum())]

    def _next_people(self):
        group = self._next_group()
        queue = self._queues.setdefault(group, [])
        while len(queue) < self.people_per_batch:
            people = list(self._groups[group])
            self.random.shuffle(people)
            queue += people
        chosen = queue[: self.people_per_batch]
        del queue[: self.people_per_batch]
        return chosen

    def pictures_of(self, person, count):
        places = self.index[person]
        chosen = self.random.choice(len(places), count, replace=len(places) < count)
        return np.stack([self.source.picture(places[i]) for i in chosen])

    def batch(self):
        """Pictures uint8 [n, 128, 128] and class numbers int64 [n]."""
        people = self._next_people()
        pictures = np.concatenate([self.pictures_of(p, self.each) for p in people])
        numbers = np.repeat([self.classes[p] for p in people], self.each)
        return pictures, numbers.astype(np.int64)

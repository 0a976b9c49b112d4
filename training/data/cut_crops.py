# SPDX-License-Identifier: MIT
"""Cuts training crops out of whole frames as the library does it: the alignment network's box, the
library's resize.

Reads frames-* shards, or one sub-folder a person, and writes crops-* shards: 128 x 128 pixels, of
which the box takes the middle 96 x 96. A recognition network that is to work behind this alignment
network trains on these, alone or beside crops with true boxes (--shared-people).
"""
import argparse
from pathlib import Path

import cv2
import numpy as np

from ..evaluation.gallery import load
from ..networks.library import IMAGE, Library
from .augment import CROP, STORED
from .shards import COLUMN, LABELS, Shards

SHARD = 4096


def cut(library, frame):
    """The box with a sixth of its sides around it; what lies outside the frame repeats the
    border."""
    left, top, right, bottom = library.box(frame)
    across = round((right - left) * (STORED - CROP) / (2 * CROP))
    down = round((bottom - top) * (STORED - CROP) / (2 * CROP))
    margin = max(across, down)
    padded = cv2.copyMakeBorder(frame, *[margin] * 4, cv2.BORDER_REPLICATE)
    region = padded[
        top - down + margin : bottom + down + margin, left - across + margin : right + across + margin
    ]
    return library.resize(region, STORED)


class Writer:
    """Files appear under their names when they are complete, the labels last."""

    def __init__(self, folder):
        self.folder, self.number, self.pictures, self.labels = folder, 0, [], []

    def put(self, picture, label):
        self.pictures.append(picture)
        self.labels.append(label)
        if len(self.pictures) == SHARD:
            self.flush()

    def _write(self, kind, values):
        path = self.folder / f"crops-{self.number:05}.{kind}.npy"
        unfinished = path.with_name(f"unfinished-{path.name}")
        np.save(unfinished, np.stack(values))
        unfinished.replace(path)

    def flush(self):
        if self.pictures:
            self._write("pictures", self.pictures)
            self._write("labels", self.labels)
            self.number, self.pictures, self.labels = self.number + 1, [], []


def frames_of(folder, height):
    """Frame and label row of each picture that shows somebody."""
    shards = Shards([folder], kind="frames")
    if len(shards):
        for places in shards.people().values():
            for place in places:
                yield np.asarray(shards.picture(place)), shards.label(place)
        return
    shots = load(folder, height)
    numbers = {person: i for i, person in enumerate(sorted({shot.person for shot in shots}))}
    for shot in shots:
        label = np.zeros(len(LABELS), np.float32)
        label[COLUMN["person"]] = numbers[shot.person]
        yield shot.frame, label


def main():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.data.cut_crops",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument("frames", type=Path, help="folder with shards or people")
    parser.add_argument("out", type=Path, help="folder for crops-* shards")
    parser.add_argument("--library", type=Path, help="the built library")
    parser.add_argument(
        "--portrait-height",
        type=int,
        default=200,
        metavar="ROWS",
        help=f"rows of the {IMAGE} that a picture which is not square takes (%(default)s)",
    )
    args = parser.parse_args()
    library = Library(args.library)
    args.out.mkdir(parents=True, exist_ok=True)
    writer, count = Writer(args.out), 0
    for frame, label in frames_of(args.frames, args.portrait_height):
        writer.put(cut(library, frame), label)
        count += 1
    writer.flush()
    print(f"{count} crops")


if __name__ == "__main__":
    main()

# SPDX-License-Identifier: MIT
"""Where the finder's first network sees faces and there are none, for its second to learn from.

Beside each shard of scenes it writes looks-*.npy: rows of scene, x, y, side of a box in pixels, turn in
degrees, and probability of 1024. With --bank it makes scenes without people, too, of pictures in which
that network sees something.
"""
import argparse
from pathlib import Path

import numpy as np
import torch

from ..evaluation import find_faces, second_look
from ..export import tensors
from ..networks.find_net import QuantFindNet
from .scenes import COLUMNS, MOST, Bank

LEAST = -26  # score of a find that counts
SIZE = 320
SHARD = 3000  # pictures of a bank that are looked at for a shard


class First:
    """The first network alone."""

    def __init__(self, model):
        self.net = QuantFindNet().load(tensors.read(model)).eval()

    @torch.no_grad()
    def answers(self, plane):
        x = torch.from_numpy(plane.astype(np.float32) - 128)[None, None]
        return [a[0].numpy().astype(np.int8) for a in self.net(x)]

    def __call__(self, picture):
        picture = np.ascontiguousarray(picture)
        return find_faces.merged(find_faces.candidates(self.answers, picture, least=LEAST))


def is_false(found, faces):
    faces = faces[faces[:, 0] > 0]
    middle, side = np.array(found.middle) / 4, found.side / 4
    far = np.abs(faces[:, 1:3] - middle).max(1, initial=0)
    return not (far < 0.6 * np.maximum(faces[:, 3], 0.7 * side)).any()


def rows(first, pictures, faces):
    out = np.zeros((0, 6), np.float32)
    for number, (picture, here) in enumerate(zip(pictures, faces)):
        for found in first(picture):
            if is_false(found, here):
                view = second_look.view_of(found)
                turn = np.degrees(np.arctan2(view.sine, view.cosine))
                row = [number, view.x / 4, view.y / 4, view.side / 4, turn, found.score]
                out = np.concatenate([out, np.array([row], np.float32)])
    return out


def mine_scenes(first, folder):
    for path in sorted(Path(folder).glob("scenes-*.faces.npy")):
        stem = path.name[: -len(".faces.npy")]
        out = path.with_name(stem.replace("scenes", "looks") + ".npy")
        if not out.exists():
            pictures = np.load(path.with_name(stem + ".pictures.npy"), mmap_mode="r")
            np.save(out, rows(first, pictures, np.load(path)))
            print(out.name, flush=True)


def mine_bank(first, bank, folder, shards):
    folder.mkdir(parents=True, exist_ok=True)
    for shard in range(shards):
        random, kept, found = np.random.default_rng([71, shard]), [], []
        for _ in range(SHARD):
            picture = np.ascontiguousarray(bank.draw(random, SIZE))
            here = rows(first, [picture], np.zeros((1, 0, COLUMNS), np.float32))
            if len(here):
                here[:, 0] = len(kept)
                kept.append(picture)
                found.append(here)
        np.save(folder / f"scenes-{shard:05d}.pictures.npy", np.stack(kept))
        np.save(folder / f"looks-{shard:05d}.npy", np.concatenate(found))
        np.save(folder / f"scenes-{shard:05d}.faces.npy",
                np.zeros((len(kept), MOST, COLUMNS), np.float32))  # fmt: skip


def main():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.data.mined_looks",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    add = parser.add_argument
    add("model", type=Path, help="find.safetensors")
    add("--scenes", nargs="*", default=[], help="folders of scene shards")
    add("--bank", type=Path, help="pictures without people")
    add("--out", type=Path, help="folder for those of the bank")
    add("--shards", type=int, default=3, help="of the bank (%(default)s)")
    args = parser.parse_args()
    torch.set_num_threads(1)
    first = First(args.model)
    for folder in args.scenes:
        mine_scenes(first, folder)
    if args.bank:
        mine_bank(first, Bank(args.bank), args.out, args.shards)


if __name__ == "__main__":
    main()

# SPDX-License-Identifier: MIT
"""Measures the networks that find faces: on rendered scenes of people and before pictures that were
not trained on, on pictures without people, and on portraits.

Faces count from 20 pixels and up to 60 degrees of yaw; smaller, further turned and mostly hidden ones
count neither as found nor as wrong.
"""
import argparse
import json
from functools import partial
from pathlib import Path

import cv2
import numpy as np
import torch

from ..data.scenes import Bank, Cutouts, SceneMaker
from ..export import tensors
from ..networks.find_net import QuantFindNet
from ..networks.look_net import CLOSE, QuantLookNet
from . import find_faces

SIZE = 320
LEAST_SIDE, MOST_YAW = 20, 60
PUPILS = 0.40  # their distance over a box's side, facing the camera


class Finder:
    """The library's arithmetic by PyTorch's operators, which give the same integers."""

    def __init__(self, model):
        given = tensors.read(model)
        self.net = QuantFindNet().load(given).eval()
        self.look_net = QuantLookNet().load(given).eval()
        self.close_net = QuantLookNet(CLOSE).load(given).eval()

    @torch.no_grad()
    def answers(self, plane):
        x = torch.from_numpy(plane.astype(np.float32) - 128)[None, None]
        return [a[0].numpy().astype(np.int8) for a in self.net(x)]

    @staticmethod
    @torch.no_grad()
    def answers_of_looks(net, looks):
        x = torch.from_numpy(looks.astype(np.float32) - 128)[:, None]
        return [a.numpy().astype(np.int8) for a in net(x)]

    def __call__(self, picture):
        """All that is looked at to the end, however unsure."""
        picture = np.ascontiguousarray(picture)
        faces = find_faces.merged(find_faces.candidates(self.answers, picture))
        faces = find_faces.looked_at(partial(self.answers_of_looks, self.look_net), picture, faces)
        return find_faces.looked_at_closely(
            partial(self.answers_of_looks, self.close_net), picture, faces
        )


def overlap(a, b):
    """IoU of squares (left, top, side)."""
    low = np.maximum(a[:2], b[:2])
    high = np.minimum(a[:2] + a[2], b[:2] + b[2])
    both = np.prod(np.maximum(0, high - low))
    return both / (a[2] ** 2 + b[2] ** 2 - both)


def average_precision(hits, wanted):
    """hits: (score, right) of all answers; the area under the curve's upper envelope."""
    hits = sorted(hits, key=lambda hit: -hit[0])
    right = np.cumsum([hit[1] for hit in hits])
    precision = right / np.arange(1, len(hits) + 1)
    recall = right / wanted
    precision = np.maximum.accumulate(precision[::-1])[::-1]
    return float(np.sum(np.diff(np.concatenate([[0], recall])) * precision)), recall


def judge(finder, scenes, reported):
    hits, wanted, found = [], 0, 0
    errors, records = [], []
    for picture, rows in scenes:
        rows = rows[rows[:, 0] > 0]
        boxes = np.stack([rows[:, 1] - rows[:, 3] / 2, rows[:, 2] - rows[:, 3] / 2, rows[:, 3]], 1)
        counts = (rows[:, 0] == 1) & (rows[:, 3] >= LEAST_SIDE) & (abs(rows[:, 14]) <= MOST_YAW)
        wanted += int(counts.sum())
        free = np.ones(len(rows), bool)
        for face in finder(picture):
            ious = np.array([overlap(face.box(), box) for box in boxes])
            mine = np.where(free & counts, ious, 0)
            if len(rows) and mine.max() >= 0.5:
                k = int(mine.argmax())
                free[k] = False
                hits.append((face.score, True))
                if face.score >= reported:
                    found += 1
                    given = face.points.ravel() / 16
                    miss = np.hypot(*(given - rows[k, 4:14]).reshape(5, 2).T)
                    errors.append(miss / (PUPILS * rows[k, 3]))
                    real = np.hypot(*(rows[k, 4:6] - rows[k, 6:8]))
                    records.append((ious[k], miss.mean() / real if abs(rows[k, 14]) <= 30 else np.nan,
                                    face.yaw * 0.75 - rows[k, 14]))  # fmt: skip
            elif not (len(rows) and (ious[~counts] > 0.3).any()) and not _on_unasked(face, rows, counts):
                hits.append((face.score, False))
    precision, recall = average_precision(hits, wanted)
    records = np.array(records)
    wrong = sum(1 for score, right in hits if not right and score >= reported)
    return {
        "faces": wanted,
        "average_precision": precision,
        "recall_in_all": float(recall[-1]),
        "recall": found / wanted,
        "wrong_a_scene": wrong / len(scenes),
        "iou": float(records[:, 0].mean()),
        "points": float(np.mean(errors)),
        "each_point": [float(v) for v in np.mean(errors, 0)],
        "points_to_30_degrees": float(np.nanmean(records[:, 1])),
        "yaw_error": float(np.abs(records[:, 2]).mean()),
    }


def _on_unasked(face, rows, counts):
    x, y, side = face.middle[0] / 4, face.middle[1] / 4, face.side / 4
    for row in rows[~counts]:
        if max(abs(row[1] - x), abs(row[2] - y)) < 0.5 * max(row[3], side):
            return True
    return False


def read_portraits(folder):
    paths = sorted(p for p in Path(folder).rglob("*") if p.suffix.lower() in (".pgm", ".png", ".jpg"))
    pictures = [cv2.imread(str(p), cv2.IMREAD_GRAYSCALE) for p in paths]
    return [(p, q) for p, q in zip(paths, pictures) if q is not None]


def judge_portraits(finder, folder, bank, reported):
    """A portrait's face is found where a box's middle lies in its middle 60 %, with a side of 45 to
    125 % of the portrait's width; anything else that is reported is wrong."""
    random = np.random.default_rng(5)
    result = {}
    for kind in ("whole", "placed"):
        found, wrong, missed, scores = 0, 0, [], []
        portraits = read_portraits(folder)
        for path, portrait in portraits:
            left = top = 0
            scene, width, height = portrait, portrait.shape[1], portrait.shape[0]
            if kind == "placed":
                scale = np.exp(random.uniform(np.log(0.35), np.log(2.2)))
                width, height = int(width * scale), int(height * scale)
                how = cv2.INTER_AREA if scale < 1 else cv2.INTER_LINEAR
                small = cv2.resize(portrait, (width, height), interpolation=how)
                scene = np.ascontiguousarray(bank.draw(random, SIZE)).copy()
                left, top = random.integers(SIZE - width + 1), random.integers(SIZE - height + 1)
                scene[top : top + height, left : left + width] = small
            best = 0
            for face in finder(scene):
                x, y, side = face.middle[0] / 4 - left, face.middle[1] / 4 - top, face.side / 4
                right = (
                    abs(x / width - 0.5) < 0.3 and abs(y / height - 0.5) < 0.3
                    and 0.45 * width < side < 1.25 * width
                )  # fmt: skip
                best = max(best, face.score if right else 0)
                wrong += not right and face.score >= reported
            scores.append(best)
            found += best >= reported
            if best < reported:
                missed.append(f"{path.parent.name}/{path.name} {best}")
        result[kind] = {"pictures": len(portraits), "found": found / len(portraits), "wrong": wrong,
                        "missed": missed[:40]}  # fmt: skip
    return result


def judge_empty(finder, bank, count, reported):
    random = np.random.default_rng(11)
    scores, pictures = [], []
    for _ in range(count):
        picture = np.ascontiguousarray(bank.draw(random, SIZE))
        here = [face for face in finder(picture)]
        scores += [face.score for face in here]
        pictures += [(picture, face) for face in here if face.score >= reported]
    scores = np.array(scores)
    return {
        "pictures": count,
        "false_faces": int((scores >= reported).sum()),
        "at": {str(t): int((scores >= t).sum()) for t in (400, 512, 600, 700, 800, 900)},
    }, pictures


def main():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.evaluation.evaluate_find",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    add = parser.add_argument
    add("model", type=Path, help="find.safetensors")
    add("--cutouts", type=Path, help="people who were not trained on")
    add("--bank", type=Path, required=True, help="pictures that were not trained on")
    add("--portraits", type=Path, help="folder of portraits")
    add("--scenes", type=int, default=500)
    add("--empty", type=int, default=500)
    add("--reported", type=int, default=find_faces.REPORTED, help="of 1024 (%(default)s)")
    add("--out", type=Path, help="folder for figures.json and pictures")
    args = parser.parse_args()
    torch.set_num_threads(1)
    cv2.setNumThreads(1)
    finder, bank, figures = Finder(args.model), Bank(args.bank), {}
    if args.empty:
        figures["empty"], wrong = judge_empty(finder, bank, args.empty, args.reported)
        if args.out and wrong:
            args.out.mkdir(parents=True, exist_ok=True)
            tiles = []
            for picture, face in wrong[:40]:
                left, top, side = (int(v) for v in face.box())
                picture = picture.copy()
                cv2.rectangle(picture, (left, top), (left + side, top + side), 255, 2)
                tiles.append(picture[::2, ::2])
            tiles += [np.zeros_like(tiles[0])] * (-len(tiles) % 8)
            rows = [np.hstack(tiles[i : i + 8]) for i in range(0, len(tiles), 8)]
            cv2.imwrite(str(args.out / "wrong.png"), np.vstack(rows))
    if args.portraits:
        figures["portraits"] = judge_portraits(finder, args.portraits, bank, args.reported)
    if args.cutouts:
        maker = SceneMaker(Cutouts(args.cutouts), bank, 500, size=SIZE, smallest=12, largest=200)
        scenes = [maker.scene() for _ in range(args.scenes)]
        figures["scenes"] = judge(finder, scenes, args.reported)
    print(json.dumps(figures, indent=1))
    if args.out:
        args.out.mkdir(parents=True, exist_ok=True)
        (args.out / "figures.json").write_text(json.dumps(figures, indent=1))


if __name__ == "__main__":
    main()

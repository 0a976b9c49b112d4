# SPDX-License-Identifier: MIT
"""Trains the finder's second network, in the library's integer arithmetic, from the first network's layers.

Writes look.safetensors. Stop it at any time: started again with the same --out, it goes on from the
last checkpoint.
"""
import argparse
import queue
import threading
from pathlib import Path

import numpy as np
import torch
import torch.nn.functional as F

from ..data.looks import LookBatches, LookSource
from ..engine.find_trunk import FindTrunk
from ..export import tensors
from ..networks.look_net import CELL, FACE, HEAT, NEAR, SIDE, QuantLookNet, cells, points_of
from .beginning import begin
from .trainer import Trainer, add_common_options

LOGITS = 8.0  # an answer's 16 integers are one
YAW = 96.0  # degrees at the answer's end
REACH = 32.0  # pixels of the look at a place's end
PUPILS = 0.40  # their distance over a box's side, facing the camera


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.trainers.train_look",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    add = parser.add_argument
    add("--data", nargs="+", required=True, help="folders with scenes-* shards")
    add("--held-out-data", nargs="+", help="the same of other people, to validate on")
    add("--first", type=Path, required=True, help="find.safetensors, to begin from")
    add("--second", type=Path, help="look.safetensors, to begin from instead")
    add("--out", type=Path, required=True, help="folder for checkpoints and curves")
    add("--views", type=float, default=6e6, help="looks (%(default).0f)")
    add("--batch", type=int, default=128, help="(%(default)s)")
    add("--rate", type=float, default=0.5, help="in units of integer weights (%(default)s)")
    add_common_options(add)
    return parser.parse_args()


def distances(given, goals):
    """Between true points and given ones [n, 5, 2], in sides of the true box: [n, 5]."""
    off = given - goals[:, 4:14].reshape(-1, 5, 2)
    return (off.square().sum(2) + 1e-4).sqrt() / goals[:, 3:4]


def heat_loss(heat, goals):
    """Each point's cell is to be hot, and cells near it are to know how far it is."""
    true = goals[:, 4:14].reshape(-1, 5, 1, 2)
    off = true - cells()
    near = torch.exp(-off.square().sum(3) / (2 * (0.6 * CELL) ** 2)) + 1e-8
    near = near / near.sum(2, keepdim=True)
    logits, right, down = (heat[:, i : i + 5].flatten(2) for i in (0, 5, 10))
    hot = -(near * torch.log_softmax(logits * HEAT, 2)).sum(2)
    told = torch.stack([right, down], 3) * (NEAR / 128)
    miss = ((told - off.clamp(-NEAR, NEAR)).square().sum(3) + 1e-3).sqrt()
    return hot, (near * miss).sum(2) / goals[:, 3:4]


def look_loss(heat, answers, goals):
    """Both answers are integers. The score's loss, and that of places and the rest."""
    answers = answers / 128
    asked = goals[:, 0] >= 0
    score = F.binary_cross_entropy_with_logits(
        LOGITS * answers[asked, 0], (goals[asked, 0] > 0).float()
    )
    about = goals[:, 3] > 0
    heat, given, goals = heat[about], answers[about], goals[about]
    weight = (1 - 0.5 * goals[:, 15]) * torch.clamp(1.6 - goals[:, 14].abs() / 75, 0.3, 1.0)
    side = goals[:, 3]
    points = distances(REACH * given[:, 4:14].reshape(-1, 5, 2), goals).sum(1)
    hot, near = heat_loss(heat, goals)
    points = 0.5 * points + (distances(points_of(heat), goals) + near + 0.02 * hot).sum(1)
    middle = ((REACH * given[:, 1:3] - goals[:, 1:3]).square().sum(1) + 1e-4).sqrt() / side
    size = F.smooth_l1_loss(
        2 * given[:, 3], torch.log2(side / (FACE * SIDE)), beta=0.02, reduction="none"
    )
    yaw = (given[:, 14] - (goals[:, 14] / YAW).clamp(-1, 0.99)).abs()
    cover = (0.5 * given[:, 15] + 0.5 - goals[:, 15]).abs()
    place = weight * (points + middle + 0.7 * size + 0.3 * yaw + 0.2 * cover)
    return score, place.mean()


class _Ahead:
    """Batches made by a thread of their own."""

    def __init__(self, source, size):
        self._queue = queue.Queue(6)
        self._source, self._size = source, size
        threading.Thread(target=self._run, daemon=True).start()

    def _run(self):
        while True:
            self._queue.put(self._source.batch(self._size))

    def next(self):
        return [torch.from_numpy(part) for part in self._queue.get()]


class LookTrainer(Trainer):
    follow_steps = 2000
    quantised = True

    def __init__(self, args):
        self.source = LookSource(args.data, args.seed)
        held_out = LookSource(args.held_out_data or args.data, 99, faces_share=0.8)
        self.held_out = [self._asked(*held_out.fresh(256)) for _ in range(12)]
        super().__init__(args, args.views, args.batch)
        self.ahead = None

    @staticmethod
    def _asked(pictures, rows):
        return torch.from_numpy(pictures[:, None].astype(np.float32) - 128), torch.from_numpy(rows)

    def make_net(self):
        net = QuantLookNet(self.args.seed)
        if self.args.second:
            return net.load(tensors.read(self.args.second))
        return net.begin_from(tensors.read(self.args.first))

    def attach(self, net, size):
        net.trunk = FindTrunk(net, size, SIDE, self.args.threads, quantised=True)

    def groups(self):
        return self.integer_groups(self.args.rate)

    def look_for_shards(self):
        self.source.refresh()

    def draw(self):
        self.ahead = self.ahead or _Ahead(LookBatches(self.source), self.args.batch)
        return self.ahead.next()

    def loss(self, pictures, goals):
        score, place = look_loss(*self.net(pictures), goals)
        return score + 4 * place

    @torch.no_grad()
    def validate(self):
        self.average.eval()
        scores, missed, errors, plain = [], [], [], []
        for pictures, goals in self.held_out:
            heat, answers = self.average(pictures)
            scores.append(float(look_loss(heat, answers, goals)[0]))
            counts = (goals[:, 0] == 1) & (goals[:, 16] >= 20) & (goals[:, 14].abs() <= 60)
            errors.append(distances(points_of(heat), goals)[counts].mean(1) / PUPILS)
            given = (REACH / 128 * answers[:, 4:14]).reshape(-1, 5, 2)
            plain.append(distances(given, goals)[counts].mean(1) / PUPILS)
            asked = goals[:, 0] >= 0
            missed.append(((answers[:, 0] > 0).float() - goals[:, 0]).abs()[asked])
        errors = torch.cat(errors)
        return {
            "score_loss": float(np.mean(scores)),
            "misjudged": float(torch.cat(missed).mean()),
            "points": float(errors.mean()),
            "points_median": float(errors.median()),
            "plain_points": float(torch.cat(plain).mean()),
        }

    def take_extra(self, state):
        self.source.random = np.random.default_rng(self.args.seed + state["step"])

    def write_results(self):
        tensors.write(self.args.out / "look.safetensors", self.average.tensors())


def main():
    args = parse_arguments()
    begin(args)
    trainer = LookTrainer(args)
    trainer.resume()
    trainer.run()


if __name__ == "__main__":
    main()

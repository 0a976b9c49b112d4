# SPDX-License-Identifier: MIT
"""Trains a network of the finder that looks: in float arithmetic, then in the library's integer arithmetic.

Writes look.safetensors, with --close close.safetensors. Stop it at any time: started again with the same
--out, it goes on from the last checkpoint.
"""
import argparse
import math
import multiprocessing
import queue
import re
from pathlib import Path

import numpy as np
import torch
import torch.nn.functional as F

from ..data.looks import LookBatches, LookSource
from ..engine.find_trunk import FindTrunk
from ..export import conversion, tensors
from ..networks.look_net import (
    CELL, CLOSE, HEAT, NEAR, SIDE, WIDE, LookNet, QuantLookNet, cells, points_of,
)  # fmt: skip
from .beginning import begin
from .trainer import add_common_options
from .two_stages import FloatStage, IntegerStage, train

LOGITS = 8.0  # an answer's 16 integers are one
YAW = 96.0  # degrees at the answer's end
REACH = 32.0  # pixels of the look at a place's end
POINTS = 5
HOTTEST = 120  # integer of a logit
PUPILS = 0.40  # their distance over a box's side, facing the camera
SHARDS_LOOKED_FOR = 1000  # batches from one look for new ones to the next


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.trainers.train_look",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    add = parser.add_argument
    add("--data", nargs="+", required=True, help="folders with scenes-* shards")
    add("--held-out-data", nargs="+", help="the same of other people, to validate on")
    add("--out", type=Path, required=True, help="folder for checkpoints and curves")
    add("--close", action="store_true", help="the network that looks from close by")
    start = parser.add_mutually_exclusive_group()
    start.add_argument(
        "--begin", type=Path, help="float-checkpoint.pt whose weights to begin with, of either"
    )
    start.add_argument(
        "--model", type=Path, help="safetensors to go on from in integers, without a float training"
    )
    add("--views", type=float, default=1e6, help="looks in float arithmetic (%(default).0f)")
    add("--integer-views", type=float, default=1e6, help="in integers (%(default).0f)")
    add("--batch", type=int, default=192, help="(%(default)s)")
    add("--rate", type=float, default=3e-3, help="of the float training (%(default)s)")
    add("--integer-rate", type=float, default=0.3, help="of the other (%(default)s)")
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


def look_loss(heat, answers, goals, face):
    """Both answers are integers; face: the box's share of a look. The score's loss, and that of places and
    the rest."""
    answers = answers / 128
    asked = goals[:, 0] >= 0
    score = F.binary_cross_entropy_with_logits(
        LOGITS * answers[asked, 0], (goals[asked, 0] > 0).float()
    )
    about = goals[:, 3] > 0
    heat, given, goals = heat[about], answers[about], goals[about]
    seen = torch.clamp(1.6 - goals[:, 14].abs() / 75, 0.3, 1.0)
    weight = (1 - 0.5 * goals[:, 15]) * seen
    side = goals[:, 3]
    plain, told = REACH * given[:, 4:14].reshape(-1, 5, 2), points_of(heat)
    hot, near = heat_loss(heat, goals)
    points = 0.15 * (distances(plain, goals) + distances(told, goals))
    # What the library says is the mean of both.
    points = (points + 1.4 * distances((plain + told) / 2, goals) + 0.5 * near + 0.01 * hot).sum(1)
    middle = ((REACH * given[:, 1:3] - goals[:, 1:3]).square().sum(1) + 1e-4).sqrt() / side
    size = F.smooth_l1_loss(
        2 * given[:, 3], torch.log2(side / (face * SIDE)), beta=0.02, reduction="none"
    )
    yaw = (given[:, 14] - (goals[:, 14] / YAW).clamp(-1, 0.99)).abs()
    cover = (0.5 * given[:, 15] + 0.5 - goals[:, 15]).abs()
    place = seen * points + weight * (0.7 * middle + 0.5 * size + 0.3 * yaw + 0.2 * cover)
    return score, place.mean()


def _make(folders, seed, kind, size, ready):
    """The work of a process: batches, until its parent has ended."""
    batches = LookBatches(LookSource(folders, seed, kind=kind))
    parent = multiprocessing.parent_process()
    while parent.is_alive():
        if batches.count % SHARDS_LOOKED_FOR == 0:
            batches.source.refresh()
        batch = batches.batch(size)
        while parent.is_alive():
            try:
                ready.put(batch, timeout=10)
                break
            except queue.Full:
                pass
    ready.cancel_join_thread()


def _renumbered(checkpoint, net):
    """The averaged weights of a float training of either kind, under this network's numbers. Patches that
    are larger here reach as far beyond theirs on every side, and begin with zeros there."""
    given = torch.load(checkpoint, map_location="cpu")["average"]
    theirs = min(int(re.sub(r"\D", "", name)) for name in given)
    first = net.convs[0].number
    mine = {
        re.sub(r"\d+", lambda digits: str(int(digits[0]) + first - theirs), name): value
        for name, value in given.items()
    }
    mine[f"w{first}"] = _about(mine[f"w{first}"], net.convs[0].inputs)
    return mine


def _about(weights, inputs):
    """Those of patches in the middle of patches of so many pixels."""
    side, larger = math.isqrt(weights.shape[1]), math.isqrt(inputs)
    margin = (larger - side) // 2
    square = F.pad(weights.reshape(-1, side, side), [margin] * 4)
    return square.reshape(-1, inputs, 1, 1)


@torch.no_grad()
def centre_heat(net, parameters, looks):
    """Adds to each point's logits what brings the hottest cells to the end of the integers' range: only
    differences between cells count, and in float arithmetic all of them may lie beyond it."""
    hottest = net(looks)[0][:, :POINTS].flatten(2).amax(2)
    parameters[net.heat.number][1][:POINTS] += HOTTEST - hottest.double().quantile(0.99, 0)


class _Ahead:
    """Batches made by a process of their own: cutting out looks would keep the network waiting."""

    def __init__(self, folders, seed, kind, size):
        context = multiprocessing.get_context("spawn")
        self._ready = context.Queue(8)
        self._process = context.Process(
            target=_make, args=(folders, seed, kind, size, self._ready), daemon=True
        )
        self._process.start()

    def next(self):
        pictures, rows = self._ready.get()
        return torch.from_numpy(pictures).float(), torch.from_numpy(rows)

    def end(self):
        self._process.terminate()
        self._process.join()


class LookTrainer(FloatStage):
    """In float arithmetic."""

    def __init__(self, args):
        self.kind = CLOSE if args.close else WIDE
        held_out = LookSource(args.held_out_data or args.data, 99, faces_share=0.8, kind=self.kind)
        self.held_out = [self._asked(*held_out.fresh(256)) for _ in range(12)]
        super().__init__(args, self.views_of(args), args.batch)
        self.ahead = None

    @staticmethod
    def _asked(pictures, rows):
        return torch.from_numpy(pictures[:, None].astype(np.float32) - 128), torch.from_numpy(rows)

    def some_looks(self):
        source = LookSource(self.args.data, self.args.seed, kind=self.kind)
        return self._asked(*source.fresh(2 * self.args.batch))[0]

    def make_net(self):
        net = LookNet(self.args.seed, self.kind)
        if self.args.begin:
            net.load_state_dict(_renumbered(self.args.begin, net))
        else:
            net.settle(self.some_looks())
        return net

    def attach(self, net, size):
        net.trunk = FindTrunk(net, size, SIDE, self.args.threads, quantised=self.quantised)

    def draw(self):
        if not self.ahead:
            # Started again it draws others than before.
            seed = 1000 * self.args.seed + self.step
            self.ahead = _Ahead(self.args.data, seed, self.kind, self.args.batch)
        return self.ahead.next()

    def run(self):
        super().run()
        if self.ahead:
            self.ahead.end()

    def loss(self, pictures, goals):
        score, place = look_loss(*self.net(pictures), goals, self.kind.face)
        return score + 4 * place

    @torch.no_grad()
    def validate(self):
        self.average.eval()
        scores, missed, errors, heats = [], [], [], []
        for pictures, goals in self.held_out:
            heat, answers = self.average(pictures)
            scores.append(float(look_loss(heat, answers, goals, self.kind.face)[0]))
            counts = (goals[:, 0] == 1) & (goals[:, 16] >= 20) & (goals[:, 14].abs() <= 60)
            plain = (REACH / 128 * answers[:, 4:14]).reshape(-1, 5, 2)
            told = points_of(heat)
            errors.append(distances((plain + told) / 2, goals)[counts].mean(1) / PUPILS)
            heats.append(distances(told, goals)[counts].mean(1) / PUPILS)
            asked = goals[:, 0] >= 0
            missed.append(((answers[:, 0] > 0).float() - goals[:, 0]).abs()[asked])
        errors = torch.cat(errors)
        return {
            "score_loss": float(np.mean(scores)),
            "misjudged": float(torch.cat(missed).mean()),
            "points": float(errors.mean()),
            "points_median": float(errors.median()),
            "heat_points": float(torch.cat(heats).mean()),
        }

    def to_integers(self):
        net = self.average
        looks = self.some_looks()
        parameters = conversion.folded(net)
        centre_heat(net, parameters, looks)
        parameters, before, after = conversion.rescale(net, parameters, looks)
        print(f"relative rounding noise of a layer: {before:.5f}, rescaled {after:.5f}")
        return conversion.to_integers(self.kind.name, parameters, QuantLookNet(self.kind))


class IntegerLookTrainer(IntegerStage, LookTrainer):
    """In the library's integer arithmetic."""

    follow_steps = 2000

    def write_results(self):
        tensors.write(self.args.out / f"{self.kind.name}.safetensors", self.average.tensors())


def main():
    args = parse_arguments()
    begin(args)
    kind = CLOSE if args.close else WIDE
    given = QuantLookNet(kind).load(tensors.read(args.model)) if args.model else None
    train(args, LookTrainer, IntegerLookTrainer, QuantLookNet(kind), given)


if __name__ == "__main__":
    main()

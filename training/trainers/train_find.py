# SPDX-License-Identifier: MIT
"""Trains the network that finds faces: in float arithmetic, then in the library's integer arithmetic.

Writes find.safetensors. Stop it at any time: started again with the same --out, it goes on from the
last checkpoint.
"""
import argparse
from pathlib import Path

import torch

from ..data.scene_source import SceneBatches
from ..engine.find_trunk import FindTrunk
from ..export import conversion, tensors
from ..networks.find_net import FindNet, QuantFindNet
from .beginning import begin
from .find_loss import RANGES, Goals, find_loss
from .trainer import add_common_options
from .two_stages import FloatStage, IntegerStage, train

SIDE = 192


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.trainers.train_find",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    add = parser.add_argument
    add("--data", nargs="+", required=True, help="folders with scenes-* shards")
    add("--held-out-data", nargs="+", help="the same of other people, to validate on")
    add("--out", type=Path, required=True, help="folder for checkpoints and curves")
    add("--views", type=float, default=8e5, help="scenes in float arithmetic (%(default).0f)")
    add("--integer-views", type=float, default=4e5, help="in integers (%(default).0f)")
    add("--batch", type=int, default=32, help="(%(default)s)")
    add("--rate", type=float, default=3e-3, help="of the float training (%(default)s)")
    add("--integer-rate", type=float, default=0.2, help="of the other (%(default)s)")
    add("--places", type=float, default=5.0, help="weight of places beside scores (%(default)s)")
    add_common_options(add)
    return parser.parse_args()


class FindTrainer(FloatStage):
    """In float arithmetic."""

    def __init__(self, args):
        self.batches = SceneBatches(args.data, SIDE, args.seed)
        if not self.batches.source.shards:
            raise SystemExit(f"no scenes in {' '.join(args.data)}")
        held_out = SceneBatches(args.held_out_data or args.data, SIDE, 99)
        self.held_out = [held_out.batch(args.batch) for _ in range(12)]
        super().__init__(args, self.views_of(args), args.batch)

    def make_net(self):
        net = FindNet(self.args.seed)
        net.settle(self.batches.batch(self.args.batch)[0] / 128)
        return net

    def attach(self, net, size):
        net.trunk = FindTrunk(net, size, SIDE, self.args.threads, quantised=self.quantised)

    def look_for_shards(self):
        self.batches.source.refresh()

    def draw(self):
        return self.batches.batch(self.args.batch)

    def answers(self, net, pictures):
        """In units of 128 integers, for pictures of grey levels less 128."""
        return net(pictures / 128)

    def loss(self, pictures, faces):
        score, place = find_loss(self.answers(self.net, pictures), faces)
        return score + self.args.places * place

    @torch.no_grad()
    def validate(self):
        """Over cells: the losses, the share of those with a face that say so, and how many others
        a picture do."""
        self.average.eval()
        losses = torch.zeros(2)
        found = wrong = wanted = 0
        for pictures, faces in self.held_out:
            answers = self.answers(self.average, pictures)
            losses += torch.stack(find_loss(answers, faces))
            for answer, stride in zip(answers, RANGES):
                goals = Goals(faces, *answer.shape[2:], stride)
                says = answer[:, 0].flatten(1) > 0
                found += int((says & goals.positive).sum())
                wanted += int(goals.positive.sum())
                wrong += int((says & goals.asked & ~goals.positive).sum())
        pictures = len(self.held_out) * self.args.batch
        return {
            "score_loss": float(losses[0] / len(self.held_out)),
            "place_loss": float(losses[1] / len(self.held_out)),
            "found_cells": found / max(wanted, 1),
            "wrong_cells": wrong / pictures,
        }

    def take_extra(self, state):
        self.batches.seed(self.args.seed + state["step"])

    def to_integers(self):
        size = self.args.batch
        pictures = torch.cat([self.batches.batch(size)[0] for _ in range(2)]) / 128
        net = self.average
        parameters, before, after = conversion.rescale(net, conversion.folded(net), pictures)
        print(f"relative rounding noise of a layer: {before:.5f}, rescaled {after:.5f}")
        return conversion.to_integers("find", parameters, QuantFindNet())


class IntegerFindTrainer(IntegerStage, FindTrainer):
    """In the library's integer arithmetic."""

    def answers(self, net, pictures):
        return [a / 128 for a in net(pictures)]

    def write_results(self):
        tensors.write(self.args.out / "find.safetensors", self.average.tensors())


def main():
    args = parse_arguments()
    begin(args)
    train(args, FindTrainer, IntegerFindTrainer, QuantFindNet())


if __name__ == "__main__":
    main()

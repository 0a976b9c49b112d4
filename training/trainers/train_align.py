# SPDX-License-Identifier: MIT
"""Trains the alignment network: in float arithmetic, then in the library's integer arithmetic.

Frames are moved, scaled and lit anew each time and reduced by the library's own resize, so the
library must be built. Writes align.safetensors. Stop it at any time: started again with the same
--out, it goes on from the last checkpoint.
"""
import argparse
from pathlib import Path

import numpy as np
import torch
import torch.nn.functional as F

from ..data.frames import MIDDLE, FrameAugmenter, FrameSource, intersection_over_union
from ..export import conversion, tensors
from ..networks.float_net import FloatNet
from ..networks.library import ALIGN, Library
from ..networks.quant_net import QuantNet
from .beginning import begin
from .trainer import Trainer, add_common_options

UNIT = 2.0  # pixels of an answer's step


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.trainers.train_align",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    add = parser.add_argument
    add("--data", nargs="+", required=True, help="folders with frames-* shards")
    add("--out", type=Path, required=True, help="folder for checkpoints and curves")
    add("--views", type=float, default=1.5e6, help="pictures in float arithmetic (%(default).0f)")
    add("--integer-views", type=float, default=5e5, help="in integers (%(default).0f)")
    add("--batch", type=int, default=128, help="(%(default)s)")
    add("--rate", type=float, default=3e-3, help="of the float training (%(default)s)")
    add("--integer-rate", type=float, default=0.3, help="of the other (%(default)s)")
    add("--library", type=Path, help="the built library (build/host/lib/libkova_fr.so)")
    add_common_options(add)
    parser.set_defaults(held_out=0.05)
    return parser.parse_args()


class Validation:
    """Held-out frames as they are, and once more moved, always in the same way."""

    most = 1000

    def __init__(self, source, library):
        augment = FrameAugmenter(library, seed=99)
        augment.unmoved = 0
        small, boxes, faces = [], [], []
        for place in source.validation[: self.most]:
            frame, box = source.get(place)
            moved, moved_box = augment(np.asarray(frame), box)
            small += [library.resize(np.asarray(frame), ALIGN), moved]
            boxes += [box or MIDDLE, moved_box]
            faces += [box is not None] * 2
        self.pictures = torch.from_numpy(np.stack(small))
        self.boxes = torch.tensor(np.array(boxes, np.float32))
        self.faces = torch.tensor(faces)

    @torch.no_grad()
    def __call__(self, answer):
        """answer: 24 x 24 pictures -> boxes in pixels."""
        given = torch.cat([answer(part) for part in self.pictures.split(256)]).cpu()
        overlap = intersection_over_union(given, self.boxes)[self.faces]
        as_is, moved = overlap[0::2], overlap[1::2]
        result = {
            "iou": float(as_is.mean()),
            "iou_moved": float(moved.mean()),
            "share_above_0.7": float((overlap > 0.7).float().mean()),
            "error_pixels": float((given - self.boxes).abs()[self.faces].mean()),
        }
        if not bool(self.faces.all()):
            off = (given - self.boxes).abs()[~self.faces].mean()
            result["empty_error_pixels"] = float(off)
        return result


class AlignTrainer(Trainer):
    """In float arithmetic."""

    follow_steps = 500
    checkpoint_file = "float-checkpoint.pt"

    def __init__(self, args, frames):
        self.frames = frames
        super().__init__(args, args.views, args.batch)

    def make_net(self):
        net = FloatNet("align", self.args.seed)
        net.set_gains(self._grey(self.frames.batch(self.args.batch)[0]).cpu() / 128)
        return net

    def groups(self):
        return [{"params": list(self.net.parameters()), "weight_decay": 0.02, "most": self.args.rate}]

    def look_for_shards(self):
        self.frames.source.refresh()

    def draw(self):
        return self.frames.batch(self.args.batch)

    def _grey(self, pictures):
        return (pictures.to(self.device).float() - 128).unsqueeze(1)

    def boxes(self, net, pictures):
        """A network's answer in pixels."""
        return UNIT * 128 * net(self._grey(pictures) / 128).flatten(1)

    def loss(self, pictures, goal):
        given = self.boxes(self.net, pictures)
        goal = goal.to(self.device).clamp(-128 * UNIT, 127 * UNIT)
        distance = F.smooth_l1_loss(given, goal, beta=8.0) / 64
        return distance + 1 - intersection_over_union(given, goal).mean()

    def validate(self):
        return self.frames.validation(lambda pictures: self.boxes(self.average, pictures))

    def take_extra(self, state):
        self.frames.seed(self.args.seed + state["step"])

    def to_integers(self):
        net, size = self.average.cpu(), self.args.batch
        grey = [(self.frames.batch(size)[0].float() - 128).unsqueeze(1) for _ in range(8)]
        parameters, before, after = conversion.rescale(
            net, conversion.folded(net), torch.cat(grey) / 128
        )
        print(f"relative rounding noise of a layer: {before:.5f}, rescaled {after:.5f}")
        return conversion.to_integers("align", parameters)


class IntegerAlignTrainer(AlignTrainer):
    """In the library's integer arithmetic, from what the float training came to."""

    quantised = True
    checkpoint_file = "checkpoint.pt"

    def __init__(self, args, frames, net):
        self.frames, self._start = frames, net
        Trainer.__init__(self, args, args.integer_views, args.batch)

    def make_net(self):
        return self._start

    def groups(self):
        return self.integer_groups(self.args.integer_rate)

    def boxes(self, net, pictures):
        return UNIT * net(self._grey(pictures)).flatten(1)

    def write_results(self):
        tensors.write(self.args.out / "align.safetensors", self.average.tensors())


class Frames:
    """What both stages draw from and are measured on."""

    def __init__(self, args):
        self.library = Library(args.library)
        self.source = FrameSource(args.data, args.held_out, args.seed)
        if not self.source.training:
            raise SystemExit(f"no frames in {' '.join(args.data)}")
        self.augment = FrameAugmenter(self.library, args.seed)
        self.validation = Validation(self.source, self.library)

    def batch(self, size):
        pairs = [self.source.draw() for _ in range(size)]
        made = [self.augment(np.asarray(frame), box) for frame, box in pairs]
        boxes = np.array([box for _, box in made], np.float32)
        return torch.from_numpy(np.stack([small for small, _ in made])), torch.from_numpy(boxes)

    def seed(self, number):
        self.source.random = np.random.default_rng(number)
        self.augment.random = np.random.default_rng(number)


def main():
    args = parse_arguments()
    begin(args)
    frames = Frames(args)
    if (args.out / IntegerAlignTrainer.checkpoint_file).exists():
        trainer = IntegerAlignTrainer(args, frames, QuantNet("align"))
        trainer.resume()
    else:
        trainer = AlignTrainer(args, frames)
        trainer.resume()
        trainer.run()
        if trainer.progress < 1:
            return  # stopped early
        trainer = IntegerAlignTrainer(args, frames, trainer.to_integers())
        trainer.checkpoint()
    trainer.run()


if __name__ == "__main__":
    main()

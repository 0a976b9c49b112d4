# SPDX-License-Identifier: MIT
"""Trains the alignment network: in float arithmetic, then in the library's integer arithmetic.

Frames are moved, scaled and lit anew each time and reduced by the library's own resize, so the
library must be built. Writes align.safetensors. Stop it at any time: started again with the same
--out, it goes on from the last checkpoint.
"""
import argparse
import copy
import json
import math
import time
from pathlib import Path

import numpy as np
import torch
import torch.nn.functional as F

from .. import engine
from ..export import conversion, tensors
from ..networks.float_net import FloatNet
from ..data.frames import MIDDLE, FrameAugmenter, FrameSource, intersection_over_union
from ..networks.library import ALIGN, Library
from .memory import keep_memory
from .plots import draw_curves
from ..networks.quant_net import QuantNet

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
    add("--held-out", type=float, default=0.05, help="share of people to validate on (%(default)s)")
    add("--checkpoint-minutes", type=float, default=5, help="(%(default)s)")
    add("--device", default="cpu", help="cpu or cuda (%(default)s)")
    add("--threads", type=int, default=1, help="(%(default)s)")
    add("--plain", action="store_true", help="PyTorch's own operators only")
    add("--library", type=Path, help="the built library (build/host/lib/libkova_fr.so)")
    add("--seed", type=int, default=1, help="(%(default)s)")
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


class AlignTrainer:
    def __init__(self, args):
        self.args = args
        self.device = torch.device(args.device)
        self.library = Library(args.library)
        self.source = FrameSource(args.data, args.held_out, args.seed)
        if not self.source.training:
            raise SystemExit(f"no frames in {' '.join(args.data)}")
        self.augment = FrameAugmenter(self.library, args.seed)
        self.validation = Validation(self.source, self.library)
        self.net = FloatNet("align", args.seed)
        self.net.set_gains(self._grey(self.batch()[0]).cpu() / 128)
        self.integer, self.step, self.views, self.history = False, 0, 0, []
        self._begin_stage()

    def _begin_stage(self):
        self.net.to(self.device)
        self.average = copy.deepcopy(self.net).eval()
        if self.args.device == "cpu" and not self.args.plain and engine.is_possible():
            self.net.trunk = engine.Trunk(
                self.net, self.args.batch, self.args.threads, quantised=self.integer
            )
        if self.integer:
            weights = [p for n, p in self.net.named_parameters() if n[0] == "w"]
            biases = [p for n, p in self.net.named_parameters() if n[0] == "b"]
            rate = self.args.integer_rate
            self.optimiser = torch.optim.Adam(
                [{"params": weights, "most": rate}, {"params": biases, "most": 0.2 * rate}]
            )
        else:
            self.optimiser = torch.optim.AdamW(
                [{"params": list(self.net.parameters()), "most": self.args.rate}],
                weight_decay=0.02,
            )

    def batch(self):
        pairs = [self.source.draw() for _ in range(self.args.batch)]
        made = [self.augment(np.asarray(frame), box) for frame, box in pairs]
        boxes = np.array([box for _, box in made], np.float32)
        return torch.from_numpy(np.stack([small for small, _ in made])), torch.from_numpy(boxes)

    def _grey(self, pictures):
        return (pictures.to(self.device).float() - 128).unsqueeze(1)

    def boxes(self, net, pictures):
        """A network's answer in pixels."""
        x = self._grey(pictures)
        out = net(x) if self.integer else 128 * net(x / 128)
        return UNIT * out.flatten(1)

    @staticmethod
    def loss(given, goal):
        goal = goal.clamp(-128 * UNIT, 127 * UNIT)
        distance = F.smooth_l1_loss(given, goal, beta=8.0) / 64
        return distance + 1 - intersection_over_union(given, goal).mean()

    def train_step(self, goal_views, done_views):
        rate = 0.5 * (1 + math.cos(math.pi * min(done_views / goal_views, 1)))
        for group in self.optimiser.param_groups:
            group["lr"] = group["most"] * max(rate, 0.005) * min(1, (self.step + 1) / 300)
        pictures, goal = self.batch()
        self.net.train()
        loss = self.loss(self.boxes(self.net, pictures), goal.to(self.device))
        self.optimiser.zero_grad(set_to_none=True)
        loss.backward()
        torch.nn.utils.clip_grad_norm_(self.net.parameters(), 1e9 if self.integer else 5.0)
        self.optimiser.step()
        if self.integer:
            self.net.clip()
        keep = min(0.998, (self.step + 1) / (self.step + 10))
        with torch.no_grad():
            for slow, fast in zip(self.average.parameters(), self.net.parameters()):
                slow.lerp_(fast, 1 - keep)
            for slow, fast in zip(self.average.buffers(), self.net.buffers()):
                slow.lerp_(fast, 1 - keep)
        self.step += 1
        self.views += len(pictures)
        return loss.detach()

    def checkpoint(self):
        result = self.validation(lambda pictures: self.boxes(self.average, pictures))
        self.history.append({"views": self.views, **result})
        print("held-out people: " + "  ".join(f"{k} {v:.4f}" for k, v in result.items()), flush=True)
        path = self.args.out / "checkpoint.pt"
        state = {
            "integer": self.integer, "step": self.step, "views": self.views,
            "history": self.history, "net": self.net.state_dict(),
            "average": self.average.state_dict(), "optimiser": self.optimiser.state_dict(),
        }  # fmt: skip
        torch.save(state, path.with_suffix(".new"))
        path.with_suffix(".new").replace(path)
        if self.integer:
            tensors.write(self.args.out / "align.safetensors", self.average.tensors())
        (self.args.out / "history.json").write_text(json.dumps(self.history))
        draw_curves(self.history, self.args.out / "curves.png")

    def resume(self):
        path = self.args.out / "checkpoint.pt"
        if not path.exists():
            return
        state = torch.load(path, map_location=self.device)
        if state["integer"]:
            self.net, self.integer = QuantNet("align"), True
            self._begin_stage()
        self.net.load_state_dict(state["net"])
        self.average.load_state_dict(state["average"])
        self.optimiser.load_state_dict(state["optimiser"])
        self.step, self.views, self.history = state["step"], state["views"], state["history"]
        self.source.random = np.random.default_rng(self.args.seed + self.step)
        self.augment.random = np.random.default_rng(self.args.seed + self.step)
        print(f"resumed at {self.views} views", flush=True)

    def to_integers(self):
        net = self.average.cpu()
        sample = torch.cat([self._grey(self.batch()[0]).cpu() for _ in range(8)]) / 128
        parameters, before, after = conversion.rescale(net, conversion.folded(net), sample)
        print(f"relative rounding noise of a layer: {before:.5f}, rescaled {after:.5f}")
        self.net, self.integer = conversion.to_integers("align", parameters), True
        self.step = 0
        self._begin_stage()
        self.checkpoint()

    def _stage(self, begin, goal):
        last_save = last_print = time.time()
        losses, printed = [], self.views
        while self.views < begin + goal:
            losses.append(self.train_step(goal, self.views - begin))
            if self.step % 50 == 0:
                now, loss = time.time(), float(torch.stack(losses).mean())
                speed = (self.views - printed) / (now - last_print)
                kind = "integer" if self.integer else "float"
                print(f"{kind} views {self.views}  loss {loss:.4f}  {speed:.0f} img/s", flush=True)
                self.history.append({"views": self.views, "loss": loss})
                losses, printed, last_print = [], self.views, now
                self.source.refresh()
            if time.time() - last_save > 60 * self.args.checkpoint_minutes:
                self.checkpoint()
                last_save = last_print = time.time()
                printed = self.views
        self.checkpoint()

    def run(self):
        if not self.integer:
            self._stage(0, self.args.views)
            self.to_integers()
        self._stage(self.args.views, self.args.integer_views)


def main():
    args = parse_arguments()
    keep_memory()
    torch.set_num_threads(args.threads)
    torch.manual_seed(args.seed)
    args.out.mkdir(parents=True, exist_ok=True)
    trainer = AlignTrainer(args)
    trainer.resume()
    trainer.run()


if __name__ == "__main__":
    main()

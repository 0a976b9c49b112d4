# SPDX-License-Identifier: MIT
"""Trains the recognition network in float arithmetic.

First the contrastive loss alone; then CosFace joins it, whose scale and margin grow, with class
centres that start at the mean feature of each person. Shards that appear meanwhile are taken in.
Stop it at any time: started again with the same --out, it goes on from the last checkpoint.
"""
import argparse
import copy
import json
import math
import time
from pathlib import Path

import numpy as np
import torch

from . import engine, metrics
from .augment import Augmenter, Strength, centre_crop
from .data import PeopleSampler, open_pictures
from .float_net import FloatNet, to_input
from .losses import CosFace, contrastive
from .memory import keep_memory
from .plots import draw_curves

DECAY = 0.05
VALIDATION_PEOPLE, VALIDATION_EACH, VALIDATION_BATCH = 150, 8, 64


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.train_float",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument("--data", nargs="+", required=True, help="folders with shards, or one folder of people")
    parser.add_argument("--out", type=Path, required=True, help="folder for checkpoints and curves")
    parser.add_argument("--views", type=float, default=5e6, help="pictures to train on in all (%(default).0f)")
    parser.add_argument("--people", type=int, default=32, help="people in a batch (%(default)s)")
    parser.add_argument("--each", type=int, default=4, help="pictures of each (%(default)s)")
    parser.add_argument("--rate", type=float, default=3e-3, help="learning rate (%(default)s)")
    parser.add_argument("--contrastive", type=float, default=0.3, help="share of the training before CosFace joins (%(default)s)")
    parser.add_argument("--margin", type=float, default=0.3, help="CosFace's margin at the end (%(default)s)")
    parser.add_argument("--scale", type=float, default=32, help="CosFace's scale at the end (%(default)s)")
    parser.add_argument("--jitter", type=float, default=1.0, help="factor on the augmentation (%(default)s)")
    parser.add_argument("--held-out", type=float, default=0.02, help="share of people kept for validation (%(default)s)")
    parser.add_argument("--refresh", type=int, default=500, help="steps between looks for new shards (%(default)s)")
    parser.add_argument("--checkpoint-minutes", type=float, default=5, help="(%(default)s)")
    parser.add_argument("--device", default="cpu", help="cpu or cuda (%(default)s)")
    parser.add_argument("--threads", type=int, default=1, help="(%(default)s)")
    parser.add_argument("--plain", action="store_true", help="PyTorch's own operators only")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--stop-after-minutes", type=float, default=math.inf, help="end early, with a checkpoint")
    return parser.parse_args()  # fmt: skip


def ramp(progress, begin, end):
    return min(max((progress - begin) / (end - begin), 0.0), 1.0)


class Trainer:
    def __init__(self, args):
        self.args = args
        self.device = torch.device(args.device)
        self.sampler = PeopleSampler(
            open_pictures(args.data), args.people, args.each, args.held_out, args.seed
        )
        if not self.sampler.index:
            raise SystemExit(f"no people with two or more pictures in {' '.join(args.data)}")
        self.augmenter = Augmenter(Strength().scaled(args.jitter), self.device, args.seed)
        self.net = FloatNet("fr", args.seed)
        self.net.set_gains(to_input(torch.from_numpy(centre_crop(self._some_pictures(32)).copy())))
        self.net.to(self.device)
        self.average = copy.deepcopy(self.net).eval()
        self._speed_up()
        self.classes = CosFace(128).to(self.device)
        self.optimiser = self._new_optimiser()
        self.step, self.views, self.history = 0, 0, []

    def _speed_up(self):
        """Lets the engine compute both networks where it can."""
        args, size = self.args, self.args.people * self.args.each
        if args.device != "cpu" or args.plain or not engine.is_possible():
            return
        if size % engine.MULTIPLE:
            raise SystemExit(f"people x each must be a multiple of {engine.MULTIPLE}")
        self.net.trunk = engine.Trunk(self.net, size, args.threads)
        self.average.trunk = engine.Trunk(self.average, VALIDATION_BATCH, args.threads)

    def _some_pictures(self, count):
        return np.concatenate([self.sampler.batch()[0] for _ in range(4)])[:count]

    def _new_optimiser(self):
        """Weights of normalised layers have no meaningful length, so decay only sets their pace."""
        return torch.optim.AdamW(
            [
                {"params": list(self.net.parameters()), "weight_decay": DECAY},
                {"params": [self.classes.centres], "weight_decay": 0.0},
            ],
            lr=self.args.rate,
        )

    @property
    def progress(self):
        return self.views / self.args.views

    def _set_rate(self):
        rate = 0.5 * (1 + math.cos(math.pi * min(self.progress, 1.0)))
        rate = max(rate, 0.005) * min(1.0, (self.step + 1) / 300)
        for group in self.optimiser.param_groups:
            group["lr"] = self.args.rate * rate

    @torch.no_grad()
    def features(self, pictures):
        """The average network's features of stored pictures, without augmentation."""
        parts, count = [], len(pictures)
        missing = -count % VALIDATION_BATCH
        crops = centre_crop(np.concatenate([pictures, pictures[:1].repeat(missing, 0)]))
        for begin in range(0, len(crops), VALIDATION_BATCH):
            batch = torch.from_numpy(np.ascontiguousarray(crops[begin : begin + VALIDATION_BATCH]))
            parts.append(self.average(to_input(batch.to(self.device))))
        return torch.nn.functional.normalize(torch.cat(parts)[:count], dim=1)

    def _add_people(self):
        """Gives people without one a class centre: the mean of some of their features."""
        missing = len(self.sampler.classes) - len(self.classes.centres)
        if missing == 0:
            return
        newest = list(self.sampler.classes)[-missing:]
        each, centres = 4, []
        for begin in range(0, missing, 64):
            people = newest[begin : begin + 64]
            pictures = np.concatenate([self.sampler.pictures_of(p, each) for p in people])
            centres.append(self.features(pictures).view(-1, each, 128).mean(1))
        state = self.optimiser.state.pop(self.classes.centres, None)
        self.classes.grow(torch.cat(centres))
        self.optimiser.param_groups[1]["params"] = [self.classes.centres]
        if state:
            for name in ("exp_avg", "exp_avg_sq"):
                empty = torch.zeros_like(self.classes.centres)
                empty[: len(state[name])] = state[name]
                state[name] = empty
            self.optimiser.state[self.classes.centres] = state

    def _loss(self, features, people):
        begin = self.args.contrastive
        loss = contrastive(features, people)
        if self.progress < begin:
            return loss
        grown = ramp(self.progress, begin, begin + 0.5 * (1 - begin))
        scale = 12 + (self.args.scale - 12) * grown
        return (1 - 0.7 * grown) * loss + 0.3 * self.classes(
            features, people, scale, self.args.margin * grown
        )

    def train_step(self):
        args = self.args
        if self.step % args.refresh == 0 and self.sampler.refresh():
            print(f"people: {len(self.sampler.classes)}", flush=True)
        if self.progress >= args.contrastive:
            self._add_people()
        self._set_rate()
        pictures, people = self.sampler.batch()
        x = self.augmenter(torch.from_numpy(pictures))
        people = torch.from_numpy(people).to(self.device)
        if self.device.type == "cuda":
            x = x.to(torch.bfloat16)
        self.net.train()
        loss = self._loss(self.net(x), people)
        self.optimiser.zero_grad(set_to_none=False)
        loss.backward()
        torch.nn.utils.clip_grad_norm_(self.net.parameters(), 5.0)
        self.optimiser.step()
        self._follow()
        self.step += 1
        self.views += len(pictures)
        return loss.detach()

    @torch.no_grad()
    def _follow(self):
        """The average of the weights over the last steps generalises better than the weights."""
        keep = min(0.999, (self.step + 1) / (self.step + 10))
        for slow, fast in zip(self.average.parameters(), self.net.parameters()):
            slow.lerp_(fast, 1 - keep)
        for slow, fast in zip(self.average.buffers(), self.net.buffers()):
            slow.lerp_(fast, 1 - keep)

    def validate(self):
        people = sorted(self.sampler.validation, key=str)[:VALIDATION_PEOPLE]
        places = [(p, place) for p in people for place in self.sampler.validation[p][:VALIDATION_EACH]]
        if len(people) < 2:
            return {}
        pictures = np.stack([self.sampler.source.picture(place) for _, place in places])
        numbers = [people.index(person) for person, _ in places]
        features = self.features(pictures).cpu().numpy()
        same, different = metrics.pair_scores(features, numbers)
        return {
            "tar2": metrics.tar_at_far(same, different, 1e-2),
            "tar3": metrics.tar_at_far(same, different, 1e-3),
            "eer": metrics.equal_error_rate(same, different),
            "rank1": metrics.rank_1(features, numbers),
        }

    def save(self):
        path = self.args.out / "checkpoint.pt"
        state = {
            "net": self.net.state_dict(),
            "average": self.average.state_dict(),
            "centres": self.classes.centres.detach(),
            "optimiser": self.optimiser.state_dict(),
            "classes": self.sampler.classes,
            "step": self.step,
            "views": self.views,
            "history": self.history,
        }
        torch.save(state, path.with_suffix(".new"))
        path.with_suffix(".new").replace(path)
        torch.save(state["average"], self.args.out / "float.pt")
        (self.args.out / "history.json").write_text(json.dumps(self.history))
        draw_curves(self.history, self.args.out / "curves.png")

    def resume(self):
        path = self.args.out / "checkpoint.pt"
        if not path.exists():
            return
        state = torch.load(path, map_location=self.device)
        self.net.load_state_dict(state["net"])
        self.average.load_state_dict(state["average"])
        # Classes keep their numbers; people that are new since are added behind them.
        present = self.sampler.classes
        self.sampler.classes = dict(state["classes"])
        for person in present:
            self.sampler.classes.setdefault(person, len(self.sampler.classes))
        self.classes.grow(state["centres"])
        with torch.no_grad():
            self.classes.centres.copy_(state["centres"])
        self.optimiser = self._new_optimiser()
        self.optimiser.load_state_dict(state["optimiser"])
        self.step, self.views, self.history = state["step"], state["views"], state["history"]
        self.augmenter.generator.manual_seed(self.args.seed + self.step)
        self.sampler.random = np.random.default_rng(self.args.seed + self.step)
        print(f"resumed at {self.views} views", flush=True)

    def run(self):
        begin = last_save = last_print = time.time()
        losses, printed_views = [], self.views
        while self.progress < 1 and time.time() - begin < 60 * self.args.stop_after_minutes:
            losses.append(self.train_step())
            if self.step % 50 == 0:
                now = time.time()
                loss = float(torch.stack(losses).mean())
                speed = (self.views - printed_views) / (now - last_print)
                print(
                    f"step {self.step}  views {self.views}  {100 * self.progress:.1f} %  "
                    f"loss {loss:.3f}  {speed:.0f} img/s",
                    flush=True,
                )
                self.history.append({"views": self.views, "loss": loss})
                losses, printed_views, last_print = [], self.views, now
            if time.time() - last_save > 60 * self.args.checkpoint_minutes:
                self.checkpoint()
                last_save = last_print = time.time()
                printed_views = self.views
        self.checkpoint()

    def checkpoint(self):
        result = self.validate()
        if result:
            self.history.append({"views": self.views, **result})
            print("held-out people: " + "  ".join(f"{k} {v:.4f}" for k, v in result.items()), flush=True)
        self.save()


def main():
    args = parse_arguments()
    keep_memory()
    torch.set_num_threads(args.threads)
    torch.manual_seed(args.seed)
    args.out.mkdir(parents=True, exist_ok=True)
    trainer = Trainer(args)
    trainer.resume()
    trainer.run()


if __name__ == "__main__":
    main()

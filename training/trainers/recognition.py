# SPDX-License-Identifier: MIT
"""What the two trainings of the recognition network share: batches, losses, the following average,
validation on held-out people, checkpoints."""
import argparse
import copy
import json
import math
import time
from pathlib import Path

import numpy as np
import torch

from .. import engine
from ..evaluation import metrics
from ..data.augment import Augmenter, Strength, centre_crop
from ..data.shards import PeopleSampler, open_pictures
from .losses import CosFace, contrastive, shared_direction
from .plots import draw_curves

VALIDATION_PEOPLE, VALIDATION_EACH, VALIDATION_BATCH = 150, 8, 64
FEATURES = 128


def argument_parser(program, description, views, rate):
    parser = argparse.ArgumentParser(
        prog=f"python3 -m training.trainers.{program}",
        description=description,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    add = parser.add_argument
    add("--data", nargs="+", required=True, help="folders with shards, or one folder of people")
    add("--shared-people", action="store_true", help="a number is one person in all folders")
    add("--out", type=Path, required=True, help="folder for checkpoints and curves")
    add("--views", type=float, default=views, help="pictures to train on in all (%(default).0f)")
    add("--people", type=int, default=32, help="people in a batch (%(default)s)")
    add("--each", type=int, default=4, help="pictures of each (%(default)s)")
    add("--rate", type=float, default=rate, help="learning rate (%(default)s)")
    add("--margin", type=float, default=0.3, help="CosFace's margin at the end (%(default)s)")
    add("--scale", type=float, default=32, help="CosFace's scale at the end (%(default)s)")
    add("--temperature", type=float, default=0.12, help="of the contrastive loss (%(default)s)")
    add("--shared", type=float, default=0.0, help="weight on what strangers share (%(default)s)")
    add("--kinds", action="store_true", help="each batch from one folder's people")
    add("--cells", type=float, default=0.0, help="share of batches of one age, sex and skin (%(default)s)")
    add("--warm-up", type=int, default=300, help="steps until the full rate (%(default)s)")
    add("--corners", type=float, default=0.0, help="four-corner warp, share of the box (%(default)s)")
    add("--coarse", type=float, default=0.0, help="share of pictures taken down and up (%(default)s)")
    add("--jitter", type=float, default=1.0, help="factor on the augmentation (%(default)s)")
    add("--box-jitter", type=float, default=1.0, help="further factor on box errors (%(default)s)")
    add("--held-out", type=float, default=0.02, help="share of people to validate on (%(default)s)")
    add("--refresh", type=int, default=500, help="steps between looks for shards (%(default)s)")
    add("--checkpoint-minutes", type=float, default=5, help="(%(default)s)")
    add("--device", default="cpu", help="cpu or cuda (%(default)s)")
    add("--threads", type=int, default=1, help="(%(default)s)")
    add("--plain", action="store_true", help="PyTorch's own operators only")
    add("--seed", type=int, default=1, help="(%(default)s)")
    add("--stop-after-minutes", type=float, default=math.inf, help="end early, with a checkpoint")
    return parser


def ramp(progress, begin, end):
    return min(max((progress - begin) / (end - begin), 0.0), 1.0)


class Trainer:
    """A subclass names its network in `make_net()`, how to step in `make_optimiser()` and
    `loss()`, and may say how far crops are scaled for the network in `to_input()`."""

    follow_steps = 1000  # over which weights are averaged

    def __init__(self, args):
        self.args = args
        self.device = torch.device(args.device)
        self.sampler = PeopleSampler(
            open_pictures(args.data, args.shared_people),
            args.people,
            args.each,
            args.held_out,
            args.seed,
            args.kinds,
            args.cells,
        )
        if not self.sampler.index:
            raise SystemExit(f"no people with two or more pictures in {' '.join(args.data)}")
        strength = Strength(corners=args.corners, coarse=args.coarse)
        strength = strength.scaled(args.jitter).with_box(args.box_jitter)
        self.augmenter = Augmenter(strength, self.device, args.seed)
        self.classes = CosFace(FEATURES).to(self.device)
        self.step, self.views, self.history = 0, 0, []
        self.net = self.make_net().to(self.device)
        self.average = copy.deepcopy(self.net).eval()
        self.optimiser = self.make_optimiser()
        self._speed_up()

    def _speed_up(self):
        """Lets the engine compute both networks where it can."""
        args, size = self.args, self.args.people * self.args.each
        if args.device != "cpu" or args.plain or not engine.is_possible():
            return
        if size % engine.MULTIPLE:
            raise SystemExit(f"people x each must be a multiple of {engine.MULTIPLE}")
        self.attach(self.net, size)
        self.attach(self.average, VALIDATION_BATCH)

    def some_crops(self, count):
        """Pictures as they are trained on, for choosing scales."""
        pictures = []
        while sum(map(len, pictures)) < count:
            pictures.append(self.sampler.batch()[0])
        return self.augmenter(torch.from_numpy(np.concatenate(pictures)[:count])).cpu()

    @property
    def progress(self):
        return self.views / self.args.views

    def _set_rate(self):
        rate = 0.5 * (1 + math.cos(math.pi * min(self.progress, 1.0)))
        rate = max(rate, 0.005) * min(1.0, (self.step + 1) / self.args.warm_up)
        for group in self.optimiser.param_groups:
            group["lr"] = group["most"] * rate

    @torch.no_grad()
    def features(self, pictures):
        """The average network's features of stored pictures, without augmentation."""
        parts, count = [], len(pictures)
        missing = -count % VALIDATION_BATCH
        crops = centre_crop(np.concatenate([pictures, pictures[:1].repeat(missing, 0)]))
        for begin in range(0, len(crops), VALIDATION_BATCH):
            batch = torch.from_numpy(np.ascontiguousarray(crops[begin : begin + VALIDATION_BATCH]))
            x = (batch.to(self.device).float() - 128).div_(128).unsqueeze(1)
            parts.append(self.average(self.to_input(x)).flatten(1))
        return torch.nn.functional.normalize(torch.cat(parts)[:count], dim=1)

    def add_people(self):
        """Gives people without one a class centre: the mean of some of their features."""
        missing = len(self.sampler.classes) - len(self.classes.centres)
        if missing == 0:
            return
        newest = list(self.sampler.classes)[-missing:]
        each, centres = 2, []
        for begin in range(0, missing, 64):
            people = newest[begin : begin + 64]
            pictures = np.concatenate([self.sampler.pictures_of(p, each) for p in people])
            centres.append(self.features(pictures).view(-1, each, FEATURES).mean(1))
        state = self.optimiser.state.pop(self.classes.centres, None)
        self.classes.grow(torch.cat(centres))
        self.optimiser.param_groups[-1]["params"] = [self.classes.centres]
        if state:
            for name in ("exp_avg", "exp_avg_sq"):
                grown = torch.zeros_like(self.classes.centres)
                grown[: len(state[name])] = state[name]
                state[name] = grown
            self.optimiser.state[self.classes.centres] = state

    def recognition_loss(self, features, people, grown):
        """Contrastive loss, and CosFace as far as it has grown; `grown` None: not begun."""
        loss = contrastive(features, people, self.args.temperature)
        if self.args.shared:
            loss = loss + self.args.shared * shared_direction(features, people)
        if grown is None:
            return loss
        scale = 12 + (self.args.scale - 12) * grown
        return (1 - 0.7 * grown) * loss + 0.3 * self.classes(
            features, people, scale, self.args.margin * grown
        )

    def train_step(self):
        if self.step % self.args.refresh == 0 and self.sampler.refresh():
            print(f"people: {len(self.sampler.classes)}", flush=True)
        self._set_rate()
        pictures, people = self.sampler.batch()
        crops = self.augmenter(torch.from_numpy(pictures))
        self.net.train()
        loss = self.loss(crops, torch.from_numpy(people).to(self.device))
        self.optimiser.zero_grad(set_to_none=False)
        loss.backward()
        self.after_backward()
        self.optimiser.step()
        self.after_step()
        self._follow()
        self.step += 1
        self.views += len(pictures)
        return loss.detach()

    def after_backward(self):
        pass

    def after_step(self):
        pass

    @torch.no_grad()
    def _follow(self):
        """The average of the weights over the last steps generalises better than the weights."""
        keep = min(1 - 1 / self.follow_steps, (self.step + 1) / (self.step + 10))
        for slow, fast in zip(self.average.parameters(), self.net.parameters()):
            slow.lerp_(fast, 1 - keep)
        for slow, fast in zip(self.average.buffers(), self.net.buffers()):
            slow.lerp_(fast, 1 - keep)

    def validate(self):
        people = sorted(self.sampler.validation, key=str)[:VALIDATION_PEOPLE]
        places = [
            (person, place)
            for person in people
            for place in self.sampler.validation[person][:VALIDATION_EACH]
        ]
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
        (self.args.out / "history.json").write_text(json.dumps(self.history))
        draw_curves(self.history, self.args.out / "curves.png")

    def take_people(self, state):
        """Classes keep their numbers; people that are new since are added behind them."""
        present = self.sampler.classes
        self.sampler.classes = dict(state["classes"])
        for person in present:
            self.sampler.classes.setdefault(person, len(self.sampler.classes))
        self.classes.grow(state["centres"])
        with torch.no_grad():
            self.classes.centres.copy_(state["centres"])
        self.optimiser.param_groups[-1]["params"] = [self.classes.centres]

    def resume(self):
        path = self.args.out / "checkpoint.pt"
        if not path.exists():
            return False
        state = torch.load(path, map_location=self.device)
        self.net.load_state_dict(state["net"])
        self.average.load_state_dict(state["average"])
        self.take_people(state)
        most = [group["most"] for group in self.optimiser.param_groups]
        self.optimiser.load_state_dict(state["optimiser"])
        for group, rate in zip(self.optimiser.param_groups, most):
            group["most"] = rate
        self.step, self.views, self.history = state["step"], state["views"], state["history"]
        self.augmenter.generator.manual_seed(self.args.seed + self.step)
        self.sampler.random = np.random.default_rng(self.args.seed + self.step)
        print(f"resumed at {self.views} views", flush=True)
        return True

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
            text = "  ".join(f"{name} {value:.4f}" for name, value in result.items())
            print("held-out people: " + text, flush=True)
        self.save()

# SPDX-License-Identifier: MIT
"""What the two trainings of the recognition network share: batches of people, losses on features, class
centres, validation on held-out people."""
import argparse
from pathlib import Path

import numpy as np
import torch

from ..data.augment import CROP, Augmenter, Strength, centre_crop
from ..data.panoramas import views
from ..data.shards import PeopleSampler, open_pictures
from ..evaluation import metrics
from .losses import CosFace, contrastive, shared_direction
from .trainer import Trainer, add_common_options

VALIDATION_PEOPLE, VALIDATION_EACH, VALIDATION_BATCH = 150, 8, 64
NATURAL_PICTURES = 512
CENTRE_PICTURES = 2  # of a person, whose mean feature its class centre starts at
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
    add("--kinds", action="store_true", help="each batch from one folder's people")
    add("--often", type=float, nargs="+", metavar="FACTOR", help="how often each folder of --data comes, over its size")
    add("--cells", type=float, default=0.0, help="share of batches of one age, sex and skin (%(default)s)")
    add("--rate", type=float, default=rate, help="learning rate (%(default)s)")
    add("--temperature", type=float, default=0.12, help="of the contrastive loss (%(default)s)")
    add("--shared", type=float, default=0.0, help="weight on what strangers share (%(default)s)")
    add("--margin", type=float, default=0.3, help="CosFace's margin at the end (%(default)s)")
    add("--classes", type=int, default=8192, help="people that CosFace compares with at a time (%(default)s)")
    add("--scale", type=float, default=32, help="CosFace's scale at the end (%(default)s)")
    add("--jitter", type=float, default=1.0, help="factor on the augmentation (%(default)s)")
    add("--box-jitter", type=float, default=1.0, help="further factor on box errors (%(default)s)")
    add("--corners", type=float, default=0.0, help="four-corner warp, share of the box (%(default)s)")
    add("--coarse", type=float, default=0.0, help="share of pictures taken down and up (%(default)s)")
    add("--covers", type=float, default=0.0, help="share with a mask, fingers or a band (%(default)s)")
    add("--motion", type=float, default=0.0, help="share blurred along a line (%(default)s)")
    add("--mixed", type=float, default=0.0, help="share with broad structure of natural pictures (%(default)s)")
    add("--natural", type=Path, help="folder with panoramas (*.hdr), the natural pictures")
    add_common_options(add)
    return parser


def ramp(progress, begin, end):
    return min(max((progress - begin) / (end - begin), 0.0), 1.0)


class RecognitionTrainer(Trainer):
    """A subclass may say how far crops are scaled for its network in `to_input()`, and at which rate
    the class centres move."""

    validation_batch = VALIDATION_BATCH
    centres_rate = 1e-3

    def __init__(self, args):
        super().__init__(args, args.views, args.people * args.each)

    def prepare(self):
        args = self.args
        pictures = open_pictures(args.data, args.shared_people)
        self.sampler = PeopleSampler(
            pictures, args.people, args.each, args.held_out, args.seed, args.kinds, args.cells, args.often
        )
        if not self.sampler.index:
            raise SystemExit(f"no people with two or more pictures in {' '.join(args.data)}")
        if args.often and not (args.kinds and len(args.often) == len(args.data)):
            raise SystemExit("--often needs --kinds, and a factor for each folder of --data")
        if args.mixed and not args.natural:
            raise SystemExit("--mixed needs --natural")
        strength = Strength(
            corners=args.corners, coarse=args.coarse, covers=args.covers, motion=args.motion, mixed=args.mixed
        )
        strength = strength.scaled(args.jitter).with_box(args.box_jitter)
        natural = views(args.natural, NATURAL_PICTURES, CROP) if args.natural else None
        self.augmenter = Augmenter(strength, self.device, args.seed, natural)
        self.classes = CosFace(FEATURES, self.device, args.classes, args.seed)

    def to_input(self, x):
        return x

    def look_for_shards(self):
        if self.sampler.refresh():
            print(f"people: {len(self.sampler.classes)}", flush=True)

    def some_crops(self, count):
        """Pictures as they are trained on, for choosing scales."""
        pictures = []
        while sum(map(len, pictures)) < count:
            pictures.append(self.sampler.batch()[0])
        return self.augmenter(torch.from_numpy(np.concatenate(pictures)[:count])).cpu()

    def draw(self):
        pictures, people = self.sampler.batch()
        crops = self.augmenter(torch.from_numpy(pictures))
        return crops, torch.from_numpy(people).to(self.device)

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
        missing = len(self.sampler.classes) - len(self.classes)
        if missing == 0:
            return
        newest, each, centres = list(self.sampler.classes)[-missing:], CENTRE_PICTURES, []
        for begin in range(0, missing, 64):
            people = newest[begin : begin + 64]
            pictures = np.concatenate([self.sampler.pictures_of(p, each) for p in people])
            centres.append(self.features(pictures).view(-1, each, FEATURES).mean(1))
        self.classes.grow(torch.cat(centres))

    def stepped(self, rate):
        self.classes.step(self.centres_rate * rate)

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

    def extra_state(self):
        return {**self.classes.state(), "classes": self.sampler.classes}

    def take_people(self, state):
        """Classes keep their numbers; people that are new since are added behind them."""
        present = self.sampler.classes
        self.sampler.classes = dict(state["classes"])
        for person in present:
            self.sampler.classes.setdefault(person, len(self.sampler.classes))
        self.classes.take({name: state[name] for name in self.classes.state()})

    def take_extra(self, state):
        self.take_people(state)
        self.augmenter.generator.manual_seed(self.args.seed + state["step"])
        self.sampler.random = np.random.default_rng(self.args.seed + state["step"])

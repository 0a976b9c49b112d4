# SPDX-License-Identifier: MIT
"""Trains the recognition network in the library's integer arithmetic, from a float training or from
an integer network that is there already.

From a float training it learns that network's features of the same crops besides. Writes
fr.safetensors at every checkpoint. Stop it at any time: started again with the same --out, it goes on
from the last checkpoint.
"""
from pathlib import Path

import torch
import torch.nn.functional as F

from .. import engine
from ..export import conversion, tensors
from ..networks.float_net import FloatNet
from ..networks.quant_net import from_tensors
from . import recognition
from .beginning import begin

RESCALING_CROPS = 256


class QuantisedTrainer(recognition.RecognitionTrainer):
    follow_steps = 300
    quantised = True
    teacher = None

    def make_net(self):
        if self.args.model:
            return from_tensors("fr", tensors.read(self.args.model))
        self.teacher = FloatNet("fr")
        state = torch.load(self.args.float / "float.pt", map_location="cpu")
        self.teacher.load_state_dict(state)
        self.teacher.eval().requires_grad_(False)
        parameters = conversion.folded(self.teacher)
        if not (self.args.out / "checkpoint.pt").exists() and not self.args.no_rescaling:
            crops = self.some_crops(RESCALING_CROPS)
            parameters, before, after = conversion.rescale(self.teacher, parameters, crops)
            print(f"relative rounding noise of a layer: {before:.5f}, rescaled {after:.5f}")
        self.teacher.to(self.device)
        return conversion.to_integers("fr", parameters)

    def attach(self, net, size):
        super().attach(net, size)
        if self.teacher is not None and self.teacher.trunk is None:
            self.teacher.trunk = engine.Trunk(self.teacher, size, self.args.threads)

    def groups(self):
        return self.integer_groups(self.args.rate)

    def to_input(self, x):
        return x * 128

    def loss(self, crops, people):
        self.add_people()
        features = self.net(self.to_input(crops)).flatten(1)
        loss = self.recognition_loss(features, people, 1.0)
        if self.teacher is None or not self.args.distil:
            return loss
        with torch.no_grad():
            goal = self.teacher(crops).flatten(1)
        distance = 1 - F.cosine_similarity(features, goal, dim=1).mean()
        return loss + self.args.distil * distance

    def write_results(self):
        tensors.write(self.args.out / "fr.safetensors", self.average.tensors())


def main():
    parser = recognition.argument_parser("train_quantised", __doc__, views=5e5, rate=0.3)
    start = parser.add_mutually_exclusive_group(required=True)
    start.add_argument("--float", type=Path, help="the --out folder of the float training")
    start.add_argument("--model", type=Path, help="an integer network to go on from: fr.safetensors")
    parser.add_argument(
        "--distil", type=float, default=5.0, help="weight of the float features; 0: none (%(default)s)"
    )
    parser.add_argument(
        "--no-rescaling", action="store_true", help="without the factors between layers"
    )
    args = parser.parse_args()
    begin(args)
    trainer = QuantisedTrainer(args)
    if not trainer.resume():
        if args.float:
            state = torch.load(args.float / "checkpoint.pt", map_location=trainer.device)
            trainer.take_people(state)
            for entry in state["history"][-1:]:
                text = "  ".join(f"{k} {v:.4f}" for k, v in entry.items())
                print("float network: " + text, flush=True)
        trainer.checkpoint()
    trainer.run()


if __name__ == "__main__":
    main()

# SPDX-License-Identifier: MIT
"""Trains the recognition network in the library's integer arithmetic, from a float training or from
an integer network that is there already.

Besides the losses of the float training it learns the float network's features of the same crops.
Writes fr.safetensors at every checkpoint. Stop it at any time: started again with the same --out,
it goes on from the last checkpoint.
"""
from pathlib import Path

import torch
import torch.nn.functional as F

from . import recognition
from .. import engine
from ..export import conversion, tensors
from ..networks.float_net import FloatNet
from .memory import keep_memory
from ..networks.quant_net import from_tensors

RESCALING_CROPS = 256


class QuantisedTrainer(recognition.Trainer):
    follow_steps = 300

    def make_net(self):
        if self.args.model:
            self.teacher = None
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
        return conversion.to_integers("fr", parameters)

    def attach(self, net, size):
        net.trunk = engine.Trunk(net, size, self.args.threads, quantised=True)
        if self.teacher is not None and self.teacher.trunk is None:
            self.teacher.trunk = engine.Trunk(self.teacher, size, self.args.threads)

    def make_optimiser(self):
        rate = self.args.rate
        if self.teacher is not None:
            self.teacher.to(self.device)
        groups = {"w": [], "b": []}
        for name, parameter in self.net.named_parameters():
            groups[name[0]].append(parameter)
        return torch.optim.Adam(
            [
                {"params": groups["w"], "most": rate},
                {"params": groups["b"], "most": 0.2 * rate},
                {"params": [self.classes.centres], "most": 1e-3},
            ],
            lr=rate,
        )

    def to_input(self, x):
        return x * 128

    def loss(self, crops, people):
        self.add_people()
        features = self.net(self.to_input(crops)).flatten(1)
        if self.teacher is None or not self.args.distil:
            return self.recognition_loss(features, people, 1.0)
        with torch.no_grad():
            goal = self.teacher(crops).flatten(1)
        distance = 1 - F.cosine_similarity(features, goal, dim=1).mean()
        return self.recognition_loss(features, people, 1.0) + self.args.distil * distance

    def after_step(self):
        self.net.clip()

    def save(self):
        super().save()
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
    keep_memory()
    torch.set_num_threads(args.threads)
    torch.manual_seed(args.seed)
    args.out.mkdir(parents=True, exist_ok=True)
    trainer = QuantisedTrainer(args)
    resumed = trainer.resume()
    if not resumed and args.float:
        state = torch.load(args.float / "checkpoint.pt", map_location=trainer.device)
        trainer.take_people(state)
        for entry in state["history"][-1:]:
            print("float network: " + "  ".join(f"{k} {v:.4f}" for k, v in entry.items()), flush=True)
    if not resumed:
        trainer.checkpoint()
    trainer.run()


if __name__ == "__main__":
    main()

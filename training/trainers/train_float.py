# SPDX-License-Identifier: MIT
"""Trains the recognition network in float arithmetic.

First the contrastive loss alone; then CosFace joins it, whose scale and margin grow, with class
centres that start at the mean feature of each person. Shards that appear meanwhile are taken in.
Stop it at any time: started again with the same --out, it goes on from the last checkpoint.
"""
from pathlib import Path

import torch

from ..export import tensors
from ..networks.float_net import FloatNet
from ..networks.quant_net import from_tensors
from . import recognition
from .beginning import begin
from .recognition import ramp

DECAY = 0.05


class FloatTrainer(recognition.RecognitionTrainer):
    def make_net(self):
        net = FloatNet("fr", self.args.seed)
        if self.args.model:
            net.begin_as(from_tensors("fr", tensors.read(self.args.model)), self.some_crops(256))
        else:
            net.set_gains(self.some_crops(32))
        return net

    def groups(self):
        """Weights of normalised layers have no meaningful length, so decay only sets their pace."""
        return [{"params": list(self.net.parameters()), "weight_decay": DECAY, "most": self.args.rate}]

    @property
    def centres_rate(self):
        return self.args.rate

    def to_input(self, x):
        return x.to(torch.bfloat16) if self.device.type == "cuda" else x

    def loss(self, crops, people):
        begins, grown = self.args.contrastive, None
        if self.progress >= begins:
            self.add_people()
            grown = ramp(self.progress, begins, begins + 0.5 * (1 - begins))
        return self.recognition_loss(self.net(self.to_input(crops)).flatten(1), people, grown)

    def write_results(self):
        torch.save(self.average.state_dict(), self.args.out / "float.pt")


def main():
    parser = recognition.argument_parser("train_float", __doc__, views=5e6, rate=3e-3)
    parser.add_argument(
        "--contrastive",
        type=float,
        default=0.3,
        help="share of the training before CosFace joins (%(default)s)",
    )
    parser.add_argument("--model", type=Path, help="an integer network to begin with: fr.safetensors")
    args = parser.parse_args()
    begin(args)
    trainer = FloatTrainer(args)
    trainer.resume()
    trainer.run()


if __name__ == "__main__":
    main()

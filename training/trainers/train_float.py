# SPDX-License-Identifier: MIT
"""Trains the recognition network in float arithmetic.

First the contrastive loss alone; then CosFace joins it, whose scale and margin grow, with class
centres that start at the mean feature of each person. Shards that appear meanwhile are taken in.
Stop it at any time: started again with the same --out, it goes on from the last checkpoint.
"""
import torch

from . import recognition
from .. import engine
from ..networks.float_net import FloatNet
from .memory import keep_memory
from .recognition import ramp

DECAY = 0.05


class FloatTrainer(recognition.Trainer):
    def make_net(self):
        net = FloatNet("fr", self.args.seed)
        net.set_gains(self.some_crops(32))
        return net

    def attach(self, net, size):
        net.trunk = engine.Trunk(net, size, self.args.threads)

    def make_optimiser(self):
        """Weights of normalised layers have no meaningful length, so decay only sets their pace."""
        rate = self.args.rate
        return torch.optim.AdamW(
            [
                {"params": list(self.net.parameters()), "weight_decay": DECAY, "most": rate},
                {"params": [self.classes.centres], "weight_decay": 0.0, "most": rate},
            ],
            lr=rate,
        )

    def to_input(self, x):
        return x.to(torch.bfloat16) if self.device.type == "cuda" else x

    def loss(self, crops, people):
        begin, grown = self.args.contrastive, None
        if self.progress >= begin:
            self.add_people()
            grown = ramp(self.progress, begin, begin + 0.5 * (1 - begin))
        return self.recognition_loss(self.net(self.to_input(crops)).flatten(1), people, grown)

    def after_backward(self):
        torch.nn.utils.clip_grad_norm_(self.net.parameters(), 5.0)

    def save(self):
        super().save()
        torch.save(self.average.state_dict(), self.args.out / "float.pt")


def main():
    parser = recognition.argument_parser("train_float", __doc__, views=5e6, rate=3e-3)
    parser.add_argument(
        "--contrastive",
        type=float,
        default=0.3,
        help="share of the training before CosFace joins (%(default)s)",
    )
    args = parser.parse_args()
    keep_memory()
    torch.set_num_threads(args.threads)
    torch.manual_seed(args.seed)
    args.out.mkdir(parents=True, exist_ok=True)
    trainer = FloatTrainer(args)
    trainer.resume()
    trainer.run()


if __name__ == "__main__":
    main()

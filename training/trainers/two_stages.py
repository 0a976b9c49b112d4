# SPDX-License-Identifier: MIT
"""A training in float arithmetic, then in the library's integer arithmetic: what both of the finder's
networks have in common. A network's own trainer comes from FloatStage, its integer one from
IntegerStage and its own."""
from .trainer import Trainer


class FloatStage(Trainer):
    checkpoint_file = "float-checkpoint.pt"

    @staticmethod
    def views_of(args):
        return args.views

    def groups(self):
        return [{"params": list(self.net.parameters()), "weight_decay": 0.02, "most": self.args.rate}]

    def to_integers(self):
        """The network that the integer stage begins with."""
        raise NotImplementedError


class IntegerStage:
    """From what the float training came to."""

    quantised = True
    checkpoint_file = "checkpoint.pt"

    def __init__(self, args, net):
        self._start = net
        super().__init__(args)

    @staticmethod
    def views_of(args):
        return args.integer_views

    def make_net(self):
        return self._start

    def groups(self):
        return self.integer_groups(self.args.integer_rate)


def train(args, float_stage, integer_stage, empty, given=None):
    """Goes on wherever the checkpoints say. empty: a network for a checkpoint's integers; given: one to begin
    the integer stage with, without a float stage."""
    if (args.out / integer_stage.checkpoint_file).exists():
        trainer = integer_stage(args, empty)
        trainer.resume()
    elif given:
        trainer = integer_stage(args, given)
        trainer.checkpoint()
    else:
        trainer = float_stage(args)
        trainer.resume()
        trainer.run()
        if trainer.progress < 1:
            return  # stopped early
        trainer = integer_stage(args, trainer.to_integers())
        trainer.checkpoint()
    trainer.run()

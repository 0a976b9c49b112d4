# SPDX-License-Identifier: MIT
"""The finder's networks that look at a found face once more, around it and from close by: quantised, in
the library's integer arithmetic; and in float arithmetic with normalisation, as which they begin."""
from dataclasses import dataclass

import numpy as np
import torch
from torch import nn

from . import find_layers
from .find_layers import CLOSE_PROGRAM, LOOK_PROGRAM, Part
from .find_net import (
    FindIntegers, FindNet, QuantFindNet, patches, register_floats, register_integers,
)  # fmt: skip
from .float_net import FloatNet
from .layers import Conv, convolutions
from .quant_net import QuantNet

SIDE = 64  # pixels of a look
CELL = 8  # pixels of a look: the heat's planes have a value for each
HEAT = 1 / 16  # logits a step
NEAR = 16.0  # pixels of the look at an offset's end
# Offsets from the middle of an upright face's box, in its sides.
MEAN_POINTS = ((-0.186, -0.148), (0.186, -0.148), (0, 0.074), (-0.158, 0.282), (0.158, 0.282))


@dataclass(frozen=True)
class Kind:
    name: str
    program: tuple
    face: float  # of a look's side: that of the box which is looked at
    step: int  # from one of its pixels to the next, in 256ths of the box's side

    @property
    def is_close(self):
        """By the name: in another process a kind is another object."""
        return self.name == "close"


WIDE = Kind("look", tuple(LOOK_PROGRAM), 2 / 3, 6)
CLOSE = Kind("close", tuple(CLOSE_PROGRAM), 1, 4)


class _Walked:
    """What both trained forms share."""

    def forward(self, x):
        """[n, 1, 64, 64], grey levels less 128 -> [n, 16, 8, 8], [n, 16], in integers' units."""
        x = self.to_input(x)
        if self.trunk is not None and len(x) == self.trunk.pictures:
            near, *parts = self.trunk(x)
            parts = [part[:, :count] for part, count in zip(parts, self._parts)]
            answers = self.layer(self.heat, near), self.layer(self.full, self.joined(parts))
        else:
            answers = find_layers.walk(self.ops, self, x)
        return [self.from_output(answer) for answer in answers]

    def _set_up(self, kind):
        self.kind = kind
        self.ops = find_layers.merged(kind.program)
        self.convs = convolutions(self.ops)
        self.full = self.convs[-1]
        self.heat = next(op for op in self.convs if op.answers and op.kind == "pointwise")
        self._parts = self._channels_of_parts()
        self.trunk = None  # an engine.find_trunk.FindTrunk, for batches of its size

    def _channels_of_parts(self):
        channels, last = [], 0
        for op in self.ops:
            if isinstance(op, Conv):
                last = op.outputs
            elif isinstance(op, Part):
                channels.append(last)
        return channels

    @staticmethod
    def patches(op, x):
        return patches(op, x)

    @staticmethod
    def joined(parts):
        return torch.cat([part.flatten(1) for part in parts], 1)


class LookNet(_Walked, FloatNet):
    def __init__(self, seed=1, kind=WIDE):
        nn.Module.__init__(self)
        self._set_up(kind)
        register_floats(self, seed)
        getattr(self, f"beta{self.full.number}").data[4:14] = _places_at_first(kind) / 128

    layer, weight_limit, settle = FindNet.layer, FindNet.weight_limit, FindNet.settle

    @staticmethod
    def to_input(x):
        return x / 128

    @staticmethod
    def from_output(x):
        return x * 128


def _places_at_first(kind):
    return torch.tensor(MEAN_POINTS).ravel() * kind.face * 256


class QuantLookNet(_Walked, QuantNet):
    def __init__(self, kind=WIDE):
        nn.Module.__init__(self)
        self._set_up(kind)
        register_integers(self)

    clip = QuantFindNet.clip
    load = QuantFindNet.load

    @staticmethod
    def to_input(x):
        return x

    @staticmethod
    def from_output(x):
        return x


class _LookIntegers(FindIntegers):
    @staticmethod
    def joined(parts):
        return np.concatenate([part.reshape(len(part), -1) for part in parts], 1)[:, :, None, None]


def integer_answers(tensors, looks, kind=WIDE):
    """uint8 [n, 64, 64] -> int8 [n, 16, 8, 8] and [n, 16], exactly as the library computes them."""
    x = (looks ^ 0x80).view(np.int8)[:, None]
    heat, rest = find_layers.walk(kind.program, _LookIntegers(tensors), x)
    return heat, rest.reshape(len(looks), -1)


def points_of(heat):
    """Heat planes [n, 16, 8, 8] of integers -> the points in pixels of the look from its middle,
    [n, 5, 2]. Planes: five of logits, five of offsets to the right, five of offsets down."""
    logits, right, down = (heat[:, i : i + 5].flatten(2) for i in (0, 5, 10))
    share = torch.softmax(logits * HEAT, 2)
    x, y = (cells().to(heat)[:, i] for i in (0, 1))
    scale = NEAR / 128
    return torch.stack([(share * (right * scale + x)).sum(2), (share * (down * scale + y)).sum(2)], 2)


def cells():
    """Their middles, [64, 2]."""
    at = (torch.arange(SIDE // CELL) + 0.5) * CELL - SIDE / 2
    y, x = torch.meshgrid(at, at, indexing="ij")
    return torch.stack([x, y], -1).reshape(-1, 2)

# SPDX-License-Identifier: MIT
"""The finder's second network, which looks at each found face once more: quantised, in the library's
integer arithmetic. It starts from the first network's layers, which see the same kind of pictures."""
import numpy as np
import torch
from torch import nn

from . import find_layers
from .find_layers import LOOK_PROGRAM, PROGRAM, Part
from .find_net import FindIntegers, QuantFindNet, patches
from .layers import Conv, convolutions
from .quant_net import QuantNet

SIDE = 64  # pixels of a look
FACE = 2 / 3  # of a look's side: that of the box which is looked at
# The first network's layers, less its heads and its last pair, lie in the second at these numbers.
_TAKEN = {**{27 + n: n for n in range(13)}, **{28 + n: n for n in range(16, 22)}}
CELL = 8  # pixels of a look: the heat's planes have a value for each
HEAT = 1 / 16  # logits a step
NEAR = 16.0  # pixels of the look at an offset's end
# Offsets from the middle of an upright face's box, in its sides.
MEAN_POINTS = ((-0.186, -0.148), (0.186, -0.148), (0, 0.074), (-0.158, 0.282), (0.158, 0.282))


class QuantLookNet(QuantNet):
    network = "look"

    def __init__(self, seed=1):
        nn.Module.__init__(self)
        self.ops = find_layers.merged(LOOK_PROGRAM)
        self.convs = convolutions(self.ops)
        self.full = self.convs[-1]
        self.heat = next(op for op in self.convs if op.answers and op.kind == "pointwise")
        self._parts = self._channels_of_parts()
        self.trunk = None  # an engine.find_trunk.FindTrunk, for batches of its size
        generator = torch.Generator().manual_seed(seed)
        for op in self.convs:
            spread = 3.0 if op.kind == "dense" else 12.0
            weights = spread * torch.randn(*op.weight_shape, generator=generator)
            self.register_parameter(f"w{op.number}", nn.Parameter(weights))
            self.register_parameter(f"beta{op.number}", nn.Parameter(torch.zeros(op.outputs)))
        at = torch.tensor(MEAN_POINTS).ravel() * FACE * 256
        getattr(self, f"beta{self.full.number}").data[4:14] = at

    def _channels_of_parts(self):
        channels, last = [], 0
        for op in self.ops:
            if isinstance(op, Conv):
                last = op.outputs
            elif isinstance(op, Part):
                channels.append(last)
        return channels

    def forward(self, x):
        """[n, 1, 64, 64], grey levels less 128 -> integers [n, 16, 8, 8], [n, 16]."""
        if self.trunk is not None and len(x) == self.trunk.pictures:
            near, *parts = self.trunk(x)
            parts = [part[:, :count] for part, count in zip(parts, self._parts)]
            return self.layer(self.heat, near), self.layer(self.full, self.joined(parts))
        return find_layers.walk(self.ops, self, x)

    @staticmethod
    def patches(x):
        return patches(x)

    @staticmethod
    def joined(parts):
        return torch.cat([part.flatten(1) for part in parts], 1)

    clip = QuantFindNet.clip
    load = QuantFindNet.load

    @torch.no_grad()
    def begin_from(self, tensors):
        """The layers that the first network has, too, as its tensors say."""
        shifts = {op.number: op.shift for op in convolutions(PROGRAM)}
        for number, source in _TAKEN.items():
            bias = tensors[f"{source}.bias"].astype("float64") * 2.0 ** -shifts[source]
            getattr(self, f"beta{number}").copy_(torch.from_numpy(bias))
            weight = tensors[f"{source}.weight"].astype("float32")
            getattr(self, f"w{number}").copy_(torch.from_numpy(weight))
        return self


class _LookIntegers(FindIntegers):
    @staticmethod
    def joined(parts):
        return np.concatenate([part.reshape(len(part), -1) for part in parts], 1)[:, :, None, None]


def integer_answers(tensors, looks):
    """uint8 [n, 64, 64] -> int8 [n, 16, 8, 8] and [n, 16], exactly as the library computes them."""
    x = (looks ^ 0x80).view(np.int8)[:, None]
    heat, rest = find_layers.walk(LOOK_PROGRAM, _LookIntegers(tensors), x)
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

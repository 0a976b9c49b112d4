# SPDX-License-Identifier: MIT
"""The network that finds faces, in the arithmetics that it is trained in: float with normalisation,
like FloatNet, and quantised, like QuantNet; and in exact integers."""
import numpy as np
import torch
import torch.nn.functional as F
from torch import nn

from . import find_layers, integer_net
from .find_layers import MAX_WEIGHT, PATCH
from .float_net import FloatNet, _initial_weights, is_normalised
from .layers import convolutions
from .quant_net import QuantNet

GAIN = 0.2


def patches(op, x):
    """[n, 1, h, w] -> [n, planes, h / 4, w / 4]; the pixels of a patch row by row."""
    _, _, h, w = x.shape
    planes = F.unfold(x, op.side, padding=op.margin, stride=PATCH)
    return planes.unflatten(2, (h // PATCH, w // PATCH))


def register_floats(net, seed):
    """Parameters and statistics of all layers, those that answer small."""
    generator = torch.Generator().manual_seed(seed)
    for op in net.convs:
        n = op.number
        weights = _initial_weights(op, generator)
        net.register_parameter(f"w{n}", nn.Parameter(weights))
        net.register_parameter(f"beta{n}", nn.Parameter(torch.zeros(op.outputs)))
        if is_normalised(op):
            net.register_parameter(f"gamma{n}", nn.Parameter(torch.zeros(op.outputs)))
            net.register_buffer(f"mean{n}", torch.zeros(op.outputs))
            net.register_buffer(f"var{n}", torch.ones(op.outputs))
            net.register_buffer(f"gain{n}", torch.tensor(GAIN))
        else:
            weights.mul_(0.1)


def register_integers(net):
    for op in net.convs:
        net.register_parameter(f"w{op.number}", nn.Parameter(torch.zeros(op.weight_shape)))
        net.register_parameter(f"beta{op.number}", nn.Parameter(torch.zeros(op.outputs)))


class _Walked:
    """What both trained forms share."""

    network = "find"

    def answers(self, x):
        """x: [n, 1, height, width], sides multiples of 16 -> [n, 16, h, w] of each stride."""
        if self.trunk is not None and len(x) == self.trunk.pictures and self.trunk.fits(x):
            return [self.layer(op, y) for op, y in zip(self.last, self.trunk(x))]
        return find_layers.walk(self.ops, self, x)

    def forward(self, x):
        return self.answers(x)

    def _set_up(self):
        self.ops = find_layers.merged(find_layers.PROGRAM)
        self.convs = convolutions(self.ops)
        self.last = [op for op in self.convs if op.answers]
        self.trunk = None  # an engine.find_trunk.FindTrunk, for batches of its size

    @staticmethod
    def patches(op, x):
        return patches(op, x)


class FindNet(_Walked, FloatNet):
    def __init__(self, seed=1):
        nn.Module.__init__(self)
        self._set_up()
        register_floats(self, seed)
        for op in self.last:
            getattr(self, f"beta{op.number}").data[0] = -0.5  # faces are rare

    def layer(self, op, x):
        if not op.answers:
            return FloatNet.layer(self, op, x)
        # Not cut off here: what is too large must find its way back.
        out = self._convolve(op, x)
        return out + getattr(self, f"beta{op.number}").view((1, -1) + (1,) * (out.dim() - 2))

    def weight_limit(self, op):
        return MAX_WEIGHT

    @torch.no_grad()
    def settle(self, x):
        """Statistics of a first batch, by PyTorch's operators."""
        trunk, self.trunk = self.trunk, None
        self.train()
        plain = self._convolve

        def observe(op, tensor):
            y = plain(op, tensor)
            if is_normalised(op):
                variance, mean = torch.var_mean(y.transpose(0, 1).flatten(1), dim=1)
                getattr(self, f"mean{op.number}").copy_(mean)
                getattr(self, f"var{op.number}").copy_(variance)
            return y

        self._convolve = observe
        self(x)
        del self._convolve
        self.trunk = trunk


class QuantFindNet(_Walked, QuantNet):
    def __init__(self, *_):
        nn.Module.__init__(self)
        self._set_up()
        register_integers(self)

    @torch.no_grad()
    def clip(self):
        for op in self.convs:
            getattr(self, f"w{op.number}").clamp_(-MAX_WEIGHT, MAX_WEIGHT)

    @torch.no_grad()
    def load(self, tensors):
        """What a safetensors file holds, to be trained further."""
        for op in self.convs:
            bias = tensors[f"{op.number}.bias"].astype("float64") * 2.0**-op.shift
            getattr(self, f"beta{op.number}").copy_(torch.from_numpy(bias))
            weight = tensors[f"{op.number}.weight"].astype("float32")
            getattr(self, f"w{op.number}").copy_(torch.from_numpy(weight))
        return self


class FindIntegers(integer_net._Integers):
    @staticmethod
    def patches(op, x):
        return patches(op, torch.from_numpy(x).float()).numpy().astype(np.int8)


def integer_answers(tensors, plane):
    """uint8 [height, width], sides multiples of 16 -> int8 [16, h, w] of each stride, exactly as
    the library computes them."""
    x = (plane ^ 0x80).view(np.int8)[None, None]
    return [a[0] for a in find_layers.walk(find_layers.PROGRAM, FindIntegers(tensors), x)]

# SPDX-License-Identifier: MIT
"""A network in the library's exact integer arithmetic, trained through its rounding.

Weights are kept as real numbers in units of the integer weights, biases in units of a layer's
output. The forward pass rounds them, and all tensors hold integers; the backward pass looks
through rounding and stops where a value is cut off.
"""
import torch
import torch.nn.functional as F
from torch import nn

from . import layers
from .walk import walk


class _Round(torch.autograd.Function):
    @staticmethod
    def forward(ctx, x):
        return torch.round(x)

    @staticmethod
    def backward(ctx, gradient):
        return gradient


class _Requantise(torch.autograd.Function):
    """Floor, then the range of 8 bits, or its upper half behind a rectifier."""

    @staticmethod
    def forward(ctx, x, rectified):
        floor = torch.floor(x)
        least = floor >= 0 if rectified else floor > -128
        ctx.save_for_backward(least & (floor < 127))
        return floor.clamp_(0 if rectified else -128, 127)

    @staticmethod
    def backward(ctx, gradient):
        (passes,) = ctx.saved_tensors
        return gradient * passes, None


class QuantNet(nn.Module):
    def __init__(self, network):
        super().__init__()
        self.network = network
        self.ops = layers.merged(layers.PROGRAMS[network])
        self.convs = layers.convolutions(self.ops)
        self.trunk = None  # an engine.Trunk, for batches of its size
        for op in self.convs:
            self.register_parameter(f"w{op.number}", nn.Parameter(torch.zeros(op.weight_shape)))
            self.register_parameter(f"beta{op.number}", nn.Parameter(torch.zeros(op.outputs)))

    def _sums(self, op, x):
        w = _Round.apply(getattr(self, f"w{op.number}"))
        if op.kind == "dense":
            return F.linear(x.flatten(1), w)
        if op.kind == "global":
            return (x * w.transpose(0, 1)).sum((2, 3), keepdim=True)
        groups = op.outputs if op.kind == "depthwise" else 1
        padding = 1 if op.kind in ("full", "depthwise") else 0
        return F.conv2d(x, w, stride=op.stride, padding=padding, groups=groups)

    def layer(self, op, x):
        bias = _Round.apply(getattr(self, f"beta{op.number}") * 2.0**op.shift)
        sums = self._sums(op, x)
        sums = sums + bias.view((1, -1) + (1,) * (sums.dim() - 2))
        return _Requantise.apply(sums * 2.0**-op.shift, op.rectified)

    def forward(self, x):
        """x: [n, 1, size, size], grey levels less 128. Returns integers [n, outputs]."""
        return walk(self.ops, self, x, self._trunk)

    def _trunk(self, x):
        if self.trunk is None or len(x) != self.trunk.pictures:
            return x, 0
        return self.trunk(x, 0.0), self.trunk.operations

    @staticmethod
    def maximum(op, x):
        return F.max_pool2d(x, 2, op.stride)

    @staticmethod
    def add(op, branch, shortcut):
        missing = branch.shape[1] - shortcut.shape[1]
        if missing:
            shortcut = F.pad(shortcut, (0, 0, 0, 0, 0, missing))
        half = 0.5 if op.out_shift else 0.0
        b = 2.0 ** (op.branch_shift - op.out_shift)
        s = 2.0 ** (op.shortcut_shift - op.out_shift)
        return _Requantise.apply(branch * b + shortcut * s + half, False)

    @staticmethod
    def average(op, x):
        """Rounds half away from zero."""
        count = x.shape[2] * x.shape[3]
        total = x.sum((2, 3), keepdim=True) * 2.0**op.shift
        with torch.no_grad():
            exact = torch.sign(total) * torch.floor((total.abs() + count // 2) / count)
        mean = total / count
        return torch.clamp(mean + (exact - mean).detach(), -128, 127)

    @torch.no_grad()
    def clip(self):
        """Keeps weights where their integers exist. Call it after each step."""
        for op in self.convs:
            limit = layers.weight_limit(self.network, op)
            getattr(self, f"w{op.number}").clamp_(-limit, limit)

    @torch.no_grad()
    def tensors(self):
        """The integers, as {"0.weight": int8 array, "0.bias": int32 array, ...}."""
        out = {}
        for op in self.convs:
            bias = torch.round(getattr(self, f"beta{op.number}").double() * 2.0**op.shift)
            out[f"{op.number}.bias"] = bias.to(torch.int32).cpu().numpy()
        for op in self.convs:
            weight = torch.round(getattr(self, f"w{op.number}")).to(torch.int32)
            if op.kind == "full":
                weight = split_planes(weight, layers.STEM_PLANES[self.network])
            assert int(weight.abs().max()) <= 127
            out[f"{op.number}.weight"] = weight.to(torch.int8).cpu().numpy()
        return out


@torch.no_grad()
def from_tensors(network, tensors):
    """The network that a safetensors file holds, ready to be trained further. The planes of the
    first layer are equal, so their filters are summed, and may be split differently later."""
    net = QuantNet(network)
    for op in net.convs:
        weight = torch.from_numpy(tensors[f"{op.number}.weight"].astype("float32"))
        if op.kind == "full":
            weight = weight.sum(1, keepdim=True)
        bias = torch.from_numpy(tensors[f"{op.number}.bias"].astype("float64")) * 2.0**-op.shift
        getattr(net, f"w{op.number}").copy_(weight)
        getattr(net, f"beta{op.number}").copy_(bias)
    return net


def split_planes(weight, planes):
    """One filter for the sum of equal planes, as one filter for each plane: as even as integers
    can be."""
    parts, rest = [], weight
    for left in range(planes, 0, -1):
        part = torch.div(rest, left, rounding_mode="floor")
        parts.append(part)
        rest = rest - part
    return torch.cat(parts, dim=1)


def to_input(pictures):
    """uint8 grey levels [n, size, size] -> the network's input."""
    return (pictures.float() - 128).unsqueeze(1)

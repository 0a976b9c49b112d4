# SPDX-License-Identifier: MIT
"""A network in float arithmetic with batch normalisation, for the first stage of training.

Activations stand for the integers divided by 128, additions and pooling carry the fixed shifts,
and every tensor is cut to the integers' range, so that folding the normalisation into weights and
biases leaves rounding as the only difference from the integer network.
"""
import math

import torch
import torch.nn.functional as F
from torch import nn

from . import layers
from .layers import MAX
from .walk import walk

MOMENTUM = 0.02  # of the running mean and variance
EPSILON = 1e-5


def is_normalised(op):
    """All layers but those whose outputs are coordinates."""
    return not (op.answers or op.kind == "dense" and op.outputs == 4)


def _initial_weights(op, generator):
    def normal(*shape):
        return torch.randn(*shape, generator=generator)

    shape = op.weight_shape
    fan_in = math.prod(shape[1:])
    if op.kind == "depthwise":
        noise = 0.1 * normal(*shape)
        if op.stride == 2:
            line = torch.tensor([0.25, 0.5, 0.25])
            return torch.outer(line, line) + noise
        noise[:, :, 1, 1] += 1.0
        return noise
    if op.kind == "global":
        return 1 / 36 + 0.03 * normal(*shape)
    return normal(*shape) / math.sqrt(fan_in)


class FloatNet(nn.Module):
    """Parameters are named after the layers' numbers: w0, gamma0, beta0, ... A normalised value is
    gain * ((1 + gamma) * x + beta), so that decay pulls factors to 1: most of them cancel in the
    next normalisation, and nothing else would hold them."""

    def __init__(self, network, seed=1):
        super().__init__()
        self.network = network
        self.ops = layers.merged(layers.PROGRAMS[network])
        self.convs = layers.convolutions(self.ops)
        self.trunk = None  # an engine.Trunk, for batches of its size
        generator = torch.Generator().manual_seed(seed)
        for op in self.convs:
            n = op.number
            self.register_parameter(f"w{n}", nn.Parameter(_initial_weights(op, generator)))
            if is_normalised(op):
                self.register_parameter(f"gamma{n}", nn.Parameter(torch.zeros(op.outputs)))
                self.register_buffer(f"mean{n}", torch.zeros(op.outputs))
                self.register_buffer(f"var{n}", torch.ones(op.outputs))
                # A fixed factor keeps gamma and beta where the optimiser's step suits them.
                self.register_buffer(f"gain{n}", torch.tensor(0.15))
            self.register_parameter(f"beta{n}", nn.Parameter(torch.zeros(op.outputs)))
        if network == "align":
            self._start_at_the_middle()

    def _start_at_the_middle(self):
        n = self.convs[-1].number
        with torch.no_grad():
            getattr(self, f"w{n}").mul_(0.02)
            getattr(self, f"beta{n}").copy_(torch.tensor([32.0, 32.0, 96.0, 96.0]) / 128)

    def _convolve(self, op, x):
        w = getattr(self, f"w{op.number}").to(x.dtype)
        if op.kind == "dense":
            return F.linear(x.flatten(1), w)
        if op.kind == "global":
            return (x * w.transpose(0, 1)).sum((2, 3), keepdim=True)
        groups = op.outputs if op.kind == "depthwise" else 1
        padding = 1 if op.kind in ("full", "depthwise") else 0
        return F.conv2d(x, w, stride=op.stride, padding=padding, groups=groups)

    def _normalise(self, op, y):
        n = op.number
        gain = getattr(self, f"gain{n}")
        out = F.batch_norm(
            y.float() if y.device.type == "cpu" else y,
            getattr(self, f"mean{n}"),
            getattr(self, f"var{n}"),
            (1 + getattr(self, f"gamma{n}")) * gain,
            getattr(self, f"beta{n}") * gain,
            self.training,
            MOMENTUM,
            EPSILON,
        )
        return out.to(y.dtype)

    def layer(self, op, x):
        y = self._convolve(op, x)
        if is_normalised(op):
            y = self._normalise(op, y)
        else:
            y = y + getattr(self, f"beta{op.number}").to(y.dtype)
        return F.hardtanh(y, 0.0 if op.rectified else -1.0, MAX)

    def forward(self, x):
        """x: [n, 1, size, size], grey levels less 128, divided by 128. Returns [n, outputs]."""
        return walk(self.ops, self, x, self._trunk).float()

    def _trunk(self, x):
        if self.trunk is None or len(x) != self.trunk.pictures:
            return x, 0
        return self.trunk(x, MOMENTUM), self.trunk.operations

    @staticmethod
    def maximum(op, x):
        return F.max_pool2d(x, 2, op.stride)

    @staticmethod
    def add(op, branch, shortcut):
        missing = branch.shape[1] - shortcut.shape[1]
        if missing:
            shortcut = F.pad(shortcut, (0, 0, 0, 0, 0, missing))
        b = 2.0 ** (op.branch_shift - op.out_shift)
        s = 2.0 ** (op.shortcut_shift - op.out_shift)
        return F.hardtanh(branch * b + shortcut * s, -1.0, MAX)

    @staticmethod
    def average(op, x):
        return F.hardtanh(x.mean((2, 3), keepdim=True) * 2**op.shift, -1.0, MAX)

    def weight_limit(self, op):
        return layers.weight_limit(self.network, op)

    @torch.no_grad()
    def set_gains(self, x):
        """Chooses each layer's gain on sample input so that its folded integer weights have a root
        mean square of 36, as far as that leaves the activations at a sensible size; branches start
        quiet. The running statistics start at the sample's."""
        was_training = self.training
        self.train()
        convolve = self._convolve

        def observe(op, tensor):
            y = convolve(op, tensor)
            if is_normalised(op):
                rms = getattr(self, f"w{op.number}").square().mean().sqrt()
                goal = 36 * layers.STEM_PLANES[self.network] if op.kind == "full" else 36
                gain = goal / 2**op.shift / rms * y.float().std()
                low, high = (0.02, 0.06) if op.closes_branch else (0.05, 0.30)
                getattr(self, f"gain{op.number}").fill_(min(max(float(gain), low), high))
                variance, mean = torch.var_mean(y.float().transpose(0, 1).flatten(1), dim=1)
                getattr(self, f"mean{op.number}").copy_(mean)
                getattr(self, f"var{op.number}").copy_(variance)
            return y

        self._convolve = observe
        self(x)
        self._convolve = convolve
        self.train(was_training)

    @torch.no_grad()
    def begin_as(self, integers, x):
        """Computes what an integer network does, but for its rounding: takes over its weights, and a
        normalisation that over the sample input x changes nothing."""
        convolve = self._convolve

        def observe(op, tensor):
            n = op.number
            weight = getattr(integers, f"w{n}")
            w = getattr(self, f"w{n}")
            length = w.square().mean().sqrt() / weight.square().mean().sqrt()
            w.copy_(weight * length)
            step = 2.0**-op.shift / length  # from such a weight to what it is among the integers
            bias = (getattr(integers, f"beta{n}") - 0.5) / 128  # without half a step for rounding down
            y = convolve(op, tensor)
            if not is_normalised(op):
                w.mul_(step)
                getattr(self, f"beta{n}").copy_(bias)
                return y * step
            variance, mean = torch.var_mean(y.float().transpose(0, 1).flatten(1), dim=1, unbiased=False)
            spread = step * (variance + EPSILON).sqrt()
            gain = spread.mean()
            getattr(self, f"gain{n}").copy_(gain)
            getattr(self, f"gamma{n}").copy_(spread / gain - 1)
            getattr(self, f"beta{n}").copy_((bias + step * mean) / gain)
            getattr(self, f"mean{n}").copy_(mean)
            getattr(self, f"var{n}").copy_(variance)
            return y

        self._convolve = observe
        self.eval()
        self(x)
        self._convolve = convolve


def to_input(pictures):
    """uint8 or float grey levels [n, size, size] -> the network's input."""
    return (pictures.float() - 128).div_(128).unsqueeze(1)

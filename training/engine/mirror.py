# SPDX-License-Identifier: MIT
"""A network's parameters as the engine needs them: at fixed addresses, rounded where the network is
one of integers, channels filled up to multiples of 32."""
import torch

from ..networks.layers import AveragePool, Conv, MaxPool, Save

LANES = 32


def _filled(count):
    return -(-count // LANES) * LANES


def trunk(ops):
    """The operations in front of a network's head."""
    for count, op in enumerate(ops):
        if isinstance(op, AveragePool) or isinstance(op, Conv) and op.kind == "global":
            return ops[:count]
    raise ValueError("a network without a head")


def plan(network, ops):
    """{layer: (channels read, channels written)} in the engine, and for each halving maximum the
    channels that it writes. Tensors that meet in additions must be equally wide: the alignment
    network's blocks widen from addition to addition, so that all tensors between two maxima get the
    width of the widest, but for the first two layers of each block, which lie between additions."""
    if network == "fr":
        return {op.number: (op.inputs, op.outputs) for op in ops if isinstance(op, Conv)}, []
    stages = [LANES]
    for op in ops:
        if isinstance(op, MaxPool):
            stages.append(LANES)
        elif isinstance(op, Conv):
            stages[-1] = max(stages[-1], _filled(op.outputs))
    layers, stage, current, narrow = {}, 0, 1, 0
    for op in ops:
        if isinstance(op, Save):
            narrow = 2
        elif isinstance(op, MaxPool):
            stage += 1
            current = stages[stage]
        elif isinstance(op, Conv):
            written = _filled(op.outputs) if narrow else stages[stage]
            narrow = max(0, narrow - 1)
            layers[op.number] = (current, written)
            current = written
    return layers, stages[1:]


class Mirror:
    """Copies of a FloatNet's or QuantNet's parameters."""

    def __init__(self, net, quantised=False):
        self.network, self.ops, self.net, self.quantised = net.network, net.ops, net, quantised
        self.channels, self.pooled = plan(net.network, trunk(net.ops))
        self._pairs, self._statistics = [], []
        for op in net.convs:
            if op.number in self.channels:
                self._copy_layer(op)

    @property
    def training(self):
        return self.net.training

    def _copy_layer(self, op):
        n, (read, written) = op.number, self.channels[op.number]
        per_channel = op.kind == "depthwise"
        self._copy(f"w{n}", (written, 1 if per_channel else read), self._pairs)
        self._copy(f"beta{n}", (written,), self._pairs, 2.0**op.shift if self.quantised else 1.0)
        if not self.quantised:
            self._copy(f"gamma{n}", (written,), self._pairs)
            self._copy(f"mean{n}", (written,), self._statistics)
            self._copy(f"var{n}", (written,), self._statistics)
            setattr(self, f"gain{n}", getattr(self.net, f"gain{n}"))

    def _copy(self, name, channels, pairs, unit=1.0):
        real = getattr(self.net, name)
        shape = (*channels, *real.shape[len(channels) :])
        copy = torch.zeros(shape, requires_grad=real.requires_grad)
        setattr(self, name, copy)
        pairs.append((real, copy, unit))

    @staticmethod
    def _part(copy, real):
        """What of the copy the network knows."""
        return copy[tuple(slice(size) for size in real.shape)]

    @torch.no_grad()
    def fill(self):
        for real, copy, unit in self._pairs + self._statistics:
            self._part(copy, real).copy_(torch.round(real * unit) if self.quantised else real)
            if copy.grad is not None:
                copy.grad.zero_()

    @torch.no_grad()
    def give_statistics_back(self):
        for real, copy, _ in self._statistics:
            real.copy_(self._part(copy, real))

    @torch.no_grad()
    def pass_gradients_on(self):
        for real, copy, unit in self._pairs:
            if copy.grad is not None and real.requires_grad:
                gradient = self._part(copy.grad, real) * unit
                real.grad = gradient if real.grad is None else real.grad + gradient

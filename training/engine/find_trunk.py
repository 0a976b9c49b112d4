# SPDX-License-Identifier: MIT
"""The layers of a network of the finder, up to those that answer, as one operator."""
import torch

from . import _DEPTHWISE, _HALVING, _PATCHES, _POINTWISE, Engine, _Layer
from .mirror import _filled
from ..networks.find_layers import PATCH, Answer, Keep, Part, Patches, Return
from ..networks.layers import Conv, MaxPool

_MOMENTUM = 0.02


class FindTrunk:
    """Parameters and statistics are copied before each pass, so that they may be rounded and filled up."""

    def __init__(self, net, pictures, side, threads, quantised=False):
        self.net, self.pictures, self.side, self.quantised = net, pictures, side, quantised
        self._pairs, self._statistics = [], []
        self.shapes = []
        records, ends = self._records()
        self._engine = Engine(pictures, threads, quantised, records, ends)
        self._anchor = torch.zeros(1, requires_grad=True)

    def fits(self, x):
        return x.shape[2] == x.shape[3] == self.side

    def _records(self):
        records, ends, kept, current, size = [], [], -1, -1, self.side
        channels = 0
        for op in self.net.ops:
            record = _Layer(source=current, shortcut=-1)
            if isinstance(op, Keep):
                kept = (current, size, channels)
                continue
            if isinstance(op, Return):
                current, size, channels = kept
                continue
            if isinstance(op, Answer):
                continue
            if isinstance(op, Conv) and op.kind == "dense":
                continue
            if isinstance(op, Part) or isinstance(op, Conv) and op.answers:
                ends.append(current)
                self.shapes.append((self.pictures, size, size, channels))
                continue
            if isinstance(op, Patches):
                size //= PATCH
                record.kind, record.inputs, channels = _PATCHES, op.side, _filled(op.planes)
            elif isinstance(op, MaxPool):
                size //= 2
                record.kind = _HALVING
            else:
                record.kind = _POINTWISE if op.kind == "pointwise" else _DEPTHWISE
                record.inputs, record.rectified, record.shift = channels, op.rectified, op.shift
                self._copy_layer(record, op, channels)
                channels = _filled(op.outputs)
            record.outputs, record.size = channels, size
            current = len(records)
            records.append(record)
        return records, ends

    def _copy_layer(self, record, op, inputs):
        outputs = _filled(op.outputs)
        read = (outputs, inputs, 1, 1) if op.kind == "pointwise" else op.weight_shape
        self._copy(record, f"w{op.number}", "weights", read, 1.0)
        unit = 2.0**op.shift if self.quantised else 1.0
        self._copy(record, f"beta{op.number}", "beta", (outputs,), unit)
        if self.quantised:
            return
        self._copy(record, f"gamma{op.number}", "gamma", (outputs,), 1.0)
        record.gain = getattr(self.net, f"gain{op.number}").data_ptr()
        for name, field in (("mean", "mean"), ("var", "variance")):
            real, copy = getattr(self.net, f"{name}{op.number}"), torch.ones(outputs)
            self._statistics.append((real, copy))
            setattr(record, field, copy.data_ptr())

    def _copy(self, record, name, field, shape, unit):
        real = getattr(self.net, name)
        copy, gradient = torch.zeros(shape), torch.zeros(shape)
        self._pairs.append((real, copy, gradient, unit))
        setattr(record, field, copy.data_ptr())
        setattr(record, f"{field}_gradient", gradient.data_ptr())

    @staticmethod
    def _part(copy, real):
        return copy[tuple(slice(size) for size in real.shape)]

    @torch.no_grad()
    def forward(self, x, training):
        for real, copy, gradient, unit in self._pairs:
            part = self._part(copy, real)
            part.copy_(torch.round(real * unit) if self.quantised else real)
            gradient.zero_()
        for real, copy in self._statistics:
            self._part(copy, real).copy_(real)
        self._input = x.detach().float().contiguous()
        if not self.quantised:
            self._input = self._input * 128
        outputs = [torch.empty(shape) for shape in self.shapes]
        self._engine.forward(self._input, training, _MOMENTUM, outputs)
        for real, copy in self._statistics:
            real.copy_(self._part(copy, real))
        return outputs

    @torch.no_grad()
    def backward(self, gradients):
        self._engine.backward([gradient.float().contiguous() for gradient in gradients])
        for real, _, gradient, unit in self._pairs:
            mine = self._part(gradient, real) * unit
            real.grad = mine if real.grad is None else real.grad + mine

    def __call__(self, x):
        """[pictures, 1, side, side] -> what the answering layers read."""
        training = self.net.training
        if training and torch.is_grad_enabled():
            outputs = _Passes.apply(self._anchor, x, self)
        else:
            outputs = self.forward(x, training)
        return [out.permute(0, 3, 1, 2) for out in outputs]


class _Passes(torch.autograd.Function):
    @staticmethod
    def forward(ctx, anchor, x, trunk):
        ctx.trunk = trunk
        return tuple(trunk.forward(x, True))

    @staticmethod
    def backward(ctx, *gradients):
        ctx.trunk.backward(gradients)
        return torch.zeros(1), None, None

# SPDX-License-Identifier: MIT
"""The integer networks in numpy, step for step as the library computes them.

Sums of products are formed in single precision where they are exact there, which is checked; they
must not leave 32 bits, where the library's sums would wrap, and that is checked too.
"""
import numpy as np

from . import layers
from .walk import walk


def _exact(values):
    """Single-precision sums as integers. Whole numbers up to 2^24 are exact, whatever the order."""
    return values.astype(np.int64)


def _requantised(sums, op):
    if sums.size and max(sums.max(), -sums.min()) >= 2**31:
        raise OverflowError(f"layer {op.number} leaves 32 bits")
    return np.clip(sums >> op.shift, 0 if op.rectified else -128, 127).astype(np.int8)


def _shifted(x):
    """The nine displaced copies that a 3 x 3 filter with a border of zeros meets."""
    n, c, h, w = x.shape
    padded = np.zeros((n, c, h + 2, w + 2), x.dtype)
    padded[:, :, 1:-1, 1:-1] = x
    return [padded[:, :, ky : ky + h, kx : kx + w] for ky in range(3) for kx in range(3)]


def _matrix(weights, x):
    """[out, k] times [n, k, pixels]."""
    most = 2**24 // 128**2 - 1  # products whose sum is exact
    weights, x = weights.astype(np.float32), x.astype(np.float32)
    parts = [slice(k, k + most) for k in range(0, weights.shape[1], most)]
    return sum(_exact(np.matmul(weights[:, part], x[:, part])) for part in parts)


def _convolve(op, weights, bias, x):
    n, c, h, w = x.shape
    if op.kind == "pointwise":
        sums = _matrix(weights.reshape(op.outputs, c), x.reshape(n, c, h * w))
    elif op.kind == "full":
        patches = np.stack(_shifted(x), axis=2).reshape(n, c * 9, h * w)
        sums = _matrix(weights.reshape(op.outputs, c * 9), patches)
    elif op.kind == "depthwise":
        taps = weights.reshape(c, 9).astype(np.int32)
        sums = np.zeros((n, c, h, w), np.int32)
        for k, shifted in enumerate(_shifted(x.astype(np.int32))):
            sums += taps[None, :, k, None, None] * shifted
        sums = sums.reshape(n, c, h * w).astype(np.int64)
    elif op.kind == "global":
        products = weights.reshape(1, c, h * w).astype(np.int64) * x.reshape(n, c, h * w)
        sums = products.sum(2, keepdims=True)
    else:
        sums = _matrix(weights, x.reshape(n, -1, 1))
    size = (h, w) if sums.shape[2] == h * w else (1, 1)
    sums = sums + bias.astype(np.int64)[:, None]
    return _requantised(sums.reshape(n, op.outputs, *size), op)


class _Integers:
    """The operations on int8 arrays, by the tensors of one network."""

    def __init__(self, tensors):
        self.tensors = tensors

    def layer(self, op, x):
        weights, bias = self.tensors[f"{op.number}.weight"], self.tensors[f"{op.number}.bias"]
        return _convolve(op, weights, bias, x)

    @staticmethod
    def rectify(x):
        return np.maximum(x, 0)

    @staticmethod
    def every_second(x):
        return x[:, :, ::2, ::2]

    @staticmethod
    def maximum(op, x):
        high = np.maximum(x[:, :, :-1], x[:, :, 1:])
        high = np.maximum(high[:, :, :, :-1], high[:, :, :, 1:])
        return high[:, :, :: op.stride, :: op.stride]

    @staticmethod
    def add(op, branch, shortcut):
        total = branch.astype(np.int32) << op.branch_shift
        total[:, : shortcut.shape[1]] += shortcut.astype(np.int32) << op.shortcut_shift
        if op.out_shift:
            total = (total + (1 << (op.out_shift - 1))) >> op.out_shift
        return np.clip(total, -128, 127).astype(np.int8)

    @staticmethod
    def average(op, x):
        count = x.shape[2] * x.shape[3]
        total = x.astype(np.int32).sum((2, 3), keepdims=True) << op.shift
        rounded = np.sign(total) * ((np.abs(total) + count // 2) // count)
        return np.clip(rounded, -128, 127).astype(np.int8)


def forward(network, tensors, pictures):
    """uint8 grey levels [n, size, size] -> the last layer's int8 [n, outputs]."""
    x = (pictures ^ 0x80).view(np.int8)[:, None].repeat(layers.STEM_PLANES[network], 1)
    return walk(layers.PROGRAMS[network], _Integers(tensors), x).reshape(len(pictures), -1)


def feature(answers):
    """The recognition network's answers [n, 128] as features, in single precision like the
    library."""
    squares = (answers.astype(np.int32) ** 2).sum(1)
    inverse = np.float32(1) / np.sqrt(squares.astype(np.float32))
    return answers.astype(np.float32) * inverse[:, None]

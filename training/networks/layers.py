# SPDX-License-Identifier: MIT
"""The two networks, written once.

A network is a straight list of operations. The integer forward pass and the exports walk the list
as it stands, step for step like the library; the trained forms walk the shorter list that
`merged()` makes of it. A layer's number is that of its tensors in models/*.safetensors.
"""
from dataclasses import dataclass, replace

STEM_PLANES = {"align": 1, "fr": 3}
INPUT_SIZE = {"align": 24, "fr": 96}
MAX = 127 / 128  # the largest activation; the smallest is -1, or 0 behind a rectifier


@dataclass(frozen=True)
class Conv:
    number: int
    kind: str  # full, pointwise, depthwise, global, dense
    inputs: int
    outputs: int
    shift: int
    rectified: bool = False
    stride: int = 1
    closes_branch: bool = False  # the last layer of a residual branch

    @property
    def weight_shape(self):
        if self.kind == "full":
            return (self.outputs, self.inputs, 3, 3)
        if self.kind == "pointwise":
            return (self.outputs, self.inputs, 1, 1)
        if self.kind == "depthwise":
            return (self.outputs, 1, 3, 3)
        if self.kind == "global":
            return (self.outputs, 1, 6, 6)
        return (self.outputs, self.inputs)


@dataclass(frozen=True)
class Rectify:
    pass


@dataclass(frozen=True)
class MaxPool:
    """2 x 2 maximum."""

    stride: int


@dataclass(frozen=True)
class EverySecond:
    """Keeps every second pixel of every second row, the first one included."""


@dataclass(frozen=True)
class Save:
    """Keeps the tensor as the shortcut of the addition that follows."""


@dataclass(frozen=True)
class Add:
    """((branch << branch_shift) + (shortcut << shortcut_shift)) >> out_shift, rounded half up."""

    branch_shift: int
    shortcut_shift: int
    out_shift: int


@dataclass(frozen=True)
class AveragePool:
    """The mean of each plane, shifted left, rounded half away from zero."""

    shift: int


def _align():
    ops = [Conv(0, "full", 1, 32, 8)]
    width = 32
    # Number of the block's first layer, shifts of its four layers, shifts of the addition.
    blocks = [
        (1, (7, 6, 7, 6), (1, 0, 1)),
        (7, (5, 7, 6, 6), (0, 1, 1)),
        (13, (6, 6, 7, 7), (0, 1, 0)),
        (20, (6, 6, 6, 6), (0, 0, 0)),
        (26, (6, 7, 7, 7), (1, 0, 1)),
        (32, (5, 6, 6, 7), (0, 0, 0)),
        (39, (5, 6, 7, 5), (0, 0, 0)),
        (45, (5, 7, 6, 6), (0, 0, 1)),
        (51, (6, 7, 6, 6), (0, 1, 1)),
    ]
    for index, (n, shifts, add) in enumerate(blocks):
        wide = width + 4
        narrow = wide // 2
        ops += [
            Save(),
            Conv(n, "pointwise", width, narrow, shifts[0]),
            Conv(n + 1, "depthwise", narrow, narrow, shifts[1], rectified=True),
            Conv(n + 3, "pointwise", narrow, wide, shifts[2]),
            Conv(n + 4, "depthwise", wide, wide, shifts[3], closes_branch=True),
            Add(*add),
        ]
        width = wide
        if index in (2, 5):
            ops.append(MaxPool(2))
    ops += [AveragePool(3), Conv(58, "dense", 68, 4, 8)]
    return ops


def _fr_blocks(ops, width, blocks):
    for n, shifts, (shortcut_shift, branch_shift, out_shift) in blocks:
        ops += [
            Save(),
            Conv(n, "pointwise", width, 2 * width, shifts[0]),
            Rectify(),
            Conv(n + 2, "depthwise", 2 * width, 2 * width, shifts[1], rectified=True),
            Conv(n + 4, "pointwise", 2 * width, width, shifts[2], closes_branch=True),
            Add(branch_shift, shortcut_shift, out_shift),
        ]


def _fr_reduction(ops, n, width, wide, out, shifts):
    """Expansion, anti-aliased halving of the plane, projection."""
    ops += [
        Conv(n, "pointwise", width, wide, shifts[0]),
        Rectify(),
        Conv(n + 2, "depthwise", wide, wide, shifts[1]),
        MaxPool(1),
        Conv(n + 4, "depthwise", wide, wide, shifts[2]),
        EverySecond(),
        Rectify(),
        Conv(n + 7, "pointwise", wide, out, shifts[3]),
    ]


def _fr():
    ops = [
        Conv(0, "full", 3, 32, 11),
        MaxPool(1),
        Conv(2, "depthwise", 32, 32, 9),
        EverySecond(),
        Rectify(),
        Conv(5, "depthwise", 32, 32, 4, rectified=True),
    ]
    _fr_reduction(ops, 7, 32, 64, 32, (7, 7, 9, 6))
    _fr_blocks(
        ops,
        32,
        [
            (15, (8, 4, 7), (1, 0, 1)),
            (21, (6, 6, 6), (1, 0, 1)),
            (27, (7, 6, 6), (1, 0, 1)),
            (33, (7, 7, 5), (1, 0, 1)),
        ],
    )
    _fr_reduction(ops, 39, 32, 128, 64, (7, 8, 8, 7))
    _fr_blocks(
        ops,
        64,
        [
            (47, (9, 4, 6), (1, 0, 1)),
            (53, (8, 4, 6), (1, 0, 1)),
            (59, (7, 7, 5), (0, 0, 0)),
            (65, (8, 5, 6), (0, 0, 1)),
            (71, (8, 6, 6), (1, 0, 1)),
            (77, (7, 6, 7), (0, 0, 0)),
        ],
    )
    _fr_reduction(ops, 83, 64, 256, 64, (8, 7, 8, 7))
    _fr_blocks(ops, 64, [(91, (9, 6, 6), (1, 0, 1)), (97, (8, 5, 7), (0, 0, 1))])
    ops += [
        Conv(103, "pointwise", 64, 256, 7),
        Rectify(),
        Conv(105, "global", 256, 256, 6),
        Conv(106, "dense", 256, 128, 7),
    ]
    return ops


PROGRAMS = {"align": _align(), "fr": _fr()}


def convolutions(ops):
    return [op for op in ops if isinstance(op, Conv)]


def merged(ops):
    """The list for training: rectifiers belong to their convolution, and a depthwise layer of
    which every second pixel is kept computes no other. The stem reads one plane: its three input
    planes are equal, so only the sum of its three filters counts."""
    out = []
    for op in ops:
        if isinstance(op, Conv) and op.kind == "full":
            out.append(replace(op, inputs=1))
        elif isinstance(op, Rectify):
            assert isinstance(out[-1], Conv)
            out[-1] = replace(out[-1], rectified=True)
        elif isinstance(op, EverySecond):
            assert isinstance(out[-1], Conv) and out[-1].kind == "depthwise"
            out[-1] = replace(out[-1], stride=2)
        else:
            out.append(op)
    return out


def weight_limit(network, op):
    """The largest magnitude of an integer weight of the merged list."""
    return 127 * (STEM_PLANES[network] if op.kind == "full" else 1)

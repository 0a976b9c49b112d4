# SPDX-License-Identifier: MIT
"""The two networks, as the library's own list has them.

A network is a straight list of operations. The integer forward pass and the exports walk the list
as it stands, step for step like the library; the trained forms walk the shorter list that
`merged()` makes of it. A layer's number is that of its tensors in models/*.safetensors.
"""
import re
from dataclasses import dataclass, replace
from pathlib import Path

LIST = Path("include/orvo/network_layers.h")
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
    answers: bool = False  # what it gives is read by programs, not by layers

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


KINDS = {
    "Convolution": "full",
    "Pointwise": "pointwise",
    "Depthwise": "depthwise",
    "DepthwiseRelu": "depthwise",
    "Global": "global",
    "FullyConnected": "dense",
}


def _layer(kind, number, inputs, _side, outputs, shift):
    rectified = kind == "DepthwiseRelu"
    return Conv(int(number), KINDS[kind], int(inputs), int(outputs), int(shift), rectified)


def _step(kind, _channels, _side, shift):
    """None for what follows the quantised network."""
    return {
        "Keep": Save(),
        "MaxPool1": MaxPool(1),
        "MaxPool2": MaxPool(2),
        "Sample": EverySecond(),
        "Rectify": Rectify(),
        "Average": AveragePool(int(shift)),
        "Normalise": None,
    }[kind]


def _add(_channels, _side, _shortcut_channels, branch_shift, shortcut_shift, out_shift):
    return Add(int(branch_shift), int(shortcut_shift), int(out_shift))


READERS = {"LAYER": _layer, "STEP": _step, "ADD": _add}


def _read_program(text, network):
    """A network from the text of the library's list, include/orvo/network_layers.h."""
    head = f"#define ORVO_{network.upper()}_NETWORK("
    lines = iter(text[text.index(head) :].splitlines())
    next(lines)
    ops = []
    for line in lines:
        row = re.match(r"\s+(\w+)\((.*?)\)", line)
        if row:
            op = READERS[row[1]](*(value.strip() for value in row[2].split(",")))
            if isinstance(op, Add):
                ops[-1] = replace(ops[-1], closes_branch=True)
            ops += [op] if op else []
        elif "/*" not in line:
            raise ValueError(f"{LIST}: no step of a network: {line}")
        if not line.endswith("\\"):
            break
    return ops


def _read_programs():
    above = next(p for p in Path(__file__).resolve().parents if (p / LIST).is_file())
    text = (above / LIST).read_text(encoding="utf-8")
    return {network: _read_program(text, network) for network in STEM_PLANES}


PROGRAMS = _read_programs()


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

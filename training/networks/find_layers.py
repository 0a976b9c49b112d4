# SPDX-License-Identifier: MIT
"""The three networks of the finder, as the library's own list has them, and the walk over them.

They are no straight lists: planes are kept and read twice. The first has two answers; the last layer of
the two that look reads planes of two sizes.
"""
import math
import re
from dataclasses import dataclass, replace
from pathlib import Path

from .layers import KINDS, Conv, MaxPool, Rectify

LIST = Path("include/orvo/find_layers.h")
PATCH = 4  # pixels from one patch to the next
MULTIPLE = 16  # of which the sides of a plane have to be one
STRIDES = (8, 16)
ANSWERS = 16  # values a cell
MAX_WEIGHT = 127


@dataclass(frozen=True)
class Patches:
    """The pixels of each patch as planes. Patches are 4 pixels apart: where they are larger, they overlap,
    and are grey beyond the picture."""

    planes: int

    @property
    def side(self):
        return math.isqrt(self.planes)

    @property
    def margin(self):
        """Pixels that a patch has before those that are its own."""
        return (self.side - PATCH) // 2


@dataclass(frozen=True)
class Keep:
    pass


@dataclass(frozen=True)
class Return:
    """Goes on from what was kept."""


@dataclass(frozen=True)
class Part:
    """A part of what the full layer reads."""


@dataclass(frozen=True)
class Answer:
    pass


_STEPS = {
    "MaxPool2": MaxPool(2), "Rectify": Rectify(), "Keep": Keep(),
    "Return": Return(), "Part": Part(), "Answer": Answer(),
}  # fmt: skip


def read_program(text, name="FIND"):
    """A list of operations from the text of include/orvo/find_layers.h."""
    lines = iter(text[text.index(f"#define ORVO_{name}_NETWORK(") :].splitlines())
    next(lines)
    ops = []
    for line in lines:
        row = re.match(r"\s+(LAYER|STEP)\((.*?)\)", line)
        if row:
            kind, *numbers = (value.strip() for value in row[2].split(","))
            if row[1] == "LAYER":
                number, inputs, _stride, outputs, shift = map(int, numbers)
                ops.append(Conv(number, KINDS[kind], inputs, outputs, shift))
            else:
                if kind == "Answer":
                    ops[-1] = replace(ops[-1], answers=True)
                ops.append(Patches(int(numbers[0])) if kind == "Patches" else _STEPS[kind])
        elif "/*" not in line:
            raise ValueError(f"{LIST}: no step of the network: {line}")
        if not line.endswith("\\"):
            break
    return ops


def _read():
    above = next(p for p in Path(__file__).resolve().parents if (p / LIST).is_file())
    text = (above / LIST).read_text(encoding="utf-8")
    return [read_program(text, name) for name in ("FIND", "LOOK", "CLOSE")]


PROGRAM, LOOK_PROGRAM, CLOSE_PROGRAM = _read()


def merged(ops):
    """The list for training: a rectifier belongs to its layer, also where a maximum, which it may
    change places with, lies between them."""
    out = []
    for op in ops:
        if isinstance(op, Rectify):
            at = -1 if isinstance(out[-1], Conv) else -2
            out[at] = replace(out[at], rectified=True)
        else:
            out.append(op)
    return out


def walk(ops, arithmetic, x):
    """The answers, that of the smaller stride first."""
    kept, parts, answers = None, [], []
    for op in ops:
        if isinstance(op, Conv):
            x = arithmetic.layer(op, arithmetic.joined(parts) if op.kind == "dense" else x)
        elif isinstance(op, Patches):
            x = arithmetic.patches(op, x)
        elif isinstance(op, MaxPool):
            x = arithmetic.maximum(op, x)
        elif isinstance(op, Rectify):
            x = arithmetic.rectify(x)
        elif isinstance(op, Keep):
            kept = x
        elif isinstance(op, Return):
            x = kept
        elif isinstance(op, Part):
            parts.append(x)
        else:
            answers.append(x)
    return answers

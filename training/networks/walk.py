# SPDX-License-Identifier: MIT
"""The one walk over a network's operations.

What an operation does is an arithmetic's matter: float, quantised for training, exact integers, or
the nodes of an ONNX graph. An arithmetic has `layer(op, x)`, `maximum(op, x)`,
`add(op, branch, shortcut)` and `average(op, x)`; one that walks the list as the library does has
`rectify(x)` and `every_second(x)` as well.
"""
from .layers import Add, AveragePool, Conv, EverySecond, MaxPool, Rectify, Save


def walk(ops, arithmetic, x, before=None):
    """`before(x)` may compute the first operations at once: what it answers, and how many."""
    shortcut, done = None, 0
    if before is not None:
        x, done = before(x)
    for op in ops[done:]:
        if isinstance(op, Conv):
            x = arithmetic.layer(op, x)
        elif isinstance(op, Save):
            shortcut = x
        elif isinstance(op, Add):
            x = arithmetic.add(op, x, shortcut)
        elif isinstance(op, MaxPool):
            x = arithmetic.maximum(op, x)
        elif isinstance(op, AveragePool):
            x = arithmetic.average(op, x)
        elif isinstance(op, Rectify):
            x = arithmetic.rectify(x)
        else:
            assert isinstance(op, EverySecond)
            x = arithmetic.every_second(x)
    return x

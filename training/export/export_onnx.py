# SPDX-License-Identifier: MIT
"""Writes an integer network as ONNX in float arithmetic.

Every tensor holds whole numbers below 2^24, which single precision adds and multiplies exactly in
any order; shifts are products with powers of two. A runtime that computes in single precision
therefore gives the library's bytes. Input: grey levels 0 to 255, [n, 1, size, size]; output: the
last layer's integers, [n, outputs]. The finder's networks (all in find.safetensors) have forms of their own:
find_onnx.
"""
import argparse
from dataclasses import dataclass
from pathlib import Path

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

from ..networks import layers
from ..networks.walk import walk
from . import tensors

OPSET = 10  # the last whose Clip and Pad take their bounds as attributes, as all runtimes do


class Graph:
    def __init__(self):
        self.nodes, self.constants, self._count = [], [], 0

    def name(self, stem):
        self._count += 1
        return f"{stem}_{self._count}"

    def constant(self, values, stem="constant"):
        name = self.name(stem)
        self.constants.append(numpy_helper.from_array(np.asarray(values, np.float32), name))
        return name

    def node(self, kind, inputs, **attributes):
        out = self.name(kind.lower())
        self.nodes.append(helper.make_node(kind, inputs, [out], name=out, **attributes))
        return out

    def scaled(self, x, factor):
        return x if factor == 1 else self.node("Mul", [x, self.constant(factor)])

    def cut(self, x, rectified=False):
        return self.node("Clip", [x], min=0.0 if rectified else -128.0, max=127.0)


def convolution(graph, op, given, x):
    weights = given[f"{op.number}.weight"].astype(np.float32)
    bias = given[f"{op.number}.bias"].astype(np.float32)
    largest = 128 * np.abs(weights).reshape(len(bias), -1).sum(1) + np.abs(bias)
    if largest.max() >= 2**24:
        raise ValueError(f"the sums of layer {op.number} may leave what single precision holds")
    if op.kind == "dense":
        weights = weights.reshape(*weights.shape, 1, 1)
    padding = 1 if op.kind in ("full", "depthwise") else 0
    sums = graph.node(
        "Conv",
        [x, graph.constant(weights, f"weight{op.number}"), graph.constant(bias, f"bias{op.number}")],
        kernel_shape=list(weights.shape[2:]),
        pads=[padding] * 4,
        strides=[op.stride] * 2,
        group=op.outputs if op.kind in ("depthwise", "global") else 1,
    )
    floor = graph.node("Floor", [graph.scaled(sums, 2.0**-op.shift)])
    return graph.cut(floor, op.rectified)


@dataclass(frozen=True)
class _Tensor:
    name: str
    channels: int
    size: int


class _Nodes:
    """The operations as nodes of a graph."""

    def __init__(self, graph, given):
        self.graph, self.given = graph, given

    def layer(self, op, x):
        name = convolution(self.graph, op, self.given, x.name)
        return _Tensor(name, op.outputs, -(-x.size // op.stride))

    def maximum(self, op, x):
        name = self.graph.node("MaxPool", [x.name], kernel_shape=[2, 2], strides=[op.stride] * 2)
        return _Tensor(name, x.channels, x.size // 2 if op.stride == 2 else x.size - 1)

    def add(self, op, branch, shortcut):
        graph, missing, short = self.graph, branch.channels - shortcut.channels, shortcut.name
        if missing:
            short = graph.node("Pad", [short], pads=[0, 0, 0, 0, 0, missing, 0, 0])
        long = graph.scaled(branch.name, 2.0 ** (op.branch_shift - op.out_shift))
        short = graph.scaled(short, 2.0 ** (op.shortcut_shift - op.out_shift))
        total = graph.node("Add", [long, short])
        if op.out_shift:
            total = graph.node("Floor", [graph.node("Add", [total, graph.constant([0.5])])])
        return _Tensor(graph.cut(total), branch.channels, branch.size)

    def average(self, op, x):
        """The mean rounded half away from zero. Half a unit on the dividend keeps a quotient that
        is rounded away from the whole numbers."""
        graph, count = self.graph, x.size * x.size
        ones = graph.constant(np.ones((x.channels, 1, x.size, x.size)), "ones")
        total = graph.node("Conv", [x.name, ones], kernel_shape=[x.size, x.size], group=x.channels)
        total = graph.scaled(total, 2.0**op.shift)
        parts = []
        for sign in (1.0, -1.0):
            part = graph.node("Relu", [graph.scaled(total, sign)])
            part = graph.node("Add", [part, graph.constant([count // 2 + 0.5])])
            part = graph.node("Mul", [part, graph.constant([1 / count])])
            parts.append(graph.node("Floor", [part]))
        mean = graph.cut(graph.node("Add", [parts[0], graph.scaled(parts[1], -1.0)]))
        return _Tensor(mean, x.channels, 1)


def build(network, given):
    graph, side = Graph(), layers.INPUT_SIZE[network]
    x = graph.node("Add", ["picture", graph.constant([-128.0])])
    planes = layers.STEM_PLANES[network]
    if planes > 1:
        x = graph.node("Concat", [x] * planes, axis=1)
    ops = layers.merged(layers.PROGRAMS[network])
    x = walk(ops, _Nodes(graph, given), _Tensor(x, planes, side))
    outputs = layers.convolutions(layers.PROGRAMS[network])[-1].outputs
    graph.nodes.append(helper.make_node("Flatten", [x.name], ["answer"], name="answer", axis=1))
    return helper.make_model(
        helper.make_graph(
            graph.nodes,
            network,
            [helper.make_tensor_value_info("picture", TensorProto.FLOAT, ["n", 1, side, side])],
            [helper.make_tensor_value_info("answer", TensorProto.FLOAT, ["n", outputs])],
            graph.constants,
        ),
        opset_imports=[helper.make_opsetid("", OPSET)],
        producer_name="orvo-fr-training",
    )


def main():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.export.export_onnx",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument("network", choices=[*sorted(layers.PROGRAMS), "find", "look", "close"])
    parser.add_argument("model", type=Path, help="the .safetensors file")
    parser.add_argument("out", type=Path, help="the .onnx file")
    args = parser.parse_args()
    given = tensors.read(args.model)
    if args.network in ("find", "look", "close"):
        from . import find_onnx  # it needs this module

        build = {"find": find_onnx.build, "look": find_onnx.build_look, "close": find_onnx.build_close}
        model = build[args.network](given)
    else:
        model = build(args.network, given)
    onnx.checker.check_model(model)
    onnx.save(model, str(args.out))


if __name__ == "__main__":
    main()

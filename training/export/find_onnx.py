# SPDX-License-Identifier: MIT
"""The finder's networks as ONNX, exact like the others: see export_onnx.

The first's input: grey levels 0 to 255, [1, 1, height, width], sides multiples of 16; outputs: both
strides' integers, [1, 16, height / 8, width / 8] and [1, 16, height / 16, width / 16]. Those that
look: a look (training.evaluation.second_look), [1, 1, 64, 64]; outputs: [1, 16, 8, 8] and [1, 16, 1, 1].
"""
import numpy as np
from onnx import TensorProto, helper

from ..networks import find_layers
from ..networks.look_net import CELL, CLOSE, SIDE, WIDE
from .export_onnx import OPSET, Graph, convolution


class _Nodes:
    def __init__(self, graph, given):
        self.graph, self.given = graph, given

    def patches(self, op, x):
        """A filter for each pixel of a patch."""
        one = np.eye(op.planes).reshape(op.planes, 1, op.side, op.side)
        weights = self.graph.constant(one, "patches")
        return self.graph.node(
            "Conv", [x, weights], kernel_shape=[op.side] * 2, strides=[find_layers.PATCH] * 2,
            pads=[op.margin] * 4,
        )  # fmt: skip

    def layer(self, op, x):
        return convolution(self.graph, op, self.given, x)

    def joined(self, parts):
        values = [self.graph.node("Flatten", [part]) for part in parts]
        both = self.graph.node("Concat", values, axis=1)
        for axis in (2, 3):
            both = self.graph.node("Unsqueeze", [both], axes=[axis])
        return both

    def maximum(self, _op, x):
        return self.graph.node("MaxPool", [x], kernel_shape=[2, 2], strides=[2, 2])


def _model(name, graph, given_shape, outputs):
    picture = helper.make_tensor_value_info("picture", TensorProto.FLOAT, given_shape)
    infos = []
    for answer, told, shape in outputs:
        graph.nodes.append(helper.make_node("Identity", [answer], [told], name=told))
        infos.append(helper.make_tensor_value_info(told, TensorProto.FLOAT, shape))
    return helper.make_model(
        helper.make_graph(graph.nodes, name, [picture], infos, graph.constants),
        opset_imports=[helper.make_opsetid("", OPSET)],
        producer_name="orvo-fr-training",
    )


def _answers(graph, given, program):
    x = graph.node("Add", ["picture", graph.constant([-128.0])])
    return find_layers.walk(find_layers.merged(program), _Nodes(graph, given), x)


def build(given):
    graph = Graph()
    answers = _answers(graph, given, find_layers.PROGRAM)
    outputs = [
        (answer, f"answer{stride}", [1, find_layers.ANSWERS, f"height/{stride}", f"width/{stride}"])
        for stride, answer in zip(find_layers.STRIDES, answers)
    ]
    return _model("find", graph, [1, 1, "height", "width"], outputs)


def build_look(given, kind=WIDE):
    graph = Graph()
    heat, rest = _answers(graph, given, kind.program)
    count, cells = find_layers.ANSWERS, SIDE // CELL
    outputs = [(heat, "heat", [1, count, cells, cells]), (rest, "rest", [1, count, 1, 1])]
    return _model(kind.name, graph, [1, 1, SIDE, SIDE], outputs)


def build_close(given):
    return build_look(given, CLOSE)

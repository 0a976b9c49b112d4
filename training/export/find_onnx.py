# SPDX-License-Identifier: MIT
"""The network that finds faces as ONNX, exact like the others: see export_onnx.

Input: grey levels 0 to 255, [1, 1, height, width], sides multiples of 16; outputs: both strides'
integers, [1, 16, height / 8, width / 8] and [1, 16, height / 16, width / 16].
"""
import numpy as np
from onnx import TensorProto, helper

from ..networks import find_layers
from .export_onnx import OPSET, Graph, convolution


class _Nodes:
    def __init__(self, graph, given):
        self.graph, self.given = graph, given

    def patches(self, x):
        """A filter for each pixel of a patch."""
        one = np.eye(16).reshape(16, 1, 4, 4)
        weights = self.graph.constant(one, "patches")
        return self.graph.node("Conv", [x, weights], kernel_shape=[4, 4], strides=[4, 4])

    def layer(self, op, x):
        return convolution(self.graph, op, self.given, x)

    def maximum(self, _op, x):
        return self.graph.node("MaxPool", [x], kernel_shape=[2, 2], strides=[2, 2])


def build(given):
    graph = Graph()
    x = graph.node("Add", ["picture", graph.constant([-128.0])])
    ops = find_layers.merged(find_layers.PROGRAM)
    answers = find_layers.walk(ops, _Nodes(graph, given), x)
    outputs = []
    for stride, answer in zip(find_layers.STRIDES, answers):
        name = f"answer{stride}"
        graph.nodes.append(helper.make_node("Identity", [answer], [name], name=name))
        shape = [1, find_layers.ANSWERS, f"height/{stride}", f"width/{stride}"]
        outputs.append(helper.make_tensor_value_info(name, TensorProto.FLOAT, shape))
    picture = ["picture", TensorProto.FLOAT, [1, 1, "height", "width"]]
    return helper.make_model(
        helper.make_graph(
            graph.nodes,
            "find",
            [helper.make_tensor_value_info(*picture)],
            outputs,
            graph.constants,
        ),
        opset_imports=[helper.make_opsetid("", OPSET)],
        producer_name="orvo-fr-training",
    )

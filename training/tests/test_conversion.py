# SPDX-License-Identifier: MIT
"""Folding and rescaling leave what the float network computes as it is."""
import unittest
from unittest import mock

import numpy as np

from training.networks import find_layers, layers
from training.networks.walk import walk
from training.tests import pictures

try:
    import torch
    import torch.nn.functional as F

    from training.export import conversion
    from training.networks.float_net import FloatNet, is_normalised, to_input
    from training.networks.look_net import LookNet
except ImportError as error:
    raise unittest.SkipTest(f"{error.name} is not installed") from error

QUIET = 0.1  # factor on every layer's answers, so that none is cut off


class RealNumbers:
    """The operations without limits or rounding, from folded weights and biases in the units of the
    integers."""

    def __init__(self, parameters):
        self.parameters = parameters

    def layer(self, op, x):
        w, bias = self.parameters[op.number]
        bias = (bias - 0.5).view(1, -1, *[1] * (x.dim() - 2))
        if op.kind == "dense":
            x = F.linear(x.flatten(1), w) / 2.0**op.shift + bias.view(1, -1)
        else:
            groups = op.outputs if op.kind in ("depthwise", "global") else 1
            padding = 1 if op.kind in ("full", "depthwise") else 0
            x = F.conv2d(x, w, stride=op.stride, padding=padding, groups=groups) / 2.0**op.shift
            x = x + bias
        return x.clamp(min=0) if op.rectified else x

    @staticmethod
    def add(op, branch, shortcut):
        shortcut = F.pad(shortcut, (0, 0, 0, 0, 0, branch.shape[1] - shortcut.shape[1]))
        total = branch * 2.0**op.branch_shift + shortcut * 2.0**op.shortcut_shift
        return total / 2.0**op.out_shift

    @staticmethod
    def maximum(op, x):
        return F.max_pool2d(x, 2, op.stride)

    @staticmethod
    def average(op, x):
        return x.mean((2, 3), keepdim=True) * 2.0**op.shift

    patches, joined = staticmethod(LookNet.patches), staticmethod(LookNet.joined)


def answers(net, parameters, x):
    return walk(net.ops, RealNumbers(parameters), x).flatten(1)


def made(network):
    """A network with statistics of its own, and some input."""
    net = FloatNet(network, seed=3)
    small = pictures.synthetic(8, layers.INPUT_SIZE[network], seed=6)
    x = to_input(torch.from_numpy(small))
    net.set_gains(x)
    generator = torch.Generator().manual_seed(1)
    with torch.no_grad():
        for name, parameter in net.named_parameters():
            if name.startswith(("gamma", "beta")):
                parameter.add_(0.02 * torch.randn(parameter.shape, generator=generator))
    return net.eval(), x


class Conversion(unittest.TestCase):
    def test_folded_weights_compute_the_float_network(self):
        for network in layers.PROGRAMS:
            net, x = made(network)
            largest = []
            plain = F.hardtanh

            def observed(tensor, low, high):
                largest.append(float(tensor.abs().max()))
                return plain(tensor, low, high)

            with torch.no_grad(), mock.patch.object(F, "hardtanh", observed):
                for op in net.convs:
                    if is_normalised(op):
                        getattr(net, f"gain{op.number}").mul_(QUIET)
                expected = net(x)
                answer = answers(net, conversion.folded(net), 128 * x.double()) / 128
            self.assertLess(max(largest), 127 / 128, network)
            scale = float(expected.abs().max())
            np.testing.assert_allclose(answer, expected, atol=1e-4 * scale, err_msg=network)

    def test_rescaling_changes_weights_but_not_what_is_computed(self):
        for network in layers.PROGRAMS:
            net, x = made(network)
            parameters = conversion.folded(net)
            with mock.patch.object(conversion, "STEPS", 30):
                changed, before, after = conversion.rescale(net, parameters, x)
            self.assertLess(after, before, network)
            with torch.no_grad():
                expected = answers(net, parameters, 128 * x.double())
                answer = answers(net, changed, 128 * x.double())
            np.testing.assert_allclose(answer, expected, rtol=1e-8, atol=1e-8, err_msg=network)
            differs = [n for n in parameters if not torch.equal(parameters[n][0], changed[n][0])]
            self.assertGreater(len(differs), len(parameters) // 2, network)

    def test_rescaling_leaves_a_network_with_parts_as_it_is(self):
        small = torch.from_numpy(pictures.synthetic(8, 64, seed=6))
        x = small.reshape(8, 1, 64, 64).float() - 128
        net = LookNet(seed=3)
        net.settle(x)
        net.eval()
        parameters = conversion.folded(net)
        with mock.patch.object(conversion, "STEPS", 30):
            changed, before, after = conversion.rescale(net, parameters, x)
        self.assertLess(after, before)
        with torch.no_grad():
            for answer, expected in zip(
                find_layers.walk(net.ops, RealNumbers(changed), x.double()),
                find_layers.walk(net.ops, RealNumbers(parameters), x.double()),
            ):
                np.testing.assert_allclose(answer, expected, rtol=1e-8, atol=1e-8)
        last = net.full.number
        self.assertFalse(torch.equal(parameters[last][0], changed[last][0]))


if __name__ == "__main__":
    unittest.main()

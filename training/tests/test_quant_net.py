# SPDX-License-Identifier: MIT
"""The trained form of the integer network computes what the plain one computes."""
import unittest

import numpy as np

from training.export import tensors
from training.networks import integer_net, layers
from training.networks.library import ROOT
from training.tests import pictures

try:
    import torch

    from training import engine
    from training.networks.float_net import FloatNet
    from training.networks.float_net import to_input as to_float_input
    from training.networks.quant_net import from_tensors, split_planes, to_input
except ImportError as error:
    raise unittest.SkipTest(f"{error.name} is not installed") from error


def load(network):
    model = tensors.read(ROOT / "models" / f"{network}.safetensors")
    return from_tensors(network, model), model


class QuantNetEquality(unittest.TestCase):
    def test_training_form_and_plain_form_answer_the_same(self):
        for network in layers.PROGRAMS:
            net, model = load(network)
            small = pictures.synthetic(25, layers.INPUT_SIZE[network], seed=3)
            with torch.no_grad():
                answers = net(to_input(torch.from_numpy(small))).flatten(1).numpy()
            expected = integer_net.forward(network, model, small)
            np.testing.assert_array_equal(answers, expected.astype(np.float32))

    def test_written_tensors_answer_the_same(self):
        for network in layers.PROGRAMS:
            net, model = load(network)
            small = pictures.synthetic(10, layers.INPUT_SIZE[network], seed=4)
            written = net.tensors()
            self.assertEqual(list(written), list(model))
            for name, tensor in model.items():
                self.assertEqual((written[name].dtype, written[name].shape), (tensor.dtype, tensor.shape))
            np.testing.assert_array_equal(
                integer_net.forward(network, written, small),
                integer_net.forward(network, model, small),
            )

    def test_a_float_network_begins_as_the_integer_one(self):
        for network in layers.PROGRAMS:
            integers, _ = load(network)
            shots = torch.from_numpy(pictures.synthetic(60, layers.INPUT_SIZE[network], seed=8))
            floats = FloatNet(network, seed=2)
            floats.begin_as(integers, to_float_input(shots[:40]))
            with torch.no_grad():
                answers = floats(to_float_input(shots[40:])).flatten(1)
                expected = integers(to_input(shots[40:])).flatten(1) / 128
            likeness = torch.cosine_similarity(answers, expected, dim=1)
            self.assertGreater(float(likeness.min()), 0.95, network)

    def test_a_filter_for_the_sum_of_planes_is_split_within_8_bits(self):
        weight = torch.arange(-381, 382).view(-1, 1, 1, 1)
        parts = split_planes(weight, 3)
        self.assertLessEqual(int(parts.abs().max()), 127)
        self.assertTrue(torch.equal(parts.sum(1, keepdim=True), weight))


@unittest.skipUnless(engine.is_possible(), "the engine needs AVX-512 with bfloat16")
class EngineEquality(unittest.TestCase):
    """Integers are exact in both, so the answers are the same and gradients differ by rounding."""

    def test_engine_and_pytorch_agree(self):
        for network in layers.PROGRAMS:
            with self.subTest(network=network):
                self._compare(network)

    def _compare(self, network):
        torch.manual_seed(0)
        plain, fast = load(network)[0].train(), load(network)[0].train()
        small = torch.from_numpy(pictures.synthetic(16, layers.INPUT_SIZE[network], seed=5))
        fast.trunk = engine.Trunk(fast, len(small), threads=2, quantised=True)
        goal, answers = torch.randn(len(small), plain.convs[-1].outputs), []
        for net in (plain, fast):
            answer = net(to_input(small)).flatten(1)
            (answer * goal).sum().backward()
            answers.append(answer.detach())
        self.assertTrue(torch.equal(*answers))
        for (name, a), (_, b) in zip(plain.named_parameters(), fast.named_parameters()):
            if float(a.grad.norm()) > 0:
                likeness = torch.cosine_similarity(a.grad.flatten(), b.grad.flatten(), dim=0)
                self.assertGreater(float(likeness), 0.998, name)
                self.assertAlmostEqual(float(b.grad.norm() / a.grad.norm()), 1, delta=0.02, msg=name)


if __name__ == "__main__":
    unittest.main()

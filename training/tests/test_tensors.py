# SPDX-License-Identifier: MIT
import tempfile
import unittest
from pathlib import Path

import numpy as np

from training.export import mean_of, tensors
from training.networks import layers
from training.networks.library import ROOT

try:
    from training.export import less_within
except ImportError:  # without PyTorch
    less_within = None


class Tensors(unittest.TestCase):
    def test_what_is_written_is_read(self):
        random = np.random.default_rng(1)
        given = {
            "a.bias": random.integers(-(2**31), 2**31, 7).astype(np.int32),
            "b": random.normal(size=(2, 3)).astype(np.float32),
            "a.weight": random.integers(-128, 128, (7, 3, 3, 3)).astype(np.int8),
        }
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "given.safetensors"
            tensors.write(path, given)
            read = tensors.read(path)
        self.assertEqual(list(read), list(given))
        for name, tensor in given.items():
            self.assertEqual(read[name].dtype, tensor.dtype)
            np.testing.assert_array_equal(read[name], tensor)

    def test_the_shipped_models_have_the_layers_of_the_networks(self):
        for network, program in layers.PROGRAMS.items():
            model = tensors.read(ROOT / "models" / f"{network}.safetensors")
            convolutions = layers.convolutions(program)
            self.assertEqual(len(model), 2 * len(convolutions))
            for op in convolutions:
                self.assertEqual(model[f"{op.number}.weight"].shape, op.weight_shape)
                self.assertEqual(model[f"{op.number}.bias"].shape, (op.outputs,))

    def test_shipped_models_are_written_byte_for_byte(self):
        for network in layers.PROGRAMS:
            path = ROOT / "models" / f"{network}.safetensors"
            with tempfile.TemporaryDirectory() as folder:
                copy = Path(folder) / "copy.safetensors"
                tensors.write(copy, tensors.read(path))
                self.assertEqual(copy.read_bytes(), path.read_bytes())

    def test_the_mean_of_networks_is_rounded_and_stays_in_range(self):
        def state(weights, bias):
            return {"w": np.array(weights, np.int8), "b": np.array(bias, np.int32)}

        mean = mean_of.mean_of([0.25, 0.75], [state([-128, 127, 0], [2**20]), state([-128, 127, 3], [4])])
        self.assertEqual(mean["w"].tolist(), [-128, 127, 2])
        self.assertEqual(mean["b"].tolist(), [2**18 + 3])
        self.assertEqual((mean["w"].dtype, mean["b"].dtype), (np.int8, np.int32))


@unittest.skipUnless(less_within, "PyTorch is not installed")
class LessWithin(unittest.TestCase):
    def test_directions_in_which_people_change_are_made_shorter(self):
        random = np.random.default_rng(7)
        people = np.repeat(np.arange(200), 5)
        features = 20 * random.normal(size=(200, 6))[people] + random.normal(size=(1000, 6)) * (9, 1, 1, 1, 1, 1)
        scatter = less_within.scatter_within(features, people)
        self.assertEqual(int(scatter.diagonal().argmax()), 0)
        matrix = less_within.shortening(scatter, 1.0)
        self.assertAlmostEqual(float(np.square(matrix).mean() * 6), 1.0)
        self.assertEqual(int(matrix.diagonal().argmin()), 0)
        self.assertLess(matrix[0, 0], 0.7 * matrix[1, 1])
        # With a large ridge nothing changes.
        np.testing.assert_allclose(less_within.shortening(scatter, 1e9), np.eye(6), atol=1e-6)

    def test_a_layer_with_a_matrix_behind_it_answers_what_the_matrix_makes_of_its_answers(self):
        random, shift = np.random.default_rng(8), 7
        weights = random.integers(-90, 90, (6, 40))
        bias = random.integers(-3000, 3000, 6)
        inputs = random.integers(0, 20, (500, 40))
        answers = (inputs @ weights.T + bias) >> shift
        matrix = less_within.shortening(np.diag([4.0, 1, 1, 1, 1, 1]) + 0.3, 0.5)
        mapped, mapped_bias = less_within.mapped(weights, bias, shift, matrix, answers)
        self.assertEqual((mapped.dtype, mapped_bias.dtype), (np.int8, np.int32))
        given = (inputs @ mapped.T.astype(int) + mapped_bias) >> shift
        wanted = (answers + 0.5) @ matrix.T
        likeness = (given * wanted).sum(1) / np.linalg.norm(given, axis=1) / np.linalg.norm(wanted, axis=1)
        self.assertGreater(likeness.min(), 0.99)
        self.assertLessEqual(np.quantile(np.abs(given), 0.99), 127)


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: MIT
import tempfile
import unittest
from pathlib import Path

import numpy as np

from training.export import mean_of, tensors
from training.networks import layers
from training.networks.library import ROOT


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


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: MIT
"""The trainings run from shards to a file that the library's store can take, stop, and go on."""
import contextlib
import io
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

import numpy as np

from training.export import tensors
from training.networks import integer_net, layers
from training.tests import pictures

try:
    import matplotlib  # noqa: F401  (draws the curves)
    import torch

    from training.trainers import train_float, train_quantised
    from training.data.augment import CROP, STORED, Augmenter, Strength, centre_crop
except ImportError as error:
    raise unittest.SkipTest(f"{error.name} is not installed") from error

PEOPLE, EACH = 40, 4


def write_shard(folder, number, first_person):
    """Complete shards of crops, as the renderer writes them."""
    shots = pictures.synthetic(PEOPLE * EACH, STORED, seed=number)
    labels = np.zeros((len(shots), 16), np.float32)
    labels[:, 0] = first_person + np.arange(len(shots)) // EACH
    np.save(folder / f"crops-{number:05}.pictures.npy", shots)
    np.save(folder / f"crops-{number:05}.labels.npy", labels)


def run(module, *arguments):
    said = io.StringIO()
    argv = ["training", *map(str, arguments), "--people", 2, "--each", 4, "--plain"]
    with mock.patch.object(sys, "argv", list(map(str, argv))), contextlib.redirect_stdout(said):
        module.main()
    return said.getvalue()


class Trainings(unittest.TestCase):
    def test_from_shards_to_integers_with_a_stop_between(self):
        with tempfile.TemporaryDirectory() as name:
            data, floats, integers = (Path(name) / part for part in ("data", "float", "integer"))
            data.mkdir()
            write_shard(data, 0, 0)
            first = run(train_float, "--data", data, "--out", floats, "--views", 32)
            self.assertNotIn("resumed", first)
            before = torch.load(floats / "checkpoint.pt")
            self.assertEqual((before["step"], before["views"]), (4, 32))
            self.assertEqual(len(before["classes"]), len(before["centres"]))

            write_shard(data, 1, PEOPLE)
            second = run(train_float, "--data", data, "--out", floats, "--views", 48)
            self.assertIn("resumed at 32 views", second)
            after = torch.load(floats / "checkpoint.pt")
            self.assertEqual((after["step"], after["views"]), (6, 48))
            self.assertGreater(len(after["classes"]), len(before["classes"]))
            for person, number in before["classes"].items():
                self.assertEqual(after["classes"][person], number)

            options = ("--float", floats, "--views", 16, "--no-rescaling")
            run(train_quantised, "--data", data, "--out", integers, *options)
            model = tensors.read(integers / "fr.safetensors")
            small = pictures.synthetic(2, layers.INPUT_SIZE["fr"], seed=9)
            features = integer_net.forward("fr", model, small)
            self.assertEqual(features.shape, (2, 128))
            self.assertGreater(int(np.abs(features).max()), 0)

    def test_a_shard_without_its_labels_is_not_taken(self):
        with tempfile.TemporaryDirectory() as name:
            data = Path(name)
            write_shard(data, 0, 0)
            (data / "crops-00000.labels.npy").unlink()
            with self.assertRaisesRegex(SystemExit, "no people with two or more pictures"):
                run(train_float, "--data", data, "--out", data / "out", "--views", 8)


class Augmentation(unittest.TestCase):
    def test_without_strength_a_crop_is_the_box_or_its_mirror_image(self):
        shots = pictures.synthetic(12, STORED, seed=2)
        made = Augmenter(Strength().scaled(0), seed=1)(torch.from_numpy(shots))
        whole = centre_crop(shots).astype(np.float32) - 128
        answers = (128 * made.squeeze(1)).numpy()
        mirrored = 0
        for crop, answer in zip(whole, answers):
            straight = np.abs(answer - crop).max()
            turned = np.abs(answer - crop[:, ::-1]).max()
            # The sampling grid is off a pixel's middle by rounding only.
            self.assertLessEqual(min(straight, turned), 1)
            mirrored += turned < straight
        self.assertTrue(0 < mirrored < len(shots))

    def test_the_seed_decides_and_the_range_is_the_networks(self):
        shots = torch.from_numpy(pictures.synthetic(6, STORED, seed=4))
        first, again, other = (Augmenter(Strength(), seed=s)(shots) for s in (7, 7, 8))
        self.assertTrue(torch.equal(first, again))
        self.assertFalse(torch.equal(first, other))
        self.assertEqual(tuple(first.shape), (6, 1, CROP, CROP))
        levels = 128 * first
        self.assertTrue(torch.equal(levels, levels.round()))
        self.assertGreaterEqual(float(levels.min()), -128)
        self.assertLessEqual(float(levels.max()), 127)


if __name__ == "__main__":
    unittest.main()

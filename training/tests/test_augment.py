# SPDX-License-Identifier: MIT
"""What training does to crops, and the panoramas that some of it takes."""
import tempfile
import unittest
from pathlib import Path

import numpy as np

from training.data import panoramas
from training.tests import pictures

try:
    import torch

    from training.data.augment import CROP, STORED, Augmenter, Strength
except ImportError as error:
    raise unittest.SkipTest(f"{error.name} is not installed") from error

NOTHING = Strength(**{name: 0.0 for name in vars(Strength())})


def only(natural=None, **changes):
    return Augmenter(Strength(**{**vars(NOTHING), **changes}), seed=3, natural=natural)


def write_panorama(path, grey):
    """`grey` [rows, columns] of 0.5 to below 1, with no run of equal bytes but the exponents."""
    rows, columns = grey.shape
    out = [b"#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n", b"-Y %d +X %d\n" % (rows, columns)]
    for row in (grey * 256).astype(np.uint8):
        out.append(bytes([2, 2, columns // 256, columns % 256]))
        for _ in range(3):
            for begin in range(0, columns, 100):
                part = row[begin : begin + 100]
                out.append(bytes([len(part)]) + part.tobytes())
        for begin in range(0, columns, 100):
            out.append(bytes([128 + min(100, columns - begin), 128]))
    path.write_bytes(b"".join(out))


class Changes(unittest.TestCase):
    def setUp(self):
        self.pictures = torch.from_numpy(pictures.synthetic(64, STORED, seed=5))

    def test_without_any_the_box_comes_out_but_for_flips(self):
        edge = (STORED - CROP) // 2
        plain = self.pictures[:, edge : edge + CROP, edge : edge + CROP].float()
        given = only()(self.pictures)[:, 0] * 128 + 128
        error = torch.minimum((given - plain).abs().amax((1, 2)), (given.flip(2) - plain).abs().amax((1, 2)))
        self.assertLess(float(error.max()), 1.01)

    def test_each_changes_its_share_alone(self):
        natural = np.random.default_rng(1).random((4, CROP, CROP)).astype(np.float32)
        before = only(natural)(self.pictures)
        for name in ("covers", "motion", "mixed"):
            changed = [
                bool((a != b).any()) for a, b in zip(only(natural, **{name: 0.5})(self.pictures), before)
            ]
            self.assertTrue(16 <= sum(changed) <= 48, (name, sum(changed)))

    def test_mixing_leaves_fine_structure_and_brightness(self):
        natural = np.random.default_rng(1).random((4, CROP, CROP)).astype(np.float32)
        mixed = only(natural, mixed=1.0)
        x = torch.rand(8, CROP, CROP) * 0.2 + 0.4
        before, after = torch.fft.rfft2(x), torch.fft.rfft2(mixed._mix(x.clone()))
        self.assertTrue(torch.allclose(before[:, 8:40, 8:], after[:, 8:40, 8:], atol=1e-2))
        self.assertTrue(torch.allclose(before[:, 0, 0], after[:, 0, 0], rtol=1e-4))
        self.assertGreater(float((before - after)[:, :3, :3].abs().max()), 1.0)


class Panoramas(unittest.TestCase):
    def test_what_was_written_is_read_and_cut(self):
        grey = 0.5 + 0.4 * np.random.default_rng(2).random((40, 300))
        with tempfile.TemporaryDirectory() as name:
            write_panorama(Path(name) / "a.hdr", grey)
            read = panoramas.read_panorama(Path(name) / "a.hdr")
            np.testing.assert_allclose(read, np.floor(grey * 256) / 256, atol=1e-6)
            views = panoramas.views(name, 5, 32)
            self.assertEqual(views.shape, (5, 32, 32))
            self.assertTrue((views >= 0).all() and (views <= 1).all() and views.std() > 0.01)

    def test_what_is_none_is_refused(self):
        with tempfile.TemporaryDirectory() as name:
            self.assertRaises(ValueError, panoramas.views, name, 1, 8)
            (Path(name) / "a.hdr").write_bytes(b"P5 3 3 255\n\n")
            self.assertRaises(ValueError, panoramas.views, name, 1, 8)


if __name__ == "__main__":
    unittest.main()

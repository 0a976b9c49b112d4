# SPDX-License-Identifier: MIT
"""Pictures of all kinds against the command line: the same grey levels show in the same features.

ORVO_FR_LIBRARY names the library, KOVA_FR the command line.
"""
import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

import numpy as np
from PIL import Image

PACKAGE = Path(__file__).resolve().parent.parent
SAMPLES = sorted((PACKAGE.parent / "samples").glob("*-[0-9].png"))
sys.path.insert(0, str(PACKAGE))

import orvo_fr  # noqa: E402


def sample(number=0):
    with Image.open(SAMPLES[number]) as image:
        return np.asarray(image.convert("L"))


def colourful():
    """Three different planes, and one of transparency."""
    return np.stack([sample(0), sample(3), sample(6), sample(9)], axis=2)


class Files(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def assert_features_of_the_command_line(self, path):
        output = self.folder / "features.f32"
        command = [os.environ["KOVA_FR"], "extract", "--crop", "--output", output, path]
        subprocess.run(command, check=True, capture_output=True)
        self.assertEqual(orvo_fr.extract(path).tobytes(), output.read_bytes(), path.name)

    def save(self, name, pixels, **options):
        path = self.folder / name
        image = pixels if isinstance(pixels, Image.Image) else Image.fromarray(pixels)
        image.save(path, **options)
        return path

    def test_every_kind_gives_the_features_of_the_command_line(self):
        colours = colourful()
        deep = Image.fromarray(sample().astype(np.uint16) * np.uint16(255) + np.uint16(77))
        kinds = {
            "grey.png": (sample(), {}),
            "grey.jpg": (sample(), {"quality": 80}),
            "grey.pgm": (sample(), {}),
            "colour.png": (colours[..., :3].copy(), {}),
            "colour.ppm": (colours[..., :3].copy(), {}),
            "colour.jpg": (colours[..., :3].copy(), {"quality": 85}),
            "alpha.png": (colours, {}),
            "palette.png": (Image.fromarray(colours[..., :3].copy()).quantize(200), {}),
            "clear_palette.png": (Image.fromarray(colours[..., :3].copy()).quantize(9),
                                  {"transparency": 3}),
            "grey_alpha.png": (Image.fromarray(colours).convert("LA"), {}),
            "two.png": (Image.fromarray(sample()).convert("1"), {}),
            "deep.png": (deep, {}),
        }
        for name, (pixels, options) in kinds.items():
            with self.subTest(name):
                self.assert_features_of_the_command_line(self.save(name, pixels, **options))

    def test_every_size_gives_the_features_of_the_command_line(self):
        image = Image.fromarray(sample())
        for size in ((16, 12), (255, 256), (257, 301), (96, 96), (1000, 700), (513, 2048)):
            with self.subTest(size=size):
                path = self.save("sized.png", image.resize(size, Image.BILINEAR))
                self.assert_features_of_the_command_line(path)

    def test_turned_pictures_stand_upright(self):
        for orientation in range(1, 9):
            for name in ("turned.jpg", "turned.png"):
                with self.subTest(name, orientation=orientation):
                    exif = Image.Exif()
                    exif[0x0112] = orientation
                    path = self.save(name, colourful()[:200, :, :3].copy(), exif=exif)
                    self.assert_features_of_the_command_line(path)

    def test_paths_arrays_and_pillows_pictures_are_the_same(self):
        path = self.save("colour.png", colourful())
        array = orvo_fr.grey(path)
        np.testing.assert_array_equal(orvo_fr.grey(str(path)), array)
        with Image.open(path) as image:
            np.testing.assert_array_equal(orvo_fr.grey(image), array)
        np.testing.assert_array_equal(orvo_fr.grey(colourful()), array)
        backwards = colourful()[..., [2, 1, 0, 3]]
        np.testing.assert_array_equal(orvo_fr.grey(backwards, channels="BGR"), array)
        self.assertFalse((orvo_fr.grey(backwards) == array).all())

    def test_files_that_cannot_be_read_say_which(self):
        whole = self.save("whole.jpg", sample()).read_bytes()
        (self.folder / "text.png").write_text("no picture")
        (self.folder / "short.jpg").write_bytes(whole[: len(whole) // 2])
        for name in ("missing.png", "text.png", "short.jpg", "."):
            with self.assertRaisesRegex(OSError, "missing|text|short|directory"):
                orvo_fr.grey(self.folder / name)

    def test_too_many_pixels_are_refused_before_they_are_made(self):
        path = self.save("wide.png", Image.new("1", (20000, 5001)))
        with self.assertRaisesRegex(ValueError, "too large .20000 x 5001.*100 megapixels"):
            orvo_fr.grey(path)

    def test_without_pillow_a_path_is_an_error_that_says_what_to_do(self):
        path = self.save("grey.png", sample())
        with mock.patch.dict(sys.modules, {"PIL": None}):
            with self.assertRaisesRegex(ImportError, "install it .*hand over an array"):
                orvo_fr.grey(path)
            self.assertEqual(orvo_fr.grey(sample()).shape, (256, 256))


class Arrays(unittest.TestCase):
    def test_luma_is_the_stated_sum_for_every_colour(self):
        levels = np.random.default_rng(1).integers(0, 256, (64, 64, 4), np.uint8)
        red, green, blue, alpha = (levels[..., i].astype(int) for i in range(4))
        luma = (77 * red + 150 * green + 29 * blue + 128) >> 8
        np.testing.assert_array_equal(orvo_fr.grey(levels[..., :3]), luma)
        np.testing.assert_array_equal(orvo_fr.grey(levels), (luma * alpha + 127) // 255)
        self.assertEqual(orvo_fr.grey(np.full((1, 1, 3), 255, np.uint8))[0, 0], 255)

    def test_a_grey_array_is_not_copied(self):
        picture = sample().copy()
        self.assertIs(orvo_fr.grey(picture), picture)
        self.assertTrue(np.shares_memory(orvo_fr.grey(picture[..., None]), picture))

    def test_what_is_no_picture(self):
        for wrong in (None, 5, [[1]], b"x", sample().astype(np.uint16), sample() > 5):
            with self.assertRaisesRegex(TypeError, "picture must"):
                orvo_fr.grey(wrong)
        for shape in ((5,), (5, 0), (5, 5, 2), (5, 5, 5), (1, 5, 5, 3)):
            with self.assertRaisesRegex(ValueError, "picture must have shape"):
                orvo_fr.grey(np.zeros(shape, np.uint8))
        with self.assertRaisesRegex(ValueError, "mode F"):
            orvo_fr.grey(Image.new("F", (50, 50)))
        with self.assertRaisesRegex(ValueError, "channels must be one of"):
            orvo_fr.grey(sample(), channels="HSV")

    def test_a_picture_smaller_than_a_camera_takes_is_refused(self):
        for shape in ((11, 100), (100, 15)):
            with self.assertRaisesRegex(ValueError, "at least 16 x 12"):
                orvo_fr.extract(np.zeros(shape, np.uint8))


if __name__ == "__main__":
    unittest.main()

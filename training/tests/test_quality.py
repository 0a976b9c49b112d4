# SPDX-License-Identifier: MIT
"""Quality here and in the library, and what its calibration counts."""
import unittest

import numpy as np

from training.evaluation import calibrate_quality, degrade, quality
from training.networks.find_library import FindLibrary
from training.networks.library import ROOT, Library
from training.tests import pictures


def samples():
    """Portraits, some of them spoilt."""
    random = np.random.default_rng(7)
    paths = sorted((ROOT / "samples").glob("*.png"))[:12]
    kinds = ["moved", "dark", "overexposed", "cut off", "small", "covered"]
    for path, kind in zip(paths, kinds * 2):
        picture = pictures.read_grey_png(path)
        yield picture
        yield degrade.degraded(picture, (128, 128, 140), kind, random)[0]


class LibraryEquality(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.core, cls.finder = Library(), FindLibrary()

    def test_quality_and_reasons_are_the_same(self):
        settings = quality.read_settings()
        faces, reasons = 0, 0
        for picture in samples():
            for face in self.finder.find(picture):
                crop = self.finder.upright(picture, face)
                row = quality.measure(face, picture.shape, crop, settings)
                (value,), (bits,) = quality.judge([row], settings)
                self.assertEqual((value, bits), (face.quality, face.reasons))
                faces, reasons = faces + 1, reasons | face.reasons
        self.assertGreaterEqual(faces, 12)
        self.assertGreater(reasons, 0)

    def test_features_are_those_of_the_records_crops(self):
        for picture in list(samples())[::6]:
            faces, features = self.finder.features(picture)
            self.assertGreater(len(faces), 0)
            for face, feature, plain in zip(faces, features, self.finder.find(picture)):
                mirrored = self.finder.mirrored_feature(self.core, picture, face)
                np.testing.assert_allclose(mirrored, feature, rtol=0, atol=1e-6)
                self.assertEqual(bytes(face), bytes(plain))


class Settings(unittest.TestCase):
    def test_are_read_as_they_are_written(self):
        text = calibrate_quality.SETTINGS.read_text()
        settings = quality.read_settings(text)
        for name in calibrate_quality.BOUNDS:
            value = settings[name]
            settings[name] = tuple(v + 1 for v in value) if isinstance(value, tuple) else value + 1
        again = quality.read_settings(calibrate_quality.written(text, settings))
        self.assertEqual(again, settings)


class Counting(unittest.TestCase):
    """Three pictures of one person, the third of which is like neither of the others."""

    pool = calibrate_quality.Pool(
        np.zeros((3, 9), int), np.array(["as it is"] * 3), np.array([0, 0, 1]), np.array([1, 2, 2]),
        np.array([False, True, True]), 0.5,
    )  # fmt: skip

    def test_rate_of_a_picture_is_that_of_its_pairs(self):
        np.testing.assert_allclose(self.pool.rate_of_each(), [0.5, 0.5, 1.0])

    def test_without_the_worst_its_pairs_are_gone(self):
        self.assertEqual(self.pool.without_worst(np.array([90, 80, 10]), [0.0, 0.3]), [(0.0, 2 / 3), (1.0, 0.0)])
        self.assertEqual(self.pool.without_worst(np.array([10, 80, 90]), [0.3]), [(0.5, 1.0)])

    def test_a_picture_with_one_good_face_is_not_refused(self):
        settings = quality.read_settings()
        # Nothing wrong, or all of it.
        full, none = ([settings[name][at] for name in quality.RAMPS] for at in (1, 0))
        good, bad = [*full, settings["kSureScore"]], [*none, settings["kSureScore"]]
        junk = dict.fromkeys(calibrate_quality.JUNK, [[good, bad], [bad], [], [bad, bad]])
        table = calibrate_quality.as_one_table(junk)
        self.assertEqual(set(calibrate_quality.refused_junk(table, settings).values()), {0.75})


class Flaws(unittest.TestCase):
    def test_the_box_stays_on_the_face(self):
        """A bright spot in the box's middle is there afterwards, wherever the flaw has moved it."""
        picture = np.full((256, 256), 60, np.uint8)
        picture[150:171, 90:111] = 250
        for kind in ("small", "cut off", "turned in the plane"):
            for seed in range(8):
                random = np.random.default_rng(seed)
                out, (x, y, side) = degrade.degraded(picture, (100.5, 160.5, 120), kind, random)
                self.assertEqual(out.dtype, np.uint8)
                if 0 <= x < out.shape[1] and 0 <= y < out.shape[0] and side > 12:
                    self.assertGreater(out[int(y), int(x)], 120, (kind, seed))


if __name__ == "__main__":
    unittest.main()

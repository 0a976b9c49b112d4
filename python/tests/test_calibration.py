# SPDX-License-Identifier: MIT
"""Calibrations in Python against the command line, and files that are none.

ORVO_FR_LIBRARY names the library, KOVA_FR the command line.
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import numpy as np

PACKAGE = Path(__file__).resolve().parent.parent
SAMPLES = sorted((PACKAGE.parent / "samples").glob("*-[0-9].png"))
sys.path.insert(0, str(PACKAGE))

import orvo_fr  # noqa: E402


def kova_fr(*arguments):
    done = subprocess.run([os.environ["KOVA_FR"], *map(str, arguments)], check=True, capture_output=True)
    return done.stdout


class TheCommandLinesNumbers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.path = Path(cls.folder.name) / "samples.calibration"
        folder = Path(cls.folder.name) / "samples"
        folder.mkdir()
        for sample in SAMPLES:
            shutil.copy(sample, folder)
        kova_fr("calibrate", "--crop", "--rounds", 10, "--by-name", "--out", cls.path, folder)
        pictures = SAMPLES[:9]
        output = Path(cls.folder.name) / "features.f32"
        kova_fr("extract", "--crop", "--output", output, *pictures)
        cls.features = np.frombuffer(output.read_bytes(), np.float32).reshape(-1, 128)
        text = kova_fr("compare", "--json", "--crop", "--calibration", cls.path, *pictures)
        cls.wanted = json.loads(text)["calibration"]
        cls.calibration = orvo_fr.Calibration(cls.path)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def test_normalised_scores(self):
        scores = self.calibration.scores(self.features, self.features)
        np.testing.assert_allclose(scores, self.wanted["normalised"], atol=2e-6)
        self.assertAlmostEqual(
            self.calibration.score(self.features[0], self.features[4]), scores[0, 4], delta=2e-6
        )

    def test_centred_scores(self):
        centred = self.calibration.centred(self.features)
        np.testing.assert_allclose(centred @ centred.T, self.wanted["centred"], atol=2e-6)
        self.assertEqual(self.calibration.centred(self.features[0]).shape, (128,))

    def test_rarities(self):
        for scores, rarities in zip(self.wanted["normalised"], self.wanted["rarity"]):
            for score, rarity in zip(scores, rarities):
                self.assertEqual(
                    self.calibration.rarity(score), (rarity["one_in"], rarity["beyond"])
                )

    def test_what_it_was_made_from(self):
        self.assertEqual((self.calibration.pictures, self.calibration.people), (36, 12))
        self.assertEqual(self.calibration.thresholds, self.wanted["thresholds"])

    def test_shapes_are_checked(self):
        with self.assertRaisesRegex(ValueError, "128"):
            self.calibration.centred(np.zeros((3, 127)))
        with self.assertRaisesRegex(ValueError, "128"):
            self.calibration.scores(self.features[0], self.features)

    def refused(self, change, reason):
        contents = json.loads(self.path.read_text())
        change(contents)
        path = Path(self.folder.name) / "changed"
        path.write_text(json.dumps(contents))
        with self.assertRaisesRegex(ValueError, reason):
            orvo_fr.Calibration(path)

    def test_other_files_are_refused(self):
        self.refused(lambda c: c.pop("mean"), "is no calibration")
        self.refused(lambda c: c["mean"].pop(), "is no calibration")
        self.refused(lambda c: c.update(kova_fr_calibration=2), "is no calibration")
        self.refused(lambda c: c.update(cohort=[]), "is no calibration")
        self.refused(lambda c: c.update(models="0" * 64), "other models")
        with self.assertRaises(OSError):
            orvo_fr.Calibration(Path(self.folder.name) / "nowhere")


if __name__ == "__main__":
    unittest.main()

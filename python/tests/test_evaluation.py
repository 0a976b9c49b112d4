# SPDX-License-Identifier: MIT
"""Evaluation in Python against the command line's and against plain definitions.

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
from unittest import mock

import numpy as np

PACKAGE = Path(__file__).resolve().parent.parent
SAMPLES = sorted((PACKAGE.parent / "samples").glob("*-[0-9].png"))
sys.path.insert(0, str(PACKAGE))

import orvo_fr  # noqa: E402
from orvo_fr import _evaluation  # noqa: E402


def people_like(people, pictures, seed=0):
    """Features that lie around one for each person."""
    random = np.random.default_rng(seed)
    middles = random.normal(size=(people, 128))
    person = random.integers(0, people, pictures)
    features = (middles[person] + 1.5 * random.normal(size=(pictures, 128))).astype(np.float32)
    return features / np.linalg.norm(features, axis=1, keepdims=True), person


class TheCommandLinesFigures(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        command = [os.environ["KOVA_FR"], "eval", "--json", "--rounds", "10", "--by-name", "--crop"]
        with tempfile.TemporaryDirectory() as folder:
            for sample in SAMPLES:
                shutil.copy(sample, folder)
            done = subprocess.run([*command, folder], check=True, capture_output=True)
        cls.wanted = json.loads(done.stdout)
        people = [path.stem.rsplit("-", 1)[0] for path in SAMPLES]
        cls.evaluation = orvo_fr.evaluate(orvo_fr.extract_many(SAMPLES), people)

    def test_pairs_and_people(self):
        for name in ("people", "pictures", "same_pairs", "different_pairs"):
            self.assertEqual(getattr(self.evaluation, name), self.wanted[name])

    def test_figures(self):
        for name in ("equal_error_rate", "area_under_curve", "rank_1"):
            self.assertAlmostEqual(getattr(self.evaluation, name), self.wanted[name]["value"], 12)

    def test_rates_at_thresholds(self):
        for one in self.wanted["table"]:
            rates = self.evaluation.at(one["threshold"])
            self.assertEqual(rates.threshold, one["threshold"])
            self.assertEqual(rates.false_accepts, one["false_accepts"]["rate"])
            self.assertEqual(rates.false_rejects, one["false_rejects"]["rate"])

    def test_recommended_thresholds(self):
        for ours, one in zip(self.evaluation.recommended, self.wanted["recommended"]):
            self.assertEqual(ours.wanted, one["wanted_false_accepts"])
            self.assertEqual(ours.rates and ours.rates.threshold, one["threshold"])
        self.assertIsNone(self.evaluation.recommended[3].rates)

    def test_a_data_frame(self):
        try:
            import pandas  # noqa: F401
        except ImportError:
            self.skipTest("pandas is not there")
        frame = self.evaluation.to_frame()
        self.assertEqual(list(frame.columns), ["threshold", "false_accepts", "false_rejects"])
        self.assertEqual(len(frame), len(self.wanted["table"]))
        wanted = [one["false_rejects"]["rate"] for one in self.wanted["table"]]
        np.testing.assert_array_equal(frame["false_rejects"], wanted)
        self.assertEqual(len(self.evaluation.to_frame([0.4, 0.5])), 2)


class PlainDefinitions(unittest.TestCase):
    def setUp(self):
        self.features, self.person = people_like(9, 60)
        self.scores = orvo_fr.distances(self.features)
        self.evaluation = orvo_fr.evaluate(self.features, self.person.tolist())

    def pairs(self, same):
        pairs = [(i, j) for i in range(60) for j in range(i)]
        return np.array([self.scores[i, j] for i, j in pairs
                         if (self.person[i] == self.person[j]) == same])

    def test_counts_at_thresholds(self):
        same, different = self.pairs(True), self.pairs(False)
        for threshold in (-1.0001, -0.05, 0, 0.1234, 0.3, 1):
            rates = self.evaluation.at(threshold)
            level = np.float32(threshold)
            self.assertEqual(rates.false_accepts, (different >= level).mean())
            self.assertEqual(rates.false_rejects, (same < level).mean())

    def test_a_score_that_equals_a_threshold_is_accepted_by_it(self):
        levels = np.arange(-10000, 10001) / 10000
        ranks = _evaluation._ranks(levels.astype(np.float32))
        np.testing.assert_array_equal(ranks, np.arange(1, 20002))
        below = np.nextafter(levels.astype(np.float32), np.float32(-2))
        np.testing.assert_array_equal(_evaluation._ranks(below), ranks - 1)

    def test_rank_1(self):
        first = {}
        own_pictures = {p: np.flatnonzero(self.person == p) for p in set(self.person.tolist())}
        shares = []
        rounds = min(10, max(map(len, own_pictures.values())))
        for picture in range(60):
            right = []
            for turn in range(rounds):
                first = {p: own[turn % len(own)] for p, own in own_pictures.items()}
                if picture in first.values():
                    continue
                best = max(first, key=lambda p: self.scores[picture, first[p]])
                right.append(best == self.person[picture])
            if right:
                shares.append(np.mean(right))
        self.assertAlmostEqual(self.evaluation.rank_1, np.mean(shares), 12)
        self.assertLess(self.evaluation.rank_1, 1)

    def test_parts_of_any_size_give_the_same(self):
        for size in (1, 7, 59):
            with mock.patch.object(_evaluation, "PART", size):
                other = orvo_fr.evaluate(self.features, self.person)
            np.testing.assert_array_equal(other.same, self.evaluation.same)
            np.testing.assert_array_equal(other.different, self.evaluation.different)
            self.assertEqual(other.rank_1, self.evaluation.rank_1)

    def test_scores_of_pairs_in_a_frame(self):
        try:
            import pandas  # noqa: F401
        except ImportError:
            self.skipTest("pandas is not there")
        names = [f"{i}.png" for i in range(60)]
        frame = orvo_fr.pair_scores(self.features, self.person, names)
        self.assertEqual(len(frame), 60 * 59 // 2)
        for row in frame.sample(20, random_state=1).itertuples():
            i, j = names.index(row.first), names.index(row.second)
            self.assertEqual(row.same, self.person[i] == self.person[j])
            self.assertEqual(np.float32(row.score), self.scores[i, j])
        self.assertEqual(sorted(frame["score"][frame["same"]]), sorted(self.pairs(True)))


class WhatCannotBeSaid(unittest.TestCase):
    def test_one_person_or_one_picture_of_each(self):
        features, _ = people_like(3, 6)
        one = orvo_fr.evaluate(features, ["Ada"] * 6)
        self.assertEqual((one.same_pairs, one.different_pairs), (15, 0))
        self.assertEqual((one.equal_error_rate, one.rank_1, one.at(0).false_accepts), (None,) * 3)
        each = orvo_fr.evaluate(features, range(6))
        self.assertEqual((each.same_pairs, each.area_under_curve, each.rank_1), (0, None, None))
        self.assertEqual([one.rates for one in each.recommended], [None] * 4)
        nobody = orvo_fr.evaluate(features[:0], [])
        self.assertEqual((nobody.pictures, nobody.people, nobody.rank_1), (0, 0, None))

    def test_arguments(self):
        features, person = people_like(3, 6)
        with self.assertRaisesRegex(ValueError, "each of 6 features"):
            orvo_fr.evaluate(features, person[:5])
        with self.assertRaisesRegex(ValueError, "unit length"):
            orvo_fr.evaluate(features * 2, person)
        for threshold in (0.12345, 1.1, -2):
            with self.assertRaisesRegex(ValueError, "multiple of 0.0001"):
                orvo_fr.evaluate(features, person).at(threshold)

    def test_without_pandas(self):
        features, person = people_like(3, 6)
        with mock.patch.dict(sys.modules, {"pandas": None}):
            with self.assertRaisesRegex(ImportError, "install it"):
                orvo_fr.evaluate(features, person).to_frame()


if __name__ == "__main__":
    unittest.main()

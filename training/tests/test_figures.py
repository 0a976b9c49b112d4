# SPDX-License-Identifier: MIT
"""Figures of merit on cases that can be worked out by hand."""
import unittest

import numpy as np

from training.evaluation import metrics
from training.evaluation.cone import cone_figures
from training.evaluation.pairs import Pairs, area, equal_error, figures, tar_at, verification_accuracy


def _people(count, each, spread, seed=0):
    """Random directions of people and pictures around them."""
    random = np.random.default_rng(seed)
    centres = random.normal(size=(count, 128))
    people = np.repeat(np.arange(count), each)
    features = centres[people] + spread * random.normal(size=(count * each, 128))
    features /= np.linalg.norm(features, axis=1, keepdims=True)
    return [str(p) for p in people], features.astype(np.float32)


class Figures(unittest.TestCase):
    def test_scores_worked_out_by_hand(self):
        same, different = np.array([0.9, 0.8, 0.4, 0.7]), np.array([0.5, 0.1, 0.2, 0.3])
        self.assertEqual(metrics.tar_at_far(same, different, 0.0), 0.75)
        self.assertEqual(metrics.tar_at_far(same, different, 0.25), 1.0)
        self.assertEqual(metrics.equal_error_rate(same, different), 0.25)

    def test_people_far_apart_are_told_apart(self):
        people, features = _people(20, 5, spread=0.1)
        result = figures(Pairs(people).score(features), rounds=20)
        for name, goal in (("accuracy", 1), ("tar_at_far_1e-3", 1), ("rank_1", 1), ("eer", 0)):
            self.assertAlmostEqual(result[name][0], goal, places=3, msg=name)

    def test_features_that_know_nothing_score_by_chance(self):
        people, _ = _people(30, 6, spread=0.1)
        features = _people(180, 1, spread=0.1, seed=5)[1]
        result = figures(Pairs(people).score(features), rounds=50)
        for name, goal in (("accuracy", 0.5), ("auc", 0.5), ("eer", 0.5)):
            value, low, high = result[name]
            self.assertAlmostEqual(value, goal, delta=0.06, msg=name)
            self.assertLessEqual(low, value)
            self.assertLessEqual(value, high)
            self.assertGreater(high, low)

    def test_both_ways_of_counting_agree(self):
        people, features = _people(25, 6, spread=1.6)
        pairs = Pairs(people)
        far, tar = pairs.score(features).curves()
        same, different = metrics.pair_scores(features, people)
        self.assertEqual((len(same), len(different)), (len(pairs.same[0]), len(pairs.different[0])))
        self.assertAlmostEqual(
            tar_at(far, tar, 1e-2), metrics.tar_at_far(same, different, 1e-2), delta=0.02
        )
        self.assertAlmostEqual(
            equal_error(far, tar), metrics.equal_error_rate(same, different), delta=0.005
        )

    def test_the_area_counts_the_pairs_in_right_order(self):
        people, features = _people(12, 4, spread=1.6)
        same, different = metrics.pair_scores(features, people)
        right = (same[:, None] > different[None, :]).mean()
        far, tar = Pairs(people).score(features).curves()
        self.assertAlmostEqual(area(far, tar), right, delta=0.002)

    def test_overlapping_scores_are_judged_with_some_errors(self):
        people, features = _people(40, 5, spread=1.2)
        accuracy, error = verification_accuracy(Pairs(people).score(features))
        self.assertGreater(accuracy, 0.8)
        self.assertLess(accuracy, 1.0)
        self.assertGreater(error, 0.0)


class Cone(unittest.TestCase):
    def test_what_strangers_share_moves_threshold_and_mean(self):
        people, features = _people(20, 5, spread=0.1)
        apart = cone_figures(features, people)
        self.assertLess(abs(apart["mean_of_strangers"]), 0.05)
        shared = features + 0.1 * features[:1] * 10
        shared /= np.linalg.norm(shared, axis=1, keepdims=True)
        threshold = apart["thresholds"]["0.01"]
        cone = cone_figures(shared, people, [threshold])
        self.assertGreater(cone["mean_of_strangers"], 0.3)
        self.assertGreater(cone["length_of_mean"], apart["length_of_mean"] + 0.3)
        self.assertGreater(cone["at"][f"{threshold:g}"]["false_accepts"], 0.5)

    def test_thresholds_give_the_rates_they_are_named_by(self):
        people, features = _people(60, 4, spread=2.0)
        cone = cone_figures(features, people)
        again = cone_figures(features, people, [cone["thresholds"]["0.01"]])
        (entry,) = again["at"].values()
        self.assertAlmostEqual(entry["false_accepts"], 0.01, places=3)


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: MIT
"""orvo_fr.cluster on a scheduler and two workers, each a process: the results of one machine, bit for
bit, also when a worker is killed in the middle.

ORVO_FR_LIBRARY names the library.
"""
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

import numpy as np
from PIL import Image

PACKAGE = Path(__file__).resolve().parent.parent
SAMPLES = sorted((PACKAGE.parent / "samples").glob("*-[0-9].png"))
sys.path[:0] = [str(PACKAGE), str(PACKAGE / "tests")]

import orvo_fr  # noqa: E402
from local_cluster import Cluster  # noqa: E402
from orvo_fr import cluster  # noqa: E402


def people_like(people, pictures):
    random = np.random.default_rng(0)
    person = random.integers(0, people, pictures)
    features = random.normal(size=(people, 128))[person] + 1.5 * random.normal(size=(pictures, 128))
    features = (features / np.linalg.norm(features, axis=1, keepdims=True)).astype(np.float32)
    return features, person


class OnTwoWorkers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.cluster = Cluster(cls.folder)
        cls.addClassCleanup(cls.cluster.stop)
        cls.make_pictures()
        cls.make_gallery()
        cls.features, cls.person = people_like(300, 4500)
        cls.evaluation = orvo_fr.evaluate(cls.features, cls.person)

    @classmethod
    def make_pictures(cls):
        cls.pictures = cls.folder / "pictures"
        for i, path in enumerate(SAMPLES * 4):
            place = cls.pictures / path.stem.split("-")[0]
            place.mkdir(parents=True, exist_ok=True)
            shutil.copy(path, place / f"{i}.png")
        (cls.pictures / "text.jpg").write_text("no picture")
        Image.new("L", (100, 100)).save(cls.pictures / "black.png")

    @classmethod
    def make_gallery(cls):
        """With entries that are equally alike, in one shard and in several."""
        features, _ = people_like(5, 3000)
        for first in (0, 1400, 2900):
            features[first : first + 60] = features[700:760]
        gallery = orvo_fr.Gallery()
        for i, feature in enumerate(features):
            gallery.add(f"p{i % 911}", feature)
        cls.gallery = cls.folder / "people.gallery"
        gallery.save(cls.gallery)
        cls.wanted = np.concatenate([features[690:770], people_like(5, 1000)[0]])
        cls.found = gallery.search(cls.wanted, 7)

    def setUp(self):
        self.cluster.have_workers(2)
        self.client = self.cluster.client
        self.killed = []

    def kill_in_the_middle(self, done, total):
        """Takes one of the two workers away when the first task is done, and others are left."""
        if not self.killed:
            self.assertLess(done, total)
            self.cluster.kill_one()
            self.killed.append(total - done)

    def assert_same_evaluation(self, evaluation):
        np.testing.assert_array_equal(evaluation.same, self.evaluation.same)
        np.testing.assert_array_equal(evaluation.different, self.evaluation.different)
        self.assertEqual(evaluation.rank_1, self.evaluation.rank_1)
        self.assertEqual(evaluation.equal_error_rate, self.evaluation.equal_error_rate)

    def assert_same_extractions(self, found, whole):
        wanted = orvo_fr.extract_folder(self.pictures, whole=whole)
        self.assertEqual(len(found), len(SAMPLES) * 4 + 2)
        self.assertEqual([(f.path, f.error) for f in found], [(w.path, w.error) for w in wanted])
        for one, other in zip(found, wanted):
            self.assertEqual(one.feature is None, other.feature is None)
            self.assertEqual(one.face is None, other.face is None)
            if other.feature is not None:
                self.assertEqual(one.feature.tobytes(), other.feature.tobytes())
            if other.face is not None:
                self.assertEqual((one.face.box, one.face.quality), (other.face.box, other.face.quality))
        return wanted

    def test_folders(self):
        found = cluster.extract_folder(self.client, self.pictures)
        wanted = self.assert_same_extractions(found, True)
        self.assertGreater(sum(one.feature is not None for one in wanted), 0)
        errors = {Path(one.path).name: one.error for one in wanted if one.error}
        self.assertIn("text.jpg", errors["text.jpg"])
        self.assertEqual(errors["black.png"], "there is no face")

    def test_folders_of_crops_while_a_worker_is_killed(self):
        found = cluster.extract_folder(
            self.client, self.pictures, whole=False, progress=self.kill_in_the_middle
        )
        self.assertTrue(self.killed)
        self.assert_same_extractions(found, False)

    def test_all_pairs(self):
        steps = []
        evaluation = cluster.evaluate(
            self.client, self.features, self.person, progress=lambda *step: steps.append(step)
        )
        self.assert_same_evaluation(evaluation)
        self.assertEqual(steps, [(i + 1, len(steps)) for i in range(len(steps))])
        self.assertGreater(len(steps), 2)

    def test_all_pairs_while_a_worker_is_killed(self):
        self.assert_same_evaluation(
            cluster.evaluate(
                self.client, self.features, self.person, progress=self.kill_in_the_middle
            )
        )
        self.assertTrue(self.killed)

    def test_search_in_any_number_of_shards(self):
        for number in (None, 1, 5, 17):
            shards = cluster.Shards(self.client, self.gallery, shards=number)
            self.assertEqual(shards.entries, 3000)
            self.assertEqual(shards.search(self.wanted, 7), self.found)
        ties = [m for m in self.found[20] if m.distance == self.found[20][0].distance]
        self.assertGreater(len(ties), 2)
        self.assertEqual(ties, sorted(ties, key=lambda match: match.entry))
        self.assertEqual(shards.search(self.wanted[:0]), [])

    def test_both_workers_hold_shards(self):
        shards = cluster.Shards(self.client, self.gallery)
        holders = self.client.who_has(shards._shards)
        self.assertEqual(len({worker for one in holders.values() for worker in one}), 2)

    def test_search_while_a_worker_that_holds_shards_is_killed(self):
        shards = cluster.Shards(self.client, self.gallery, shards=6)
        self.assertEqual(
            shards.search(self.wanted, 7, progress=self.kill_in_the_middle), self.found
        )
        self.assertTrue(self.killed)
        self.assertEqual(shards.search(self.wanted, 7), self.found)

    def test_a_gallery_that_changes_is_not_mixed_with_what_it_was(self):
        path = self.folder / "changing.gallery"
        shutil.copy(self.gallery, path)
        shards = cluster.Shards(self.client, path, shards=6)
        with orvo_fr.Gallery.changing(path) as gallery:
            gallery.remove("p5")
        self.cluster.kill_one()
        with self.assertRaisesRegex(ValueError, "has changed"):
            shards.search(self.wanted, 7)

    def test_errors_come_to_the_caller(self):
        with self.assertRaisesRegex(ValueError, "no gallery"):
            cluster.Shards(self.client, SAMPLES[0])
        with self.assertRaises(OSError):
            cluster.extract_folder(self.client, self.folder / "nowhere")
        with self.assertRaisesRegex(ValueError, "unit length"):
            cluster.evaluate(self.client, self.features[:50] * 2, self.person[:50])


if __name__ == "__main__":
    unittest.main()

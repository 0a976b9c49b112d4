# SPDX-License-Identifier: MIT
"""Galleries in Python against the command line's, and files that are none.

ORVO_FR_LIBRARY names the library, KOVA_FR the command line.
"""
import hashlib
import json
import os
import stat
import struct
import subprocess
import sys
import tempfile
import threading
import unittest
from pathlib import Path
from unittest import mock

import numpy as np

PACKAGE = Path(__file__).resolve().parent.parent
SAMPLES = sorted((PACKAGE.parent / "samples").glob("*-[0-9].png"))
sys.path.insert(0, str(PACKAGE))

import orvo_fr  # noqa: E402
from orvo_fr import _gallery  # noqa: E402


def kova_fr(*arguments):
    command = [os.environ["KOVA_FR"], *map(str, arguments)]
    return subprocess.run(command, check=True, capture_output=True).stdout


def random_features(count, seed=0):
    features = np.random.default_rng(seed).normal(size=(count, 128)).astype(np.float32)
    return features / np.linalg.norm(features, axis=1, keepdims=True)


def gallery_of(features, names):
    gallery = orvo_fr.Gallery()
    for name, feature in zip(names, features):
        gallery.add(name, feature)
    return gallery


class InAFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.path = self.folder / "people.gallery"


class TheCommandLinesFiles(InAFolder):
    def test_what_it_enrolled_is_read(self):
        kova_fr("enroll", "--crop", self.path, "Ada", *SAMPLES[:2])
        kova_fr("enroll", "--crop", self.path, "Zoë Ünsal", SAMPLES[3])
        gallery = orvo_fr.Gallery.load(self.path)
        self.assertEqual(gallery.names, ["Ada", "Ada", "Zoë Ünsal"])
        output = self.folder / "features"
        kova_fr("extract", "--crop", "--output", output, *SAMPLES[:2], SAMPLES[3])
        self.assertEqual(gallery.features.tobytes(), output.read_bytes())

    def test_it_reads_and_goes_on_with_what_was_saved(self):
        with orvo_fr.Gallery.changing(self.path) as gallery:
            for path in SAMPLES[:6]:
                gallery.add(path.stem.split("-")[0], orvo_fr.extract(path))
        answer = json.loads(kova_fr("gallery", "--json", self.path))
        counted = {one["name"]: one["features"] for one in answer["names"]}
        self.assertEqual(counted, {name: gallery.names.count(name) for name in set(gallery.names)})
        kova_fr("enroll", "--crop", self.path, "late", SAMPLES[9])
        again = orvo_fr.Gallery.load(self.path)
        self.assertEqual(again.names, [*gallery.names, "late"])
        np.testing.assert_array_equal(again.features[:-1], gallery.features)

    def test_the_same_bytes_as_it_writes(self):
        """Of one addition: those that follow may lie in other blocks."""
        kova_fr("enroll", "--crop", self.path, "Ada", *SAMPLES[:3])
        other = self.folder / "other.gallery"
        orvo_fr.Gallery.load(self.path).save(other)
        self.assertEqual(other.read_bytes(), self.path.read_bytes())

    def test_the_same_search(self):
        features = orvo_fr.extract_many(SAMPLES)
        gallery_of(features[4:], [p.stem.split("-")[0] for p in SAMPLES[4:]]).save(self.path)
        for picture in (0, 7):
            answer = json.loads(
                kova_fr("identify", "--json", "--crop", "--top", 5, self.path, SAMPLES[picture])
            )
            wanted = answer["pictures"][0]["matches"]
            (found,) = orvo_fr.Gallery.load(self.path).search(features[picture : picture + 1], 5)
            self.assertEqual(
                [(match.name, match.entry) for match in found],
                [(one["name"], one["entry"]) for one in wanted],
            )
            np.testing.assert_allclose([m.distance for m in found], [o["distance"] for o in wanted])


class Search(unittest.TestCase):
    def by_hand(self, gallery, feature, count):
        """Every entry in the order of its likeness; each name where it comes first."""
        scores = [orvo_fr.distance(feature, other) for other in gallery.features]
        order = sorted((-s, i) for i, s in enumerate(scores) if np.isfinite(s))
        ranked = {}
        for score, entry in order:
            ranked.setdefault(gallery.names[entry], (gallery.names[entry], -score, entry))
        return list(ranked.values())[:count]

    def test_as_by_hand_with_ties(self):
        features = random_features(400)
        features[50:90] = features[10:50]  # forty that are equally alike
        gallery = gallery_of(features, [f"p{i % 70}" for i in range(400)])
        wanted = random_features(5, 1)
        wanted[0] = features[60]
        for block in (7, 100, 1 << 14):
            with mock.patch.object(_gallery, "_SEARCH_BLOCK", block):
                for count in (1, 3, 100):
                    found = gallery.search(wanted, count)
                    self.assertEqual(found, [self.by_hand(gallery, w, count) for w in wanted])

    def test_what_is_no_number_matches_nothing(self):
        gallery = gallery_of(random_features(3), "abc")
        wanted = random_features(2, 1)
        wanted[0, 0] = np.nan
        found = gallery.search(wanted, 3)
        self.assertEqual((found[0], len(found[1])), ([], 3))
        self.assertEqual(orvo_fr.Gallery().search(wanted), [[], []])

    def test_arguments(self):
        gallery = gallery_of(random_features(3), "abc")
        for wrong, error in ((0, ValueError), (1.0, TypeError), (True, TypeError)):
            with self.assertRaises(error):
                gallery.search(random_features(1), wrong)
        with self.assertRaises(ValueError):
            gallery.search(random_features(1)[0])


class Changes(InAFolder):
    def test_names_and_features_are_checked(self):
        gallery = orvo_fr.Gallery()
        feature = random_features(1)[0]
        for name in ("", "a\n", "x\x1b[31m", "\u202egnp", "n" * 1001, "\udcff"):
            with self.assertRaisesRegex(ValueError, "a name has"):
                gallery.add(name, feature)
        with self.assertRaisesRegex(TypeError, "string"):
            gallery.add(5, feature)
        for wrong in (feature * 2, feature * np.nan, feature[:5]):
            with self.assertRaisesRegex(ValueError, "feature must"):
                gallery.add("Ada", wrong)
        self.assertEqual(len(gallery), 0)
        gallery.add("n" * 1000, feature)

    def test_a_gallery_keeps_copies(self):
        feature = random_features(1)[0]
        gallery = gallery_of([feature], ["Ada"])
        before = feature.copy()
        feature[:] = 0
        np.testing.assert_array_equal(gallery.features[0], before)
        with self.assertRaises(ValueError):
            gallery.features[0] = 0

    def test_all_features_of_a_name_go(self):
        features = random_features(5)
        gallery = gallery_of(features, "abaca")
        self.assertEqual((gallery.remove("a"), gallery.remove("x"), gallery.names), (3, 0, ["b", "c"]))
        np.testing.assert_array_equal(gallery.features, features[[1, 3]])

    def test_many_blocks_and_parts_of_them(self):
        features = random_features(1500)
        names = [f"person {i}" for i in range(1500)]
        gallery_of(features, names).save(self.path)
        again = orvo_fr.Gallery.load(self.path)
        self.assertEqual(again.names, names)
        np.testing.assert_array_equal(again.features, features)
        for since, until in ((0, 1), (500, 1100), (512, 1024), (1499, 9999), (600, 600)):
            blocks = list(_gallery.read_blocks(self.path, since, until))
            self.assertEqual(sum((b.names for b in blocks), []), names[since:until])
            self.assertEqual([b.first_entry for b in blocks][:1], [since][: len(blocks)])
            for block in blocks:
                np.testing.assert_array_equal(
                    block.features, features[block.first_entry :][: len(block.names)]
                )

    def test_new_files_are_private_and_old_ones_keep_their_rights(self):
        gallery = gallery_of(random_features(2), "ab")
        gallery.save(self.path)
        self.assertEqual(stat.S_IMODE(self.path.stat().st_mode), 0o600)
        self.path.chmod(0o640)
        gallery.save(self.path)
        self.assertEqual(stat.S_IMODE(self.path.stat().st_mode), 0o640)
        link = self.folder / "link"
        link.symlink_to(self.path)
        gallery.save(link)
        self.assertTrue(link.is_symlink())
        self.assertEqual(os.listdir(self.folder).sort(), ["link", "people.gallery"].sort())

    def test_a_read_only_gallery_stays(self):
        gallery_of(random_features(2), "ab").save(self.path)
        before = self.path.read_bytes()
        self.path.chmod(0o400)
        with self.assertRaisesRegex(PermissionError, "read-only"):
            orvo_fr.Gallery().save(self.path)
        self.assertEqual(self.path.read_bytes(), before)

    def test_a_failure_changes_nothing_and_leaves_nothing(self):
        gallery_of(random_features(2), "ab").save(self.path)
        before = self.path.read_bytes()
        with self.assertRaises(KeyError):
            with orvo_fr.Gallery.changing(self.path) as gallery:
                gallery.remove("a")
                raise KeyError
        with mock.patch("os.fsync", side_effect=OSError("the disk is full")):
            with self.assertRaisesRegex(OSError, "full"):
                orvo_fr.Gallery().save(self.path)
        self.assertEqual((self.path.read_bytes(), os.listdir(self.folder)), (before, [self.path.name]))

    def test_threads_that_change_at_once_lose_nothing(self):
        features = random_features(8)

        def add(number):
            with orvo_fr.Gallery.changing(self.path) as gallery:
                gallery.add(f"n{number}", features[number])

        threads = [threading.Thread(target=add, args=(i,)) for i in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(set(orvo_fr.Gallery.load(self.path).names), {f"n{i}" for i in range(8)})


class Files(InAFolder):
    def setUp(self):
        super().setUp()
        gallery_of(random_features(600), [f"n{i}" for i in range(600)]).save(self.path)
        self.whole = self.path.read_bytes()

    def refused(self, data, reason):
        self.path.write_bytes(data)
        with self.assertRaisesRegex(ValueError, f"{self.path}: .*{reason}"):
            orvo_fr.Gallery.load(self.path)

    def test_every_changed_byte_of_the_header_and_some_of_the_blocks(self):
        places = [*range(8, 130), 1000, 264000, len(self.whole) - 1]
        for place in places:
            changed = bytearray(self.whole)
            changed[place] ^= 1
            self.path.write_bytes(changed)
            with self.assertRaises(ValueError, msg=str(place)):
                orvo_fr.Gallery.load(self.path)

    def test_what_is_cut_short(self):
        self.refused(b"", "no gallery")
        for size in (12, 95, 96, 5000, len(self.whole) - 1):
            self.refused(self.whole[:size], "damaged or cut short")
        self.refused(b"KFRGALRZ" + self.whole[8:], "no gallery")
        self.refused(self.whole[:8] + b"\3" + self.whole[9:], "version 3")
        with self.assertRaises(OSError):
            orvo_fr.Gallery.load(self.folder / "nowhere")

    def test_blocks_that_change_places(self):
        first = 96 + 16 + 512 * 512 + struct.unpack_from("<I", self.whole, 96 + 12)[0] + 16
        self.refused(self.whole[:96] + self.whole[first:] + self.whole[96:first], "damaged")

    def test_an_addition_that_did_not_come_to_its_end_does_not_count(self):
        self.path.write_bytes(self.whole + b"half a block")
        self.assertEqual(orvo_fr.Gallery.load(self.path).features.shape, (600, 128))

    def test_a_header_lost_while_it_was_exchanged_has_a_copy_at_the_end(self):
        self.path.write_bytes(self.whole[:50] + bytes(46) + self.whole[96:] + self.whole[:96])
        self.assertEqual(orvo_fr.Gallery.load(self.path).features.shape, (600, 128))

    def test_features_of_other_models(self):
        with mock.patch.object(_gallery, "models_digest", return_value="00" * 32):
            orvo_fr.Gallery().save(self.path)
        with self.assertRaisesRegex(ValueError, "other models"):
            orvo_fr.Gallery.load(self.path)

    def test_what_is_no_feature(self):
        with mock.patch.object(_gallery, "_no_features", return_value=[]):
            gallery_of(random_features(3) * 2, "abc").save(self.path)
        with self.assertRaisesRegex(ValueError, "entry 0 .* no feature"):
            orvo_fr.Gallery.load(self.path)

    def test_version_1(self):
        features = random_features(600, 4)
        names = [f"n{i}" for i in range(600)]
        data = b"KFRGALRY" + struct.pack("<IIQ", 1, 128, 600) + bytes.fromhex(orvo_fr.models_digest())
        data += features.tobytes()
        data += b"".join(struct.pack("<H", len(name)) + name.encode() for name in names)
        data += hashlib.sha256(data).digest()
        self.path.write_bytes(data)
        gallery = orvo_fr.Gallery.load(self.path)
        self.assertEqual(gallery.names, names)
        np.testing.assert_array_equal(gallery.features, features)
        self.refused(data[:-1] + bytes([data[-1] ^ 1]), "damaged")
        self.refused(data[:-1], "damaged")


if __name__ == "__main__":
    unittest.main()

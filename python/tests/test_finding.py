# SPDX-License-Identifier: MIT
"""find() and faces() against the command line, and what they make of arrays and threads.

ORVO_FR_LIBRARY names the library, KOVA_FR the command line.
"""
import json
import os
import subprocess
import sys
import tempfile
import threading
import unittest
from pathlib import Path

import cv2
import numpy as np

PACKAGE = Path(__file__).resolve().parent.parent
SAMPLES = sorted((PACKAGE.parent / "samples").glob("*-[0-9].png"))
sys.path.insert(0, str(PACKAGE))

import orvo_fr  # noqa: E402


def sample(number):
    return cv2.imread(str(SAMPLES[number]), cv2.IMREAD_GRAYSCALE)


def photograph():
    """Three samples side by side on grey, one of them small."""
    scene = np.full((400, 700), 120, np.uint8)
    for left, number, step in ((10, 0, 1), (280, 6, 1), (560, 10, 2)):
        face = sample(number)[::step, ::step]
        scene[50 : 50 + face.shape[0], left : left + face.shape[1]] = face
    return scene


def printed(picture):
    """The faces that the command line prints."""
    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder) / "picture.pgm"
        cv2.imwrite(str(path), picture)
        command = [os.environ["KOVA_FR"], "find", "--json", path]
        done = subprocess.run(command, check=True, capture_output=True)
    return json.loads(done.stdout)["pictures"][0]["faces"]


class TheSameFaces(unittest.TestCase):
    def test_as_the_command_line(self):
        found = 0
        for picture in (photograph(), sample(3)):
            wanted, faces = printed(picture), orvo_fr.find(picture)
            self.assertEqual(len(faces), len(wanted))
            found += len(faces)
            for face, other in zip(faces, wanted):
                box = other["box"]
                self.assertEqual(face.box, (box["x"], box["y"], box["width"]))
                self.assertEqual(face.score, other["score"])
                points = [[point["x"], point["y"]] for point in other["landmarks"].values()]
                np.testing.assert_array_equal(face.landmarks, np.float32(points))
                self.assertEqual((face.yaw, face.quality), (other["yaw"], other["quality"]))
                self.assertEqual(list(face.reasons), other["reasons"])
                self.assertAlmostEqual(face.roll, other["roll"], 4)
                self.assertAlmostEqual(face.covered, other["covered"], 6)
                self.assertIsNone(face.feature)
        self.assertGreater(found, 0)

    def test_features_know_the_same_face_in_another_place(self):
        picture = photograph()
        faces = orvo_fr.faces(picture)
        for face, found in zip(faces, orvo_fr.find(picture), strict=True):
            np.testing.assert_array_equal(face.landmarks, found.landmarks)
            self.assertEqual((face.score, face.quality), (found.score, found.quality))
            self.assertEqual(face.box, found.box)
        self.assertGreater(len(faces), 0)
        # By whole strides of both levels, so that the network sees the same.
        moved = np.full((464, 764), 120, np.uint8)
        moved[64:, 64:] = picture
        again = orvo_fr.faces(moved)
        for face in faces:
            self.assertEqual((face.feature.dtype, face.feature.shape), (np.float32, (128,)))
            self.assertAlmostEqual(float(np.dot(face.feature, face.feature)), 1, 5)
        best = max(orvo_fr.distance(faces[0].feature, other.feature) for other in again)
        self.assertGreater(best, 0.8)


    def test_mirrored_features_lie_near_the_plain_ones(self):
        picture = photograph()
        mirrored, plain = orvo_fr.faces(picture), orvo_fr.faces(picture, mirrored=False)
        self.assertGreater(len(mirrored), 0)
        for one, other in zip(mirrored, plain, strict=True):
            self.assertEqual(one.box, other.box)
            near = orvo_fr.distance(one.feature, other.feature)
            self.assertGreater(near, 0.7)
            self.assertLess(near, 1)


class Arguments(unittest.TestCase):
    def test_any_strides_will_do(self):
        picture = photograph()
        wanted = [face.box for face in orvo_fr.find(picture)]
        wide = np.zeros((400, 1000), np.uint8)
        wide[:, 100:800] = picture
        backwards = picture[::-1].copy()[::-1]
        for other in (wide[:, 100:800], np.asfortranarray(picture), backwards):
            self.assertEqual([face.box for face in orvo_fr.find(other)], wanted)

    def test_the_array_is_only_read(self):
        picture = photograph()
        before = picture.copy()
        picture.flags.writeable = False
        orvo_fr.faces(picture)
        np.testing.assert_array_equal(picture, before)

    def test_sizes(self):
        for shape in ((24, 24), (30, 1000), (2600, 1300), (50, 50, 3), (50, 50, 4), (8300, 200)):
            orvo_fr.find(np.full(shape, 90, np.uint8))
        for shape in ((23, 100), (100, 23), (8193, 40), (100,), (50, 50, 2), (0, 0)):
            with self.assertRaises(ValueError, msg=str(shape)):
                orvo_fr.find(np.zeros(shape, np.uint8))
        with self.assertRaises(ValueError):
            orvo_fr.find(np.zeros((2000, 2000), np.uint8), smallest=20)
        with self.assertRaises(ValueError):
            orvo_fr.find(np.zeros((24, 5000), np.uint8))

    def test_colours_are_seen_as_their_grey_levels(self):
        grey = photograph()
        tinted = np.stack([grey, grey // 2, 255 - grey], axis=2)
        wanted = [face.box for face in orvo_fr.find(orvo_fr.grey(tinted))]
        self.assertEqual([face.box for face in orvo_fr.find(tinted)], wanted)
        turned = orvo_fr.find(tinted[..., ::-1], channels="BGR")
        self.assertEqual([face.box for face in turned], wanted)

    def test_a_side_beyond_the_librarys_is_halved_as_the_command_line_does(self):
        wide = np.full((1600, 8400), 120, np.uint8)
        wide[:, -2800:] = photograph().repeat(4, axis=0).repeat(4, axis=1)
        faces, wanted = orvo_fr.find(wide), printed(wide)
        self.assertGreater(len(faces), 0)
        self.assertEqual([f.box for f in faces],
                         [(w["box"]["x"], w["box"]["y"], w["box"]["width"]) for w in wanted])
        points = [[[p["x"], p["y"]] for p in w["landmarks"].values()] for w in wanted]
        np.testing.assert_array_equal([f.landmarks for f in faces], np.float32(points))
        self.assertEqual([f.box for f in orvo_fr.faces(wide)], [f.box for f in faces])
        self.assertEqual(orvo_fr.find(wide, smallest=200)[0].box, orvo_fr.find(wide, smallest=201)[0].box)

    def test_what_is_no_picture(self):
        for wrong in (None, [[1]], np.zeros((50, 50)), np.zeros((50, 50), np.int8)):
            with self.assertRaises(TypeError):
                orvo_fr.find(wrong)

    def test_what_is_no_number(self):
        picture = np.zeros((50, 50), np.uint8)
        for name in ("smallest", "most"):
            for wrong in ("20", 20.0, True):
                with self.assertRaises(TypeError):
                    orvo_fr.find(picture, **{name: wrong})
            for wrong in (0, -1, 1 << 21):
                with self.assertRaises(ValueError):
                    orvo_fr.find(picture, **{name: wrong})

    def test_most_takes_the_best(self):
        picture = photograph()
        every = orvo_fr.find(picture)
        self.assertGreater(len(every), 1)
        (one,) = orvo_fr.find(picture, most=1)
        self.assertEqual(one.box, every[0].box)


class Threads(unittest.TestCase):
    def test_calls_take_turns(self):
        pictures = [photograph(), photograph()[::2, ::2], sample(0)]

        def search(picture):
            return [(face.box, face.feature.tobytes()) for face in orvo_fr.faces(picture)]

        wanted = [search(picture) for picture in pictures]
        wrong = []

        def repeat(number):
            for _ in range(5):
                if search(pictures[number]) != wanted[number]:
                    wrong.append(number)

        threads = [threading.Thread(target=repeat, args=(i % 3,)) for i in range(6)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(wrong, [])


if __name__ == "__main__":
    unittest.main()

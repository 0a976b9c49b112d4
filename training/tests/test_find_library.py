# SPDX-License-Identifier: MIT
"""The training's decoding of the finder's answers and libkova_find give the same faces."""
import unittest

import numpy as np

from training.evaluation import find_faces
from training.export import tensors
from training.networks.find_library import CROP, Face, FindLibrary
from training.networks.library import ROOT
from training.tests import pictures

MODEL = ROOT / "models" / "find.safetensors"


def scenes():
    """Sample faces on noise, at several sizes; and noise alone."""
    random = np.random.default_rng(11)
    faces = [pictures.read_grey_png(path) for path in sorted((ROOT / "samples").glob("*.png"))[:3]]
    for number, face in enumerate(faces):
        height, width = random.integers(60, 200, 2)
        scene = np.full((height, width), 100 + 10 * number, np.uint8)
        scene += random.integers(0, 20, (height, width), np.uint8)
        step = 1 + number % 4
        small = face[::step, ::step][: height - 10, : width - 10]
        scene[5 : 5 + small.shape[0], 5 : 5 + small.shape[1]] = small
        yield scene
    for width, height in ((24, 24), (131, 77)):
        yield random.integers(0, 256, (height, width), np.uint8)


class FindLibraryEquality(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.library = FindLibrary()
        cls.model = tensors.read(MODEL)

    def test_faces_are_the_same(self):
        faces = 0
        for number, picture in enumerate(scenes()):
            smallest = (20, 50)[number % 2]
            expected = find_faces.find(self.model, picture, smallest)
            found = self.library.find(picture, smallest)
            self.assertEqual(len(found), min(len(expected), 64))
            faces += len(found)
            for face, wanted in zip(found, expected):
                np.testing.assert_array_equal([face.left, face.top, face.side], wanted.box())
                np.testing.assert_array_equal(np.array(face.points), wanted.points / 16)
                self.assertEqual(face.score, wanted.score / 1024)
                self.assertEqual(face.yaw, wanted.yaw * 0.75)
                self.assertEqual(face.covered, np.float32(wanted.covered + 128) / np.float32(255))
        if faces == 0:
            self.skipTest("the model finds no face in any of the scenes")

    def test_an_upright_face_of_its_own_size_is_copied(self):
        picture = np.random.default_rng(1).integers(0, 256, (150, 140), np.uint8)
        points = ((50, 60), (90, 60), (70, 80), (55, 95), (85, 95))
        face = Face(22, 30, CROP, 1)
        for point, (x, y) in zip(face.points, points):
            point[:] = x, y
        np.testing.assert_array_equal(
            self.library.upright(picture, face), picture[30 : 30 + CROP, 22 : 22 + CROP]
        )


if __name__ == "__main__":
    unittest.main()

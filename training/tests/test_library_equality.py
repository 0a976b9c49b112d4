# SPDX-License-Identifier: MIT
"""The training code's integer networks and the library give the same bytes."""
import unittest

import numpy as np

from training.export import tensors
from training.networks import integer_net
from training.networks.library import ALIGN, CROP, ROOT, Library
from training.tests import pictures

COUNT = 200


class LibraryEquality(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.library = Library()
        cls.models = {
            name: tensors.read(ROOT / "models" / f"{name}.safetensors") for name in ("align", "fr")
        }
        samples = pictures.samples()
        cls.frames = np.concatenate([samples, pictures.synthetic(COUNT - len(samples))])

    def test_alignment_answers_are_the_same(self):
        small = np.stack([self.library.resize(frame, ALIGN) for frame in self.frames])
        expected = np.stack([self.library.align_answer(picture) for picture in small])
        answers = integer_net.forward("align", self.models["align"], small)
        np.testing.assert_array_equal(answers, expected)
        self.assertGreater(len(np.unique(answers, axis=0)), COUNT // 4)

    def test_features_of_crops_are_the_same(self):
        crops = np.stack([self.library.resize(frame, CROP) for frame in self.frames])
        expected = np.stack([self.library.crop_feature(crop) for crop in crops])
        answers = np.concatenate(
            [integer_net.forward("fr", self.models["fr"], crops[i : i + 20]) for i in range(0, COUNT, 20)]
        )  # fmt: skip
        np.testing.assert_array_equal(
            integer_net.feature(answers).view(np.uint32), expected.view(np.uint32)
        )
        self.assertGreater(len(np.unique(answers, axis=0)), COUNT // 2)

    def test_a_whole_run_is_alignment_crop_and_recognition(self):
        for frame in self.frames[:40]:
            left, top, right, bottom = self.library.box(frame)
            crop = self.library.resize(frame[top:bottom, left:right], CROP)
            answer = integer_net.forward("fr", self.models["fr"], crop[None])
            np.testing.assert_array_equal(
                integer_net.feature(answer)[0].view(np.uint32),
                self.library.feature(frame).view(np.uint32),
            )


if __name__ == "__main__":
    unittest.main()

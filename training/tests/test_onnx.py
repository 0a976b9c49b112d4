# SPDX-License-Identifier: MIT
"""The exported ONNX networks, run by OpenCV's runtime, give the library's bytes."""
import unittest

import numpy as np

from training.export import tensors
from training.networks import integer_net
from training.networks.library import ALIGN, CROP, ROOT, Library
from training.tests import pictures

try:
    import cv2
    import onnx

    from training.export import export_onnx
except ImportError as error:
    raise unittest.SkipTest(f"{error.name} is not installed") from error

COUNT = 60


class OnnxEquality(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.library = Library()
        samples = pictures.samples()[:20]
        cls.frames = np.concatenate([samples, pictures.synthetic(COUNT - len(samples), seed=11)])

    def _answers(self, network, small):
        model = export_onnx.build(
            network, tensors.read(ROOT / "models" / f"{network}.safetensors")
        )
        onnx.checker.check_model(model)
        runtime = cv2.dnn.readNetFromONNX(np.frombuffer(model.SerializeToString(), np.uint8))
        answers = []
        for picture in small:
            runtime.setInput(picture[None, None].astype(np.float32))
            answers.append(runtime.forward()[0])
        answers = np.stack(answers)
        np.testing.assert_array_equal(answers, np.round(answers))
        self.assertGreater(len(np.unique(answers, axis=0)), COUNT // 4)
        return answers.astype(np.int8)

    def test_alignment_answers_are_the_same(self):
        small = np.stack([self.library.resize(frame, ALIGN) for frame in self.frames])
        expected = np.stack([self.library.align_answer(picture) for picture in small])
        np.testing.assert_array_equal(self._answers("align", small), expected)

    def test_features_of_crops_are_the_same(self):
        crops = np.stack([self.library.resize(frame, CROP) for frame in self.frames])
        expected = np.stack([self.library.crop_feature(crop) for crop in crops])
        features = integer_net.feature(self._answers("fr", crops))
        np.testing.assert_array_equal(features.view(np.uint32), expected.view(np.uint32))


if __name__ == "__main__":
    unittest.main()

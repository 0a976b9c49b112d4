# SPDX-License-Identifier: MIT
"""The package's library under Node gives the answers of the native libraries, bit for bit."""
import base64
import json
import subprocess
import unittest
from pathlib import Path

import numpy as np
from native import PACKAGE, SAMPLES, grey, native_faces, native_feature, temporary_folder
from scenes import FIRST, background, two_people

REASONS = ("small", "blurred", "dark", "overexposed", "turned", "tilted", "covered", "cut off",
           "grimacing")
ANSWERS = Path(__file__).with_name("answers.mjs")


class Calls:
    """Calls of the library, made together in one run of Node."""

    def __init__(self, folder):
        self.folder = folder
        self.calls = []
        self.pictures = 0

    def picture(self, pixels):
        pixels = np.ascontiguousarray(pixels, np.uint8)
        self.pictures += 1
        file = self.folder / f"{self.pictures}.bin"
        file.write_bytes(pixels.tobytes())
        return {"file": str(file), "width": pixels.shape[1], "height": pixels.shape[0]}

    def add(self, call, *arguments):
        self.calls.append({"call": call, "arguments": arguments})

    def answers(self):
        (self.folder / "calls.json").write_text(json.dumps(self.calls))
        done = subprocess.run(
            ["node", ANSWERS, PACKAGE / "node.mjs", self.folder / "calls.json"],
            check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
        )  # fmt: skip
        return json.loads(done.stdout)


class Module(unittest.TestCase):
    def setUp(self):
        folder = temporary_folder()
        self.calls = Calls(folder.__enter__())
        self.addCleanup(folder.__exit__, None, None, None)

    def assert_same_face(self, answer, native):
        record = native.record
        for name in ("left", "top", "side", "score", "yaw", "roll", "covered"):
            self.assertEqual(np.float32(answer[name]), getattr(record, name), name)
        points = [number for point in answer["points"] for number in (point["x"], point["y"])]
        self.assertEqual(list(np.float32(points)), list(record.points))
        self.assertEqual(answer["quality"], record.quality)
        self.assertEqual(answer["isGood"], record.quality >= 30)
        reasons = [reason for bit, reason in enumerate(REASONS) if record.reasons >> bit & 1]
        self.assertEqual(answer["reasons"], reasons)
        self.assertEqual(base64.b64decode(answer["crop"]), native.crop)

    def test_features_of_all_samples_are_the_native_ones(self):
        pictures = [grey(path) for path in sorted(SAMPLES.rglob("*-?.png"))]
        self.assertGreaterEqual(len(pictures), 12)
        for picture in pictures:
            self.calls.add("extract", self.calls.picture(picture))
        for picture, given in zip(pictures, self.calls.answers()):
            self.assertEqual(base64.b64decode(given["answer"]["feature"]), native_feature(picture))

    def test_faces_of_all_samples_are_the_native_ones(self):
        pictures = [grey(path) for path in sorted(SAMPLES.rglob("*.png"))]
        for picture in pictures:
            self.calls.add("faces", self.calls.picture(picture))
        found = 0
        for picture, given in zip(pictures, self.calls.answers()):
            native = native_faces(picture)
            self.assertEqual(len(given["answer"]), len(native))
            for face, other in zip(given["answer"], native):
                self.assert_same_face(face, other)
                self.assertEqual(base64.b64decode(face["feature"]), other.feature)
                found += 1
        self.assertGreaterEqual(found, 12)

    def test_grey_and_coloured_pictures_and_options(self):
        scene = two_people(641, 479)
        coloured = np.repeat(scene[:, :, None], 3, axis=2)
        alpha = np.dstack([coloured, np.full_like(scene, 255)])
        shade = np.dstack([scene, scene // 2 + 40, 255 - scene])
        # As the module and kova-fr make grey levels.
        luma = (shade.astype(int) @ [77, 150, 29] + 128) >> 8
        for pixels in (scene, coloured, alpha, shade):
            self.calls.add("faces", self.calls.picture(pixels))
        self.calls.add("find", self.calls.picture(scene), {"smallest": 40})
        self.calls.add("find", self.calls.picture(scene), {"most": 1})
        self.calls.add("faces", self.calls.picture(background(300, 200)))
        large = background(3000, 2000)
        large[500:1500, 600:1600] = np.kron(grey(FIRST)[:250, :250], np.ones((4, 4), np.uint8))
        self.calls.add("faces", self.calls.picture(large))
        *same, shaded, coarse, one, none, big = [given["answer"] for given in self.calls.answers()]
        natives = native_faces(scene)
        self.assertEqual(len(natives), 2)
        for faces in same:
            self.assertEqual(len(faces), 2)
            for face, native in zip(faces, natives):
                self.assert_same_face(face, native)
                self.assertEqual(base64.b64decode(face["feature"]), native.feature)
        boxes = native_faces(scene, with_features=False)
        for faces, expected in (
            (shaded, native_faces(luma)), (coarse, native_faces(scene, 40, with_features=False)),
            (one, boxes[:1]), (none, []), (big, native_faces(large, 80)),
        ):  # fmt: skip
            self.assertEqual(len(faces), len(expected))
            for face, native in zip(faces, expected):
                self.assert_same_face(face, native)
        self.assertIsNone(one[0]["feature"])
        self.assertGreaterEqual(len(big), 1)

    def test_a_part_of_a_picture_is_extracted_and_a_wall_is_not(self):
        scene = background(400, 300)
        scene[20:276, 100:356] = grey(FIRST)
        part = {"left": 100, "top": 20, "width": 256, "height": 256}
        self.calls.add("extract", self.calls.picture(scene), part)
        self.calls.add("extract", self.calls.picture(np.full((300, 300), 90)))
        taken, wall = [given["answer"] for given in self.calls.answers()]
        self.assertEqual(base64.b64decode(taken["feature"]), native_feature(grey(FIRST)))
        self.assertIsNone(wall)
        box = taken["box"]
        self.assertTrue(100 <= box["left"] < box["right"] and 20 <= box["top"] < box["bottom"], box)

    def test_the_distance_of_features(self):
        one = [0.5] * 4 + [0.0] * 124
        other = [0.5, 0.5, -0.5, 0.5] + [0.0] * 124
        for a, b in ((one, one), (one, other)):
            self.calls.add("distance", a, b)
        self.assertEqual([given["answer"] for given in self.calls.answers()], [1, 0.5])

    def test_bad_input_is_refused_with_a_word_and_the_library_goes_on(self):
        scene = two_people()
        good = self.calls.picture(scene)
        cases = (
            ("faces", [{**good, "width": 639}], "RangeError", "bytes"),
            ("faces", [{**good, "width": 0}], "RangeError", "width"),
            ("faces", [{**good, "width": 8193}], "RangeError", "8192"),
            ("faces", [{**good, "width": 1.5}], "RangeError", "width"),
            ("faces", [{"width": 2, "height": 2, "data": [1, 2, 3, 4]}], "TypeError", "Uint8Array"),
            ("faces", [None], "RangeError", "width"),
            ("faces", [self.calls.picture(scene[:23, :100])], "RangeError", "24"),
            ("faces", [self.calls.picture(np.zeros((24, 8192)))], "RangeError", "cannot be found"),
            ("faces", [self.calls.picture(np.zeros((2000, 2000))), {"smallest": 20}], "RangeError", "of 20"),
            ("find", [good, {"smallest": -1}], "RangeError", "smallest"),
            ("find", [good, {"most": 65}], "RangeError", "most"),
            ("find", [good, {"most": 0}], "RangeError", "most"),
            ("extract", [good, {"left": 500, "top": 0, "width": 256, "height": 256}], "RangeError", "inside"),
            ("extract", [good, {"left": -1, "top": 0, "width": 256, "height": 256}], "RangeError", "inside"),
            ("extract", [good, {"left": 0, "top": 0, "width": 14, "height": 12}], "RangeError", "16 x 12"),
            ("distance", [[1] * 127, [1] * 128], "RangeError", "128"),
            ("distance", [None, [1] * 128], "RangeError", "128"),
        )
        for call, arguments, _, _ in cases:
            self.calls.add(call, *arguments)
            self.calls.add("faces", good)
        answers = self.calls.answers()
        for (call, _, error, word), refused, after in zip(cases, answers[0::2], answers[1::2]):
            with self.subTest(call=call, word=word):
                self.assertEqual(refused.get("error"), error, refused)
                self.assertIn(word, refused["message"])
                self.assertEqual(len(after["answer"]), 2)


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: MIT
"""The module under node gives the features of the native library, bit for bit."""
import subprocess
import unittest

from native import MODULE, SAMPLES, grey, native_features, temporary_folder


class Module(unittest.TestCase):
    def test_features_of_all_samples_are_the_native_ones(self):
        pictures = sorted(SAMPLES.glob("*.png"))
        self.assertGreaterEqual(len(pictures), 12)
        with temporary_folder() as folder:
            (folder / "frames").write_bytes(b"".join(grey(path).tobytes() for path in pictures))
            script = SAMPLES.parent / "web" / "tests" / "features.js"
            subprocess.run(
                ["node", script, MODULE, folder / "frames", folder / "features"], check=True
            )
            answer = (folder / "features").read_bytes()
        self.assertEqual(len(answer), 512 * len(pictures))
        self.assertEqual(answer, native_features(pictures))


if __name__ == "__main__":
    unittest.main()

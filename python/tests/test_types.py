# SPDX-License-Identifier: MIT
"""The package's type hints, by mypy: within the package, and as a program that uses it sees them."""
import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PACKAGE = Path(__file__).resolve().parent.parent

USE = """
import numpy as np
import orvo_fr
picture = np.zeros((256, 256), np.uint8)
feature = orvo_fr.extract(picture)
many = orvo_fr.extract_many([picture, "a.png"])
score: float = orvo_fr.distance(feature, feature)
quality: int = orvo_fr.faces("a.png")[0].quality
name: str = orvo_fr.Gallery.load("a.gallery").search(many)[0][0].name
reveal_type(orvo_fr.distances(many))
"""


def mypy(*arguments):
    with tempfile.TemporaryDirectory() as cache:
        command = [sys.executable, "-m", "mypy", "--cache-dir", cache, *arguments]
        environment = {**os.environ, "MYPYPATH": str(PACKAGE)}
        return subprocess.run(command, cwd=PACKAGE, env=environment, capture_output=True, text=True)


class Types(unittest.TestCase):
    def test_the_package_is_clean(self):
        done = mypy("orvo_fr")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_a_program_that_uses_it_is_checked(self):
        done = mypy("-c", USE)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertIn("floating[numpy._typing._32Bit]", done.stdout)
        done = mypy("-c", USE + "orvo_fr.distance(feature, 5)\nscore.box\n")
        self.assertIn("Found 2 errors", done.stdout)


if __name__ == "__main__":
    unittest.main()

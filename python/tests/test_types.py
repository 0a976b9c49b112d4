# SPDX-License-Identifier: MIT
"""The package's type hints, by mypy: within the package, and as a program that uses it sees them."""
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


class Types(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)

    def mypy(self, use):
        """What mypy says of the package and of a program. Another run uses what the first has found out."""
        program = self.folder / "use.py"
        program.write_text(use)
        command = [sys.executable, "-m", "mypy", "--cache-dir", self.folder, "orvo_fr", program]
        return subprocess.run(command, cwd=PACKAGE, capture_output=True, text=True)

    def test_the_package_and_a_program_that_uses_it(self):
        done = self.mypy(USE)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertIn("floating[numpy._typing._32Bit]", done.stdout)
        done = self.mypy(USE + "orvo_fr.distance(feature, 5)\nscore.box\n")
        self.assertIn("Found 2 errors", done.stdout)


if __name__ == "__main__":
    unittest.main()

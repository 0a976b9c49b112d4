# SPDX-License-Identifier: MIT
"""The package, built and installed by pip into a fresh environment without a network.

ORVO_FR_LIBRARY names a library that must give the same features.
"""
import os
import subprocess
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path

PACKAGE = Path(__file__).resolve().parent.parent
PIP = ["-m", "pip", "--disable-pip-version-check", "--no-input"]
OFFLINE = ["--no-build-isolation", "--no-index", "--no-deps"]

USE = """
import hashlib, sys, numpy, orvo_fr
picture = (numpy.arange(65536) * 7919 % 251).astype(numpy.uint8).reshape(256, 256)
print(orvo_fr.__file__, hashlib.sha256(orvo_fr.extract(picture)).hexdigest(), orvo_fr.__version__)
"""

# Every import resolved at once, which takes the stand-in for the platform beside it.
LOAD = """
import ctypes, pathlib, orvo_fr
ctypes.CDLL(str(pathlib.Path(orvo_fr.__file__).with_name("libkova_fr.so.1")))
"""


def output(*command, **environment):
    """What a command prints, with the environment's own ORVO_FR_LIBRARY out of the way."""
    variables = {k: v for k, v in os.environ.items() if k not in ("ORVO_FR_LIBRARY", "PYTHONPATH")}
    variables.update(environment)
    done = subprocess.run(command, env=variables, capture_output=True, text=True, cwd="/")
    if done.returncode != 0:
        raise AssertionError(f"{command}:\n{done.stdout}\n{done.stderr}")
    return done.stdout


class Installation(unittest.TestCase):
    def test_pip_builds_and_installs_the_package_without_a_network(self):
        with tempfile.TemporaryDirectory() as folder:
            output(sys.executable, *PIP, "wheel", *OFFLINE, "-w", folder, PACKAGE)
            (wheel,) = Path(folder).glob("*.whl")
            first = wheel.read_bytes()
            output(sys.executable, *PIP, "wheel", *OFFLINE, "-w", folder, PACKAGE)
            self.assertEqual(first, wheel.read_bytes(), "the same sources give another wheel")
            self.assertRegex(wheel.name, r"^orvo_fr-[0-9.]+-py3-none-linux_\w+\.whl$")
            with zipfile.ZipFile(wheel) as contents:
                names = set(contents.namelist())
            libraries = {"orvo_fr/libkova_fr.so.1", "orvo_fr/libkova_mpi_host.so.1"}
            self.assertLessEqual(libraries | {"orvo_fr/py.typed"}, names)

            environment = Path(folder) / "environment"
            output(sys.executable, "-m", "venv", "--system-site-packages", environment)
            python = environment / "bin" / "python"
            output(python, *PIP, "install", "--no-index", "--no-deps", wheel)
            file, digest, version = output(python, "-c", USE).split()
            output(python, "-c", LOAD)
            self.assertTrue(file.startswith(str(environment)), file)
            self.assertIn(f"-{version}-", wheel.name)
            checkout = {"PYTHONPATH": str(PACKAGE), "ORVO_FR_LIBRARY": os.environ["ORVO_FR_LIBRARY"]}
            self.assertEqual(output(sys.executable, "-c", USE, **checkout).split()[1], digest)


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: MIT
"""The package, built and installed by pip into a fresh environment without a network.

ORVO_FR_LIBRARY names a library that must give the same features.
"""
import os
import platform
import shutil
import subprocess
import sys
import tarfile
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


def output(*command, cwd="/", **environment):
    """What a command prints, with the environment's own ORVO_FR_LIBRARY out of the way."""
    variables = {k: v for k, v in os.environ.items() if k not in ("ORVO_FR_LIBRARY", "PYTHONPATH")}
    variables.update(environment)
    done = subprocess.run(command, env=variables, capture_output=True, text=True, cwd=cwd)
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
            self.assertRegex(wheel.name, r"^orvo_fr-[0-9.]+-py3-none-manylinux_2_\d+_\w+\.whl$")
            with zipfile.ZipFile(wheel) as contents:
                names = set(contents.namelist())
            libraries = {
                "libkova_fr.so.1", "libkova_find.so.1", "libkova_mpi_host.so.1", "libkova_python.so"
            }
            self.assertEqual({f"orvo_fr/{one}" for one in libraries}, {n for n in names if ".so" in n})
            self.assertLessEqual({"orvo_fr/py.typed", "orvo_fr/cluster.py"}, names)

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

    def test_a_source_distribution_builds_outside_the_checkout(self):
        with tempfile.TemporaryDirectory() as place:
            folder = Path(place)
            # setup.py leaves its notes in the folder that it runs in.
            copy = folder / "checkout" / "python"
            ignored = shutil.ignore_patterns("build", "*.egg-info", "__pycache__")
            shutil.copytree(PACKAGE, copy, ignore=ignored)
            for name in ("CMakeLists.txt", "LICENSE"):
                shutil.copy(PACKAGE.parent / name, copy.parent)
            for name in (path.name for path in PACKAGE.parent.iterdir() if path.is_dir()):
                if name not in ("build", "python", ".git"):
                    (copy.parent / name).symlink_to(PACKAGE.parent / name)
            output(sys.executable, "setup.py", "-q", "sdist", "-d", folder, cwd=copy)
            (packed,) = folder.glob("*.tar.gz")
            shutil.rmtree(copy.parent)
            with tarfile.open(packed) as contents:
                contents.extractall(folder)
            (unpacked,) = folder.glob("orvo?fr-*/")
            for name in ("tests", "library/tests", "library/training", "library/build"):
                self.assertFalse((unpacked / name).exists(), name)
            output(sys.executable, *PIP, "wheel", *OFFLINE, "-w", folder, unpacked)
            (wheel,) = folder.glob("*.whl")
            with zipfile.ZipFile(wheel) as contents:
                contents.extractall(folder / "package")
            path = {"PYTHONPATH": str(folder / "package")}
            file, digest, _ = output(sys.executable, "-c", USE, **path).split()
            self.assertTrue(file.startswith(str(folder)), file)
            checkout = {"PYTHONPATH": str(PACKAGE), "ORVO_FR_LIBRARY": os.environ["ORVO_FR_LIBRARY"]}
            self.assertEqual(output(sys.executable, "-c", USE, **checkout).split()[1], digest)


class Tags(unittest.TestCase):
    """What platform_tag.py says of small libraries whose needs are known."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def library(self, code, *options, compiler="gcc"):
        path = self.folder / f"lib{len(list(self.folder.iterdir()))}.so"
        source = self.folder / f"{path.stem}.c"
        source.write_text(code)
        output(compiler, "-w", "-shared", "-fPIC", "-o", path, source, *options)
        return path

    def tag(self, *libraries):
        return output(sys.executable, PACKAGE / "platform_tag.py", *libraries).strip()

    def test_the_newest_symbol_decides(self):
        machine = platform.machine()
        plain = self.library("int one(void) { return 1; }")
        old = self.library("void free(void*); void f(void* p) { free(p); }")
        newer = self.library("int memfd_create(); int f(void) { return memfd_create(0, 0); }")
        newest = self.library("int pthread_create(); int f(void) { return pthread_create(0, 0, 0, 0); }")
        self.assertEqual(self.tag(plain, old), f"manylinux_2_17_{machine}")
        self.assertEqual(self.tag(newer, old), f"manylinux_2_27_{machine}")
        self.assertEqual(self.tag(old, newest, newer), f"manylinux_2_34_{machine}")

    def test_what_not_every_system_has_gets_none(self):
        crypto = self.library("int f(void) { return 1; }", "-Wl,--no-as-needed", "-lcrypto")
        with self.assertRaisesRegex(AssertionError, r"needs libcrypto\.so"):
            self.tag(crypto)

    def test_musl(self):
        if shutil.which("musl-gcc") is None:
            self.skipTest("musl-tools are not there")
        code = "void free(void*); void f(void* p) { free(p); }"
        musl = self.library(code, compiler="musl-gcc")
        self.assertEqual(self.tag(musl), f"musllinux_1_2_{platform.machine()}")
        with self.assertRaisesRegex(AssertionError, "some libraries need glibc, some musl"):
            self.tag(musl, self.library(code))

    def test_arm_with_floats_in_integer_registers(self):
        for compiler, wanted in (
            ("arm-linux-gnueabi-gcc", None),
            ("arm-linux-gnueabihf-gcc", "manylinux_2_17_armv7l"),
        ):
            if shutil.which(compiler) is None:
                self.skipTest(f"{compiler} is not there")
            code = "void free(void*); float f(void* p, float x) { free(p); return x; }"
            library = self.library(code, compiler=compiler)
            if wanted is None:
                with self.assertRaisesRegex(AssertionError, "integer registers"):
                    self.tag(library)
            else:
                self.assertEqual(self.tag(library), wanted)


if __name__ == "__main__":
    unittest.main()

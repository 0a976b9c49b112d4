# SPDX-License-Identifier: MIT
"""Wheels for other machines and for musl: their tags, and whether their libraries work there.

ORVO_FR_LIBRARY names a library that must give the same feature.
"""
import os
import platform
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path

PACKAGE = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(PACKAGE))

import numpy as np  # noqa: E402
import orvo_fr  # noqa: E402

# By toolchain: the wheel's tag, the compiler of a program, and what runs that here.
MACHINES = {
    "musl": ("musllinux_1_2_x86_64", "musl-gcc", []),
    "aarch64": (
        "manylinux_2_17_aarch64", "aarch64-linux-gnu-gcc", ["qemu-aarch64", "-L", "/usr/aarch64-linux-gnu"]
    ),
    "arm-hardfp": (
        "manylinux_2_17_armv7l",
        "arm-linux-gnueabihf-gcc",
        ["qemu-arm", "-cpu", "cortex-a7", "-L", "/usr/arm-linux-gnueabihf"],
    ),
}


class Wheels(unittest.TestCase):
    def build(self, toolchain, folder):
        place = PACKAGE.parent / "cmake" / "toolchains" / f"{toolchain}.cmake"
        environment = {
            **os.environ,
            "ORVO_FR_BUILD_NAME": f"python-{toolchain}",
            "ORVO_FR_CMAKE_ARGS": f"--toolchain={place}",
        }
        options = ["--no-input", "--no-build-isolation", "--no-index", "--no-deps", "-w", folder]
        command = [sys.executable, "-m", "pip", "wheel", *options, PACKAGE]
        done = subprocess.run(command, env=environment, capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        (wheel,) = folder.glob("*.whl")
        return wheel

    def check(self, toolchain):
        tag, compiler, runner = MACHINES[toolchain]
        missing = [one for one in (compiler, *runner[:1]) if shutil.which(one) is None]
        if missing or platform.machine() != "x86_64":
            self.skipTest(f"{', '.join(missing) or 'x86-64'} is not there")
        with tempfile.TemporaryDirectory() as place:
            folder = Path(place)
            wheel = self.build(toolchain, folder)
            self.assertTrue(wheel.name.endswith(f"-py3-none-{tag}.whl"), wheel.name)
            with zipfile.ZipFile(wheel) as contents:
                contents.extractall(folder)
            program = folder / "program"
            source = PACKAGE / "tests" / "wheel_program.c"
            subprocess.run([compiler, "-o", program, source, "-ldl"], check=True)
            command = [*runner, program, folder / "orvo_fr"]
            feature = subprocess.run(command, check=True, capture_output=True).stdout
        picture = (np.arange(65536) * 7919 % 251).astype(np.uint8).reshape(256, 256)
        self.assertEqual(feature, orvo_fr.extract(picture).tobytes())

    def test_musl(self):
        self.check("musl")

    def test_64_bit_arm(self):
        self.check("aarch64")

    def test_32_bit_arm(self):
        self.check("arm-hardfp")


if __name__ == "__main__":
    unittest.main()

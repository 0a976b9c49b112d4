# SPDX-License-Identifier: MIT
"""Builds libkova_fr with CMake and puts it into the package.

ORVO_FR_CMAKE_ARGS has further arguments for CMake, such as -DFR_KEY_FILE=/path/to/product.key.
"""
import os
import re
import shlex
import shutil
import subprocess
from email.utils import parsedate_to_datetime
from pathlib import Path

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py
from wheel.bdist_wheel import bdist_wheel

SOURCE = Path(__file__).resolve().parent.parent
BUILD = SOURCE / "build" / "python"
# The last stands in for the camera platform; a build for a camera does without.
LIBRARIES = ("libkova_fr.so.1", "libkova_find.so.1", "libkova_mpi_host.so.1")


def released():
    """The date of the changelog, in seconds: what the wheel dates its files with."""
    changelog = (SOURCE / "cmake" / "debian" / "changelog.in").read_text()
    return int(parsedate_to_datetime(re.search(r"^ -- \S+  (.*)$", changelog, re.M).group(1)).timestamp())


def version():
    text = (SOURCE / "CMakeLists.txt").read_text()
    return re.search(r"project\(orvo_fr VERSION ([0-9.]+)", text).group(1)


def built_libraries():
    arguments = shlex.split(os.environ.get("ORVO_FR_CMAKE_ARGS", ""))
    options = [f"-DORVO_BUILD_{part}=OFF" for part in ("TOOLS", "TESTS", "BENCH", "TRAINING")]
    subprocess.run(
        ["cmake", "-S", SOURCE, "-B", BUILD, "-DCMAKE_BUILD_TYPE=Release", *options, *arguments],
        check=True,
    )
    jobs = str(os.cpu_count() or 1)
    targets = ["kova_fr", "kova_find"]
    subprocess.run(["cmake", "--build", BUILD, "--target", *targets, "-j", jobs], check=True)
    return [BUILD / "lib" / name for name in LIBRARIES if (BUILD / "lib" / name).exists()]


class BuildWithLibrary(build_py):
    def run(self):
        super().run()
        folder = Path(self.build_lib) / "orvo_fr"
        folder.mkdir(parents=True, exist_ok=True)
        for library in built_libraries():
            shutil.copyfile(library, folder / library.name)


class MachineDistribution(Distribution):
    """The package has code of one machine, though no extension module."""

    def has_ext_modules(self):
        return True


class AnyPythonWheel(bdist_wheel):
    """The library knows nothing of Python, so that every version of it will do."""

    def get_tag(self):
        return "py3", "none", super().get_tag()[2]


# The same sources give the same wheel.
os.environ.setdefault("SOURCE_DATE_EPOCH", str(released()))

setup(
    version=version(),
    distclass=MachineDistribution,
    cmdclass={"build_py": BuildWithLibrary, "bdist_wheel": AnyPythonWheel},
)

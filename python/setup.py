# SPDX-License-Identifier: MIT
"""Builds the libraries with CMake and puts them into the package.

ORVO_FR_CMAKE_ARGS has further arguments for CMake, such as -DFR_KEY_FILE=/path/to/product.key or
--toolchain=FILE for another machine. The wheel's tag says what its libraries need (platform_tag.py).
"""
import os
import re
import shlex
import shutil
import subprocess
import sys
from email.utils import parsedate_to_datetime
from pathlib import Path

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py
from setuptools.command.sdist import sdist
from wheel.bdist_wheel import bdist_wheel

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

from platform_tag import platform_tag  # noqa: E402

# A source distribution has the library's sources beside this file; in a checkout they lie above it.
PACKED = HERE / "library"
SOURCE = PACKED if PACKED.exists() else HERE.parent
BUILD = SOURCE / "build" / os.environ.get("ORVO_FR_BUILD_NAME", "python")
LIBRARIES = ("libkova_fr.so.1", "libkova_find.so.1", "libkova_python.so")
# Stands in for the camera platform. A build for a camera does without, and so does one that must not
# need a C++ library.
HOST_PLATFORM = "libkova_mpi_host.so.1"

# What a build of the libraries reads.
LIBRARY_SOURCES = (
    "CMakeLists.txt", "LICENSE", "cipher", "cmake", "common", "compute_a", "device_api", "find",
    "fr_demo", "grey", "include", "kova", "models", "platform", "python/native", "search", "timing",
    "tools/kova_fr/gallery/checksum.cpp", "tools/kova_fr/gallery/checksum.h", "tools/pack_models",
)  # fmt: skip


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
    options += ["-DORVO_BUILD_PYTHON=ON", "-DCMAKE_BUILD_TYPE=Release"]
    subprocess.run(["cmake", "-S", SOURCE, "-B", BUILD, *options, *arguments], check=True)
    jobs = str(os.cpu_count() or 1)
    targets = ["kova_fr", "kova_find", "kova_python"]
    subprocess.run(["cmake", "--build", BUILD, "--target", *targets, "-j", jobs], check=True)
    libraries = [BUILD / "lib" / name for name in LIBRARIES]
    needed = subprocess.run(
        ["readelf", "-d", libraries[0]], check=True, capture_output=True, text=True
    ).stdout
    return libraries + [BUILD / "lib" / HOST_PLATFORM] * (f"[{HOST_PLATFORM}]" in needed)


class BuildWithLibrary(build_py):
    def run(self):
        super().run()
        folder = Path(self.build_lib) / "orvo_fr"
        folder.mkdir(parents=True, exist_ok=True)
        for old in folder.glob("*.so*"):
            old.unlink()
        for library in built_libraries():
            shutil.copyfile(library, folder / library.name)


class SourcesWithLibrary(sdist):
    """The package and what its libraries are built from."""

    def make_release_tree(self, base_dir, files):
        super().make_release_tree(base_dir, files)
        shutil.copy(HERE / "platform_tag.py", base_dir)
        for name in LIBRARY_SOURCES:
            place = Path(base_dir) / "library" / name
            place.parent.mkdir(parents=True, exist_ok=True)
            if (SOURCE / name).is_dir():
                leave_out = shutil.ignore_patterns("__pycache__", "build")
                shutil.copytree(SOURCE / name, place, ignore=leave_out, dirs_exist_ok=True)
            else:
                shutil.copy(SOURCE / name, place)


class MachineDistribution(Distribution):
    """The package has code of one machine, though no extension module."""

    def has_ext_modules(self):
        return True


class AnyPythonWheel(bdist_wheel):
    """The library knows nothing of Python, so that every version of it will do."""

    def get_tag(self):
        return "py3", "none", platform_tag(Path(self.bdist_dir).glob("orvo_fr/*.so*"))


# The same sources give the same wheel.
os.environ.setdefault("SOURCE_DATE_EPOCH", str(released()))

setup(
    version=version(),
    distclass=MachineDistribution,
    cmdclass={
        "build_py": BuildWithLibrary,
        "bdist_wheel": AnyPythonWheel,
        "sdist": SourcesWithLibrary,
    },
)

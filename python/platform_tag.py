# SPDX-License-Identifier: MIT
"""The platform tag that is true of some shared libraries: found in what they need, not claimed.

A tag of manylinux says with which version of glibc and after they run, that of musllinux the same of
musl. Both promise that nothing else is needed than what every such system has.
"""
import re
import subprocess
import sys
from pathlib import Path

# By readelf's name for the machine, and, on 32-bit ARM, whether floats go in their own registers.
_MACHINES = {
    "Advanced Micro Devices X86-64": "x86_64",
    "AArch64": "aarch64",
    "ARM": "armv7l",
    "RISC-V": "riscv64",
}
_GLIBC = re.compile(r"lib(c|m|pthread|dl|rt)\.so\.6|lib(pthread|dl)\.so\.[02]|ld-linux.*\.so\.\d")
_MUSL = re.compile(r"libc\.so|ld-musl-.*")
# What every system of manylinux has besides, up to the versions of its GCC.
_GCC_S = "libgcc_s.so.1"
_STDCXX = "libstdc++.so.6"
# By the version of libstdc++ the first manylinux that has it: those of GCC 4.8, 6, 7, 8, 10, 11.
_GLIBCXX = {19: (2, 17), 22: (2, 24), 24: (2, 27), 25: (2, 28), 28: (2, 31), 29: (2, 34)}
_CXXABI = {7: (2, 17), 10: (2, 24), 11: (2, 28), 12: (2, 31), 13: (2, 34)}
_OLDEST = (2, 17)
# Debian 12's. Versions of symbols, which would say more, musl has none.
_MUSL_VERSION = (1, 2)


class NotPortable(Exception):
    """The libraries need something that not every system of a tag has."""


def _readelf(path, *options):
    # In English, whatever the machine's language is.
    done = subprocess.run(
        ["readelf", "--wide", *options, path], check=True, capture_output=True, text=True,
        env={"LC_ALL": "C", "PATH": "/usr/bin:/bin:/usr/local/bin"},
    )  # fmt: skip
    return done.stdout


def _machine(path):
    text = _readelf(path, "--file-header")
    machine = re.search(r"^\s*Machine:\s+(.*)$", text, re.M).group(1)
    if machine not in _MACHINES:
        raise NotPortable(f"{path}: no tag is known for {machine}")
    if machine == "ARM" and "Tag_ABI_VFP_args: VFP registers" not in _readelf(path, "--arch-specific"):
        raise NotPortable(f"{path}: hands floats over in integer registers, which no tag stands for")
    return _MACHINES[machine]


def _first_with(versions, minor, what):
    for known, glibc in versions.items():
        if minor <= known:
            return glibc
    raise NotPortable(f"{what}.{minor} is newer than any manylinux that is known here")


def _glibc_floor(path):
    """The glibc that a library needs."""
    floor = _OLDEST
    text = _readelf(path, "--version-info").partition("Version needs section")[2]
    for name, version in re.findall(r"Name: ([A-Z]+)_([0-9.]+)", text):
        numbers = tuple(map(int, version.split(".")))
        if name == "GLIBC":
            floor = max(floor, numbers[:2])
        elif name == "GLIBCXX":
            floor = max(floor, _first_with(_GLIBCXX, (*numbers, 0)[2], "GLIBCXX_3.4"))
        elif name == "CXXABI" and numbers[:2] == (1, 3):
            floor = max(floor, _first_with(_CXXABI, (*numbers, 0)[2], "CXXABI_1.3"))
    return floor


def platform_tag(libraries):
    """The tag of a wheel with these libraries, such as "manylinux_2_17_x86_64"."""
    paths = sorted(Path(library) for library in libraries)
    own = {path.name for path in paths}
    machines = {_machine(path) for path in paths}
    if len(machines) != 1:
        raise NotPortable(f"libraries of {len(machines)} machines: {', '.join(map(str, paths))}")
    floor, is_musl = _OLDEST, set()
    for path in paths:
        needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", _readelf(path, "--dynamic"))) - own
        musl = {name for name in needed if _MUSL.fullmatch(name)}
        others = needed - musl - {name for name in needed if _GLIBC.fullmatch(name)}
        if others - ({_GCC_S, _STDCXX} if not musl else set()):
            raise NotPortable(f"{path}: needs {', '.join(sorted(others))}")
        # One that needs no C library itself goes with either.
        is_musl |= {bool(musl)} if needed else set()
        floor = max(floor, _glibc_floor(path))
    if len(is_musl) != 1:
        raise NotPortable("some libraries need glibc, some musl" if is_musl else "none needs a C library")
    kind, (major, minor) = ("musllinux", _MUSL_VERSION) if is_musl.pop() else ("manylinux", floor)
    return f"{kind}_{major}_{minor}_{machines.pop()}"


if __name__ == "__main__":
    try:
        print(platform_tag(sys.argv[1:]))
    except NotPortable as error:
        sys.exit(f"platform_tag: {error}")

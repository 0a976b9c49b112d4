#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""clang-tidy over every C and C++ file that git knows, each as its own target compiles it.

usage: .ci/tidy.py [FILE...]

The compile databases are those that `./run lint` configures. A file that none of them knows must have
its flags below, so that nothing is left out silently. own_code.cpp keeps the checks to our own code.
"""
import json
import os
import re
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

# The first that knows a file is the one that it is looked at with.
DATABASES = ("lint", "arm", "aarch64", "riscv64", "wasm")

# What is compiled by other means than CMake in this repository.
LLVM = Path("/usr/lib/llvm-14")
OTHER_FLAGS = {
    ".ci/": ["-std=c++17", "-isystem", str(LLVM / "include")],
    "bench/insn_count/": ["-std=c99", "-I/usr/include"],
    "examples/": ["-Iinclude"],
    "python/tests/": ["-Iinclude"],
    "tests/portability/": ["-std=c99", "-Iinclude"],
    "training/engine/": ["-std=c++20", "-fopenmp", "-march=sapphirerapids"],
}

# The library is looked at with all checks of .clang-tidy. The rest goes without those that take most of the
# time, and tests compare floats bit by bit on purpose.
LIBRARY = ("cipher/", "common/", "compute_a/", "device_api/", "find/", "fr_demo/", "platform/", "search/",
           "web/")
FEWER_CHECKS = ("--checks=-clang-analyzer-*,-performance-*,-readability-redundant-*,"
                "-bugprone-suspicious-memory-comparison,-bugprone-exception-escape,orvo-own-code")

# The compilers are GCC's; clang does not know all of its flags. It passes over those of warnings and
# optimisation, and refuses the others.
GCC_FLAGS = ["--extra-arg=-Wno-unknown-warning-option",
             "--extra-arg=-Wno-ignored-optimization-argument"]
GCC_ALONE = (" -fno-gnu-unique",)

# Each file is read by itself, so that one which lacks an include is noticed. A compiler's precompiled header is for
# that compiler alone, besides.
PRECOMPILED = re.compile(r" (-Xclang )?-include(-pch)? (-Xclang )?[^ ]*/cmake_pch\.hxx(\.pch)?(?= )")


# Compiled here for Debian's clang-tidy.
OWN_CODE = ROOT / "build" / "lint" / "own_code.so"
# Has findings on purpose, so that a tool that has gone blind is noticed.
FINDINGS = ".ci/findings.cpp"


def compile_own_code():
    source = ROOT / ".ci" / "own_code.cpp"
    if OWN_CODE.exists() and OWN_CODE.stat().st_mtime > source.stat().st_mtime:
        return
    flags = ["-std=c++17", "-fPIC", "-shared", "-fno-rtti", "-isystem", str(LLVM / "include")]
    subprocess.run(["g++", *flags, "-o", str(OWN_CODE), str(source)], check=True)


def tracked_files():
    patterns = ["*.c", "*.cpp", f":!{FINDINGS}"]
    listed = subprocess.run(["git", "ls-files", "-z", "--", *patterns], cwd=ROOT, check=True,
                            capture_output=True, text=True).stdout
    return [name for name in listed.split("\0") if name]


def folder_of(database):
    return ROOT / "build" / database / "tidy"


def definitions(entry):
    return tuple(sorted(flag for flag in shlex.split(entry["command"]) if flag.startswith("-D")))


def files_of(database):
    """Writes the database once more as clang can read it, and returns the files in it.

    Many programs share some of their files. Each is looked at once for each set of definitions that it is
    compiled with: other flags do not change what is in it.
    """
    text = (ROOT / "build" / database / "compile_commands.json").read_text()
    for flag in GCC_ALONE:
        text = text.replace(flag, "")
    text = PRECOMPILED.sub("", text)
    entries = {}
    for entry in json.loads(text):
        entries.setdefault((entry["file"], definitions(entry)), entry)
    folder_of(database).mkdir(exist_ok=True)
    (folder_of(database) / "compile_commands.json").write_text(json.dumps(list(entries.values())))
    return {os.path.realpath(file) for file, _ in entries}


def emscripten_flags():
    """What em++ adds to the command in the database to make clang compile for the browser."""
    flags = subprocess.run(["em++", "--cflags"], check=True, capture_output=True, text=True).stdout
    sysroot = [flag for flag in flags.split() if flag.startswith("--sysroot=")]
    return ["--extra-arg-before=--target=wasm32-unknown-emscripten", "--extra-arg=-D__EMSCRIPTEN__",
            *(f"--extra-arg={flag}" for flag in sysroot)]


def command(name, databases):
    checks = ["--checks=orvo-own-code"] if name.startswith(LIBRARY) else [FEWER_CHECKS]
    start = ["clang-tidy-14", "--quiet", f"--load={OWN_CODE}", *checks, *GCC_FLAGS]
    for database, files in databases.items():
        if os.path.realpath(ROOT / name) not in files:
            continue
        if database == "wasm":
            # The analyser finds fault with the compiler's own intrinsics.
            start = [*start[:3], FEWER_CHECKS, *GCC_FLAGS, *emscripten_flags()]
        if database == "riscv64":
            # Of Debian's, only the newest knows the vectors' intrinsics. These files include little.
            start = ["clang-tidy-19", "--quiet", *GCC_FLAGS]
        return [*start, "-p", str(folder_of(database)), name]
    for folder, flags in OTHER_FLAGS.items():
        if name.startswith(folder):
            return [*start, name, "--", *flags]
    sys.exit(f"{name}: in no compile database; build it, or add its flags to {Path(__file__).name}")


def tidy(job):
    name, arguments = job
    result = subprocess.run(arguments, cwd=ROOT, capture_output=True, text=True)
    if result.returncode == 0:
        return True
    # Its standard error counts the warnings in system headers, and says what went wrong with no file.
    print(result.stdout or f"{name}: {result.stderr}", end="", flush=True)
    return False


def look_for_findings():
    """What has to be found is found."""
    wanted = set(re.findall(r"// ([a-z]+-[a-z-]+)", (ROOT / FINDINGS).read_text()))
    arguments = ["clang-tidy-14", "--quiet", f"--load={OWN_CODE}", FEWER_CHECKS, FINDINGS, "--", "-std=c++20"]
    said = subprocess.run(arguments, cwd=ROOT, capture_output=True, text=True).stdout
    found = set(re.findall(r"\[([a-z-]+),-warnings-as-errors\]", said))
    if found != wanted:
        sys.exit(f"clang-tidy: in {FINDINGS} it has to find {wanted}, and finds {found or 'nothing'}\n{said}")


def main():
    compile_own_code()
    look_for_findings()
    names = sys.argv[1:] or tracked_files()
    databases = {database: files_of(database) for database in DATABASES}
    jobs = [(name, command(name, databases)) for name in names]
    # The long ones first: those with the large headers of the tools' libraries.
    jobs.sort(key=lambda job: (not job[0].startswith(("tools/", "bench/")), job[0]))
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        clean = list(pool.map(tidy, jobs))
    if not all(clean):
        sys.exit(f"clang-tidy: {clean.count(False)} of {len(clean)} files have findings")
    print(f"clang-tidy: {len(clean)} files are clean")


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Which lines and branches the tests of a build with ORVO_COVERAGE run; see ./run coverage."""

import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import subprocess
import sys

_SOURCES = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(_SOURCES / "tests/support"))
from test_programs import TestPrograms  # noqa: E402

LIBRARY = ("cipher", "common", "compute_a", "device_api", "find", "fr_demo", "grey", "platform", "search")
TOOLS = ("tools",)
TOOLS_LINES = 95.0
# Millions of blocks, which take long as written, and tests that look at calls and traces of what is delivered.
_LEFT_OUT = {"aes_comparison_test", "bounded_wrapped_test", "no_allocation_test", "no_system_call_test", "traces_test"}
# What fails or ends at each call to the system does so where the counts are written, too, and leaves them in pieces.
_STOPS_COUNTING = "^kova_fr_(call_faults|killed)_test"
# These run once for each cipher, too.
_WITH_CIPHERS = {"aes_test", "store_opening_test"}
_CIPHERS = ("plain", "look_up", "instructions", "wide_instructions")


def settings_of(build, program, paths):
    """The environment variables that the program is to run with, one at a time."""
    settings = [""]
    if any((build / "tests").rglob(f"{program}.dir/**/chosen_path.cpp.o")):
        settings += [f"ORVO_FR_PATH={path}" for path in paths]
    if program in _WITH_CIPHERS:
        settings += [f"ORVO_FR_CIPHER={cipher}" for cipher in _CIPHERS]
    return settings


def run_tests(build):
    """Runs the library's tests, each program on every path and with every cipher, then the tools' tests. What failed."""
    programs = TestPrograms(build / "bin")
    paths = sorted(p.name for p in (build / "CMakeFiles/kova_fr_objects.dir/compute_a/simd").iterdir())
    runs = []
    for program in sorted(p.name for p in (build / "bin").iterdir() if re.fullmatch(r"\w+_test(_over_model)?", p.name)):
        if not program.startswith(("kova_fr_", "pack_models_")) and program not in _LEFT_OUT:
            runs += [(program, setting) for setting in settings_of(build, program, paths)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as together:
        settled = list(together.map(lambda run: programs.settles(*run), runs))
    failed = [f"{program} {setting}".strip() for (program, setting), well in zip(runs, settled) if not well]
    done = subprocess.run(["ctest", "--test-dir", build, "-j2", "-R", "^(kova_fr_|pack_models_)", "-E", _STOPS_COUNTING],
                          capture_output=True, text=True)
    return failed + re.findall(r"^\s+\d+ - (\S+)", done.stdout, re.M)


def counted(build):
    """{file: [line as gcovr says it]}"""
    files = {}
    # The packer has files of the library compiled in, with settings of its own: its runs prove nothing of the library.
    library = [path for path in build.iterdir() if path.is_dir() and path.name != "tools"]
    for folders, parts in ((LIBRARY, library), (TOOLS, [build / "tools", build / "tests/tools"])):
        filters = [part for folder in folders for part in ("--filter", f"{folder}/")]
        done = subprocess.run(["gcovr", "--root", _SOURCES, *filters, "--exclude-throw-branches",
                               "--exclude-unreachable-branches", "-j2", "--json", "-", *parts],
                              cwd=_SOURCES, check=True, capture_output=True, text=True)
        for file in json.loads(done.stdout)["files"]:
            files[file["file"]] = [line for line in file["lines"] if not line["gcovr/noncode"]]
    return files


def exclusions():
    """[(file, part of the line, reason)] of exclusions.txt"""
    rows = []
    for line in (_SOURCES / "tests/coverage/exclusions.txt").read_text().splitlines():
        if line and not line.startswith("#"):
            rows.append(tuple(part.strip() for part in line.split(" | ", 2)))
    return rows


def open_branches(line):
    return sum(branch["count"] == 0 for branch in line["branches"])


def report(files, check):
    """Prints a table, and what of the library did not run. Whether all is as promised."""
    excluded, used, missed = exclusions(), set(), []
    rows = collections.defaultdict(lambda: [0, 0, 0, 0])
    for file, lines in sorted(files.items()):
        source = (_SOURCES / file).read_text().splitlines()
        folder = file.split("/")[0]
        for line in lines:
            text = source[line["line_number"] - 1]
            never, open_ = line["count"] == 0, open_branches(line)
            if folder in LIBRARY and (never or open_):
                reasons = [row for row in excluded if row[0] == file and row[1] in text]
                if reasons:
                    used.add(reasons[0])
                    continue
                missed.append(f"{file}:{line['line_number']}: {'never runs' if never else f'{open_} branches'}: {text.strip()}")
            row = rows[folder]
            row[0] += not never
            row[1] += 1
            row[2] += len(line["branches"]) - open_
            row[3] += len(line["branches"])
    print("| Folder | Lines | of | | Branches | of | |\n|---|---:|---:|---:|---:|---:|---:|")
    rows["library"] = [sum(column) for column in zip(*(rows[folder] for folder in LIBRARY if folder in rows))]
    for folder, row in rows.items():
        parts = [f"{run} | {all_} | {100 * run / all_ if all_ else 100:.2f} %" for run, all_ in (row[:2], row[2:])]
        print(f"| {folder} | {' | '.join(parts)} |")
    print(f"\n{len(used)} exclusions of exclusions.txt, each with its reason there")
    print(*missed, sep="\n")
    stale = [f"exclusions.txt: nothing to exclude: {row[0]} | {row[1]}" for row in excluded if row not in used]
    print(*stale, sep="\n")
    tools = 100 * rows["tools"][0] / max(1, rows["tools"][1])
    if check and tools < TOOLS_LINES:
        print(f"tools: {tools:.1f} % of the lines, less than {TOOLS_LINES} %")
    return not missed and not stale and tools >= TOOLS_LINES


def main():
    parser = argparse.ArgumentParser(prog="./run coverage", description=__doc__)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--check", action="store_true",
                        help="fail where a line or branch of the library does not run, or too little of the tools")
    parser.add_argument("--no-run", action="store_true", help="count what earlier runs have left")
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    failed = []
    if not arguments.no_run:
        for counts in build.rglob("*.gcda"):
            counts.unlink()
        failed = run_tests(build)
    good = report(counted(build), arguments.check)
    print(*(f"failed: {name}" for name in failed), sep="\n")
    raise SystemExit(1 if arguments.check and (failed or not good) else 0)


if __name__ == "__main__":
    main()

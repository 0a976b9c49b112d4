#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes the libraries wrong in many small ways and looks whether a test notices each of them."""

import argparse
import collections
import hashlib
import json
import os
import pathlib
import sys
import time

_SOURCES = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(_SOURCES / "tests/support"))
import changes  # noqa: E402
import programs  # noqa: E402
import workshop  # noqa: E402

FOLDERS = ["cipher", "common", "compute_a", "device_api", "find", "fr_demo", "grey", "platform", "search"]
# Numbers that were measured: the tests' own references read them from here.
LEFT_OUT = {"find/settings.h"}
_EQUIVALENTS = _SOURCES / "tests/mutants/equivalents.txt"


def equivalents(text):
    """{(file, the changed line as it is shown)}: what no test can tell from the original. Reasons are indented."""
    return {tuple(line.split(": ", 1)) for line in text.splitlines() if line and line[0] not in "# "}


def chosen(shop, folders, count, seed):
    """Of each folder as many as its share of the lines is, at least 40, no two on one line; by chance from the seed."""
    lines = {folder: {} for folder in FOLDERS}
    for file in shop.files():
        folder = file.split("/")[0]
        if folder not in lines or file in LEFT_OUT:
            continue
        for change in changes.changes(file, shop.text(file)):
            rank = hashlib.sha256(f"{seed} {change.key}".encode()).digest()
            place = (file, change.line)
            lines[folder][place] = min(lines[folder].get(place, (rank, change)), (rank, change), key=lambda c: c[0])
    total = sum(map(len, lines.values()))
    picked = []
    for folder, of_folder in lines.items():
        if not folders or folder in folders:
            share = max(40, round(count * len(of_folder) / total))
            picked += [change for _, change in sorted(of_folder.values(), key=lambda c: c[0])[:share]]
    # A file at a time; files by chance, so that what has been judged so far stands for the rest.
    return sorted(picked, key=lambda c: (hashlib.sha256(f"{seed} {c.file}".encode()).digest(), c.start))


def judge(shop, change, text, objects, usual):
    """(outcome, the test that noticed)"""
    shop.write(change.file, change.apply(text))
    if not shop.make(*objects, changed=True):
        return "does not compile", ""
    if shop.code(objects) == usual:
        return "same code", ""
    runs = programs.runs_of([o for o, before, now in zip(objects, usual, shop.code(objects)) if before != now])
    if not shop.make(*dict.fromkeys(program for program, _ in runs), changed=True):
        return "killed", "the build"
    for program, setting in runs:
        if not shop.passes(program, setting):
            return "killed", f"{program} {setting}".strip()
    return "survived", ""


def judge_all(shop, picked, results, record):
    by_file = collections.defaultdict(list)
    for change in picked:
        if change.key not in results:
            by_file[change.file].append(change)
    # Before anything is changed, so that no time is that of changed sources.
    for file in by_file:
        for run in programs.runs_of(shop.objects_of(file)):
            shop.usual_time(*run)
    for file, waiting in by_file.items():
        text, objects = shop.text(file), shop.objects_of(file)
        try:
            shop.write(file, text)
            shop.make(*objects, changed=True)
            usual = shop.code(objects)
            for change in waiting:
                begin = time.time()
                outcome, by = judge(shop, change, text, objects, usual)
                by = f"{by} ({shop.preset})" if by else by
                record({"key": change.key, "file": file, "line": change.line, "kind": change.kind, "shown": change.shown,
                        "outcome": outcome, "by": by, "seconds": round(time.time() - begin, 1)})
        finally:
            shop.write(file, text)
        shop.make(*objects)


def outcome_of(change, results, known_equivalents):
    outcome = results[change.key]["outcome"]
    if outcome == "survived" and (change.file, change.shown) in known_equivalents:
        return "equivalent"
    return outcome


def table(picked, results, known_equivalents):
    rows = collections.defaultdict(collections.Counter)
    for change in picked:
        if change.key in results:
            rows[change.file.split("/")[0]][outcome_of(change, results, known_equivalents)] += 1
    rows["all"] = sum(rows.values(), collections.Counter())
    print("| Folder | Mutants | Killed | Survived | Score | Equivalent | Same code | Does not compile |")
    print("|---|---:|---:|---:|---:|---:|---:|---:|")
    for folder, row in rows.items():
        judged = row["killed"] + row["survived"]
        score = f"{100 * row['killed'] / judged:.1f} %" if judged else "-"
        print(f"| {folder} | {judged} | {row['killed']} | {row['survived']} | {score} | {row['equivalent']} | "
              f"{row['same code']} | {row['does not compile']} |")
    return rows["all"]


def main():
    parser = argparse.ArgumentParser(prog="./run mutants", description=__doc__)
    parser.add_argument("folders", nargs="*", metavar="FOLDER", help=f"of {', '.join(FOLDERS)}; all without")
    parser.add_argument("--count", type=int, default=1150, help="how many over all folders, about (1150)")
    parser.add_argument("--seed", default="1", help="another one takes other mutants")
    parser.add_argument("--again", action="store_true", help="judge the survivors of earlier runs anew")
    parser.add_argument("--asan", action="store_true", help="the same in the build with AddressSanitizer")
    parser.add_argument("--table", action="store_true", help="show what is known, and judge nothing")
    arguments = parser.parse_args()
    for folder in arguments.folders:
        if folder.rstrip("/") not in FOLDERS:
            parser.error(f"{folder} is none of {', '.join(FOLDERS)}")

    os.nice(10)
    folder = _SOURCES / "build/mutants"
    folder.mkdir(parents=True, exist_ok=True)
    shop = workshop.Workshop(_SOURCES, folder, "host-asan" if arguments.asan else "host")
    known = folder / "results.jsonl"
    results = {}
    if known.exists():
        results = {r["key"]: r for r in map(json.loads, known.read_text().splitlines())}
    print("Building the unchanged sources", flush=True)
    shop.prepare()
    picked = chosen(shop, [f.rstrip("/") for f in arguments.folders], arguments.count, arguments.seed)
    known_equivalents = equivalents(_EQUIVALENTS.read_text())
    if arguments.again or arguments.asan:
        again = {c.key for c in picked if c.key in results and outcome_of(c, results, known_equivalents) == "survived"}
        results = {key: r for key, r in results.items() if key not in again}

    def record(result):
        results[result["key"]] = result
        with known.open("a") as file:
            file.write(json.dumps(result) + "\n")
        print(f"{len(results)} {result['outcome']}: {result['file']}:{result['line']} {result['shown']} "
              f"{result['by']} {result['seconds']} s", flush=True)

    if not arguments.table:
        judge_all(shop, picked, results, record)
    print()
    for change in picked:
        if change.key in results and outcome_of(change, results, known_equivalents) == "survived":
            print(f"survived: {change.file}:{change.line} {change.shown}")
    print()
    total = table(picked, results, known_equivalents)
    raise SystemExit(0 if total["killed"] >= 0.97 * (total["killed"] + total["survived"]) else 1)


if __name__ == "__main__":
    main()

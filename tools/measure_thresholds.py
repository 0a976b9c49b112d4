#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Measures the thresholds that all programs and documents show, and writes them down.

    tools/measure_thresholds.py PEOPLE --name "the Database of Faces"

PEOPLE has one sub-folder a person. Pictures that are not square are taken for tight portraits and
framed as for the model card (training/README.md). `kova-fr eval` of the build with these models
compares them. The result becomes models/thresholds.json, from which the builds take it, and the
marked tables of the documents; `--documents` writes only the tables anew. After that, build again.
Needs python3-opencv.
"""
import argparse
import hashlib
import json
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
WARNING = (
    "Another camera, other light, another way of framing or other people move these numbers: "
    "measure on pictures of your own with kova-fr eval."
)
BEGIN, END = "<!-- thresholds: tools/measure_thresholds.py writes this -->\n", "<!-- /thresholds -->"


def digest(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


def framed(people, folder):
    """The pictures as 256 x 256 frames, in the same sub-folders."""
    sys.path.insert(0, str(ROOT))
    import cv2

    from training.evaluation.gallery import place

    for source in sorted(path for path in people.glob("*/*") if path.is_file()):
        picture = cv2.imread(str(source), cv2.IMREAD_GRAYSCALE)
        if picture is None:
            raise SystemExit(f"{source} cannot be read as a picture")
        target = folder / source.parent.name / (source.stem + ".png")
        target.parent.mkdir(exist_ok=True)
        cv2.imwrite(str(target), place(picture, 200))
    return folder


def evaluate(program, folder):
    answer = subprocess.run(
        [program, "eval", "--json", "--rounds", "2000", folder],
        check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
    )  # fmt: skip
    return json.loads(answer.stdout)


def rate(entry):
    return {"rate": round(entry["rate"], 6), "interval": [round(v, 6) for v in entry["interval"]]}


def measure(args):
    with tempfile.TemporaryDirectory() as folder:
        report = evaluate(args.program, framed(args.people, Path(folder)))
    as_they_are = evaluate(args.program, args.people)
    whole = {one["wanted_false_accepts"]: one["threshold"] for one in as_they_are["recommended"]}
    at = [
        {
            "false_accept_rate": one["wanted_false_accepts"],
            "threshold": one["threshold"],
            "false_accepts": rate(one["false_accepts"]),
            "false_rejects": rate(one["false_rejects"]),
            "rough": one["rough"],
            "threshold_stretched": whole[one["wanted_false_accepts"]],
        }
        for one in report["recommended"]
        if one["threshold"] is not None
    ]
    return {
        "align_sha256": digest(args.models / "align.safetensors"),
        "fr_sha256": digest(args.models / "fr.safetensors"),
        "thresholds": {
            "measured_on": args.name,
            "people": report["people"],
            "pictures": report["pictures"],
            "pairs_of_one_person": report["same_pairs"],
            "pairs_of_two_people": report["different_pairs"],
            "warning": WARNING,
            "at": at,
        },
    }


def percent(value):
    return f"{100 * value:.0f}" if value >= 0.0995 else f"{100 * value:.2g}"


def cell(entry):
    low, high = (percent(v) for v in entry["interval"])
    return f"{percent(entry['rate'])} ({low} to {high})"


def table(thresholds):
    """For THRESHOLDS.md and the model card."""
    lines = [
        "| at most FAR % | threshold | strangers accepted, % | one person refused, % "
        "| threshold where whole pictures are stretched |",
        "|---:|---:|---|---|---:|",
    ]
    for one in thresholds["at"]:
        rough = " *" if one["rough"] else ""
        lines.append(
            f"| {100 * one['false_accept_rate']:g} | {one['threshold']:.4f}{rough} "
            f"| {cell(one['false_accepts'])} | {cell(one['false_rejects'])} "
            f"| {one['threshold_stretched']:.4f}{rough} |"
        )
    return "\n".join(lines) + "\n"


def sentence(thresholds):
    """For the README."""
    parts = [
        f"{one['threshold']:.4f} accepts {100 * one['false_accept_rate']:g} % of them "
        f"({percent(one['false_accepts']['interval'][0])} to {percent(one['false_accepts']['interval'][1])} %)"
        for one in thresholds["at"]
        if not one["rough"]
    ]
    text = (
        f"Of the pairs of strangers on {thresholds['measured_on']} a threshold of " + ", ".join(parts)
        + ", in brackets 95 % intervals over people. " + thresholds["warning"]
    )  # fmt: skip
    lines, line = [], ""
    for word in text.split():
        if len(line) + len(word) >= 110:
            lines, line = lines + [line], ""
        line += (" " if line else "") + word
    return "\n".join(lines + [line]) + "\n"


DOCUMENTS = {"docs/THRESHOLDS.md": table, "models/fr.md": table, "README.md": sentence}


def marked(text):
    """Where the marked part of a document begins and ends."""
    begin = text.index(BEGIN) + len(BEGIN)
    return begin, text.index(END, begin)


def write_documents(thresholds):
    for name, wording in DOCUMENTS.items():
        text = (ROOT / name).read_text()
        begin, end = marked(text)
        (ROOT / name).write_text(text[:begin] + wording(thresholds) + text[end:])


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    add = parser.add_argument
    add("people", type=Path, nargs="?", help="folder with one sub-folder a person")
    add("--name", help="what the people are called in texts")
    add("--program", type=Path, default=ROOT / "build/host/bin/kova-fr", help="(%(default)s)")
    add("--models", type=Path, default=ROOT / "models", help="what it was built with (%(default)s)")
    add("--documents", action="store_true", help="write the documents' tables anew, no more")
    args = parser.parse_args()
    record = args.models / "thresholds.json"
    if not args.documents:
        if args.people is None or args.name is None:
            parser.error("PEOPLE and --name are needed")
        record.write_text(json.dumps(measure(args), indent=1) + "\n")
    if args.models.resolve() == ROOT / "models":
        write_documents(json.loads(record.read_text())["thresholds"])


if __name__ == "__main__":
    main()

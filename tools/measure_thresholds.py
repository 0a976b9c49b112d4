#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Measures the thresholds that all programs and documents show, and writes them down.

    tools/measure_thresholds.py PEOPLE --name "the Database of Faces"

PEOPLE has one sub-folder a person, and `kova-fr eval` of the build with these models compares the
pictures, in three ways:

    found      whole pictures, in which the faces are found: what all programs show by default
    crops      the same pictures framed as tight portraits (training/README.md), each taken for a
               crop: what --crop shows
    stretched  the pictures as they are, each taken for a crop: how far framing alone moves a threshold

The result becomes models/thresholds.json, from which the builds take it, and the marked tables of the
documents; `--documents` writes only the tables anew. After that, build again. Needs python3-opencv.
"""
import argparse
import hashlib
import json
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
WARNING = (
    "Another camera, other light, another way of framing or other people move these numbers: "
    "measure on pictures of your own with kova-fr eval."
)
MODELS = ("align", "fr", "find")
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


def evaluate(program, folder, *options):
    answer = subprocess.run(
        [program, "eval", "--json", "--rounds", "2000", *options, folder],
        check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
    )  # fmt: skip
    return json.loads(answer.stdout)


def rate(entry):
    return {"rate": round(entry["rate"], 6), "interval": [round(v, 6) for v in entry["interval"]]}


def study(name, faces, report):
    """What one way of looking at the pictures gave, as it is shipped."""
    return {
        "measured_on": name,
        "faces": faces,
        "people": report["people"],
        "pictures": report["pictures"],
        "left_out": len(report["left_out"]),
        "pairs_of_one_person": report["same_pairs"],
        "pairs_of_two_people": report["different_pairs"],
        "warning": WARNING,
        "at": [
            {
                "false_accept_rate": one["wanted_false_accepts"],
                "threshold": one["threshold"],
                "false_accepts": rate(one["false_accepts"]),
                "false_rejects": rate(one["false_rejects"]),
                "rough": one["rough"],
            }
            for one in report["recommended"]
            if one["threshold"] is not None
        ],
        "strangers": report["strangers"],
    }


def measure(args):
    with tempfile.TemporaryDirectory() as folder:
        framed_crops = evaluate(args.program, framed(args.people, Path(folder)), "--crop")
    stretched = evaluate(args.program, args.people, "--crop")
    # Poor faces count, too: programs warn of them, and compare them all the same.
    found = evaluate(args.program, args.people, "--any-quality")
    thresholds = study(args.name, "faces found in whole pictures", found)
    crops = study(args.name, "crops framed as tight portraits", framed_crops)
    whole = {one["wanted_false_accepts"]: one["threshold"] for one in stretched["recommended"]}
    for one in crops["at"]:
        one["threshold_stretched"] = whole[one["false_accept_rate"]]
    thresholds["crops"] = crops
    record = {f"{model}_sha256": digest(args.models / f"{model}.safetensors") for model in MODELS}
    return record | {"thresholds": thresholds}


def percent(value):
    return f"{100 * value:.0f}" if value >= 0.0995 else f"{100 * value:.2g}"


def cell(entry):
    low, high = (percent(v) for v in entry["interval"])
    return f"{percent(entry['rate'])} ({low} to {high})"


def table(thresholds):
    """For THRESHOLDS.md and the model card."""
    lines = [
        "| at most FAR % | faces found: threshold | strangers accepted, % | one person refused, % "
        "| crops: threshold | one person refused, % | whole pictures taken for crops: threshold |",
        "|---:|---:|---|---|---:|---|---:|",
    ]
    crops = {one["false_accept_rate"]: one for one in thresholds["crops"]["at"]}
    for one in thresholds["at"]:
        rough = " *" if one["rough"] else ""
        crop = crops[one["false_accept_rate"]]
        lines.append(
            f"| {100 * one['false_accept_rate']:g} | {one['threshold']:.4f}{rough} "
            f"| {cell(one['false_accepts'])} | {cell(one['false_rejects'])} "
            f"| {crop['threshold']:.4f}{rough} | {cell(crop['false_rejects'])} "
            f"| {crop['threshold_stretched']:.4f}{rough} |"
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
        f"Of the pairs of strangers on {thresholds['measured_on']}, {thresholds['faces']}, a threshold of " + ", ".join(parts)
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
        text = json.dumps(measure(args), indent=1)
        # A pair of numbers on one line.
        record.write_text(re.sub(r"\[\s+([^][{}]*?)\s+\]", lambda list: f"[{' '.join(list[1].split())}]", text) + "\n")
    if args.models.resolve() == ROOT / "models":
        write_documents(json.loads(record.read_text())["thresholds"])


if __name__ == "__main__":
    main()

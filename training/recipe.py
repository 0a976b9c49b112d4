# SPDX-License-Identifier: MIT
"""Makes the shipped recognition and alignment networks from nothing, stage by stage.

Each stage is one command. A stage that has ended leaves its name in DATA/done and is not run again; one
that was cut off goes on where it stopped when the recipe is started again. Nothing of the repository
is changed: the networks end up in DATA/models, and `cmake -DFR_MODEL_DIR=DATA/models` builds with them.
"""
import argparse
import shlex
import subprocess
import sys
import time
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

TRAIN = "python3 -m training.trainers."
# What the stages on more than one kind of people have in common.
LIKE_PEOPLE = (
    "--rate 0.2 --kinds --cells 0.3 --shared 5 --temperature 0.1 --corners 0.04 --coarse 0.12 --box-jitter 1.5"
)
BROAD = "--assets {assets} --shapes {data}/shapes --lights {lights} --broad"
SCANNED = "--assets {assets} --shapes {data}/shapes --scanned-share 1"
TWO_SPACES = "{data}/old {data}/scanned {data}/scanned2 {data}/cut3"
BROAD_PEOPLE = "{data}/broad {data}/broad-targets {data}/old2 {data}/broad-drawn {data}/bare"


@dataclass(frozen=True)
class Stage:
    name: str
    says: str
    command: str


STAGES = (
    Stage("shapes", "the second space of head shapes, laid onto the base mesh",
          "python3 -m training.data.register_shapes --assets {assets} --shapes {shapes} --out {data}/shapes"),
    Stage("crops", "12,000 people for the float network",
          "{facegen} crops --assets {assets} --out {data}/crops --people 12000 --pictures 24 --seed 11"),
    Stage("frames", "frames for the alignment network, some without a face",
          "{facegen} frames --assets {assets} --out {data}/frames --people 2500 --pictures 8 --seed 21 --empty 0.06"),
    Stage("frames2", "frames of the people of `crops`",
          "{facegen} frames --assets {assets} --out {data}/frames2 --people 10650 --pictures 5 --seed 11"),
    Stage("align", "the alignment network: float, then integers",
          TRAIN + "train_align --data {data}/frames {data}/frames2 --out {data}/run/align --views 9e5"
          " --integer-views 3e6"),
    Stage("models", "the first folder of models, with the alignment network and the recognition network that stands",
          "cp -n models/align.safetensors models/fr.safetensors models/find.safetensors -t {data}/models"),
    Stage("align-in", "the alignment network into it",
          "cp {data}/run/align/align.safetensors {data}/models/align.safetensors"),
    Stage("configure", "a library with it", "cmake -S . -B {data}/build -DFR_MODEL_DIR={data}/models"
          " -DORVO_BUILD_TESTS=OFF -DORVO_BUILD_TOOLS=OFF"),
    Stage("build", "the same", "cmake --build {data}/build --parallel"),
    Stage("cut", "crops that it cuts out",
          "python3 -m training.data.cut_crops {data}/frames2 {data}/cut --library {data}/build/lib/libkova_fr.so"),
    Stage("float", "the recognition network in float arithmetic",
          TRAIN + "train_float --data {data}/crops --shared-people --out {data}/run/float --views 1.2e6"
          " --contrastive 0.2 --box-jitter 1.7"),
    Stage("integer", "the same in integers, towards the float network's features",
          TRAIN + "train_quantised --data {data}/crops {data}/cut --shared-people --float {data}/run/float"
          " --out {data}/run/integer --views 340000 --box-jitter 1.5"),
    Stage("integer-alone", "and on without them",
          TRAIN + "train_quantised --data {data}/crops {data}/cut --shared-people --float {data}/run/float"
          " --out {data}/run/integer --views 1.85e6 --box-jitter 1.5 --distil 0"),
    Stage("old", "people of the targets",
          "{facegen} crops --assets {assets} --out {data}/old --people 5000 --pictures 12 --seed 31"),
    Stage("scanned", "people with scanned heads",
          "{facegen} crops " + SCANNED + " --out {data}/scanned --people 4000 --pictures 12 --seed 41"),
    Stage("scanned2", "more of them",
          "{facegen} crops " + SCANNED + " --out {data}/scanned2 --people 3000 --pictures 14 --seed 51"),
    Stage("frames3", "frames of both",
          "{facegen} frames --assets {assets} --shapes {data}/shapes --scanned-share 0.5 --out {data}/frames3"
          " --people 3000 --pictures 5 --seed 61"),
    Stage("cut3", "crops that the alignment network cuts out of these",
          "python3 -m training.data.cut_crops {data}/frames3 {data}/cut3 --library {data}/build/lib/libkova_fr.so"),
    Stage("two-spaces", "the network on people of both spaces",
          TRAIN + "train_quantised --model {data}/run/integer/fr.safetensors --data " + TWO_SPACES +
          " --out {data}/run/scanned --views 445000 " + LIKE_PEOPLE),
    Stage("longer", "the same again",
          TRAIN + "train_quantised --model {data}/run/scanned/fr.safetensors --data " + TWO_SPACES +
          " --out {data}/run/longer --views 350000 " + LIKE_PEOPLE),
    Stage("broad", "broad people with scanned heads",
          "{facegen} crops " + BROAD + " --scanned-share 1 --out {data}/broad --people 6144 --pictures 6 --seed 71"),
    Stage("broad-targets", "and of the targets",
          "{facegen} crops " + BROAD + " --scanned-share 0 --out {data}/broad-targets --people 4096 --pictures 6"
          " --seed 72"),
    Stage("old2", "more people of the targets as they were",
          "{facegen} crops --assets {assets} --out {data}/old2 --people 2048 --pictures 8 --seed 73"),
    Stage("broad-drawn", "people whose hair and brows say little",
          "{facegen} crops " + BROAD + " --scanned-share 1 --hairless 0.5 --drawn-brows 0.85 --out {data}/broad-drawn"
          " --people 5461 --pictures 6 --seed 74"),
    Stage("bare", "heads that are told apart by shape alone",
          "{facegen} crops " + BROAD + " --bare --scanned-share 0.7 --out {data}/bare --people 4096 --pictures 6"
          " --seed 75"),
    Stage("broad-people", "the network on all of these",
          TRAIN + "train_quantised --model {data}/run/longer/fr.safetensors --data " + TWO_SPACES + " " + BROAD_PEOPLE +
          " --out {data}/run/broad --views 285000 " + LIKE_PEOPLE +
          " --covers 0.1 --motion 0.05 --mixed 0.25 --natural {lights}"),
    Stage("mean", "the mean of the three states",
          "python3 -m training.export.mean_of 0.25 {data}/run/scanned/fr.safetensors"
          " 0.25 {data}/run/longer/fr.safetensors 0.5 {data}/run/broad/fr.safetensors"
          " --out {data}/run/mean.safetensors"),
    Stage("lined", "calm people with lines that change",
          "{facegen} crops " + BROAD + " --calm --lined --scanned-share 0.7 --out {data}/lined --people 8192"
          " --pictures 8 --seed 791"),
    Stage("less-within", "what changes within these people counts less",
          "python3 -m training.export.less_within {data}/run/mean.safetensors --data {data}/lined"
          " --out {data}/models/fr.safetensors"),
    Stage("unseen", "people to measure on",
          "{facegen} frames --assets {assets} --out {data}/unseen --people 300 --pictures 10 --seed 9001"),
    Stage("unseen-scanned", "the same with scanned heads",
          "{facegen} frames " + SCANNED + " --out {data}/unseen-scanned --people 300 --pictures 10 --seed 9001"
          " --first-person 100000"),
    Stage("build-last", "a library with the network", "cmake --build {data}/build --parallel"),
    Stage("measure", "what it can do",
          "python3 -m training.evaluation.evaluate {data}/unseen --out {data}/run/unseen"
          " --library {data}/build/lib/libkova_fr.so"),
    Stage("measure-scanned", "and on scanned heads",
          "python3 -m training.evaluation.evaluate {data}/unseen-scanned --out {data}/run/unseen-scanned"
          " --library {data}/build/lib/libkova_fr.so"),
)


def words_of(stage, places):
    """The stage's command as words; only places that it names need be known."""
    words = [word.format_map(places) for word in shlex.split(stage.command)]
    return [sys.executable, *words[1:]] if words[0] == "python3" else words


def run(stage, places, number, count):
    words = words_of(stage, places)
    print(f"== {number} of {count}: {stage.name}, {stage.says}\n   {shlex.join(words)}", flush=True)
    start = time.monotonic()
    ended = subprocess.run(words, cwd=ROOT, check=False).returncode
    if ended != 0:
        sys.exit(f"{stage.name} failed (status {ended}); mend it and start the recipe again, it goes on from here")
    done = Path(places["data"]) / "done" / stage.name
    done.write_text(f"{time.monotonic() - start:.0f} s\n")


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.recipe",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    add = parser.add_argument
    folder = {"type": Path, "required": True, "metavar": "DIR"}
    add("--assets", **folder, help="head assets")
    add("--shapes", **folder, help="the second space of head shapes, as it came")
    add("--lights", **folder, help="panoramas of light (*.hdr)")
    add("--data", **folder, help="where everything goes: about 20 GB")
    add("--facegen", type=Path, default=ROOT / "build/host/bin/facegen", help="the renderer (%(default)s)")
    add("--only", nargs="+", metavar="STAGE", help="these stages, whether they were done or not")
    add("--list", action="store_true", help="show the commands and what is done; run nothing")
    args = parser.parse_args()
    unknown = set(args.only or ()) - {stage.name for stage in STAGES}
    if unknown:
        parser.error(f"no stage is named {', '.join(sorted(unknown))}; --list shows them")
    return args


def main():
    args = parse_arguments()
    places = {name: str(getattr(args, name).absolute()) for name in ("assets", "shapes", "lights", "data", "facegen")}
    done = args.data / "done"
    chosen = [stage for stage in STAGES if not args.only or stage.name in args.only]
    if args.list:
        for stage in chosen:
            mark = "done" if (done / stage.name).exists() else "    "
            print(f"{mark} {stage.name}: {stage.says}\n       {shlex.join(words_of(stage, places))}")
        return
    for folder in (done, args.data / "models", args.data / "run"):
        folder.mkdir(parents=True, exist_ok=True)
    waiting = [stage for stage in chosen if args.only or not (done / stage.name).exists()]
    for number, stage in enumerate(waiting, 1):
        run(stage, places, number, len(waiting))


if __name__ == "__main__":
    main()

# SPDX-License-Identifier: MIT
"""Measures the built library on pictures of people it was not trained on.

The folder holds one sub-folder a person, or rendered frames-* shards. Square pictures fill a
256 x 256 frame; others are taken for tight portraits (see --portrait-height). Crops come from the
alignment network (align), from the true or, on real faces, OpenCV's box (true), or are the whole
frame (whole). The baselines see the same crops. Intervals hold 95 % and are over people.
"""
import argparse
import json
from pathlib import Path

import cv2
import numpy as np

from ..data.frames import intersection_over_union
from ..networks.library import CROP, IMAGE, Library
from . import baselines
from .cone import cone_figures
from .gallery import FaceDetector, load
from .groups import group_figures
from .pairs import Pairs, figures


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.evaluation.evaluate",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    add = parser.add_argument
    add("people", type=Path, help="folder with people, or with frames-* shards")
    add("--crops", choices=("align", "true", "whole"), default="align", help="(%(default)s)")
    add("--library", type=Path, help="the built library (build/host/lib/libkova_fr.so)")
    add("--float", type=Path, help="float.pt of a float training, measured on the same crops")
    add("--out", type=Path, help="folder for result.json and roc.png")
    add("--portrait-height", type=int, default=200, metavar="ROWS",
        help="rows of the frame that a picture which is not square takes (%(default)s)")
    add("--rounds", type=int, default=200, help="redrawn sets of people (%(default)s)")
    add("--threshold", type=float, nargs="*", default=[], metavar="SCORE",
        help="thresholds from elsewhere, to see what they accept here")
    add("--no-baselines", action="store_true")
    return parser.parse_args()  # fmt: skip


def cut(library, frame, box):
    """A box, which may leave the frame, as the library crops it: whole pixels, resized. What lies
    outside repeats the border."""
    left, top, right, bottom = (int(round(v)) for v in box)
    margin = max(0, -left, -top, right - IMAGE, bottom - IMAGE)
    padded = cv2.copyMakeBorder(frame, *[margin] * 4, cv2.BORDER_REPLICATE)
    region = padded[top + margin : bottom + margin, left + margin : right + margin]
    return library.resize(region, CROP)


def reference_boxes(shots):
    """Known boxes, or those of OpenCV's detector; None where it finds no face."""
    if all(shot.box for shot in shots):
        return [shot.box for shot in shots], "true boxes"
    detector = FaceDetector()
    return [detector.box(shot.frame) for shot in shots], "OpenCV's face cascade"


def alignment_figures(library, shots, references, source):
    pairs = [
        (library.box(shot.frame), reference)
        for shot, reference in zip(shots, references)
        if reference is not None
    ]
    if not pairs:
        return {"reference": source, "pictures": 0}
    given, true = (np.array(boxes, float) for boxes in zip(*pairs))
    overlap = intersection_over_union(given, true)
    size = true[:, 2] - true[:, 0]
    shift = 0.5 * (given[:, :2] + given[:, 2:] - true[:, :2] - true[:, 2:]) / size[:, None]
    growth = (given[:, 2:] - given[:, :2]) / size[:, None]
    return {
        "reference": source,
        "pictures": len(overlap),
        "without_reference": len(shots) - len(overlap),
        "mean_iou": float(overlap.mean()),
        "median_iou": float(np.median(overlap)),
        "share_above_0.7": float((overlap > 0.7).mean()),
        "shift_mean": shift.mean(0).tolist(),
        "shift_spread": shift.std(0).tolist(),
        "size_mean": growth.mean(0).tolist(),
        "size_spread": growth.std(0).tolist(),
    }


def make_crops(library, shots, references, mode):
    """Crops, and the library's features of them."""
    if mode == "align":
        boxes = [library.box(shot.frame) for shot in shots]
        features = np.stack([library.feature(shot.frame) for shot in shots])
    else:
        whole = (0, 0, IMAGE, IMAGE)
        known = [box for box in references if box is not None]
        usual = tuple(np.median(known, axis=0)) if known else whole
        boxes = [whole if mode == "whole" else (box or usual) for box in references]
        features = None
    crops = np.stack([cut(library, shot.frame, box) for shot, box in zip(shots, boxes)])
    if features is None:
        features = np.stack([library.crop_feature(crop) for crop in crops])
    return crops, features


def float_features(path, crops):
    import torch

    from ..networks.float_net import FloatNet, to_input

    net = FloatNet("fr")
    net.load_state_dict(torch.load(path, map_location="cpu"))
    net.eval()
    with torch.no_grad():
        parts = [net(to_input(part)).flatten(1) for part in torch.from_numpy(crops).split(64)]
        return torch.nn.functional.normalize(torch.cat(parts), dim=1).numpy()


def draw_roc(scores, path):
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    figure, panel = plt.subplots(figsize=(6, 5))
    for name, one in scores.items():
        far, tar = one.curves()
        panel.plot(np.maximum(far, 1e-6), tar, label=name)
    panel.set_xscale("log")
    panel.set_xlim(1e-4, 1)
    panel.set_ylim(0, 1)
    panel.set_xlabel("false acceptance")
    panel.set_ylabel("true acceptance")
    panel.grid(alpha=0.3, which="both")
    panel.legend()
    figure.tight_layout()
    figure.savefig(path, dpi=100)


def print_table(results):
    names = list(next(iter(results.values())))
    print(f"{'':24}" + "".join(f"{name:>24}" for name in names))
    for method, values in results.items():
        cells = (f"{100 * v:.1f} ({100 * low:.1f} to {100 * high:.1f})" for v, low, high in values.values())
        print(f"{method:24}" + "".join(f"{cell:>24}" for cell in cells))


def main():
    args = parse_arguments()
    library = Library(args.library)
    shots = load(args.people, args.portrait_height)
    references, source = reference_boxes(shots)
    crops, features = make_crops(library, shots, references, args.crops)
    methods = {"library": features}
    if args.float:
        methods["float network"] = float_features(args.float, crops)
    if not args.no_baselines:
        methods["normalised pixels"] = baselines.normalised_pixels(crops)
        methods["local binary patterns"] = baselines.local_binary_patterns(crops)
    pairs = Pairs([shot.person for shot in shots])
    scores = {name: pairs.score(values) for name, values in methods.items()}
    results = {name: figures(one, args.rounds) for name, one in scores.items()}
    report = {
        "people": pairs.people,
        "pictures": len(shots),
        "crops": args.crops,
        "same_pairs": len(pairs.same[0]),
        "different_pairs": len(pairs.different[0]),
        "figures": results,
        "cone": cone_figures(features, [shot.person for shot in shots], args.threshold),
        "alignment": alignment_figures(library, shots, references, source),
    }
    if all(shot.labels for shot in shots):
        report["groups"] = group_figures(scores["library"], [shot.labels for shot in shots])
    print(f"{pairs.people} people, {len(shots)} pictures, crops: {args.crops}; in %, 95 % intervals")
    print_table(results)
    print("cone: " + json.dumps(report["cone"]))
    print("alignment: " + json.dumps(report["alignment"]))
    for kind, groups in report.get("groups", {}).items():
        for name, entry in groups.items():
            print(f"{kind:16}{name:18}" + "  ".join(f"{k} {v:.4g}" for k, v in entry.items()))
    if args.out:
        args.out.mkdir(parents=True, exist_ok=True)
        (args.out / "result.json").write_text(json.dumps(report, indent=1))
        draw_roc(scores, args.out / "roc.png")


if __name__ == "__main__":
    main()

# SPDX-License-Identifier: MIT
"""Fits the numbers that quality is made of, and measures how well it foretells false rejects.

The numbers are fitted on rendered people and measured on others and on real portraits. What counts:
of all pairs of one person that are refused at the threshold for a false accept rate of 1e-2, the share
that is gone when the tenth of the pictures with the least quality is taken away (chance takes 19 %);
and that pictures of nobody, or of too little of somebody, stay below the limit.
"""
import argparse
import json
import pickle
import re
from dataclasses import dataclass
from pathlib import Path

import cv2
import numpy as np

from ..networks.find_library import FindLibrary
from ..networks.library import ROOT, Library
from . import quality, quality_sets
from .quality_sets import AS_IT_IS, JUNK, SIDES

SETTINGS = ROOT / "find" / "settings.h"
GOOD = 30  # ORVO_FIND_GOOD: below it a face is refused
REFUSED = 0.98  # share of each kind of junk that the fit wants below the limit
SHARES = (0.05, 0.1, 0.2, 0.4)  # of the pictures that are taken away

# Numbers of kGrimacingRamp are not fitted: what it is there for costs rendered people nothing.
# Where a number may lie: (none, full) of each ramp, then the score's. A reason is given halfway
# between none and full, so this also says where a reason may be given at all.
BOUNDS = {
    "kSmallRamp": ((40, 90), (110, 320)),
    "kBlurredRamp": ((0, 90), (110, 400)),
    "kDarkRamp": ((0, 30), (40, 110)),
    "kOverexposedRamp": ((350, 1000), (0, 300)),
    "kTurnedRamp": ((200, 384), (20, 160)),
    "kTiltedRamp": ((45, 80), (0, 35)),
    "kCoveredRamp": ((8, 60), (0, 20)),
    "kCutOffRamp": ((20, 50), (0, 15)),
    "kLeastScoreFactor": (10, 200),
    "kSureScore": (30, 110),
}


# Pictures with a flaw are to be given its reason.
REASON_OF = {
    "small": "small", "blurred": "blurred", "moved": "blurred", "dark": "dark", "overexposed": "overexposed",
    "covered": "covered", "cut off": "cut off",
}  # fmt: skip


@dataclass
class Pool:
    """Pictures that are compared with each other."""

    measures: np.ndarray
    kinds: np.ndarray
    first: np.ndarray  # pairs of one person, not made from one picture
    second: np.ndarray
    refused: np.ndarray
    threshold: float

    def rate_of_each(self):
        """For each picture, the share of its pairs that are refused; where it has none, no number."""
        n = len(self.measures)
        pairs = np.bincount(self.first, minlength=n) + np.bincount(self.second, minlength=n)
        wrong = np.bincount(self.first, self.refused, n) + np.bincount(self.second, self.refused, n)
        return np.where(pairs > 0, wrong / np.maximum(pairs, 1), np.nan)

    def without_worst(self, values, shares):
        """For each share of the pictures that is taken away, least value first: the share of the
        refused pairs that is gone, and the rate among those that are left."""
        order = np.lexsort((np.random.default_rng(0).random(len(values)), values))
        rank = np.empty(len(values))
        rank[order] = np.arange(len(values))
        pair_rank = np.minimum(rank[self.first], rank[self.second])
        out = []
        for share in shares:
            left = pair_rank >= share * len(values)
            wrong = int((self.refused & left).sum())
            out.append((1 - wrong / max(1, int(self.refused.sum())), wrong / max(1, int(left.sum()))))
        return out


def pool(probes, far=0.01):
    """Of the probes with a face; the threshold is this pool's own."""
    seen = [probe for probe in probes if probe.measures is not None]
    people = np.array([probe.person for probe in seen])
    original = np.array([probe.original for probe in seen])
    features = np.stack([probe.feature for probe in seen])
    scores = features @ features.T
    above = np.triu(np.ones(scores.shape, bool), 1)
    same = people[:, None] == people
    strangers = scores[above & ~same]
    threshold = float(np.partition(strangers, int((1 - far) * len(strangers)))[int((1 - far) * len(strangers))])
    first, second = np.nonzero(above & same & (original[:, None] != original))
    kinds = np.array([probe.kind for probe in seen])
    return Pool(np.array([probe.measures for probe in seen]), kinds, first, second,
                scores[first, second] < threshold, threshold)  # fmt: skip


def mixed(probes):
    """Every other picture with a flaw."""
    return [p for p in probes if (p.kind == AS_IT_IS) == (p.original % 2 == 0)]


def as_they_are(probes):
    return [p for p in probes if p.kind in (AS_IT_IS, SIDES)]


def as_one_table(junk):
    """{kind: (measures of all faces, the picture of each, number of pictures)}"""
    out = {}
    for kind in JUNK:
        picture = [number for number, rows in enumerate(junk[kind]) for _ in rows]
        rows = [row for rows in junk[kind] for row in rows]
        out[kind] = np.array(rows, np.int64).reshape(len(rows), len(quality.MEASURES)), picture, len(junk[kind])
    return out


def right_reasons(one, settings):
    """How much more often pictures with a flaw are given its reason than those as they are, three times
    counted: a mean over flaws."""
    _, reasons = quality.judge(one.measures, settings)
    plain = one.kinds == AS_IT_IS
    gains = []
    for kind, word in REASON_OF.items():
        has = reasons >> quality.REASONS.index(word) & 1
        gains.append(has[one.kinds == kind].mean() - 3 * has[plain].mean())
    return float(np.mean(gains))


def refused_junk(junk, settings):
    """{kind: share of pictures without a face that is good enough}"""
    out = {}
    for kind, (rows, picture, count) in junk.items():
        seen = np.zeros(count, bool)
        np.logical_or.at(seen, picture, quality.judge(rows, settings)[0] >= GOOD)
        out[kind] = float(1 - seen.mean())
    return out


def _within(value, bounds):
    if isinstance(value, tuple):
        return tuple(_within(one, limits) for one, limits in zip(value, bounds))
    return min(max(value, bounds[0]), bounds[1])


class Fit:
    """Searches for settings by moving one to three numbers at a time. flawed: the pool with all flaws."""

    def __init__(self, pools, flawed, junk, settings):
        self.pools, self.flawed, self.junk = pools, flawed, junk
        self.settings = dict(settings) | {name: _within(settings[name], BOUNDS[name]) for name in BOUNDS}
        self.rates = [one.rate_of_each() for one in pools]

    def worth(self, settings):
        """What is to be as large as possible: false rejects that go, faces on the right side of the
        limit, junk below it, reasons where they belong."""
        gone, right = [], []
        for one, rates in zip(self.pools, self.rates):
            values, _ = quality.judge(one.measures, settings)
            gone.append(np.mean([share for share, _ in one.without_worst(values, SHARES)]))
            good = values >= GOOD
            right.append(good[rates < 0.2].mean() - 0.5 * good[rates > 0.6].mean())
        junk = refused_junk(self.junk, settings)
        missing = sum(max(0.0, REFUSED - share) for share in junk.values())
        reasons = right_reasons(self.flawed, settings)
        return float(np.mean(gone) + 0.35 * np.mean(right) + 0.15 * reasons - 2 * missing)

    def _moved(self, settings, name, at, random):
        """One number somewhere else in its bounds, near or far."""
        low, high = BOUNDS[name][at] if at is not None else BOUNDS[name]
        old = settings[name][at] if at is not None else settings[name]
        reach = (high - low) * float(np.exp(random.uniform(np.log(0.01), np.log(0.5))))
        new = int(np.clip(round(old + random.normal(0, reach)), low, high))
        out = dict(settings)
        out[name] = new if at is None else tuple(new if k == at else v for k, v in enumerate(out[name]))
        return out

    def run(self, rounds, seed=0):
        random = np.random.default_rng(seed)
        places = [(name, at) for name in quality.RAMPS if name in BOUNDS for at in (0, 1)]
        places += [("kLeastScoreFactor", None), ("kSureScore", None)]
        best, value = self.settings, self.worth(self.settings)
        for _ in range(rounds):
            trial = best
            for _ in range(1 + int(random.random() < 0.4) + int(random.random() < 0.2)):
                trial = self._moved(trial, *places[random.integers(len(places))], random)
            worth = self.worth(trial)
            if worth > value:
                best, value = trial, worth
        return best, value


def figures(one, settings):
    values, _ = quality.judge(one.measures, settings)
    (gone, left), (twice, _) = one.without_worst(values, (0.1, 0.2))
    rates = one.rate_of_each()
    good = values >= GOOD
    return {
        "pictures": len(values),
        "threshold": one.threshold,
        "false_rejects": float(one.refused.mean()),
        "gone_with_worst_tenth": gone,
        "gone_with_worst_fifth": twice,
        "false_rejects_without_worst_tenth": left,
        "below_limit": float(1 - good.mean()),
        "false_rejects_of_pictures_below_limit": float(np.nanmean(rates[~good])) if (~good).any() else None,
        "false_rejects_of_pictures_above_limit": float(np.nanmean(rates[good])),
    }


def table_of_kinds(one, settings):
    """{kind of picture: how its pairs fare, what is below the limit, and the share with each reason}"""
    values, reasons = quality.judge(one.measures, settings)
    rates = one.rate_of_each()
    table = {}
    for kind in sorted(set(one.kinds)):
        mine = one.kinds == kind
        table[str(kind)] = {
            "pictures": int(mine.sum()),
            "refused pairs": float(np.nanmean(rates[mine])),
            "below limit": float(np.mean(values[mine] < GOOD)),
        } | {word: float(np.mean(reasons[mine] >> bit & 1)) for bit, word in enumerate(quality.REASONS)}
    return table


def draw(pools, settings, path):
    """False reject rates among the pictures that are left."""
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    shares = np.arange(0, 0.5, 0.01)
    figure, panel = plt.subplots(figsize=(7, 4.5))
    for colour, (name, one) in enumerate(pools.items()):
        values, _ = quality.judge(one.measures, settings)
        curve = 100 * np.array([rate for _, rate in one.without_worst(values, shares)])
        panel.plot(100 * shares, curve, color=f"C{colour}", label=name)
        best = 100 * np.array([r for _, r in one.without_worst(-np.nan_to_num(one.rate_of_each()), shares)])
        panel.plot(100 * shares, best, color=f"C{colour}", linestyle=":", linewidth=1)
    panel.set_xlabel("pictures taken away, least quality first, %")
    panel.set_ylabel("pairs of one person refused at FAR 1 %, %")
    panel.set_ylim(bottom=0)
    panel.set_xlim(0, 49)
    panel.grid(alpha=0.3)
    panel.legend(title="dotted: in the best order there is", fontsize=8, title_fontsize=8)
    figure.tight_layout()
    figure.savefig(path, dpi=100)


def written(text, settings):
    """The settings' file with these numbers."""
    for name in BOUNDS:
        value = settings[name]
        new = "{%d, %d}" % value if isinstance(value, tuple) else str(value)
        text, count = re.subn(rf"(inline constexpr \w+ {name} =\s*)[^;]+;", rf"\g<1>{new};", text)
        if count != 1:
            raise SystemExit(f"{SETTINGS.name} does not say {name} once")
    return text


def print_report(report):
    print(json.dumps(report["settings"]))
    for name, one in report["pools"].items():
        print(
            f"{name:34}{one['pictures']:6} pictures, {100 * one['false_rejects']:5.1f} % refused; without the worst tenth "
            f"{100 * one['gone_with_worst_tenth']:4.1f} % of these gone, {100 * one['false_rejects_without_worst_tenth']:5.1f} % "
            f"refused; below {GOOD}: {100 * one['below_limit']:4.1f} %"
        )
    for name, junk in report["junk"].items():
        print(f"{name:34}refused: " + ", ".join(f"{kind} {100 * share:.1f} %" for kind, share in junk.items()))
    for name, table in report["kinds"].items():
        print(f"{name}, %")
        columns = list(next(iter(table.values())))[1:]
        print(f"{'':26}" + "".join(f"{word:>14}" for word in columns))
        for kind, row in table.items():
            print(f"{kind:20}{row['pictures']:6}" + "".join(f"{100 * row[word]:14.0f}" for word in columns))


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.evaluation.calibrate_quality",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    add = parser.add_argument
    for prefix, what in (("", "fitted"), ("test-", "measured")):
        add(f"--{prefix}frames", type=Path, required=True, help=f"what `facegen frames` wrote, to be {what} on")
        add(f"--{prefix}cutouts", type=Path, required=True, help="what `facegen cutouts` wrote")
        add(f"--{prefix}bank", type=Path, required=True, help="pictures without people")
    add("--people", type=Path, help="real portraits, one sub-folder a person, to be measured on")
    add("--most-people", type=int, default=200, help="of each folder of rendered ones (%(default)s)")
    add("--rounds", type=int, default=4000, help="settings that are tried; 0: measure only (%(default)s)")
    add("--write", action="store_true", help="write the settings into find/settings.h")
    add("--again", action="store_true", help="with what was seen last time (the models are the same)")
    add("--out", type=Path, required=True, help="folder for quality.json and quality.png")
    return parser.parse_args()


def _gathered(eyes, frames, cutouts, bank, most, seed):
    probes = quality_sets.of_frames(eyes, frames, most, seed)
    sides, backs = quality_sets.of_cutouts(eyes, cutouts, bank, most, seed + 1)
    return probes, sides, as_one_table(quality_sets.junk(eyes, frames, bank, backs, seed + 2))


def _pools(probes, sides):
    return {"as rendered": pool(as_they_are(probes)), "half of them with a flaw": pool(mixed(probes)),
            "from all sides": pool(sides)}  # fmt: skip


def _looked_at(args, eyes):
    """What the libraries see of everything; it takes minutes, and is kept beside the results."""
    kept = args.out / "seen.pickle"
    if args.again and kept.exists():
        return pickle.loads(kept.read_bytes())
    seen = {
        "fit": _gathered(eyes, args.frames, args.cutouts, args.bank, args.most_people, 1),
        "test": _gathered(eyes, args.test_frames, args.test_cutouts, args.test_bank, args.most_people, 11),
        "people": quality_sets.of_people(eyes, args.people, 21) if args.people else [],
    }
    args.out.mkdir(parents=True, exist_ok=True)
    kept.write_bytes(pickle.dumps(seen))
    return seen


def main():
    args = parse_arguments()
    cv2.setNumThreads(1)
    eyes = quality_sets.Eyes(Library(), FindLibrary())
    settings = {name: eyes.settings[name] for name in (*quality.RAMPS, "kLeastScoreFactor", "kSureScore",
                                                        "kReportedProbability", "kWhite", "kNosePlace", "kMouthPlace")}  # fmt: skip
    seen = _looked_at(args, eyes)
    (*probes, junk), (*test_probes, test_junk) = seen["fit"], seen["test"]
    pools, test = _pools(*probes), _pools(*test_probes)
    if args.rounds:
        settings, _ = Fit(list(pools.values()), pools["half of them with a flaw"], junk, settings).run(args.rounds)
    if seen["people"]:
        test["portraits as they are"] = pool(as_they_are(seen["people"]))
        test["portraits, half with a flaw"] = pool(mixed(seen["people"]))
    named = {f"fit: {name}": one for name, one in pools.items()} | test
    report = {
        "settings": settings,
        "pools": {name: figures(one, settings) for name, one in named.items()},
        "junk": {"fit": refused_junk(junk, settings), "test": refused_junk(test_junk, settings)},
        "kinds": {name: table_of_kinds(one, settings) for name, one in test.items() if len(set(one.kinds)) > 1},
    }
    print_report(report)
    (args.out / "quality.json").write_text(json.dumps(report, indent=1))
    draw(test, settings, args.out / "quality.png")
    if args.write:
        SETTINGS.write_text(written(SETTINGS.read_text(), settings))


if __name__ == "__main__":
    main()

# SPDX-License-Identifier: MIT
"""Figures for parts of the rendered people and pictures, at the thresholds of the whole."""
import numpy as np

from .pairs import threshold_at

_NAMES = {
    "age_band": ("child", "young", "middle", "old"),
    "skin_tone": ("light", "medium", "dark"),
    "light_kind": ("soft", "side", "hard or clipped", "dark", "infrared-like"),
    "occlusion_kind": ("none", "glasses", "dark glasses", "cap", "mask", "hand or other"),
}
_OF_PEOPLE = ("age_band", "skin_tone", "sex")


def _named(kind, value):
    if kind == "sex":
        return "female-ish" if value < 0.5 else "male-ish"
    if kind == "yaw":
        turned = abs(value)
        return next(
            name
            for limit, name in ((15, "below 15"), (30, "15 to 30"), (45, "30 to 45"), (1e9, "above 45"))
            if turned < limit
        )
    return _NAMES[kind][int(value)]


def group_figures(scores, labels, rates=(1e-2, 1e-3)):
    """{kind: {group: figures}}. A group of people: pairs within it. A group of pictures: pairs of
    which at least one picture belongs to it."""
    far, _ = scores.curves()
    thresholds = {rate: threshold_at(far, rate) for rate in rates}
    out = {}
    for kind in ("age_band", "skin_tone", "sex", "yaw", "light_kind", "occlusion_kind"):
        names = np.array([_named(kind, label[kind]) for label in labels])
        out[kind] = {}
        for name in sorted(set(names)):
            member = names == name
            join = np.logical_and if kind in _OF_PEOPLE else np.logical_or
            same = join(*(member[side] for side in scores.pairs.same))
            different = join(*(member[side] for side in scores.pairs.different))
            entry = {"pictures": int(member.sum()), "same_pairs": int(same.sum())}
            for rate, threshold in thresholds.items():
                if same.any() and different.any():
                    entry[f"tar_at_{rate:g}"] = float((scores.same[same] >= threshold).mean())
                    entry[f"far_at_{rate:g}"] = float(
                        (scores.different[different] >= threshold).mean()
                    )
            out[kind][name] = entry
    return out

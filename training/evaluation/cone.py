# SPDX-License-Identifier: MIT
"""Whether scores mean the same among these people as among others: how far their features lie in one
cone, and what a threshold from elsewhere does here."""
import numpy as np


def cone_figures(features, people, thresholds=(), rates=(1e-1, 1e-2, 1e-3)):
    """Mean score of strangers, length of the mean feature, the thresholds that give `rates` here, and
    the rates at which `thresholds` accept strangers and one person's pictures."""
    people = np.asarray(people)
    scores = features @ features.T
    above = np.triu(np.ones(scores.shape, bool), 1)
    alike = people[:, None] == people[None, :]
    same, different = np.sort(scores[above & alike]), np.sort(scores[above & ~alike])
    return {
        "mean_of_strangers": float(different.mean()),
        "spread_of_strangers": float(different.std()),
        "mean_of_one_person": float(same.mean()),
        "length_of_mean": float(np.linalg.norm(features.mean(0))),
        "thresholds": {
            f"{rate:g}": float(different[max(0, len(different) - 1 - int(rate * len(different)))])
            for rate in rates
        },
        "at": {
            f"{threshold:g}": {
                "false_accepts": float((different > threshold).mean()),
                "accepted": float((same > threshold).mean()),
            }
            for threshold in thresholds
        },
    }

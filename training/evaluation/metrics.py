# SPDX-License-Identifier: MIT
"""Figures of merit from the scores of pairs of pictures."""
import numpy as np


def pair_scores(features, people):
    """Cosines of all pairs: those of the same person, those of different people."""
    people = np.asarray(people)
    scores = features @ features.T
    above = np.triu(np.ones(scores.shape, bool), 1)
    same = people[:, None] == people[None, :]
    return scores[above & same], scores[above & ~same]


def tar_at_far(same, different, far):
    """The share of same-person pairs accepted by the threshold that accepts `far` of the others."""
    ordered = np.sort(different)[::-1]
    threshold = ordered[min(int(far * len(ordered)), len(ordered) - 1)]
    return float(np.mean(same > threshold))


def roc(same, different):
    """False and true acceptance rates for all thresholds, in ascending order."""
    scores = np.concatenate([same, different])
    order = np.argsort(-scores, kind="stable")
    is_same = np.concatenate([np.ones(len(same)), np.zeros(len(different))])[order]
    last = np.append(np.diff(scores[order]) != 0, True)  # equal scores pass together
    tar = np.cumsum(is_same)[last] / len(same)
    far = np.cumsum(1 - is_same)[last] / len(different)
    return np.append(0, far), np.append(0, tar)


def equal_error_rate(same, different):
    far, tar = roc(same, different)
    gap = far - (1 - tar)
    after = int(np.argmax(gap >= 0))
    if after == 0:
        return float(far[0])
    step = gap[after] - gap[after - 1]
    share = -gap[after - 1] / step if step else 0.0
    return float(far[after - 1] + share * (far[after] - far[after - 1]))


def rank_1(features, people):
    """The share of pictures whose most similar other picture shows the same person; pictures of
    people with a single picture are only searched among."""
    people = np.asarray(people)
    scores = features @ features.T
    np.fill_diagonal(scores, -np.inf)
    nearest = people[np.argmax(scores, axis=1)]
    counts = {person: np.sum(people == person) for person in np.unique(people)}
    asked = np.array([counts[person] > 1 for person in people])
    return float(np.mean(nearest[asked] == people[asked]))

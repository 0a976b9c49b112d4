# SPDX-License-Identifier: MIT
"""All pairs of an evaluation's pictures, their scores, and figures with intervals.

Intervals are those of the 2.5 % and 97.5 % quantiles over redrawn people: whole people are drawn
with replacement, since pairs of the same person resemble each other.
"""
import numpy as np

BINS = 8192  # of the scores from -1 to 1; finer than any figure here


class Pairs:
    def __init__(self, people, most_different=3_000_000, seed=0):
        names = sorted(set(people))
        self.person = np.array([names.index(p) for p in people])
        self.people = len(names)
        n = len(people)
        first, second = np.triu_indices(n, 1)
        same = self.person[first] == self.person[second]
        different = np.flatnonzero(~same)
        if len(different) > most_different:
            chosen = np.random.default_rng(seed).choice(len(different), most_different, False)
            different = different[np.sort(chosen)]
        self.same = first[same], second[same]
        self.different = first[different], second[different]

    def score(self, features):
        return Scores(self, features)


def _codes(features, pair):
    products = np.empty(len(pair[0]), np.float32)
    for begin in range(0, len(products), 65536):
        part = slice(begin, begin + 65536)
        products[part] = np.einsum("ij,ij->i", features[pair[0][part]], features[pair[1][part]])
    return np.clip((products + 1) * (BINS / 2), 0, BINS - 1).astype(np.int32)


class Scores:
    """Scores as numbers of bins, and what follows from them."""

    def __init__(self, pairs, features):
        self.pairs, self.features = pairs, features
        self.same = _codes(features, pairs.same)
        self.different = _codes(features, pairs.different)

    def curves(self, weights=None, same=None, different=None):
        """False and true acceptance for each threshold, strictest first. `weights`: of people;
        `same`, `different`: which pairs count."""

        def histogram(codes, pair, chosen):
            if weights is None and chosen is None:
                return np.bincount(codes, minlength=BINS)
            w = np.ones(len(codes)) if weights is None else (
                weights[self.pairs.person[pair[0]]] * weights[self.pairs.person[pair[1]]]
            )  # fmt: skip
            if chosen is not None:
                w = w * chosen
            return np.bincount(codes, weights=w, minlength=BINS)

        far = np.cumsum(histogram(self.different, self.pairs.different, different)[::-1])
        # A person drawn twice is still one person: their pairs count as often as they were drawn.
        if weights is not None:
            w = weights[self.pairs.person[self.pairs.same[0]]]
            chosen = w if same is None else w * same
            tar = np.cumsum(np.bincount(self.same, weights=chosen, minlength=BINS)[::-1])
        else:
            tar = np.cumsum(histogram(self.same, self.pairs.same, same)[::-1])
        return far / max(far[-1], 1e-12), tar / max(tar[-1], 1e-12)


def tar_at(far, tar, rate):
    """True acceptance at the last threshold that accepts no more than `rate` of the others."""
    at = int(np.searchsorted(far, rate, side="right")) - 1
    return float(tar[at]) if at >= 0 else 0.0


def threshold_at(far, rate):
    """Number of the loosest bin that accepts no more than `rate`."""
    return BINS - int(np.searchsorted(far, rate, side="right"))


def equal_error(far, tar):
    at = int(np.argmax(far >= 1 - tar))
    return float(0.5 * (far[at] + 1 - tar[at]))


def area(far, tar):
    far, tar = np.append(0, far), np.append(0, tar)
    return float((np.diff(far) * (tar[1:] + tar[:-1])).sum() / 2)


def found_first(scores, rounds=10):
    """For each picture, how often it is most like its own person's when one picture of each person
    is enrolled: over up to ten rounds, in which each person's first, second, ... picture is. Not a
    number for people with a single picture."""
    person = scores.pairs.person
    places = [np.flatnonzero(person == p) for p in range(scores.pairs.people)]
    right, asked = np.zeros(len(person)), np.zeros(len(person))
    for turn in range(min(rounds, max(map(len, places)))):
        enrolled = np.array([own[turn % len(own)] for own in places])
        nearest = (scores.features @ scores.features[enrolled].T).argmax(1)
        probe = np.ones(len(person), bool)
        probe[enrolled] = False
        right += probe & (nearest == person)
        asked += probe
    return np.where(asked > 0, right / np.maximum(asked, 1), np.nan)


def _figures(scores, right, weights=None):
    far, tar = scores.curves(weights)
    w = np.ones(len(right)) if weights is None else weights[scores.pairs.person].astype(float)
    w = np.where(np.isnan(right), 0, w)
    return {
        "eer": equal_error(far, tar),
        "tar_at_far_1e-2": tar_at(far, tar, 1e-2),
        "tar_at_far_1e-3": tar_at(far, tar, 1e-3),
        "rank_1": float((np.nan_to_num(right) * w).sum() / w.sum()),
        "auc": area(far, tar),
    }


def verification_accuracy(scores, folds=10, seed=0):
    """Balanced pairs in ten folds of different people; each fold is judged with the threshold that
    suits the other nine best. Mean, and 1.96 standard errors over the folds."""
    random = np.random.default_rng(seed)
    folds = min(folds, scores.pairs.people // 2)
    fold_of = random.permutation(scores.pairs.people) % folds
    person, sets = scores.pairs.person, []
    for fold in range(folds):
        same = np.flatnonzero(fold_of[person[scores.pairs.same[0]]] == fold)
        inside = (fold_of[person[scores.pairs.different[0]]] == fold) & (
            fold_of[person[scores.pairs.different[1]]] == fold
        )
        different = np.flatnonzero(inside)
        count = min(len(same), len(different), 5000)
        same = random.choice(same, count, False)
        different = random.choice(different, count, False)
        sets.append((scores.same[same], scores.different[different]))
    results = []
    for fold, (same, different) in enumerate(sets):
        others = [s for i, s in enumerate(sets) if i != fold]
        accepted = np.cumsum(_histogram([s for s, _ in others])[::-1])
        wrong = np.cumsum(_histogram([d for _, d in others])[::-1])
        gain = accepted - wrong
        best = BINS - 1 - int(np.median(np.flatnonzero(gain == gain.max())))
        results.append(0.5 * ((same >= best).mean() + (different < best).mean()))
    error = 1.96 * np.std(results, ddof=1) / np.sqrt(folds)
    return float(np.mean(results)), float(error)


def _histogram(parts):
    return np.bincount(np.concatenate(parts), minlength=BINS)


def figures(scores, rounds=200, seed=0):
    """{name: [value, low, high]}."""
    right = found_first(scores)
    values = _figures(scores, right)
    random = np.random.default_rng(seed)
    people = scores.pairs.people
    redrawn = [
        _figures(scores, right, np.bincount(random.integers(people, size=people), minlength=people))
        for _ in range(rounds)
    ]
    out = {
        name: [value, *np.quantile([r[name] for r in redrawn], (0.025, 0.975)).tolist()]
        for name, value in values.items()
    }
    accuracy, error = verification_accuracy(scores, seed=seed)
    return {"accuracy": [accuracy, accuracy - error, min(1.0, accuracy + error)], **out}

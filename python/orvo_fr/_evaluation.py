# SPDX-License-Identifier: MIT
"""How often features are wrong about people whose names are known: the figures of `kova-fr eval`."""
from dataclasses import dataclass
from typing import Any, Iterable, Iterator, NamedTuple, Optional, Sequence

import numpy as np
import numpy.typing as npt

from ._recognition import FEATURE_LENGTH, Features, _checked, distances

_PER_UNIT = 10000
_LAST = _PER_UNIT + 1
# Scores are counted between the multiples of 0.0001 from -1.0001 to 1.0001, each as the float nearest
# to it: what a program has that says `distance >= 0.4523f`. So the counts at a threshold are exact.
_NUMBERS = np.arange(-_LAST, _LAST + 1) / _PER_UNIT
_THRESHOLDS = _NUMBERS.astype(np.float32)
_WANTED = (1e-1, 1e-2, 1e-3, 1e-4)
_ROUNDS = 10
_NONE = np.float32(-2)  # below every score
#: Pictures a side of what is compared at a time.
PART = 2048

Counts = npt.NDArray[np.int64]


def _ranks(scores: Features) -> npt.NDArray[np.intp]:
    """The highest threshold that accepts each score."""
    if not (np.abs(scores) < _THRESHOLDS[-1]).all():
        raise ValueError("features must have finite numbers and unit length")
    # Rounded, this may be one too high or too low where the score is next to a threshold.
    ranks: npt.NDArray[np.intp] = (
        np.floor(scores.astype(np.float64) * _PER_UNIT).astype(np.intp) + _LAST
    )
    ranks -= scores < _THRESHOLDS[ranks]
    ranks += scores >= _THRESHOLDS[ranks + 1]
    return ranks


class Part(NamedTuple):
    """Some of the pictures."""

    first: int
    features: Features
    person: npt.NDArray[np.int64]
    #: In which rounds each is enrolled, a bit a round.
    enrolled: npt.NDArray[np.int64]


class Compared(NamedTuple):
    """What pairs of pictures say. It does not matter in which order they are added up."""

    same: Counts  # pairs of one person by rank
    different: Counts
    #: The first picture of a part, and float32 [pictures, rounds, 2]: the most alike of the enrolled,
    #: of one's own person and of others.
    bests: list[tuple[int, Features]]


def _best(scores: Features, same: npt.NDArray[np.bool_], enrolled: npt.NDArray[np.int64]) -> Features:
    best = np.full((len(scores), _ROUNDS, 2), _NONE, np.float32)
    for turn in range(_ROUNDS):
        columns = np.flatnonzero(enrolled >> turn & 1)
        if len(columns):
            own = same[:, columns]
            best[:, turn, 0] = np.where(own, scores[:, columns], _NONE).max(axis=1)
            best[:, turn, 1] = np.where(own, _NONE, scores[:, columns]).max(axis=1)
    return best


def compare(first: Part, others: Sequence[Part]) -> Compared:
    """All pairs of a part with others, among which it may be itself, each pair once."""
    same = np.zeros(len(_THRESHOLDS), np.int64)
    different = np.zeros(len(_THRESHOLDS), np.int64)
    bests = []
    for second in others:
        scores = distances(first.features, second.features)
        is_same = first.person[:, None] == second.person[None]
        ranks = _ranks(scores)
        is_itself = first.first == second.first
        pairs = np.tri(len(scores), k=-1, dtype=bool) if is_itself else np.ones_like(is_same)
        same += np.bincount(ranks[pairs & is_same], minlength=len(_THRESHOLDS))
        different += np.bincount(ranks[pairs & ~is_same], minlength=len(_THRESHOLDS))
        if is_itself:
            np.fill_diagonal(scores, _NONE)  # nobody is looked for by their own picture
        else:
            bests.append((second.first, _best(scores.T, is_same.T, first.enrolled)))
        bests.append((first.first, _best(scores, is_same, second.enrolled)))
    return Compared(same, different, bests)


def _enrolled(person: npt.NDArray[np.int64]) -> npt.NDArray[np.int64]:
    """One picture of each person is enrolled in a round: the first, in the next the second, and so
    on, beginning anew with those who have fewer; as many rounds as somebody has pictures."""
    bits = np.zeros(len(person), np.int64)
    order = np.argsort(person, kind="stable")
    groups = np.split(order, np.flatnonzero(np.diff(person[order])) + 1) if len(order) else []
    rounds = min(_ROUNDS, max(map(len, groups), default=0))
    for own in groups:
        for turn in range(rounds):
            bits[own[turn % len(own)]] |= 1 << turn
    return bits


class Sums:
    """What the parts' comparisons come to."""

    def __init__(self, person: npt.NDArray[np.int64]) -> None:
        self._person = person
        self._same = np.zeros(len(_THRESHOLDS), np.int64)
        self._different = np.zeros(len(_THRESHOLDS), np.int64)
        self._best = np.full((len(person), _ROUNDS, 2), _NONE, np.float32)

    def add(self, compared: Compared) -> None:
        """Each couple of parts once, in any order."""
        self._same += compared.same
        self._different += compared.different
        for begin, best in compared.bests:
            rows = self._best[begin : begin + len(best)]
            np.maximum(rows, best, out=rows)

    def result(self) -> "Evaluation":
        """The figures, once all were added."""
        return Evaluation(
            pictures=len(self._person),
            people=len(np.unique(self._person)),
            same=self._same,
            different=self._different,
            rank_1=self._rank_1(),
        )

    def _rank_1(self) -> Optional[float]:
        enrolled = _enrolled(self._person)
        rounds = int(enrolled.max(initial=0)).bit_length()
        is_asked = (enrolled[:, None] >> np.arange(rounds) & 1) == 0
        right = (self._best[:, :rounds, 0] > self._best[:, :rounds, 1]) & is_asked
        asked = is_asked.sum(axis=1)
        counted = asked > 0
        if len(np.unique(self._person)) < 2 or not counted.any():
            return None
        return float((right.sum(axis=1)[counted] / asked[counted]).sum() / counted.sum())


class ErrorRates(NamedTuple):
    """How often a threshold is wrong. Rates are None where there are no pairs of that kind."""

    threshold: float
    false_accepts: Optional[float]
    false_rejects: Optional[float]


class Recommendation(NamedTuple):
    """The lowest threshold with at most a wanted rate of false accepts; None where there are too few
    pairs of two people to claim that rate: 3 / wanted are needed."""

    wanted: float
    rates: Optional[ErrorRates]


@dataclass(frozen=True, eq=False)
class Evaluation:
    """How scores of pairs of one person and of two people lie.

    The figures are those of `kova-fr eval`, which has intervals besides.
    """

    #: How many pictures, of how many people.
    pictures: int
    people: int
    #: int64 [20003]: pairs of one person by the highest threshold that accepts them, from -1.0001 in
    #: steps of 0.0001.
    same: Counts
    #: The same for pairs of two people.
    different: Counts
    #: Share of searches that find the right person first; None if there is nobody to be looked for.
    rank_1: Optional[float]

    @property
    def same_pairs(self) -> int:
        """Pairs of one person."""
        return int(self.same.sum())

    @property
    def different_pairs(self) -> int:
        """Pairs of two people."""
        return int(self.different.sum())

    def _rates(self) -> tuple[npt.NDArray[np.float64], npt.NDArray[np.float64]]:
        """False accepts and false rejects at each threshold; not a number without such pairs."""
        accepted = [np.cumsum(counts[::-1])[::-1] for counts in (self.different, self.same)]
        with np.errstate(invalid="ignore", divide="ignore"):
            false_accepts = accepted[0] / self.different_pairs
            false_rejects = (self.same_pairs - accepted[1]) / self.same_pairs
        return false_accepts, false_rejects

    def _has_both(self) -> bool:
        return self.same_pairs > 0 and self.different_pairs > 0

    def at(self, threshold: float) -> ErrorRates:
        """The rates at a threshold, a multiple of 0.0001 from -1.0001 to 1.0001, which accepts pairs
        from it upwards."""
        rank = round(threshold * _PER_UNIT) + _LAST
        if not 0 <= rank < len(_NUMBERS) or abs(_NUMBERS[rank] - threshold) > 1e-9:
            raise ValueError(
                f"threshold must be a multiple of 0.0001 from -1.0001 to 1.0001, not {threshold}"
            )
        return self._at_rank(rank)

    def _at_rank(self, rank: int) -> ErrorRates:
        rates = [float(rates[rank]) for rates in self._rates()]
        accepts, rejects = (None if np.isnan(rate) else rate for rate in rates)
        return ErrorRates(float(_NUMBERS[rank]), accepts, rejects)

    @property
    def equal_error_rate(self) -> Optional[float]:
        """Where there are as many false accepts as false rejects; None without both kinds of pairs."""
        if not self._has_both():
            return None
        accepts, rejects = self._rates()
        gaps = np.append(accepts - rejects, -1.0)
        accepts = np.append(accepts, 0.0)
        reached = np.flatnonzero(gaps >= 0)
        if not len(reached):
            return 1.0
        rank = reached[-1]
        share = -gaps[rank + 1] / (gaps[rank] - gaps[rank + 1])
        return float(accepts[rank + 1] + share * (accepts[rank] - accepts[rank + 1]))

    @property
    def area_under_curve(self) -> Optional[float]:
        """The share of couples of pairs in which that of one person scores higher."""
        if not self._has_both():
            return None
        accepts, rejects = self._rates()
        accepts, rejects = np.append(accepts, 0.0), np.append(rejects, 1.0)
        return float((-np.diff(accepts) * (1 - (rejects[1:] + rejects[:-1]) / 2)).sum())

    @property
    def recommended(self) -> tuple[Recommendation, ...]:
        """Thresholds for one to four nines against false accepts."""
        accepts, _ = self._rates()
        found = []
        for wanted in _WANTED:
            rates = None
            if self.different_pairs >= round(3 / wanted):
                rates = self._at_rank(int(np.flatnonzero(accepts <= wanted)[0]))
            found.append(Recommendation(wanted, rates))
        return tuple(found)

    def to_frame(self, thresholds: Optional[Iterable[float]] = None) -> Any:
        """A pandas.DataFrame with a row a threshold and the columns of ErrorRates; without
        `thresholds` for 0 to 0.95 in steps of 0.05.

        Raises:
            ImportError: pandas is not there.
        """
        wanted = (step / 20 for step in range(20)) if thresholds is None else thresholds
        return _pandas().DataFrame([self.at(one) for one in wanted], columns=ErrorRates._fields)


def people_numbers(people: Sequence[Any], count: int) -> npt.NDArray[np.int64]:
    """A number for each person's name, in their order of appearance."""
    if len(people) != count:
        raise ValueError(f"people must name the person of each of {count} features, not {len(people)}")
    numbers: dict[Any, int] = {}
    return np.array([numbers.setdefault(one, len(numbers)) for one in people], np.int64)


def parts(features: Features, person: npt.NDArray[np.int64], size: int) -> Iterator[Part]:
    """The pictures in parts of a size."""
    enrolled = _enrolled(person)
    for first in range(0, len(features), size):
        rows = slice(first, first + size)
        yield Part(first, features[rows], person[rows], enrolled[rows])


def evaluate(features: Features, people: Sequence[Any]) -> Evaluation:
    """Compares all pictures with one another.

    Args:
        features: float32 of shape (N, 128).
        people: who is on each picture: N names or numbers.

    Raises:
        TypeError, ValueError: no features, or another number of names.
    """
    checked = _checked("features", features, (None, FEATURE_LENGTH))
    person = people_numbers(people, len(checked))
    sums = Sums(person)
    every = list(parts(checked, person, PART))
    for i, first in enumerate(every):
        sums.add(compare(first, every[: i + 1]))
    return sums.result()


def pair_scores(
    features: Features, people: Sequence[Any], names: Optional[Sequence[str]] = None
) -> Any:
    """The score of each pair of pictures as a pandas.DataFrame.

    Its columns are first, second (numbers of the pictures, or their `names`), same (whether they show
    one person) and score; a row for each of N * (N - 1) / 2 pairs.

    Args:
        features: float32 of shape (N, 128).
        people: who is on each picture: N names or numbers.
        names: what to call the pictures.

    Raises:
        TypeError, ValueError: no features, or another number of names.
        ImportError: pandas is not there.
    """
    checked = _checked("features", features, (None, FEATURE_LENGTH))
    person = people_numbers(people, len(checked))
    if names is not None and len(names) != len(checked):
        raise ValueError(f"names must name each of {len(checked)} pictures, not {len(names)}")
    second, first = np.tril_indices(len(checked), k=-1)
    scores = distances(checked)[second, first]
    labels = np.arange(len(checked)) if names is None else np.array(names, object)
    return _pandas().DataFrame(
        {
            "first": labels[first],
            "second": labels[second],
            "same": person[first] == person[second],
            "score": scores,
        }
    )


def _pandas() -> Any:
    try:
        import pandas
    except ImportError as error:
        raise ImportError("data frames take pandas; install it (pip install pandas)") from error
    return pandas

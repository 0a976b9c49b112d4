# SPDX-License-Identifier: MIT
"""The most alike names among entries: one rule for one machine and for many."""
from typing import Iterable, NamedTuple, Sequence

import numpy as np
import numpy.typing as npt


class Match(NamedTuple):
    """An entry of a gallery and how alike it is."""

    name: str
    distance: float
    #: Its place in the gallery, from 0.
    entry: int


def best(matches: Iterable[Match], count: int) -> list[Match]:
    """The best entry of each of the `count` most alike names, from the most alike; of equal ones the
    earlier. The best of the best of parts are the best of the whole: a name that is among them has
    its best entry in some part, and there fewer than `count` names are better."""
    ranked: list[Match] = []
    names: set[str] = set()
    for match in sorted(matches, key=lambda match: (-match.distance, match.entry)):
        if len(ranked) == count:
            break
        if match.name not in names:
            names.add(match.name)
            ranked.append(match)
    return ranked


def best_of_block(
    known: Sequence[Match],
    distances: npt.NDArray[np.float32],
    first_entry: int,
    names: Sequence[str],
    count: int,
) -> list[Match]:
    """The best of those known and of the entries of a block, whose distances are float32 [entries].
    A distance that is no finite number matches nothing."""
    bound = known[-1].distance if len(known) == count else -np.inf
    # Entries come in their order, so of two that are equally alike the first is known already.
    places = np.flatnonzero(np.isfinite(distances) & (distances > bound))
    order = places[np.argsort(-distances[places], kind="stable")]
    found: list[Match] = []
    seen: set[str] = set()
    for place in order:
        if len(seen) == count:
            break
        if names[place] not in seen:
            seen.add(names[place])
            found.append(Match(names[place], float(distances[place]), first_entry + int(place)))
    return best([*known, *found], count) if found else list(known)

# SPDX-License-Identifier: MIT
"""The work of many pictures on many machines, by Dask's distributed scheduler.

    >>> client = distributed.Client("tcp://scheduler:8786")
    >>> found = cluster.extract_folder(client, "/shared/photographs")
    >>> cluster.evaluate(client, features, names).equal_error_rate
    >>> people = cluster.Shards(client, "/shared/people.gallery")
    >>> people.search(features, count=5)

The results are those of orvo_fr.extract_folder(), orvo_fr.evaluate() and orvo_fr.Gallery.search(), bit
for bit, however many workers there are and in whatever order they answer. What a worker held or was
doing when it was lost is done again by the others; a task that takes down three workers one after the
other is given up (Dask's distributed.scheduler.allowed-failures).

Every worker has this package and sees files by the paths that the client gives. A process extracts one
picture at a time: let each worker be a process of one thread, as many as there are cores.
"""
from itertools import count as numbers
from typing import Any, Callable, Iterable, Optional, Sequence

import numpy as np
from distributed import Client, Future, as_completed, wait

from ._evaluation import Evaluation, Part, Sums, compare, parts, people_numbers
from ._folders import Extraction, extract_path, pictures_in
from ._gallery import Block, State, check_count, read_blocks, search, state_of
from ._pictures import AnyPath
from ._ranking import Match, best
from ._recognition import FEATURE_LENGTH, Features, _checked

__all__ = ["Shards", "evaluate", "extract_folder"]

#: Hears how many of how many tasks are done.
Progress = Callable[[int, int], None]

_PICTURES_A_TASK = 16
_PICTURES_A_PART = 1024
_PARTS_A_TASK = 8
_FEATURES_A_TASK = 256


def _results(futures: Sequence[Future], progress: Optional[Progress]) -> Iterable[tuple[int, Any]]:
    """The number and the result of each task as it ends; its memory is given back at once."""
    number = {future.key: i for i, future in enumerate(futures)}
    total = len(futures)
    for done, future in zip(numbers(1), as_completed(futures)):
        # Asked for when its worker is gone, it waits until another has done it again.
        yield number[future.key], future.result()
        future.release()
        if progress is not None:
            progress(done, total)


def _extract_paths(paths: list[str], whole: bool) -> list[Extraction]:
    return [extract_path(path, whole) for path in paths]


def extract_folder(
    client: Client, folder: AnyPath, *, whole: bool = True, progress: Optional[Progress] = None
) -> list[Extraction]:
    """orvo_fr.extract_folder() on the workers, which read the pictures themselves.

    Args:
        client: a distributed.Client.
        folder: a folder that the client and all workers see by this name.
        whole: see orvo_fr.extract_folder().
        progress: hears how many of how many tasks are done.
    """
    paths = pictures_in(folder)
    futures = [
        client.submit(_extract_paths, paths[first : first + _PICTURES_A_TASK], whole, pure=False)
        for first in range(0, len(paths), _PICTURES_A_TASK)
    ]
    found: list[list[Extraction]] = [[] for _ in futures]
    for i, result in _results(futures, progress):
        found[i] = result
    return [one for some in found for one in some]


def _held(part: Part) -> Part:
    return part


def evaluate(
    client: Client,
    features: Features,
    people: Sequence[Any],
    *,
    progress: Optional[Progress] = None,
) -> Evaluation:
    """orvo_fr.evaluate() on the workers: all pairs of pictures.

    The scheduler keeps the features, 512 bytes a picture, and sends them again where a worker is lost.

    Args:
        client: a distributed.Client.
        features, people: see orvo_fr.evaluate().
        progress: hears how many of how many tasks are done.
    """
    checked = _checked("features", features, (None, FEATURE_LENGTH))
    person = people_numbers(people, len(checked))
    held = [client.submit(_held, p, pure=False) for p in parts(checked, person, _PICTURES_A_PART)]
    futures = [
        client.submit(compare, held[i], held[first : min(first + _PARTS_A_TASK, i + 1)], pure=False)
        for i in range(len(held))
        for first in range(0, i + 1, _PARTS_A_TASK)
    ]
    sums = Sums(person)
    for _, compared in _results(futures, progress):
        sums.add(compared)
    return sums.result()


def _load(path: AnyPath, state: State, since: int, until: int) -> Block:
    """A shard. A file that changed meanwhile is none of the shards that the others hold."""
    if state_of(path) != state:
        raise ValueError(f"{path}: the gallery has changed; make new shards of it")
    blocks = list(read_blocks(path, since, until))
    none = np.empty((0, FEATURE_LENGTH), np.float32)
    features = np.concatenate([none, *(block.features for block in blocks)])
    return Block(since, features, [name for block in blocks for name in block.names])


def _search(features: Features, shard: Block, count: int) -> list[list[Match]]:
    return search(features, shard, count)


class Shards:
    """A gallery whose entries the workers hold between them, to be searched by all of them at once.

    Args:
        client: a distributed.Client.
        path: a gallery's file that the client and all workers see by this name. It is read again where
            a worker is lost, and must not change as long as these shards are used.
        shards: how many; one for each thread of the workers without it.

    Raises:
        OSError, ValueError: see Gallery.load().
    """

    def __init__(self, client: Client, path: AnyPath, *, shards: Optional[int] = None) -> None:
        self._client = client
        state = state_of(path)
        #: Entries of the gallery.
        self.entries = state.entries
        threads = client.nthreads()
        # Neighbouring shards on different workers, while those are there.
        workers = [
            worker
            for turn in range(max(threads.values(), default=0))
            for worker, count in threads.items()
            if turn < count
        ]
        number = shards if shards is not None else max(1, len(workers))
        check_count(number)
        borders = [state.entries * i // number for i in range(number + 1)]
        self._shards = [
            client.submit(
                _load,
                path,
                state,
                borders[i],
                borders[i + 1],
                pure=False,
                workers=[workers[i % len(workers)]] if workers else None,
                allow_other_workers=bool(workers),
            )
            for i in range(number)
        ]
        wait(self._shards)
        for shard in self._shards:
            if shard.status == "error":
                raise shard.exception()

    def search(
        self, features: Features, count: int = 1, *, progress: Optional[Progress] = None
    ) -> list[list[Match]]:
        """What Gallery.search() finds in the whole gallery, ties included: of equally alike entries the
        earlier one in the file comes first, whichever worker holds it.

        Args:
            features: float32 of shape (N, 128).
            count: matches wanted, at least 1.
            progress: hears how many of how many tasks are done.
        """
        wanted = _checked("features", features, (None, FEATURE_LENGTH))
        check_count(count)
        begins = range(0, len(wanted), _FEATURES_A_TASK)
        asked = [begin for begin in begins for _ in self._shards]
        futures = [
            self._client.submit(
                _search, wanted[begin : begin + _FEATURES_A_TASK], shard, count, pure=False
            )
            for begin in begins
            for shard in self._shards
        ]
        found: list[list[Match]] = [[] for _ in wanted]
        for i, result in _results(futures, progress):
            for j, matches in enumerate(result, asked[i]):
                found[j] = best([*found[j], *matches], count)
        return found

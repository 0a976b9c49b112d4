# SPDX-License-Identifier: MIT
"""What scores mean for one camera and its people: the files of `kova-fr calibrate`."""
import json
from typing import Any, NamedTuple

import numpy as np
import numpy.typing as npt

from ._models import models_digest
from ._pictures import AnyPath
from ._recognition import FEATURE_LENGTH

_VERSION = 1


class Rarity(NamedTuple):
    """How rare a score is among strangers: one pair in `one_in`; fewer if `beyond`, which says that
    none of those that were measured scores as high."""

    one_in: float
    beyond: bool


class Calibration:
    """A calibration, read from the file that `kova-fr calibrate` wrote.

    Args:
        path: the file.

    Attributes:
        pictures, people: how many it was made from.
        thresholds: of the normalised score, as in the file: a list of dicts with "false_accept_rate",
            "threshold" and rates with their intervals.

    Raises:
        OSError: the file cannot be read.
        ValueError: it is no calibration, or one for other models.
    """

    def __init__(self, path: AnyPath) -> None:
        with open(path, "rb") as file:
            text = file.read()
        try:
            contents: dict[str, Any] = json.loads(text)
            if contents["kova_fr_calibration"] != _VERSION:
                raise ValueError("another version")
            models = contents["models"]
            self.pictures: int = int(contents["pictures"])
            self.people: int = int(contents["people"])
            self.thresholds: list[dict[str, Any]] = list(contents["thresholds"])
            self._mean = np.array(contents["mean"], np.float64)
            self._cohort = np.array(contents["cohort"], np.float32)
            self._most_alike = int(contents["most_alike"])
            self._pairs = int(contents["stranger_pairs"])
            strangers = np.array(contents["strangers"], np.float64)
            arrays: tuple[npt.NDArray[Any], ...] = (self._mean, self._cohort, strangers)
            if (
                self._mean.shape != (FEATURE_LENGTH,)
                or self._cohort.ndim != 2
                or self._cohort.shape[1] != FEATURE_LENGTH
                or not 0 < self._most_alike < len(self._cohort)
                or strangers.ndim != 2
                or strangers.shape[1] != 2
                or not all(np.isfinite(a).all() for a in arrays)
            ):
                raise ValueError("a shape")
        except (ValueError, KeyError, TypeError) as error:
            raise ValueError(
                f"{path}: is no calibration of kova-fr; make one with kova-fr calibrate"
            ) from error
        if models != models_digest():
            raise ValueError(f"{path}: was made with other models; make it anew")
        self._ranks, self._scores = strangers[:, 0], strangers[:, 1]

    def centred(self, features: npt.ArrayLike) -> npt.NDArray[np.float32]:
        """Features of shape (..., 128) less what everybody has in common, at unit length: their
        inner products are the centred scores."""
        given = np.asarray(features, np.float64)
        if given.ndim == 0 or given.shape[-1] != FEATURE_LENGTH:
            raise ValueError(f"features must have shape (..., {FEATURE_LENGTH}), not {given.shape}")
        rest = given - self._mean
        length = np.linalg.norm(rest, axis=-1, keepdims=True)
        return np.divide(rest, length, out=np.zeros_like(rest), where=length > 0).astype(np.float32)

    def _like_others(self, centred: npt.NDArray[np.float32]) -> npt.NDArray[np.float64]:
        # Without the very highest: the face may be that of somebody in the cohort.
        scores = -np.sort(-(centred @ self._cohort.T).astype(np.float64), axis=-1)
        return np.asarray(scores[..., 1 : 1 + self._most_alike].mean(-1))

    def scores(self, a: npt.ArrayLike, b: npt.ArrayLike) -> npt.NDArray[np.float64]:
        """The normalised scores of features of shape (N, 128) with others of shape (M, 128), as an
        array of shape (N, M). Within rounding of what `kova-fr` prints."""
        first, second = self.centred(a), self.centred(b)
        if first.ndim != 2 or second.ndim != 2:
            raise ValueError(f"features must have shape (N, {FEATURE_LENGTH})")
        shared = self._like_others(first)[:, None] + self._like_others(second)[None]
        return np.clip((first @ second.T).astype(np.float64) - 0.5 * shared, -1, 1)

    def score(self, a: npt.ArrayLike, b: npt.ArrayLike) -> float:
        """The normalised score of two features of shape (128,): the larger, the more alike."""
        return float(self.scores(np.asarray(a)[None], np.asarray(b)[None])[0, 0])

    def rarity(self, score: float) -> Rarity:
        """How rare a normalised score is among pairs of strangers."""
        below = np.flatnonzero(self._scores < score)
        if len(below) and below[0] == 0:
            return Rarity(max(1.0, self._pairs / 3), True)
        as_high = self._ranks[below[0]] - 1 if len(below) else self._ranks[-1]
        return Rarity(float(self._pairs / as_high), False)

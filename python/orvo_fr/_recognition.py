# SPDX-License-Identifier: MIT
"""Features of pictures that one face fills, and their distances."""
import ctypes
from itertools import islice
from typing import Any, Iterable, Iterator, Optional, Union

import numpy as np
import numpy.typing as npt

from . import _library, _many
from ._pictures import Picture, Plane, grey, scaled

#: Rows and columns of the picture that the library looks at.
IMAGE_SIZE = 256
#: Elements of a feature.
FEATURE_LENGTH = 128
_FEATURE_BYTES = 4 * FEATURE_LENGTH
# As a camera takes them.
_LEAST_WIDTH, _LEAST_HEIGHT = 16, 12
# Pictures in one call. Other threads and Ctrl-C have their turn between calls, after some
# hundredths of a second.
_PICTURES_A_CALL = 64
# Distances in one call, for the same reason.
_DISTANCES_A_CALL = 1 << 23

Features = npt.NDArray[np.float32]


def _checked(name: str, value: Any, shape: tuple[Optional[int], ...]) -> Features:
    """The features as the library can read them: without gaps, aligned. Copied only if not so."""
    if not isinstance(value, np.ndarray):
        raise TypeError(f"{name} must be a NumPy array, not {type(value).__name__}")
    if value.dtype != np.float32:
        raise TypeError(f"{name} must have dtype float32, not {value.dtype}")
    if value.ndim != len(shape) or any(w not in (None, s) for s, w in zip(value.shape, shape)):
        wanted = str(tuple("N" if n is None else n for n in shape)).replace("'", "")
        raise ValueError(f"{name} must have shape {wanted}, not {value.shape}")
    return np.require(value, requirements=["C_CONTIGUOUS", "ALIGNED"])


def _frame(plane: Plane) -> Plane:
    """What the library sees of a picture: 256 x 256, as a camera's scaler would make it."""
    height, width = plane.shape
    if width < _LEAST_WIDTH or height < _LEAST_HEIGHT:
        raise ValueError(
            f"picture must have at least {_LEAST_WIDTH} x {_LEAST_HEIGHT} pixels, not {width} x {height}"
        )
    if (height, width) == (IMAGE_SIZE, IMAGE_SIZE):
        return plane
    return scaled(plane[: height // 2 * 2, : width // 2 * 2], IMAGE_SIZE, IMAGE_SIZE)


def extract(picture: Picture, *, channels: str = "RGB") -> Features:
    """The feature of the face that fills a picture. faces() finds faces in whole pictures.

    Args:
        picture: anything that grey() takes, at least 16 x 12 pixels. What is not 256 x 256 is scaled
            to that, so it should be about square.
        channels: "RGB" or "BGR", see grey().

    Returns:
        float32 of shape (128,) and of unit Euclidean length, a new array.

    Raises:
        OrvoFrError: the library refused.
        TypeError, ValueError, ImportError, OSError: as grey() does.
    """
    pixels = np.ascontiguousarray(_frame(grey(picture, channels=channels)))
    feature = np.empty(FEATURE_LENGTH, np.float32)
    image = _library.FrImage(pixels.ctypes.data, IMAGE_SIZE, IMAGE_SIZE, IMAGE_SIZE)
    with _library.lock:
        status = _library.opened().OrvoFrRun(
            ctypes.byref(image), feature.ctypes.data, _FEATURE_BYTES
        )
    _library.check("OrvoFrRun", status)
    return feature


def extract_many(
    pictures: Union[npt.NDArray[np.uint8], Iterable[Picture]], *, channels: str = "RGB"
) -> Features:
    """The features of many pictures, each filled by one face: the bytes of extract() for each.

    Args:
        pictures: uint8 of shape (N, 256, 256), which goes to the library as it lies; or any pictures
            one after the other that extract() takes, such as a list of paths or an array of shape
            (N, height, width, 3).
        channels: "RGB" or "BGR", see grey().

    Returns:
        float32 of shape (N, 128), a new array.

    Raises:
        As extract(). Nothing is returned then.
    """
    parts = [_features(batch) for batch in _batches(pictures, channels)]
    return np.concatenate(parts) if parts else np.empty((0, FEATURE_LENGTH), np.float32)


def _batches(pictures: Any, channels: str) -> Iterator[npt.NDArray[np.uint8]]:
    """The frames, uint8 [up to _PICTURES_A_CALL, 256, 256] without gaps."""
    if isinstance(pictures, np.ndarray) and pictures.shape[1:] == (IMAGE_SIZE, IMAGE_SIZE):
        if pictures.dtype != np.uint8:
            raise TypeError(f"pictures must have dtype uint8, not {pictures.dtype}")
        for first in range(0, len(pictures), _PICTURES_A_CALL):
            yield np.ascontiguousarray(pictures[first : first + _PICTURES_A_CALL])
        return
    if isinstance(pictures, (str, bytes)) or (isinstance(pictures, np.ndarray) and pictures.ndim < 3):
        raise TypeError("pictures must be an array (N, 256, 256) or several pictures; extract() takes one")
    rest = iter(pictures)
    while chunk := [_frame(grey(p, channels=channels)) for p in islice(rest, _PICTURES_A_CALL)]:
        yield np.stack(chunk)


def _features(pictures: npt.NDArray[np.uint8]) -> Features:
    features = np.empty((len(pictures), FEATURE_LENGTH), np.float32)
    many, done = _many.loaded(), ctypes.c_int64()
    with _library.lock:
        _library.opened()
        status = many.KovaPythonFeatures(
            pictures.ctypes.data, len(pictures), features.ctypes.data, ctypes.byref(done)
        )
    _library.check("OrvoFrRun", status)
    return features


def distance(a: Features, b: Features) -> float:
    """How alike two faces are: the inner product of their features, 1 for identical faces.

    Args:
        a, b: features, float32 of shape (128,).

    Raises:
        TypeError: not an array, or of another dtype.
        ValueError: of another shape.
    """
    first = _checked("a", a, (FEATURE_LENGTH,))
    second = _checked("b", b, (FEATURE_LENGTH,))
    # Reads its arguments only: it needs neither the lock nor the models.
    return float(
        _library.loaded().OrvoFrGetDistance(
            first.ctypes.data, _FEATURE_BYTES, second.ctypes.data, _FEATURE_BYTES
        )
    )


def distances(a: Features, b: Optional[Features] = None) -> Features:
    """The distances of features to others: each has the very bits of distance().

    Args:
        a: float32 of shape (N, 128).
        b: float32 of shape (M, 128); without it those of a with one another.

    Returns:
        float32 of shape (N, M): row i has the distances of a[i].

    Raises:
        TypeError: not an array, or of another dtype.
        ValueError: of another shape.
    """
    first = _checked("a", a, (None, FEATURE_LENGTH))
    second = first if b is None else _checked("b", b, (None, FEATURE_LENGTH))
    result = np.empty((len(first), len(second)), np.float32)
    many = _many.loaded()
    rows = max(1, _DISTANCES_A_CALL // max(1, len(second)))
    for i in range(0, len(first), rows):
        part = first[i : i + rows]
        many.KovaPythonDistances(
            part.ctypes.data, len(part), second.ctypes.data, len(second), result[i:].ctypes.data
        )
    return result

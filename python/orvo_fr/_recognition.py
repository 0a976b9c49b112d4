# SPDX-License-Identifier: MIT
"""Features of pictures, and their distance."""
import ctypes
from typing import Any

import numpy as np
import numpy.typing as npt

from . import _library

#: Rows and columns of a picture.
IMAGE_SIZE = 256
#: Elements of a feature.
FEATURE_LENGTH = 128
_FEATURE_BYTES = 4 * FEATURE_LENGTH


def _checked(name: str, value: Any, dtype: type, shape: tuple[int, ...]) -> npt.NDArray[Any]:
    """The array as the library can read it: without gaps, aligned. Copied only if it is not so."""
    if not isinstance(value, np.ndarray):
        raise TypeError(f"{name} must be a NumPy array, not {type(value).__name__}")
    if value.dtype != dtype:
        raise TypeError(f"{name} must have dtype {np.dtype(dtype)}, not {value.dtype}")
    if value.shape != shape:
        raise ValueError(f"{name} must have shape {shape}, not {value.shape}")
    return np.require(value, requirements=["C_CONTIGUOUS", "ALIGNED"])


def extract(picture: npt.NDArray[np.uint8]) -> npt.NDArray[np.float32]:
    """The feature of the face in a picture.

    Args:
        picture: grey levels, uint8 of shape (256, 256), the face filling most of it. Any strides will
            do; the array is only read.

    Returns:
        float32 of shape (128,) and of unit Euclidean length, a new array.

    Raises:
        TypeError: not an array, or of another dtype.
        ValueError: of another shape.
        OrvoFrError: the library refused.
    """
    pixels = _checked("picture", picture, np.uint8, (IMAGE_SIZE, IMAGE_SIZE))
    feature = np.empty(FEATURE_LENGTH, np.float32)
    image = _library.FrImage(pixels.ctypes.data, IMAGE_SIZE, IMAGE_SIZE, IMAGE_SIZE)
    with _library.lock:
        status = _library.opened().OrvoFrRun(
            ctypes.byref(image), feature.ctypes.data, _FEATURE_BYTES
        )
    _library.check("OrvoFrRun", status)
    return feature


def distance(a: npt.NDArray[np.float32], b: npt.NDArray[np.float32]) -> float:
    """How alike two faces are: the inner product of their features, 1 for identical faces.

    Args:
        a, b: features, float32 of shape (128,).

    Raises:
        TypeError: not an array, or of another dtype.
        ValueError: of another shape.
    """
    first = _checked("a", a, np.float32, (FEATURE_LENGTH,))
    second = _checked("b", b, np.float32, (FEATURE_LENGTH,))
    # Reads its arguments only: it needs neither the lock nor the models.
    return _library.loaded().OrvoFrGetDistance(
        first.ctypes.data, _FEATURE_BYTES, second.ctypes.data, _FEATURE_BYTES
    )

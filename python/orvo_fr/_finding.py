# SPDX-License-Identifier: MIT
"""Faces in whole pictures: libkova_find, which needs libkova_fr in the same process."""
import ctypes
import os
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Optional

import numpy as np
import numpy.typing as npt

from . import _library
from ._pictures import Picture, Plane, grey, halved
from ._recognition import FEATURE_LENGTH

#: What may be wrong with a face, in the order of the library's bits.
REASONS = ("small", "blurred", "dark", "overexposed", "turned", "tilted", "covered", "cut off",
           "grimacing")
_SMALLEST = 20
_LEAST_SIDE, _MOST_SIDE = 24, 8192
_REPEAT_INIT = 7


@dataclass(frozen=True, eq=False)
class Face:
    """A face in a picture. Places are pixels from the picture's top left corner, x before y."""

    #: Left, top and side of the square box, which may leave the picture.
    box: tuple[float, float, float]
    #: How sure it is that this is a face, 0 to 1.
    score: float
    #: float32 [5, 2]: pupils at the left and right of an upright picture, tip of the nose, corners of
    #: the mouth at the left and right.
    landmarks: npt.NDArray[np.float32]
    #: Degrees that the face points to the right of the picture.
    yaw: float
    #: Degrees that the head leans to the right of the picture.
    roll: float
    #: Share of the face that something hides, 0 to 1.
    covered: float
    #: How good it is to be recognised, 0 to 100.
    quality: int
    #: Why it is not good, of REASONS.
    reasons: tuple[str, ...]
    #: float32 [128], of faces(); None of find().
    feature: Optional[npt.NDArray[np.float32]] = None


class _Picture(ctypes.Structure):
    """The library's OrvoFindPicture."""

    _fields_ = [
        ("addr", ctypes.c_void_p),
        ("width", ctypes.c_int32),
        ("height", ctypes.c_int32),
        ("stride", ctypes.c_int32),
    ]


class _Record(ctypes.Structure):
    """The library's OrvoFindFace."""

    _fields_ = [
        ("left", ctypes.c_float),
        ("top", ctypes.c_float),
        ("side", ctypes.c_float),
        ("score", ctypes.c_float),
        ("points", ctypes.c_float * 10),
        ("yaw", ctypes.c_float),
        ("roll", ctypes.c_float),
        ("covered", ctypes.c_float),
        ("quality", ctypes.c_int32),
        ("reasons", ctypes.c_uint32),
    ]


_library_of_faces: Optional[ctypes.CDLL] = None
_is_open = False
_memory: Optional["ctypes.Array[ctypes.c_char]"] = None


def _path() -> str:
    """ORVO_FIND_LIBRARY, or what lies beside libkova_fr, or an installed one."""
    name = "libkova_find.so.1"
    recogniser = Path(_library.path())
    beside = str(recogniser.with_name(name)) if recogniser.is_absolute() else name
    return os.environ.get("ORVO_FIND_LIBRARY") or beside


def _load() -> ctypes.CDLL:
    # What it needs of libkova_fr it finds by that library's name, if it is loaded already.
    _library.loaded()
    library = ctypes.CDLL(_path(), mode=os.RTLD_LAZY | os.RTLD_LOCAL)
    pointer, number = ctypes.c_void_p, ctypes.c_int32
    library.OrvoFindGetMemorySize.argtypes = [number, number, number]
    library.OrvoFindGetMemorySize.restype = ctypes.c_uint32
    library.OrvoFindInit.argtypes = []
    library.OrvoFindSetMemory.argtypes = [pointer, ctypes.c_uint32]
    library.OrvoFindRun.argtypes = [pointer, number, pointer, number, pointer]
    for function in (library.OrvoFindFeatures, library.OrvoFindMirroredFeatures):
        function.argtypes = [pointer, number, pointer, pointer, number, pointer]
    return library


def _opened() -> ctypes.CDLL:
    """The library with its model open. To be called with the lock held."""
    global _library_of_faces, _is_open
    if _library_of_faces is None:
        _library_of_faces = _load()
    if not _is_open:
        status = _library_of_faces.OrvoFindInit()
        # Somebody else in this process may have opened the model: that is as good.
        if status != _REPEAT_INIT:
            _library.check("OrvoFindInit", status)
        _is_open = True
    return _library_of_faces


def _give_memory(library: ctypes.CDLL, size: int) -> None:
    """With the lock held."""
    global _memory
    if _memory is None or len(_memory) < size:
        memory = ctypes.create_string_buffer(size)
        _library.check("OrvoFindSetMemory", library.OrvoFindSetMemory(memory, size))
        _memory = memory


def _readable(plane: Plane) -> tuple[Plane, int]:
    """The plane as the library can read it, and how often it had to be halved for that."""
    times = 0
    while max(plane.shape) > _MOST_SIDE:
        plane, times = halved(plane), times + 1
    if min(plane.shape) < _LEAST_SIDE:
        raise ValueError(
            f"picture must have two sides of {_LEAST_SIDE} pixels and more, not shape {plane.shape}"
            + (f", which it has once it is halved below {_MOST_SIDE}" if times else "")
        )
    # Rows may be any distance apart, as in a part of a larger picture.
    row, column = plane.strides
    fits = column == 1 and plane.shape[1] <= row < 1 << 31
    return (plane if fits else np.ascontiguousarray(plane)), times


def _check_number(name: str, value: Any, most: int) -> None:
    if not isinstance(value, (int, np.integer)) or isinstance(value, bool):
        raise TypeError(f"{name} must be an integer, not {type(value).__name__}")
    if not 1 <= value <= most:
        raise ValueError(f"{name} must be 1 to {most}, not {value}")


def _plan(library: ctypes.CDLL, picture: _Picture, smallest: Optional[int]) -> tuple[int, int]:
    """The smallest face that is looked for, and the memory that it takes."""
    sides = [_SMALLEST << k for k in range(10)] if smallest is None else [int(smallest)]
    for side in sides:
        size = library.OrvoFindGetMemorySize(picture.width, picture.height, side)
        if size != 0:
            return side, size
    raise ValueError(
        f"faces of {sides[-1]} pixels cannot be found in a picture of {picture.width} x "
        f"{picture.height}: look for larger ones, or in parts of it"
    )


def _face(record: _Record, scale: int, feature: Optional[npt.NDArray[np.float32]]) -> Face:
    """A face in the library's picture, of which a pixel is `scale` pixels wide."""
    return Face(
        box=(record.left * scale, record.top * scale, record.side * scale),
        score=record.score,
        landmarks=np.array(record.points, np.float32).reshape(5, 2) * np.float32(scale),
        yaw=record.yaw,
        roll=record.roll,
        covered=record.covered,
        quality=record.quality,
        reasons=tuple(word for bit, word in enumerate(REASONS) if record.reasons >> bit & 1),
        feature=feature,
    )


def find(
    picture: Picture, *, smallest: Optional[int] = None, most: int = 64, channels: str = "RGB"
) -> list[Face]:
    """The faces in a whole picture, best first.

    Args:
        picture: anything that grey() takes: a path, an array of shape (height, width) or (height,
            width, 3), and so on; both sides at least 24 pixels. It is only read. Pictures with a side
            of more than 8192 pixels are halved first.
        smallest: side of the smallest face to look for, in pixels. Without it faces from 20 pixels on
            are found in pictures of up to 1280 pixels a side, from 40 in twice as large ones, and so
            on.
        most: faces to be returned, 1 to 512.
        channels: "RGB" or "BGR", see grey().

    Returns:
        The faces, whose `feature` is None.

    Raises:
        TypeError: not a picture, or an array of another dtype; not a number.
        ValueError: of another shape, or too large for such small faces.
        ImportError, OSError: of a path, see grey().
        OrvoFrError: the library refused.
    """
    return _search(grey(picture, channels=channels), smallest, most, features_by=None)


def faces(
    picture: Picture,
    *,
    smallest: Optional[int] = None,
    most: int = 64,
    channels: str = "RGB",
    mirrored: bool = True,
) -> list[Face]:
    """The faces in a whole picture, as find() gives them, each with its feature.

    `feature`, float32 of shape (128,), is that of the face turned upright; distance() compares it.
    Faces of little quality have one, too; whether it is worth comparing is the caller's decision.

    Args:
        mirrored: a feature is the mean direction of those of the face and of its mirror image, which
            makes fewer mistakes, rather than that of the face alone, which takes half of the
            recogniser's time. Both may be compared with each other.

    The other Args, Raises: those of find().
    """
    function = "OrvoFindMirroredFeatures" if mirrored else "OrvoFindFeatures"
    return _search(grey(picture, channels=channels), smallest, most, features_by=function)


def _search(plane: Plane, smallest: Any, most: Any, features_by: Optional[str]) -> list[Face]:
    if smallest is not None:
        _check_number("smallest", smallest, 1 << 20)
    _check_number("most", most, 512)
    pixels, times = _readable(plane)
    least = None if smallest is None else max(1, int(smallest) >> times)
    height, width = pixels.shape
    given = _Picture(pixels.ctypes.data, width, height, pixels.strides[0])
    records = (_Record * int(most))()
    features = np.empty((most, FEATURE_LENGTH), np.float32)
    count = ctypes.c_int32()
    with _library.lock:
        library = _opened()
        side, size = _plan(library, given, least)
        _give_memory(library, size)
        if features_by:
            _library.opened()
        function = features_by or "OrvoFindRun"
        more = [features.ctypes.data] if features_by else []
        status = getattr(library, function)(
            ctypes.byref(given), side, records, *more, len(records), ctypes.byref(count)
        )
    _library.check(function, status)
    return [
        _face(record, 1 << times, features[i].copy() if features_by else None)
        for i, record in enumerate(records[: count.value])
    ]

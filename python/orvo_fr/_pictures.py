# SPDX-License-Identifier: MIT
"""Pictures of any kind as one plane of grey levels, the same that `kova-fr` makes of them."""
import os
import sys
from typing import Any, Union

import numpy as np
import numpy.typing as npt

AnyPath = Union[str, os.PathLike[str]]
#: A path, an array, or a picture of Pillow.
Picture = Union[AnyPath, npt.NDArray[np.uint8], Any]
Plane = npt.NDArray[np.uint8]

MOST_PIXELS = 100_000_000
_CHANNELS = ("RGB", "BGR")


def grey(picture: Picture, *, channels: str = "RGB") -> Plane:
    """The grey levels of a picture, as every function here sees it.

    Args:
        picture: the path of a file, which Pillow reads and turns as its EXIF says; or a picture of
            Pillow as it stands; or a uint8 array of shape (height, width), (height, width, 1),
            (height, width, 3) or (height, width, 4) with any strides: grey, colour, or colour and
            alpha. Transparent parts show black behind them.
        channels: "RGB", or "BGR" for arrays of OpenCV. Files and Pillow's pictures know their own.

    Returns:
        uint8 of shape (height, width). Of a grey array it is a view.

    Raises:
        TypeError: not a picture, or an array of another dtype.
        ValueError: an array of another shape; more than 100 million pixels; unusual numbers.
        ImportError: a path was given, and Pillow is not there.
        OSError: the file cannot be read, or is no picture, or is damaged.
    """
    if channels not in _CHANNELS:
        raise ValueError(f"channels must be one of {', '.join(_CHANNELS)}, not {channels!r}")
    if isinstance(picture, np.ndarray):
        return _of_array(picture, channels)
    if isinstance(picture, (str, os.PathLike)):
        return _of_file(picture)
    # Who hands in a picture of Pillow has loaded it.
    pillow = sys.modules.get("PIL.Image")
    if pillow is not None and isinstance(picture, pillow.Image):
        return _of_pillow(picture)
    raise TypeError(
        "picture must be a path, a NumPy array or a picture of Pillow, "
        f"not {type(picture).__name__}"
    )


def _of_array(picture: npt.NDArray[Any], channels: str) -> Plane:
    if picture.dtype != np.uint8:
        raise TypeError(f"picture must have dtype uint8, not {picture.dtype}")
    is_flat = picture.ndim == 2
    if not (is_flat or (picture.ndim == 3 and picture.shape[2] in (1, 3, 4))) or 0 in picture.shape:
        raise ValueError(
            "picture must have shape (height, width), (height, width, 3) or (height, width, 4), "
            f"not {picture.shape}"
        )
    if is_flat:
        return picture
    if picture.shape[2] == 1:
        return picture[..., 0]
    level = _luma(*(picture[..., channels.index(colour)] for colour in "RGB"))
    return _over_black(level, picture[..., 3]) if picture.shape[2] == 4 else level


def _luma(red: Plane, green: Plane, blue: Plane) -> Plane:
    """With the weights of BT.601 in integers: the largest sum is below 2^16."""
    total = np.full(red.shape, 128, np.uint16)
    for plane, weight in ((red, 77), (green, 150), (blue, 29)):
        total += plane.astype(np.uint16) * np.uint16(weight)
    return np.asarray(total >> 8, np.uint8)


def _over_black(level: Plane, alpha: Plane) -> Plane:
    return np.asarray((level * alpha.astype(np.uint16) + np.uint16(127)) // np.uint16(255), np.uint8)


def _of_file(path: AnyPath) -> Plane:
    try:
        from PIL import Image, ImageOps
    except ImportError as error:
        raise ImportError(
            f"{os.fspath(path)}: reading picture files takes Pillow; install it (pip install pillow) "
            "or hand over an array"
        ) from error
    try:
        with Image.open(path) as image:
            _check_size(image)
            # Luma as a JPEG stores it, and not by way of colours.
            if image.format in ("JPEG", "MPO"):
                image.draft("L", None)
            return _of_pillow(ImageOps.exif_transpose(image))
    except Image.DecompressionBombError as error:
        raise ValueError(f"{os.fspath(path)}: {error}") from error
    except (OSError, SyntaxError) as error:
        # Some of Pillow's complaints do not say which file they mean.
        if isinstance(error, OSError) and (error.filename is not None or str(path) in str(error)):
            raise
        raise OSError(f"{os.fspath(path)}: {error}") from error


def _check_size(image: Any) -> None:
    if image.width * image.height > MOST_PIXELS:
        raise ValueError(
            f"the picture is too large ({image.width} x {image.height}); scale it down to "
            f"{MOST_PIXELS // 1_000_000} megapixels at most"
        )


def _of_pillow(image: Any) -> Plane:
    _check_size(image)
    if image.mode == "I" or image.mode.startswith("I;16"):
        return _of_16_bits(np.asarray(image))
    if image.mode == "F":
        raise ValueError("a picture of Pillow's mode F has no grey levels; convert it to mode L")
    if "transparency" in image.info or image.mode in ("LA", "La", "PA", "RGBa"):
        image = image.convert("RGBA")
    elif image.mode == "1":
        image = image.convert("L")
    elif image.mode not in ("L", "RGB", "RGBA"):
        image = image.convert("RGB")
    return _of_array(np.asarray(image), "RGB")


def _of_16_bits(values: npt.NDArray[Any]) -> Plane:
    wide = values.astype(np.int64)
    if wide.min() < 0 or wide.max() > 65535:
        raise ValueError("the picture's numbers are not between 0 and 65535; save it with 8 bits")
    return np.asarray((wide * 255 + 32895) >> 16, np.uint8)


_ONE = 1 << 16


def _taps(count: int, given: int) -> tuple[Any, Any, Any]:
    """For each output position the two inputs that it lies between, and the second's weight."""
    place = np.maximum((2 * np.arange(count, dtype=np.int64) + 1) * given - count, 0)
    position, rest = np.divmod(place, 2 * count)
    last = given - 1
    return np.minimum(position, last), np.minimum(position + 1, last), rest * _ONE // (2 * count)


def scaled(plane: Plane, height: int, width: int) -> Plane:
    """A plane scaled bilinearly and centre-aligned, in integers: the bytes of the command line's."""
    upper, lower, weight = _taps(height, plane.shape[0])
    rows = plane[upper] * (_ONE - weight)[:, None] + plane[lower] * weight[:, None]
    left, right, weight = _taps(width, plane.shape[1])
    both = rows[:, left] * (_ONE - weight) + rows[:, right] * weight
    return np.asarray((both + _ONE * _ONE // 2) >> 32, np.uint8)


def halved(plane: Plane) -> Plane:
    """Each pixel the mean of four, rounded half up; an odd last row or column is left out."""
    even = plane[: plane.shape[0] // 2 * 2, : plane.shape[1] // 2 * 2].astype(np.uint16)
    total: npt.NDArray[np.uint16] = even[::2, ::2] + even[::2, 1::2] + even[1::2, ::2] + even[1::2, 1::2]
    return np.asarray((total + np.uint16(2)) >> 2, np.uint8)

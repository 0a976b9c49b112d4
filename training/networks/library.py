# SPDX-License-Identifier: MIT
"""The built library, called through ctypes."""
import ctypes
import os
from pathlib import Path

import numpy as np

ROOT = Path(__file__).resolve().parents[2]
IMAGE, ALIGN, CROP, FEATURES = 256, 24, 96, 128
_OK, _REPEAT_INIT = 0, 7


def find_library():
    """ORVO_FR_LIBRARY, or what `cmake --preset host` builds."""
    return Path(os.environ.get("ORVO_FR_LIBRARY", ROOT / "build/host/lib/libkova_fr.so"))


class _FrImage(ctypes.Structure):
    _fields_ = [
        ("addr", ctypes.c_void_p),
        ("height", ctypes.c_int32),
        ("width", ctypes.c_int32),
        ("stride", ctypes.c_int32),
    ]


def _address(array):
    return ctypes.c_void_p(array.ctypes.data)


class Library:
    """The library keeps its state in itself: one call at a time, from whichever instance."""

    def __init__(self, path=None):
        # Platform functions that only the device API calls stay unresolved.
        self._lib = ctypes.CDLL(str(path or find_library()), mode=os.RTLD_LAZY)
        self._lib.AlignGetOutput.restype = ctypes.c_void_p
        self._lib.FrGetOutput.restype = ctypes.c_void_p
        if self._lib.OrvoFrInit() not in (_OK, _REPEAT_INIT):
            raise RuntimeError("the library's models cannot be deciphered")
        self._memory = np.zeros(self._lib.OrvoFrGetMemorySize(), np.uint8)
        if self._lib.OrvoFrSetMemory(_address(self._memory), len(self._memory)) != 0:
            raise RuntimeError("the library refuses its working memory")

    def resize(self, picture, size):
        """A region, which may be a view of a larger picture, to size x size."""
        assert picture.dtype == np.uint8 and picture.strides[1] == 1
        height, width = picture.shape
        out = np.empty((size, size), np.uint8)
        self._lib.ImageResizeBilin(
            _address(picture), _address(out), height, width, picture.strides[0], size, size
        )
        return out

    def align_answer(self, small):
        """The alignment network's int8 answer to a 24 x 24 picture."""
        small = np.ascontiguousarray(small).copy()
        assert small.shape == (ALIGN, ALIGN) and small.dtype == np.uint8
        self._lib.AlignRun(_address(small))
        return np.frombuffer(ctypes.string_at(self._lib.AlignGetOutput(), 4), np.int8)

    def box(self, frame):
        """Left, top, right and bottom of the face in a 256 x 256 frame, as the library takes them:
        cut to the frame only where the box is empty or begins before the frame's first byte."""
        answer = self.align_answer(self.resize(frame, ALIGN)).astype(int) * 2
        left, top, right, bottom = (int(corner) for corner in answer)
        if left < right and top < bottom and top * IMAGE + left >= 0:
            return left, top, right, bottom
        left, top = max(left, 0), max(top, 0)
        if left >= right or top >= bottom:
            return 0, 0, IMAGE, IMAGE
        return left, top, right, bottom

    def crop(self, frame, box):
        """What the recognition network is given of a box(). Columns left of the frame are the end of
        the row above."""
        left, top, right, bottom = box
        bytes_from_corner = np.ascontiguousarray(frame).reshape(-1)[top * IMAGE + left :]
        region = np.lib.stride_tricks.as_strided(
            bytes_from_corner, (bottom - top, right - left), (IMAGE, 1)
        )
        return self.resize(region, CROP)

    def crop_feature(self, crop):
        """The feature of a 96 x 96 crop."""
        assert crop.shape == (CROP, CROP) and crop.dtype == np.uint8
        planes = np.repeat(crop[None], 3, axis=0)
        self._lib.FrRun(_address(planes))
        text = ctypes.string_at(self._lib.FrGetOutput(), 4 * FEATURES)
        return np.frombuffer(text, np.float32)

    def feature(self, frame):
        """The feature of a 256 x 256 frame: alignment, crop and recognition."""
        frame = np.ascontiguousarray(frame)
        image = _FrImage(frame.ctypes.data, *frame.shape, frame.shape[1])
        out = np.empty(FEATURES, np.float32)
        status = self._lib.OrvoFrRun(ctypes.byref(image), _address(out), 4 * FEATURES)
        if status != 0:
            raise RuntimeError(f"OrvoFrRun answers {status}")
        return out

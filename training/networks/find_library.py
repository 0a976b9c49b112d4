# SPDX-License-Identifier: MIT
"""The built libkova_find, called through ctypes."""
import ctypes
import os
from pathlib import Path

import numpy as np

from .library import FEATURES, find_library

CROP = 96
_OK, _REPEAT_INIT = 0, 7


class _Picture(ctypes.Structure):
    _fields_ = [("addr", ctypes.c_void_p), ("width", ctypes.c_int32), ("height", ctypes.c_int32),
                ("stride", ctypes.c_int32)]  # fmt: skip


class Face(ctypes.Structure):
    """OrvoFindFace; points is [5][2]."""

    _fields_ = [
        ("left", ctypes.c_float),
        ("top", ctypes.c_float),
        ("side", ctypes.c_float),
        ("score", ctypes.c_float),
        ("points", ctypes.c_float * 2 * 5),
        ("yaw", ctypes.c_float),
        ("roll", ctypes.c_float),
        ("covered", ctypes.c_float),
        ("quality", ctypes.c_int32),
        ("reasons", ctypes.c_uint32),
    ]


def find_find_library():
    """ORVO_FIND_LIBRARY, or what lies beside libkova_fr."""
    beside = Path(find_library()).with_name("libkova_find.so")
    return Path(os.environ.get("ORVO_FIND_LIBRARY", beside))


class FindLibrary:
    """The library keeps its state in itself: one call at a time, from whichever instance."""

    def __init__(self, path=None):
        # Platform functions that only the device API calls stay unresolved.
        ctypes.CDLL(str(find_library()), mode=os.RTLD_LAZY | ctypes.RTLD_GLOBAL)
        self._lib = ctypes.CDLL(str(path or find_find_library()), mode=os.RTLD_LAZY)
        self._lib.OrvoFindGetMemorySize.restype = ctypes.c_uint32
        if self._lib.OrvoFindInit() not in (_OK, _REPEAT_INIT):
            raise RuntimeError("the library's model cannot be deciphered")
        self._memory = np.zeros(0, np.uint8)

    def _prepare(self, picture, smallest):
        assert picture.dtype == np.uint8 and picture.ndim == 2 and picture.strides[1] == 1
        height, width = picture.shape
        size = self._lib.OrvoFindGetMemorySize(width, height, smallest)
        if size == 0:
            raise ValueError(f"no faces of {smallest} pixels in a picture of {width} x {height}")
        if size > len(self._memory):
            self._memory = np.zeros(size, np.uint8)
        # Another instance may have set its own meanwhile.
        address = ctypes.c_void_p(self._memory.ctypes.data)
        if self._lib.OrvoFindSetMemory(address, len(self._memory)) != _OK:
            raise RuntimeError("the library refuses its working memory")
        return _Picture(picture.ctypes.data, width, height, picture.strides[0])

    def _call(self, function, picture, smallest, most, *more):
        given = self._prepare(picture, smallest)
        faces = (Face * most)()
        count = ctypes.c_int32()
        status = getattr(self._lib, function)(
            ctypes.byref(given), smallest, faces, *more, most, ctypes.byref(count)
        )
        if status != _OK:
            raise RuntimeError(f"{function} answers {status}")
        return faces[: count.value]

    def find(self, picture, smallest=20, most=64):
        """The faces in a grey picture, best first."""
        return self._call("OrvoFindRun", picture, smallest, most)

    def features(self, picture, smallest=20, most=64):
        """The faces, and a feature for each, as programs take it: mirrored, too. A Library must have
        opened the core."""
        features = np.empty((most, FEATURES), np.float32)
        address = ctypes.c_void_p(features.ctypes.data)
        faces = self._call("OrvoFindMirroredFeatures", picture, smallest, most, address)
        return faces, features[: len(faces)]

    def upright(self, picture, face):
        """The face turned upright, CROP x CROP."""
        given = self._prepare(picture, max(picture.shape))
        crop = np.empty((CROP, CROP), np.uint8)
        address = ctypes.c_void_p(crop.ctypes.data)
        status = self._lib.OrvoFindUpright(ctypes.byref(given), ctypes.byref(face), address)
        if status != _OK:
            raise RuntimeError(f"OrvoFindUpright answers {status}")
        return crop

    def mirrored_feature(self, core, picture, face):
        """What OrvoFindMirroredFeatures() gives for a face that was found."""
        larger, margin = Face.from_buffer_copy(face), np.float32(0.05) * np.float32(face.side)
        larger.left = np.float32(face.left) - margin
        larger.top = np.float32(face.top) - margin
        larger.side = np.float32(face.side) + 2 * margin
        mirrored = np.ascontiguousarray(self.upright(picture, larger)[:, ::-1])
        mean = core.crop_feature(self.upright(picture, face)).astype(np.float64) + core.crop_feature(mirrored)
        return (mean / np.linalg.norm(mean)).astype(np.float32)

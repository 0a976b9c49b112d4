# SPDX-License-Identifier: MIT
"""What the native libraries say of a picture, and where things are."""
import contextlib
import ctypes
import functools
import os
import tempfile
from dataclasses import dataclass
from pathlib import Path

import cv2
import numpy as np

ROOT = Path(__file__).resolve().parents[2]
SAMPLES = ROOT / "samples"
PACKAGE = Path(os.environ.get("ORVO_NPM_PACKAGE", ROOT / "build/wasm/npm"))
PAGE = Path(os.environ.get("ORVO_PAGE", ROOT / "build/wasm/page"))
NATIVE = Path(os.environ.get("ORVO_NATIVE_LIBRARIES", ROOT / "build/host/lib"))

FEATURE_BYTES = 512
MOST = 64  # faces


def grey(path):
    """The levels of a picture that is grey."""
    levels = cv2.imread(str(path), cv2.IMREAD_GRAYSCALE)
    assert levels is not None, path
    return levels


@contextlib.contextmanager
def temporary_folder():
    with tempfile.TemporaryDirectory() as name:
        yield Path(name)


class _Plane(ctypes.Structure):  # FrImage
    _fields_ = [("addr", ctypes.c_void_p)] + [
        (name, ctypes.c_int32) for name in ("height", "width", "stride")
    ]


class _Picture(ctypes.Structure):  # OrvoFindPicture
    _fields_ = [("addr", ctypes.c_void_p)] + [
        (name, ctypes.c_int32) for name in ("width", "height", "stride")
    ]


class Record(ctypes.Structure):  # OrvoFindFace
    _fields_ = (
        [(name, ctypes.c_float) for name in ("left", "top", "side", "score")]
        + [("points", ctypes.c_float * 10)]
        + [(name, ctypes.c_float) for name in ("yaw", "roll", "covered")]
        + [("quality", ctypes.c_int32), ("reasons", ctypes.c_uint32)]
    )


@dataclass
class Face:
    record: Record
    feature: bytes
    crop: bytes


def check(status):
    if status != 0:
        raise AssertionError(f"the native library says {status}")


@functools.cache
def libraries():
    """The core and the finder, open and with memory."""
    if not (NATIVE / "libkova_find.so.1").exists():
        raise AssertionError(f"{NATIVE} has no libkova_find.so.1: build the preset host first")
    core = ctypes.CDLL(NATIVE / "libkova_fr.so.1", mode=ctypes.RTLD_GLOBAL)
    find = ctypes.CDLL(NATIVE / "libkova_find.so.1")
    core.memory = ctypes.create_string_buffer(core.OrvoFrGetMemorySize())
    check(core.OrvoFrInit())
    check(core.OrvoFrSetMemory(core.memory, len(core.memory)))
    check(find.OrvoFindInit())
    return core, find


def native_feature(frame):
    """Of 256 x 256 grey levels that one face fills: 128 floats, as bytes."""
    core, _ = libraries()
    frame = np.ascontiguousarray(frame, np.uint8)
    assert frame.shape == (256, 256)
    feature = ctypes.create_string_buffer(FEATURE_BYTES)
    plane = _Plane(frame.ctypes.data, 256, 256, 256)
    check(core.OrvoFrRun(ctypes.byref(plane), feature, FEATURE_BYTES))
    return feature.raw


def native_faces(picture, smallest=20, with_features=True):
    """The faces in grey levels of any size, best first."""
    _, find = libraries()
    picture = np.ascontiguousarray(picture, np.uint8)
    height, width = picture.shape
    memory = ctypes.create_string_buffer(find.OrvoFindGetMemorySize(width, height, smallest))
    check(find.OrvoFindSetMemory(memory, len(memory)))
    given = _Picture(picture.ctypes.data, width, height, width)
    records = (Record * MOST)()
    features = ctypes.create_string_buffer(MOST * FEATURE_BYTES)
    count = ctypes.c_int32()
    function, more = (
        (find.OrvoFindMirroredFeatures, [features]) if with_features else (find.OrvoFindRun, [])
    )
    check(function(ctypes.byref(given), smallest, records, *more, MOST, ctypes.byref(count)))
    faces = []
    for i in range(count.value):
        crop = ctypes.create_string_buffer(96 * 96)
        check(find.OrvoFindUpright(ctypes.byref(given), ctypes.byref(records[i]), crop))
        feature = features.raw[i * FEATURE_BYTES : (i + 1) * FEATURE_BYTES]
        faces.append(Face(records[i], feature, crop.raw))
    return faces

# SPDX-License-Identifier: MIT
"""Which models this process computes with."""
import ctypes
import hashlib
from functools import lru_cache

from . import _library

_ALIGN_ARRAYS, _FR_ARRAYS = 76, 108  # of the models, see model_store.h


class _ModelArray(ctypes.Structure):
    _fields_ = [
        ("elementSize", ctypes.c_uint32),
        ("name", ctypes.c_char_p),
        ("data", ctypes.c_void_p),
        ("size", ctypes.c_uint32),
    ]


@lru_cache(maxsize=None)
def models_digest() -> str:
    """SHA-256 of the models that make features, in hexadecimal, as galleries and calibrations have it.

    Features are comparable where this is the same.
    """
    digest = hashlib.sha256()
    with _library.lock:
        library = _library.opened()
        for name, count in (("g_alignArray", _ALIGN_ARRAYS), ("g_frArray", _FR_ARRAYS)):
            for array in (_ModelArray * count).in_dll(library, name):
                digest.update(ctypes.string_at(array.data, array.size))
    return digest.hexdigest()

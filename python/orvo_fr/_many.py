# SPDX-License-Identifier: MIT
"""libkova_python, the package's own library: many pictures or features in one call.

ctypes lets go of Python's lock while such a call runs, once for all of them.
"""
import ctypes
import os
import threading
from pathlib import Path
from typing import Optional

from . import _library

_NAME = "libkova_python.so"
_loading = threading.Lock()
_many: Optional[ctypes.CDLL] = None


def _path() -> str:
    """ORVO_PYTHON_LIBRARY, or the library beside this file, or the one beside libkova_fr."""
    beside_package = Path(__file__).with_name(_NAME)
    beside_library = Path(_library.path()).with_name(_NAME)
    return os.environ.get("ORVO_PYTHON_LIBRARY") or str(
        beside_package if beside_package.exists() else beside_library
    )


def _load() -> ctypes.CDLL:
    # What it needs of libkova_fr it finds by that library's name, if it is loaded already.
    _library.loaded()
    many = ctypes.CDLL(_path(), mode=os.RTLD_LAZY | os.RTLD_LOCAL)
    address, count = ctypes.c_void_p, ctypes.c_int64
    many.KovaPythonFeatures.argtypes = [address, count, address, ctypes.POINTER(count)]
    many.KovaPythonFeatures.restype = ctypes.c_int32
    many.KovaPythonDistances.argtypes = [address, count, address, count, address]
    many.KovaPythonDistances.restype = None
    many.KovaPythonChecksum.argtypes = [ctypes.POINTER(ctypes.c_uint32), address, count]
    many.KovaPythonChecksum.restype = None
    return many


def loaded() -> ctypes.CDLL:
    """The library, loaded when it is first needed."""
    global _many
    with _loading:
        if _many is None:
            _many = _load()
        return _many

# SPDX-License-Identifier: MIT
"""libkova_fr, loaded and opened when it is first needed."""
import ctypes
import os
import threading
from pathlib import Path
from typing import Optional

_OK, _NULL_ADDRESS, _WRONG_SIZE, _NOT_DECRYPTED, _REPEAT_INIT = 0, 1, 2, 6, 7
_MESSAGES = {
    _NULL_ADDRESS: "a required address is null, or no working memory was set",
    _WRONG_SIZE: "a size or shape is wrong, or a bounded copy failed",
    _NOT_DECRYPTED: "a model could not be decrypted",
}


class OrvoFrError(RuntimeError):
    """The library refused a call. `status` is its status code."""

    def __init__(self, function: str, status: int) -> None:
        message = _MESSAGES.get(status, "unknown status")
        super().__init__(f"{function}: {message} (status {status})")
        self.function = function
        self.status = status


class FrImage(ctypes.Structure):
    """The library's FrImage: one plane of grey levels."""

    _fields_ = [
        ("addr", ctypes.c_void_p),
        ("height", ctypes.c_int32),
        ("width", ctypes.c_int32),
        ("stride", ctypes.c_int32),
    ]


def path() -> str:
    """ORVO_FR_LIBRARY, or the library beside this file, or an installed one."""
    beside = Path(__file__).with_name("libkova_fr.so.1")
    return os.environ.get("ORVO_FR_LIBRARY") or (str(beside) if beside.exists() else beside.name)


def _load() -> ctypes.CDLL:
    # A library built for a camera leaves the platform's functions, which only the device API calls, to
    # somebody else. ctypes lets go of Python's lock while a function of a CDLL runs.
    library = ctypes.CDLL(path(), mode=os.RTLD_LAZY | os.RTLD_LOCAL)
    address, size = ctypes.c_void_p, ctypes.c_uint32
    library.OrvoFrInit.argtypes = []
    library.OrvoFrGetMemorySize.argtypes = []
    library.OrvoFrGetMemorySize.restype = size
    library.OrvoFrSetMemory.argtypes = [address, size]
    library.OrvoFrRun.argtypes = [ctypes.POINTER(FrImage), address, size]
    library.OrvoFrGetDistance.argtypes = [address, size, address, size]
    library.OrvoFrGetDistance.restype = ctypes.c_float
    library.OrvoFrGetInstructionSet.argtypes = []
    library.OrvoFrGetInstructionSet.restype = ctypes.c_char_p
    return library


# One call into the core at a time. A signal's handler may call while its thread is inside Python code
# that holds the lock.
lock = threading.RLock()
# A fork waits for the running call, so that the child finds the core at rest and the lock free.
os.register_at_fork(before=lock.acquire, after_in_parent=lock.release, after_in_child=lock.release)

_library: Optional[ctypes.CDLL] = None
_memory: Optional["ctypes.Array[ctypes.c_char]"] = None


def check(function: str, status: int) -> None:
    """Raises OrvoFrError for a status that is not success."""
    if status != _OK:
        raise OrvoFrError(function, status)


def loaded() -> ctypes.CDLL:
    """The library, whose models may not be open yet."""
    global _library
    with lock:
        if _library is None:
            _library = _load()
        return _library


def opened() -> ctypes.CDLL:
    """The library with its models open and its working memory set. To be called with the lock held."""
    global _memory
    library = loaded()
    if _memory is None:
        status = library.OrvoFrInit()
        # Somebody else in this process may have opened the models: that is as good.
        if status != _REPEAT_INIT:
            check("OrvoFrInit", status)
        memory = ctypes.create_string_buffer(library.OrvoFrGetMemorySize())
        check("OrvoFrSetMemory", library.OrvoFrSetMemory(memory, len(memory)))
        _memory = memory
    return library


def instruction_set() -> str:
    """The instruction set that the kernels use, such as "plain" or "avx512vnni".

    It is the best that the processor has, or what the environment variable ORVO_FR_PATH names when the
    library is first used. Results are the same bytes with every one.
    """
    return str(loaded().OrvoFrGetInstructionSet().decode())

# SPDX-License-Identifier: MIT
"""Reading and writing safetensors files: a length, a JSON header, the tensors' bytes."""
import json
import struct

import numpy as np

_TYPES = {"I8": "<i1", "I16": "<i2", "I32": "<i4", "I64": "<i8", "F32": "<f4", "F64": "<f8"}
_NAMES = {np.dtype(code): name for name, code in _TYPES.items()}


def read(path):
    with open(path, "rb") as file:
        (length,) = struct.unpack("<Q", file.read(8))
        header = json.loads(file.read(length))
        data = file.read()
    tensors = {}
    for name, entry in header.items():
        if name == "__metadata__":
            continue
        begin, end = entry["data_offsets"]
        flat = np.frombuffer(data[begin:end], dtype=_TYPES[entry["dtype"]])
        tensors[name] = flat.reshape(entry["shape"])
    return tensors


def write(path, tensors):
    """Tensors in the order given; the widest first keeps them aligned."""
    header, chunks, offset = {}, [], 0
    for name, tensor in tensors.items():
        data = np.ascontiguousarray(tensor).tobytes()
        header[name] = {
            "dtype": _NAMES[tensor.dtype],
            "shape": list(tensor.shape),
            "data_offsets": [offset, offset + len(data)],
        }
        chunks.append(data)
        offset += len(data)
    text = json.dumps(header, separators=(",", ":")).encode()
    text += b" " * (-len(text) % 8)
    with open(path, "wb") as file:
        file.write(struct.pack("<Q", len(text)) + text + b"".join(chunks))

# SPDX-License-Identifier: MIT
"""On-device face recognition: features of faces and their distances.

    >>> feature = orvo_fr.extract(picture)       # uint8 [256, 256] -> float32 [128]
    >>> orvo_fr.distance(feature, other)         # inner product: 1 for identical faces
    >>> orvo_fr.find(photograph)                 # uint8 [height, width] -> a list of faces
    >>> orvo_fr.faces(photograph)                # the same with the feature of each
    >>> door = orvo_fr.Calibration("door.calibration")    # of kova-fr calibrate
    >>> door.rarity(door.score(feature, other))  # one pair of strangers in how many is as alike

Any thread may call any function. Extractions take turns, since the library has one working memory;
Python's own lock is free meanwhile. A process may fork at any time.
"""
from ._calibration import Calibration, Rarity
from ._finding import REASONS, Face, faces, find
from ._library import OrvoFrError, instruction_set
from ._recognition import FEATURE_LENGTH, IMAGE_SIZE, distance, extract
from ._version import __version__

__all__ = [
    "Calibration",
    "FEATURE_LENGTH",
    "Face",
    "IMAGE_SIZE",
    "OrvoFrError",
    "REASONS",
    "Rarity",
    "__version__",
    "distance",
    "extract",
    "faces",
    "find",
    "instruction_set",
]

# SPDX-License-Identifier: MIT
"""On-device face recognition: features of faces and their distances.

    >>> for face in orvo_fr.faces("party.jpg"):  # or an array, or a picture of Pillow
    ...     print(face.box, face.quality, face.reasons)
    >>> orvo_fr.distance(face.feature, other)    # inner product: 1 for identical faces
    >>> orvo_fr.extract("portrait.png")          # of a picture that one face fills: float32 [128]
    >>> orvo_fr.extract_many(pictures)           # uint8 [N, 256, 256] -> float32 [N, 128]
    >>> orvo_fr.distances(features)              # float32 [N, 128] -> float32 [N, N]
    >>> door = orvo_fr.Calibration("door.calibration")    # of kova-fr calibrate
    >>> door.rarity(door.score(feature, other))  # one pair of strangers in how many is as alike

Any thread may call any function. Extractions take turns, since the library has one working memory;
Python's own lock is free meanwhile. A process may fork at any time.
"""
from ._calibration import Calibration, Rarity
from ._finding import REASONS, Face, faces, find
from ._library import OrvoFrError, instruction_set
from ._pictures import Picture, grey
from ._recognition import FEATURE_LENGTH, IMAGE_SIZE, distance, distances, extract, extract_many
from ._version import __version__

__all__ = [
    "Calibration",
    "FEATURE_LENGTH",
    "Face",
    "IMAGE_SIZE",
    "OrvoFrError",
    "Picture",
    "REASONS",
    "Rarity",
    "__version__",
    "distance",
    "distances",
    "extract",
    "extract_many",
    "faces",
    "find",
    "grey",
    "instruction_set",
]

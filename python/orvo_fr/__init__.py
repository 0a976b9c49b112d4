# SPDX-License-Identifier: MIT
"""On-device face recognition: features of faces and their distances.

    >>> for face in orvo_fr.faces("party.jpg"):  # or an array, or a picture of Pillow
    ...     print(face.box, face.quality, face.reasons)
    >>> orvo_fr.distance(face.feature, other)    # inner product: 1 for identical faces
    >>> orvo_fr.extract("portrait.png")          # of a picture that one face fills: float32 [128]
    >>> orvo_fr.extract_many(pictures)           # uint8 [N, 256, 256] -> float32 [N, 128]
    >>> orvo_fr.distances(features)              # float32 [N, 128] -> float32 [N, N]
    >>> with orvo_fr.Gallery.changing("people.gallery") as people:    # kova-fr's, too
    ...     people.add("Ada", face.feature)
    >>> orvo_fr.Gallery.load("people.gallery").search(features, count=3)
    >>> orvo_fr.evaluate(features, names).equal_error_rate
    >>> door = orvo_fr.Calibration("door.calibration")    # of kova-fr calibrate
    >>> door.rarity(door.score(feature, other))  # one pair of strangers in how many is as alike

Any thread may call any function. Extractions take turns, since the library has one working memory;
Python's own lock is free meanwhile. A process may fork at any time.
"""
from ._calibration import Calibration, Rarity
from ._evaluation import ErrorRates, Evaluation, Recommendation, evaluate, pair_scores
from ._finding import REASONS, Face, faces, find
from ._folders import Extraction, extract_folder
from ._gallery import Gallery
from ._library import OrvoFrError, instruction_set
from ._models import models_digest
from ._pictures import Picture, grey
from ._ranking import Match
from ._recognition import FEATURE_LENGTH, IMAGE_SIZE, distance, distances, extract, extract_many
from ._version import __version__

__all__ = [
    "Calibration",
    "ErrorRates",
    "Evaluation",
    "Extraction",
    "FEATURE_LENGTH",
    "Face",
    "Gallery",
    "IMAGE_SIZE",
    "Match",
    "OrvoFrError",
    "Picture",
    "REASONS",
    "Rarity",
    "Recommendation",
    "__version__",
    "distance",
    "distances",
    "evaluate",
    "extract",
    "extract_folder",
    "extract_many",
    "faces",
    "find",
    "grey",
    "instruction_set",
    "models_digest",
    "pair_scores",
]

# SPDX-License-Identifier: MIT
"""Features of all pictures below a folder."""
import os
from dataclasses import dataclass
from pathlib import Path
from typing import Optional

from ._finding import Face, faces
from ._library import OrvoFrError
from ._pictures import AnyPath
from ._recognition import Features, extract

_ENDINGS = (".bmp", ".gif", ".jpeg", ".jpg", ".pgm", ".png", ".pnm", ".ppm", ".tif", ".tiff", ".webp")


@dataclass(frozen=True, eq=False)
class Extraction:
    """What became of one picture."""

    path: str
    #: float32 [128]; None if there is no face or the picture cannot be used.
    feature: Optional[Features]
    #: The face that it is the feature of; None of pictures that one face fills.
    face: Optional[Face] = None
    #: Why there is no feature.
    error: Optional[str] = None


def pictures_in(folder: AnyPath) -> list[str]:
    """The paths of all files below a folder that are named as pictures, in order; hidden files and
    folders are left out.

    Raises:
        OSError: the folder cannot be read.
    """
    os.listdir(folder)  # so that a wrong folder is an error and not an empty one
    found = []
    for parent, folders, files in os.walk(folder):
        folders[:] = [name for name in folders if not name.startswith(".")]
        found += [
            os.path.join(parent, name)
            for name in files
            if name.lower().endswith(_ENDINGS) and not name.startswith(".")
        ]
    return sorted(found, key=lambda path: Path(path).parts)


def extract_path(path: str, whole: bool) -> Extraction:
    """The feature of one file, or why there is none."""
    try:
        if not whole:
            return Extraction(path, extract(path))
        found = faces(path, most=1)
    except (OSError, TypeError, ValueError, OrvoFrError) as error:
        return Extraction(path, None, error=str(error))
    if not found:
        return Extraction(path, None, error="there is no face")
    return Extraction(path, found[0].feature, found[0])


def extract_folder(folder: AnyPath, *, whole: bool = True) -> list[Extraction]:
    """The features of all pictures below a folder. One that cannot be used does not stop the others.

    Args:
        folder: its pictures are those that are named so (.jpg, .png and so on).
        whole: they are whole photographs, and the surest face of each is taken; otherwise one face
            fills each of them.

    Returns:
        An Extraction for each picture, in the order of the paths.

    Raises:
        OSError: the folder cannot be read.
        ImportError: Pillow is not there.
    """
    return [extract_path(path, whole) for path in pictures_in(folder)]

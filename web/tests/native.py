# SPDX-License-Identifier: MIT
"""What the native library says of a picture, and where things are."""
import contextlib
import os
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SAMPLES = ROOT / "samples"
MODULE = Path(os.environ.get("ORVO_WASM_MODULE", ROOT / "build/wasm/module/orvo_web.wasm"))
PAGE = Path(os.environ.get("ORVO_PAGE", ROOT / "build/wasm/page"))
KOVA_FR = Path(os.environ.get("ORVO_NATIVE_KOVA_FR", ROOT / "build/host/bin/kova-fr"))

sys.path.insert(0, str(ROOT))
from training.tests.pictures import read_grey_png as grey  # noqa: E402,F401


@contextlib.contextmanager
def temporary_folder():
    with tempfile.TemporaryDirectory() as name:
        yield Path(name)


def native_features(pictures):
    """128 floats each, as bytes."""
    if not KOVA_FR.exists():
        raise AssertionError(f"{KOVA_FR} is missing: build the preset host first")
    with temporary_folder() as folder:
        out = folder / "features"
        subprocess.run([KOVA_FR, "extract", "--output", out, *pictures], check=True)
        return out.read_bytes()

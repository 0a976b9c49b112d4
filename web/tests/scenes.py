# SPDX-License-Identifier: MIT
"""Pictures to look for faces in, made of the samples."""
import cv2
import numpy as np
from native import SAMPLES, grey

# Friendly portraits: one person twice, and another.
FIRST, AGAIN, OTHER = (
    SAMPLES / "portraits" / name for name in ("sami-1.png", "sami-2.png", "quinn-1.png")
)
GROUP = SAMPLES / "photographs/group.png"


def background(width, height):
    """Soft clouds, in which nobody sees a face."""
    noise = np.random.default_rng(3).normal(size=(height // 16 + 2, width // 16 + 2))
    clouds = cv2.resize(noise.astype(np.float32), (width, height), interpolation=cv2.INTER_CUBIC)
    return np.clip(120 + 18 * clouds, 0, 255).astype(np.uint8)


def put(scene, path, left, top, side=256):
    face = cv2.resize(grey(path), (side, side), interpolation=cv2.INTER_AREA)
    scene[top : top + side, left : left + side] = face


def two_people(width=640, height=480):
    """One of them larger, both good enough."""
    scene = background(width, height)
    put(scene, FIRST, 20, 30, 200)
    put(scene, OTHER, 350, 120, 256)
    return scene


def blurred(path):
    return cv2.GaussianBlur(grey(path), (0, 0), 4)


def save(path, picture):
    assert cv2.imwrite(str(path), picture)
    return path

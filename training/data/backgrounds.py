# SPDX-License-Identifier: MIT
"""Pictures without people, to put people into and to find nobody in: photographs, drawings and
textures from folders, and views of panoramas of light.

Writes two banks of grey pictures, one to train with and one that is kept apart:
TRAIN.npz and TEST.npz in --out. Pictures that look alike count once. Look at sheet.png, and name what
shows a face with --without.
"""
import argparse
import zlib
from pathlib import Path

import cv2
import numpy as np

LARGEST = 1280
SMALLEST = 160
TEST_LIGHTS = ("apartment", "hall", "lab", "night", "park")
PANORAMA = "panorama:"  # begins the names of panoramas in a bank
_ENDINGS = (".jpg", ".jpeg", ".png", ".webp")


def read_radiance(path):
    """A panorama as [height, width] luminance over its mean."""
    picture = cv2.imread(str(path), cv2.IMREAD_UNCHANGED)
    if picture is None:
        raise SystemExit(f"{path}: no picture")
    grey = picture.astype(np.float32) @ np.array([0.0722, 0.7152, 0.2126], np.float32)
    weight = np.cos((0.5 - (np.arange(len(grey)) + 0.5) / len(grey)) * np.pi)[:, None]
    return (grey / ((grey * weight).sum() / (weight.sum() * grey.shape[1]))).astype(np.float32)


def _looks(picture):
    return (cv2.resize(picture, (8, 8), interpolation=cv2.INTER_AREA) // 24).tobytes()


def read_pictures(folders, without):
    """{name: grey picture}"""
    found, seen = {}, set()
    for folder in folders:
        for path in sorted(folder.rglob("*")):
            name = str(path.relative_to(folder))
            if path.suffix.lower() not in _ENDINGS or any(part in name for part in without):
                continue
            picture = cv2.imread(str(path), cv2.IMREAD_GRAYSCALE)
            if picture is None or min(picture.shape) < SMALLEST or picture.std() < 8:
                continue
            scale = min(1.0, LARGEST / max(picture.shape))
            picture = cv2.resize(picture, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA)
            if min(picture.shape) < SMALLEST or _looks(picture) in seen:
                continue
            seen.add(_looks(picture))
            found[name] = picture
    return found


def is_for_testing(name):
    """The same for all sizes and shades of a picture: its folder decides, where it has one."""
    key = name.split("contents/")[0] if "contents/" in name else name
    return zlib.crc32(key.encode()) % 4 == 0


def sheet(pictures, columns=12):
    tiles = [cv2.resize(p, (120, 90), interpolation=cv2.INTER_AREA) for p in pictures]
    tiles += [np.zeros((90, 120), np.uint8)] * (-len(tiles) % columns)
    return np.vstack([np.hstack(tiles[i : i + columns]) for i in range(0, len(tiles), columns)])


def main():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.data.backgrounds",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    add = parser.add_argument
    add("folders", nargs="*", type=Path, help="folders with pictures")
    add("--lights", type=Path, help="folder with panoramas (.hdr)")
    add("--without", nargs="*", default=[], help="parts of names that are left out")
    add("--out", type=Path, required=True)
    args = parser.parse_args()
    banks = {"train": {}, "test": {}}
    for name, picture in read_pictures(args.folders, args.without).items():
        banks["test" if is_for_testing(name) else "train"][name] = picture
    args.out.mkdir(parents=True, exist_ok=True)
    for kind, bank in banks.items():
        cv2.imwrite(str(args.out / f"sheet-{kind}.png"), sheet(list(bank.values())))
    for path in sorted(args.lights.glob("*.hdr")) if args.lights else []:
        kind = "test" if path.stem in TEST_LIGHTS else "train"
        banks[kind][PANORAMA + path.stem] = read_radiance(path)
    for kind, bank in banks.items():
        # A name in a NumPy archive is a path; numbers keep it short.
        arrays = {f"{i:04d}": picture for i, picture in enumerate(bank.values())}
        np.savez(args.out / f"{kind}.npz", names=np.array(list(bank)), **arrays)
        print(f"{kind}: {len(bank)} pictures")


if __name__ == "__main__":
    main()

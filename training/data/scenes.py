# SPDX-License-Identifier: MIT
"""Scenes with none to ten people, made of cut-out people and pictures without people, for the
network that finds faces.

Writes shards: scenes-00000.pictures.npy (uint8, [n, size, size]) and scenes-00000.faces.npy (float32,
[n, MOST, 20]). Rows beyond a scene's faces are zero. The columns of a face:

    0        1; 2 for one that counts neither as a face nor as none (hidden, or hardly there)
    1, 2, 3  the middle and the side of its box, pixels
    4 to 13  pupils left and right in the picture, nose tip, corners of the mouth: x and y
    14       yaw, degrees
    15       covered share of the face, 0 to 1
    16, 17   person, 1 + occlusion_kind
    18, 19   roll, pitch, degrees
"""
import argparse
from pathlib import Path

import cv2
import numpy as np

from .backgrounds import PANORAMA

SIZE = 208
MOST = 12
COLUMNS = 20
BACK = 105  # degrees of yaw behind which a head shows no face
EXTENSION = 96  # rows of clothes below a cut-out
SWAPPED = [1, 0, 2, 4, 3]


class Cutouts:
    def __init__(self, folder):
        files = sorted(Path(folder).glob("cutouts-*.labels.npy"))
        if not files:
            raise SystemExit(f"no cutouts in {folder}")
        stems = [str(file)[: -len(".labels.npy")] for file in files]
        self.pictures = [np.load(stem + ".pictures.npy", mmap_mode="r") for stem in stems]
        self.labels = np.concatenate([np.load(stem + ".labels.npy") for stem in stems])
        self.points = np.concatenate([np.load(stem + ".points.npy") for stem in stems])
        counts = [len(p) for p in self.pictures]
        self._starts = np.concatenate([[0], np.cumsum(counts)])

    def __len__(self):
        return len(self.labels)

    def __getitem__(self, i):
        shard = int(np.searchsorted(self._starts, i, side="right")) - 1
        return self.pictures[shard][i - self._starts[shard]]


class Bank:
    def __init__(self, path):
        archive = np.load(path)
        names = list(archive["names"])
        self.pictures, self.panoramas = [], []
        for i, name in enumerate(names):
            kind = self.panoramas if name.startswith(PANORAMA) else self.pictures
            kind.append(archive[f"{i:04d}"])

    def draw(self, random, size):
        """A view of size x size."""
        if self.panoramas and random.random() < 0.35:
            return _view(self.panoramas[random.integers(len(self.panoramas))], size, random)
        return _crop(self.pictures[random.integers(len(self.pictures))], size, random)


def _view(panorama, size, random):
    height, width = panorama.shape
    field = np.tan(np.radians(random.uniform(45, 110)) / 2)
    across = np.linspace(-field, field, size, dtype=np.float32)
    x, y = np.meshgrid(across, -across)
    pitch, yaw = np.radians(random.normal(0, 22)), random.uniform(-np.pi, np.pi)
    up = y * np.cos(pitch) + np.sin(pitch)
    ahead = np.cos(pitch) - y * np.sin(pitch)
    azimuth = np.arctan2(x, ahead) + yaw
    elevation = np.arctan2(up, np.hypot(x, ahead))
    u = (azimuth / (2 * np.pi) % 1) * width - 0.5
    v = (0.5 - elevation / np.pi) * height - 0.5
    light = cv2.remap(
        panorama, u.astype(np.float32), v.astype(np.float32), cv2.INTER_LINEAR,
        borderMode=cv2.BORDER_WRAP,
    )  # fmt: skip
    level = light * (random.uniform(0.2, 0.7) / max(float(np.median(light)), 1e-3))
    tone = np.minimum(level / (1 + 0.35 * level), 1) ** (1 / 2.2)
    return (255 * tone).astype(np.uint8)


def _crop(picture, size, random):
    height, width = picture.shape
    most = min(height, width)
    side = int(np.exp(random.uniform(np.log(min(0.5 * size, most)), np.log(most))))
    top, left = random.integers(height - side + 1), random.integers(width - side + 1)
    part = picture[top : top + side, left : left + side]
    how = cv2.INTER_AREA if side > size else cv2.INTER_LINEAR
    part = cv2.resize(part, (size, size), interpolation=how)
    return part[:, ::-1] if random.random() < 0.5 else part


def _placed(cutout, points, labels, random, side, size):
    """A cut-out at a random place, turned and scaled: tones, cover (floats), and its row."""
    tones, cover = cutout
    flip = random.random() < 0.5
    width = tones.shape[1]
    box_left, box_top, box = labels[1:4]
    middle = np.array([box_left + box / 2, box_top + box / 2], np.float32)
    points, yaw, roll = points.copy(), labels[4], labels[6]
    if flip:
        tones, cover = tones[:, ::-1], cover[:, ::-1]
        middle[0], points[:, 0] = width - middle[0], width - points[:, 0]
        points, yaw, roll = points[SWAPPED], -yaw, -roll
    scale = side / box
    reduced = 1.0
    while scale / reduced < 0.6:
        shape = (tones.shape[1] // 2, tones.shape[0] // 2)
        tones = cv2.resize(np.ascontiguousarray(tones), shape, interpolation=cv2.INTER_AREA)
        cover = cv2.resize(np.ascontiguousarray(cover), shape, interpolation=cv2.INTER_AREA)
        reduced /= 2
    below = int(EXTENSION * reduced)
    tones = cv2.copyMakeBorder(np.ascontiguousarray(tones), 0, below, 0, 0, cv2.BORDER_REPLICATE)
    cover = cv2.copyMakeBorder(np.ascontiguousarray(cover), 0, below, 0, 0, cv2.BORDER_REPLICATE)
    turn = random.normal(0, 8) if random.random() < 0.85 else random.uniform(-50, 50)
    c, s = scale * np.cos(np.radians(turn)), scale * np.sin(np.radians(turn))
    linear = np.array([[c, -s], [s, c]], np.float32)  # turns clockwise in the picture
    over = 0.35 * side if random.random() < 0.15 else -0.1 * side
    low, high = 0.5 * side - over, size - 0.5 * side + over
    goal = random.uniform(low, high, 2) if high > low else np.full(2, size / 2)
    goal = goal.astype(np.float32)
    shift = goal - linear @ middle
    matrix = np.concatenate([linear / reduced, shift[:, None]], axis=1)
    # Pixel i covers i to i + 1; OpenCV puts its middle at i.
    matrix[:, 2] += 0.5 * matrix[:, :2].sum(1) - 0.5
    tones = cv2.warpAffine(tones, matrix, (size, size), flags=cv2.INTER_LINEAR,
                           borderMode=cv2.BORDER_REPLICATE)  # fmt: skip
    cover = cv2.warpAffine(cover, matrix, (size, size), flags=cv2.INTER_LINEAR)
    row = np.zeros(COLUMNS, np.float32)
    row[0], row[1:3], row[3] = 1, goal, side
    row[4:14] = (points @ linear.T + shift).ravel()
    row[14], row[16], row[17], row[18], row[19] = yaw, labels[0], 1 + labels[8], roll + turn, labels[5]
    row[15] = {2: 0.35, 4: 0.6}.get(int(labels[8]), 0.0)
    return tones, cover, row


def _window(row, share, size):
    half = share * row[3] / 2
    left, top = np.maximum(0, np.round(row[1:3] - half)).astype(int)
    right, bottom = np.minimum(size, np.round(row[1:3] + half)).astype(int)
    return slice(top, max(bottom, top)), slice(left, max(right, left))


def _relit(tones, random):
    gain, gamma = np.exp(random.normal(0, 0.2)), np.exp(random.normal(0, 0.12))
    table = np.clip(gain * 255 * (np.arange(256) / 255) ** gamma, 0, 255).astype(np.uint8)
    return cv2.LUT(tones, table)


def _something(scene, bank, random, size):
    """A thing before the faces: a part of another picture in a polygon. Returns its cover."""
    count = random.integers(3, 9)
    middle, reach = random.uniform(0, size, 2), np.exp(random.uniform(np.log(6), np.log(60)))
    angles = np.sort(random.uniform(0, 2 * np.pi, count))
    radii = reach * random.uniform(0.3, 1.0, count)
    stretch = random.uniform(0.3, 1.0, 2)
    corners = middle + np.stack([np.cos(angles), np.sin(angles)], 1) * radii[:, None] * stretch
    cover = np.zeros((size, size), np.uint8)
    cv2.fillPoly(cover, [np.round(corners).astype(np.int32)], 255)
    other = bank.draw(random, size)
    np.copyto(scene, other, where=cover > 0)
    return cover


class SceneMaker:
    """People of cutouts before pictures of a bank."""

    def __init__(self, cutouts, bank, seed, size=SIZE, smallest=9.0, largest=112.0):
        self.cutouts, self.bank, self.size = cutouts, bank, size
        self.random = np.random.default_rng(seed)
        self.smallest, self.largest = smallest, largest
        self.degrade = True
        self.empty = 0.14

    def _people(self):
        at = self.random.random()
        if at < self.empty:
            return 0
        if at < 0.45:
            return 1
        return self.random.integers(2, 5) if at < 0.8 else self.random.integers(5, 11)

    def scene(self):
        """uint8 [size, size], float32 [MOST, COLUMNS]"""
        random, size = self.random, self.size
        scene = np.ascontiguousarray(self.bank.draw(random, size))
        count = self._people()
        low, high = np.log(self.smallest), np.log(self.largest)
        crowd = random.random() < 0.4
        middle = random.uniform(low, high)
        sides = np.exp(random.normal(middle, 0.25, count) if crowd
                       else random.uniform(low, high, count))  # fmt: skip
        sides = np.sort(np.clip(sides, self.smallest, self.largest))
        rows, hidden = [], []
        for side in sides:
            i = int(random.integers(len(self.cutouts)))
            tones, cover, row = _placed(
                self.cutouts[i], self.cutouts.points[i], self.cutouts.labels[i], random, side, size
            )
            share = cover.astype(np.float32) * (1 / 255)
            np.copyto(scene, scene + share * (_relit(tones, random) - scene.astype(np.float32)),
                      casting="unsafe")  # fmt: skip
            self._hide(rows, hidden, cover)
            rows.append(row)
            hidden.append(0.0)
        if random.random() < 0.25:
            for _ in range(random.integers(1, 4)):
                self._hide(rows, hidden, _something(scene, self.bank, random, size))
        if random.random() < 0.1:
            self._write(scene)
        faces = self._rows(rows, hidden)
        if self.degrade:
            real = faces[faces[:, 0] == 1, 3]
            scene = self._degraded(scene, real.min() if len(real) else self.largest)
        return scene, faces

    def _hide(self, rows, hidden, cover):
        for k, row in enumerate(rows):
            part = cover[_window(row, 0.62, self.size)]
            if part.size:
                share = part.mean() / 255
                hidden[k] = 1 - (1 - hidden[k]) * (1 - share)

    def _rows(self, rows, hidden):
        faces = np.zeros((MOST, COLUMNS), np.float32)
        kept = 0
        for row, lost in zip(rows, hidden):
            if abs(row[14]) > BACK:
                continue
            whole = (0.62 * row[3]) ** 2
            rows_, columns = _window(row, 0.62, self.size)
            seen = (rows_.stop - rows_.start) * (columns.stop - columns.start) / whole
            lost = 1 - (1 - lost) * min(1.0, seen)
            if lost > 0.92:
                continue
            row[0] = 2 if lost > 0.6 else 1
            row[15] = max(row[15], lost)
            faces[kept] = row
            kept += 1
        return faces

    def _write(self, scene):
        random = self.random
        for _ in range(random.integers(1, 5)):
            text = "".join(chr(c) for c in random.integers(33, 126, random.integers(2, 12)))
            place = tuple(int(v) for v in random.integers(-10, self.size, 2))
            cv2.putText(scene, text, place, int(random.integers(0, 8)), random.uniform(0.3, 1.6),
                        int(random.integers(256)), int(random.integers(1, 4)), cv2.LINE_AA)  # fmt: skip

    def _degraded(self, scene, smallest):
        """As cameras do; a face of `smallest` pixels must stay one."""
        random = self.random
        kind = random.random()
        if kind < 0.35:
            scene = cv2.GaussianBlur(scene, (0, 0), random.uniform(0.3, min(1.3, 0.055 * smallest)))
        elif kind < 0.5:
            small = int(self.size * random.uniform(np.clip(11 / smallest, 0.4, 0.9), 0.95))
            scene = cv2.resize(scene, (small, small), interpolation=cv2.INTER_AREA)
            scene = cv2.resize(scene, (self.size, self.size), interpolation=cv2.INTER_LINEAR)
        gamma = np.exp(random.normal(0, 0.25))
        gain, lift = np.exp(random.normal(-0.05, 0.25)), random.normal(0, 14)
        table = gain * 255 * (np.arange(256) / 255) ** gamma + lift
        scene = cv2.LUT(scene, np.clip(table, 0, 255).astype(np.uint8))
        if random.random() < 0.6:
            noise = np.exp(random.uniform(np.log(0.7), np.log(min(9, 0.4 * smallest))))
            field = np.empty(scene.shape, np.int16)
            cv2.setRNGSeed(int(random.integers(2**31)))
            cv2.randn(field, 0, noise)
            scene = cv2.add(scene, field, dtype=cv2.CV_8U)
        if random.random() < 0.4:
            quality = int(random.integers(25 if smallest > 24 else 50, 95))
            code = cv2.imencode(".jpg", scene, [cv2.IMWRITE_JPEG_QUALITY, quality])[1]
            scene = cv2.imdecode(code, cv2.IMREAD_GRAYSCALE)
        return scene


def main():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.data.scenes",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    add = parser.add_argument
    add("--cutouts", type=Path, required=True, help="what `facegen cutouts` wrote")
    add("--bank", type=Path, required=True, help="pictures without people (training.data.backgrounds)")
    add("--out", type=Path, required=True)
    add("--scenes", type=int, required=True)
    add("--seed", type=int, default=1)
    add("--shard-size", type=int, default=2000)
    args = parser.parse_args()
    cv2.setNumThreads(1)
    args.out.mkdir(parents=True, exist_ok=True)
    cutouts, bank = Cutouts(args.cutouts), Bank(args.bank)
    for index in range(-(-args.scenes // args.shard_size)):
        stem = args.out / f"scenes-{index:05d}"
        done = Path(f"{stem}.faces.npy")
        if done.exists():
            continue
        maker = SceneMaker(cutouts, bank, [args.seed, index])
        count = min(args.shard_size, args.scenes - index * args.shard_size)
        made = [maker.scene() for _ in range(count)]
        np.save(f"{stem}.pictures.npy", np.stack([scene for scene, _ in made]))
        np.save(done.with_suffix(".new.npy"), np.stack([faces for _, faces in made]))
        done.with_suffix(".new.npy").replace(done)  # last: where it is, the shard is complete
        print(f"{stem.name}: {count} scenes", flush=True)


if __name__ == "__main__":
    main()

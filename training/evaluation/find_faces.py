# SPDX-License-Identifier: MIT
"""From a picture to faces, as the library does it: a pyramid of halvings, the network on every second
level, what its answers mean, another look at each face, and one from close by. Whole numbers throughout."""
from dataclasses import dataclass, replace

import numpy as np

from ..networks import look_net
from ..networks.find_layers import MULTIPLE, STRIDES
from ..networks.find_net import integer_answers
from . import second_look

SMALLEST = 20  # pixels of a side that is looked for, unless another is asked for
LEAST_SIDE = 18  # of a face in the first level
LAST_LEVEL = 96  # a level with no longer side is the last one
CANDIDATE = -16  # least score of a cell that counts
LOOKED_AT = 302  # least probability of a face that is looked at once more, of 1024
SURE_WHEN_FOUND = 40  # least score of a face that needs no look around it
LOOKED_AT_AGAIN = -36  # least score of one that is looked at twice
MOVED_PART = 8  # of a box's side: a look that moves it by less is the last
SCORE_LESS = 24  # than the mean of the first network's scores and the looks'
LOOKS = 2
MOST_FACES = 256
REPORTED = 640  # least probability of a face that is reported, of 1024
MOST_CANDIDATES = 512
BEYOND = 128  # grey level of what a plane has beyond its picture

_SCORES = np.arange(-128, 128)
PROBABILITY = np.round(1024 / (1 + np.exp(-_SCORES / 16))).astype(np.int64)
SIDE = np.round(1024 * 2.0 ** (_SCORES / 64)).astype(np.int64)


@dataclass
class Face:
    """In quarter pixels of the picture, points in sixteenths, but for what has no length."""

    middle: tuple
    side: int
    points: np.ndarray  # [5, 2]: pupils left and right, nose tip, corners of the mouth
    score: int  # of 1024
    yaw: int  # steps of 0.75 degrees
    covered: int  # -128 to 127
    support: int
    logit: int  # the score in sixteenths

    def box(self):
        """left, top, side in pixels"""
        return np.array([self.middle[0] - self.side / 2, self.middle[1] - self.side / 2, self.side]) / 4


def halved(plane):
    height, width = (side // 2 * 2 for side in plane.shape)
    p = plane[:height, :width].astype(np.uint16)
    return ((p[::2, ::2] + p[::2, 1::2] + p[1::2, ::2] + p[1::2, 1::2] + 2) >> 2).astype(np.uint8)


def first_level(width, height, smallest):
    level = 0
    while LEAST_SIDE << (level + 1) <= smallest:
        level += 1
    while level > 0 and min(width, height) >> level < 24:
        level -= 1
    return level


def levels(picture, smallest=SMALLEST):
    """(level, plane) of those that the network sees."""
    first, level, plane = first_level(*picture.shape[::-1], smallest), 0, picture
    while min(plane.shape) >= 8:
        if level >= first and (level - first) % 2 == 0:
            yield level, plane
            if max(plane.shape) <= LAST_LEVEL:
                return
        level, plane = level + 1, halved(plane)


def filled(plane):
    height, width = (-(-side // MULTIPLE) * MULTIPLE for side in plane.shape)
    out = np.full((height, width), BEYOND, np.uint8)
    out[: plane.shape[0], : plane.shape[1]] = plane
    return out


def cell_candidates(answer, stride, level, shape, least=CANDIDATE):
    """Rows of [score, x, y, side, ten coordinates, yaw, covered, side in the level] in the order of the
    cells; lengths in quarter pixels, coordinates in sixteenths, all but the last of the picture. shape: of
    the level's plane."""
    o = answer.astype(np.int64)
    quarter = stride // 8
    rows, columns = np.nonzero(o[0] >= least)
    o = o[:, rows, columns]
    x0, y0 = (2 * columns + 1) * 16, (2 * rows + 1) * 16
    x, y = (x0 + o[1]) * quarter, (y0 + o[2]) * quarter
    side = (SIDE[o[3] + 128] * stride * 4 + 128) >> 8
    points = [((x0, y0)[i % 2] + o[4 + i]) * quarter * second_look.FINENESS for i in range(10)]
    lengths = np.stack([x, y, side, *points])
    inside = (x >= 0) & (y >= 0) & (x < 4 * shape[1]) & (y < 4 * shape[0])
    table = np.concatenate([o[0][None], lengths << level, o[14:16], side[None]]).T
    return table[inside]


def candidates(answers_of, picture, smallest=SMALLEST, least=CANDIDATE):
    tables = [np.zeros((0, 17), np.int64)]
    for level, plane in levels(picture, smallest):
        for answer, stride in zip(answers_of(filled(plane)), STRIDES):
            tables.append(cell_candidates(answer, stride, level, plane.shape, least))
    table = np.concatenate(tables)
    order = np.argsort(-table[:, 0], kind="stable")
    return table[order[:MOST_CANDIDATES]]


def _overlaps(head, others):
    """Areas of intersections and of both, in sixteenths of pixels."""
    def edges(t, axis):
        low = 2 * t[..., 1 + axis] - t[..., 3]
        return low, low + 2 * t[..., 3]

    size = []
    for axis in (0, 1):
        low, high = edges(head, axis)
        lows, highs = edges(others, axis)
        size.append(np.maximum(0, np.minimum(high, highs) - np.maximum(low, lows)))
    area = 4 * head[3] * head[3]
    return size[0] * size[1], area, 4 * others[:, 3] * others[:, 3]


def merged(table):
    """Faces out of candidates, best first."""
    faces = []
    table = table.copy()
    while len(table):
        head = table[0]
        both, mine, theirs = _overlaps(head, table)
        alike = 5 * both >= 2 * (mine + theirs - both)
        within = 10 * both >= 7 * np.minimum(mine, theirs)
        alike[0] = True
        group = table[alike]
        # The finer a cell sees a face, the better it knows the place.
        weight = np.maximum(1, PROBABILITY[group[:, 0] + 128] ** 2 >> 10) * group[:, 16] ** 2
        total = int(weight.sum())
        means = (2 * (weight[:, None] * group[:, 1:16]).sum(0) + total) // (2 * total)
        faces.append(
            Face(
                (int(means[0]), int(means[1])), int(means[2]), means[3:13].reshape(5, 2),
                int(PROBABILITY[head[0] + 128]), int(means[13]), int(means[14]),
                int((alike | within).sum()), int(head[0]),
            )
        )  # fmt: skip
        table = table[~(alike | within)]
    return faces


def _is_one(a, b):
    rows = [np.array([0, *face.middle, face.side]) for face in (a, b)]
    both, mine, theirs = _overlaps(rows[0], rows[1][None])
    either = mine + theirs - both
    return bool(5 * both >= 2 * either or 10 * both >= 7 * np.minimum(mine, theirs))


def _has_settled(view, face):
    x, y = (int(v) for v in face.middle)
    moved = max(abs(x - view.x), abs(y - view.y), abs(int(face.side) - view.side))
    return MOVED_PART * moved < view.side


def halvings(picture):
    """The picture, halved once, twice, ..."""
    planes = [picture]
    while min(planes[-1].shape) >= 8:
        planes.append(halved(planes[-1]))
    return planes


def _scored(first, looks, total):
    """The score after so many looks, which had this in all."""
    mean = (looks * first + total) // (2 * looks)
    return int(np.clip(mean - SCORE_LESS, -128, 127))


def _sure(face):
    logit = _scored(face.logit, 1, 127)
    return replace(face, logit=logit, score=int(PROBABILITY[logit + 128]))


def looked_at(answers_of, picture, faces):
    """What is left of faces, and where they are, after another look or two; best first. answers_of: the
    second network's, of looks [n, 64, 64]."""
    planes = halvings(picture)
    given, kept = [face for face in faces if face.score >= LOOKED_AT], []
    finds = {i: face.logit for i, face in enumerate(given) if face.logit < SURE_WHEN_FOUND}
    sums, settled = dict.fromkeys(finds, 0), [i for i in range(len(given)) if i not in finds]
    for i in settled:
        given[i] = _sure(given[i])
    for look in range(LOOKS):
        finds = {
            i: first for i, first in finds.items()
            if second_look.can_be_seen(picture, *given[i].middle, given[i].side)
            and (look == 0 or given[i].logit >= LOOKED_AT_AGAIN)
        }  # fmt: skip
        if not finds:
            break
        views = {i: second_look.view_of(given[i]) for i in finds}
        answers = answers_of(np.stack([second_look.look(planes, view) for view in views.values()]))
        for (i, first), heat, answer in zip(list(finds.items()), *answers):
            sums[i] += int(answer[0])
            logit = _scored(first, look + 1, sums[i])
            given[i] = replace(
                second_look.described(given[i], views[i], heat, answer),
                logit=logit, score=int(PROBABILITY[logit + 128]),
            )  # fmt: skip
            if logit >= LOOKED_AT_AGAIN and _has_settled(views[i], given[i]):
                del finds[i]
                settled.append(i)
    found = [given[i] for i in sorted([*settled, *finds])]
    found = [face for face in found if second_look.can_be_seen(picture, *face.middle, face.side)]
    found = sorted(found, key=lambda face: -face.logit)[:MOST_FACES]
    for face in found:
        if not any(_is_one(better, face) for better in kept):
            kept.append(face)
    return kept


def _seen_closely(answers_of, picture, planes, faces, mirrored):
    """What a look from close by says of each; None where it, or the face then, has nothing to see."""
    views = {i: replace(second_look.view_of(face, look_net.CLOSE), mirrored=mirrored)
             for i, face in enumerate(faces) if face}  # fmt: skip
    views = {i: view for i, view in views.items()
             if second_look.can_be_seen(picture, view.x, view.y, view.side)}  # fmt: skip
    seen = [None] * len(faces)
    if views:
        answers = answers_of(np.stack([second_look.look(planes, view) for view in views.values()]))
        for (i, view), heat, answer in zip(views.items(), *answers):
            face = second_look.described(faces[i], view, heat, answer)
            seen[i] = face if second_look.can_be_seen(picture, *face.middle, face.side) else None
    return seen


def looked_at_closely(answers_of, picture, faces):
    """The faces where a look from close by and one at the mirror image have them. answers_of: the third
    network's."""
    planes = halvings(picture)
    first = _seen_closely(answers_of, picture, planes, faces, False)
    second = _seen_closely(answers_of, picture, planes, first, True)
    return [second_look.weighed_mean_of(a, b) if b else a or face for face, a, b in zip(faces, first, second)]


def find(tensors, picture, smallest=SMALLEST, reported=REPORTED):
    """The faces in a grey picture."""
    table = candidates(lambda plane: integer_answers(tensors, plane), picture, smallest)
    faces = looked_at(lambda looks: look_net.integer_answers(tensors, looks), picture, merged(table))
    faces = [face for face in faces if face.score >= reported]
    return looked_at_closely(
        lambda looks: look_net.integer_answers(tensors, looks, look_net.CLOSE), picture, faces
    )

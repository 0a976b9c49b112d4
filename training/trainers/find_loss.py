# SPDX-License-Identifier: MIT
"""What the network that finds faces is to answer, and how far it is from it.

Answers come in units of the integers divided by 128, for both arithmetics.
"""
import torch
import torch.nn.functional as F

# Sides of boxes, in pixels, that a stride is to find, and those about which it is not asked.
RANGES = {8: (14.0, 44.0), 16: (32.0, 104.0)}
UNASKED = {8: (5.0, 64.0), 16: (18.0, 160.0)}
LOGITS = 8.0  # an answer's 16 integers are one
YAW = 96.0  # degrees at the answer's end
_EDGE = 0.02  # of a side: below, errors count by their squares


def cells(height, width, stride):
    """Middles, [cells, 2]."""
    y, x = torch.meshgrid(torch.arange(height), torch.arange(width), indexing="ij")
    return (torch.stack([x, y], -1).reshape(-1, 2).float() + 0.5) * stride


class Goals:
    """For each cell of one stride: whether it is to find a face, whether it is asked, and which."""

    def __init__(self, faces, height, width, stride):
        self.middles = cells(height, width, stride)
        kind, middle, side = faces[:, :, 0], faces[:, :, 1:3], faces[:, :, 3]
        distance = (self.middles[None, None] - middle[:, :, None]).abs().amax(-1)  # [n, faces, cells]
        low, high = RANGES[stride]
        lowest, highest = UNASKED[stride]
        mine = (kind == 1) & (side >= low) & (side <= high)
        near = distance <= torch.clamp(0.18 * side, min=0.55 * stride)[:, :, None]
        about = distance <= torch.clamp(0.38 * side, min=1.05 * stride)[:, :, None]
        unasked = (kind > 0) & (side >= lowest) & (side <= highest)
        relative = distance / side.clamp(min=1)[:, :, None]
        far = torch.full_like(relative, 9.0)
        best, self.face = torch.where(mine[:, :, None] & about, relative, far).min(1)
        self.known = best < 9  # has a face to say the place of
        at = torch.gather(near & mine[:, :, None], 1, self.face[:, None])[:, 0]
        self.positive = self.known & at
        self.asked = self.positive | ~(about & unasked[:, :, None]).any(1)


def _clear(yaw):
    """How much places count: less where the head hides them."""
    return torch.clamp(1.6 - yaw.abs() / 75, 0.3, 1.0)


def _smooth(error):
    return F.smooth_l1_loss(error, torch.zeros_like(error), beta=_EDGE, reduction="none")


def stride_loss(answer, faces, stride):
    """Sums over cells: of the score's loss, of the places', and how many cells count."""
    n, channels, height, width = answer.shape
    goals = Goals(faces, height, width, stride)
    answer = answer.flatten(2).transpose(1, 2)  # [n, cells, 16]
    logit = LOGITS * answer[..., 0]
    wanted = goals.positive.float()
    with torch.no_grad():
        focus = (wanted - torch.sigmoid(logit)).abs().square()
    score = F.binary_cross_entropy_with_logits(logit, wanted, reduction="none")
    score = (score * focus)[goals.asked].sum()
    picture, cell = goals.known.nonzero(as_tuple=True)
    given = answer[picture, cell]
    face = faces[picture, goals.face[picture, cell]]
    weight = torch.where(goals.positive[picture, cell], 1.0, 0.3) * _clear(face[:, 14])
    side = face[:, 3]
    unit = 128 * stride / 32  # pixels
    offsets = torch.cat([given[:, 1:3], given[:, 4:14]], 1)
    places = goals.middles[cell].repeat(1, 6) + unit * offsets
    true_places = torch.cat([face[:, 1:3], face[:, 4:14]], 1)
    error = _smooth((places - true_places) / side[:, None])
    seen = weight * (1 - 0.7 * face[:, 15])
    size = _smooth((2 * given[:, 3] - torch.log2(side / (4 * stride))))
    place_loss = (
        weight * (2 * error[:, :2].sum(1) + 1.4 * size)
        + seen * error[:, 2:].sum(1)
        + weight * 0.25 * _smooth(given[:, 14] - (face[:, 14] / YAW).clamp(-1, 0.99))
        + weight * 0.25 * _smooth(0.5 * given[:, 15] + 0.5 - face[:, 15])
    ).sum()
    return score, place_loss, goals.positive.sum(), weight.sum()


def find_loss(answers, faces):
    total = [stride_loss(a, faces, s) for a, s in zip(answers, RANGES)]
    score, place, positive, weight = (sum(parts) for parts in zip(*total))
    return score / positive.clamp(min=1), place / weight.clamp(min=1)

# SPDX-License-Identifier: MIT
"""Random changes to a batch of crops, on the processor or on a GPU.

A stored picture has 128 x 128 pixels, of which the face box covers the central 96 x 96. Training
takes a displaced box, as the alignment network would answer it, and changes light and sharpness.
"""
import math
from dataclasses import dataclass, replace

import torch
import torch.nn.functional as F

STORED, CROP = 128, 96


@dataclass
class Strength:
    """Spreads and bounds of the changes; `scaled()` weakens or strengthens all of them. The box's
    errors (scale, shift, aspect) should be those measured of the alignment network."""

    scale: float = 0.08  # at most
    shift: float = 0.06  # of the box, at most
    turn: float = 3.0  # degrees, at most
    aspect: float = 0.03  # at most
    contrast: float = 0.35  # log factor, at most
    brightness: float = 0.12  # of the range, spread
    gamma: float = 0.3  # log exponent, spread
    slope: float = 0.35  # light falling off across the picture: log factor from the middle to a side
    noise: float = 0.04  # of the range, spread, at most
    blur: float = 0.25  # share of pictures
    cutout: float = 0.3  # share of pictures
    corners: float = 0.0  # each corner of the box moves on its own: of the box, at most
    coarse: float = 0.0  # share of pictures that were smaller and were enlarged
    covers: float = 0.0  # share of pictures with a mask, fingers or a dark band before the face
    motion: float = 0.0  # share of pictures blurred along a line
    mixed: float = 0.0  # share of pictures that take over how strong another's broad structure is

    def scaled(self, factor):
        return Strength(**{name: factor * value for name, value in vars(self).items()})

    def with_box(self, factor):
        """The same with other errors of the box."""
        box = {name: factor * getattr(self, name) for name in ("scale", "shift", "turn", "aspect")}
        return replace(self, **box)


class Augmenter:
    def __init__(self, strength, device="cpu", seed=0, natural=None):
        """`natural`: pictures [n, 96, 96] in 0 to 1 without faces, whose broad structure is mixed in."""
        self.strength = strength
        self.natural = None
        if natural is not None:
            self.natural = torch.fft.rfft2(torch.from_numpy(natural).to(device)).abs()
        self.device = torch.device(device)
        self.generator = torch.Generator(self.device).manual_seed(seed)

    def _uniform(self, *shape):
        return torch.rand(*shape, generator=self.generator, device=self.device) * 2 - 1

    def _normal(self, *shape):
        return torch.randn(*shape, generator=self.generator, device=self.device)

    def _happens(self, n, share):
        return torch.rand(n, generator=self.generator, device=self.device) < share

    def _box(self, n):
        """Affine maps from output to stored pictures, in the units of grid_sample."""
        s = self.strength
        size = CROP / STORED * torch.exp(s.scale * self._uniform(n))
        aspect = torch.exp(s.aspect * self._uniform(n))
        angle = math.radians(s.turn) * self._uniform(n)
        flip = torch.where(self._happens(n, 0.5), -1.0, 1.0)
        theta = torch.empty(n, 2, 3, device=self.device)
        theta[:, 0, 0] = flip * size * aspect * torch.cos(angle)
        theta[:, 0, 1] = -size * torch.sin(angle)
        theta[:, 1, 0] = flip * size * torch.sin(angle)
        theta[:, 1, 1] = size / aspect * torch.cos(angle)
        theta[:, :, 2] = 2 * CROP / STORED * s.shift * self._uniform(n, 2)
        return theta

    def _bend(self, grid):
        """Moves the four corners, and what lies between them in proportion."""
        if not self.strength.corners:
            return grid
        reach = 2 * CROP / STORED * self.strength.corners
        moves = reach * self._uniform(len(grid), 2, 2, 2)
        return grid + F.interpolate(
            moves, size=(CROP, CROP), mode="bilinear", align_corners=True
        ).permute(0, 2, 3, 1)

    def _coarsen(self, x):
        chosen = self._happens(len(x), self.strength.coarse).nonzero().flatten()
        for part in chosen.split(max(1, (len(chosen) + 2) // 3)):
            if len(part):
                size = int(torch.randint(28, 72, (1,), generator=self.generator, device=self.device))
                small = F.interpolate(x[part].unsqueeze(1), size=(size, size), mode="area")
                large = F.interpolate(small, size=(CROP, CROP), mode="bilinear", align_corners=False)
                x[part] = large.squeeze(1)
        return x

    def _light(self, x):
        s, n = self.strength, len(x)
        line = torch.linspace(-1, 1, CROP, device=self.device)
        slope = s.slope * self._uniform(n, 2)
        fall = slope[:, 0, None, None] * line[:, None] + slope[:, 1, None, None] * line
        x = x.clamp_(min=1e-3).log_()
        x = x * torch.exp((s.gamma * self._normal(n)).clamp(-0.9, 0.9))[:, None, None] + fall
        x = x.exp_().sub_(0.5)
        x *= torch.exp(s.contrast * self._uniform(n))[:, None, None]
        return x.add_(0.5 + (s.brightness * self._normal(n))[:, None, None])

    def _soften(self, x):
        """Blurs a share of the pictures with a small binomial kernel, some of them twice."""
        for share in (self.strength.blur, 0.4 * self.strength.blur):
            chosen = self._happens(len(x), share).nonzero().flatten()
            if len(chosen):
                line = torch.tensor([0.25, 0.5, 0.25], device=self.device)
                kernel = torch.outer(line, line)[None, None]
                soft = F.pad(x[chosen].unsqueeze(1), (1, 1, 1, 1), mode="replicate")
                x[chosen] = F.conv2d(soft, kernel).squeeze(1)
        return x

    def _cut(self, x):
        """Covers a rectangle of a share of the pictures with one grey level."""
        n = len(x)
        side = CROP * (0.2 + 0.15 * self._uniform(n, 2))
        centre = CROP * (0.5 + 0.45 * self._uniform(n, 2))
        place = torch.arange(CROP, device=self.device) + 0.5
        inside = (place - centre[:, :, None]).abs() < side[:, :, None]  # [n, 2, CROP]
        covered = inside[:, 0, :, None] & inside[:, 1, None, :]
        covered &= self._happens(n, self.strength.cutout)[:, None, None]
        level = 0.5 + 0.5 * self._uniform(n)
        return torch.where(covered, level[:, None, None], x)

    def _mix(self, x):
        """Low frequencies take over a part of another picture's amplitudes and keep their places."""
        if self.natural is None or not self.strength.mixed:
            return x
        chosen = self._happens(len(x), self.strength.mixed).nonzero().flatten()
        n = len(chosen)
        other = self.natural[
            torch.randint(len(self.natural), (n,), generator=self.generator, device=self.device)
        ]
        own = torch.fft.rfft2(x[chosen])
        down = torch.fft.fftfreq(CROP, 1 / CROP, device=self.device).abs()
        along = torch.arange(CROP // 2 + 1, device=self.device)
        reach = 2 + 4 * self._uniform(n).abs()
        low = torch.maximum(down[:, None], along[None])[None] <= reach[:, None, None]
        low[:, 0, 0] = False  # brightness has changes of its own
        share = 0.7 * self._uniform(n).abs()[:, None, None] * low
        size = own.abs()
        # As strong in all as they were: the other's contrast stays where it is.
        scale = (size * low).sum((1, 2)) / (other * low).sum((1, 2)).clamp(min=1e-6)
        gain = 1 + share * (other * scale[:, None, None] / size.clamp(min=1e-6) - 1)
        x[chosen] = torch.fft.irfft2(own * gain.clamp(max=6), s=(CROP, CROP))
        return x

    def _cover(self, x):
        """Before a share of the faces: a mask over the lower half, a dark band over the eyes, or fingers."""
        if not self.strength.covers:
            return x
        chosen = self._happens(len(x), self.strength.covers).nonzero().flatten()
        n = len(chosen)
        line = (torch.arange(CROP, device=self.device) + 0.5) / CROP - 0.5
        right, down = line[None, None, :], line[None, :, None]
        turn = 0.15 * self._uniform(n)[:, None, None]
        along, across = right + turn * down, down - turn * right
        kind = torch.rand(n, generator=self.generator, device=self.device)[:, None, None]
        size = self._uniform(n)[:, None, None]
        place = self._uniform(n)[:, None, None]
        mask = (across > 0.07 + 0.08 * place + 0.5 * along.square()) & (along.abs() < 0.36 + 0.06 * size)
        band = (across + 0.15 + 0.04 * place).abs() < 0.09 + 0.03 * size
        # Fingers: stripes side by side across a part of the face, from one side.
        angle = math.pi * self._uniform(n)[:, None, None]
        ahead = right * torch.cos(angle) + down * torch.sin(angle)
        aside = down * torch.cos(angle) - right * torch.sin(angle)
        width = 0.075 + 0.02 * size
        stripe = (aside - 0.25 * place) / width
        fingers = (ahead > -0.05 + 0.25 * size) & (stripe.abs() < 2)
        level = 0.5 + 0.45 * self._uniform(n)[:, None, None]
        rounded = 0.75 + 0.25 * torch.cos(2 * math.pi * stripe)
        slope = 1 + 0.4 * self._uniform(n)[:, None, None] * right + 0.3 * down * size
        flat, dark = level * slope, 0.25 * level
        some = x[chosen]
        masked = torch.where(mask, flat, some)
        banded = torch.where(band, dark + 0.15 * some, some)
        handed = torch.where(fingers, flat * rounded, some)
        x[chosen] = torch.where(kind < 0.4, masked, torch.where(kind < 0.65, banded, handed))
        return x

    def _move(self, x):
        """Blurs a share of the pictures along one of four directions."""
        if not self.strength.motion:
            return x
        chosen = self._happens(len(x), self.strength.motion).nonzero().flatten()
        for part, (dx, dy) in zip(chosen.tensor_split(4), ((1, 0), (0, 1), (1, 1), (1, -1))):
            if len(part):
                reach = int(torch.randint(1, 4, (1,), generator=self.generator, device=self.device))
                padded = F.pad(x[part].unsqueeze(1), (3, 3, 3, 3), mode="replicate").squeeze(1)
                shifts = range(-reach, reach + 1)
                x[part] = sum(
                    padded[:, 3 + i * dy : 3 + i * dy + CROP, 3 + i * dx : 3 + i * dx + CROP] for i in shifts
                ) / len(shifts)
        return x

    @torch.no_grad()
    def __call__(self, pictures):
        """uint8 [n, 128, 128] -> the network's input [n, 1, 96, 96]."""
        x = pictures.to(self.device).float().div_(255).unsqueeze(1)
        n = len(x)
        grid = F.affine_grid(self._box(n), [n, 1, CROP, CROP], align_corners=False)
        grid = self._bend(grid)
        x = F.grid_sample(x, grid, padding_mode="border", align_corners=False).squeeze(1)
        x = self._cover(self._mix(x))
        x = self._coarsen(self._move(self._soften(self._light(x))))
        spread = self.strength.noise * self._uniform(n).clamp(min=0)
        x = x + spread[:, None, None] * self._normal(n, CROP, CROP)
        x = self._cut(x).clamp_(0, 1)
        return (255 * x).round_().sub_(128).div_(128).unsqueeze(1)


def centre_crop(pictures):
    """The box itself, without changes."""
    edge = (STORED - CROP) // 2
    return pictures[:, edge : edge + CROP, edge : edge + CROP]

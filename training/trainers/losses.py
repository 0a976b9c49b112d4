# SPDX-License-Identifier: MIT
"""Losses on the feature's direction."""
import torch
import torch.nn.functional as F


def contrastive(features, people, temperature=0.12):
    """Supervised contrastive loss: each picture against all others of the batch, where those of
    the same person are the right answers."""
    z = F.normalize(features.float(), dim=1)
    scores = z @ z.t() / temperature
    itself = torch.eye(len(z), dtype=torch.bool, device=z.device)
    scores = scores.masked_fill(itself, float("-inf"))
    same = (people[:, None] == people[None, :]) & ~itself
    log_share = scores - torch.logsumexp(scores, dim=1, keepdim=True)
    right = torch.where(same, log_share, torch.zeros_like(log_share)).sum(1)
    return -(right / same.sum(1).clamp(min=1)).mean()


def shared_direction(features, people):
    """The mean score of strangers as far as it is above zero, squared: what pictures of different
    people have in common tells nobody apart, and moves every threshold. Over a batch of one kind of
    people it keeps that kind's mean feature near zero."""
    z = F.normalize(features.float(), dim=1)
    strangers = people[:, None] != people[None, :]
    return (z @ z.t())[strangers].mean().clamp(min=0).square()


class CosFace:
    """Softmax over people on cosines, the right one reduced by a margin. People can be added.

    A loss is over the batch's people and as many others, drawn at random, as make `sampled`: over
    tens of thousands of people the product and the optimiser's step would cost as much as the network.
    Only the centres that took part move, by steps of Adam.
    """

    MEMORY, SQUARES, LEAST = 0.9, 0.999, 1e-8

    def __init__(self, size, device="cpu", sampled=8192, seed=0):
        self.centres = torch.zeros(0, size, device=device)
        self.first, self.second = self.centres.clone(), self.centres.clone()
        self.steps = torch.zeros(0, 1, device=device)
        self.sampled = sampled
        self.random = torch.Generator().manual_seed(seed)
        self._rows = self._drawn = None

    def __len__(self):
        return len(self.centres)

    def state(self):
        return {name: getattr(self, name) for name in ("centres", "first", "second", "steps")}

    def take(self, state):
        for name, tensor in state.items():
            setattr(self, name, tensor.to(self.centres))

    def grow(self, new_centres):
        """Adds people. Their directions count alone; a norm of 3 slows how fast they turn."""
        new = 3 * F.normalize(new_centres.to(self.centres), dim=1)
        self.centres = torch.cat([self.centres, new])
        for name in ("first", "second"):
            setattr(self, name, torch.cat([getattr(self, name), torch.zeros_like(new)]))
        self.steps = torch.cat([self.steps, torch.zeros_like(new[:, :1])])

    def _draw(self, people):
        """The numbers of the classes that take part, rising."""
        count = len(self.centres)
        if count <= self.sampled:
            return torch.arange(count, device=people.device)
        chosen = torch.zeros(count, dtype=torch.bool)
        chosen[torch.randint(count, (self.sampled,), generator=self.random)] = True
        chosen = chosen.to(people.device)
        chosen[people] = True
        return chosen.nonzero().flatten()

    def __call__(self, features, people, scale, margin):
        self._rows = self._draw(people)
        self._drawn = self.centres[self._rows].requires_grad_()
        # In half the width, for the product's sake.
        z = F.normalize(features.float(), dim=1).to(torch.bfloat16)
        centres = F.normalize(self._drawn, dim=1).to(torch.bfloat16)
        cosines = (z @ centres.t()).float()
        at = torch.searchsorted(self._rows, people)
        right = torch.zeros_like(cosines).scatter_(1, at[:, None], margin)
        return F.cross_entropy(scale * (cosines - right), at)

    @torch.no_grad()
    def step(self, rate):
        """Moves the centres that took part in the last loss."""
        if self._drawn is None:
            return
        rows, slope = self._rows, self._drawn.grad
        steps = self.steps[rows] + 1
        first = torch.lerp(slope, self.first[rows], self.MEMORY)
        second = torch.lerp(slope.square(), self.second[rows], self.SQUARES)
        length = (second / (1 - self.SQUARES**steps)).sqrt() + self.LEAST
        self.centres[rows] -= rate * first / (1 - self.MEMORY**steps) / length
        self.first[rows], self.second[rows], self.steps[rows] = first, second, steps
        self._rows = self._drawn = None

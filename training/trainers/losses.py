# SPDX-License-Identifier: MIT
"""Losses on the feature's direction."""
import torch
import torch.nn.functional as F
from torch import nn


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


class CosFace(nn.Module):
    """Softmax over people on cosines, the right one reduced by a margin. People can be added."""

    def __init__(self, size):
        super().__init__()
        self.centres = nn.Parameter(torch.zeros(0, size))

    @torch.no_grad()
    def grow(self, new_centres):
        """Adds people. Their directions count alone; a norm of 3 slows how fast they turn."""
        new = 3 * F.normalize(new_centres.to(self.centres), dim=1)
        self.centres = nn.Parameter(torch.cat([self.centres.detach(), new]))

    def forward(self, features, people, scale, margin):
        # In half the width: over thousands of people this product costs as much as the network.
        z = F.normalize(features.float(), dim=1).to(torch.bfloat16)
        centres = F.normalize(self.centres, dim=1).to(torch.bfloat16)
        cosines = (z @ centres.t()).float()
        right = torch.zeros_like(cosines).scatter_(1, people[:, None], margin)
        return F.cross_entropy(scale * (cosines - right), people)

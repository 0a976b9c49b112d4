# SPDX-License-Identifier: MIT
"""Multiplies a linear map into the recognition network's last layer, so that what changes within a person
counts less.

Of crops of people, S is the scatter of their features about each person's mean; of several folders it is the mean
of theirs. The features are taken times (S + ridge * mean variance)^-1/2: directions in which one person's pictures
differ most are made shorter. The larger the ridge, the less is changed.
"""
import argparse
from pathlib import Path

import numpy as np
import torch

from .. import engine
from ..data.augment import centre_crop
from ..data.shards import COLUMN
from ..networks.quant_net import from_tensors, to_input
from . import tensors

BATCH = 64
MOST = 127
REACH = 0.9995  # share of the outputs that are not to be cut off


def scatter_within(features, people):
    """Of features of unit length about each person's mean, [n, n]."""
    z = features / np.linalg.norm(features, axis=1, keepdims=True)
    numbers = np.unique(people, return_inverse=True)[1]
    count = numbers.max() + 1
    means = np.stack([z[numbers == i].mean(0) for i in range(count)])
    rest = z - means[numbers]
    return rest.T @ rest / (len(z) - count)


def shortening(scatter, ridge):
    """(scatter + ridge * its mean variance)^-1/2, of the length of the identity."""
    values, axes = np.linalg.eigh(scatter)
    out = (axes / np.sqrt(values + ridge * values.mean())) @ axes.T
    return out / np.sqrt(np.square(out).mean() * len(out))


def mapped(weights, bias, shift, matrix, features):
    """Integers of a dense layer with the matrix behind it; features: what it answers now, for its range."""
    half = 2.0 ** (shift - 1)  # the library rounds down
    weights, bias = matrix @ weights.astype(float), matrix @ (bias - half)
    scale = min(MOST / np.abs(weights).max(), MOST / np.quantile(np.abs(features @ matrix.T), REACH))
    return np.rint(scale * weights).astype(np.int8), np.rint(scale * bias + half).astype(np.int32)


def features_of(model, folder, most):
    """What the network answers to crops of a folder's shards, and whom they show."""
    net = from_tensors("fr", model).eval()
    if engine.is_possible():
        net.trunk = engine.Trunk(net, BATCH, torch.get_num_threads(), quantised=True)
    parts, people, count = [], [], 0
    for path in sorted(folder.glob("crops-*.labels.npy")):
        pictures = np.load(str(path).replace(".labels.", ".pictures."), mmap_mode="r")
        whole = min(len(pictures), most - count) // BATCH * BATCH
        people.append(np.load(path)[:whole, COLUMN["person"]])
        for begin in range(0, whole, BATCH):
            crops = torch.from_numpy(np.ascontiguousarray(centre_crop(pictures[begin : begin + BATCH])))
            with torch.no_grad():
                parts.append(net(to_input(crops)).flatten(1).numpy())
        count += whole
    if not count:
        raise SystemExit(f"no {BATCH} crops in {folder}")
    return np.concatenate(parts), np.concatenate(people)


def main():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.export.less_within",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument("model", type=Path, help="the network: fr.safetensors")
    parser.add_argument(
        "--data", type=Path, nargs="+", required=True, metavar="FOLDER", help="with crops-* shards of people"
    )
    parser.add_argument("--out", type=Path, required=True)
    parser.add_argument("--ridge", type=float, default=4.0, help="(%(default)s)")
    parser.add_argument("--pictures", type=int, default=12288, help="of each folder, at most (%(default)s)")
    args = parser.parse_args()
    model = tensors.read(args.model)
    folders = [features_of(model, folder, args.pictures) for folder in args.data]
    matrix = shortening(np.mean([scatter_within(*folder) for folder in folders], axis=0), args.ridge)
    features = np.concatenate([features for features, _ in folders])
    last = from_tensors("fr", model).convs[-1]
    weight, bias = f"{last.number}.weight", f"{last.number}.bias"
    flat = model[weight].reshape(last.outputs, -1)
    weights, model[bias] = mapped(flat, model[bias], last.shift, matrix, features)
    model[weight] = weights.reshape(model[weight].shape)
    tensors.write(args.out, model)


if __name__ == "__main__":
    main()

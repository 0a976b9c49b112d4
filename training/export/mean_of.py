# SPDX-License-Identifier: MIT
"""The mean of integer networks of one descent, weight by weight, rounded.

States of one training, or of trainings that went on from one another, lie in one valley: their mean
keeps what each of them is good at.
"""
import argparse
from pathlib import Path

import numpy as np

from . import tensors


def mean_of(shares, states):
    """`shares` sum to 1; `states`: {name: integers} each."""
    mean = {}
    for name, first in states[0].items():
        limits = np.iinfo(first.dtype)
        total = sum(share * state[name].astype(np.float64) for share, state in zip(shares, states))
        mean[name] = np.rint(total).clip(limits.min, limits.max).astype(first.dtype)
    return mean


def main():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.export.mean_of",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument("parts", nargs="+", metavar="SHARE FILE", help="a share and a network, in turns")
    parser.add_argument("--out", type=Path, required=True)
    args = parser.parse_args()
    try:
        shares, files = [float(word) for word in args.parts[::2]], args.parts[1::2]
    except ValueError:
        parser.error("a share and a file in turns")
    if len(shares) != len(files) or abs(sum(shares) - 1) > 1e-6:
        parser.error("a share to each file, and shares that sum to 1")
    states = [tensors.read(file) for file in files]
    if any({n: t.shape for n, t in s.items()} != {n: t.shape for n, t in states[0].items()} for s in states):
        parser.error("networks of one form only")
    tensors.write(args.out, mean_of(shares, states))


if __name__ == "__main__":
    main()

# SPDX-License-Identifier: MIT
"""Puts the tensors of both networks of the finder into the one file that the library is built from."""
import argparse
from pathlib import Path

from . import tensors


def main():
    parser = argparse.ArgumentParser(prog="python3 -m training.export.find_model", description=__doc__)
    add = parser.add_argument
    add("find", type=Path, help="what train_find wrote")
    add("look", type=Path, help="what train_look wrote")
    add("out", type=Path)
    args = parser.parse_args()
    given = {**tensors.read(args.find), **tensors.read(args.look)}
    names = sorted(given, key=lambda name: (name.split(".")[1], int(name.split(".")[0])))
    tensors.write(args.out, {name: given[name] for name in names})


if __name__ == "__main__":
    main()

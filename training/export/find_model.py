# SPDX-License-Identifier: MIT
"""Puts the tensors of the finder's networks into the one file that the library is built from."""
import argparse
from pathlib import Path

from . import tensors


def main():
    parser = argparse.ArgumentParser(prog="python3 -m training.export.find_model", description=__doc__)
    add = parser.add_argument
    add("find", type=Path, help="what train_find wrote")
    add("look", type=Path, help="what train_look wrote")
    add("close", type=Path, help="what train_look --close wrote")
    add("out", type=Path)
    args = parser.parse_args()
    given = {}
    for part in (args.find, args.look, args.close):
        given.update(tensors.read(part))
    names = sorted(given, key=lambda name: (name.split(".")[1], int(name.split(".")[0])))
    tensors.write(args.out, {name: given[name] for name in names})


if __name__ == "__main__":
    main()

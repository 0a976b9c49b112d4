#!/usr/bin/env python3
"""Corpora in the repository are text, an input a line in Base64, sorted: small, and a change shows.

  corpus.py unpack FILE.corpus FOLDER   writes each input as a file of its own, as libFuzzer has them
  corpus.py pack FILE.corpus FOLDER...  writes the folders' inputs up to a size, those of the first folder first,
                                        and of each folder the smallest first
"""
import base64
import hashlib
import pathlib
import sys

MOST_BYTES = 48_000  # of one file
LONGEST = 6_000  # of one input


def unpack(packed, folder):
    folder.mkdir(parents=True, exist_ok=True)
    for line in packed.read_text("ascii").splitlines():
        data = base64.b64decode(line, validate=True)
        (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)


def inputs_of(folder):
    inputs = {path.read_bytes() for path in folder.iterdir()} if folder.is_dir() else set()
    return sorted((data for data in inputs if len(data) <= LONGEST), key=lambda data: (len(data), data))


def pack(packed, folders):
    lines = set()
    left = MOST_BYTES
    for line in (base64.b64encode(data).decode("ascii") for folder in folders for data in inputs_of(folder)):
        if line not in lines and len(line) < left:
            lines.add(line)
            left -= len(line) + 1
    packed.write_text("".join(line + "\n" for line in sorted(lines)), "ascii")
    return len(lines)


def main(arguments):
    if len(arguments) == 3 and arguments[0] == "unpack":
        unpack(pathlib.Path(arguments[1]), pathlib.Path(arguments[2]))
    elif len(arguments) >= 3 and arguments[0] == "pack":
        packed, *folders = map(pathlib.Path, arguments[1:])
        print(f"{packed.name}: {pack(packed, folders)} inputs")
    else:
        sys.exit(__doc__.strip())


if __name__ == "__main__":
    main(sys.argv[1:])

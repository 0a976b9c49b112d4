#!/usr/bin/env python3
"""Corpora in the repository are text, an input a line in Base64, sorted: small, and a change shows.

  corpus.py unpack FILE.corpus FOLDER   writes each input as a file of its own, as libFuzzer has them
  corpus.py pack FOLDER FILE.corpus     writes the folder's inputs, the smallest first, up to a size
"""
import base64
import hashlib
import pathlib
import sys

MOST_BYTES = 60_000  # of one file
LONGEST = 6_000  # of one input


def unpack(packed, folder):
    folder.mkdir(parents=True, exist_ok=True)
    for line in packed.read_text("ascii").splitlines():
        data = base64.b64decode(line, validate=True)
        (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)


def pack(folder, packed):
    lines = set()
    left = MOST_BYTES
    for data in sorted({path.read_bytes() for path in folder.iterdir()}, key=lambda data: (len(data), data)):
        line = base64.b64encode(data).decode("ascii")
        left -= len(line) + 1
        if len(data) > LONGEST or left < 0:
            break
        lines.add(line)
    packed.write_text("".join(line + "\n" for line in sorted(lines)), "ascii")
    return len(lines)


def main(arguments):
    if len(arguments) == 3 and arguments[0] == "unpack":
        unpack(pathlib.Path(arguments[1]), pathlib.Path(arguments[2]))
    elif len(arguments) == 3 and arguments[0] == "pack":
        print(f"{arguments[2]}: {pack(pathlib.Path(arguments[1]), pathlib.Path(arguments[2]))} inputs")
    else:
        sys.exit(__doc__.strip())


if __name__ == "__main__":
    main(sys.argv[1:])

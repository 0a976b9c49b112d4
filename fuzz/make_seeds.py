#!/usr/bin/env python3
"""Writes inputs that a search begins with: make_seeds.py FOLDER makes a folder there for each target.

They are small and valid, so that the search need not guess a format: key files, models, pictures, galleries,
lists, calibrations and requests. Targets that take numbers alone need none.
"""
import base64
import io
import json
import pathlib
import random
import struct
import sys

from PIL import Image

ROOT = pathlib.Path(__file__).resolve().parent.parent


def crop_of_a_face(side):
    picture = Image.open(ROOT / "samples" / "ada-1.png").convert("L")
    return picture.resize((side, side))


def small_picture(mode="L", size=(9, 7)):
    numbers = random.Random(1)
    picture = Image.new(mode, size)
    bands = len(picture.getbands())
    picture.putdata([tuple(numbers.randrange(256) for _ in range(bands)) if bands > 1 else numbers.randrange(256)
                     for _ in range(size[0] * size[1])])
    return picture


def packed(picture, kind, **options):
    file = io.BytesIO()
    picture.save(file, kind, **options)
    return file.getvalue()


def exif(orientation, order="<"):
    mark = b"II" if order == "<" else b"MM"
    return (mark + struct.pack(order + "HIH", 42, 8, 1) + struct.pack(order + "HHIHH", 0x112, 3, 1, orientation, 0) +
            struct.pack(order + "I", 0))


def pictures():
    grey, colour = small_picture(), small_picture("RGB")
    with_turn = b"Exif\0\0" + exif(6)
    yield from (packed(grey, "PNG"), packed(colour, "PNG"), packed(small_picture("RGBA"), "PNG"))
    yield packed(small_picture("P"), "PNG")
    yield packed(Image.new("I;16", (4, 3), 40000), "PNG")
    yield packed(grey, "PNG", exif=exif(8, ">"))
    # A chunk that claims 1.6 GB: nobody may ask for so much memory.
    yield packed(grey, "PNG")[:33] + struct.pack(">I", 0x60000000) + b"eXIf" + exif(8, ">")
    yield from (packed(grey, "JPEG"), packed(colour, "JPEG", quality=30))
    yield packed(colour, "JPEG", progressive=True)
    yield packed(small_picture("CMYK"), "JPEG")
    yield packed(colour, "JPEG", exif=with_turn, subsampling=0)
    yield packed(small_picture(size=(33, 17)), "JPEG")[:-40]
    for kind in ("BMP", "PPM", "GIF", "WEBP", "TIFF"):
        yield packed(colour, kind)
    yield packed(grey, "TIFF", compression="tiff_lzw")
    yield packed(colour, "TIFF", compression="jpeg")
    yield packed(Image.new("1", (11, 5)), "TIFF", compression="group4")
    yield packed(grey, "PPM")
    yield packed(Image.new("1", (11, 5)), "PPM")
    yield packed(small_picture("P"), "BMP")
    yield b"P2\n# words\n3 2\n15\n0 1 2\n3 4 15\n"
    yield b"P3 1 2 65535 1 2 3 4 5 6 "
    yield from (exif(turn, order) for turn in (1, 3, 6, 8) for order in "<>")


def keys():
    yield (ROOT / "models" / "development.key").read_bytes()
    lengths = {"white_box_key": 16, "seed": 32}
    names = list(lengths) + [f"{model}_{entry}" for model in ("align", "fr")
                             for entry in ("key", "wrap_iv", "array_iv")]
    lines = [f"{name} = {'5a' * lengths.get(name, 16)}" for name in names]
    yield "\n".join(lines).encode()
    yield "\r\n".join(["# words", "", *reversed(lines)]).encode()
    yield "\n".join(lines[1:]).encode()
    yield "\n".join([*lines, lines[0]]).encode()


def model_file(tensors, kind):
    """Three layers, as models.cpp has them."""
    size, code = kind
    header, data = {}, b""
    for name, shape in tensors:
        count = 1
        for extent in shape:
            count *= extent
        begin = len(data)
        data += struct.pack(f"<{count}{code}", *(number % 7 - 3 for number in range(count)))
        header[name] = {"dtype": f"I{8 * size}", "shape": shape, "data_offsets": [begin, len(data)]}
    text = json.dumps(header).encode()
    return struct.pack("<Q", len(text)) + text + data


def models():
    layers = [(0, [4, 4, 1, 1], 4), (2, [1, 1, 3, 3], 1), (5, [5, 2], 5)]
    tensors = [(f"{number}.{part}", shape) for number, weights, out in layers
               for part, shape in (("weight", weights), ("bias", [out]))]
    for kind in ((1, "b"), (2, "h"), (4, "i"), (8, "q")):
        yield model_file(tensors, kind)
        yield model_file(tensors[1:], kind)


def pairs():
    yield b"a.png b.png 1\na.png c.png 0\n"
    yield b"# words\n\na b 1\r\nb c 1\r\nc a 0\r\n"
    yield b'"a, b.png",c.png,1\n"x ""y""",c.png,0\n'
    yield b"a\tb\t0\nb\tc\t1\nd\te\t1\nb\ta\t0\n"
    # Groups of pairs, of people and of pictures; features and their names.
    yield b"first,second,same,g\na,b,1,x\na,c,0,\nb,c,0,y\n"
    yield b"person,g\nada,x\nben,y\n"
    yield b"picture,h,g\nada/1.png,,x\n"
    axis = b",1" + b",0" * 127
    yield b"name," + b",".join(b"f%d" % i for i in range(128)) + b"\na" + axis + b'\n"b, c"' + axis + b"\n"
    yield b'name\n"a ""b"""\n'
    header = b"{'descr': '<f4', 'fortran_order': False, 'shape': (1, 128), }".ljust(117) + b"\n"
    yield b"\x93NUMPY\x01\x00\x76\x00" + header + struct.pack("<128f", 1, *[0] * 127)


def galleries():
    # From a description: version 1 or 2, entries, changes. See galleries.cpp.
    for kind in (64, 65, 67, 69, 77, 68, 79):
        for entries in (0, 1, 3):
            described = b"".join(bytes([entry * 5, 3]) + b"n%dx" % entry for entry in range(entries))
            yield bytes([kind, entries]) + described
            yield bytes([kind, entries]) + described + bytes([1, 16, 0, 255, 251, 40, 0, 9])
    # A file as it lies, version 1 without entries and cut.
    for version in (1, 2):
        yield bytes([version % 2 + 1]) + b"KFRGALRY" + struct.pack("<II", version, 128) + bytes(120)


def calibrations():
    axis = [1] + [0] * 127
    other = [0] * 126 + [0.6, 0.8]
    rate = {"rate": 0.01, "interval": [0, 0.02]}
    threshold = {"false_accept_rate": 0.001, "threshold": 0.5, "false_accepts": rate, "false_rejects": None,
                 "rough": False}
    whole = {"kova_fr_calibration": 1, "models": "0" * 64, "pictures": 4, "people": 2, "labelled": True,
             "faces": "found", "thresholds": [threshold], "most_alike": 1, "stranger_pairs": 9,
             "strangers": [[1, 0.5], [9, -0.5]], "mean": [0] * 128, "cohort": [axis, other, axis]}
    yield json.dumps(whole, separators=(",", ":")).encode()
    whole["thresholds"] = [threshold | {"false_rejects": rate, "rough": True}]
    whole["cohort"] = []
    del whole["faces"]
    yield json.dumps(whole, separators=(",", ":")).encode()
    yield json.dumps(whole | {"pictures": 1e300}, separators=(",", ":")).encode()
    yield json.dumps(whole | {"models": "1" * 64}, separators=(",", ":")).encode()


def request(kind, method, path, form, body):
    """One of requests.cpp's own making: numbers of a method, a path and a type, then the body."""
    return bytes([kind, method, path, form]) + struct.pack("<H", len(body)) + body


def requests():
    yield b"\0GET /health HTTP/1.1\r\nHost: localhost\r\n\r\n"
    yield (b"\0POST /v1/find HTTP/1.1\r\nHost: 127.0.0.1:80\r\nExpect: 100-continue\r\nContent-Type: "
           b"application/json\r\nContent-Length: 2\r\n\r\n{}DELETE /v1/people/a%20b HTTP/1.0\r\n\r\n")
    for path in range(13):
        yield request(1, 0, path, 0, b"")
        yield request(1, 2, path, 0, b"")
    picture = base64.b64encode(packed(small_picture(), "PNG")).decode()
    feature = base64.b64encode(struct.pack("<128f", 1, *[0] * 127)).decode()
    bodies = [{"picture": picture}, {"pictures": [picture, picture], "most": 3, "least_quality": 0, "crop": True},
              {"features": [feature, feature], "threshold": 0.5, "top": 2}, {"feature": feature, "name": "ada"},
              {"feature": [1] + [0] * 127, "name": "a"}]
    for path in (4, 5, 6, 7, 8):
        for body in bodies:
            yield request(1, 1, path, 0, json.dumps(body).encode())
    form = (b'--x\r\nContent-Disposition: form-data; name="picture"; filename="a.png"\r\n\r\n' +
            packed(small_picture(), "PNG") +
            b'\r\n--x\r\nContent-Disposition: form-data; name="crop"\r\n\r\ntrue\r\n--x--')
    for path in (4, 5, 7):
        yield request(1, 1, path, 1, form)
    add = request(3, 1, 8, 0, json.dumps(bodies[3]).encode())
    yield add + request(0, 1, 7, 0, json.dumps(bodies[2]).encode())[1:] + request(0, 2, 9, 0, b"")[1:]


def finder():
    """A face in a picture of that width: see finder.cpp for the numbers in front."""
    for side in (48, 72, 96):
        pixels = crop_of_a_face(side).tobytes()
        yield bytes([0, 9, side - 20, side - 20, 0, 14, 0, 6, 1]) + pixels
    box, points = (640, 640, 2000), (1000, 1200, 1900, 1200, 1500, 1600, 1100, 2000, 1800, 2000)
    yield bytes([200, 0]) + struct.pack("<13h", *box, *points) + bytes([40, 40, 0, 20, 0, 6, 1])


TARGETS = {make.__name__: make for make in (pictures, keys, models, pairs, galleries, calibrations, requests, finder)}


def main(arguments):
    if len(arguments) != 1:
        sys.exit(__doc__.strip())
    for name, make in TARGETS.items():
        folder = pathlib.Path(arguments[0]) / name
        folder.mkdir(parents=True, exist_ok=True)
        for number, data in enumerate(make()):
            (folder / f"seed-{number:03}").write_bytes(data)


if __name__ == "__main__":
    main(sys.argv[1:])

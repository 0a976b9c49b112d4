#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Requests a second, latency and memory of kova-fr serve under wrk.

usage: bench/service/load.py KOVA_FR [SECONDS [CONNECTIONS]]

The gallery has 10,000 features of made-up people beside those of the samples.
"""
import base64
import json
import random
import re
import struct
import subprocess
import sys
import tempfile
import urllib.request
from pathlib import Path

SAMPLES = Path(__file__).resolve().parent.parent.parent / "samples"
PEOPLE = 10_000

SCRIPT = """
wrk.method = "POST"
wrk.headers["Content-Type"] = "application/json"
wrk.body = [==[%s]==]
"""


def post(url, fields):
    request = urllib.request.Request(url, json.dumps(fields).encode(), {"Content-Type": "application/json"})
    with urllib.request.urlopen(request) as answer:
        return json.load(answer)


def stranger(chance):
    values = [chance.gauss(0, 1) for _ in range(128)]
    length = sum(value * value for value in values) ** 0.5
    return base64.b64encode(struct.pack("<128f", *(value / length for value in values))).decode()


def memory(process):
    text = Path(f"/proc/{process.pid}/status").read_text()
    return [int(re.search(rf"{name}:\s+(\d+)", text).group(1)) / 1000 for name in ("VmRSS", "VmHWM")]


def load(url, body, folder, seconds, connections):
    command = ["wrk", "-t1", f"-c{connections}", f"-d{seconds}", "--latency", url]
    if body is not None:
        script = Path(folder) / "post.lua"
        script.write_text(SCRIPT % body)
        command += ["-s", str(script)]
    text = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    rate = re.search(r"Requests/sec:\s+([\d.]+)", text).group(1)
    times = dict(re.findall(r"^\s+(50|99)%\s+(\S+)", text, re.MULTILINE))
    bad = re.search(r"Non-2xx or 3xx responses: (\d+)", text)
    return rate, times["50"], times["99"], bad.group(1) if bad else "0"


def main():
    program = sys.argv[1]
    seconds = int(sys.argv[2]) if len(sys.argv) > 2 else 10
    connections = int(sys.argv[3]) if len(sys.argv) > 3 else 8
    with tempfile.TemporaryDirectory() as folder:
        process = subprocess.Popen([program, "serve", "--port", "0", "--rate", "0", "--rate-per-address", "0",
                                    "--gallery", f"{folder}/people.gallery"], stdout=subprocess.PIPE, text=True)
        url = process.stdout.readline().strip()
        print(f"resident, just started: {memory(process)[0]:.1f} MB")
        chance = random.Random(1)
        for first in range(0, PEOPLE, 50):
            post(f"{url}/v1/people", {"name": f"person {first}", "features": [stranger(chance) for _ in range(50)]})
        picture = base64.b64encode((SAMPLES / "ada-1.png").read_bytes()).decode()
        feature = post(f"{url}/v1/extract", {"picture": picture})["faces"][0]["feature"]
        small = base64.b64encode(struct.pack("<128f", *feature)).decode()
        print(f"{'request':42} {'a second':>9} {'median':>9} {'99 %':>9} {'not 200':>8} {'resident':>9}")
        for name, path, body in (("GET /health", "/health", None),
                                 ("POST /v1/identify, a feature", "/v1/identify", {"feature": small}),
                                 ("POST /v1/identify, a picture of 256 x 256", "/v1/identify", {"picture": picture}),
                                 ("POST /v1/identify, the same as a crop", "/v1/identify",
                                  {"picture": picture, "crop": True})):
            text = None if body is None else json.dumps(body)
            rate, median, slow, bad = load(url + path, text, folder, seconds, connections)
            print(f"{name:42} {rate:>9} {median:>9} {slow:>9} {bad:>8} {memory(process)[0]:>6.1f} MB")
        print("resident {:.1f} MB, at most {:.1f} MB".format(*memory(process)))
        process.terminate()
        process.wait()


if __name__ == "__main__":
    main()

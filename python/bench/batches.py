# SPDX-License-Identifier: MIT
"""What one call for many gains over many calls, beside idle and beside busy threads of Python.

    ORVO_FR_LIBRARY=build/host/lib/libkova_fr.so.1 PYTHONPATH=python python3 python/bench/batches.py
"""
import threading
import time

import numpy as np

import orvo_fr

PICTURES, FEATURES, ROUNDS = 256, 300, 5


def one_by_one(pictures):
    return np.stack([orvo_fr.extract(picture) for picture in pictures])


def pair_by_pair(features):
    return np.array([[orvo_fr.distance(a, b) for b in features] for a in features], np.float32)


def least(function, *arguments):
    """Seconds, the least of some rounds."""
    times = []
    for _ in range(ROUNDS):
        begin = time.perf_counter()
        function(*arguments)
        times.append(time.perf_counter() - begin)
    return min(times)


def row(name, count, unit, slow, fast, argument):
    before, after = least(slow, argument) / count, least(fast, argument) / count
    print(f"{name:34} {before * unit:10.3f} {after * unit:10.3f} {before / after:8.1f} x")


def main():
    pictures = np.random.default_rng(0).integers(0, 256, (PICTURES, 256, 256), np.uint8)
    features = orvo_fr.extract_many(pictures)
    features = np.concatenate([features, features])[:FEATURES]
    print(f"instruction set {orvo_fr.instruction_set()}; least of {ROUNDS} rounds")
    print(f"{'':34} {'one each':>10} {'one call':>10}")
    stop = threading.Event()

    def spin():
        while not stop.is_set():
            pass

    busy = threading.Thread(target=spin)
    for beside in ("", ", a busy thread"):
        if beside:
            busy.start()
        row(f"feature{beside}, ms", PICTURES, 1e3, one_by_one, orvo_fr.extract_many, pictures)
        row(f"distance{beside}, ns", FEATURES**2, 1e9, pair_by_pair, orvo_fr.distances, features)
    stop.set()
    busy.join()


if __name__ == "__main__":
    main()

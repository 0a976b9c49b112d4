# SPDX-License-Identifier: MIT
"""How orvo_fr.cluster grows with the workers on this machine: without Dask, and with one and more.

Seconds on the clock, and the processor's seconds of the busiest worker, which say how the work is shared out
where others use the machine, too.

    ORVO_FR_LIBRARY=build/host/lib/libkova_fr.so.1 python3 python/bench/cluster_growth.py [WORKERS...]
"""
import os
import shutil
import sys
import tempfile
import time
from pathlib import Path

import numpy as np

PACKAGE = Path(__file__).resolve().parent.parent
sys.path[:0] = [str(PACKAGE), str(PACKAGE / "tests")]

import orvo_fr  # noqa: E402
from local_cluster import Cluster  # noqa: E402
from orvo_fr import cluster  # noqa: E402

PICTURES, PAIRED, ENTRIES, SEARCHED, ROUNDS = 1080, 10_000, 200_000, 256, 2


def random_features(count, seed):
    features = np.random.default_rng(seed).normal(size=(count, 128)).astype(np.float32)
    return features / np.linalg.norm(features, axis=1, keepdims=True)


def processor_seconds(process):
    """What a process used so far."""
    fields = Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def least(function, processes):
    """Seconds on the clock and of the busiest process, each the least of some rounds."""
    clock, busiest = [], []
    for _ in range(ROUNDS):
        used = [processor_seconds(process) for process in processes]
        begin = time.perf_counter()
        function()
        clock.append(time.perf_counter() - begin)
        busiest.append(max(processor_seconds(p) - u for p, u in zip(processes, used)))
    return min(clock), min(busiest)


class Work:
    """The same work with and without a cluster."""

    def __init__(self, folder):
        self.folder = folder / "pictures"
        self.folder.mkdir()
        samples = sorted((PACKAGE.parent / "samples").glob("*-[0-9].png"))
        for i in range(PICTURES):
            shutil.copy(samples[i % len(samples)], self.folder / f"{i}.png")
        self.paired = random_features(PAIRED, 0)
        self.people = np.arange(PAIRED) % (PAIRED // 10)
        self.gallery = orvo_fr.Gallery()
        for i, feature in enumerate(random_features(ENTRIES, 1)):
            self.gallery.add(f"p{i}", feature)
        self.path = folder / "people.gallery"
        self.gallery.save(self.path)
        self.searched = random_features(SEARCHED, 2)

    def alone(self):
        own = [os.getpid()]
        return (
            least(lambda: orvo_fr.extract_folder(self.folder), own),
            least(lambda: orvo_fr.evaluate(self.paired, self.people), own),
            least(lambda: self.gallery.search(self.searched, 5), own),
        )

    def on(self, grown):
        client, workers = grown.client, [process.pid for process in grown.workers.values()]
        shards = cluster.Shards(client, self.path)
        return (
            least(lambda: cluster.extract_folder(client, self.folder), workers),
            least(lambda: cluster.evaluate(client, self.paired, self.people), workers),
            least(lambda: shards.search(self.searched, 5), workers),
        )


def show(name, times):
    texts = (f"{clock:10.2f} {busiest:6.2f}" for clock, busiest in times)
    print(f"{name:12}" + "".join(texts), flush=True)


def main():
    counts = [int(text) for text in sys.argv[1:]] or [1, 2]
    with tempfile.TemporaryDirectory() as place:
        work = Work(Path(place))
        print(f"{os.cpu_count()} processors, load average {os.getloadavg()[0]:.1f}, least of {ROUNDS} rounds")
        print(f"{'seconds':12}{'pictures':>17}{'pairs':>17}{'search':>17}")
        show("without", work.alone())
        grown = Cluster(Path(place))
        try:
            for count in counts:
                grown.have_workers(count)
                show(f"{count} workers", work.on(grown))
        finally:
            grown.stop()
        print(f"load average {os.getloadavg()[0]:.1f}")


if __name__ == "__main__":
    main()

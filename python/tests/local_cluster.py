# SPDX-License-Identifier: MIT
"""A scheduler and workers on this machine, each a process of its own."""
import json
import os
import subprocess
import sys
import time
from pathlib import Path

from distributed import Client

PACKAGE = Path(__file__).resolve().parent.parent
PATIENCE = 120  # seconds, for a busy machine


class Cluster:
    """A scheduler and workers of one thread each, without anybody who would start a lost one again."""

    def __init__(self, folder):
        self._folder = folder
        self._contact = folder / "scheduler.json"
        self._environment = {
            **os.environ, "PYTHONPATH": str(PACKAGE), "DASK_DISTRIBUTED__COMM__RETRY__COUNT": "2"
        }
        self._scheduler = self._start("dask_scheduler", "--port", "0", "--host", "127.0.0.1")
        deadline = time.monotonic() + PATIENCE
        while not self._contact.exists() or not self._contact.read_text().endswith("}"):
            if self._scheduler.poll() is not None or time.monotonic() > deadline:
                raise AssertionError("the scheduler did not start")
            time.sleep(0.1)
        self.client = Client(json.loads(self._contact.read_text())["address"], timeout=PATIENCE)
        self.workers = {}

    def _start(self, program, *options):
        command = [sys.executable, "-m", f"distributed.cli.{program}", *options]
        command += ["--scheduler-file", str(self._contact), "--no-dashboard"]
        return subprocess.Popen(
            command, env=self._environment, cwd=self._folder, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )

    def have_workers(self, count):
        """Starts workers until there are so many."""
        while len(self.workers) < count:
            name = f"worker-{time.monotonic_ns()}"
            self.workers[name] = self._start(
                "dask_worker", "--name", name, "--nthreads", "1", "--no-nanny",
                "--host", "127.0.0.1", "--local-directory", str(self._folder / name),
            )
        deadline = time.monotonic() + PATIENCE
        while set(self.names()) != set(self.workers):
            if time.monotonic() > deadline:
                raise AssertionError("the workers did not come")
            time.sleep(0.1)

    def names(self):
        return [one["name"] for one in self.client.scheduler_info()["workers"].values()]

    def kill_one(self):
        name, process = self.workers.popitem()
        process.kill()
        process.wait()

    def stop(self):
        self.client.close()
        for process in (*self.workers.values(), self._scheduler):
            process.kill()
            process.wait()

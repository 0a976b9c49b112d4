# SPDX-License-Identifier: MIT
"""A copy of the sources with a build of its own, in which sources may be changed."""

import hashlib
import json
import os
import pathlib
import re
import resource
import subprocess

import programs
from test_programs import TestPrograms

_SETTINGS = [
    "-DORVO_BUILD_TRAINING=OFF", "-DORVO_BUILD_BENCH=OFF", "-DORVO_BUILD_TOOLS=OFF", "-DORVO_BUILD_PYTHON=OFF",
    "-DORVO_PYTHON=OFF",
    # A library that was made anew is found by the programs that are there.
    "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST",
]


class Workshop:
    def __init__(self, sources, folder, preset):
        self.sources, self.folder, self.preset = pathlib.Path(sources), pathlib.Path(folder), preset
        self.tree = self.folder / "tree"
        self.build = self.tree / "build" / preset  # as deep as in the checkout, so that ccache knows its files
        self._notes = self.folder / f"notes-{preset}.json"
        notes = json.loads(self._notes.read_text()) if self._notes.exists() else {"times": {}, "apart": {}}
        self._times = notes["times"]
        self._programs = TestPrograms(self.build / "bin", notes["apart"])

    def prepare(self):
        """Copies what has changed, and builds it."""
        self._copy()
        os.environ["CCACHE_BASEDIR"], os.environ["CCACHE_NOHASHDIR"] = str(self.tree), "1"
        launcher = self.sources / "tests/mutants/compile"
        launchers = [f"-DCMAKE_CXX_COMPILER_LAUNCHER={launcher}", f"-DCMAKE_C_COMPILER_LAUNCHER={launcher}"]
        packer = self.folder / "packer"
        self._must("cmake", "-GNinja", "-S", self.tree / "tools/pack_models", "-B", packer, "-DCMAKE_BUILD_TYPE=Release",
                   *launchers)
        self._must("ninja", "-C", packer)
        # The packer enciphers by the sources that are about to be changed: this one stays as it is.
        self._must("cmake", "--preset", self.preset, f"-DORVO_PACK_MODELS={packer / 'pack_models'}", *launchers, *_SETTINGS,
                   cwd=self.tree)
        self._must("ninja", "-C", self.build, *self._all_programs())
        self._objects = self._read_dependencies()

    def text(self, file):
        return (self.tree / file).read_text()

    def write(self, file, text):
        """Ninja looks at times: the same text, written again, is a change, too."""
        (self.tree / file).write_text(text)

    def objects_of(self, file):
        return self._objects.get(file, [])

    def files(self):
        return sorted(self._objects)

    def make(self, *targets, changed=False):
        """Whether the targets could be made; as changed sources are, or as they are made for good."""
        environment = dict(os.environ) | ({"ORVO_CHANGED": "1"} if changed else {})
        return subprocess.run(["ninja", "-C", self.build, *targets], env=environment, capture_output=True).returncode == 0

    def code(self, objects):
        return [hashlib.sha256((self.build / o).read_bytes()).hexdigest() for o in objects]

    def passes(self, program, setting):
        """Whether the tests pass in the time that they may take."""
        return self._programs.passes(program, setting, 3 * self.usual_time(program, setting) + 5)

    def usual_time(self, program, setting):
        """The processor's seconds of the unchanged sources. A program that fails with these can judge nothing."""
        name = f"{program} {setting}".strip()
        if name not in self._times:
            if not self._programs.settles(program, setting):
                raise SystemExit(f"{name} fails before anything is changed: run it, and mend that first")
            before = resource.getrusage(resource.RUSAGE_CHILDREN)
            self._programs.passes(program, setting)
            after = resource.getrusage(resource.RUSAGE_CHILDREN)
            self._times[name] = round(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime, 2)
            self._notes.write_text(json.dumps({"times": self._times, "apart": self._programs.apart}, indent=1))
        return self._times[name]

    def _copy(self):
        listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=self.sources, check=True,
                                capture_output=True, text=True).stdout.split("\n")
        for file in filter(None, listed):
            original, copy = self.sources / file, self.tree / file
            if original.is_file() and not (copy.exists() and copy.read_bytes() == original.read_bytes()):
                copy.parent.mkdir(parents=True, exist_ok=True)
                copy.write_bytes(original.read_bytes())
                copy.chmod(original.stat().st_mode)

    def _all_programs(self):
        names = subprocess.run(["ninja", "-C", self.build, "-t", "targets", "all"], check=True, capture_output=True,
                               text=True).stdout
        return sorted(set(re.findall(r"^(\w+_test): phony", names, re.M)))

    def _read_dependencies(self):
        """{source: objects of the libraries that are made from it}"""
        listed = subprocess.run(["ninja", "-C", self.build, "-t", "deps"], check=True, capture_output=True, text=True)
        found = {}
        for block in listed.stdout.split("\n\n"):
            lines = block.strip().split("\n")
            target = lines[0].split(":")[0]
            if not programs.is_of_library(target):
                continue
            for line in lines[1:]:
                path = pathlib.Path(os.path.normpath(self.build / line.strip()))
                if path.is_relative_to(self.tree):
                    found.setdefault(str(path.relative_to(self.tree)), []).append(target)
        return found

    @staticmethod
    def _must(*command, cwd=None):
        done = subprocess.run(command, cwd=cwd, capture_output=True, text=True)
        if done.returncode != 0:
            raise SystemExit(f"{command[0]} failed:\n{done.stdout[-3000:]}{done.stderr[-3000:]}")

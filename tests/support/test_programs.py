# SPDX-License-Identifier: MIT
"""Runs test programs whole: a process for each test, as CTest starts them, takes longer than the tests do."""

import os
import pathlib
import resource
import signal
import subprocess


class TestPrograms:
    def __init__(self, folder, apart=None):
        self.folder = pathlib.Path(folder)
        self.apart = apart if apart is not None else {}  # programs whose tests do not bear one another, with the tests

    def passes(self, program, setting="", limit=None):
        """Whether all tests pass, with an environment variable set and within so many of the processor's seconds."""
        return all(self._passes(program, setting, test, limit) for test in self.apart.get(program, ["*"]))

    def settles(self, program, setting=""):
        """Whether all tests pass, a process for each where they need that; which is kept in mind."""
        if self.passes(program, setting):
            return True
        # What the library keeps for the life of a process stands between tests in one.
        self.apart[program] = self._tests(program)
        return self.passes(program, setting)

    def _tests(self, program):
        listed = subprocess.run([self.folder / program, "--gtest_list_tests"], check=True, capture_output=True,
                                text=True).stdout
        suite, tests = "", []
        for line in listed.splitlines():
            name = line.split("#")[0].rstrip()
            if name.startswith("  "):
                tests.append(suite + name.strip())
            elif name.endswith("."):
                suite = name
        return tests

    def _passes(self, program, setting, test, limit):
        environment = dict(os.environ) | dict([setting.split("=")] if setting else [])
        command = [self.folder / program, "--gtest_fail_fast", "--gtest_brief=1", f"--gtest_filter={test}"]

        def bounds():
            os.setpgrp()
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            if limit:
                resource.setrlimit(resource.RLIMIT_CPU, (int(limit) + 1, int(limit) + 2))

        process = subprocess.Popen(command, env=environment, preexec_fn=bounds, cwd=self.folder,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            return process.wait(60 + 20 * limit if limit else None) == 0
        except subprocess.TimeoutExpired:  # it sleeps: no processor's time passes
            return False
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()

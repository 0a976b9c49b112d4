# SPDX-License-Identifier: MIT
"""The recipe's commands are those that the programs take, and it goes on where it stopped."""
import contextlib
import importlib
import io
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

from training import recipe
from training.networks.library import ROOT

try:
    import matplotlib  # noqa: F401
    import torch  # noqa: F401
except ImportError as error:
    raise unittest.SkipTest(f"{error.name} is not installed") from error

PLACES = dict.fromkeys(("assets", "shapes", "lights", "data", "facegen"), "somewhere")


def help_of(module):
    said = io.StringIO()
    with mock.patch.object(sys, "argv", ["x", "--help"]), contextlib.redirect_stdout(said):
        with contextlib.suppress(SystemExit):
            module.main()
    return said.getvalue()


def recipe_run(folder, stages, *options):
    argv = ["recipe", "--assets", "a", "--shapes", "b", "--lights", "c", "--data", folder, *options]
    said = io.StringIO()
    with mock.patch.object(recipe, "STAGES", stages), mock.patch.object(sys, "argv", list(map(str, argv))):
        with contextlib.redirect_stdout(said):
            recipe.main()
    return said.getvalue()


class Commands(unittest.TestCase):
    def options_of(self, words):
        return {word for word in words if word.startswith("--")}

    def test_every_option_is_one_that_its_module_has(self):
        modules = {}
        for stage in recipe.STAGES:
            words = recipe.words_of(stage, PLACES)
            if words[1] == "-m":
                modules.setdefault(words[2], []).append((stage.name, self.options_of(words[3:])))
        self.assertGreaterEqual(len(modules), 7)
        for name, uses in modules.items():
            text = help_of(importlib.import_module(name)).split()
            known = {word.strip("[],") for word in text}
            for stage, options in uses:
                self.assertLessEqual(options, known, f"{stage} calls {name}")

    def test_every_option_is_one_that_the_renderer_has(self):
        facegen = ROOT / "build/host/bin/facegen"
        if not facegen.exists():
            self.skipTest("build/host/bin/facegen is not built")
        for stage in recipe.STAGES:
            if stage.command.startswith("{facegen}"):
                words = recipe.words_of(stage, PLACES)
                said = subprocess.run([facegen, words[1], "--help"], check=True, capture_output=True, text=True)
                known = {part for word in said.stdout.split() for part in word.split(",")}
                self.assertLessEqual(self.options_of(words), known, stage.name)

    def test_what_a_stage_reads_an_earlier_one_made(self):
        made = {"somewhere/build/lib/libkova_fr.so"}
        for stage in recipe.STAGES:
            words = recipe.words_of(stage, PLACES)
            self.assertNotIn(stage.name, made)
            inputs = [word for word in words if word.startswith("somewhere/")]
            outputs = [words[i + 1] for i, word in enumerate(words) if word == "--out"] + ["somewhere/models"]
            if "training.data.cut_crops" in words:
                outputs.append(words[words.index("training.data.cut_crops") + 2])
            for word in inputs:
                known = any(word == m or word.startswith(m + "/") for m in [*made, *outputs, "somewhere/build"])
                self.assertTrue(known, f"{stage.name} reads {word}, which nothing made")
            made.update(outputs)


class Running(unittest.TestCase):
    def test_a_stage_that_failed_is_run_again_and_those_before_it_are_not(self):
        with tempfile.TemporaryDirectory() as name:
            folder = Path(name)
            write = "python3 -c \"open('{data}/log', 'a').write('first ')\""
            fail = "python3 -c \"import os, sys; sys.exit(0 if os.path.exists('{data}/mended') else 3)\""
            stages = (recipe.Stage("first", "writes", write), recipe.Stage("second", "fails", fail))
            with self.assertRaisesRegex(SystemExit, "second failed .status 3."):
                recipe_run(folder, stages)
            (folder / "mended").touch()
            said = recipe_run(folder, stages)
            self.assertIn("1 of 1: second", said)
            self.assertEqual((folder / "log").read_text(), "first ")
            self.assertEqual(recipe_run(folder, stages), "")
            recipe_run(folder, stages, "--only", "first")
            self.assertEqual((folder / "log").read_text(), "first first ")

    def test_the_list_says_what_is_done_and_runs_nothing(self):
        with tempfile.TemporaryDirectory() as name:
            said = recipe_run(Path(name), recipe.STAGES, "--list")
            self.assertEqual(said.count("\n"), 2 * len(recipe.STAGES))
            self.assertEqual(list(Path(name).iterdir()), [])

    def test_a_stage_that_is_not_there_is_named(self):
        said = io.StringIO()
        with contextlib.redirect_stderr(said), self.assertRaises(SystemExit):
            recipe_run(Path("nowhere"), recipe.STAGES, "--only", "nonsense")
        self.assertIn("no stage is named nonsense", said.getvalue())


if __name__ == "__main__":
    unittest.main()

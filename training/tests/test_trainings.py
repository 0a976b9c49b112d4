# SPDX-License-Identifier: MIT
"""The trainings run from shards to a file that the library's store can take, stop, and go on."""
import contextlib
import io
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

import numpy as np

from training.export import tensors
from training.networks import integer_net, layers
from training.networks.library import ROOT
from training.tests import pictures

try:
    import matplotlib  # noqa: F401  (draws the curves)
    import torch

    from training.data.augment import CROP, STORED, Augmenter, Strength, centre_crop
    from training.data.shards import FOLDER_PEOPLE, PeopleSampler, Shards
    from training.export import less_within
    from training.trainers import train_align, train_float, train_quantised
    from training.trainers.losses import CosFace, shared_direction
except ImportError as error:
    raise unittest.SkipTest(f"{error.name} is not installed") from error

PEOPLE, EACH = 40, 4


def write_shard(folder, number, first_person):
    """Complete shards of crops, as the renderer writes them."""
    shots = pictures.synthetic(PEOPLE * EACH, STORED, seed=number)
    labels = np.zeros((len(shots), 16), np.float32)
    labels[:, 0] = first_person + np.arange(len(shots)) // EACH
    np.save(folder / f"crops-{number:05}.pictures.npy", shots)
    np.save(folder / f"crops-{number:05}.labels.npy", labels)


def run(module, *arguments):
    return run_plain(module, *arguments, "--people", 2, "--each", 4, "--plain")


def run_plain(module, *arguments):
    said = io.StringIO()
    argv = ["training", *arguments]
    with mock.patch.object(sys, "argv", list(map(str, argv))), contextlib.redirect_stdout(said):
        module.main()
    return said.getvalue()


class Trainings(unittest.TestCase):
    def test_from_shards_to_integers_with_a_stop_between(self):
        with tempfile.TemporaryDirectory() as name:
            data, floats, integers = (Path(name) / part for part in ("data", "float", "integer"))
            data.mkdir()
            write_shard(data, 0, 0)
            first = run(train_float, "--data", data, "--out", floats, "--views", 32)
            self.assertNotIn("resumed", first)
            before = torch.load(floats / "checkpoint.pt")
            self.assertEqual((before["step"], before["views"]), (4, 32))
            self.assertEqual(len(before["classes"]), len(before["centres"]))

            write_shard(data, 1, PEOPLE)
            second = run(train_float, "--data", data, "--out", floats, "--views", 48)
            self.assertIn("resumed at 32 views", second)
            after = torch.load(floats / "checkpoint.pt")
            self.assertEqual((after["step"], after["views"]), (6, 48))
            self.assertGreater(len(after["classes"]), len(before["classes"]))
            for person, number in before["classes"].items():
                self.assertEqual(after["classes"][person], number)

            options = ("--float", floats, "--views", 16, "--no-rescaling")
            run(train_quantised, "--data", data, "--out", integers, *options)
            model = tensors.read(integers / "fr.safetensors")
            small = pictures.synthetic(2, layers.INPUT_SIZE["fr"], seed=9)
            features = integer_net.forward("fr", model, small)
            self.assertEqual(features.shape, (2, 128))
            self.assertGreater(int(np.abs(features).max()), 0)

    def test_an_integer_network_goes_on_and_may_be_drawn_by_kind_and_cell(self):
        with tempfile.TemporaryDirectory() as name:
            one, other, out = (Path(name) / part for part in ("one", "other", "out"))
            for folder in (one, other):
                folder.mkdir()
                write_shard(folder, 0, 0)
            start = ROOT / "models" / "fr.safetensors"
            options = ("--model", start, "--kinds", "--cells", 0.5, "--shared", 1.0)
            warp = ("--corners", 0.04, "--coarse", 0.5)
            run(train_quantised, "--data", one, other, "--out", out, "--views", 16, *options, *warp)
            before, after = tensors.read(start), tensors.read(out / "fr.safetensors")
            self.assertEqual(list(before), list(after))
            moved = [n for n in before if not np.array_equal(before[n], after[n])]
            self.assertGreater(len(moved), 0)
            # Two steps move nothing far.
            far = max(np.abs(before[n].astype(int) - after[n]).max() for n in before if "weight" in n)
            self.assertLess(far, 8)

    def test_less_within_changes_the_last_layer_alone_and_reads_all_folders(self):
        model, last = ROOT / "models/fr.safetensors", layers.convolutions(layers.PROGRAMS["fr"])[-1].number
        with tempfile.TemporaryDirectory() as name:
            folders = [Path(name) / part for part in ("one", "two")]
            for number, folder in enumerate(folders):
                folder.mkdir()
                write_shard(folder, number, 0)
            outs = {}
            for used in (folders[:1], folders[1:], folders):
                outs[len(outs)] = out = Path(name) / f"{len(outs)}.safetensors"
                run_plain(less_within, model, "--data", *used, "--out", out)
            before = tensors.read(model)
            after = [tensors.read(out) for out in outs.values()]
            for one in after:
                self.assertEqual(list(one), list(before))
                changed = [key for key in before if not np.array_equal(before[key], one[key])]
                self.assertEqual(changed, [f"{last}.bias", f"{last}.weight"])
            for one, other in ((0, 1), (0, 2), (1, 2)):
                self.assertFalse(np.array_equal(after[one][f"{last}.weight"], after[other][f"{last}.weight"]))

    def test_batches_of_a_kind_are_from_one_folder_and_of_a_cell_are_alike(self):
        with tempfile.TemporaryDirectory() as name:
            one, other = Path(name) / "one", Path(name) / "other"
            for folder in (one, other):
                folder.mkdir()
                write_shard(folder, 0, 0)
            sampler = PeopleSampler(Shards([one, other]), 4, 2, 0.0, 1, kinds=True, cells=0.5)
            kinds = set()
            for _ in range(12):
                people = sampler._next_people()
                self.assertEqual(len({person // FOLDER_PEOPLE for person in people}), 1)
                kinds.add(people[0] // FOLDER_PEOPLE)
            self.assertEqual(kinds, {0, 1})
            seldom = PeopleSampler(Shards([one, other]), 4, 2, 0.0, 1, kinds=True, often=[0, 1])
            drawn = {person // FOLDER_PEOPLE for _ in range(12) for person in seldom._next_people()}
            self.assertEqual(drawn, {1})

    def test_how_often_folders_come_needs_kinds_and_a_factor_for_each(self):
        with tempfile.TemporaryDirectory() as name:
            data = Path(name)
            write_shard(data, 0, 0)
            for options in (("--often", 1), ("--kinds", "--often", 1, 2)):
                with self.assertRaisesRegex(SystemExit, "--often needs --kinds"):
                    run(train_float, "--data", data, "--out", data / "out", "--views", 8, *options)

    def test_a_shard_without_its_labels_is_not_taken(self):
        with tempfile.TemporaryDirectory() as name:
            data = Path(name)
            write_shard(data, 0, 0)
            (data / "crops-00000.labels.npy").unlink()
            with self.assertRaisesRegex(SystemExit, "no people with two or more pictures"):
                run(train_float, "--data", data, "--out", data / "out", "--views", 8)


class AlignmentTraining(unittest.TestCase):
    def test_from_frames_to_integers_with_a_stop_in_each_stage(self):
        with tempfile.TemporaryDirectory() as name:
            data, out = Path(name) / "data", Path(name) / "out"
            data.mkdir()
            frames = pictures.synthetic(48, seed=5)
            labels = np.zeros((len(frames), 16), np.float32)
            labels[:, 0] = np.arange(len(frames))
            labels[:, 1:4] = (64, 60, 120)
            np.save(data / "frames-00000.pictures.npy", frames)
            np.save(data / "frames-00000.labels.npy", labels)
            options = ("--data", data, "--out", out, "--batch", 8, "--plain", "--held-out", 0.2)
            said = [
                run_plain(train_align, *options, "--views", views, "--integer-views", integer_views)
                for views, integer_views in ((16, 16), (16, 32))
            ]
            self.assertNotIn("resumed", said[0])
            self.assertIn("resumed at 16 views", said[1])
            model = tensors.read(out / "align.safetensors")
            small = pictures.synthetic(2, layers.INPUT_SIZE["align"], seed=9)
            self.assertEqual(integer_net.forward("align", model, small).shape, (2, 4))


class Losses(unittest.TestCase):
    def test_what_strangers_share_is_their_mean_score_squared(self):
        people = torch.tensor([0, 0, 1, 1])
        features = torch.tensor([[1.0, 0.0], [1.0, 0.0], [1.0, 1.0], [1.0, 1.0]])
        self.assertAlmostEqual(float(shared_direction(features, people)), 0.5, places=5)
        features[2:] = torch.tensor([-1.0, 0.0])
        self.assertEqual(float(shared_direction(features, people)), 0.0)

    def test_over_all_people_centres_move_as_the_optimisers_own_steps_would(self):
        torch.manual_seed(3)
        classes = CosFace(8)
        classes.grow(torch.randn(6, 8))
        plain = torch.nn.Parameter(classes.centres.clone())
        adam = torch.optim.Adam([plain], lr=0.1)
        for step in range(4):
            features, people = torch.randn(4, 8), torch.tensor([1, 3, 3, 5])
            loss = classes(features, people, 10.0, 0.2)
            loss.backward()
            classes.step(0.1)
            z = torch.nn.functional.normalize(features, dim=1).to(torch.bfloat16)
            centres = torch.nn.functional.normalize(plain, dim=1).to(torch.bfloat16)
            cosines = (z @ centres.t()).float()
            cosines[torch.arange(4), people] -= 0.2
            expected = torch.nn.functional.cross_entropy(10 * cosines, people)
            self.assertAlmostEqual(float(loss), float(expected), places=5)
            adam.zero_grad()
            expected.backward()
            adam.step()
            self.assertLess(float((classes.centres - plain).abs().max()), 1e-5, step)

    def test_of_many_people_the_batchs_and_some_others_take_part_and_move(self):
        torch.manual_seed(4)
        classes = CosFace(8, sampled=50)
        classes.grow(torch.randn(1000, 8))
        before = classes.centres.clone()
        people = torch.tensor([999, 0, 7, 7])
        classes(torch.randn(4, 8), people, 10.0, 0.2).backward()
        classes.step(0.1)
        moved = (classes.centres != before).any(1).nonzero().flatten().tolist()
        self.assertTrue({0, 7, 999} <= set(moved))
        self.assertTrue(30 < len(moved) <= 53, len(moved))
        # Without a loss there is nothing to move by.
        before = classes.centres.clone()
        classes.step(0.1)
        self.assertTrue(torch.equal(classes.centres, before))


class Augmentation(unittest.TestCase):
    def test_without_strength_a_crop_is_the_box_or_its_mirror_image(self):
        shots = pictures.synthetic(12, STORED, seed=2)
        made = Augmenter(Strength().scaled(0), seed=1)(torch.from_numpy(shots))
        whole = centre_crop(shots).astype(np.float32) - 128
        answers = (128 * made.squeeze(1)).numpy()
        mirrored = 0
        for crop, answer in zip(whole, answers):
            straight = np.abs(answer - crop).max()
            turned = np.abs(answer - crop[:, ::-1]).max()
            # The sampling grid is off a pixel's middle by rounding only.
            self.assertLessEqual(min(straight, turned), 1)
            mirrored += turned < straight
        self.assertTrue(0 < mirrored < len(shots))

    def test_the_seed_decides_and_the_range_is_the_networks(self):
        shots = torch.from_numpy(pictures.synthetic(6, STORED, seed=4))
        first, again, other = (Augmenter(Strength(), seed=s)(shots) for s in (7, 7, 8))
        self.assertTrue(torch.equal(first, again))
        self.assertFalse(torch.equal(first, other))
        self.assertEqual(tuple(first.shape), (6, 1, CROP, CROP))
        levels = 128 * first
        self.assertTrue(torch.equal(levels, levels.round()))
        self.assertGreaterEqual(float(levels.min()), -128)
        self.assertLessEqual(float(levels.max()), 127)


if __name__ == "__main__":
    unittest.main()

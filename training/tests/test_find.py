# SPDX-License-Identifier: MIT
"""The finder's networks: all their arithmetics agree, scenes and looks are what their rows say, and answers
become faces as they are meant to."""
import contextlib
import io
import pickle
import sys
import tempfile
import unittest
from dataclasses import replace
from functools import partial
from pathlib import Path
from unittest import mock

import numpy as np

from training.evaluation import find_faces, second_look
from training.export import tensors
from training.networks import find_layers
from training.networks.layers import convolutions
from training.networks.library import ROOT
from training.tests import pictures

try:
    import cv2
    import matplotlib  # noqa: F401  (draws the curves)
    import torch

    from training import engine
    from training.data import covers, looks, mined_looks, scene_source, scenes
    from training.engine.find_trunk import FindTrunk
    from training.export import conversion
    from training.networks import find_net, look_net
    from training.networks.find_net import FindNet, QuantFindNet, integer_answers
    from training.networks.look_net import LookNet, QuantLookNet
    from training.trainers import find_loss, train_find, train_look
except ImportError as error:
    raise unittest.SkipTest(f"{error.name} is not installed") from error

try:
    import onnx

    from training.export import find_onnx
except ImportError:
    onnx = None

MODEL = ROOT / "models" / "find.safetensors"
CUTOUT = scenes.SIZE - 16


def load():
    return QuantFindNet().load(tensors.read(MODEL))


def load_look(kind=look_net.WIDE):
    return QuantLookNet(kind).load(tensors.read(MODEL))


KINDS = (look_net.WIDE, look_net.CLOSE)


def elsewhere(kind):
    """As the process that makes the batches is given it."""
    return pickle.loads(pickle.dumps(kind))


@contextlib.contextmanager
def one_face(pictures_):
    """A folder with a scene whose only face lies upright in its middle, and the scene's rows."""
    faces = np.zeros((1, 2, 16), np.float32)
    faces[0, 0, :4] = 1, 104, 104, 80
    faces[0, 0, 4:14] = (np.array(look_net.MEAN_POINTS) * 80 + 104).ravel()
    with tempfile.TemporaryDirectory() as folder:
        np.save(f"{folder}/scenes-00000.pictures.npy", pictures_)
        np.save(f"{folder}/scenes-00000.faces.npy", faces)
        yield folder, faces


def planes(count, height, width, seed):
    random = np.random.default_rng(seed)
    noise = random.integers(0, 256, (count, height, width), np.uint8)
    return [cv2.GaussianBlur(plane, (0, 0), 1.5 + i % 4) if i % 2 else plane
            for i, plane in enumerate(noise)]  # fmt: skip


class Layers(unittest.TestCase):
    def test_the_file_holds_what_the_list_says(self):
        given = tensors.read(MODEL)
        programs = (find_layers.PROGRAM, find_layers.LOOK_PROGRAM, find_layers.CLOSE_PROGRAM)
        convs = [op for program in programs for op in convolutions(program)]
        names = [f"{op.number}.{part}" for part in ("bias", "weight") for op in convs]
        self.assertEqual(list(given), names)
        for op in convs:
            self.assertEqual(given[f"{op.number}.weight"].shape, op.weight_shape)
            self.assertEqual(given[f"{op.number}.bias"].shape, (op.outputs,))
        for program, most in zip(programs, (150_000, 250_000, 250_000)):
            count = sum(given[f"{op.number}.weight"].size for op in convolutions(program))
            self.assertTrue(60_000 <= count <= most, count)

    def test_a_line_that_is_no_step_is_refused(self):
        text = "#define ORVO_FIND_NETWORK(LAYER, STEP) \\\n    STEP(Patches, 16, 4) \\\n    What(1)\n"
        with self.assertRaises(ValueError):
            find_layers.read_program(text)


class Arithmetics(unittest.TestCase):
    def test_training_form_and_integers_answer_the_same(self):
        net, given = load(), tensors.read(MODEL)
        for height, width in ((16, 16), (48, 80), (112, 64)):
            for plane in planes(4, height, width, seed=height):
                with torch.no_grad():
                    answers = net(torch.from_numpy(plane.astype(np.float32) - 128)[None, None])
                expected = integer_answers(given, plane)
                for answer, wanted, stride in zip(answers, expected, find_layers.STRIDES):
                    self.assertEqual(wanted.shape, (16, height // stride, width // stride))
                    np.testing.assert_array_equal(answer[0].numpy(), wanted.astype(np.float32))

    def test_both_forms_answer_the_same_of_looks(self):
        pictures_ = np.stack(planes(6, 64, 64, seed=9))
        for kind in KINDS:
            with torch.no_grad():
                x = torch.from_numpy(pictures_.astype(np.float32) - 128)[:, None]
                answers = load_look(kind).eval()(x)
            expected = look_net.integer_answers(tensors.read(MODEL), pictures_, kind)
            for answer, wanted, shape in zip(answers, expected, ((6, 16, 8, 8), (6, 16))):
                self.assertEqual(wanted.shape, shape)
                np.testing.assert_array_equal(answer.numpy(), wanted.astype(np.float32))
            self.assertFalse(np.array_equal(expected[0][0], expected[0][1]))

    def test_patches_are_what_the_list_says(self):
        """Plane side * r + c has the pixels (4 * y + r, 4 * x + c), less a margin where they overlap."""
        plane = planes(1, 64, 96, seed=4)[0].astype(np.int16) - 128
        for program in (find_layers.PROGRAM, find_layers.LOOK_PROGRAM, find_layers.CLOSE_PROGRAM):
            op = program[0]
            margin = {16: 0, 64: 2}[op.planes]
            around = np.pad(plane, 2)
            integers = plane[None, None]
            floats = torch.from_numpy(integers).float()
            for got in (find_net.patches(op, floats), find_net.FindIntegers.patches(op, integers)):
                got = np.asarray(got)
                self.assertEqual(got.shape, (1, op.planes, 16, 24))
                for r in range(op.side):
                    for c in range(op.side):
                        top, left = 2 + r - margin, 2 + c - margin
                        np.testing.assert_array_equal(
                            got[0, op.side * r + c], around[top : top + 64 : 4, left : left + 96 : 4]
                        )

    def test_answers_depend_on_the_picture(self):
        given = tensors.read(MODEL)
        answers = [integer_answers(given, plane)[0] for plane in planes(3, 64, 64, seed=1)]
        self.assertFalse(np.array_equal(answers[0], answers[1]))

    @unittest.skipUnless(onnx, "onnx is not installed")
    def test_exported_onnx_answers_the_same(self):
        given = tensors.read(MODEL)
        model = find_onnx.build(given)
        onnx.checker.check_model(model)
        runtime = cv2.dnn.readNetFromONNX(np.frombuffer(model.SerializeToString(), np.uint8))
        for plane in planes(4, 64, 96, seed=2):
            runtime.setInput(plane[None, None].astype(np.float32))
            answers = runtime.forward([f"answer{stride}" for stride in find_layers.STRIDES])
            for answer, wanted in zip(answers, integer_answers(given, plane)):
                np.testing.assert_array_equal(answer[0], wanted.astype(np.float32))

    @unittest.skipUnless(onnx, "onnx is not installed")
    def test_exported_onnx_answers_the_same_of_looks(self):
        given = tensors.read(MODEL)
        for build, kind in zip((find_onnx.build_look, find_onnx.build_close), KINDS):
            model = build(given)
            onnx.checker.check_model(model)
            runtime = cv2.dnn.readNetFromONNX(np.frombuffer(model.SerializeToString(), np.uint8))
            for look in planes(4, 64, 64, seed=3):
                runtime.setInput(look[None, None].astype(np.float32))
                answers = runtime.forward(["heat", "rest"])
                expected = look_net.integer_answers(given, look[None], kind)
                for answer, wanted in zip(answers, expected):
                    np.testing.assert_array_equal(answer.ravel(), wanted.ravel().astype(np.float32))

    def test_written_tensors_are_those_that_were_read(self):
        given = tensors.read(MODEL)
        written = {**load().tensors(), **load_look().tensors(), **load_look(look_net.CLOSE).tensors()}
        self.assertEqual(set(written), set(given))
        for name, tensor in given.items():
            np.testing.assert_array_equal(written[name], tensor)


@unittest.skipUnless(engine.is_possible(), "the engine needs AVX-512 with bfloat16")
class EngineEquality(unittest.TestCase):
    def _compare(self, plain, fast, x, least_likeness):
        answers = []
        torch.manual_seed(0)
        goals = [torch.randn(a.shape) for a in plain(x)]
        for net in (plain, fast):
            given = net(x)
            sum((a * goal).sum() for a, goal in zip(given, goals)).backward()
            answers.append([a.detach() for a in given])
        for (name, a), (_, b) in zip(plain.named_parameters(), fast.named_parameters()):
            if name[0] == "w" and float(a.grad.norm()) > 0:
                likeness = torch.cosine_similarity(a.grad.flatten(), b.grad.flatten(), dim=0)
                self.assertGreater(float(likeness), least_likeness, name)
        return answers

    def _input(self, side):
        stack = np.stack(planes(8, side, side, seed=7)).astype(np.float32)
        return torch.from_numpy(stack - 128)[:, None]

    def test_integers_are_the_same(self):
        plain, fast, x = load().train(), load().train(), self._input(96)
        fast.trunk = FindTrunk(fast, len(x), 96, threads=2, quantised=True)
        for a, b in zip(*self._compare(plain, fast, x, 0.99)):
            self.assertTrue(torch.equal(a, b))

    def test_integers_of_looks_are_the_same(self):
        for kind in KINDS:
            plain, fast, x = load_look(kind).train(), load_look(kind).train(), self._input(64)
            fast.trunk = FindTrunk(fast, len(x), 64, threads=2, quantised=True)
            for a, b in zip(*self._compare(plain, fast, x, 0.99)):
                self.assertTrue(torch.equal(a, b))

    def _compare_floats(self, make, side, x, unit):
        plain, fast = make(seed=3), make(seed=3)
        for net in (plain, fast):
            net.settle(x)
            net.train()
        fast.trunk = FindTrunk(fast, len(x), side, threads=1)
        for a, b in zip(*self._compare(plain, fast, x, 0.8)):
            self.assertLess(float((a - b).abs().max()), 0.05 * unit)

    def test_floats_are_alike(self):
        self._compare_floats(FindNet, 96, self._input(96) / 128, 1)

    def test_heat_is_brought_to_the_end_of_the_integers(self):
        net, x = LookNet(seed=3), self._input(64)
        net.settle(x)
        net.eval()
        heat = net.heat.number
        getattr(net, f"beta{heat}").data[:5] = -torch.arange(1.0, 6.0)
        parameters = conversion.folded(net)
        before = parameters[heat][1].clone()
        train_look.centre_heat(net, parameters, x)
        with torch.no_grad():
            hottest = net(x)[0][:, :5].flatten(2).amax(2).double()
        moved = parameters[heat][1] - before
        self.assertTrue(torch.equal(moved[5:], torch.zeros_like(moved[5:])))
        self.assertTrue(((hottest + moved[:5]).amax(0) - train_look.HOTTEST).abs().max() < 3)

    def test_floats_of_looks_are_alike(self):
        for kind in KINDS:
            self._compare_floats(partial(LookNet, kind=kind), 64, self._input(64), 128)


class Decoding(unittest.TestCase):
    def test_levels(self):
        def sizes(width, height, smallest=20):
            picture = np.zeros((height, width), np.uint8)
            return [plane.shape[::-1] for _, plane in find_faces.levels(picture, smallest)]

        self.assertEqual(sizes(320, 240), [(320, 240), (80, 60)])
        self.assertEqual(sizes(256, 256), [(256, 256), (64, 64)])
        self.assertEqual(sizes(92, 112), [(92, 112), (23, 28)])
        self.assertEqual(sizes(1600, 1200, 72), [(400, 300), (100, 75), (25, 18)])
        self.assertEqual(sizes(640, 480, 71)[0], (320, 240))
        self.assertEqual(sizes(64, 7), [])
        self.assertEqual(sizes(40, 30, 400), [(40, 30)])

    def test_halves_round_half_up_and_drop_odd_edges(self):
        plane = np.array([[0, 1, 9], [0, 1, 9], [9, 9, 9]], np.uint8)
        np.testing.assert_array_equal(find_faces.halved(plane), [[1]])

    def test_a_cell_says_where_its_face_is(self):
        answer = np.full((16, 4, 6), -128, np.int8)
        answer[:, 1, 2] = [40, 4, -8, 0, *range(10), 40, -20]
        row = find_faces.cell_candidates(answer, 16, 1, (64, 96))
        # The cell's middle is at (40, 24); an offset's unit is half a pixel; the level is a half.
        x, y, side = 8 * (40 + 2), 8 * (24 - 4), 8 * 64
        self.assertEqual(row.shape, (1, 17))
        self.assertEqual(list(row[0, :4]), [40, x, y, side])
        self.assertEqual(list(row[0, 4:8]), [32 * 40, 32 * 24 + 16, 32 * 40 + 32, 32 * 24 + 48])
        self.assertEqual(list(row[0, 14:]), [40, -20, 4 * 64])

    def test_faces_beyond_the_picture_do_not_count(self):
        answer = np.zeros((16, 2, 2), np.int8)
        self.assertEqual(len(find_faces.cell_candidates(answer, 8, 0, (16, 16))), 4)
        self.assertEqual(len(find_faces.cell_candidates(answer, 8, 0, (16, 8))), 2)

    def _row(self, score, x, y, side, level=0):
        return [score, x, y, side, *([x, y] * 5), 0, 0, side >> level]

    def test_what_overlaps_is_one_face_and_its_places_are_averaged(self):
        table = np.array([
            self._row(64, 400, 400, 160), self._row(64, 404, 400, 160), self._row(32, 1000, 400, 80),
            self._row(16, 400, 400, 60),
        ])  # fmt: skip
        faces = find_faces.merged(table)
        self.assertEqual([face.middle for face in faces], [(402, 400), (1000, 400)])
        self.assertEqual([face.support for face in faces], [3, 1])
        self.assertEqual([face.side for face in faces], [160, 80])
        self.assertEqual(faces[0].score, find_faces.PROBABILITY[64 + 128])

    def test_a_finer_level_says_more_of_the_place(self):
        faces = find_faces.merged(np.array([self._row(64, 400, 400, 160, 2), self._row(64, 417, 400, 160)]))
        self.assertEqual([face.middle for face in faces], [(416, 400)])

    def test_answers_meant_for_a_face_give_it_back(self):
        """What the loss asks for and what the decoding reads is the same."""
        faces = torch.zeros(1, scenes.MOST, scenes.COLUMNS)
        for k, (x, y, side) in enumerate(((30.0, 40.0, 20.0), (120.0, 90.0, 70.0))):
            faces[0, k, :4] = torch.tensor([1, x, y, side])
            faces[0, k, 4:14] = torch.tensor([x - 5, y - 4, x + 5, y - 4, x, y, x - 3, y + 5, x + 3, y + 5])
            faces[0, k, 14] = 24
        tables = []
        for stride in find_layers.STRIDES:
            goals = find_loss.Goals(faces, 192 // stride, 192 // stride, stride)
            answer = np.full((16, (192 // stride) ** 2), -128.0)
            for cell in goals.known[0].nonzero()[:, 0]:
                row = faces[0, goals.face[0, cell]].numpy()
                middle = goals.middles[cell].numpy()
                answer[0, cell] = 60 if goals.positive[0, cell] else -60
                answer[1:3, cell] = (row[1:3] - middle) * 32 / stride
                answer[3, cell] = 64 * np.log2(row[3] / (4 * stride))
                answer[4:14, cell] = (row[4:14] - np.tile(middle, 5)) * 32 / stride
                answer[14, cell] = 128 * row[14] / find_loss.YAW
            answer = np.round(answer).reshape(16, 192 // stride, -1)
            exact = torch.from_numpy(answer[None] / 128).float()
            _, place, positive, _ = find_loss.stride_loss(exact, faces, stride)
            self.assertGreater(int(positive), 0)
            self.assertLess(float(place) / int(positive), 0.2)
            tables.append(find_faces.cell_candidates(answer, stride, 0, (192, 192)))
        table = np.concatenate(tables)
        found = find_faces.merged(table[np.argsort(-table[:, 0], kind="stable")])
        self.assertEqual(len(found), 2)
        for face in found:
            row = min(faces[0, :2].numpy(), key=lambda row: abs(row[1] - face.middle[0] / 4))
            np.testing.assert_allclose(np.array([*face.middle, face.side]) / 4, row[1:4], atol=1)
            np.testing.assert_allclose(face.points.ravel() / 16, row[4:14], atol=0.6)
            self.assertAlmostEqual(face.yaw * 0.75, 24, delta=1)


class Covers(unittest.TestCase):
    def _drawn(self, seed):
        """A face of 64 pixels' side in a look before and behind a cover, and its row."""
        face = np.full((64, 64), 16 * 130, np.uint16)
        goal = np.zeros(looks.GOALS, np.float32)
        goal[1:4] = 2, -1, 60
        goal[15] = 0.1
        before = face.copy()
        covers.put_before(face, goal, np.random.default_rng(seed))
        return before, face, goal

    def test_the_share_that_is_told_is_what_is_drawn(self):
        shares = []
        for seed in range(100):
            before, face, goal = self._drawn(seed)
            inner = slice(64 // 2 - 19, 64 // 2 + 18), slice(64 // 2 - 17, 64 // 2 + 20)
            changed = float((np.abs(before.astype(int) - face)[inner] > 160).mean())
            shares.append((changed, 1 - (1 - float(goal[15])) / 0.9))
            self.assertGreaterEqual(goal[15], 0.1 - 1e-6)
            self.assertLess(int(face.max()), 16 * 256)
        changed, told = np.array(shares).T
        # A cover of the face's own tone changes less than it hides.
        self.assertTrue((told > changed - 0.12).all())
        self.assertLess(float(np.median(np.abs(told - changed))), 0.05)
        self.assertGreater(told.max(), 0.5)
        self.assertLess(told.min(), 0.02)

    def test_points_stay_where_they_are(self):
        for seed in range(20):
            _, _, goal = self._drawn(seed)
            np.testing.assert_array_equal(goal[:4], [0, 2, -1, 60])
            np.testing.assert_array_equal(goal[4:15], np.zeros(11))

    def test_the_same_seed_draws_the_same(self):
        np.testing.assert_array_equal(self._drawn(7)[1], self._drawn(7)[1])
        self.assertFalse(np.array_equal(self._drawn(7)[1], self._drawn(8)[1]))


class Looks(unittest.TestCase):
    def test_only_close_ones_get_covers(self):
        with one_face(np.full((1, 208, 208), 120, np.uint8)) as (folder, _):
            for kind in KINDS:
                source = looks.LookSource([folder], seed=5, faces_share=1, kind=elsewhere(kind))
                seen, rows = source.fresh(200)
                covered = float((rows[:, 15] > 0).mean())
                drawn = float((seen != 128).any((1, 2)).mean())
                if kind.is_close:
                    self.assertAlmostEqual(covered, looks.COVERED, delta=0.08)
                    self.assertAlmostEqual(drawn, looks.COVERED, delta=0.08)
                else:
                    self.assertEqual((covered, drawn), (0, 0))

    def test_parts_of_heads_are_no_faces(self):
        picture = np.random.default_rng(3).integers(0, 255, (1, 208, 208)).astype(np.uint8)
        with one_face(picture) as (folder, faces):
            source = looks.LookSource([folder], seed=5, faces_share=0)
            for _ in range(200):
                box = source._part_of(faces[0, 0])
                self.assertLess(max(abs(box.x - 104), abs(box.y - 104)), 0.81 * 80)
                self.assertLessEqual(box.side, looks.PART_SIDES[1] * 80)
                # Of both squares together it has less than a half, wherever it lies.
                self.assertLess(box.side**2 / 80**2, 0.4)
            with mock.patch.object(looks, "PARTS", 1.0):
                self.assertTrue(all(source.draw()[1][0] == 0 for _ in range(50)))
            with mock.patch.object(looks, "PARTS", 0.0):
                self.assertTrue(any(source.draw()[1][0] == -1 for _ in range(50)))

    def test_parts_that_may_be_another_face_are_not_asked_for(self):
        box = looks.Box(100, 100, 30, 0)
        other = np.zeros((1, 16), np.float32)
        other[0, :4] = 1, 104, 98, 32
        self.assertEqual(looks.LookSource._without(other, box)[0], -1)


class SecondLook(unittest.TestCase):
    def _face(self, picture, turn):
        """Spots at the landmarks of a face leaning that many degrees, drawn on the picture."""
        c, s = np.cos(np.radians(turn)), np.sin(np.radians(turn))
        offsets = np.array(look_net.MEAN_POINTS) * 60 @ np.array([[c, s], [-s, c]])
        places = offsets + (100, 90)
        for x, y in places:
            cv2.circle(picture, (round(x), round(y)), 3, 255, -1)
        points = np.round(16 * (places + 0.5)).astype(np.int64)
        return find_faces.Face((402, 362), 240, points, 900, 0, -128, 1, 36)

    def test_it_sees_the_face_upright(self):
        for turn in (0, 30, -75, 90, 180):
            picture = np.full((180, 200), 60, np.uint8)
            face = self._face(picture, turn)
            for kind in KINDS:
                view = second_look.view_of(face, kind)
                angle = np.degrees(np.arctan2(view.sine, view.cosine))
                self.assertLess(abs((angle - turn + 180) % 360 - 180), 3, turn)
                seen = second_look.look([picture, find_faces.halved(picture)], view)
                for x, y in look_net.MEAN_POINTS:
                    right, down = (32 + v * kind.face * 64 for v in (x, y))
                    self.assertGreater(int(seen[int(down), int(right)]), 180, turn)

    def test_a_close_one_is_of_the_box_that_the_points_speak_of(self):
        random = np.random.default_rng(6)
        for turn in (0, 40, 180, -100):
            face = self._face(np.zeros((180, 200), np.uint8), turn)
            face.middle, face.side = (350, 420), 300  # as a head's box may lie
            view = second_look.view_of(face, look_net.CLOSE)
            np.testing.assert_allclose((view.x, view.y, view.side), (402, 362, 240), atol=2)
            self.assertEqual(second_look.view_of(face, look_net.WIDE).side, 300)
            # Training means the same by it, of any points.
            face.points = face.points + random.integers(-120, 120, (5, 2))
            view = second_look.view_of(face, look_net.CLOSE)
            row = np.zeros(scenes.COLUMNS)
            row[4:14] = face.points.ravel() / 4
            box = looks.by_points(row)
            np.testing.assert_allclose((view.x, view.y, view.side), (box.x, box.y, box.side), atol=2)
            angle = np.degrees(np.arctan2(view.sine, view.cosine))
            self.assertLess(abs((angle - box.turn + 180) % 360 - 180), 0.1)

    def test_training_sees_nearly_the_same(self):
        picture = planes(2, 180, 200, seed=5)[1]
        for box in (looks.Box(100, 90, 40, 0), looks.Box(90, 80, 62, 25), looks.Box(10, 170, 30, -100)):
            for kind in KINDS:
                seen = looks.normalised(looks.sampled(picture, box, kind))
                exact = second_look.look([picture], self._view(box, kind))
                self.assertLess(np.abs(seen.astype(int) - exact).mean(), 2, box)

    @staticmethod
    def _view(box, kind):
        c, s = np.cos(np.radians(box.turn)), np.sin(np.radians(box.turn))
        lengths = (4 * box.x, 4 * box.y, 4 * box.side)
        return second_look.View(*lengths, round(16384 * c), round(16384 * s), kind.step)

    def test_answers_meant_for_a_face_give_it_back(self):
        """What the loss asks for and what the decoding reads is the same."""
        for kind in KINDS:
            for mirrored in (False, True):
                self._expect_the_face_back(kind, mirrored)

    def test_close_looks_are_of_faces_that_lie_nearly_as_their_boxes(self):
        picture = np.random.default_rng(3).integers(0, 255, (1, 208, 208)).astype(np.uint8)
        with one_face(picture) as (folder, _):
            rows = {
                kind.name: looks.LookSource([folder], seed=5, kind=elsewhere(kind)).fresh(300)[1]
                for kind in KINDS
            }
        self.assertTrue((rows["close"][:, 0] == 1).all())
        self.assertTrue((rows["look"][:, 0] == 0).any())
        close, wide = rows["close"], rows["look"][rows["look"][:, 3] > 0]
        self.assertAlmostEqual(float(np.median(close[:, 3])), 64, delta=2)
        self.assertAlmostEqual(float(np.median(wide[:, 3])), 64 * 2 / 3, delta=2)
        self.assertLess(float(np.abs(close[:, 1:3] / close[:, 3:4]).mean()),
                        0.8 * float(np.abs(wide[:, 1:3] / wide[:, 3:4]).mean()))  # fmt: skip
        # All of them are nearly upright; of the wide ones some are turned anyhow.
        self.assertLess(float(self._turns(close).max()), 32)
        self.assertGreater(float(self._turns(wide).max()), 60)

    @staticmethod
    def _turns(rows):
        """Degrees between the pupils' line and a look's rows."""
        between = rows[:, 6:8] - rows[:, 4:6]
        return np.degrees(np.abs(np.arctan2(between[:, 1], between[:, 0])))

    def _expect_the_face_back(self, kind, mirrored):
        face = np.zeros(scenes.COLUMNS, np.float32)
        face[:4] = 1, 100, 90, 40
        points = np.array(look_net.MEAN_POINTS) * 40 + (100, 90)
        face[4:14], face[14], face[15] = points.ravel(), 24, 0.25
        box = looks.Box(97, 93, 46, 20)
        goal = looks.goal(face, box, kind)
        if mirrored:
            goal = looks.mirrored(np.zeros((1, 64, 64)), goal[None])[1][0]
        heat = np.full((16, 64), -128.0)
        for k, place in enumerate(goal[4:14].reshape(5, 2)):
            cell = int(np.abs(look_net.cells().numpy() - place).sum(1).argmin())
            heat[k, cell] = 127
            heat[[5 + k, 10 + k], cell] = 8 * (place - look_net.cells().numpy()[cell])
        rest = np.zeros(16)
        rest[0], rest[1:3], rest[3] = 60, 4 * goal[1:3], 64 * np.log2(goal[3] / (kind.face * 64))
        rest[4:14], rest[14], rest[15] = 4 * goal[4:14], 128 * goal[14] / train_look.YAW, 0.25 * 255 - 128
        heat, rest = np.round(heat).reshape(16, 8, 8), np.round(rest)
        given = [torch.from_numpy(a[None]).float() for a in (heat, rest)]
        score, place = train_look.look_loss(*given, torch.from_numpy(goal[None]), kind.face)
        self.assertLess(float(score), 0.05)
        near = train_look.distances(look_net.points_of(given[0]), torch.from_numpy(goal[None]))
        self.assertLess(float(near.max()), 0.02)
        blank = find_faces.Face((0, 0), 0, np.zeros((5, 2), np.int64), 0, 0, 0, 1, 0)
        view = replace(self._view(box, kind), mirrored=mirrored)
        found = second_look.described(blank, view, heat.astype(np.int8), rest.astype(np.int8))
        np.testing.assert_allclose(np.array([*found.middle, found.side]) / 4, [100, 90, 40], atol=0.6)
        np.testing.assert_allclose(found.points / 16, points, atol=0.6)
        self.assertEqual((found.yaw, found.covered), (32, -64))

    def test_finds_away_from_all_faces_are_mined(self):
        first = mined_looks.First(MODEL)
        portrait = pictures.read_grey_png(min((ROOT / "samples").glob("*.png")))
        scene = np.full((160, 160), 100, np.uint8)
        scene[40:120, 30:110] = cv2.resize(portrait, (80, 80), interpolation=cv2.INTER_AREA)
        found = [np.array([face.middle[0] / 4, face.middle[1] / 4]) for face in first(scene)]
        faces = np.zeros((1, 1, scenes.COLUMNS), np.float32)
        self.assertGreater(len(found), 0)
        self.assertEqual(len(mined_looks.rows(first, [scene], faces)), len(found))
        for middle in found:
            faces[0, 0, :4] = 1, *middle, 200  # covers them all
            self.assertEqual(len(mined_looks.rows(first, [scene], faces)), 0)

    def test_faces_that_turn_out_to_be_one_are_reported_once(self):
        picture = np.full((180, 200), 60, np.uint8)
        one, other = self._face(picture, 0), self._face(picture, 0)
        other.middle, other.logit = (420, 362), 30
        rest = np.zeros((2, 16), np.int8)
        rest[:, 0] = 100

        def answers(seen):
            return np.zeros((len(seen), 16, 8, 8), np.int8), rest[: len(seen)]

        found = find_faces.looked_at(answers, picture, [one, other])
        self.assertEqual([face.logit for face in found], [68 - find_faces.SCORE_LESS])
        rest[:, 0] = -100
        self.assertEqual(find_faces.looked_at(answers, picture, [one, other]), [])

    def test_a_face_that_is_sure_needs_no_look_around_it(self):
        picture = np.full((180, 200), 60, np.uint8)
        sure = self._face(picture, 0)
        sure.logit = find_faces.SURE_WHEN_FOUND
        found = find_faces.looked_at(self.fail, picture, [sure])
        self.assertEqual([face.logit for face in found], [(40 + 127) // 2 - find_faces.SCORE_LESS])

    def test_a_mirrored_look_sees_the_mirror_image(self):
        picture = planes(2, 180, 200, seed=5)[1]
        face = self._face(picture, 20)
        seen = []

        def answers(batch):
            seen.append(batch[0])
            return np.zeros((1, 16, 8, 8), np.int8), np.zeros((1, 16), np.int8)

        # All points in one: the second look is at the same box, as what found it has it, and upright.
        found = find_faces.looked_at_closely(answers, picture, [face])
        view = second_look.view_of(face, look_net.CLOSE)
        first = second_look.described(face, view, np.zeros((16, 8, 8), np.int8), np.zeros(16, np.int8))
        upright = second_look.look(find_faces.halvings(picture), second_look.view_of(first, look_net.CLOSE))
        np.testing.assert_array_equal(seen[1], upright[:, ::-1])
        self.assertEqual(found[0].middle, first.middle)

    def test_a_face_is_looked_at_twice_where_the_first_look_moved_it(self):
        picture = np.full((180, 200), 60, np.uint8)
        for right, looked in ((0, 1), (16, 1), (40, 2), (-40, 2)):
            seen = []

            def answers(batch, right=right, seen=seen):
                rest = np.zeros((len(batch), 16), np.int8)
                rest[:, :2] = 100, right  # a quarter of a pixel of 64, of which the box has 42.7
                seen.append(len(batch))
                return np.zeros((len(batch), 16, 8, 8), np.int8), rest

            found = find_faces.looked_at(answers, picture, [self._face(picture, 0)])
            self.assertEqual((len(found), sum(seen)), (1, looked), right)


class Pictures:
    """A bank of one even picture."""

    def draw(self, _random, size):
        return np.full((size, size), 90, np.uint8)


class Cutouts(list):
    """One person: a disc with a bright spot at each landmark."""

    def __init__(self):
        tones, cover = np.full((2, 192, 192), 20, np.uint8)
        cover[:] = 0
        cv2.circle(cover, (96, 96), 60, 255, -1)
        self.spots = np.array([[80, 80], [112, 84], [96, 100], [84, 118], [108, 120]], np.float32)
        for x, y in self.spots:
            cv2.circle(tones, (int(x), int(y)), 4, 250, -1)
        super().__init__([np.stack([tones, cover])])
        self.labels = np.zeros((1, 16), np.float32)
        self.labels[0, 1:5] = 56, 56, 80, 12
        self.points = self.spots[None] + 0.5


class Scenes(unittest.TestCase):
    def setUp(self):
        self.maker = scenes.SceneMaker(Cutouts(), Pictures(), seed=3)
        self.maker.degrade = False

    def _clear(self, count):
        """Scenes whose faces are whole, with them."""
        out = []
        while len(out) < count:
            picture, faces = self.maker.scene()
            faces = faces[faces[:, 0] == 1]
            if len(faces) == 1 and faces[0, 15] < 0.01 and faces[0, 3] > 50:
                out.append((picture, faces[0]))
        return out

    def test_landmarks_lie_where_their_rows_say(self):
        seen = 0
        for picture, face in self._clear(10):
            smooth = cv2.GaussianBlur(picture, (0, 0), 1.5).astype(float)
            for x, y in face[4:14].reshape(5, 2):
                if 4 < x < scenes.SIZE - 4 and 4 < y < scenes.SIZE - 4:
                    inner = smooth[int(y), int(x)]
                    rows, columns = np.mgrid[-1:2, -1:2] * int(0.09 * face[3] * 1.4)
                    ring = [smooth[min(max(int(y) + r, 0), 207), min(max(int(x) + c, 0), 207)]
                            for r, c in zip(rows.ravel(), columns.ravel()) if r or c]  # fmt: skip
                    self.assertGreater(inner, np.median(ring) + 20)
                    seen += 1
        self.assertGreater(seen, 30)

    def test_a_mirrored_scene_keeps_left_left(self):
        _, face = self._clear(1)[0]
        mirrored = scene_source.mirrored(face[None], scenes.SIZE)[0]
        np.testing.assert_allclose(mirrored[1], scenes.SIZE - face[1])
        np.testing.assert_allclose(mirrored[4], scenes.SIZE - face[6])
        np.testing.assert_allclose(mirrored[10:12], [scenes.SIZE - face[12], face[13]])
        self.assertEqual(mirrored[14], -face[14])
        twice = scene_source.mirrored(mirrored[None], scenes.SIZE)[0]
        np.testing.assert_allclose(twice, face, atol=1e-4)

    def test_a_hidden_face_is_neither(self):
        rows = [self.maker.scene()[1] for _ in range(60)]
        kinds = np.concatenate(rows)[:, 0]
        self.assertEqual(set(np.unique(kinds)), {0, 1, 2})
        lost = np.concatenate(rows)
        self.assertTrue((lost[lost[:, 0] == 2][:, 15] > 0.6).all())


class Training(unittest.TestCase):
    def run_training(self, *arguments, main=train_find.main):
        said = io.StringIO()
        argv = ["training", *map(str, arguments)]
        with mock.patch.object(sys, "argv", argv), contextlib.redirect_stdout(said):
            main()
        return said.getvalue()

    def _looks_as_well(self, data, out):
        np.save(data / "looks-00000.npy", np.array([[0, 50, 60, 30, 10, 300]], np.float32))
        common = ["--data", data, "--out", out / "look", "--batch", 8, "--warm-up", 2, "--plain"]
        self.run_training(*common, "--views", 8, "--integer-views", 8, main=train_look.main)
        first = tensors.read(out / "look" / "look.safetensors")
        again = self.run_training(*common, "--integer-views", 16, main=train_look.main)
        self.assertIn("resumed at 8 views", again)
        second = tensors.read(out / "look" / "look.safetensors")
        self.assertEqual(len(second), 2 * len(convolutions(find_layers.LOOK_PROGRAM)))
        self.assertTrue(any(not np.array_equal(first[name], second[name]) for name in first))
        self._integers_alone_as_well(common, out, second)
        self._close_looks_as_well(common, out)

    def _integers_alone_as_well(self, common, out, given):
        """From a model's integers, which are as they were until the first step."""
        model = out / "look" / "look.safetensors"
        common = [*common, "--out", out / "alone", "--model", model]
        self.run_training(*common, "--integer-views", 8, "--stop-after-minutes", 0, main=train_look.main)
        self.assertFalse((out / "alone" / "float-checkpoint.pt").exists())
        written = tensors.read(out / "alone" / "look.safetensors")
        for name, values in given.items():
            np.testing.assert_array_equal(written[name], values, name)
        again = self.run_training(*common, "--integer-views", 8, main=train_look.main)
        self.assertIn("resumed at 0 views", again)

    def _close_looks_as_well(self, common, out):
        """Begun with what the wide look came to, under numbers of its own."""
        wide = torch.load(out / "look" / "float-checkpoint.pt")["average"]
        common = [*common, "--out", out / "close", "--close", "--begin", out / "look" / "float-checkpoint.pt"]
        begun = train_look._renumbered(common[-1], LookNet(kind=look_net.CLOSE))
        self.assertEqual(len(begun), len(wide))
        # It says what the wide one says, whose patches lie in the middle of its own.
        answers = []
        seen = torch.from_numpy(np.stack(planes(4, 64, 64, seed=2)).astype(np.float32) - 128)[:, None]
        for kind, weights in zip(KINDS, (wide, begun)):
            net = LookNet(kind=kind)
            net.load_state_dict(weights)
            with torch.no_grad():
                answers.append(net.eval()(seen))
        for a, b in zip(*answers):
            self.assertTrue(torch.equal(a, b))
        self.run_training(*common, "--views", 8, "--integer-views", 8, main=train_look.main)
        close = tensors.read(out / "close" / "close.safetensors")
        self.assertEqual(
            {int(name.split(".")[0]) for name in close},
            {op.number for op in convolutions(find_layers.CLOSE_PROGRAM)},
        )

    def test_from_scenes_to_integers_with_a_stop_between(self):
        with tempfile.TemporaryDirectory() as name:
            data, out = Path(name) / "data", Path(name) / "out"
            data.mkdir()
            maker = scenes.SceneMaker(Cutouts(), Pictures(), seed=4)
            made = [maker.scene() for _ in range(16)]
            np.save(data / "scenes-00000.pictures.npy", np.stack([picture for picture, _ in made]))
            np.save(data / "scenes-00000.faces.npy", np.stack([faces for _, faces in made]))
            common = ["--data", data, "--out", out, "--batch", 8, "--warm-up", 2, "--plain"]
            self.run_training(*common, "--views", 8, "--integer-views", 8, "--stop-after-minutes", 0)
            self.assertTrue((out / "float-checkpoint.pt").exists())
            self.assertFalse((out / "find.safetensors").exists())
            self.run_training(*common, "--views", 16, "--integer-views", 8)
            first = tensors.read(out / "find.safetensors")
            again = self.run_training(*common, "--views", 16, "--integer-views", 16)
            self.assertIn("resumed at 8 views", again)
            second = tensors.read(out / "find.safetensors")
            self._looks_as_well(data, out)
        convs = convolutions(find_layers.PROGRAM)
        self.assertEqual(len(second), 2 * len(convs))
        self.assertTrue(any(not np.array_equal(first[n], second[n]) for n in first))
        plane = pictures.synthetic(1, 64, seed=1)[0]
        self.assertEqual(integer_answers(second, plane)[1].shape, (16, 4, 4))


if __name__ == "__main__":
    unittest.main()

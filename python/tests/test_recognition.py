# SPDX-License-Identifier: MIT
"""The binding against the command line, and what it makes of arrays, threads and forks.

ORVO_FR_LIBRARY names the library, KOVA_FR the command line, ORVO_PATHS the instruction sets.
"""
import os
import signal
import subprocess
import sys
import tempfile
import threading
import types
import typing
import unittest
from pathlib import Path
from unittest import mock

import numpy as np

PACKAGE = Path(__file__).resolve().parent.parent
SAMPLES = sorted((PACKAGE.parent / "samples").glob("*-[0-9].png"))
sys.path.insert(0, str(PACKAGE))

import orvo_fr  # noqa: E402
from orvo_fr import _library, _recognition  # noqa: E402


def picture(seed=0):
    return np.random.default_rng(seed).integers(0, 256, (256, 256), np.uint8)


def run_python(code, **environment):
    """The bytes that a fresh interpreter prints."""
    variables = {**os.environ, "PYTHONPATH": str(PACKAGE), **environment}
    done = subprocess.run([sys.executable, "-c", code], env=variables, capture_output=True)
    if done.returncode != 0:
        raise AssertionError(done.stderr.decode())
    return done.stdout


class TheSameNumbers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        """The samples as PGM files, which both sides read to the same grey levels."""
        cls.folder = tempfile.TemporaryDirectory()
        import cv2

        cls.pictures = []
        for sample in SAMPLES:
            path = Path(cls.folder.name) / f"{sample.stem}.pgm"
            cv2.imwrite(str(path), cv2.imread(str(sample), cv2.IMREAD_GRAYSCALE))
            cls.pictures.append(path)
        output = Path(cls.folder.name) / "features.f32"
        subprocess.run(
            [os.environ["KOVA_FR"], "extract", "--crop", "--output", output, *SAMPLES], check=True
        )
        cls.wanted = output.read_bytes()

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def test_every_sample_gives_the_bytes_of_the_command_line(self):
        self.assertGreaterEqual(len(SAMPLES), 36)
        self.assertEqual(len(self.wanted), 512 * len(SAMPLES))
        code = f"""
import sys, numpy, orvo_fr
for path in {[str(path) for path in self.pictures]}:
    pixels = numpy.fromfile(path, numpy.uint8)[-65536:].reshape(256, 256)
    sys.stdout.buffer.write(orvo_fr.extract(pixels).tobytes())
sys.stdout.buffer.write(orvo_fr.instruction_set().encode())
"""
        seen = set()
        for path in os.environ["ORVO_PATHS"].split(","):
            with self.subTest(path=path):
                output = run_python(code, ORVO_FR_PATH=path)
                self.assertEqual(output[: len(self.wanted)], self.wanted)
                seen.add(output[len(self.wanted) :].decode())
        self.assertIn("plain", seen)

    def test_distances_are_those_of_the_command_line(self):
        text = subprocess.run(
            [os.environ["KOVA_FR"], "compare", "--json", "--crop", *SAMPLES[:2]],
            check=True,
            capture_output=True,
            text=True,
        ).stdout
        a, b = np.frombuffer(self.wanted, np.float32).reshape(-1, 128)[:2]
        self.assertIn(f'"distance":{orvo_fr.distance(a, b)!r}', text)


class Arrays(unittest.TestCase):
    def setUp(self):
        self.picture = picture()
        self.feature = orvo_fr.extract(self.picture)

    def test_a_feature_is_128_floats_of_unit_length(self):
        self.assertEqual(self.feature.shape, (orvo_fr.FEATURE_LENGTH,))
        self.assertEqual(self.feature.dtype, np.float32)
        self.assertAlmostEqual(float(np.linalg.norm(self.feature)), 1, places=5)
        self.assertAlmostEqual(orvo_fr.distance(self.feature, self.feature), 1, places=5)

    def test_the_layout_of_a_picture_does_not_matter(self):
        wide = np.zeros((300, 401), np.uint8)
        wide[20:276, 30:286] = self.picture
        read_only = self.picture.copy()
        read_only.flags.writeable = False
        views = {
            "part of a larger array": wide[20:276, 30:286],
            "column-major": np.asfortranarray(self.picture),
            "backwards in memory": self.picture[::-1, ::-1].copy()[::-1, ::-1],
            "every third element": np.repeat(self.picture, 3, axis=1)[:, ::3],
            "one plane of colours": np.stack([self.picture] * 3, axis=2)[:, :, 1],
            "read-only": read_only,
        }
        for name, view in views.items():
            with self.subTest(name):
                np.testing.assert_array_equal(view, self.picture)
                self.assertEqual(orvo_fr.extract(view).tobytes(), self.feature.tobytes())

    def test_the_layout_of_a_feature_does_not_matter(self):
        other = orvo_fr.extract(picture(1))
        wanted = orvo_fr.distance(self.feature, other)
        spread = np.repeat(other, 2)[::2]
        odd = np.zeros(513, np.uint8)[1:].view(np.float32)
        odd[:] = other
        self.assertFalse(odd.flags.aligned)
        self.assertEqual(orvo_fr.distance(self.feature, spread), wanted)
        self.assertEqual(orvo_fr.distance(self.feature, odd), wanted)
        self.assertNotEqual(wanted, orvo_fr.distance(self.feature, self.feature))

    def test_a_picture_is_only_read_and_a_feature_is_a_new_array(self):
        before = self.picture.copy()
        again = orvo_fr.extract(self.picture)
        np.testing.assert_array_equal(self.picture, before)
        again[:] = 0
        self.assertTrue(self.feature.any())

    def test_wrong_types_are_type_errors(self):
        for wrong in ([[0] * 256] * 256, None, b"x" * 65536, self.picture.astype(np.int8),
                      self.picture.astype(float), self.picture.astype(bool)):
            with self.assertRaisesRegex(TypeError, "picture must"):
                orvo_fr.extract(wrong)
        for wrong in (list(self.feature), self.feature.astype(float), self.feature.astype(">f4")):
            with self.assertRaisesRegex(TypeError, "b must"):
                orvo_fr.distance(self.feature, wrong)

    def test_wrong_shapes_are_value_errors(self):
        for shape in ((65536,), (0, 0), (256, 256, 2), (1, 256, 256, 3), ()):
            with self.assertRaisesRegex(ValueError, r"picture must have shape \(height, width\)"):
                orvo_fr.extract(np.zeros(shape, np.uint8))
        for shape in ((127,), (1, 128), (129,)):
            with self.assertRaisesRegex(ValueError, r"a must have shape \(128,\)"):
                orvo_fr.distance(np.zeros(shape, np.float32), self.feature)


class Batches(unittest.TestCase):
    def test_an_array_of_pictures_gives_the_features_of_each(self):
        pictures = np.stack([picture(seed) for seed in range(70)])
        wanted = np.stack([orvo_fr.extract(one) for one in pictures])
        features = orvo_fr.extract_many(pictures)
        self.assertEqual((features.dtype, features.shape), (np.float32, (70, 128)))
        np.testing.assert_array_equal(features, wanted)
        np.testing.assert_array_equal(orvo_fr.extract_many(pictures[::-2]), wanted[::-2])
        np.testing.assert_array_equal(orvo_fr.extract_many(iter(pictures[:5])), wanted[:5])

    def test_pictures_of_several_sizes_and_kinds(self):
        kinds = [picture(), picture()[:200, 3:], np.stack([picture(2)] * 3, axis=2), SAMPLES[0]]
        features = orvo_fr.extract_many(kinds)
        for kind, feature in zip(kinds, features):
            np.testing.assert_array_equal(orvo_fr.extract(kind), feature)
        colours = np.stack([np.stack([picture(seed)] * 3, axis=2) for seed in range(3)])
        np.testing.assert_array_equal(orvo_fr.extract_many(colours)[2], orvo_fr.extract(picture(2)))

    def test_no_picture_gives_no_feature(self):
        for none in ([], np.zeros((0, 256, 256), np.uint8)):
            self.assertEqual(orvo_fr.extract_many(none).shape, (0, 128))

    def test_what_are_no_pictures(self):
        for wrong in (picture(), SAMPLES[0].name, 5, np.zeros((2, 256, 256))):
            with self.assertRaises(TypeError):
                orvo_fr.extract_many(wrong)
        for shape in ((2, 11, 16), (2, 256, 2), (256, 256, 3)):
            with self.assertRaises(ValueError):
                orvo_fr.extract_many(np.zeros(shape, np.uint8))

    def test_other_threads_run_during_a_batch(self):
        batch = np.stack([picture()] * 64)
        go, ran = threading.Event(), threading.Event()
        thread = threading.Thread(target=lambda: (go.wait(), ran.set()))
        interval = sys.getswitchinterval()
        thread.start()
        try:
            # Nobody is made to give up Python's lock: the other thread runs only if a call lets go of Python's lock.
            sys.setswitchinterval(1000)
            go.set()
            for _ in range(10):
                orvo_fr.extract_many(batch)
            self.assertTrue(ran.is_set())
        finally:
            sys.setswitchinterval(interval)
            thread.join()

    def test_a_refusal_of_the_library_is_an_exception(self):
        many = mock.Mock()
        many.KovaPythonFeatures = mock.Mock(return_value=1)
        with mock.patch.object(_recognition._many, "loaded", return_value=many):
            with self.assertRaisesRegex(orvo_fr.OrvoFrError, "status 1"):
                orvo_fr.extract_many([picture()])


class Distances(unittest.TestCase):
    def setUp(self):
        random = np.random.default_rng(5)
        self.a = random.normal(size=(37, 128)).astype(np.float32)
        self.b = random.normal(size=(1100, 128)).astype(np.float32)

    def assert_bits_of_the_interface(self, a, b):
        matrix = orvo_fr.distances(a, b)
        self.assertEqual((matrix.dtype, matrix.shape), (np.float32, (len(a), len(b))))
        wanted = np.array([[orvo_fr.distance(x, y) for y in b] for x in a], np.float32)
        np.testing.assert_array_equal(matrix.view(np.uint32), wanted.view(np.uint32))

    def test_each_has_the_bits_of_distance(self):
        self.assert_bits_of_the_interface(self.a, self.b)

    def test_numbers_out_of_the_ordinary_have_them_too(self):
        self.a[3, 5], self.a[4] = np.inf, 1e-30
        self.b[7], self.b[600, 1] = 1e-42, 1e30
        self.assert_bits_of_the_interface(self.a, self.b)

    def test_in_several_calls(self):
        with mock.patch.object(_recognition, "_DISTANCES_A_CALL", 5000):
            self.assert_bits_of_the_interface(self.a, self.b)

    def test_of_one_another_and_in_any_layout(self):
        matrix = orvo_fr.distances(self.a)
        np.testing.assert_array_equal(matrix, orvo_fr.distances(self.a, self.a))
        np.testing.assert_array_equal(matrix[::2], orvo_fr.distances(self.a[::2], self.a))
        np.testing.assert_array_equal(matrix, orvo_fr.distances(np.asfortranarray(self.a)))

    def test_nothing_with_something(self):
        self.assertEqual(orvo_fr.distances(self.a[:0], self.b).shape, (0, 1100))
        self.assertEqual(orvo_fr.distances(self.a, self.b[:0]).shape, (37, 0))

    def test_what_are_no_features(self):
        for wrong in (self.a[0], self.a[:, :127], self.a[None]):
            with self.assertRaisesRegex(ValueError, r"b must have shape \(N, 128\)"):
                orvo_fr.distances(self.a, wrong)
        for wrong in (self.a.astype(float), self.a.tolist()):
            with self.assertRaisesRegex(TypeError, "a must"):
                orvo_fr.distances(wrong)


class Failures(unittest.TestCase):
    def test_a_refusal_of_the_library_is_an_exception_with_its_message(self):
        library = mock.Mock(wraps=_library.opened())
        library.OrvoFrRun = mock.Mock(return_value=2)
        with mock.patch.object(_library, "_library", library):
            with self.assertRaisesRegex(orvo_fr.OrvoFrError, r"OrvoFrRun: a size .*status 2") as caught:
                orvo_fr.extract(picture())
        self.assertEqual((caught.exception.function, caught.exception.status), ("OrvoFrRun", 2))

    def test_models_that_do_not_open_are_an_exception_each_time(self):
        library = mock.Mock()
        library.OrvoFrInit = mock.Mock(return_value=6)
        with mock.patch.multiple(_library, _library=library, _memory=None):
            for _ in range(2):
                with self.assertRaisesRegex(orvo_fr.OrvoFrError, "could not be decrypted"):
                    orvo_fr.extract(picture())

    def test_a_missing_library_shows_at_the_first_call_not_on_import(self):
        output = run_python(
            "import numpy, orvo_fr\n"
            "try:\n    orvo_fr.extract(numpy.zeros((256, 256), numpy.uint8))\n"
            "except OSError as error:\n    print(error)",
            ORVO_FR_LIBRARY="missing.so",
        )
        self.assertIn(b"missing.so", output)

    def test_every_status_of_the_header_has_its_words(self):
        header = (PACKAGE.parent / "include/orvo/orvo_fr.h").read_text()
        for status, message in _library._MESSAGES.items():
            self.assertRegex(header, rf"= {status},\s*/\*\*< {message}")


class ThreadsAndForks(unittest.TestCase):
    def test_threads_get_the_features_of_their_own_pictures(self):
        pictures = [picture(seed) for seed in range(6)]
        wanted = [orvo_fr.extract(p).tobytes() for p in pictures]
        self.assertEqual(len(set(wanted)), len(wanted))
        wrong = []

        def work(index):
            for _ in range(10):
                if orvo_fr.extract(pictures[index]).tobytes() != wanted[index]:
                    wrong.append(index)

        threads = [threading.Thread(target=work, args=(index,)) for index in range(6)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(wrong, [])

    def test_other_threads_run_during_an_extraction(self):
        go, ran = threading.Event(), threading.Event()
        thread = threading.Thread(target=lambda: (go.wait(), ran.set()))
        interval = sys.getswitchinterval()
        thread.start()
        pixels = picture()
        try:
            # Nobody is made to give up Python's lock: the other thread runs only if a call lets go of it.
            sys.setswitchinterval(1000)
            go.set()
            for _ in range(200):
                orvo_fr.extract(pixels)
            self.assertTrue(ran.is_set())
        finally:
            sys.setswitchinterval(interval)
            thread.join()

    def test_a_fork_during_extractions_of_other_threads_leaves_a_working_child(self):
        pixels = picture()
        wanted = orvo_fr.extract(pixels).tobytes()
        stop = threading.Event()

        def work():
            while not stop.is_set():
                orvo_fr.extract(pixels)

        threads = [threading.Thread(target=work) for _ in range(2)]
        for thread in threads:
            thread.start()
        try:
            for _ in range(5):
                child = os.fork()
                if child == 0:
                    signal.alarm(60)  # a child that hangs is ended
                    os._exit(0 if orvo_fr.extract(pixels).tobytes() == wanted else 1)
                self.assertEqual(os.waitpid(child, 0)[1], 0)
        finally:
            stop.set()
            for thread in threads:
                thread.join()


class Interface(unittest.TestCase):
    def test_public_functions_have_docstrings_and_type_hints(self):
        public = [getattr(orvo_fr, name) for name in orvo_fr.__all__]
        functions = [one for one in public if isinstance(one, types.FunctionType)]
        self.assertGreater(len(functions), 7)
        for function in functions:
            self.assertTrue(function.__doc__, function)
            self.assertIn("return", typing.get_type_hints(function), function)
        self.assertTrue((PACKAGE / "orvo_fr" / "py.typed").exists())


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: MIT
import pathlib
import re
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import changes  # noqa: E402
import mutants  # noqa: E402
import programs  # noqa: E402


def made(text):
    """What becomes of the text, each time in one place."""
    return {change.apply(text) for change in changes.changes("a.cpp", text)}


class Changes(unittest.TestCase):
    def test_operators_with_two_operands_are_exchanged(self):
        self.assertEqual(made("x = a + b;\n"), {"x = a - b;\n"})
        self.assertEqual(made("if (a && b) {\n"), {"if (a || b) {\n"})
        self.assertEqual(made("y << s\n"), {"y >> s\n"})

    def test_bounds_move_by_one_and_turn(self):
        self.assertEqual(made("(i < n)\n"), {"(i <= n)\n", "(i >= n)\n"})

    def test_constants_move_by_one(self):
        self.assertEqual(made("f(7)\n"), {"f(6)\n", "f(8)\n"})
        self.assertEqual(made("f(0x10u)\n"), {"f(15u)\n", "f(17u)\n"})
        self.assertEqual(made("f(0)\n"), {"f(1)\n"})

    def test_statements_are_removed(self):
        self.assertIn("{\n    ;\n}\n", made("{\n    Call(a);\n}\n"))
        self.assertIn("{\n    ;\n}\n", made("{\n    value = other;\n}\n"))

    def test_declarations_are_not_removed(self):
        self.assertEqual(made("{\n    const T value = other;\n}\n"), set())

    def test_pointers_templates_comments_strings_and_directives_stay(self):
        for text in ('// a + b\n', 'f("a < 1");\n', "#define A (1 + 2)\n", "const T* p;\n", "std::array<T> a;\n",
                     "static_assert(a < 7);\n", "/* a + b\n 7 */\n", "float f = x1;\n"):
            self.assertEqual(made(text), set(), text)

    def test_a_key_stays_where_the_line_moves(self):
        key = lambda text: [change.key for change in changes.changes("a.cpp", text)]
        self.assertEqual(key("a + b\n"), key("\n// more\na + b\n"))
        self.assertEqual(len(set(key("a + b\na + b\n"))), 2)


class Programs(unittest.TestCase):
    def test_kernels_of_a_path_are_judged_on_that_path(self):
        runs = programs.runs_of(["CMakeFiles/kova_fr_objects.dir/compute_a/simd/avx2/product.cpp.o"])
        self.assertIn(("pointwise_test", "ORVO_FR_PATH=avx2"), runs)
        self.assertNotIn(("pointwise_test", ""), runs)

    def test_folders_that_cmake_puts_between_do_not_matter(self):
        self.assertEqual(programs.runs_of(["grey/CMakeFiles/orvo_grey.dir/structure.cpp.o"]), [("structure_test", "")])
        self.assertIn(("distances_test", ""),
                      programs.runs_of(["kova/CMakeFiles/kova_search_objects.dir/__/search/distances.cpp.o"]))

    def test_every_source_of_the_libraries_has_a_judge(self):
        root = pathlib.Path(__file__).resolve().parents[2]
        for folder in ("cipher", "common", "compute_a", "device_api", "find", "fr_demo", "grey", "platform", "search"):
            for source in root.glob(f"{folder}/**/*.cpp"):
                self.assertTrue(programs.runs_of([f"{source.relative_to(root)}.o"]), source)


class Equivalents(unittest.TestCase):
    def test_each_is_a_change_that_can_be_made_and_has_a_reason(self):
        root = pathlib.Path(__file__).resolve().parents[2]
        text = (root / "tests/mutants/equivalents.txt").read_text()
        known = mutants.equivalents(text)
        self.assertTrue(known)
        for file, shown in known:
            known_changes = {c.shown for c in changes.changes(file, (root / file).read_text())}
            self.assertTrue(shown in known_changes, f"{file}: {shown}")
            self.assertRegex(text, re.escape(f"{file}: {shown}") + r"\n    \w")


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: MIT
"""tests/docs/failures.txt names a test for each status of the tables and each message of the library."""
import re
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
FOLDERS = "cipher common compute_a device_api fr_demo find kova search".split()
LITERAL = r'"(?:[^"\\]|\\.)*"'
CALL = re.compile(
    rf"(?:KOVA_FR_INFO|ORVO_ERR(?:_AT)?|std::fprintf)\s*\(((?:[^()\"]|{LITERAL}|\((?:[^()\"]|{LITERAL})*\))*)\)"
)


def entries():
    """Where, what and which tests of each line of the list."""
    lines = (ROOT / "tests/docs/failures.txt").read_text().splitlines()
    return [line.split(" | ") for line in lines if line and not line.startswith("#")]


def messages():
    """Source file and text of each message, as it stands in the source."""
    found = set()
    for folder in FOLDERS:
        for path in (ROOT / folder).rglob("*"):
            # The macros themselves.
            if path.suffix not in (".cpp", ".h") or path.name == "diagnostics.h":
                continue
            for call in CALL.findall(path.read_text()):
                # The format; later literals are what goes into it.
                literals = re.search(rf"(?:{LITERAL}\s*)+", call).group()
                text = "".join(literal[1:-1] for literal in re.findall(LITERAL, literals))
                found.add((str(path.relative_to(ROOT)), text))
    return found


def tests():
    """What the file of each test says, its string literals put together where they stand behind each other."""
    files = {}
    for path in (ROOT / "tests").rglob("*.cpp"):
        text = re.sub(r'"\s*\n\s*"', "", path.read_text())
        for suite, name in re.findall(r"^TEST(?:_F|_P)?\((\w+), (\w+)\)", text, re.MULTILINE):
            files[f"{suite}.{name}"] = text
    return files


def words(message):
    """What of a message is the same each time; tests put messages together from pieces."""
    return re.findall(r"[A-Za-z_]{3,}", re.sub(r"%#?\d*[a-z]|\\n", " ", message))


class Failures(unittest.TestCase):
    def test_each_message_of_the_sources_is_in_the_list_and_no_other(self):
        listed = {(where, what) for where, what, _ in entries() if not where.endswith(".md")}
        self.assertGreater(len(listed), 70)
        self.assertEqual(listed, messages())

    def test_each_status_of_the_tables_is_in_the_list_and_no_other(self):
        text = (ROOT / "docs/INTEGRATING.md").read_text()
        statuses = set(re.findall(r"^\| `(\w+)` \| \w+ \| ", text, re.MULTILINE))
        self.assertEqual({what for where, what, _ in entries() if where.endswith(".md")}, statuses)

    def test_each_test_exists_and_knows_what_it_is_named_for(self):
        known = tests()
        values = dict(
            re.findall(r"^\| `(\w+)` \| (\w+) \| ", (ROOT / "docs/INTEGRATING.md").read_text(), re.MULTILINE)
        )
        without = 0
        for where, what, names in entries():
            if names.startswith("none: "):
                without += 1
                continue
            for name in names.split():
                self.assertIn(name, known, what)
                if what in values:
                    pattern = rf"\b({what}|{values[what]}u?)\b"
                    self.assertTrue(re.search(pattern, known[name], re.IGNORECASE), f"{name}: {what}")
                else:
                    missing = [word for word in words(what) if word not in known[name]]
                    self.assertEqual(missing, [], f"{name} does not know {what!r} of {where}")
        self.assertEqual(without, 1)


if __name__ == "__main__":
    unittest.main()

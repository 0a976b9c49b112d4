# SPDX-License-Identifier: MIT
"""docs/INTEGRATING.md quotes code that is built and run elsewhere, and states what the headers do."""
import re
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
TEXT = (ROOT / "docs/INTEGRATING.md").read_text()
BLOCKS = re.findall(r"^```(\w*)\n(.*?)^```", TEXT, re.MULTILINE | re.DOTALL)
SOURCES = {
    "c": ["examples/face_distance.c"],
    "cmake": ["examples/CMakeLists.txt", "cmake/toolchains/arm-softfp.cmake"],
}


def header_codes():
    """Name and value of each status in the public headers."""
    core, device, host = (
        (ROOT / "include/orvo" / name).read_text()
        for name in ("orvo_fr.h", "kova_fr.h", "kova_mpi_host.h")
    )
    statuses = re.search(r"Status codes.*?enum \{(.*?)\};", core, re.DOTALL).group(1)
    codes = re.findall(r"(ORVO_FR_\w+) = (\d+)", statuses)
    codes += re.findall(r"#define (KOVA_FR_(?:OK|ERR_\w+))[\s\\]+(\w+?)u\b", device)
    codes += re.findall(r"#define (KOVA_(?:SYS|VGS)_ERR_\w+) \(\(int32_t\)(\w+)\)", host)
    return {name: int(value, 0) for name, value in codes}


class Integrating(unittest.TestCase):
    def test_every_quoted_piece_of_code_is_in_its_source(self):
        self.assertEqual({language for language, _ in BLOCKS}, {"c", "cmake", "sh"})
        for language, block in BLOCKS:
            sources = [(ROOT / name).read_text() for name in SOURCES.get(language, [])]
            if language != "sh":
                self.assertTrue(any(block in source for source in sources), f"not found:\n{block}")

    def test_commands_name_files_and_options_that_exist(self):
        commands = "".join(block for language, block in BLOCKS if language == "sh")
        settings = (ROOT / "CMakeLists.txt").read_text()
        presets = (ROOT / "CMakePresets.json").read_text()
        for option in re.findall(r"-D((?:ORVO|FR)_\w+)=", TEXT):
            self.assertIn(option, settings)
        for preset in re.findall(r"--preset (\w+)", commands):
            self.assertIn(f'"name": "{preset}"', presets)
        usage = (ROOT / "run").read_text()
        for command in re.findall(r"\./run (\w+)", TEXT):
            self.assertRegex(usage, rf"\n  {command} ")
        for target in re.findall(r"\]\(([^)#]+)", TEXT):
            self.assertTrue((ROOT / "docs" / target).exists(), target)

    def test_the_tables_have_every_status_of_the_headers_with_its_value(self):
        rows = re.findall(r"^\| `(\w+)` \| (\w+) \| ", TEXT, re.MULTILINE)
        stated = {name: int(value, 0) for name, value in rows}
        self.assertEqual(len(rows), len(stated))
        self.assertGreaterEqual(len(stated), 22)
        self.assertEqual(stated, header_codes())


if __name__ == "__main__":
    unittest.main()

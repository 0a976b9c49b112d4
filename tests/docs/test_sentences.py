# SPDX-License-Identifier: MIT
"""Documents are read by people whose first language is not English: sentences are short.

Long ones are mostly two ideas. The limit is in words; tables, code and headings do not count.
"""
import re
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
LONGEST = 24
DOCUMENTS = [
    "README.md",
    "docs/CLUSTER.md",
    "docs/GALLERY.md",
    "docs/INTEGRATING.md",
    "docs/QUALITY.md",
    "docs/SECURITY.md",
    "docs/SERVICE.md",
    "docs/THRESHOLDS.md",
    "models/README.md",
    "python/README.md",
    "samples/README.md",
    "web/README.md",
    "web/npm/README.md",
]
INTRODUCED = [
    "README.md",
    "docs/GALLERY.md",
    "docs/INTEGRATING.md",
    "docs/SERVICE.md",
    "docs/THRESHOLDS.md",
    "python/README.md",
    "web/npm/README.md",
]


def paragraphs(markdown):
    """Those of prose, each as one line; items of lists are paragraphs of their own."""
    markdown = re.sub(r"^```.*?^```", "\n", markdown, flags=re.MULTILINE | re.DOTALL)
    markdown = re.sub(r"^<!-- thresholds.*?^<!-- /thresholds -->", "\n", markdown, flags=re.MULTILINE | re.DOTALL)
    lines = []
    for line in markdown.splitlines():
        is_prose = line.strip() and not line.startswith(("    ", "|", "#", "<!--", "!["))
        if not is_prose or line.lstrip().startswith("- "):
            lines.append("")
        if is_prose:
            lines.append(line.strip().removeprefix("- "))
    return [" ".join(part.split()) for part in re.split(r"\n\n+", "\n".join(lines)) if part.strip()]


def sentences(paragraph):
    paragraph = re.sub(r"\]\([^)]*\)", "]", paragraph)
    paragraph = re.sub(r"\*\*|`", "", paragraph)
    return [one for one in re.split(r"(?<=[.:;!?])\s+(?=[\w\[(\"])", paragraph) if one]


def words(sentence):
    return len(re.findall(r"[\w][\w.,*/+<>=_-]*", sentence))


class Sentences(unittest.TestCase):
    def test_none_is_too_long(self):
        for name in DOCUMENTS:
            for paragraph in paragraphs((ROOT / name).read_text()):
                for sentence in sentences(paragraph):
                    self.assertLessEqual(words(sentence), LONGEST, f"{name}: {sentence}")

    def test_the_score_is_introduced(self):
        for name in INTRODUCED:
            text = " ".join((ROOT / name).read_text().split())
            self.assertRegex(text, r"score(\*\*)? \(the interface calls it distance\)", name)


if __name__ == "__main__":
    unittest.main()

# SPDX-License-Identifier: MIT
"""Figures that stand in several documents agree with the one place where each was written first.

For what the models can do that is models/thresholds.json and the model cards, for speed docs/SPEED.md,
for sizes of the interface the headers. A figure may be rounded where it is repeated. When a sentence
is worded anew, its pattern here is worded anew as well; a pattern that no longer finds its sentence is
a failure.
"""
import hashlib
import json
import re
import unittest
from functools import cache
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
NUMBER = r"(\d*\.?\d+)"


@cache
def text(name):
    """A document with every run of white space as one space, so that lines may break anywhere."""
    return " ".join((ROOT / name).read_text().split())


def found(name, pattern, wanted=1):
    """All that the groups of a pattern hold, where it stands; once or as often as is wanted."""
    matches = re.findall(pattern, text(name))
    if len(matches) != wanted:
        raise AssertionError(f"{name} has {len(matches)} times, not {wanted}: {pattern}")
    first = matches[0]
    return first if isinstance(first, tuple) else (first,)


def numbers(name, pattern):
    return [float(value.replace(",", "")) for value in found(name, pattern)]


def row(name, begin, which=0):
    """The numbers of a table's row, the first of each cell; cells without any are left out."""
    lines = [line for line in (ROOT / name).read_text().splitlines() if line.startswith(begin)]
    if len(lines) <= which:
        raise AssertionError(f"{name} has no row {which} that begins with {begin}")
    cells = [re.search(r"(?<![\w.])\.?\d[\d.,]*", cell) for cell in lines[which][len(begin) :].split("|")]
    return [float(cell[0].rstrip(".,").replace(",", "")) for cell in cells if cell]


def thresholds():
    return json.loads((ROOT / "models/thresholds.json").read_text())["thresholds"]


def at(study, rate):
    return next(one for one in study["at"] if one["false_accept_rate"] == rate)


def accepted(study, rate):
    """Percent of the pairs of one person."""
    return 100 * (1 - at(study, rate)["false_rejects"]["rate"])


class Figures(unittest.TestCase):
    def assert_stated(self, name, pattern, *values, wanted=1):
        """The groups of the pattern are these values, rounded to as many digits as are written."""
        stated = found(name, pattern, wanted)
        self.assertEqual(len(stated), len(values), pattern)
        for written, value in zip(stated, values, strict=True):
            decimals = len(written.partition(".")[2])
            self.assertLessEqual(
                abs(float(written) - value), 0.5 * 10**-decimals + 1e-9, f"{name}: {written} for {value}: {pattern}"
            )


class Speed(Figures):
    def test_times_of_a_face(self):
        classes = ["AMX", "AVX-512 VNNI", "AVX-VNNI", "AVX2", "SSE4.1"]
        ours = {name: times[0] for name, times in zip(classes, self.times(classes), strict=True)}
        n = NUMBER
        self.assert_stated("README.md", f"On 32-bit ARM they take {n} million", self.instructions("both networks"))
        cells = rf"{n} \| {n} \| {n} \| {n} \| {n} \|"
        self.assert_stated("README.md", rf"\| Orvo FR \| {cells}", *ours.values())

    def test_times_of_the_other_engines(self):
        classes = ["AMX", "AVX-512 VNNI", "AVX-VNNI", "AVX2", "SSE4.1"]
        n = NUMBER
        cells = rf"{n} \| {n} \| {n} \| {n} \| {n} \|"
        times = self.times(classes)
        for column, engine in ((1, "oneDNN"), (2, "XNNPACK")):
            self.assert_stated("README.md", rf"on {engine} \| {cells}", *[one[column] for one in times])

    def test_ratios_are_those_of_the_times_beside_them(self):
        n = NUMBER
        for line in (ROOT / "docs/SPEED.md").read_text().splitlines():
            cells = re.fullmatch(
                rf"\| [^|]+ \| `\w+` \| \*\*{n}\*\* \| {n} \({n} x\) \| {n} \({n} x\) \|", line
            )
            if cells:
                ours, theirs, ratio, others, other = map(float, cells.groups())
                self.assertLess(abs(theirs / ours - ratio), 0.01 * ratio, line)
                self.assertLess(abs(others / ours - other), 0.02 * other, line)

    def test_the_whole_run_beside_the_two_networks(self):
        amx, avx2 = numbers(
            "docs/SPEED.md", rf"takes {NUMBER} times as long as the two networks .*? and {NUMBER} with AVX2"
        )
        networks = self.times(["AMX", "AVX2"])
        whole = [times[0] * ratio for times, ratio in zip(networks, (amx, avx2), strict=True)]
        instructions = self.instructions("**`OrvoFrRun`**")
        n = NUMBER
        self.assert_stated("docs/SPEED.md", rf"that is {n} ms with AMX and {n} with AVX2", *whole)
        self.assert_stated(
            "README.md", rf"A face takes \| {n} ms with AMX, {n} ms with AVX2, {n} million instructions on a 32-bit",
            *whole, instructions,
        )  # fmt: skip
        self.assert_stated("python/README.md", f"library itself takes {n} ms a face", whole[0])
        self.assert_stated(
            "docs/INTEGRATING.md", rf"{NUMBER} million instructions a face on 32-bit ARM",
            self.instructions("**`OrvoFrRun`**"),
        )  # fmt: skip

    def test_webassembly(self):
        run = numbers("docs/SPEED.md", rf"`OrvoFrRun` takes {NUMBER} ms, where it took")
        frame = numbers("docs/SPEED.md", rf"with both faces' features, from a canvas' pixels, {NUMBER} ms")
        self.assert_stated("web/README.md", rf"A face takes about {NUMBER} ms", *run)
        self.assert_stated("web/README.md", rf"of 640 x 480 with two faces takes {NUMBER} ms", *frame)

    def test_finding_and_looking_up(self):
        self.assert_stated(
            "models/find.md", rf"{NUMBER} million multiply-adds for 320 x 240",
            *numbers("docs/SPEED.md", rf"looks at 320 x 240 and 80 x 60: {NUMBER} million"),
        )  # fmt: skip
        before, now = row("docs/SPEED.md", "| `kova-fr identify` among 1,000,000, processor time |")
        megabytes = row("docs/SPEED.md", "| its memory |")
        self.assertEqual(now, 0.1)
        self.assert_stated(
            "CHANGELOG.md", rf"a tenth of a second and {NUMBER} MB, where it took {NUMBER} s and {NUMBER} GB",
            megabytes[1], before, megabytes[0] / 1000,
        )  # fmt: skip

    @staticmethod
    def times(classes):
        """Ours, oneDNN's and XNNPACK's, each class."""
        table = (ROOT / "docs/SPEED.md").read_text()
        times = []
        for name in classes:
            begin = rf"^\| {re.escape(name)} \| `\w+` \| "
            cells = re.search(rf"{begin}\*\*{NUMBER}\*\* \| {NUMBER} .*?\| {NUMBER} ", table, re.M)
            times.append([float(value) for value in cells.groups()])
        return times

    @staticmethod
    def instructions(name):
        return row("docs/SPEED.md", f"| {name} |")[0]


class Sizes(Figures):
    def test_what_the_libraries_take(self):
        library = sum(row("README.md", "| x86-64 |")[:2])
        finder = sum(row("README.md", "| libkova_find, x86-64 |")[:2])
        self.assert_stated(
            "README.md", rf"{NUMBER} MB, models included; {NUMBER} MB more to find faces", library / 1e6, finder / 1e6
        )

    def test_working_memory(self):
        (size,) = numbers("include/orvo/orvo_fr.h", r"ORVO_FR_MEMORY_SIZE = (\d+)")
        self.assert_stated("README.md", rf"{NUMBER} MB that the caller hands in", size / 1e6)
        for begin in ("| x86-64 |", "| 32-bit ARM |"):
            self.assertEqual(row("README.md", begin)[3], size)
        for name, pattern in (
            ("docs/ARCHITECTURE.md", r"One block of (\d+) bytes"),
            ("docs/INTEGRATING.md", r"It also allocates (\d+) bytes"),
            ("docs/INTEGRATING.md", r"try again; (\d+) contiguous bytes"),
            ("docs/INTEGRATING.md", r"`FR_MEM` \| (\d+) bytes"),
        ):
            self.assertEqual(numbers(name, pattern), [size], name)

    def test_exported_names(self):
        lines = (ROOT / "tests/interface/exported_symbols.txt").read_text().splitlines()
        names = [line for line in lines if line and not line.startswith("#")]
        self.assertEqual(numbers("README.md", r"their (\d+) names meet"), [len(names)])
        self.assertEqual(numbers("CHANGELOG.md", r"one of the (\d+) names that `libkova_fr` exports"), [len(names)])

    def test_quality_that_is_enough(self):
        good = numbers("include/orvo/orvo_find.h", r"ORVO_FIND_GOOD = (\d+)")
        for name, pattern in (
            ("docs/QUALITY.md", r"A face of less than \*\*(\d+)\*\* \(`ORVO_FIND_GOOD`\)"),
            ("docs/THRESHOLDS.md", r"good each is to be recognised[;.] [Bb]elow (\d+) of 100"),
            ("docs/THRESHOLDS.md", r"below a quality of (\d+) a face"),
            ("CHANGELOG.md", r"below (\d+) \(`ORVO_FIND_GOOD`\)"),
        ):
            self.assertEqual(numbers(name, pattern), good, name)


class Models(Figures):
    def test_layers_of_the_networks(self):
        for model in ("align", "fr"):
            tensors = self.tensors(model)
            layers = len([name for name in tensors if name.endswith(".weight")])
            self.assertEqual(numbers(f"models/{model}.md", r"(\d+) layers, "), [layers])
            self.assertEqual(numbers("models/README.md", rf"`{model}.safetensors` \| \w+, (\d+) layers"), [layers])
        finder = [int(name.split(".")[0]) for name in self.tensors("find")]
        _, last = numbers("models/find.md", r"Layers (\d+) to (\d+) are the second's with other weights")
        self.assertEqual(last, max(finder))
        for place, weights in (("64 x 64", "233,184"), ("grey levels of any", "96,928")):
            self.assertEqual(
                numbers("models/README.md", rf"layers (\d+) to (\d+) \| {place}"),
                numbers("models/find.md", rf"Layers (\d+) to (\d+), {weights}"),
            )

    def test_digests_of_the_files_stand_in_their_cards(self):
        for model in ("align", "fr", "find"):
            digest = hashlib.sha256((ROOT / f"models/{model}.safetensors").read_bytes()).hexdigest()
            self.assertIn(f"SHA-256 {digest}", text(f"models/{model}.md"), model)

    def test_both_cards_name_the_same_digest_of_both_networks(self):
        pattern = r"as galleries and calibrations carry it: ([0-9a-f]{64})"
        self.assertEqual(found("models/align.md", pattern), found("models/fr.md", pattern))

    def test_accuracy_in_the_readme(self):
        study = thresholds()
        self.assert_stated(
            "README.md", r"(\d+) of 100 pairs of one person accepted at 1 false accept in 100, (\d+) at 1 in 1,000",
            accepted(study, 0.01), accepted(study, 0.001),
        )  # fmt: skip

    def test_groups_in_the_readme(self):
        old = numbers("models/fr.md", rf"\| old \| \d+ \| \*\*{NUMBER}\*\*")
        dark = numbers("models/fr.md", rf"\| dark skin \| \d+ \| \*\*{NUMBER}\*\*")
        words = {"three": 3, "four": 4}
        low, high = found("README.md", r"taken for one another (\w+) to (\w+) times as often")
        self.assertEqual([words[low], words[high]], [round(dark[0]), round(old[0])])

    def test_the_recognition_card_has_the_thresholds_file_s_figures(self):
        crops = thresholds()["crops"]
        n = NUMBER
        self.assert_stated(
            "models/fr.md", f"There {n} gives FAR 1e-2 .*? accepts {n} % of one",
            at(crops, 0.01)["threshold"], accepted(crops, 0.01),
        )  # fmt: skip
        table = row("models/fr.md", "| **Database of Faces**")
        # Two programs measured these: a pair in 1755 may fall on the other side.
        self.assertAlmostEqual(table[3], accepted(crops, 0.01), delta=0.1)
        self.assertAlmostEqual(table[4], accepted(crops, 0.001), delta=0.1)
        self.assert_stated(
            "models/fr.md", rf"thresholds there for FAR 1e-1, 1e-2, 1e-3 \|[^|]*\|[^|]*\|[^|]*\| {n}, {n}, {n}",
            *[at(crops, rate)["threshold"] for rate in (0.1, 0.01, 0.001)],
        )  # fmt: skip
        people, pictures = numbers("models/fr.md", r"\*\*Database of Faces\*\*, (\d+) people, (\d+) pictures")
        self.assertEqual([people, pictures], [crops["people"], crops["pictures"]])
        self.assertEqual(numbers("models/find.md", r"Database of Faces, (\d+) pictures as they are"), [pictures])
        self.assertEqual(numbers("docs/THRESHOLDS.md", r"Cambridge: (\d+) people, ten grey pictures each"), [people])

    def test_plain_scores_beside_calibrated_and_poor_ones(self):
        study = thresholds()
        plain = row("docs/THRESHOLDS.md", "| plain score (`kova-fr eval`) |")
        self.assertAlmostEqual(plain[0], 100 - accepted(study, 0.01), delta=0.05)
        self.assertAlmostEqual(plain[1], 100 - accepted(study, 0.001), delta=0.5)
        quality = row("docs/QUALITY.md", "| Database of Faces as it is |")
        self.assertEqual(quality[0], study["pictures"])
        self.assertAlmostEqual(quality[1], 100 - accepted(study, 0.01), delta=0.05)

    def test_thresholds_of_rendered_people(self):
        n = NUMBER
        now = numbers("models/fr.md", rf"\(0\.\d+, 0\.\d+, 0\.\d+, now {n}\)")
        accepts = row("models/fr.md", "| FAR there at the threshold that gives")[-1]
        self.assert_stated("models/fr.md", f"at {n} every seventh pair", *now)
        self.assertEqual(round(100 / accepts), 7)
        hundredth, there = found(
            "docs/THRESHOLDS.md", rf"{n} accepts 1 % of the pairs of strangers and .*?accept {n} % and"
        )
        self.assertEqual(float(hundredth), now[0])
        self.assertLessEqual(abs(float(there) - accepts), 0.5)

    def test_what_the_training_says_of_the_models(self):
        n = NUMBER
        unseen = row("models/align.md", "| rendered frames of 300 unseen people")
        self.assertEqual(numbers("training/README.md", rf"took it from 0\.819 to {n}\."), unseen[1:2])
        scanned = [
            row("models/fr.md", "| before the map |", 2),
            row("models/fr.md", "| before the last two stages |", 2),
            row("models/fr.md", "| before scanned heads |", 2),
        ]
        self.assert_stated("training/README.md", f"stands at {n} and {n} % on scanned people", *scanned[0][-3:-1])
        self.assert_stated("training/README.md", f"three stand at {n} and {n},", *scanned[1][-3:-1])
        self.assert_stated("training/README.md", rf"from {n} % to 67\.5 and {n} %", scanned[2][-3], scanned[1][-3])
        real = row("models/fr.md", "| before the last two stages |", 0)
        self.assert_stated("training/README.md", rf"gave nothing there \({n} and {n} % became", *real[2:4])
        strangers = row("models/fr.md", "| Database of Faces: mean score of strangers |")
        mean = row("models/fr.md", "| length of the mean feature |", 0)
        self.assert_stated(
            "training/README.md", f"strangers from {n} to {n}, the mean feature from {n} to {n},",
            *strangers[:2], *mean[:2],
        )  # fmt: skip
        accepts = row("models/fr.md", "| FAR there at the threshold that gives")
        self.assert_stated("training/README.md", f"threshold from rendered people from {n} to {n} %", *accepts[-4:-2])
        bare = row("models/fr.md", "| bare scanned heads (shape alone, true boxes, 300 people in 5 views): ")
        targets = row("models/fr.md", "| bare heads of the targets, the same |")
        self.assert_stated(
            "training/README.md", f"equal error rate of {n} to {n} %, bare scanned heads only from {n} to {n} %",
            *targets[:2], *bare[:2],
        )  # fmt: skip
        self.assert_stated("training/facegen/README.md", f"Database of Faces \\(whose own is {n}\\)", mean[1])

    @staticmethod
    def tensors(model):
        file = (ROOT / f"models/{model}.safetensors").read_bytes()
        header = json.loads(file[8 : 8 + int.from_bytes(file[:8], "little")])
        return [name for name in header if name != "__metadata__"]


if __name__ == "__main__":
    unittest.main()

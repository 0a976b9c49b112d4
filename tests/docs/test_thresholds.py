# SPDX-License-Identifier: MIT
"""The documents show the thresholds that were measured, and these belong to the models."""
import hashlib
import json
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))
import measure_thresholds  # noqa: E402

RECORD = json.loads((ROOT / "models/thresholds.json").read_text())


class Thresholds(unittest.TestCase):
    def test_they_were_measured_with_the_models_that_lie_beside_them(self):
        for model in measure_thresholds.MODELS:
            file = ROOT / f"models/{model}.safetensors"
            digest = hashlib.sha256(file.read_bytes()).hexdigest()
            self.assertEqual(RECORD[f"{model}_sha256"], digest, "measure anew: tools/measure_thresholds.py")

    def test_every_document_shows_them(self):
        for name, wording in measure_thresholds.DOCUMENTS.items():
            text = (ROOT / name).read_text()
            begin, end = measure_thresholds.marked(text)
            self.assertEqual(text[begin:end], wording(RECORD["thresholds"]), name)

    def test_every_document_warns_of_another_camera(self):
        for name in measure_thresholds.DOCUMENTS:
            text = " ".join((ROOT / name).read_text().split()).lower()
            self.assertIn("another camera", text, name)

    def test_the_scores_of_strangers_agree_with_the_thresholds(self):
        """Of so many pairs at least a share of a threshold's rate reaches it, and the last is all."""
        for study in (RECORD["thresholds"], RECORD["thresholds"]["crops"]):
            pairs, last = study["pairs_of_two_people"], study["strangers"][-1]
            self.assertEqual(last[0], pairs)
            self.assertEqual(study["strangers"], sorted(study["strangers"], key=lambda one: (one[0], -one[1])))
            for one in study["at"]:
                above = [count for count, score in study["strangers"] if score >= one["threshold"]]
                accepted = one["false_accepts"]["rate"] * pairs
                self.assertLessEqual(max(above), accepted + 0.5)
                self.assertGreater(1.3 * max(above) + 1, accepted)

    def test_the_rates_have_intervals_of_a_size_that_the_people_allow(self):
        """Over 39 people an interval cannot be a sliver."""
        for one in RECORD["thresholds"]["at"]:
            low, high = one["false_accepts"]["interval"]
            self.assertLess(low, 0.7 * one["false_accept_rate"])
            self.assertGreater(high, 1.2 * one["false_accept_rate"])


if __name__ == "__main__":
    unittest.main()

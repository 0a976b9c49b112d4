# SPDX-License-Identifier: MIT
"""The package as npm packs and installs it: its files, its example under Node, its types, and in Chromium."""
import json
import os
import re
import shutil
import subprocess
import tarfile
import unittest

import numpy as np
from native import PACKAGE, grey, native_faces, temporary_folder
from scenes import AGAIN, FIRST, background, blurred, save, two_people
from test_page import browser, serve

FILES = {
    "LICENSE", "README.md", "browser.mjs", "examples/compare.mjs", "examples/read_picture.mjs",
    "library.mjs", "node.mjs", "orvo_fr.d.ts", "orvo_fr.wasm", "package.json", "thresholds.mjs",
}  # fmt: skip
PAGE = """<!doctype html><script type="module">
import { open, thresholds } from "./node_modules/orvo-fr/browser.mjs";
const image = new Image();
image.src = "scene.png";
await image.decode();
const canvas = document.createElement("canvas");
canvas.width = image.width;
canvas.height = image.height;
const context = canvas.getContext("2d");
context.drawImage(image, 0, 0);
const library = await open();
const faces = library.faces(context.getImageData(0, 0, canvas.width, canvas.height));
window.answer = faces.map((face) => Array.from(face.feature));
window.measured = thresholds === null || thresholds.at.length > 0;
</script>"""
USE = """import { open, thresholds, type Face, type Library, type Picture } from "orvo-fr";
const library: Library = await open();
const picture: Picture = { width: 30, height: 30, data: new Uint8Array(900) };
const faces: Face[] = library.faces(picture, { smallest: 20, most: 3 });
const features: Float32Array[] = faces.map((face) => face.feature);
const score: number = library.distance(features[0], features[1]);
const box: number | undefined = library.extract(picture)?.box.left;
const first: number | undefined = thresholds?.at[0].threshold;
// @ts-expect-error: without features there may be none
const none: Float32Array = library.find(picture)[0].feature;
// @ts-expect-error: a picture has a height
library.find({ width: 3, data: new Uint8Array(9) });
export { score, box, first, none };
"""


def npm(*arguments, cwd):
    done = subprocess.run(
        ["npm", *arguments, "--offline", "--no-audit", "--no-fund", "--no-update-notifier"],
        cwd=cwd, capture_output=True, text=True,
        env={**os.environ, "npm_config_cache": str(cwd / "cache")},
    )  # fmt: skip
    if done.returncode != 0:
        raise AssertionError(f"npm {arguments}: {done.stdout}{done.stderr}")


class Npm(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = temporary_folder()
        cls.app = folder.__enter__()
        cls.addClassCleanup(folder.__exit__, None, None, None)
        npm("pack", str(PACKAGE), cwd=cls.app)
        (cls.archive,) = cls.app.glob("orvo-fr-*.tgz")
        (cls.app / "package.json").write_text('{"name": "app", "private": true, "type": "module"}')
        npm("install", str(cls.archive), cwd=cls.app)
        cls.installed = cls.app / "node_modules" / "orvo-fr"

    def compare(self, *pictures):
        return subprocess.run(
            ["node", self.installed / "examples" / "compare.mjs", *pictures],
            cwd=self.app, capture_output=True, text=True,
        )  # fmt: skip

    def test_the_archive_has_what_is_needed_and_no_more(self):
        with tarfile.open(self.archive) as archive:
            names = {name.removeprefix("package/") for name in archive.getnames()}
        self.assertEqual(names, FILES)

    def test_the_same_build_packs_the_same_bytes(self):
        before = self.archive.read_bytes()
        npm("pack", str(PACKAGE), cwd=self.app)
        self.assertEqual(self.archive.read_bytes(), before)

    def test_the_example_compares_photographs(self):
        features = [
            np.frombuffer(max(native_faces(grey(path)), key=lambda face: face.record.side).feature, np.float32)
            for path in (FIRST, AGAIN)
        ]
        done = self.compare(FIRST, AGAIN)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        score = float(re.search(r"^score (-?\d\.\d+)", done.stdout, re.M)[1])
        self.assertAlmostEqual(score, float(features[0] @ features[1]), delta=1e-4)
        self.assertIn("of the pairs of strangers", done.stdout)

    def test_the_example_reads_every_kind_of_png_and_pgm(self):
        scene = two_people()
        grey_file = save(self.app / "grey.png", scene)
        expected = re.search(r"taken: .*", self.compare(grey_file, grey_file).stdout)[0]
        alpha = np.dstack([scene, scene, scene, np.full_like(scene, 255)])
        kinds = {"colours.png": np.dstack([scene] * 3), "alpha.png": alpha, "levels.pgm": scene}
        for name, pixels in kinds.items():
            done = self.compare(grey_file, save(self.app / name, pixels))
            self.assertEqual(done.returncode, 0, name + done.stderr)
            self.assertEqual(done.stdout.count(expected), 2, done.stdout)
            self.assertIn("score 1.0000", done.stdout)

    def test_the_example_refuses_with_one_line(self):
        jpeg = save(self.app / "photo.jpg", two_people())
        (self.app / "text.png").write_text("no picture")
        (self.app / "cut.png").write_bytes(FIRST.read_bytes()[:-3000])
        empty = save(self.app / "empty.png", background(300, 300))
        poor = save(self.app / "poor.png", blurred(AGAIN))
        for picture, word in ((jpeg, "npm install jpeg-js"), ("text.png", "neither PNG"), ("cut.png", "cut.png: "),
                              ("nothing.png", "nothing.png: "), (empty, "no face is good enough"),
                              (poor, "no face is good enough (blurred")):  # fmt: skip
            done = self.compare(FIRST, picture)
            self.assertEqual(done.returncode, 1, picture)
            self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
            self.assertIn(word, done.stderr)
        self.assertIn("usage", self.compare(FIRST).stderr)

    def test_types_and_scripts_have_the_same_names(self):
        types = (self.installed / "orvo_fr.d.ts").read_text()
        declared = set(re.findall(r"^export (?:function|const) (\w+)", types, re.M))
        members = set(re.findall(r"^  (?:readonly )?(\w+)[(:]", re.search(
            r"interface Library \{.*?\n\}", types, re.S)[0], re.M))  # fmt: skip
        face = set(re.findall(r"^  (\w+):", re.search(r"interface FoundFace \{.*?\n\}", types, re.S)[0], re.M))
        script = (
            "import * as all from 'orvo-fr'; import { readPicture } from "
            "'./node_modules/orvo-fr/examples/read_picture.mjs'; const library = await all.open();"
            f"const [face] = library.faces(await readPicture({json.dumps(str(FIRST))}));"
            "console.log(JSON.stringify([all, library, face].map(Object.keys)));"
        )
        done = subprocess.run(["node", "--input-type=module", "-e", script], cwd=self.app, check=True,
                              capture_output=True, text=True)  # fmt: skip
        self.assertEqual([set(names) for names in json.loads(done.stdout)], [declared, members, face])

    def test_types_serve_a_program_in_typescript(self):
        tsc = os.environ.get("ORVO_TSC") or shutil.which("tsc")
        self.assertTrue(tsc, "the TypeScript compiler is missing: apt-get install node-typescript")
        (self.app / "use.ts").write_text(USE)
        options = {
            "noEmit": True, "strict": True, "target": "es2022", "lib": ["es2022", "dom"], "types": [],
            "module": "node16", "moduleResolution": "node16",
        }  # fmt: skip
        (self.app / "tsconfig.json").write_text(
            json.dumps({"compilerOptions": options, "files": ["use.ts"]}))
        done = subprocess.run([tsc, "--project", "."], cwd=self.app, capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stdout)

    def test_chromium_gives_the_native_features(self):
        scene = two_people()
        save(self.app / "scene.png", scene)
        (self.app / "index.html").write_text(PAGE)
        server = serve(self.app)
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        chromium = browser()
        self.addCleanup(chromium.quit)
        chromium.get(f"http://127.0.0.1:{server.server_port}/index.html")
        answer = chromium.execute_async_script(
            "const done = arguments[0]; const look = () => window.answer"
            "  ? done([window.answer, window.measured]) : setTimeout(look, 50); look();"
        )
        features = [np.float32(feature).tobytes() for feature in answer[0]]
        self.assertEqual(features, [face.feature for face in native_faces(scene)])
        self.assertTrue(answer[1])


if __name__ == "__main__":
    unittest.main()

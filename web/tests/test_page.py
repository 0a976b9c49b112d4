# SPDX-License-Identifier: MIT
"""The page in headless Chromium, with a camera that is a file."""
import functools
import http.server
import json
import re
import struct
import threading
import time
import unittest

import cv2
import numpy as np
from native import PAGE, SAMPLES, grey, native_faces, native_feature, temporary_folder
from scenes import AGAIN, FIRST, GROUP, OTHER, background, blurred, put, save, two_people
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

PATIENCE = 120  # seconds; the machine may be busy


class QuietHandler(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *arguments):
        pass


def serve(folder=PAGE):
    handler = functools.partial(QuietHandler, directory=str(folder))
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server


def write_video(path, picture, frames=5):
    """A film in which nothing moves: grey levels with neutral colour."""
    height, width = picture.shape
    neutral = bytes([128]) * (width // 2 * (height // 2) * 2)
    head = f"YUV4MPEG2 W{width} H{height} F10:1 Ip A1:1 C420jpeg\n".encode()
    path.write_bytes(head + (b"FRAME\n" + picture.tobytes() + neutral) * frames)


def browser(*more):
    options = webdriver.ChromeOptions()
    for argument in (
        "--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
        "--window-size=1000,1200", *more,
    ):  # fmt: skip
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"performance": "ALL"})
    options.binary_location = "/usr/bin/chromium"
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class PageTest(unittest.TestCase):
    arguments = ()

    @classmethod
    def setUpClass(cls):
        cls.server = serve()
        cls.addClassCleanup(cls.server.shutdown)
        cls.address = f"http://127.0.0.1:{cls.server.server_port}/"
        cls.browser = browser(*cls.arguments)
        cls.addClassCleanup(cls.browser.quit)

    def setUp(self):
        self.open(self.address + "index.html")

    def open(self, address):
        self.browser.get(address)
        self.wait(lambda: self.browser.execute_script("return document.body.dataset.ready === 'yes'"))

    def wait(self, condition):
        WebDriverWait(self.browser, PATIENCE, poll_frequency=0.1).until(lambda _: condition())

    def element(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.element(selector).text

    def choose(self, slot, path):
        self.element(f"#slot-{slot} input").send_keys(str(path))

    def choose_and_wait(self, slot, path):
        self.choose(slot, path)
        self.wait(lambda: self.has_face(slot))

    def has_face(self, slot):
        return self.browser.execute_script(f"return slots.{slot}.face !== null")

    def run_in_page(self, script, *arguments):
        return self.browser.execute_script(script, *arguments)

    def verdict(self):
        return self.text("#result .verdict")

    def note(self, slot):
        return self.text(f"#slot-{slot} .note")

    def feature(self, slot):
        values = self.browser.execute_script(f"return Array.from(slots.{slot}.face.feature)")
        return struct.pack("<128f", *values)


def largest(picture):
    """The native answer for the face that the page takes."""
    faces = native_faces(picture)
    good = [face for face in faces if face.record.quality >= 30]
    return max(good or faces, key=lambda face: face.record.side)


def luminance(colour):
    linear = [c / 12.92 if c <= 0.03928 else ((c + 0.055) / 1.055) ** 2.4 for c in colour]
    return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]


def contrast(one, other):
    """Of two colours as the browser writes them, as WCAG 2 defines it."""
    values = [luminance([int(n) / 255 for n in re.findall(r"\d+", colour)[:3]]) for colour in (one, other)]
    return (max(values) + 0.05) / (min(values) + 0.05)


DROP = (
    "const data = new DataTransfer(); const text = atob(ORVO_SAMPLES.b.split(',')[1]);"
    "data.items.add(new File([Uint8Array.from(text, (c) => c.charCodeAt(0))], 'a.png'));"
    "const drop = new DragEvent('drop', {dataTransfer: data, bubbles: true, cancelable: true});"
)


class WholePictures(PageTest):
    def test_a_face_that_was_found_gives_the_native_feature_bit_for_bit(self):
        for path in (FIRST, AGAIN, OTHER):
            self.choose_and_wait("a", path)
            self.assertEqual(self.feature("a"), largest(grey(path)).feature, path.name)
            self.run_in_page("slots.a.face = null")

    def test_the_largest_good_face_is_taken_and_another_can_be_picked(self):
        scene = two_people()
        faces = native_faces(scene)
        self.assertEqual(len(faces), 2)
        with temporary_folder() as folder:
            self.choose_and_wait("a", save(folder / "scene.png", scene))
        self.assertEqual(self.feature("a"), largest(scene).feature)
        picks = self.browser.find_elements(By.CSS_SELECTOR, "#slot-a .pick")
        self.assertEqual(len(picks), 2)
        pressed = [pick for pick in picks if pick.get_attribute("aria-pressed") == "true"]
        self.assertEqual(len(pressed), 1)
        other = next(pick for pick in picks if pick not in pressed)
        self.assertRegex(other.accessible_name, "Face [12] of 2")
        # It lies where the face is.
        smaller = min(faces, key=lambda face: face.record.side)
        stage = self.element("#slot-a .view").rect
        middle = other.rect["x"] + other.rect["width"] / 2 - stage["x"]
        self.assertAlmostEqual(middle * 640 / stage["width"],
                               smaller.record.left + smaller.record.side / 2, delta=3)  # fmt: skip
        other.click()
        self.assertEqual(self.feature("a"), smaller.feature)
        self.assertEqual(other.get_attribute("aria-pressed"), "true")
        self.assertIn("of 2 is taken", self.note("a"))

    def test_boxes_and_landmarks_are_drawn_over_the_picture(self):
        self.choose_and_wait("a", FIRST)
        drawn = self.run_in_page(
            "const {boxes} = slots.a; const {data} = boxes.getContext('2d').getImageData("
            "0, 0, boxes.width, boxes.height); const seen = [];"
            "for (let i = 0; i < data.length; i += 4)"
            "  if (data[i] > 200 && data[i + 1] > 150 && data[i + 2] < 90 && data[i + 3] > 200)"
            "    seen.push(i / 4); return seen"
        )
        face = largest(grey(FIRST)).record
        yellow = np.zeros((256, 256), bool)
        yellow.flat[drawn] = True
        for x, y in zip(face.points[0::2], face.points[1::2]):
            self.assertTrue(yellow[int(y) - 1 : int(y) + 2, int(x) - 1 : int(x) + 2].any(), (x, y))
        for row in (face.top, face.top + face.side):
            across = yellow[round(row) - 1 : round(row) + 2].any(axis=0)
            self.assertGreater(across[round(face.left) + 2 : round(face.left + face.side) - 2].mean(), 0.95)

    def test_a_face_that_is_not_good_enough_is_said_why_and_gets_no_verdict(self):
        picture = blurred(AGAIN)
        face = largest(picture).record
        self.assertLess(face.quality, 30)
        self.assertEqual(face.reasons & 2, 2)
        self.choose_and_wait("b", OTHER)
        with temporary_folder() as folder:
            self.choose_and_wait("a", save(folder / "blurred.png", picture))
        self.assertIn("Not good enough: blurred", self.note("a"))
        self.assertIn(f"quality {face.quality} of 100", self.note("a"))
        self.assertIn("Good enough", self.note("b"))
        self.assertRegex(self.verdict(), "^No verdict: the first face is blurred")
        self.assertTrue(self.element("#result .score").is_displayed())

    def test_all_reasons_have_words(self):
        words = self.run_in_page(
            "return ORVO_REASONS.map((reason) => qualityWords({isGood: false, quality: 7, reasons: [reason]}))")
        self.assertEqual(len(set(words)), 9)
        for text in words:
            self.assertRegex(text, r"^Not good enough: [a-z ]+ \(quality 7 of 100\)\.$")

    def test_the_largest_of_the_good_ones_comes_before_a_larger_bad_one(self):
        which = "return largestGood(arguments[0].map(([side, isGood]) => ({side, isGood})))"
        self.assertEqual(self.run_in_page(which, [[90, False], [40, True], [60, True]]), 2)
        self.assertEqual(self.run_in_page(which, [[40, False], [90, False]]), 1)
        self.assertEqual(self.run_in_page(which, []), -1)

    def test_a_crop_is_offered_to_be_the_face(self):
        # No face that could be found, and more than a wall.
        crop = cv2.resize(grey(FIRST)[-56:, :56], (256, 256), interpolation=cv2.INTER_CUBIC)
        self.assertEqual(native_faces(crop), [])
        with temporary_folder() as folder:
            self.choose("a", save(folder / "crop.png", crop))
            self.wait(lambda: "No face was found" in self.note("a"))
        self.assertFalse(self.has_face("a"))
        self.assertEqual(self.verdict(), "Two faces are needed.")
        self.element("#slot-a .whole").click()
        self.assertEqual(self.feature("a"), native_feature(crop))
        self.assertIn("whole picture", self.note("a"))

    def test_nothing_is_offered_where_a_face_was_found(self):
        self.choose_and_wait("a", FIRST)
        self.assertFalse(self.element("#slot-a .whole").is_displayed())
        with temporary_folder() as folder:
            self.choose_and_wait("b", save(folder / "blurred.png", blurred(AGAIN)))
        self.assertFalse(self.element("#slot-b .whole").is_displayed())


class Verdicts(PageTest):
    def test_score_is_the_native_distance_and_is_put_in_words(self):
        self.assertEqual(self.verdict(), "Two faces are needed.")
        self.choose_and_wait("a", FIRST)
        self.assertEqual(self.verdict(), "One more face is needed.")
        self.choose_and_wait("b", AGAIN)
        a, b = (np.frombuffer(largest(grey(path)).feature, np.float32) for path in (FIRST, AGAIN))
        self.assertAlmostEqual(float(self.text("#result output")), float(a @ b), delta=6e-4)
        self.assertIn("the same person", self.verdict())
        self.run_in_page("slots.b.face = null")
        self.choose_and_wait("b", OTHER)
        self.assertEqual(self.verdict(), "Probably different people")

    def test_words_go_by_the_thresholds_that_were_measured_on_real_faces(self):
        record = json.loads((SAMPLES.parent / "models/thresholds.json").read_text())["thresholds"]
        _, hundredth, thousandth = [one["threshold"] for one in record["at"][:3]]
        says = lambda score: self.run_in_page(f"return verdict({score})")  # noqa: E731
        self.assertEqual(says(thousandth), "Probably the same person")
        self.assertEqual(says(thousandth - 1e-4), "Perhaps the same person")
        self.assertEqual(says(hundredth), "Perhaps the same person")
        self.assertEqual(says(hundredth - 1e-4), "Probably different people")
        text = self.run_in_page("return document.getElementById('thresholds').textContent")
        for part in (record["measured_on"], f"{hundredth:.4f}", f"{thousandth:.4f}", record["warning"]):
            self.assertIn(part, text)

    def test_both_thresholds_are_marked_in_words_where_the_needle_passes_them(self):
        record = json.loads((SAMPLES.parent / "models/thresholds.json").read_text())["thresholds"]
        _, hundredth, thousandth = [one["threshold"] for one in record["at"][:3]]
        place = lambda score: self.run_in_page(f"return placeOnBar({score})")  # noqa: E731
        self.assertAlmostEqual(place(hundredth), 1 / 3)
        self.assertAlmostEqual(place(thousandth), 2 / 3)
        self.assertEqual([place(-2), place(-1), place(1), place(2)], [0, 0, 1, 1])
        self.assertLess(place(hundredth - 0.1), place(hundredth - 0.05))
        for slot in "ab":
            self.choose_and_wait(slot, FIRST)
        text = lambda mark: self.text(mark).replace("\n", " ")  # noqa: E731
        self.assertEqual(text("#result .mark-perhaps"),
                         f"perhaps from {hundredth:.3f}, 1 in 100 pairs of strangers")  # fmt: skip
        self.assertEqual(text("#result .mark-likely"),
                         f"probably from {thousandth:.3f}, 1 in 1000 pairs of strangers")  # fmt: skip
        bar = self.element("#result .bar").rect
        for mark, part in ((".mark-perhaps", 1 / 3), (".mark-likely", 2 / 3)):
            label = self.element(f"#result {mark}").rect
            self.assertAlmostEqual(label["x"] + label["width"] / 2, bar["x"] + part * bar["width"], delta=6)

    def test_the_verdict_stands_directly_below_the_pictures(self):
        for width in (390, 1000):
            self.browser.set_window_size(width, 844)
            for slot in "ab":
                self.run_in_page(f"slots.{slot}.face = null")
                self.choose_and_wait(slot, FIRST)
            bottom = max(self.element(f"#slot-{slot} .stage").rect["y"]
                         + self.element(f"#slot-{slot} .stage").rect["height"] for slot in "ab")  # fmt: skip
            verdict = self.element("#result .verdict").rect
            self.assertGreaterEqual(verdict["y"], bottom)
            # No more than the two notes of the pictures is between.
            self.assertLess(verdict["y"] - bottom, 110)
            self.assertLess(verdict["y"] + verdict["height"], 844)
        self.browser.set_window_size(1000, 1200)

    def test_no_verdict_stays_when_a_file_is_bad(self):
        for slot in "ab":
            self.choose_and_wait(slot, FIRST)
        self.assertNotIn("needed", self.verdict())
        with temporary_folder() as folder:
            (folder / "text.jpg").write_text("no picture")
            self.choose("a", folder / "text.jpg")
            self.wait(lambda: "not a picture" in self.note("a"))
        self.assertEqual(self.verdict(), "One more face is needed.")
        self.assertFalse(self.has_face("a"))
        self.assertFalse(self.element("#result .scale").is_displayed())
        self.assertFalse(self.element("#slot-a .view").is_displayed())
        self.choose_and_wait("a", AGAIN)
        self.assertIn("Good enough", self.note("a"))
        self.assertNotIn("needed", self.verdict())

    def test_a_picture_without_structure_is_refused(self):
        self.choose_and_wait("a", FIRST)
        self.run_in_page(
            "const canvas = document.createElement('canvas'); canvas.width = canvas.height = 300;"
            "const pen = canvas.getContext('2d'); pen.fillStyle = '#808890'; pen.fillRect(0, 0, 300, 300);"
            "canvas.toBlob((blob) => takeFile(slots.a, blob));"
        )
        self.wait(lambda: "shows no structure" in self.note("a"))
        self.assertFalse(self.has_face("a"))
        self.assertFalse(self.element("#slot-a .whole").is_displayed())

    def test_a_slow_picture_does_not_replace_a_newer_one(self):
        self.run_in_page(
            "const slow = new Promise((resolve) => { window.letGo = resolve; });"
            "guarded(slots.a, async (isNewest) => { await slow; window.wasNewest = isNewest(); })"
        )
        self.choose_and_wait("a", FIRST)
        self.run_in_page("letGo()")
        self.wait(lambda: self.run_in_page("return window.wasNewest") is not None)
        self.assertFalse(self.run_in_page("return window.wasNewest"))

    def test_screen_readers_are_told_the_newest_at_most_every_two_seconds(self):
        times, texts = self.browser.execute_async_script(
            "const done = arguments[0], times = [], texts = [];"
            "new MutationObserver(() => { times.push(performance.now());"
            "    texts.push(document.getElementById('status').textContent); })"
            "  .observe(document.getElementById('status'), {childList: true});"
            "let n = 0; const timer = setInterval(() => { announce('number ' + ++n);"
            "  if (n === 50) { clearInterval(timer); setTimeout(() => done([times, texts]), 2500); } }, 100);"
        )
        self.assertGreaterEqual(len(times), 3)
        for before, after in zip(times, times[1:]):
            self.assertGreater(after - before, 1990)
        self.assertEqual(texts[-1], "number 50")

    def test_nothing_else_is_read_out(self):
        live = self.browser.find_elements(By.CSS_SELECTOR, "[aria-live], [role=alert], [role=status], output")
        ids = {element.get_attribute("id") for element in live if element.tag_name != "output"}
        self.assertEqual(ids, {"status", "live-status"})
        for output in self.browser.find_elements(By.CSS_SELECTOR, "output"):
            self.assertEqual(output.get_attribute("aria-live"), "off")

    def test_the_result_of_two_pictures_is_read_out(self):
        for slot in "ab":
            self.choose_and_wait(slot, FIRST)
        said = "return document.getElementById('status').textContent"
        self.wait(lambda: self.verdict() in self.run_in_page(said))


class Files(PageTest):
    def test_a_tiny_picture_is_refused(self):
        self.run_in_page(
            "const canvas = document.createElement('canvas'); canvas.width = canvas.height = 1;"
            "canvas.toBlob((blob) => takeFile(slots.a, blob));"
        )
        self.wait(lambda: self.note("a"))
        self.wait(lambda: "too small" in self.note("a"))

    def test_phones_pictures_of_50_and_200_megapixels_are_reduced(self):
        for width, height in ((8160, 6120), (16320, 12240)):
            scene = cv2.resize(background(width // 8, height // 8), (width, height))
            put(scene, FIRST, 1000, 900, height // 2)
            with temporary_folder() as folder:
                self.choose_and_wait("a", save(folder / "phone.jpg", scene))
            worked_on = self.run_in_page("return slots.a.seen.pictureWidth * slots.a.seen.pictureHeight")
            self.assertLess(worked_on, 17e6)
            label = self.element("#slot-a .picture").get_attribute("aria-label")
            self.assertIn(f"{width} x {height}", label)
            # The face is where it was put.
            small, scale = largest(grey(FIRST)).record, height / 2 / 256
            middle, reduced = self.run_in_page(
                "const {face, seen} = slots.a; return [face.left + face.side / 2, seen.pictureWidth]")
            self.assertAlmostEqual(middle * width / reduced, 1000 + (small.left + small.side / 2) * scale,
                                   delta=small.side * scale / 8)  # fmt: skip
            self.run_in_page("slots.a.face = null")

    def test_sizes_are_reduced_to_what_the_library_and_phones_take(self):
        for width, height in ((16320, 12240), (20000, 300), (300, 65000), (8193, 10), (4096, 4096), (30, 30)):
            size = self.run_in_page(f"return workingSize({width}, {height})")
            self.assertLessEqual(size["width"] * size["height"], 1 << 24)
            self.assertLessEqual(max(size.values()), 8192)
            self.assertGreaterEqual(min(size.values()), 1)
            self.assertAlmostEqual(size["width"] / size["height"] / (width / height), 1, delta=0.15)
        self.assertEqual(self.run_in_page("return workingSize(4096, 4096)"), {"width": 4096, "height": 4096})

    def test_a_picture_that_lacks_its_last_bytes_is_read_as_far_as_it_goes(self):
        scene = background(640, 480)
        put(scene, FIRST, 100, 0)
        with temporary_folder() as folder:
            whole = save(folder / "whole.jpg", scene)
            (folder / "cut.jpg").write_bytes(whole.read_bytes()[:-5000])
            self.choose_and_wait("a", folder / "cut.jpg")
        self.assertIn("quality", self.note("a"))

    def test_a_dropped_picture_is_taken(self):
        self.run_in_page(DROP + "slots.a.stage.dispatchEvent(drop);")
        self.wait(lambda: self.has_face("a"))
        self.assertEqual(self.feature("a"), largest(grey(FIRST)).feature)

    def test_a_drop_beside_the_boxes_does_nothing(self):
        prevented = self.run_in_page(
            DROP + "document.querySelector('h1').dispatchEvent(drop); return drop.defaultPrevented")
        self.assertTrue(prevented)
        time.sleep(0.5)
        self.assertFalse(self.has_face("a") or self.has_face("b"))

    def test_samples_are_one_click_away(self):
        for slot in "ab":
            self.element(f"#slot-{slot} .sample").click()
            self.wait(lambda slot=slot: self.has_face(slot))
        self.assertNotIn("needed", self.verdict())

    def test_it_works_from_a_disk(self):
        self.open((PAGE / "index.html").as_uri())
        for slot, path in (("a", GROUP), ("b", FIRST)):
            self.element(f"#slot-{slot} .sample").click()
            self.wait(lambda slot=slot: self.has_face(slot))
            self.assertEqual(self.feature(slot), largest(grey(path)).feature)


class Surroundings(PageTest):
    def test_nothing_but_the_page_itself_is_asked_for(self):
        self.browser.get_log("performance")
        self.open(self.address + "index.html")
        for slot in "ab":
            self.element(f"#slot-{slot} .sample").click()
            self.wait(lambda slot=slot: self.has_face(slot))
        asked = []
        for entry in self.browser.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                asked.append(message["params"]["request"]["url"])
        self.assertGreater(len(asked), 3)
        for url in asked:
            self.assertTrue(url.startswith((self.address, "data:", "blob:")), url)

    def test_the_page_cannot_send_anything_elsewhere(self):
        blocked = self.browser.execute_async_script(
            "const done = arguments[0];"
            "fetch('http://127.0.0.1:9/').then(() => done('sent'), (error) => done(error.name));"
        )
        self.assertEqual(blocked, "TypeError")
        self.assertTrue(any("Content Security Policy" in entry["message"] for entry in
                            self.browser.get_log("browser")))  # fmt: skip

    def test_it_fits_a_phone(self):
        self.browser.set_window_size(390, 844)
        try:
            for slot in "ab":
                self.choose_and_wait(slot, FIRST)
            wide = self.run_in_page(
                "return document.documentElement.scrollWidth - document.documentElement.clientWidth"
            )
            self.assertLessEqual(wide, 0)
        finally:
            self.browser.set_window_size(1000, 1200)

    def test_every_control_has_a_name_of_its_own(self):
        names = []
        for control in self.browser.find_elements(By.CSS_SELECTOR, "main > section button, input"):
            if control.is_displayed() or control.tag_name == "input":  # which its label covers
                self.assertTrue(control.accessible_name, control.get_attribute("outerHTML"))
                names.append(control.accessible_name)
        self.assertGreaterEqual(len(names), 6)
        self.assertEqual(len(names), len(set(names)), names)
        for text in ("Choose a picture", "Use the camera"):
            for which in ("first", "second"):
                self.assertTrue(any(name.startswith(text) and which in name for name in names), names)

    def test_the_drop_zone_can_be_seen_in_light_and_in_dark(self):
        colours = (
            "const of = (selector, property) => getComputedStyle(document.querySelector(selector))[property];"
            "return [of('body', 'backgroundColor'), of('.stage', 'borderTopColor'), of('.hint', 'color')]"
        )
        papers = set()
        for scheme in ("light", "dark"):
            self.browser.execute_cdp_cmd(
                "Emulation.setEmulatedMedia",
                {"features": [{"name": "prefers-color-scheme", "value": scheme}]},
            )
            paper, border, hint = self.run_in_page(colours)
            papers.add(paper)
            self.assertGreaterEqual(contrast(paper, border), 3, scheme)
            self.assertGreaterEqual(contrast(paper, hint), 4.5, scheme)
        self.assertEqual(len(papers), 2)
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": []})

    def test_a_link_leads_to_the_project(self):
        link = self.element("#project")
        self.assertTrue(link.is_displayed())
        address = link.get_attribute("href")
        if address.startswith(self.address):
            self.browser.get(address)
            self.assertIn("# Orvo FR", self.browser.page_source)
        else:
            self.assertTrue(address.startswith("https://"), address)

    def test_without_a_camera_the_page_says_so(self):
        self.element("#slot-b .camera").click()
        self.wait(lambda: self.note("b"))
        self.assertRegex(self.note("b"), "no camera|not allowed|cannot be used")


class CameraTest(PageTest):
    @classmethod
    def scene(cls):
        raise NotImplementedError

    @classmethod
    def setUpClass(cls):
        if cls is CameraTest:
            raise unittest.SkipTest("what the camera's tests share")
        folder = temporary_folder()
        film = folder.__enter__() / "film.y4m"
        cls.addClassCleanup(folder.__exit__, None, None, None)
        write_video(film, cls.scene())
        cls.arguments = (
            "--use-fake-ui-for-media-stream",
            "--use-fake-device-for-media-stream",
            f"--use-file-for-fake-video-capture={film}",
        )
        super().setUpClass()

    def open_camera(self, slot):
        self.element(f"#slot-{slot} .camera").click()
        self.wait(lambda: self.element("#camera").is_displayed())
        self.wait(lambda: self.run_in_page("return video.videoWidth") == 640)


class Camera(CameraTest):
    @classmethod
    def scene(cls):
        return two_people()

    def test_the_camera_recognises_the_person_in_its_film(self):
        self.choose_and_wait("b", OTHER)
        self.open_camera("a")
        self.wait(lambda: "the same person" in self.text("#live-result .verdict"))
        self.element("#take").click()
        self.wait(lambda: self.has_face("a"))
        self.assertFalse(self.element("#camera").is_displayed())
        # A film's colours are converted, so its feature is close to the picture's, not the same.
        a = np.frombuffer(self.feature("a"), np.float32)
        taken = np.frombuffer(largest(two_people()).feature, np.float32)
        self.assertGreater(float(a @ taken), 0.7)
        self.assertIn("the same person", self.verdict())
        self.assertEqual(len(self.browser.find_elements(By.CSS_SELECTOR, "#slot-a .pick")), 2)

    def test_every_frame_is_looked_at_until_the_camera_is_closed(self):
        self.run_in_page(
            "window.looks = 0; const look = lookAtFrame; lookAtFrame = () => { ++looks; look(); };")
        self.choose_and_wait("b", FIRST)
        self.open_camera("a")
        self.wait(lambda: self.run_in_page("return looks") >= 5)
        self.assertIn("different people", self.text("#live-result .verdict"))
        self.assertIn("Good enough", self.text("#camera .note"))
        self.assertFalse(self.has_face("a"))
        self.element("#close").click()
        self.assertIsNone(self.run_in_page("return camera.stream"))
        looks = self.run_in_page("return looks")
        time.sleep(1)
        self.assertEqual(self.run_in_page("return looks"), looks)

    def test_boxes_lie_over_the_video_and_the_verdict_inside_the_dialog(self):
        self.choose_and_wait("b", OTHER)
        self.open_camera("a")
        self.wait(lambda: "person" in self.text("#live-result .verdict"))
        video, boxes, dialog, verdict = (
            self.element(selector).rect
            for selector in ("video", "#camera .boxes", "#camera", "#live-result .verdict")
        )
        self.assertEqual(video, boxes)
        self.assertLess(verdict["y"] + verdict["height"], dialog["y"] + dialog["height"])
        self.assertGreater(verdict["y"], video["y"])
        drawn = self.run_in_page(
            "const data = liveBoxes.getContext('2d').getImageData(0, 0, 640, 480).data; let count = 0;"
            "for (let i = 3; i < data.length; i += 4) count += data[i] > 0; return count")
        self.assertGreater(drawn, 500)
        self.element("#close").click()

    def test_the_live_view_speaks_through_the_dialog(self):
        self.choose_and_wait("b", FIRST)
        self.open_camera("a")
        said = "return document.getElementById('live-status').textContent"
        self.wait(lambda: "different people" in self.run_in_page(said))
        self.element("#close").click()

    def test_the_camera_can_be_turned(self):
        self.run_in_page(
            "window.asked = []; const media = navigator.mediaDevices, get = media.getUserMedia.bind(media);"
            "media.getUserMedia = (wanted) => { asked.push(wanted.video); return get(wanted); };"
            "media.enumerateDevices = async () => [{kind: 'videoinput', deviceId: '1'},"
            "                                      {kind: 'videoinput', deviceId: '2'}];"
            "const settings = MediaStreamTrack.prototype.getSettings;"
            "MediaStreamTrack.prototype.getSettings = function () {"
            "  return {...settings.call(this), facingMode: asked.at(-1).facingMode}; };"
        )
        self.open_camera("a")
        self.wait(lambda: self.text("#turn") == "Use the back camera")
        self.assertIn("mirrored", self.element(".live").get_attribute("class"))
        self.element("#turn").click()
        self.wait(lambda: self.text("#turn") == "Use the front camera")
        self.assertNotIn("mirrored", self.element(".live").get_attribute("class"))
        self.assertEqual([wanted["facingMode"] for wanted in self.run_in_page("return asked")],
                         ["user", "environment"])  # fmt: skip
        self.element("#close").click()


class CameraWithoutFace(CameraTest):
    @classmethod
    def scene(cls):
        return background(640, 480)

    def test_where_nobody_is_seen_nothing_is_taken(self):
        self.open_camera("a")
        self.wait(lambda: "No face is seen" in self.text("#camera .note"))
        self.element("#take").click()
        self.assertTrue(self.element("#camera").is_displayed())
        self.assertFalse(self.has_face("a"))
        self.element("#close").click()


class PoorCamera(CameraTest):
    @classmethod
    def scene(cls):
        frame = background(640, 480)
        frame[100:356, 200:456] = blurred(AGAIN)
        return frame

    def test_the_live_view_says_why_a_face_is_not_good_enough(self):
        self.choose_and_wait("b", AGAIN)
        self.open_camera("a")
        self.wait(lambda: "Not good enough: blurred" in self.text("#camera .note"))
        self.wait(lambda: "No verdict: the first face is blurred" in self.text("#live-result .verdict"))
        self.element("#close").click()


if __name__ == "__main__":
    unittest.main()

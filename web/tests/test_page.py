# SPDX-License-Identifier: MIT
"""The page in headless Chromium, with a camera that is a file."""
import functools
import http.server
import json
import struct
import threading
import unittest

import numpy as np
from native import PAGE, SAMPLES, grey, native_features, temporary_folder
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

PATIENCE = 120  # seconds; the machine may be busy
FIRST, SECOND, OTHER = (SAMPLES / name for name in ("joe-1.png", "joe-2.png", "lena-1.png"))


class QuietHandler(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *arguments):
        pass


def serve():
    handler = functools.partial(QuietHandler, directory=str(PAGE))
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

    def has_face(self, slot):
        return self.browser.execute_script(f"return slots.{slot}.face !== null")

    def feature(self, slot):
        values = self.browser.execute_script(f"return Array.from(slots.{slot}.face.feature)")
        return struct.pack("<128f", *values)


class Pictures(PageTest):
    def test_chosen_pictures_give_the_native_features_bit_for_bit(self):
        for path in sorted(SAMPLES.glob("*-1.png")):
            self.browser.execute_script("slots.a.face = null")
            self.choose("a", path)
            self.wait(lambda: self.has_face("a"))
            self.assertEqual(self.feature("a"), native_features([path]), path.name)

    def test_distance_is_the_native_one_and_is_put_in_words(self):
        self.assertEqual(self.text("#verdict"), "Two faces are needed.")
        self.choose("a", FIRST)
        self.wait(lambda: self.has_face("a"))
        self.assertEqual(self.text("#verdict"), "One more face is needed.")
        self.choose("b", SECOND)
        self.wait(lambda: self.has_face("b"))
        a, b = np.frombuffer(native_features([FIRST, SECOND]), np.float32).reshape(2, 128)
        self.assertAlmostEqual(float(self.text("#distance")), float(a @ b), delta=6e-4)
        self.assertIn("the same person", self.text("#verdict"))
        self.browser.execute_script("slots.b.face = null")
        self.choose("b", OTHER)
        self.wait(lambda: self.has_face("b"))
        self.assertEqual(self.text("#verdict"), "Probably different people")

    def test_words_go_by_the_thresholds_that_were_measured_on_real_faces(self):
        record = json.loads((SAMPLES.parent / "models/thresholds.json").read_text())["thresholds"]
        _, hundredth, thousandth = [one["threshold"] for one in record["at"][:3]]
        says = lambda distance: self.browser.execute_script(f"return verdict({distance})")  # noqa: E731
        self.assertEqual(says(thousandth), "Probably the same person")
        self.assertEqual(says(thousandth - 1e-4), "Perhaps the same person")
        self.assertEqual(says(hundredth), "Perhaps the same person")
        self.assertEqual(says(hundredth - 1e-4), "Probably different people")
        text = self.browser.execute_script("return document.getElementById('thresholds').textContent")
        for part in (record["measured_on"], f"{hundredth:.4f}", f"{thousandth:.4f}", record["warning"]):
            self.assertIn(part, text)

    def test_a_picture_without_structure_is_refused_and_the_face_stays(self):
        self.choose("a", FIRST)
        self.wait(lambda: self.has_face("a"))
        before = self.feature("a")
        self.browser.execute_script(
            "const canvas = document.createElement('canvas'); canvas.width = canvas.height = 300;"
            "const pen = canvas.getContext('2d'); pen.fillStyle = '#808890'; pen.fillRect(0, 0, 300, 300);"
            "canvas.toBlob((blob) => takeFile(slots.a, blob));"
        )
        self.wait(lambda: self.text("#slot-a .message"))
        self.assertIn("shows no structure", self.text("#slot-a .message"))
        self.assertEqual(self.feature("a"), before)

    def test_the_first_lines_say_what_the_page_does_not_know(self):
        self.assertIn("does not know whether there is a face", self.text("header"))

    def test_samples_are_one_click_away(self):
        for slot in "ab":
            self.element(f"#slot-{slot} .sample").click()
            self.wait(lambda slot=slot: self.has_face(slot))
        self.assertNotIn("needed", self.text("#verdict"))

    def test_what_is_no_picture_is_said_and_the_face_stays(self):
        self.choose("a", FIRST)
        self.wait(lambda: self.has_face("a"))
        before = self.feature("a")
        with temporary_folder() as folder:
            (folder / "text.jpg").write_text("no picture")
            self.choose("a", folder / "text.jpg")
            self.wait(lambda: self.text("#slot-a .message"))
        self.assertIn("not a picture", self.text("#slot-a .message"))
        self.assertEqual(self.feature("a"), before)
        self.choose("a", SECOND)
        self.wait(lambda: self.feature("a") != before)
        self.assertEqual(self.text("#slot-a .message"), "")

    def test_a_tiny_picture_is_refused(self):
        self.browser.execute_script(
            "const canvas = document.createElement('canvas'); canvas.width = canvas.height = 1;"
            "canvas.toBlob((blob) => takeFile(slots.a, blob));"
        )
        self.wait(lambda: self.text("#slot-a .message"))
        self.assertIn("too small", self.text("#slot-a .message"))

    def test_a_huge_picture_is_refused(self):
        self.browser.execute_script(
            "const canvas = document.createElement('canvas'); canvas.width = 6000;"
            "canvas.height = 4001; canvas.toBlob((blob) => takeFile(slots.a, blob));"
        )
        self.wait(lambda: self.text("#slot-a .message"))
        self.assertIn("24 megapixels", self.text("#slot-a .message"))

    def test_a_dropped_picture_is_taken(self):
        self.browser.execute_script(
            "fetchless = new DataTransfer(); const text = atob(ORVO_SAMPLES.a.split(',')[1]);"
            "fetchless.items.add(new File([Uint8Array.from(text, (c) => c.charCodeAt(0))], 'a.png'));"
            "slots.a.stage.dispatchEvent(new DragEvent('drop', {dataTransfer: fetchless, bubbles: true}));"
        )
        self.wait(lambda: self.has_face("a"))
        self.assertEqual(self.feature("a"), native_features([SAMPLES / "cleo-1.png"]))

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

    def test_it_works_from_a_disk(self):
        self.open((PAGE / "index.html").as_uri())
        self.element("#slot-a .sample").click()
        self.wait(lambda: self.has_face("a"))
        self.assertEqual(self.feature("a"), native_features([SAMPLES / "cleo-1.png"]))

    def test_it_fits_a_phone(self):
        self.browser.set_window_size(390, 844)
        try:
            wide = self.browser.execute_script(
                "return document.documentElement.scrollWidth - document.documentElement.clientWidth"
            )
            self.assertLessEqual(wide, 0)
        finally:
            self.browser.set_window_size(1000, 1200)

    def test_every_control_has_a_name(self):
        for control in self.browser.find_elements(By.CSS_SELECTOR, "button, input, canvas"):
            name = control.accessible_name
            if control.is_displayed():
                self.assertTrue(name, control.get_attribute("outerHTML"))

    def test_without_a_camera_the_page_says_so(self):
        self.element("#slot-b .camera").click()
        self.wait(lambda: self.text("#slot-b .message"))
        self.assertRegex(self.text("#slot-b .message"), "no camera|not allowed|cannot be used")


class Camera(PageTest):
    @classmethod
    def setUpClass(cls):
        folder = temporary_folder()
        film = folder.__enter__() / "film.y4m"
        cls.addClassCleanup(folder.__exit__, None, None, None)
        frame = np.full((480, 640), 90, np.uint8)
        frame[:, 80:560] = np.kron(grey(FIRST), np.ones((2, 2), np.uint8))[16:496, 16:496]
        write_video(film, frame)
        cls.arguments = (
            "--use-fake-ui-for-media-stream",
            "--use-fake-device-for-media-stream",
            f"--use-file-for-fake-video-capture={film}",
        )
        super().setUpClass()

    def test_the_camera_recognises_the_person_in_its_film(self):
        self.choose("b", SECOND)
        self.wait(lambda: self.has_face("b"))
        self.element("#slot-a .camera").click()
        self.wait(lambda: self.element("#camera").is_displayed())
        self.wait(lambda: self.browser.execute_script(
            "return document.querySelector('video').videoWidth") == 640)  # fmt: skip
        self.element("#take").click()
        self.wait(lambda: self.has_face("a"))
        self.assertFalse(self.element("#camera").is_displayed())
        # A film's colours are converted, so its feature is close to the picture's, not the same.
        a = np.frombuffer(self.feature("a"), np.float32)
        first = np.frombuffer(native_features([FIRST]), np.float32)
        self.assertGreater(float(a @ first), 0.7)
        self.assertIn("the same person", self.text("#verdict"))

    def test_live_comparison_goes_on_until_the_camera_is_closed(self):
        self.choose("b", SECOND)
        self.wait(lambda: self.has_face("b"))
        self.element("#slot-a .camera").click()
        self.wait(lambda: self.element("#camera").is_displayed())
        self.element("#live").click()
        self.assertEqual(self.element("#live").get_attribute("aria-pressed"), "true")
        for _ in range(2):
            self.browser.execute_script("slots.a.face = null")
            self.wait(lambda: self.has_face("a"))
        self.element("#close").click()
        running = self.browser.execute_script("return camera.stream !== null || camera.timer !== 0")
        self.assertFalse(running)


if __name__ == "__main__":
    unittest.main()

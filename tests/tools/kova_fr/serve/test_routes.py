# SPDX-License-Identifier: MIT
"""Every route, asked well and badly; answers are compared with the command line's."""
import contextlib
import json
import math
import os
import struct
import subprocess
import unittest
import zlib
from pathlib import Path

import service
from service import (ONE, OTHER, POOR, SAME, THIRD, TOKEN, ServiceTest, base64_of, command_line, feature_text,
                     picture_of, sample)

ADA, ADA_2, DAN = (picture_of(name) for name in (ONE, SAME, OTHER))


def grey_png(width, height, value=128):
    """Without anything in it."""
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data)))
    rows = (b"\0" + bytes([value]) * width) * height
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 0, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


class Pictures(ServiceTest):
    def setUp(self):
        super().setUp()
        self.service = self.serve("--gallery", self.gallery)

    def feature(self, name):
        return self.service.post("/v1/extract", {"picture": base64_of(sample(name))}).json[
            "faces"][0]["feature"]

    def test_find_finds_what_the_command_line_finds(self):
        found = self.service.post("/v1/find", {"picture": base64_of(sample(ONE))})
        self.assertEqual(found.status, 200, found.body)
        wanted = command_line("find", "--json", ADA)["pictures"][0]["faces"]
        self.assertGreaterEqual(len(wanted), 1)
        self.assertEqual(found.json["faces"], wanted)
        form = self.service.post_form("/v1/find", [("picture", sample(ONE)), ("most", "1")])
        self.assertEqual(form.json["faces"], wanted[:1])
        least = self.service.post("/v1/find", {"picture": base64_of(sample(ONE)),
                                               "smallest": 60})
        self.assertEqual(least.json["faces"],
                         command_line("find", "--json", "--smallest", "60", ADA)["pictures"][0][
                             "faces"])
        empty = self.service.post("/v1/find", {"picture": base64_of(grey_png(64, 64))})
        self.assertEqual((empty.status, empty.json), (200, {"faces": []}))

    def test_extract_gives_the_features_of_the_command_line(self):
        wanted = command_line("extract", "--json", ADA)["pictures"][0]["feature"]
        answer = self.service.post("/v1/extract", {"picture": base64_of(sample(ONE))})
        self.assertEqual(answer.status, 200, answer.body)
        self.assertEqual(answer.json["faces"][0]["feature"], wanted)
        self.assertIn("quality", answer.json["faces"][0])
        form = self.service.post_form("/v1/extract", [("picture", sample(ONE)),
                                                      ("picture", sample(OTHER))])
        self.assertEqual([face["feature"] for face in form.json["faces"]],
                         [wanted, command_line("extract", "--json", DAN)["pictures"][0]["feature"]])

    def test_a_crop_is_taken_as_it_is(self):
        wanted = command_line("extract", "--crop", "--json", ADA)["pictures"][0]["feature"]
        for answer in (self.service.post("/v1/extract", {"picture": base64_of(sample(ONE)),
                                                         "crop": True}),
                       self.service.post_form("/v1/extract", [("crop", "true"),
                                                              ("picture", sample(ONE))])):
            self.assertEqual(answer.json, {"faces": [{"feature": wanted}]})
        wall = self.service.post("/v1/extract", {"picture": base64_of(grey_png(64, 64)),
                                                 "crop": True})
        self.refused(wall, 422, "shows no structure")

    def test_features_come_back_as_they_went_in(self):
        feature = self.feature(ONE)
        for given in (feature, feature_text(feature)):
            answer = self.service.post("/v1/extract", {"feature": given})
            self.assertEqual(answer.json, {"faces": [{"feature": feature}]})
        form = self.service.post_form("/v1/extract", [("feature", struct.pack("<128f", *feature)),
                                                      ("feature", feature_text(feature))])
        self.assertEqual(form.json["faces"], 2 * [{"feature": feature}])
        both = self.service.post("/v1/extract", {"features": [feature, feature_text(feature)]})
        self.assertEqual(both.json["faces"], 2 * [{"feature": feature}])

    def test_compare_gives_the_distance_of_the_command_line(self):
        wanted = command_line("compare", "--json", ADA, DAN)["distances"][0][1]
        pictures = {"pictures": [base64_of(sample(ONE)), base64_of(sample(OTHER))]}
        answer = self.service.post("/v1/compare", pictures)
        self.assertEqual(answer.json["distance"], wanted)
        self.assertNotIn("reached", answer.json)
        mixed = {"picture": pictures["pictures"][0], "feature": self.feature(OTHER),
                 "threshold": wanted}
        self.assertEqual(self.service.post("/v1/compare", mixed).json["distance"], wanted)
        self.assertIs(self.service.post("/v1/compare", mixed).json["reached"], True)
        mixed["threshold"] = wanted + 1e-4
        self.assertIs(self.service.post("/v1/compare", mixed).json["reached"], False)
        self.refused(self.service.post("/v1/compare", {"picture": pictures["pictures"][0]}),
                     400, "two")

    def test_identify_names_whom_the_command_line_names(self):
        for name, picture in (("ada", ADA), ("dan", DAN)):
            command_line("enroll", "--json", self.gallery, name, picture)
        wanted = command_line("identify", "--json", self.gallery, ADA_2)
        for answer in (self.service.post("/v1/identify", {"picture": base64_of(sample(SAME))}),
                       self.service.post_form("/v1/identify", [("picture", sample(SAME))]),
                       self.service.post("/v1/identify", {"feature": self.feature(SAME)}),
                       self.service.post("/v1/identify?gallery=people",
                                         {"feature": self.feature(SAME)})):
            self.assertEqual(answer.status, 200, answer.body)
            self.assertEqual(answer.json["features"], wanted["features"])
            self.assertEqual(answer.json["faces"][0]["matches"], wanted["pictures"][0]["matches"])
        top = {"feature": self.feature(SAME), "top": 1}
        self.assertEqual(len(self.service.post("/v1/identify", top).json["faces"][0]["matches"]), 1)
        top["threshold"] = 1
        self.assertEqual(self.service.post("/v1/identify", top).json["faces"][0]["matches"], [])

    def test_enrolled_people_are_those_of_the_command_line(self):
        answer = self.service.post("/v1/people", {"name": "ada", "picture": base64_of(sample(ONE))})
        self.assertEqual(answer.json, {"name": "ada", "added": 1, "features": 1})
        form = self.service.post_form("/v1/people", [("name", "J\u00fcrgen / Ben"),
                                                     ("picture", sample(OTHER)),
                                                     ("feature", feature_text(self.feature(THIRD)))])
        self.assertEqual(form.json, {"name": "J\u00fcrgen / Ben", "added": 2, "features": 3})
        wanted = command_line("gallery", "--json", self.gallery)["names"]
        self.assertEqual(wanted, [{"name": "J\u00fcrgen / Ben", "features": 2},
                                  {"name": "ada", "features": 1}])
        self.assertEqual(self.service.get("/v1/people").json, {"names": wanted})
        # What the command line adds meanwhile is seen.
        command_line("enroll", "--json", self.gallery, "eve", picture_of(THIRD))
        self.assertEqual(self.service.get("/v1/people").json["names"],
                         command_line("gallery", "--json", self.gallery)["names"])
        removed = self.service.ask("DELETE", "/v1/people/J%C3%BCrgen%20%2F%20Ben")
        self.assertEqual(removed.json, {"name": "J\u00fcrgen / Ben", "removed": 2})
        names = [entry["name"] for entry in command_line("gallery", "--json", self.gallery)["names"]]
        self.assertEqual(names, ["ada", "eve"])
        self.refused(self.service.ask("DELETE", "/v1/people/nobody"), 404, "nobody")

    def test_a_gallery_that_is_not_there_is_empty(self):
        self.assertEqual(self.service.get("/v1/people").json, {"names": []})
        answer = self.service.post("/v1/identify", {"picture": base64_of(sample(SAME))})
        self.assertEqual((answer.json["features"], answer.json["faces"][0]["matches"]), (0, []))
        self.refused(self.service.ask("DELETE", "/v1/people/ada"), 404, "nobody")

    def test_pictures_without_a_good_face_are_refused_with_reasons(self):
        wall = base64_of(grey_png(200, 200))
        for path in ("/v1/extract", "/v1/identify"):
            self.refused(self.service.post(path, {"picture": wall}), 422, "no face")
        self.refused(self.service.post("/v1/people", {"name": "a", "picture": wall}), 422, "no face")
        poor = {"picture": base64_of(sample(POOR))}
        path = picture_of(POOR)
        reasons = command_line("find", "--json", path)["pictures"][0]["faces"][0]["reasons"]
        self.assertGreaterEqual(len(reasons), 1)
        for asked in ("/v1/extract", "/v1/identify", "/v1/people"):
            fields = {**poor, **({"name": "a"} if asked == "/v1/people" else {})}
            refusal = self.refused(self.service.post(asked, fields), 422, "quality is")
            self.assertEqual(refusal["reasons"], reasons)
        self.assertEqual(self.service.get("/v1/people").json, {"names": []})
        # Unless the request says that it will do.
        answer = self.service.post("/v1/extract", {**poor, "least_quality": 0})
        self.assertEqual(answer.json["faces"][0]["feature"],
                         command_line("extract", "--json", path)["pictures"][0]["feature"])
        strict = self.serve("--least-quality", "100")
        self.refused(strict.post("/v1/extract", {"picture": base64_of(sample(ONE))}), 422, "100 is needed")

    def test_pictures_that_are_none_are_refused(self):
        ask = lambda data: self.service.post("/v1/find", {"picture": base64_of(data)})
        self.refused(ask(b"no picture at all"), 415, "known kind")
        self.refused(ask(sample(ONE)[:2000]), 400, "cut short")
        self.refused(ask(b""), 400, "empty")
        self.refused(ask(grey_png(16, 16)), 422, "too small")
        self.refused(ask(grey_png(5000, 4000)), 413, "16 megapixels")
        self.assertEqual(ask(sample(ONE)).status, 200)

    def test_fields_that_are_wrong_are_refused(self):
        good = base64_of(sample(ONE))
        feature = self.feature(ONE)
        for fields, part in (
                ({}, "one picture"), ({"picture": 3}, "unknown"), ({"picture": "*"}, "Base64"),
                ({"picture": good, "pictures": [good]}, "one picture"),
                ({"picture": good, "most": 0}, "most"), ({"picture": good, "most": 1.5}, "most"),
                ({"picture": good, "most": True}, "unknown"),
                ({"picture": good, "most": "1"}, "unknown"),
                ({"picture": good, "smallest": 1e9}, "smallest"),
                ({"picture": good, "colour": 1}, "unknown"), ({"picture": {"a": 1}}, "form"),
                ([1, 2], "form"), ("text", "form"), (None, "form")):
            self.refused(self.service.post("/v1/find", fields), 400, part)
        scaled = [2 * value for value in feature]
        for bad, part in ((feature[:-1], "128 numbers"), (feature + [0], "form"),
                          (scaled, "unit length"), ([0] * 128, "unit length"), ([1e300] * 128, "unit length"),
                          ([math.nan] + feature[1:], "no JSON"), (feature_text(scaled), "unit length"),
                          ("AAAA", "128 numbers"), ([[feature]], "form")):
            self.refused(self.service.post("/v1/extract", {"feature": bad}), 400, part)
        for fields, part in (({"feature": feature}, "name"), ({"name": "a\nb", "feature": feature}, "name"),
                             ({"name": "", "feature": feature}, "name"),
                             ({"name": 1001 * "x", "feature": feature}, "1000"),
                             ({"name": "a"}, "neither a picture nor a feature"),
                             ({"name": "a", "feature": feature, "most": 2}, "most")):
            self.refused(self.service.post("/v1/people", fields), 400, part)
        for fields, part in (({"feature": feature, "top": 0}, "top"),
                             ({"feature": feature, "threshold": 2}, "threshold")):
            self.refused(self.service.post("/v1/identify", fields), 400, part)
        self.refused(self.service.post("/v1/extract", {"features": 65 * [feature_text(feature)]}),
                     413, "64")
        self.refused(self.service.post("/v1/identify?gallery=others", {"feature": feature}), 404, "gallery")
        self.assertEqual(self.service.get("/v1/people").json, {"names": []})

    def test_bodies_that_are_wrong_are_refused(self):
        def ask(body, kind="application/json", **headers):
            return self.service.ask("POST", "/v1/find", body, {"Content-Type": kind, **headers})
        for body in ("", "{", "{}x", '{"picture":"a"', "[" * 100000, '{"a":' * 100000,
                     '{"picture":"\ud800"}'.encode("utf-8", "surrogatepass")):
            answer = ask(body)
            self.assertEqual(answer.status, 400, body[:20])
            self.assertIn("error", answer.json)
        self.refused(ask(b"x", "image/png"), 415, "Content-Type")
        self.refused(ask(b"x", "application/jsonp"), 415, "Content-Type")
        self.refused(ask(b"{}", **{"Content-Encoding": "gzip"}), 415, "compressed")
        self.refused(ask(b"x", "multipart/form-data"), 400, "boundary")
        self.refused(ask(b"x", "multipart/form-data; boundary=" + 71 * "b"), 400, "boundary")
        form = "multipart/form-data; boundary=b"
        head = b'--b\r\nContent-Disposition: form-data; name="picture"\r\n\r\n'
        for body in (b"", b"--b", b"--b\r\n", head, head + b"\r\n", head + b"\r\n--b", b"x" + head,
                     b'--b\r\nContent-Disposition: form-data; name="\r\n\r\n\r\n--b--',
                     b"--b\r\n\r\n\r\n--b--", b"--b\r\n" + 100000 * b"x" + b"\r\n\r\n\r\n--b--",
                     b"--b\r\nContent-Disposition: form-data; " + 3000 * b'name="' + b"\r\n\r\n\r\n--b--"):
            self.assertEqual(ask(body, form).status, 400, body[:60])
        self.assertEqual(self.service.get("/health").status, 200)


class Paths(ServiceTest):
    def test_what_is_not_there_and_what_is_asked_wrongly(self):
        running = self.serve("--gallery", self.gallery)
        for path in ("/", "/v1", "/v1/", "/v1/find/", "/v2/find", "/v1/people/", "/health/x",
                     "/../etc/passwd", "/%2e%2e/etc/passwd"):
            self.refused(running.get(path), 404, "openapi")
        for method, path, allowed in (("GET", "/v1/find", "POST"), ("DELETE", "/v1/people", "GET, HEAD, POST"),
                                      ("POST", "/health", "GET, HEAD"), ("PUT", "/v1/people/ada", "DELETE"),
                                      ("PATCH", "/v1/info", "GET, HEAD"), ("OPTIONS", "/v1/compare", "POST")):
            answer = running.ask(method, path)
            self.refused(answer, 405, "asked by")
            self.assertEqual(answer.headers["Allow"], allowed)
        head = running.ask("HEAD", "/health")
        self.assertEqual((head.status, head.body), (200, b""))
        self.refused(running.ask("GET", "/health", "a body"), 400, "no body")

    def test_health_info_and_metrics(self):
        running = self.serve("--gallery", self.gallery, "--connections", "7")
        self.assertEqual(running.get("/health").json, {"status": "ok"})
        info = running.get("/v1/info").json
        version = subprocess.run([service.PROGRAM, "--version"], capture_output=True, text=True, check=True)
        self.assertIn(f"kova-fr {info['version']}\n", version.stdout)
        self.assertIn("cpp-httplib", version.stdout)
        self.assertEqual(len(info["models_sha256"]), 64)
        self.assertEqual(info["galleries"], [{"name": "people", "features": 0}])
        self.assertEqual(info["limits"]["connections"], 7)
        running.post("/v1/people", {"name": "ada", "picture": base64_of(sample(ONE))})
        running.post("/v1/people", {"name": "ada"})
        running.get("/nothing/of/ada")
        text = running.get("/metrics").body.decode()
        samples = dict(line.rsplit(" ", 1) for line in text.splitlines() if not line.startswith("#"))
        self.assertEqual(samples['kova_fr_requests_total{route="/v1/people",status="200"}'], "1")
        self.assertEqual(samples['kova_fr_requests_total{route="/v1/people",status="400"}'], "1")
        self.assertEqual(samples['kova_fr_requests_total{route="none",status="404"}'], "1")
        self.assertEqual(samples['kova_fr_gallery_features{gallery="people"}'], "1")
        self.assertEqual(samples["kova_fr_faces_total"], "1")
        self.assertEqual(samples['kova_fr_request_seconds_count{route="/v1/people"}'], "2")
        self.assertEqual(samples['kova_fr_request_seconds_bucket{route="/v1/people",le="+Inf"}'], "2")
        self.assertGreater(float(samples["process_resident_memory_bytes"]), 1e6)
        self.assertNotIn("ada", text)
        for line in text.splitlines():
            self.assertRegex(line, r'^(# (HELP|TYPE) \w+ .+|\w+(\{(\w+="[^"]*",?)+\})? [-+.\w]+)$')

    def test_the_description_holds_together(self):
        running = self.serve()
        text = running.get("/openapi.json").body.decode()
        description = json.loads(text)
        self.assertTrue(description["openapi"].startswith("3."))

        def look(value):
            if isinstance(value, dict):
                if "$ref" in value:
                    target = description
                    for step in value["$ref"].removeprefix("#/").split("/"):
                        target = target[step]
                for inner in value.values():
                    look(inner)
            elif isinstance(value, list):
                for inner in value:
                    look(inner)
        look(description)
        names = [operation["operationId"] for path in description["paths"].values()
                 for operation in path.values()]
        self.assertEqual(len(names), len(set(names)))

    def test_several_galleries_are_told_apart(self):
        other = self.gallery.replace("people", "staff")
        running = self.serve("--gallery", self.gallery, "--gallery", other)
        picture = {"name": "ada", "picture": base64_of(sample(ONE))}
        self.refused(running.post("/v1/people", picture), 400, "several galleries")
        self.assertEqual(running.post("/v1/people?gallery=staff", picture).status, 200)
        self.assertEqual(running.get("/v1/people?gallery=people").json, {"names": []})
        self.assertEqual(running.get("/v1/people?gallery=staff").json["names"][0]["name"], "ada")
        none = self.serve()
        self.refused(none.get("/v1/people"), 400, "--gallery")

    def test_a_damaged_gallery_is_said_in_the_log_and_not_changed(self):
        running = self.serve("--gallery", self.gallery)
        running.post("/v1/people", {"name": "ada", "picture": base64_of(sample(ONE))})
        with open(self.gallery, "r+b") as file:
            file.seek(200)
            file.write(b"damage")
        damaged = Path(self.gallery).read_bytes()
        answer = running.post("/v1/identify", {"picture": base64_of(sample(ONE))})
        self.assertNotIn(self.gallery, self.refused(answer, 500, "log")["error"])
        self.assertIn("damaged", running.stderr())
        self.assertEqual(Path(self.gallery).read_bytes(), damaged)


class Tokens(ServiceTest):
    def test_only_who_has_the_token_is_answered(self):
        running = self.serve("--gallery", self.gallery, token=TOKEN)
        self.assertEqual(running.get("/v1/info").status, 200)
        for wrong in (None, "", TOKEN, "Bearer", "Bearer ", f"Bearer {TOKEN}x", f"Bearer {TOKEN[:-1]}",
                      f"Bearer  {TOKEN}", f"Basic {TOKEN}", f"Bearer {TOKEN.upper()}"):
            running.token = None
            headers = {} if wrong is None else {"Authorization": wrong}
            for method, path in (("GET", "/v1/info"), ("GET", "/metrics"), ("GET", "/v1/people"),
                                 ("POST", "/v1/identify"), ("DELETE", "/v1/people/a"), ("GET", "/no/such")):
                answer = running.ask(method, path, headers=headers)
                self.refused(answer, 401, "token")
                self.assertEqual(answer.headers["WWW-Authenticate"], "Bearer")
        self.assertEqual(running.get("/health").status, 200)
        self.assertEqual(running.get("/openapi.json").status, 200)

    def test_the_token_of_a_file(self):
        path = f"{self.folder.name}/token"
        with open(path, "w", encoding="ascii") as file:
            file.write(TOKEN + "\nsecond line\n")
        os.chmod(path, 0o600)
        running = self.serve("--token-file", path)
        self.assertEqual(running.get("/v1/info").status, 401)
        running.token = TOKEN
        self.assertEqual(running.get("/v1/info").status, 200)
        os.chmod(path, 0o644)
        self.refuses_to_start("chmod 600", "--token-file", path)
        os.chmod(path, 0o600)
        with open(path, "w", encoding="ascii") as file:
            file.write("short\n")
        self.refuses_to_start("openssl rand", "--token-file", path)
        self.refuses_to_start("cannot be opened", "--token-file", path + "x")

    def refuses_to_start(self, part, *arguments):
        run = command_line("serve", *arguments, fails=True)
        self.assertEqual(run.returncode, 1)
        self.assertIn(part, run.stderr)
        self.assertEqual(run.stderr.count("\n"), 1)

    def test_beyond_this_machine_a_token_is_needed(self):
        self.refuses_to_start("token", "--port", "0", "--address", "0.0.0.0")
        self.refuses_to_start("token", "--port", "0", "--address", "::")
        self.refuses_to_start("no address", "--port", "0", "--address", "127.here")
        running = self.serve("--address", "0.0.0.0", token=TOKEN)
        running.host = "127.0.0.1"
        self.assertEqual(running.get("/v1/info").status, 200)
        self.refuses_to_start("--port", "--port", str(running.port))

    def test_the_token_is_nowhere_to_be_read(self):
        running = self.serve("--log", token=TOKEN)
        running.get("/v1/info")
        process = f"/proc/{running.process.pid}"
        for name in ("environ", "cmdline"):
            with open(f"{process}/{name}", "rb") as file:
                self.assertNotIn(TOKEN.encode(), file.read())
        self.assertIn("GET /v1/info 200", running.stderr())
        self.assertNotIn(TOKEN, running.stderr())

    def test_without_a_token_pages_in_browsers_are_not_answered(self):
        running = self.serve("--gallery", self.gallery)
        for headers in ({"Origin": "https://example.org"}, {"Origin": "null"}, {"Host": "example.org"},
                        {"Host": "127.0.0.1.example.org"}, {"Host": f"example.org:{running.port}"}):
            for method, path in (("GET", "/v1/people"), ("DELETE", "/v1/people/a"), ("POST", "/v1/people")):
                self.refused(running.ask(method, path, headers=headers), 403, "token")
        for host in ("localhost", f"localhost:{running.port}", "127.0.0.1", f"[::1]:{running.port}"):
            self.assertEqual(running.get("/v1/people", headers={"Host": host}).status, 200)


class Traces(ServiceTest):
    def test_nothing_is_kept_of_pictures(self):
        temporary = Path(self.folder.name) / "tmp"
        temporary.mkdir()
        running = self.serve("--gallery", self.gallery, "--log",
                             environment={"TMPDIR": str(temporary), "HOME": str(temporary)})
        running.post("/v1/people", {"name": "ada", "picture": base64_of(sample(ONE))})
        running.post_form("/v1/identify", [("picture", sample(SAME))])
        running.ask("DELETE", "/v1/people/ada")
        running.post("/v1/find", {"picture": base64_of(sample(ONE)[:3000])})
        self.assertEqual(list(temporary.iterdir()), [])
        self.assertEqual(sorted(os.listdir(self.folder.name)), ["people.gallery", "tmp"])
        log = running.stderr()
        self.assertEqual(len(log.splitlines()), 4, log)
        self.assertNotIn("ada", log)
        for descriptor in Path(f"/proc/{running.process.pid}/fd").iterdir():
            with contextlib.suppress(FileNotFoundError):  # closed since it was listed
                self.assertNotIn(str(temporary), os.readlink(descriptor))


if __name__ == "__main__":
    unittest.main()

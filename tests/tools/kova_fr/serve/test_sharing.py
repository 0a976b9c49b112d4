# SPDX-License-Identifier: MIT
"""Many clients at once, the command line beside them, and a service that is killed."""
import fcntl
import os
import random
import signal
import threading
import time
import unittest
from http.client import HTTPException

from service import (ONE, OTHER, PATIENCE, PEOPLE, SAME, ServiceTest, base64_of, command_line, feature_text,
                     picture_of, sample)

NAMES = PEOPLE[:6]


class Together(ServiceTest):
    def test_many_clients_get_the_answers_of_the_command_line(self):
        for name in NAMES:
            command_line("enroll", "--json", self.gallery, name, picture_of(f"{name}-1"))
        pictures = {name: base64_of(sample(f"{name}-2")) for name in NAMES}
        wanted = {}
        for name in NAMES:
            path = picture_of(f"{name}-2")
            wanted[name] = {
                "find": command_line("find", "--json", path)["pictures"][0]["faces"],
                "extract": command_line("extract", "--json", path)["pictures"][0]["feature"],
                "identify": command_line("identify", "--json", self.gallery, path)["pictures"][0]["matches"]}
        running = self.serve("--gallery", self.gallery, "--waiting", "64")
        wrong = []

        def client(seed):
            chance = random.Random(seed)
            connection = running.connection()
            try:
                for _ in range(6):
                    name = chance.choice(NAMES)
                    kind = chance.choice(("find", "extract", "identify", "feature"))
                    if kind == "find":
                        got = running.post("/v1/find", {"picture": pictures[name]},
                                           connection=connection).json["faces"]
                    elif kind == "extract":
                        got = running.post("/v1/extract", {"picture": pictures[name]},
                                           connection=connection).json["faces"][0]["feature"]
                    elif kind == "identify":
                        got = running.post_form("/v1/identify", [("picture", sample(f"{name}-2"))],
                                                connection=connection).json["faces"][0]["matches"]
                    else:
                        got = running.post("/v1/identify", {"feature": wanted[name]["extract"]},
                                           connection=connection).json["faces"][0]["matches"]
                        kind = "identify"
                    if got != wanted[name][kind]:
                        wrong.append((name, kind, got))
            except (OSError, KeyError, ValueError) as error:
                wrong.append(error)
            connection.close()
        threads = [threading.Thread(target=client, args=(seed,)) for seed in range(24)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(wrong, [])

    def test_enrolments_by_many_and_by_the_command_line_are_all_kept(self):
        feature = command_line("extract", "--json", picture_of(ONE))["pictures"][0]["feature"]
        running = self.serve("--gallery", self.gallery, "--timeout", "30")
        failures = []

        def enrol(client):
            for i in range(10):
                answer = running.post("/v1/people", {"name": f"{client}-{i}", "feature": feature})
                if answer.status != 200:
                    failures.append(answer.body)
        threads = [threading.Thread(target=enrol, args=(client,)) for client in range(4)]
        for thread in threads:
            thread.start()
        for i in range(4):
            command_line("enroll", "--json", self.gallery, f"line-{i}", picture_of(OTHER))
            names = {entry["name"] for entry in running.get("/v1/people").json["names"]}
            self.assertIn(f"line-{i}", names)
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])
        wanted = sorted([f"{client}-{i}" for client in range(4) for i in range(10)] +
                        [f"line-{i}" for i in range(4)])
        self.assertEqual([entry["name"] for entry in command_line("gallery", "--json", self.gallery)["names"]],
                         wanted)

    def test_a_lock_that_others_hold_is_waited_for_only_so_long(self):
        running = self.serve("--gallery", self.gallery, "--timeout", "0.5")
        body = {"name": "ada", "picture": base64_of(sample(ONE))}
        folder = os.open(self.folder.name, os.O_RDONLY)
        fcntl.flock(folder, fcntl.LOCK_EX)
        answer = running.post("/v1/people", body)
        self.refused(answer, 503, "changed by others")
        self.assertEqual(answer.headers["Retry-After"], "1")
        os.close(folder)
        self.assertEqual(running.post("/v1/people", body).status, 200)


class Killed(ServiceTest):
    def test_what_was_acknowledged_is_there_after_a_kill(self):
        feature = command_line("extract", "--json", picture_of(ONE))["pictures"][0]["feature"]
        acknowledged = []
        lock = threading.Lock()
        chance = random.Random(17)
        rounds = 12
        for number in range(rounds):
            running = self.serve("--gallery", self.gallery)

            def enrol(client, running=running, number=number):
                for i in range(100000):
                    name = f"{number}-{client}-{i}"
                    try:
                        answer = running.post("/v1/people", {"name": name, "feature": feature})
                    except (OSError, ValueError, HTTPException):
                        return
                    if answer.status == 200 and answer.json["name"] == name:
                        with lock:
                            acknowledged.append(name)
            threads = [threading.Thread(target=enrol, args=(client,)) for client in range(3)]
            for thread in threads:
                thread.start()
            time.sleep((0.05 + 0.3 * chance.random()) * min(PATIENCE, 3))
            running.process.kill()
            running.process.wait()
            for thread in threads:
                thread.join()
            names = {entry["name"] for entry in command_line("gallery", "--json", self.gallery)["names"]} \
                if acknowledged else set()
            self.assertLessEqual(set(acknowledged), names)
            # One more for each client may be there that nobody has heard of.
            self.assertLessEqual(len(names), len(acknowledged) + 3 * (number + 1))
            self.end_killed(running)
        self.assertGreater(len(acknowledged), rounds)
        found = command_line("identify", "--json", "--top", "1", self.gallery,
                             picture_of(ONE))
        self.assertEqual(found["pictures"][0]["matches"][0]["distance"],
                         command_line("compare", "--json", *(2 * [picture_of(ONE)]))[
                             "distances"][0][1])

    def end_killed(self, running):
        running.process.stdout.close()
        running.errors.close()
        self.assertEqual(running.process.returncode, -signal.SIGKILL)

    def end(self, service_):
        if service_.process.returncode != -signal.SIGKILL:
            super().end(service_)


class Memory(ServiceTest):
    def test_ten_thousand_features_take_less_than_50_mb(self):
        if "sanitizer" in os.environ.get("KOVA_FR_BUILD", ""):
            self.skipTest("a sanitizer has memory of its own")
        running = self.serve("--gallery", self.gallery)
        feature = running.post("/v1/extract", {"picture": base64_of(sample(ONE))}).json["faces"][0]["feature"]
        for i in range(0, 10_000, 50):
            answer = running.post("/v1/people", {"name": f"person {i}",
                                                 "features": 50 * [feature_text(feature)]})
            self.assertEqual(answer.status, 200, answer.body)

        def ask():
            for _ in range(5):
                answer = running.post("/v1/identify", {"picture": base64_of(sample(SAME))})
                self.assertEqual((answer.status, answer.json["features"]), (200, 10_000))
        threads = [threading.Thread(target=ask) for _ in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        with open(f"/proc/{running.process.pid}/status", encoding="ascii") as file:
            sizes = dict(line.split(":", 1) for line in file)
        for name in ("VmRSS", "VmHWM"):
            self.assertLess(int(sizes[name].split()[0]), 50_000, name)


if __name__ == "__main__":
    unittest.main()

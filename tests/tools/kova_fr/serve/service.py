# SPDX-License-Identifier: MIT
"""A running kova-fr serve, the command line beside it, and ways to talk to it, also badly."""
import base64
import http.client
import json
import os
import socket
import struct
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

PROGRAM = os.environ["KOVA_FR"]
SAMPLES = Path(os.environ["ORVO_SAMPLES"])
# A sanitizer makes everything slower.
PATIENCE = float(os.environ.get("KOVA_FR_PATIENCE", "1"))
TOKEN = "0123456789abcdef0123456789abcdef"


def sample(name):
    return (SAMPLES / f"{name}.png").read_bytes()


def base64_of(data):
    return base64.b64encode(data).decode()


def feature_text(feature):
    return base64_of(struct.pack("<128f", *feature))


def command_line(*arguments, fails=False):
    """What kova-fr prints as JSON."""
    run = subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, check=False)
    if fails:
        return run
    if run.returncode != 0:
        raise AssertionError(f"{arguments}: {run.returncode} {run.stderr}")
    return json.loads(run.stdout)


def picture_of(name):
    return str(SAMPLES / f"{name}.png")


def grade():
    """The faces of all samples, by name: which are good depends on the model."""
    paths = sorted(SAMPLES.glob("*-[123].png"))
    pictures = command_line("find", "--json", *map(str, paths))["pictures"]
    return {path.stem: picture["faces"] for path, picture in zip(paths, pictures)}


FACES = grade()


def is_good(name):
    return len(FACES[name]) == 1 and FACES[name][0]["quality"] >= 40


# Of each of these people the first two pictures can be compared.
PEOPLE = [name[:-2] for name in FACES if name.endswith("-1") and is_good(name) and is_good(name[:-1] + "2")]
ONE, SAME, OTHER, THIRD = f"{PEOPLE[0]}-1", f"{PEOPLE[0]}-2", f"{PEOPLE[1]}-1", f"{PEOPLE[2]}-1"
POOR = min((name for name in FACES if len(FACES[name]) == 1 and FACES[name][0]["reasons"]),
           key=lambda name: FACES[name][0]["quality"])


class Answer:
    def __init__(self, response):
        self.status = response.status
        self.headers = response.headers
        self.body = response.read()

    @property
    def json(self):
        return json.loads(self.body)


class Service:
    """kova-fr serve on a free port, until close()."""

    def __init__(self, *arguments, token=None, environment=None):
        self.token = token
        surroundings = {**os.environ, **(environment or {})}
        if token is not None:
            surroundings["KOVA_FR_TOKEN"] = token
        self.errors = tempfile.TemporaryFile()
        self.process = subprocess.Popen([PROGRAM, "serve", "--port", "0", *arguments],
                                        stdout=subprocess.PIPE, stderr=self.errors,
                                        env=surroundings)
        line = self.process.stdout.readline().decode()
        if not line.startswith("http://"):
            self.process.wait()
            raise AssertionError(f"did not start: {line} {self.stderr()}")
        self.host, port = line.strip().removeprefix("http://").rsplit(":", 1)
        self.port = int(port)

    def stderr(self):
        self.errors.seek(0)
        return self.errors.read().decode()

    def close(self, end=None):
        """Ends it and returns its exit status."""
        if self.process.poll() is None:
            self.process.terminate() if end is None else self.process.send_signal(end)
        status = self.process.wait(60 * PATIENCE)
        self.process.stdout.close()
        return status

    def connection(self):
        return http.client.HTTPConnection(self.host.strip("[]"), self.port, timeout=60 * PATIENCE)

    def headers(self, more=None):
        authorization = {"Authorization": f"Bearer {self.token}"} if self.token else {}
        return {**authorization, **(more or {})}

    def ask(self, method, path, body=None, headers=None, connection=None):
        """A request as it stands, in a connection of its own if none is given."""
        used = connection or self.connection()
        used.request(method, path, body, self.headers(headers))
        answer = Answer(used.getresponse())
        if connection is None:
            used.close()
        return answer

    def get(self, path, **more):
        return self.ask("GET", path, **more)

    def post(self, path, fields, **more):
        return self.ask("POST", path, json.dumps(fields),
                        {"Content-Type": "application/json"}, **more)

    def post_form(self, path, parts, **more):
        """Parts are names and bytes or texts."""
        boundary = "a-boundary-of-theirs"
        body = b""
        for name, value in parts:
            data = value if isinstance(value, bytes) else value.encode()
            body += (f'--{boundary}\r\nContent-Disposition: form-data; name="{name}"; '
                     f'filename="name=x.png"\r\nContent-Type: image/png\r\n\r\n').encode()
            body += data + b"\r\n"
        body += f"--{boundary}--\r\n".encode()
        return self.ask("POST", path, body,
                        {"Content-Type": f"multipart/form-data; boundary={boundary}"}, **more)

    def socket(self):
        return socket.create_connection((self.host.strip("[]"), self.port), 60 * PATIENCE)

    def raw(self, data, half_close=False):
        """Whatever comes back for these bytes until the service closes; status and body."""
        with self.socket() as connection:
            try:
                connection.sendall(data)
                if half_close:
                    connection.shutdown(socket.SHUT_WR)
            except (BrokenPipeError, ConnectionResetError):
                pass
            return status_and_body(read_all(connection))


def read_all(connection):
    data = b""
    try:
        while piece := connection.recv(65536):
            data += piece
    except ConnectionResetError:
        pass
    return data


def status_and_body(data):
    if not data:
        return None, b""
    head, _, body = data.partition(b"\r\n\r\n")
    return int(head.split()[1]), body


class ServiceTest(unittest.TestCase):
    """With a folder, and services that are ended with the test."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.gallery = str(Path(self.folder.name) / "people.gallery")

    def serve(self, *arguments, **more):
        for limit in ("--rate", "--rate-per-address"):
            arguments += () if limit in arguments else (limit, "0")
        service = Service(*arguments, **more)
        self.addCleanup(self.end, service)
        return service

    def end(self, service):
        if service.process.poll() is None:
            status = service.close()
            self.assertEqual(status, 0, service.stderr())
        self.assertNotIn("Sanitizer", service.stderr())
        service.errors.close()

    def refused(self, answer, status, part):
        """An error as the description promises it: one line, that says `part`."""
        self.assertEqual(answer.status, status, answer.body)
        self.assertEqual(answer.headers["Content-Type"], "application/json")
        error = answer.json["error"]
        self.assertIn(part, error)
        self.assertNotIn("\n", error)
        return answer.json


def wait_until(holds, seconds=20):
    end = time.monotonic() + seconds * PATIENCE
    while time.monotonic() < end:
        if holds():
            return True
        time.sleep(0.02)
    return False

# SPDX-License-Identifier: MIT
"""Clients that send too much, too slowly, too often or not to the end."""
import json
import random
import signal
import socket
import threading
import time
import unittest

from service import (ONE, PATIENCE, ServiceTest, base64_of, read_all, sample, status_and_body, wait_until)


def head(method, path, *fields):
    return "".join(f"{line}\r\n" for line in (f"{method} {path} HTTP/1.1", "Host: localhost", *fields,
                                              "")).encode()


def json_head(length):
    return head("POST", "/v1/find", "Content-Type: application/json", f"Content-Length: {length}")


class Sizes(ServiceTest):
    def setUp(self):
        super().setUp()
        self.service = self.serve("--body", "0.5", "--megapixels", "0.05", "--timeout", str(PATIENCE))

    def expect(self, data, status, **more):
        answer, body = self.service.raw(data, **more)
        self.assertEqual(answer, status, body)
        self.assertIn("error", json.loads(body))

    def test_bodies_beyond_the_limit_are_refused_before_they_are_read(self):
        self.expect(json_head(1 << 19 | 1), 413)
        self.expect(json_head(10 ** 15), 413)
        self.expect(json_head(2 ** 64), 400)
        # The answer comes also to those who send all of it first.
        answer = self.service.ask("POST", "/v1/find", 600_000 * b"x", {"Content-Type": "application/json"})
        self.refused(answer, 413, "524288 bytes")
        # And to those who ask first.
        self.expect(head("POST", "/v1/find", "Content-Type: application/json", "Content-Length: 600000",
                         "Expect: 100-continue"), 413)
        big = self.service.post("/v1/find", {"picture": 500_000 * "A"})
        self.refused(big, 415, "kind")

    def test_who_asks_first_is_told_to_go_on(self):
        body = json.dumps({"picture": base64_of(b"x")}).encode()
        with self.service.socket() as client:
            client.sendall(head("POST", "/v1/find", "Content-Type: application/json", "Connection: close",
                                f"Content-Length: {len(body)}", "Expect: 100-continue"))
            time.sleep(0.1)
            client.sendall(body)
            data = read_all(client)
        self.assertTrue(data.startswith(b"HTTP/1.1 100 "), data)
        self.assertEqual(status_and_body(data.partition(b"\r\n\r\n")[2])[0], 415)

    def test_lengths_that_are_not_said_or_said_twice_are_refused(self):
        kind = "Content-Type: application/json"
        self.expect(head("POST", "/v1/find", kind), 411)
        self.expect(head("POST", "/v1/find", kind, "Transfer-Encoding: chunked") + b"2\r\n{}\r\n0\r\n\r\n", 411)
        self.expect(head("POST", "/v1/find", kind, "Content-Length: 2", "Content-Length: 3") + b"{}", 400)
        self.expect(head("POST", "/v1/find", kind, "Content-Length: 2", "Transfer-Encoding: chunked"), 411)
        for length in ("-1", "2x", "0x2", "1,1"):
            self.expect(head("POST", "/v1/find", kind, f"Content-Length: {length}") + b"{}", 400)

    def test_a_refused_body_is_not_taken_for_a_request(self):
        hidden = head("GET", "/v1/info")
        data = json_head(1 << 20) + hidden
        with self.service.socket() as client:
            client.sendall(data)
            self.assertEqual(read_all(client).count(b"HTTP/1.1"), 1)

    def test_bodies_that_end_early(self):
        self.expect(json_head(100) + b'{"picture":', 400, half_close=True)
        with self.service.socket() as client:  # gone without a word
            client.sendall(json_head(100) + b'{"picture":')
        self.assertEqual(self.service.get("/health").status, 200)

    def test_heads_that_are_no_http(self):
        for data in (b"\r\n\r\n", b"GET /health\r\n\r\n", b"GET /health HTTP/3.9\r\n\r\n", b"\x16\x03\x01\x02\x00" * 20 + b"\r\n",
                     b"\0\0\0\0\r\n\r\n", b"BREW /health HTTP/1.1\r\n\r\n"):
            status, body = self.service.raw(data, half_close=True)
            self.assertEqual(status, 400, (data, body))
            self.assertIn("error", json.loads(body))
        self.expect(b"GET /" + 10000 * b"x" + b" HTTP/1.1\r\n\r\n", 414)
        self.expect(b"GET /health HTTP/1.1\r\n" + 2000 * b"a: bcdefghij\r\n" + b"\r\n", 431)
        self.expect(30000 * b"x", 431)
        self.expect(b"GET /health HTTP/1.1\r\nRange: bytes=" + b",".join(1500 * [b"1-2"]) + b"\r\n\r\n", 403)
        status, body = self.service.raw(head("GET", "/health", "Range: bytes=0-3", "Accept-Encoding: gzip, br",
                                             "Connection: close"))
        self.assertEqual((status, json.loads(body)), (200, {"status": "ok"}))

    def test_several_requests_at_once_are_answered_in_order(self):
        with self.service.socket() as client:
            client.sendall(head("GET", "/health") + head("GET", "/nothing") +
                           head("GET", "/v1/info", "Connection: close"))
            data = read_all(client)
        positions = [data.index(text) for text in (b'{"status":"ok"}', b"404", b'"galleries"')]
        self.assertEqual(positions, sorted(positions))
        self.assertEqual(data.count(b"HTTP/1.1 "), 3)

    def test_damaged_requests_are_answered_or_let_go(self):
        chance = random.Random(11)
        body = json.dumps({"picture": base64_of(sample(ONE)[:600]), "most": 3}).encode()
        form = (b'--b\r\nContent-Disposition: form-data; name="picture"; filename="a.png"\r\n\r\n' +
                sample(ONE)[:600] + b"\r\n--b--\r\n")
        requests = [
            head("POST", "/v1/find?gallery=a%20b&c=%", "Content-Type: application/json",
                 f"Content-Length: {len(body)}") + body,
            head("POST", "/v1/people", "Content-Type: multipart/form-data; boundary=b",
                 f"Content-Length: {len(form)}", "Range: bytes=1-2,3-", "Expect: 100-continue") + form,
            head("DELETE", "/v1/people/%41%ff%00a", "Connection: keep-alive") + head("GET", "/metrics")]
        answered = 0
        for _ in range(300):
            data = bytearray(chance.choice(requests))
            for _ in range(chance.randrange(1, 6)):
                at = chance.randrange(min(len(data), chance.choice((250, len(data)))))
                change = chance.randrange(4)
                if change == 0:
                    data[at] = chance.randrange(256)
                elif change == 1:
                    del data[at:at + chance.randrange(1, 40)]
                elif change == 2:
                    data[at:at] = data[chance.randrange(len(data)):][:chance.randrange(60)]
                else:
                    data[at:at] = chance.choice((b"\r\n", b"\0", b"%", b":", b" ", b'"', b"\r\n\r\n"))
            status, _ = self.service.raw(bytes(data), half_close=True)
            self.assertIn(status, (None, 100, 200, 400, 401, 403, 404, 405, 408, 411, 413, 414, 415, 416,
                                   417, 422, 431))
            answered += status is not None
        self.assertGreater(answered, 200)
        self.assertEqual(self.service.get("/health").status, 200)

    def test_pictures_beyond_the_limit_are_refused(self):
        # 256 x 256 are more than 50,000.
        answer = self.service.post("/v1/find", {"picture": base64_of(sample(ONE))})
        self.refused(answer, 413, "50000 pixels")


class SlowClients(ServiceTest):
    def setUp(self):
        super().setUp()
        self.service = self.serve("--timeout", "1", "--connections", "4", "--connections-per-address", "4")

    def drip(self, first, rest, pause=0.1):
        """What comes back for a byte now and then, and after how long."""
        begin = time.monotonic()
        with self.service.socket() as client:
            client.sendall(first)
            client.settimeout(pause)
            data = b""
            for byte in rest:
                try:
                    client.sendall(bytes([byte]))
                    piece = client.recv(65536)
                    data += piece
                    break
                except TimeoutError:
                    continue
                except (BrokenPipeError, ConnectionResetError):
                    break
            client.settimeout(30 * PATIENCE)
            data += read_all(client)
        return status_and_body(data), time.monotonic() - begin

    def test_a_head_that_drips_is_ended(self):
        for first, rest in ((b"GET /he", 200 * b"a"), (b"GET /health HTTP/1.1\r\nHost: local", 200 * b"a")):
            (status, body), seconds = self.drip(first, rest)
            self.assertEqual(status, 408, body)
            self.assertIn("too slowly", json.loads(body)["error"])
            self.assertLess(seconds, 8 * PATIENCE)

    def test_a_body_that_drips_is_ended(self):
        (status, body), seconds = self.drip(json_head(4_000_000) + b'{"picture":"', 200 * b"A")
        self.assertEqual(status, 408, body)
        self.assertLess(seconds, 8 * PATIENCE)

    def test_a_body_that_keeps_up_is_read_however_long_it_takes(self):
        body = json.dumps({"picture": 600_000 * "A"}).encode()
        with self.service.socket() as client:
            client.sendall(json_head(len(body)).replace(b"Host:", b"Connection: close\r\nHost:"))
            for at in range(0, len(body), 40_000):
                client.sendall(body[at:at + 40_000])
                time.sleep(0.2)
            status, _ = status_and_body(read_all(client))
        self.assertEqual(status, 415)

    def test_who_says_nothing_is_let_go(self):
        with self.service.socket() as client:
            begin = time.monotonic()
            self.assertEqual(read_all(client), b"")
            self.assertLess(time.monotonic() - begin, 8 * PATIENCE)

    def test_who_does_not_read_is_let_go(self):
        clients = []
        for _ in range(4):
            client = socket.socket()
            client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            client.connect((self.service.host, self.service.port))
            client.settimeout(0.2)
            try:
                client.sendall(500 * head("GET", "/openapi.json"))
            except (TimeoutError, ConnectionResetError, BrokenPipeError):
                pass
            clients.append(client)
        self.assertTrue(wait_until(self.answers))
        for client in clients:
            client.close()

    def answers(self):
        try:
            return self.service.get("/health").status == 200
        except OSError:
            return False

    def test_slow_clients_do_not_keep_others_out_for_long(self):
        clients = [self.service.socket() for _ in range(4)]
        for client in clients:
            client.sendall(b"GET /he")
        self.assertTrue(wait_until(self.answers))
        for client in clients:
            client.close()


class Crowds(ServiceTest):
    def test_connections_beyond_the_limit_are_told_so(self):
        service = self.serve("--connections", "3", "--connections-per-address", "2", "--timeout", "20")
        clients = [service.socket() for _ in range(2)]
        for client in clients:
            client.sendall(head("GET", "/health"))
            self.assertEqual(status_and_body(client.recv(65536))[0], 200)
        status, body = service.raw(head("GET", "/health"))
        self.assertEqual(status, 429)
        self.assertIn("connections", json.loads(body)["error"])
        clients[0].close()
        self.assertTrue(wait_until(lambda: service.get("/health").status == 200))
        clients[1].close()

    def test_connections_beyond_all_are_told_so(self):
        service = self.serve("--connections", "2", "--timeout", "20")
        clients = [service.socket() for _ in range(2)]
        for client in clients:
            client.sendall(head("GET", "/health"))
            self.assertEqual(status_and_body(client.recv(65536))[0], 200)
        status, body = service.raw(head("GET", "/health"))
        self.assertEqual(status, 503, body)
        clients[0].sendall(head("GET", "/metrics"))
        text = b""
        while b"kova_fr_connections 2\n" not in text:
            piece = clients[0].recv(65536)
            self.assertTrue(piece, text)
            text += piece
        self.assertIn(b"kova_fr_refused_connections_total 1\n", text)
        for client in clients:
            client.close()

    def test_requests_beyond_the_rate_of_an_address_are_told_so(self):
        service = self.serve("--rate-per-address", "2")
        statuses = [service.get("/health").status for _ in range(12)]
        self.assertEqual(statuses[:4], 4 * [200])
        self.assertIn(429, statuses)
        answer = service.get("/health")
        if answer.status == 429:
            self.refused(answer, 429, "fewer")
            self.assertEqual(answer.headers["Retry-After"], "1")
        self.assertTrue(wait_until(lambda: service.get("/health").status == 200 or time.sleep(0.6)))

    def test_requests_beyond_the_rate_of_all_are_told_so(self):
        service = self.serve("--rate", "2", token="0123456789abcdef")
        token, service.token = service.token, None
        # Those without the token do not use it up.
        self.assertEqual({service.get("/v1/info").status for _ in range(20)}, {401})
        service.token = token
        statuses = [service.get("/v1/info").status for _ in range(12)]
        self.assertEqual(statuses[:4], 4 * [200])
        self.assertIn(503, statuses)

    def test_more_pictures_than_can_wait_are_told_so(self):
        service = self.serve("--waiting", "0")
        body = {"pictures": 12 * [base64_of(sample(ONE))]}
        statuses = []

        def ask():
            statuses.append(service.post("/v1/extract", body).status)
        threads = [threading.Thread(target=ask) for _ in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(set(statuses), {200, 503})


class Ends(ServiceTest):
    def end_while_asked(self, number):
        service = self.serve("--timeout", "5")
        body = json.dumps({"pictures": 20 * [base64_of(sample(ONE))]}).encode()
        request = head("POST", "/v1/extract", "Content-Type: application/json", f"Content-Length: {len(body)}")
        idle = service.socket()
        busy = service.socket()
        busy.sendall(request + body)
        late = service.socket()
        late.sendall(request + body[:-1])
        time.sleep(0.1)
        service.process.send_signal(number)
        time.sleep(0.1)
        late.sendall(body[-1:])
        for client in (busy, late):
            status, answer = status_and_body(read_all(client))
            self.assertEqual(status, 200)
            self.assertEqual(len(json.loads(answer)["faces"]), 20)
        self.assertEqual(read_all(idle), b"")
        self.assertEqual(service.process.wait(60 * PATIENCE), 0, service.stderr())
        with self.assertRaises(ConnectionRefusedError):
            service.socket()
        for client in (idle, busy, late):
            client.close()

    def test_on_sigterm_what_was_asked_is_answered(self):
        self.end_while_asked(signal.SIGTERM)

    def test_on_sigint_what_was_asked_is_answered(self):
        self.end_while_asked(signal.SIGINT)

    def test_a_client_that_drips_does_not_hold_up_the_end(self):
        service = self.serve("--timeout", "1")
        with service.socket() as client:
            client.sendall(json_head(4_000_000) + 65536 * b" ")
            time.sleep(0.2)
            begin = time.monotonic()
            self.assertEqual(service.close(), 0)
            self.assertLess(time.monotonic() - begin, 8 * PATIENCE)


if __name__ == "__main__":
    unittest.main()

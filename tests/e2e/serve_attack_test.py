#!/usr/bin/python3
"""Who means harm to `koliindexctl serve`: its bytes are taken from a socket, as they are, by the real server."""
import collections
import contextlib
import glob
import itertools
import os
import pathlib
import resource
import shutil
import signal
import socket
import subprocess
import threading
import unittest

import harness
from harness import appliance

SECRET = b"nobody may see this"
ALBUM, ELSEWHERE = "/volume1/music/Album", "/volume1/music/Elsewhere"
SONG, PICTURE = f"{ALBUM}/a.mp3", "/volume1/photo/Family/b.jpg"
KINDS = ("/file", "/small/160", "/cover/160", "/entry", "/playlist", "/folder")
COMPLAINT = "koliindexctl: this kernel has nothing that guards a child\n" if harness.IS_EMULATED else ""
FORM = "Content-Type: application/x-www-form-urlencoded\r\n"
Answer = collections.namedtuple("Answer", "status headers body")


def answers_in(received):
    """What a client makes of the bytes. The library's own answers may have more behind what they have announced."""
    answers = []
    while received.startswith(b"HTTP/1.1 "):
        head, _, rest = received.partition(b"\r\n\r\n")
        first, *lines = head.decode("latin-1").split("\r\n")
        headers = {name.lower(): value for name, _, value in (line.partition(": ") for line in lines)}
        length = int(headers.get("content-length", 0))
        answers.append(Answer(int(first.split()[1]), headers, rest[:length]))
        received = rest[length:]
    return answers


def doubtful_requests(name):
    """By the status of their one answer, 0 for none; behind each stands another request."""
    get, end = "GET /status HTTP/1.1\r\n", "\r\n"
    hidden = "GET /assets/hidden HTTP/1.1\r\n"
    whole = f"{hidden}{name}{end}"
    post = f"POST /login HTTP/1.1\r\n{name}{FORM}"
    length, chunked, chunks = "Content-Length: ", "Transfer-Encoding: chunked\r\n", "5\r\nhello\r\n0\r\n\r\n"

    def with_headers(first, headers, rest=whole):
        return [f"{first}{header}{end}{rest}" for header in headers]

    return {
        400: with_headers(get + name, (
            "Transfer-Encoding : chunked\r\n", "Content Length: 1\r\n", "X\0y: 1\r\n", "no colon\r\n", "X(y): 1\r\n",
            length + "+5\r\n", length + "0, 0\r\n", length + "0x5\r\n", length + "-1\r\n", f"X: a\r\r{hidden}"))
        + with_headers(get, ("", f"Host: a\r\n {name}")) + with_headers("GET /status\r\n", ("",))
        + with_headers(f"GET / HTTP/1.1 \0\r\n{name}", ("",))
        + with_headers(post, [f"{length}{a}\r\n{length}{b}\r\n" for a, b in ((0, 9), (9, 0), (0, 0))]),
        403: with_headers(get + name, (name,)),
        411: with_headers(post, (
            "", chunked, "Transfer-Encoding:\tchunked\r\n", "Transfer-Encoding: xchunked\r\n", f"{length}3\r\n{chunked}",
            f"Transfer-Encoding: identity\r\n{length}3\r\n", f"Transfer-Encoding: gzip\r\n{chunked}",
            "Transfer-Encoding:\r\n chunked\r\n"), chunks + whole)
        + with_headers(get + name, (chunked,), chunks + whole),
        413: with_headers(get + name, (f"{length}{len(whole)}\r\n",))
        + with_headers(post, [f"{length}{size}\r\n" for size in (4097, 2**31, 2**32, 2**64)], "a" * 5000 + whole),
        431: with_headers(get + name, (
            "".join(f"X{i}: 1\r\n" for i in range(65)), f"X: {'a' * 9000}\r\n", f"{'X' * 20000}: 1\r\n")),
        505: [f"GET / HTTP/2.0\r\n{name}{end}{whole}", "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"],
        # What is understood in one way only is no harm, if nothing is believed to follow it.
        200: with_headers(get + name, (": 1\r\n", ":\r\n", "X: a\r\n b\r\n", "X: a\0b\r\n", f"X: a\n\n{hidden}", "X:1\r\n"))
        + [f"GET /status HTTP/1.1\n{name}\n{whole}"],
        0: [f"GET  /  HTTP/1.1\r\n{name}{end}{whole}", "\x16\x03\x01\x02\0\x01\0\x01\xfc\x03\x03" + "a" * 300]}


class Server:
    """One that runs until its block ends; then it must end by itself, and be none the worse for what it was told."""

    def __init__(self, test, *options):
        self.test = test
        self.process = subprocess.Popen(test.command("serve", "--cache", "/tmp/cache", *options), text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=appliance.environment())
        address = self.process.stdout.readline().strip()
        self.host = address.removeprefix("http://").rstrip("/")
        self.name = f"Host: {self.host}\r\n"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGTERM)
        _, said = self.process.communicate(timeout=harness.PATIENCE)
        self.test.assertEqual((self.process.returncode, said), (0, COMPLAINT))

    def connect(self, text=b""):
        client = socket.create_connection(("127.0.0.1", int(self.host.rpartition(":")[2])), timeout=harness.PATIENCE)
        with contextlib.suppress(ConnectionError):  # it need not listen to the end
            client.sendall(text.encode("latin-1") if isinstance(text, str) else text)
        return client

    def told(self, text):
        """All that it answers before it closes the connection, which it must do."""
        with self.connect(text) as client:
            received = b""
            with contextlib.suppress(ConnectionResetError):
                while piece := client.recv(1 << 20):
                    received += piece
        return answers_in(received)

    def get(self, address, headers="", method="GET", body=""):
        text = f"{method} {address} HTTP/1.1\r\n{self.name}Connection: close\r\n{headers}\r\n{body}"
        only, = self.told(text) or [Answer(0, {}, b"")]
        return only

    def log_in(self, token, headers="", **fields):
        form = "&".join(f"{name}={value}" for name, value in {"token": token, **fields}.items())
        return self.get("/login", f"{headers}{FORM}Content-Length: {len(form)}\r\n", "POST", form)

    def files(self):
        """How many connections and files of the shares it holds open."""
        held = 0
        for path in glob.glob(f"/proc/{self.process.pid}/fd/*"):
            with contextlib.suppress(FileNotFoundError):
                held += os.readlink(path).startswith(("/volume1/", "socket:"))
        return held


def listen(path):
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(path)


class Attack(harness.DaemonTest):
    def setUp(self):
        super().setUp()
        shutil.rmtree("/tmp/cache", ignore_errors=True)
        self.put(SONG)
        self.put(PICTURE)
        self.index(*harness.EVERYTHING)
        for path in f"{ALBUM}/unlisted.mp3", f"{ELSEWHERE}/a.mp3", "/tmp/outside":
            os.makedirs(os.path.dirname(path), exist_ok=True)
            pathlib.Path(path).write_bytes(SECRET)

    def test_a_request_ends_where_everybody_says_that_it_ends(self):
        """Each is answered at most once, and nothing behind it: a server before this one may think otherwise of it."""
        with Server(self) as server:
            for status, texts in doubtful_requests(server.name).items():
                for text in texts:
                    with self.subTest(text[:200]):
                        answers = server.told(text)
                        self.assertEqual([answer.status for answer in answers], [status] if status else [])
            both = server.told(f"GET /assets/1 HTTP/1.1\r\n{server.name}\r\n"
                               f"GET /status HTTP/1.1\r\n{server.name}Connection: close\r\n\r\n")
            self.assertEqual([answer.status for answer in both], [404, 200])

    def test_pages_of_other_sites_are_told_nothing(self):
        with Server(self) as server:
            port = server.host.rpartition(":")[2]
            for host in ("evil.example", "127.0.0.1", "", f"{server.host}@evil.example", f"evil.example@{server.host}",
                         f"{server.host}, evil.example", f"{server.host}0", f"127.0.0.1:+{port}", f"127.0.0.1:0{port}",
                         *(f"{name}:{port}" for name in (
                             "evil.example", "127.0.0.1.evil.example", "2130706433", "0", "127.1", "0.0.0.0", "localhost.")),
                         f"[::ffff:127.0.0.1]:{port}x", f"[127.0.0.1]:{port}x"):
                answers = server.told(f"GET /status HTTP/1.1\r\nHost: {host}\r\nX-Forwarded-Host: {server.host}\r\n"
                                      f"Forwarded: host={server.host}\r\nConnection: close\r\n\r\n")
                self.assertEqual([answer.status for answer in answers], [403], host)
            for headers in (*(f"Origin: {origin}" for origin in (
                                "null", "", "http://evil.example", f"http://{server.host}.evil.example",
                                f"http://{server.host}/", f"http://{server.host}\r\nOrigin: null")),
                            "Sec-Fetch-Site: cross-site", "Sec-Fetch-Site: same-site\r\nSec-Fetch-Mode: cors",
                            "Sec-Fetch-Site: cross-site\r\nSec-Fetch-Mode: navigate\r\nSec-Fetch-Dest: iframe",
                            "Sec-Fetch-Site: same-origin\r\nSec-Fetch-Site: cross-site"):
                self.assertEqual(server.get("/status", headers + "\r\n").status, 403, headers)
            for target in (f"http://{server.host}/status", "http://evil.example/status", "//evil.example/", "status", "?",
                           "*"):
                self.assertEqual(server.get(target).status, 400, target)
            for method in "CONNECT", "OPTIONS", "TRACE", "PUT", "DELETE", "POST", "PROPFIND", "get", "G\xc4T":
                refused = server.get("/status", "Content-Length: 0\r\n", method)
                self.assertEqual((refused.status, refused.headers["allow"]), (405, "GET, HEAD"), method)

    def test_only_what_the_databases_list_is_opened(self):
        up = ("..", "%2e%2e", "%2E.", ".%2e", "%252e%252e", "%c0%ae%c0%ae", "%e0%80%ae%e0%80%ae", "..%00", "..;", "%2e%2e%5c",
              "\\..")
        targets = [f"/volume1/music/Album/{'/'.join([step] * 5)}/tmp/outside" for step in up]
        targets += [f"/volume1/music/Album/{'%2f'.join([step] * 5)}%2ftmp%2foutside" for step in up]
        targets += [f"/{step}/tmp/outside" for step in up] + [
            "/tmp/outside", "//tmp/outside", "%2ftmp%2foutside", "/%2ftmp/outside", f"{appliance.STORE}/media.db",
            *(ALBUM + name for name in ("/unlisted.mp3", "/a.mp3/", "/./unlisted.mp3", "/a.mp3%00",
                                        "/a.mp3%00/../unlisted.mp3")),
            "/proc/self/environ", "/etc/passwd", "file:///tmp/outside", "/a" * 2040, "/" + "a" * 5000, "/%", "/%f", ""]
        with Server(self) as server:
            harness.wait_for("the library", lambda: server.get("/nothing").status == 404)
            for kind, target in itertools.product(KINDS, targets):
                for answer in server.told(f"GET {kind}{target} HTTP/1.1\r\n{server.name}Connection: close\r\n\r\n"):
                    with self.subTest(kind + target[:100]):
                        self.assertIn(answer.status, (200, 400, 404, 414) if kind == "/folder" else (400, 404, 414))
                        self.assertNotIn(SECRET, answer.body)
                        self.assertNotIn(b"root:", answer.body)
            self.assertEqual(server.get(f"/file{ALBUM}/a%2Emp3").body, pathlib.Path(SONG).read_bytes())

    def swapped(self, server, what):
        for address in f"/file{SONG}", f"/cover/160{SONG}", f"/small/160{PICTURE}", f"/entry{SONG}", f"/file{PICTURE}":
            answer = server.get(address)
            self.assertNotIn(SECRET, answer.body, (what, address))
            if address.startswith("/file"):
                self.assertEqual(answer.status, 404, (what, address))

    def test_what_is_laid_in_place_of_a_file_is_not_opened(self):
        makers = {"link": lambda path: os.symlink("/tmp/outside", path),
                  "link nearby": lambda path: os.symlink("unlisted.mp3", path), "queue": os.mkfifo, "folder": os.mkdir,
                  "device": lambda path: os.symlink("/dev/zero", path), "circle": lambda path: os.symlink(path, path),
                  "socket": listen, "nothing": lambda path: None}
        with Server(self) as server:
            before = server.files()
            for what, make in makers.items():
                for path in SONG, PICTURE:
                    os.rename(path, path + ".kept")
                    make(path)
                self.swapped(server, what)
                for path in SONG, PICTURE:
                    with contextlib.suppress(FileNotFoundError):
                        os.rmdir(path) if os.path.isdir(path) and not os.path.islink(path) else os.unlink(path)
                    os.rename(path + ".kept", path)
            for folder in ALBUM, os.path.dirname(PICTURE):
                os.rename(folder, folder + ".kept")
                os.symlink(ELSEWHERE, folder)
            shutil.copy("/tmp/outside", f"{ELSEWHERE}/b.jpg")
            self.swapped(server, "folder above")
            harness.wait_for("all files closed", lambda: server.files() <= before)

    @harness.MAKES_PICTURES
    def test_a_cover_is_no_way_out(self):
        steps = [f"{ALBUM}/@eaDir", f"{ALBUM}/@eaDir/a.mp3", f"{ALBUM}/@eaDir/a.mp3/cover1.jpg"]
        shutil.rmtree(steps[0], ignore_errors=True)
        self.put(steps[2])
        with Server(self) as server:
            self.assertEqual(server.get(f"/cover/160{SONG}").headers["content-type"], "image/jpeg")
            for step in steps:
                os.rename(step, "/volume1/music/moved")
                os.symlink("/volume1/music/moved", step)
                self.assertEqual(server.get(f"/cover/320{SONG}").headers["content-type"], "image/gif", step)
                os.unlink(step)
                os.rename("/volume1/music/moved", step)

    def test_what_is_swapped_during_the_request_is_the_file_or_nothing(self):
        song, is_over = pathlib.Path(SONG).read_bytes(), threading.Event()

        def swap():
            os.symlink(ELSEWHERE, f"{ALBUM}.link")
            os.symlink("unlisted.mp3", f"{ALBUM}/a.link")
            while not is_over.is_set():
                for one, other in (ALBUM, f"{ALBUM}.link"), (SONG, f"{ALBUM}/a.link"):
                    for _ in range(2):
                        os.rename(one, one + ".x")
                        os.rename(other, one)
                        os.rename(one + ".x", other)

        with Server(self) as server:
            swapper = threading.Thread(target=swap)
            swapper.start()
            answers = collections.Counter()
            try:
                while min(answers[200], answers[404]) < 50:
                    answer = server.get(f"/file{SONG}")
                    answers[answer.status] += 1
                    self.assertTrue(answer.body == song if answer.status == 200 else SECRET not in answer.body)
            finally:
                is_over.set()
                swapper.join()
            big = b"x" * (64 << 20)
            pathlib.Path(SONG).write_bytes(big)
            with server.connect(f"GET /file{SONG} HTTP/1.0\r\n\r\n") as client:
                received = client.recv(1000)
                os.rename(f"{ALBUM}/a.link", SONG)
                while piece := client.recv(1 << 20):
                    received += piece
            self.assertTrue(answers_in(received)[0].body == big)

    @unittest.skipIf(appliance.ON_SERVER, "a server has no files of databases")
    def test_a_damaged_database_is_told_where_something_is_missing(self):
        away = f"{appliance.STORE}.away"
        with Server(self) as server:
            harness.wait_for("the pictures", lambda: b"1 picture" in server.get("/photos/dates").body)
            os.rename(appliance.STORE, away)
            os.mkdir(appliance.STORE)
            pathlib.Path(f"{appliance.STORE}/media.db").write_bytes(b"no database" * 1000)
            harness.wait_for("the reason", lambda: b"file is not a database" in server.get("/photos/dates").body)
            for address in f"/file{SONG}", f"/small/160{PICTURE}", f"/cover/160{SONG}", f"/entry{SONG}":
                self.assertEqual(server.get(address).status, 503, address)
            shutil.rmtree(appliance.STORE)
            os.rename(away, appliance.STORE)
            harness.wait_for("the song", lambda: server.get(f"/file{SONG}").status == 200)
            harness.wait_for("the mended page", lambda: b"not a database" not in server.get("/photos/dates").body)

    def test_ranges_of_every_odd_kind(self):
        data = bytes(range(200))
        pathlib.Path(SONG).write_bytes(data)
        parts = {"bytes=0-0": (0, 1), "bytes=199-": (199, 200), "bytes=-1": (199, 200), "bytes=-500": (0, 200),
                 "BYTES=1-2": (1, 3), "bytes=0-18446744073709551616": (0, 200), "bytes= 5-6 ": (5, 7),
                 "bytes=000000000000000000000000000001-2": (1, 3)}
        none = ("bytes=200-", "bytes=-0", "bytes=9223372036854775807-", "bytes=18446744073709551616-")
        whole = ("bytes=", "bytes=-", "bytes=a-b", "bytes=1-b", "bytes=2-1", "bytes=0--1", "bytes=--1", "bytes=0-1-2",
                 "bytes 0-1", "bytes=0-1,5-6", "bytes=" + "0-," * 2000, "bytes=0-0,", "bytes=,0-0", "lines=0-1", "byte=0-1",
                 "bytes=0x1-2", "bytes=1.0-2", "bytes=+1-2", "bytes=1 - 2", "bytes=0-0\r\nRange: bytes=1-1", "0-1", "",
                 "bytes=\xb2-3", "bytes =0-1")
        with Server(self) as server:
            address = f"/file{SONG}"
            plain = server.get(address)
            etag, date = plain.headers["etag"], plain.headers["last-modified"]
            for text, (begin, end) in parts.items():
                got = server.get(address, f"Range: {text}\r\n")
                self.assertEqual((got.status, got.headers.get("content-range"), got.body),
                                 (206, f"bytes {begin}-{end - 1}/200", data[begin:end]), text)
            for text in none:
                got = server.get(address, f"Range: {text}\r\n")
                self.assertEqual((got.status, got.headers["content-range"], got.body), (416, "bytes */200", b""), text)
            conditions = (f'If-Range: W/{etag}', 'If-Range: "', "If-Range: *", "If-Range: Thu, 01 Jan 1970 00:00:00 GMT",
                          f"If-Range: {etag}, {etag}")
            for text in (*whole, *(f"bytes=0-0\r\n{condition}" for condition in conditions)):
                got = server.get(address, f"Range: {text}\r\n")
                self.assertEqual((got.status, got.headers.get("content-range"), got.body), (200, None, data), text)
            for condition, status in ((f"If-Range: {etag}", 206), (f"If-Range: {date}", 206),
                                      (f"If-None-Match: {etag}", 304), (f'If-None-Match: "x", W/{etag}', 304),
                                      ("If-None-Match: *", 304),
                                      (f"If-None-Match: {etag[:-2]}", 206), ("If-Modified-Since: yesterday", 206)):
                got = server.get(address, f"Range: bytes=0-0\r\n{condition}\r\n")
                self.assertEqual((got.status, got.body), (status, data[:1] if status == 206 else b""), condition)
                self.assertEqual(got.headers["content-length"], "1" if status == 206 else "200")

    def test_a_thousand_slow_clients_hold_up_nobody(self):
        resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
        os.truncate(SONG, 1 << 30)
        with Server(self) as server, contextlib.ExitStack() as clients:
            before = server.files()
            ask = f"GET /file{SONG} HTTP/1.1\r\n{server.name}\r\n"
            kinds = ("", "GET /sta", f"GET /status HTTP/1.1\r\n{server.name}X: ", ask,
                     f"POST /login HTTP/1.1\r\n{server.name}{FORM}Content-Length: 4000\r\n\r\ntoken=")
            slow = [clients.enter_context(server.connect(kinds[i % len(kinds)])) for i in range(1000)]
            halves = [client for i, client in enumerate(slow) if kinds[i % len(kinds)] != ask]
            for _ in range(20):
                for client in halves:
                    with contextlib.suppress(ConnectionError):
                        client.send(b"a")
                self.assertEqual(server.get("/status").status, 200)
            for client in halves:  # each is ended, however alive it was
                with contextlib.suppress(ConnectionError):
                    while client.recv(65536):
                        pass
            # More than there may be, none of whom takes what it has asked for.
            for _ in range(1100):
                clients.enter_context(server.connect(ask))
            for _ in range(20):
                self.assertEqual(server.get("/status").status, 200)
            clients.close()
            harness.wait_for("all files closed", lambda: server.files() <= before)

    def test_without_the_token_there_is_nothing_to_see(self):
        with Server(self, "--token-file", "/tmp/a") as server, Server(self, "--token-file", "/tmp/b") as other:
            token, others = (pathlib.Path(path).read_text().strip() for path in ("/tmp/a", "/tmp/b"))
            cookie, foreign = (answer.headers["set-cookie"].partition(";")[0]
                               for answer in (server.log_in(token), other.log_in(others)))
            mine, secret = cookie.split("=")
            song = server.get(f"/file{SONG}", f"Cookie: a=b; {cookie}\r\n").body
            self.assertEqual(song, pathlib.Path(SONG).read_bytes())
            addresses = ["/", "/status", "/live", "/search?q=a", "/search.json?q=a", "/music/albums", "/photos/dates",
                         "/assetsx/a", "/login/a", "/?token=" + token, "/nothing", *(kind + SONG for kind in KINDS)]
            tricks = ["", f"Cookie: {foreign}\r\n", f"Cookie: {mine}={foreign.split('=')[1]}\r\n", f"Cookie: {mine}=\r\n",
                      f"Cookie: {mine}\r\n", f"Cookie: {mine}={secret[:-1]}\r\n", f"Cookie: {mine}={secret}0\r\n",
                      f"Cookie: {mine}={token}\r\n", f"Cookie: {mine.upper()}={secret}\r\n", f"X-Cookie: {cookie}\r\n",
                      f"Authorization: Bearer {token}\r\n", "Cookie: " + f"{mine}=; " * 40 + "\r\n"]
            for address, trick in itertools.product(addresses, tricks):
                answer = server.get(address, trick)
                self.assertEqual(answer.status, 401, (address, trick))
                self.assertNotIn(b"Album", answer.body.replace(SONG.encode(), b""), address)
            for bad in ("//evil.example", "http://evil.example", "%2F%2Fevil.example", "/%5Cevil.example",
                        "%0D%0ASet-Cookie:a%3Db", "/a%0D%0Ab", "javascript:alert(1)", "/%09/evil.example", "", "evil.example"):
                answer = server.log_in(token, next=bad)
                self.assertEqual((answer.status, answer.headers.get("location")), (303, "/"), bad)
                self.assertNotIn(b"evil", server.get(f"/login?next={bad}").body)
            self.assertEqual(server.log_in(token, next="a=b").status, 401)  # no form: it counts as a guess
            guesses = [lambda: server.log_in("0" * 32).status] * 40
            statuses = []
            threads = [threading.Thread(target=lambda guess=guess: statuses.append(guess())) for guess in guesses]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            self.assertEqual(collections.Counter(statuses), {401: 9, 429: 31})
            self.assertEqual(server.log_in(token).status, 429)
            self.assertEqual(server.get("/status", f"Cookie: {cookie}\r\n").status, 200)

    def test_a_token_that_others_may_know_is_none(self):
        def made(path, mode=0o600, text="0123456789abcdef\n"):
            pathlib.Path(path).write_text(text)
            os.chmod(path, mode)
        made("/tmp/good")
        makers = {"link": lambda path: os.symlink("/tmp/good", path), "folder": os.mkdir,
                  "queue": lambda path: os.mkfifo(path, 0o600),
                  **{name: lambda path, mode=mode: made(path, mode)
                     for name, mode in (("group", 0o640), ("others", 0o604), ("writable", 0o620))},
                  **{name: lambda path, text=text: made(path, text=text)
                     for name, text in (("short", "a\n"), ("blank", "\n0123456789abcdef\n"), ("long", "a" * 20000))}}
        for what, make in makers.items():
            make(f"/tmp/{what}")
            ended = subprocess.run(self.command("serve", "--token-file", f"/tmp/{what}"), capture_output=True, text=True,
                                   timeout=harness.PATIENCE, check=False)
            self.assertEqual((ended.returncode, ended.stdout), (4, ""), what)
            self.assertRegex(ended.stderr, f"^koliindexctl: /tmp/{what}: .*\n$")
        unset = subprocess.run(self.command("serve", "--token-file", ""), timeout=harness.PATIENCE, check=False)
        self.assertEqual(unset.returncode, 2)
        made("/tmp/empty", text="")
        with Server(self, "--token-file", "/tmp/empty"):
            self.assertEqual(len(pathlib.Path("/tmp/empty").read_text()), 33)


if __name__ == "__main__":
    harness.main()

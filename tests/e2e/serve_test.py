#!/usr/bin/python3
"""The library in a browser: every page, whatever names are on it; search, playing, the daemon at work."""
import json
import os
import shutil
import signal
import subprocess
import unittest
import urllib.parse
import urllib.request
import wave

import harness
from harness import appliance

import browser

M, P, V = (f"/volume1/{share}" for share in harness.SHARES[:1] + harness.SHARES[2:] + harness.SHARES[1:2])
CHECKER = f"{harness.TOP}/build/axe.min.js"  # script/setup fetches it where it can
SHOWN = "music/Blue Harbour", "photo/Семья", "photo/Broken", "video/Broken"
UNTAGGED = "music/Old Tapes/untagged, 100% \"live\" & 'loud'.mp3"
# Whatever of these ran would set the marker, whatever was taken for markup would be an element, and no text be shown.
HOSTILE = ("<script>marker=1<∕script><svg onload=marker=1>", "\"><img src=x onerror=marker=1>&lt;b&gt;&#0;",
           "' onmouseover='marker=1 --><!--]]>${marker=1}`", "javascript:marker=1", "..;a?b#c&d=e+f%2e%2e%2f%00\\n\\",
           "עברית english مرحبا", "第二" * 20, "W" * 200, "e" + "\u0301" * 100)
UNSHOWN = ("new\nline", "\u202egpj.exe", "inv\udcff\udcfealid")  # what is shown is not what they are
LOOK = """(width => ({
    links: [...document.links].map(link => link.href.split("#")[0]), heading: document.querySelector("h1").textContent,
    faults: Object.entries({
        marker: "marker" in window, headings: document.querySelectorAll("h1").length !== 1,
        wide: document.documentElement.scrollWidth > width, scripts: document.scripts.length !== 1,
        strange: document.querySelector("main :is(script, svg, style, iframe, img[onerror], [onmouseover], b b)") !== null,
        picture: [...document.images].some(image => image.complete && !image.naturalWidth)
    }).filter(([, is]) => is).map(([name]) => name)}))"""
CARDS, STATE = "document.querySelectorAll('main .card').length", "document.querySelector('#live .state').textContent"
PROGRESS = "document.querySelector('#live progress')"
HEAR = """window.heard = [], document.querySelector("audio").addEventListener("timeupdate", ({target}) =>
    target.currentTime > 0.5 && !heard.includes(target.currentSrc) && heard.push(target.currentSrc)), null"""
BREACHES = """axe.run({resultTypes: ["violations"]}).then(found => found.violations.flatMap(
    rule => rule.nodes.map(node => rule.id + ": " + node.html + " " + node.failureSummary)))"""


def put_hostile():
    for name in HOSTILE + UNSHOWN:
        harness.put(f"{M}/{name}/{name}.mp3", UNTAGGED)
        harness.hand_over(harness.put(f"{P}/{name}/{name}.jpg", title=name), "DESC", name)
        harness.put(f"{V}/{name}/{name}.mp4", "video/Formats/clip.mp4")
        harness.put(f"{M}/{name}.m3u", "music/Party mix.m3u")


def let_tags_be_hostile():
    """What no sample has: a text of every tag, and one with a slash."""
    with appliance.change("media") as media:
        for name in HOSTILE:
            media.execute("UPDATE music SET title=?1, album=?1, artist=?1, genre=?1, composer=?1, comment=?1 WHERE path=?2",
                          (name.replace("∕", "/"), f"{M}/{name}/{name}.mp3"))


def kind(address):
    """Pages of one kind are of one make: by the first words of their address, a file's by its share."""
    words = urllib.parse.urlsplit(address).path.split("/")[1:]
    return "/".join([words[0], *words[2 if words[0] in ("entry", "folder") else 1:][:1]])


class Pages(harness.DaemonTest):
    @classmethod
    def setUpClass(cls):
        if not browser.program():
            raise unittest.SkipTest("there is no Chromium on this machine")
        cls.browser = browser.Browser()
        cls.addClassCleanup(cls.browser.close)
        try:
            cls.browser.call("Browser.getVersion")
        except browser.Gone as error:
            raise unittest.SkipTest(f"Chromium does not start here: {error}") from error

    def serve(self, *options):
        """The daemon, the server, and a page that shows its start."""
        self.start()
        self.server = subprocess.Popen(self.command("serve", "--cache", "/tmp/pictures", *options), stdout=subprocess.PIPE,
                                       text=True, env=appliance.environment())
        self.addCleanup(self.end_server)
        self.base = self.server.stdout.readline().strip().rstrip("/")
        if appliance.rows("music"):
            harness.wait_for("the library", lambda: b"Blue Harbour" in self.read("/music/albums"))
        self.page = self.browser.page()
        self.page.size(1280, 800)
        self.show("/")

    def end_server(self):
        with self.server:
            self.server.terminate()
        self.assertEqual(self.server.returncode, 0)

    def read(self, address, method="GET"):
        with urllib.request.urlopen(urllib.request.Request(self.base + address, method=method), timeout=60) as reply:
            return reply.read() if method == "GET" else reply.status

    def show(self, address):
        self.page.go(self.base + address)

    def until(self, script):
        self.page.until(script)

    def assert_nothing_was_said(self):
        """No error, no breach of the page's rules, no request to elsewhere."""
        self.assertEqual(self.page.faults, [])
        own = (self.base, "data:image/", "blob:null/", "about:")
        self.assertEqual([address for address in self.page.asked.values() if not address.startswith(own)], [])

    def faults_for_readers(self):
        """What keeps people with other eyes, or none, from using the page: on a phone, by day and night."""
        if not os.path.exists(CHECKER):
            self.skipTest("npm did not have axe-core")
        with open(CHECKER) as file:
            self.page.run(f"{file.read()}; null")
        found = []
        for scheme in "dark", "light":
            self.page.scheme(scheme)
            found += self.page.run(BREACHES)
        return found

    def visit(self, address, is_first):
        """What the page links to, and what its heading says."""
        self.page.answers.clear()
        self.page.go(address)
        self.assertEqual([answer["status"] for answer in self.page.answers if answer["url"] == address], [200], address)
        for width, height in (1280, 800), (360, 740):
            self.page.size(width, height)
            seen = self.page.run(f"{LOOK}({width})")
            self.assertEqual(seen["faults"], [], (address, width))
        if is_first:
            with self.subTest(address):
                self.assertEqual(self.faults_for_readers(), [])
        self.assert_nothing_was_said()
        return seen["links"], seen["heading"]

    def test_every_page_with_every_name(self):
        for folder in SHOWN:
            shutil.copytree(f"{harness.SAMPLES}/{folder}", f"/volume1/{folder}")
        put_hostile()
        self.index(*harness.EVERYTHING)
        let_tags_be_hostile()
        self.serve()
        searches = [f"{self.base}/search?q={urllib.parse.quote(name)}" for name in HOSTILE]
        waiting, seen, kinds, headings = [*searches, f"{self.base}/"], set(), set(), set()
        while waiting:
            address = waiting.pop()
            if address in seen:
                continue
            seen.add(address)
            if address.startswith(f"{self.base}/file/"):
                self.assertEqual(self.read(address[len(self.base):], "HEAD"), 200)
                continue
            links, heading = self.visit(address, kind(address) not in kinds)
            kinds.add(kind(address))
            headings.add(heading)
            waiting += links
        self.assertGreater(len(kinds), 25)
        self.assertLessEqual({name.replace("∕", "/") for name in HOSTILE} | set(HOSTILE), headings)

    def test_people_at_it(self):
        for folder in SHOWN[0], "photo/Family":
            shutil.copytree(f"{harness.SAMPLES}/{folder}", f"/volume1/{folder}")
        for number in range(70):
            self.put(f"{M}/Many {number:02}/{number}.mp3", UNTAGGED)
        film, long = self.put(f"{V}/clip.mp4", "video/Formats/clip.mp4"), f"{M}/long.wav"
        with wave.open(long, "wb") as file:
            file.setparams((1, 2, 44100, 0, "NONE", ""))
            file.writeframes(bytes(20 << 20))
        self.index(*harness.EVERYTHING)
        self.serve()

        with self.subTest("albums come as one scrolls"):
            self.show("/music/albums")
            self.assertEqual(self.page.run(CARDS), 60)
            self.until(f"scrollTo(0, 1e6), {CARDS} === 72 && !document.querySelector('a.more')")
        with self.subTest("search while typing"):
            self.page.press("/")
            self.page.type("ligh")
            self.until("[...document.querySelectorAll('main .name')].map(name => name.textContent) == 'First Light'")
            self.assertEqual(self.page.run("[location.pathname + location.search, document.activeElement.id, q.value]"),
                             ["/search?q=ligh", "q", "ligh"])
            self.page.after_load(lambda: self.page.run("history.back()"))
            self.assertEqual(self.page.run("location.pathname"), "/music/albums")
        with self.subTest("keys"):
            self.page.press("Tab")
            self.page.press("Enter", "\r")
            self.until("location.hash")
            self.page.press("Tab")
            self.assertTrue(self.page.run("document.activeElement.closest('main') !== null"))
            self.page.run("document.querySelector('.grid a').focus()")
            self.page.press("ArrowRight")
            self.page.after_load(lambda: self.page.press("Enter", "\r"))
            self.assertEqual(self.page.run("document.querySelector('h1').textContent"), "Many 00")
            self.show("/photos/album/Family")
            self.page.after_load(lambda: self.page.click(".photos a"))
            self.page.after_load(lambda: self.page.press("ArrowRight"))
            self.assertRegex(self.page.run("location.pathname"), "IMG_3001.jpg$")
        with self.subTest("an album plays through"):
            self.show("/music/album/The%20Sample%20Band/Blue%20Harbour")
            self.page.run(HEAR)
            self.page.click("[data-play-all]")
            self.until("heard.length > 1")
            self.assertRegex(" ".join(self.page.run("heard")), "01%20First%20Light.mp3 http.*/02%20Second%20Wind")
        with self.subTest("a long sound plays from its middle"):
            self.show(f"/entry{long}")
            self.page.press(" ")
            self.until("document.querySelector('main audio').currentTime > 0")
            self.page.run("document.querySelector('main audio').currentTime = 200")
            self.until("document.querySelector('main audio').currentTime > 200.2")
            pieces = [answer["headers"]["Content-Range"] for answer in self.page.answers if answer["status"] == 206]
            self.assertTrue(any(int(piece.split()[1].split("-")[0]) > 15 << 20 for piece in pieces), pieces)
        with self.subTest("a film plays"):
            self.show(f"/entry{film}")
            self.page.click("video")
            self.until("(film => film.currentTime > 0.5 && film.videoWidth === 176)(document.querySelector('video'))")
        with self.subTest("without scripts"):
            self.page.call("Emulation.setScriptExecutionDisabled", value=True)
            self.show("/")
            self.page.click("#q")
            self.page.type("ligh")
            self.page.after_load(lambda: self.page.press("Enter", "\r"))
            self.assertRegex(self.page.call("Runtime.evaluate", expression="document.body.textContent")["result"]["value"],
                             "First Light")
        self.assert_nothing_was_said()

    def test_login(self):
        self.serve("--token-file", "/tmp/token")
        with open("/tmp/token") as file:
            token = file.read().strip()
        self.show("/films?order=newest")
        with self.subTest("readers"):
            self.assertEqual(self.faults_for_readers(), [])
        for typed, said in ("wrong", "That is not the token."), (token, "Films"):
            self.page.run("document.querySelector('[name=token]').focus()")
            self.page.type(typed)
            self.page.after_load(lambda: self.page.press("Enter", "\r"))
            self.assertEqual(self.page.run("document.querySelector('[role=alert], .head h1').textContent"), said)
        self.assertEqual(self.page.run("[location.pathname + location.search, document.cookie]"), ["/films?order=newest", ""])

    def test_daemon_at_work(self):
        song = self.put(f"{M}/Song.mp3")
        self.serve()
        self.show("/status")
        self.page.run("window.isSame = true")
        self.until(f"{STATE} === 'The daemon has nothing to do'")
        appliance.enqueue([f"a:{song}"] * 20000)
        harness.hurry()
        done, files = 0, set()
        for _ in range(5):  # stopped between two files it has none to show
            harness.wait_for("a request", lambda: self.requests_done() > done)
            os.kill(appliance.daemon_pid(), signal.SIGSTOP)
            self.until(f"{STATE} === 'The daemon is at work' && {PROGRESS}.value > {done}")
            done = self.page.run(f"{PROGRESS}.value")
            self.assertEqual(self.page.run(f"{PROGRESS}.max"), 20000)
            files.add(self.page.run(f"live.textContent.includes({json.dumps(song)})"))
            os.kill(appliance.daemon_pid(), signal.SIGCONT)
        self.assertIn(True, files)
        self.until(f"{STATE} === 'The daemon has nothing to do'")
        self.assertEqual(self.page.run("[window.isSame, said.textContent]"), [True, "The daemon has nothing to do"])
        self.until("fetch('/').then(page => page.text()).then(text => text.includes('Old Tapes'))")
        self.assert_nothing_was_said()

    def requests_done(self):
        return json.loads(self.read("/live")).get("requests_done", 0)


if __name__ == "__main__":
    harness.main()

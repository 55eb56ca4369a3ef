#!/usr/bin/python3
"""README.md is true to the letter: every command of its marked blocks runs, in order, and ends as it says; its picture
shows what is printed; exit codes are told alike everywhere; the manual names every field of every command's JSON."""
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile

import harness
import terminal_picture
from harness import appliance

# What this sandbox cannot run: the one opens a sandbox of its own, the other runs this test.
ELSEWHERE = ("script/run", "script/test")


def text_of(name):
    with open(os.path.join(harness.TOP, name), encoding="utf-8") as file:
        return file.read()


def sentences(pairs):
    return {code: " ".join(re.sub(r"\s+", " ", text).lower().strip(" .").split()) for code, text in pairs}


def manual(section):
    return text_of("packaging/man/koliindexctl.1").partition(f"\n.SH {section}\n")[2].partition("\n.SH")[0].replace("\\-", "-")


def told_fields(text):
    """The fields that a text of the manual names: {(name, kind), ...}, those that are always there first."""
    always, sometimes, kind = set(), set(), ""
    for word, font, name in re.findall(r"\b(text|number|truth value|list|object)s?\b|\\f([BI])([\w.]+)\\fP", text, re.IGNORECASE):
        kind = word.lower() or kind
        if name:
            (always if font == "B" else sometimes).add((name, kind))
    return always, sometimes


def fields(value):
    """Those of a document, whatever they are in."""
    kinds = {str: "text", bool: "truth value", int: "number", float: "number", list: "list", dict: "object"}
    if isinstance(value, list):
        return set().union(*map(fields, value))
    if not isinstance(value, dict):
        return set()
    return {(name, kinds[type(one)]) for name, one in value.items()}.union(*map(fields, value.values()))


class Readme(harness.DaemonTest):
    def test_picture(self):
        for share in harness.SHARES:
            shutil.copytree(f"{harness.SAMPLES}/{share}", f"/volume1/{share}", dirs_exist_ok=True)
        appliance.enqueue(harness.EVERYTHING)
        self.start()
        appliance.wait_for_batch(harness.LONG_PATIENCE)
        drawn = terminal_picture.picture(terminal_picture.session(self.binary))
        appliance.stop()
        self.assertEqual(*(re.sub(r"[\d.]+| +", "", svg) for svg in (drawn, text_of("terminal.svg"))))

    def test_exit_codes(self):
        told = sentences(re.findall(r"^\| (\d) \| (.*) \|$", text_of("README.md"), re.MULTILINE))
        self.assertEqual(len(told), 6)
        said = subprocess.run(self.command("--help"), stdout=subprocess.PIPE, text=True, check=True).stdout
        self.assertEqual(sentences(re.findall(r"^  (\d)  ((?:.*\n(?=     ))*.*)", said, re.MULTILINE)), told)
        self.assertEqual(sentences(re.findall(r"^\.B (\d)\n([^.].*)", manual("EXIT STATUS"), re.MULTILINE)), told)

    def test_json_fields(self):
        entries = dict(re.findall(r"^\.B (.*)\n((?:(?!\.TP$).*\n?)*)", manual("JSON"), re.MULTILINE))
        song = self.put("/volume1/music/Album/Song.mp3", "music/Blue Harbour/01 First Light.mp3")
        old = self.put("/volume1/music/Album/Old.mp3", "music/Café Été/01 Déjà vu.mp3")
        self.put("/volume1/music/Album/broken.wma", "music/Broken/page.wma")
        self.put("/volume1/photo/Coast/a.jpg", "photo/Coast 2019/IMG_0001.jpg")
        film = self.put("/volume1/video/film.avi", "video/Formats/clip.avi")
        self.index(*harness.EVERYTHING)
        os.unlink(film)  # the share looks as if it were not mounted
        new = self.put("/volume1/music/new.mp3")
        self.start()
        entries["list"] = manual("COLUMNS")
        for entry, *arguments in (
                ("add remove rename enqueue rebuild resync truncate", "add", new), ("add --wait", "add", "--wait", "/volume1/music"),
                ("sync", "sync", "--dry-run"), ("repair", "repair", "--dry-run"), ("status", "status"), ("show", "show", song),
                ("list", "list"), ("list --count", "list", "--count"), ("search", "search", "light"),
                ("search --count", "search", "--count", "light"), ("stats", "stats"), ("problems", "problems"),
                ("why", "why", "/volume1/music/Album/broken.wma"), ("charset", "charset", old), ("setup", "setup", "/volume1"),
                ("copy-database", "copy-database", "sqlite:/var/lib/koli", "sqlite:/var/tmp/copy")):
            with self.subTest(entry):
                if entry == "sync":
                    self.put("/volume1/music/newer.mp3")
                if entry == "copy-database":
                    appliance.stop()
                done = subprocess.run(self.command(*arguments, "--json"), stdout=subprocess.PIPE, check=False)
                document = json.loads(done.stdout)
                if entry == "show":
                    document = {"covers": document["covers"]}
                always, sometimes = told_fields(entries.pop(entry))
                self.assertEqual(always - fields(document), set())
                self.assertEqual(fields(document) - always - sometimes, set())
        self.assertEqual(list(entries), [])

    def test_every_command(self):
        os.environ["PATH"] = os.path.dirname(self.binary) + ":" + os.environ["PATH"]
        self.put("/volume1/music/Album/Song.mp3")
        self.put("/volume1/music/Album/broken.wma", "music/Broken/page.wma")
        self.addCleanup(lambda: [os.kill(int(pid), signal.SIGTERM) for pid in os.listdir("/run/koliindexd-watch") if pid.isdigit()])
        blocks = re.findall(r"^```sh\n(.*?)^```$", text_of("README.md"), re.MULTILINE | re.DOTALL)
        commands = [line for block in blocks for line in block.splitlines()]
        self.assertGreater(len(commands), 20)
        for command in commands:
            if command.split()[0] in ELSEWHERE:
                continue
            # To a file of its own: one of them goes on in the background.
            with self.subTest(command), tempfile.TemporaryFile("w+", encoding="utf-8") as output:
                process = subprocess.Popen(["bash", "-c", command], stdout=output, stderr=output)
                harness.wait_for(command, lambda: process.poll() is not None or harness.hurry())
                output.seek(0)
                said = output.read()
                self.assertIn(process.returncode, (0, 1) if "ends with 1" in command else (0,), said)
                self.assertTrue("--quiet" not in command or not said, said)
            if command.startswith("kill ") and "USR1" not in command:
                harness.wait_for("the daemon's end", lambda: not appliance.daemon_pid())


if __name__ == "__main__":
    harness.main()

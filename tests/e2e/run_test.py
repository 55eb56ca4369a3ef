#!/usr/bin/python3
"""What script/run shows of a library inside the sandbox, to a terminal, a pipe and a shell."""
import os
import signal
import subprocess
import unicodedata

import harness

WIDE = "第二" * 20


class Run(harness.DaemonTest):
    def show(self, *options, typed="", **environment):
        """The report that it prints; nothing of it stays at work."""
        done = subprocess.run([f"{harness.TOP}/script/index-shares", *options, self.binary], input=typed, text=True,
                              capture_output=True, env={**os.environ, **environment}, check=False)
        self.assertEqual((done.returncode, self.processes()), (0, 0), done.stderr)
        return done.stdout

    def test_report(self):
        self.put("/volume1/music/Album/Song.mp3")
        self.put(f"/volume1/music/{WIDE}/{WIDE}.mp3")
        self.put("/volume1/music/cut.ogg", "music/Broken/cut.ogg")
        self.put("/volume1/music/empty.mp3", "music/Broken/empty.mp3")
        for width in (80, 132):
            report = self.show(COLUMNS=str(width))
            for line in report.splitlines():
                self.assertLessEqual(len(line) + sum(unicodedata.east_asian_width(c) == "W" for c in line), width, line)
            self.assertRegex(report, f"  ….*{WIDE[-8:]}[.]mp3  +Side B")
            problems = report.partition("Could not be read")[2]
            self.assertRegex(problems, "music/cut.ogg  +the container could not be opened\n")
            self.assertRegex(problems, "music/empty.mp3  +there is no MPEG audio in it\n")
            self.forget_everything()
        self.assertIn(f"  music/{WIDE}/{WIDE}.mp3  Side B", self.show(COLUMNS=""))

    def test_reader_who_leaves(self):
        self.put("/volume1/music/Song.mp3")
        with subprocess.Popen([f"{harness.TOP}/script/index-shares", self.binary], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            process.stdout.close()
            self.assertEqual((process.stderr.read(), process.wait()), (b"Indexing 1 file ...\n", -signal.SIGPIPE))

    def test_shell(self):
        shown = self.show("--shell", typed="koliindexctl status; mkdir music/New\n"
                                           "until grep New /var/spool/koli_indexing_queue; do sleep 0.1; done\n")
        self.assertRegex(shown, "(?s)nothing to index\n.*    koliindexctl list\n.*daemon +running\n.*A:/volume1/music/New\n$")

    def test_share_that_a_folder_looks_like(self):
        for share, names in {"photo": "a.JPG a.xmp a.txt b.txt a", "video": "a.mkv b.mp4 a.jpg a.m3u b.m3u c.wpl",
                             "music": "a.txt"}.items():
            folder = f"/tmp/{share}"
            for name in names.split():
                self.put(f"{folder}/below/{name}")
            found = subprocess.check_output([f"{harness.TOP}/script/share-of", folder], text=True)
            self.assertEqual(found, share + "\n")


if __name__ == "__main__":
    harness.main()

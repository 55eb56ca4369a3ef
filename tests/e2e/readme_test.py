#!/usr/bin/python3
"""README.md is true to the letter: every command of its marked blocks runs, in order, and ends as it says; its picture
shows what is printed; exit codes are told alike everywhere."""
import os
import re
import shutil
import subprocess

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


class Readme(harness.DaemonTest):
    def test_picture(self):
        for share in harness.SHARES:
            shutil.copytree(f"{harness.SAMPLES}/{share}", f"/volume1/{share}", dirs_exist_ok=True)
        appliance.enqueue(harness.EVERYTHING)
        self.start()
        appliance.wait_for_batch(300)
        drawn = terminal_picture.picture(terminal_picture.session(self.binary))
        appliance.stop()
        self.assertEqual(*(re.sub(r"[\d.]+| +", "", svg) for svg in (drawn, text_of("terminal.svg"))))

    def test_exit_codes(self):
        told = sentences(re.findall(r"^\| (\d) \| (.*) \|$", text_of("README.md"), re.MULTILINE))
        self.assertEqual(len(told), 6)
        said = subprocess.run(self.command("--help"), stdout=subprocess.PIPE, text=True, check=True).stdout
        self.assertEqual(sentences(re.findall(r"^  (\d)  ((?:.*\n(?=     ))*.*)", said, re.MULTILINE)), told)
        page = text_of("packaging/man/koliindexctl.1").partition(".SH EXIT STATUS")[2].partition(".SH")[0]
        self.assertEqual(sentences(re.findall(r"^\.B (\d)\n([^.].*)", page, re.MULTILINE)), told)

    def test_every_command(self):
        os.environ["PATH"] = os.path.dirname(self.binary) + ":" + os.environ["PATH"]
        self.put("/volume1/music/Album/Song.mp3")
        self.put("/volume1/music/Album/broken.wma", "music/Broken/page.wma")
        blocks = re.findall(r"^```sh\n(.*?)^```$", text_of("README.md"), re.MULTILINE | re.DOTALL)
        commands = [line for block in blocks for line in block.splitlines()]
        self.assertGreater(len(commands), 20)
        for command in commands:
            if command.split()[0] in ELSEWHERE:
                continue
            with self.subTest(command), open("/tmp/output", "w+", encoding="utf-8") as output:
                process = subprocess.Popen(["bash", "-c", command], stdout=output, stderr=output)
                harness.wait_for(command, lambda: process.poll() is not None or harness.hurry())
                output.seek(0)
                self.assertIn(process.returncode, (0, 1) if "ends with 1" in command else (0,), output.read())
            if command.startswith("kill ") and "USR1" not in command:
                harness.wait_for("the daemon's end", lambda: not appliance.daemon_pid())


if __name__ == "__main__":
    harness.main()

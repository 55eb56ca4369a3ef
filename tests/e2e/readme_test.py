#!/usr/bin/python3
"""README.md is true to the letter: every command of its marked blocks runs, in order, and ends as it says."""
import os
import re
import subprocess

import harness
from harness import appliance

# What this sandbox cannot run: the one opens a sandbox of its own, the other runs this test.
ELSEWHERE = ("script/run", "script/test")


class Readme(harness.DaemonTest):
    def test_every_command(self):
        os.environ["PATH"] = os.path.dirname(self.binary) + ":" + os.environ["PATH"]
        self.put("/volume1/music/Album/Song.mp3")
        self.put("/volume1/music/Album/broken.wma", "music/Broken/page.wma")
        with open(os.path.join(harness.TOP, "README.md"), encoding="utf-8") as file:
            blocks = re.findall(r"^```sh\n(.*?)^```$", file.read(), re.MULTILINE | re.DOTALL)
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

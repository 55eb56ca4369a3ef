#!/usr/bin/python3
"""README.md is true to the letter: every command of its marked blocks runs, in order, and ends as it says."""
import os
import re
import subprocess

import harness
from harness import appliance

# What this sandbox cannot run; who runs it instead.
ELSEWHERE = {
    "script/run": "builds and opens a sandbox of its own; tried by hand and by whoever reads the first page",
    "script/test": "runs this test",
}


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
                done = subprocess.run(["bash", "-c", command], stdout=output, stderr=output, timeout=120, check=False)
                output.seek(0)
                self.assertIn(done.returncode, (0, 1) if "ends with 1" in command else (0,), output.read())
            if command.startswith("kill ") and "USR1" not in command:
                appliance.wait_until(lambda: not appliance.daemon_pid(), 20, "the daemon's end")


if __name__ == "__main__":
    harness.main()

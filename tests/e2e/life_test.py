#!/usr/bin/python3
"""Start, stop, and death at any moment."""
import os
import random
import signal
import subprocess
import time

import harness
from harness import appliance


class Life(harness.DaemonTest):
    def test_help(self):
        shown = subprocess.run([self.binary, "--help"], capture_output=True, check=True).stdout
        self.assertIn(b"koliindexd", shown)
        self.assertFalse(os.path.exists(appliance.PID_FILE))

    def test_one_instance(self):
        self.start()
        appliance.wait_until(appliance.daemon_pid, 10, "the pid file")
        pid = appliance.daemon_pid()
        second = appliance.start(self.binary)
        self.assertEqual((second.returncode, second.stdout), (1, b"Daemon alive. No need to start\n"))
        self.assertEqual(appliance.daemon_pid(), pid)
        self.assertEqual(os.stat(appliance.PID_FILE).st_mode & 0o777, 0o644)
        appliance.wait_until(lambda: os.getpriority(os.PRIO_PROCESS, pid) == 10, 10, "the nice level")
        appliance.stop()
        self.assertFalse(os.path.exists(appliance.PID_FILE))

    def test_two_starts_at_the_same_instant(self):
        for _ in range(20):
            both = [subprocess.Popen([self.binary], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) for _ in range(2)]
            said = sorted((one.wait(), one.communicate()[0]) for one in both)
            appliance.wait_until(appliance.daemon_pid, 10, "the pid file")
            self.assertEqual(said, [(0, b""), (1, b"Daemon alive. No need to start\n")])
            # The one of the round before may still be on its way out: its pid file goes first.
            appliance.wait_until(lambda: sum(map(self.runs, os.listdir("/proc"))) == 1, 10, "a single daemon")
            appliance.stop()

    def runs(self, pid):
        try:
            return pid.isdigit() and os.path.samefile(f"/proc/{pid}/exe", self.binary)
        except OSError:
            return False

    def test_stale_pid_files(self):
        ended = subprocess.Popen(["true"])
        ended.wait()
        for text in (str(ended.pid), "", "none", "-1", "0", "99999999999999999999"):
            with open(appliance.PID_FILE, "w") as file:
                file.write(text)
            os.chmod(appliance.PID_FILE, 0o600)
            self.start()
            appliance.wait_until(appliance.daemon_pid, 10, "the pid file")
            self.assertEqual(os.stat(appliance.PID_FILE).st_mode & 0o777, 0o644)
            appliance.stop()

    def test_leftover_batch_comes_before_the_queue(self):
        self.put("/volume1/music/a.mp3")
        appliance.enqueue(["T:music"])
        os.rename(appliance.QUEUE, appliance.BATCH)
        self.index("A:/volume1/music")
        self.assertEqual(self.paths("music"), ["/volume1/music/a.mp3"])

    def test_killed_at_any_moment(self):
        for share in harness.SHARES:
            for copy in range(4):
                harness.shutil.copytree(f"{harness.SAMPLES}/{share}", f"/volume1/{share}/copy {copy}")
        self.put_captions()
        lines = [f"A:/volume1/{share}" for share in harness.SHARES]
        begin = time.monotonic()
        self.index(*lines, seconds=200)
        whole = time.monotonic() - begin
        expected = harness.dump()
        self.assertGreater(len(expected["music"]), 100)
        chance = random.Random(7)
        interrupted = 0
        for _ in range(4):
            self.forget_everything()
            self.put_captions()
            appliance.enqueue(lines)
            for _ in range(6):
                self.start()
                time.sleep(chance.uniform(0, whole * 0.7))
                appliance.stop(signal.SIGKILL)
                interrupted += os.path.exists(appliance.BATCH)
            self.index(seconds=200)
            for table, found in harness.dump().items():
                self.assertEqual(found, expected[table], table)
        self.assertGreater(interrupted, 8)

    @staticmethod
    def put_captions():
        """A caption is handed over once: its file is gone when the photo has it."""
        for path in harness.glob.glob("/volume1/photo/**/IMG_*.jpg", recursive=True):
            folder, name = os.path.split(path)
            os.makedirs(f"{folder}/@eaDir/{name}", exist_ok=True)
            for kind in ("TITLE", "DESC"):
                with open(f"{folder}/@eaDir/{name}/KOLIPHOTO:{kind}", "w") as caption:
                    caption.write(f"{kind} of {path}")


if __name__ == "__main__":
    harness.main()

"""The real daemon in the sandbox, one clean appliance per test. The test programs run inside: script/sandbox -- FILE DAEMON"""
import glob
import os
import shutil
import signal
import sys
import unittest

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
sys.path.insert(0, os.path.join(TOP, "script"))
import appliance  # noqa: E402

SAMPLES = os.path.join(TOP, "build", "samples")
SHARES = ("music", "video", "photo")


def empty_folder(folder):
    for name in os.listdir(os.fsencode(folder)):
        path = os.path.join(os.fsencode(folder), name)
        if os.path.isdir(path) and not os.path.islink(path):
            shutil.rmtree(path)
        else:
            os.unlink(path)


class DaemonTest(unittest.TestCase):
    binary = ""
    maxDiff = 4000

    def setUp(self):
        for share in SHARES:
            empty_folder(f"/volume1/{share}")
        self.forget_everything()
        self.addCleanup(self.check_daemon_was_healthy)
        self.addCleanup(lambda: appliance.stop(signal.SIGKILL))  # runs first; most tests have stopped it themselves

    def forget_everything(self):
        for folder in (appliance.STORE, "/var/spool"):
            empty_folder(folder)
        for path in glob.glob("/run/*.pid") + glob.glob(appliance.SANITIZER_REPORT + "*"):
            os.unlink(path)
        appliance.clear_log()

    def check_daemon_was_healthy(self):
        for path in glob.glob(appliance.SANITIZER_REPORT + "*"):
            with open(path) as report:
                self.fail(report.read())

    def start(self):
        started = appliance.start(self.binary)
        self.assertEqual((started.returncode, started.stdout), (0, b""))

    def index(self, *lines, seconds=60, before_stop=lambda: None):
        """One batch from start to stop; returns what was logged meanwhile."""
        appliance.clear_log()
        appliance.enqueue(lines)
        self.start()
        appliance.wait_for_batch(seconds)
        before_stop()
        appliance.stop()
        return appliance.log_messages()

    def put(self, path, sample=None):
        """A copy of a sample (a path below build/samples), or an MP3 file, at an absolute path; the path as text."""
        os.makedirs(os.path.dirname(path), exist_ok=True)
        shutil.copyfile(os.path.join(SAMPLES, sample or "music/Old Tapes/side b.mp3"), path)
        return os.fsdecode(path)

    def paths(self, table):
        return sorted(row["path"] for row in appliance.rows(table))

    def row(self, table, path):
        found = [row for row in appliance.rows(table) if row["path"] == os.fsdecode(path)]
        self.assertEqual(len(found), 1, path)
        return found[0]


def dump():
    """Every row of every table, in an order that does not depend on how it came about."""
    tables = appliance.MEDIA_TABLES + appliance.PHOTO_TABLES
    return {table: sorted(sorted(row.items()) for row in appliance.rows(table)) for table in tables}


def main():
    appliance.require_sandbox()
    DaemonTest.binary = sys.argv.pop(1)
    unittest.main(verbosity=2)

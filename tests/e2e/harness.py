"""The real daemon in the sandbox, one clean appliance per test. A test runs inside: script/sandbox -- FILE DAEMON"""
import contextlib
import glob
import os
import shutil
import signal
import subprocess
import sys
import time
import unittest

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
sys.path.insert(0, os.path.join(TOP, "script"))
import appliance  # noqa: E402

SAMPLES = os.path.join(TOP, "build", "samples")
PICTURE, SONG = "photo/Family/IMG_3000.jpg", "music/Old Tapes/side b.mp3"
SHARES = ("music", "video", "photo")
EVERYTHING = [f"A:/volume1/{share}" for share in SHARES]
PATIENCE = appliance.PATIENCE
LONG_PATIENCE = 900  # of a whole library, on one busy processor
IS_EMULATED = "KOLI_TRIPLE" in os.environ  # by script/machine
MAKES_PICTURES = unittest.skipIf(IS_EMULATED, "no picture is made where the kernel guards no child")


def wait_for(what, condition):
    appliance.wait_until(condition, PATIENCE, what)


def hurry():
    """The overflow of signals has the daemon take the queue over at once; where so many do not get through, its quiet
    tick comes a little later."""
    end, pid = time.monotonic() + 20, appliance.daemon_pid()
    with contextlib.suppress(ProcessLookupError):  # it has ended
        while pid and os.path.exists(appliance.QUEUE) and time.monotonic() < end:
            os.kill(pid, signal.SIGUSR1)


def empty_folder(folder):
    subprocess.run(["find", folder, "-mindepth", "1", "-delete"], check=True)


def hand_over(path, stream, text):
    """Leaves a caption for the daemon to find."""
    folder, name = os.path.split(path)
    os.makedirs(f"{folder}/@eaDir/{name}", exist_ok=True)
    with open(f"{folder}/@eaDir/{name}/KOLIPHOTO:{stream}", "w", errors="surrogateescape") as file:
        file.write(text)


def put(path, sample="", title=None):
    """A copy of a sample (a path below build/samples) at an absolute path, with its caption; the path as text."""
    path = os.fsdecode(path)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    shutil.copyfile(f"{SAMPLES}/{sample or (PICTURE if path.endswith('.jpg') else SONG)}", path)
    if title:
        hand_over(path, "TITLE", title)
    return path


class DaemonTest(unittest.TestCase):
    binary = ""
    maxDiff = 4000
    put = staticmethod(put)

    def setUp(self):
        self.clean()
        self.addCleanup(self.check_daemon_was_healthy)
        self.addCleanup(lambda: appliance.stop(signal.SIGKILL))  # runs first; most tests have stopped it themselves

    def clean(self):
        for share in SHARES:
            empty_folder(f"/volume1/{share}")
        self.forget_everything()

    def forget_everything(self):
        for folder in (appliance.STORE, "/var/spool"):
            empty_folder(folder)
        if appliance.ON_SERVER:
            appliance.ask_server(f"DROP SCHEMA IF EXISTS {appliance.LIBRARY} CASCADE")
        for path in {name for pattern in ("/run/*.pid", "/run/koliindexd.*", appliance.SANITIZER_REPORT + "*")
                     for name in glob.glob(pattern)}:
            os.unlink(path)
        appliance.clear_log()

    def check_daemon_was_healthy(self):
        for path in glob.glob(appliance.SANITIZER_REPORT + "*"):
            with open(path) as report:
                self.fail(report.read())

    def start(self):
        started = appliance.start(self.binary)
        self.assertEqual((started.returncode, started.stdout), (0, b""))
        wait_for("the pid file", appliance.daemon_pid)

    def index(self, *lines, before_stop=lambda: None):
        """One batch from start to stop; returns what was logged meanwhile."""
        appliance.clear_log()
        appliance.enqueue(lines)
        self.start()
        appliance.wait_for_batch(LONG_PATIENCE)
        before_stop()
        appliance.stop()
        return appliance.log_messages()

    def paths(self, table):
        return sorted(row["path"] for row in appliance.rows(table))

    def row(self, table, path):
        found = [row for row in appliance.rows(table) if row["path"] == os.fsdecode(path)]
        self.assertEqual(len(found), 1, path)
        return found[0]

    def processes(self):
        """How many run the daemon's program, probes included."""
        programs = []
        for folder in glob.glob("/proc/[0-9]*"):
            with contextlib.suppress(OSError, IndexError):  # it has just ended
                programs.append(program_of(folder))
        return programs.count(os.path.realpath(self.binary))

    def command(self, *arguments):
        return [os.path.join(os.path.dirname(self.binary), "koliindexctl"), *arguments]


def program_of(folder):
    """What runs in the process that /proc tells of there."""
    program = os.readlink(f"{folder}/exe")
    if os.path.basename(program).startswith("qemu-"):  # an emulator: it is called with the program's path
        with open(f"{folder}/cmdline", "rb") as file:
            return os.fsdecode(file.read().split(b"\0")[1])
    return program


def stored_rows():
    tables = appliance.MEDIA_TABLES + appliance.PHOTO_TABLES
    return {table: sorted(sorted(row.items()) for row in appliance.rows(table)) for table in tables}


def control_server(command, directory, *arguments):
    subprocess.run([f"{TOP}/tests/postgresql-server", command, os.environ["KOLI_TEST_POSTGRES"], directory, *arguments],
                   check=True, stdout=subprocess.DEVNULL)


def begin():
    appliance.require_sandbox()
    if appliance.ON_SERVER:
        if "KOLI_TEST_SERVER" not in os.environ:  # else it is others', too
            control_server("start", appliance.SERVER)
            os.chmod(appliance.SERVER, 0o711)  # also for a root who may not do everything
        with open("/etc/koliinfo.conf", "a") as config:
            config.write(appliance.server_settings())


def main():
    begin()
    DaemonTest.binary = sys.argv.pop(1)
    unittest.main(verbosity=2)

"""The appliance as the sandbox shows it: the daemon's queue, its log and its databases at their fixed paths."""
import contextlib
import os
import re
import signal
import socket
import sqlite3
import subprocess
import sys
import time

QUEUE = "/var/spool/koli_indexing_queue"
BATCH = QUEUE + ".tmp"
PID_FILE = "/var/run/koliindexd.pid"
STORE = "/var/lib/koli"
LOG = "/run/syslog"
SANITIZER_REPORT = "/run/sanitizer"  # the daemon has no standard error to report to
PATIENCE = 120  # seconds: a machine may be slow, and busy with other things
MEDIA_TABLES = ("music", "video", "photo", "playlist", "directory")
PHOTO_TABLES = ("photo_info", "photo_share", "photo_access_right", "video_desc", "video_comment")


class DaemonGone(Exception):
    """The daemon ended before its batch was done."""


def require_sandbox():
    if "KOLI_SANDBOX" not in os.environ:
        sys.exit(f"{sys.argv[0]} writes to the appliance's paths: run it with script/sandbox")


def wait_until(condition, seconds, what):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(f"{what}: not within {seconds} s")
        time.sleep(0.002)


def daemon_pid():
    """The running daemon's pid, or 0."""
    try:
        with open(PID_FILE) as file:
            pid = int(file.read())
        os.kill(pid, 0)
        with open(f"/proc/{pid}/stat") as file:
            return 0 if file.read().rpartition(")")[2].split()[0] == "Z" else pid
    except (OSError, ValueError, OverflowError):
        return 0


def environment():
    options = f"log_path={SANITIZER_REPORT}:print_stacktrace=1"
    return {**os.environ, "ASAN_OPTIONS": options, "UBSAN_OPTIONS": options}


def start(binary):
    return subprocess.run([binary], env=environment(), stdin=subprocess.DEVNULL, capture_output=True, timeout=PATIENCE,
                          check=False)


def stop(number=signal.SIGTERM):
    pid = daemon_pid()
    if pid:
        os.kill(pid, number)
        # A start takes one whose end nobody has waited for yet for a daemon that runs.
        wait_until(lambda: not os.path.exists(f"/proc/{pid}"), PATIENCE, "the daemon's end")


def enqueue(lines):
    with open(QUEUE, "ab") as file:
        file.write(b"".join(os.fsencode(line) + b"\n" for line in lines))


def is_waiting():
    """True while there is a batch, or a queue that is to become one."""
    return os.path.lexists(QUEUE) or os.path.lexists(BATCH)


def wait_for_batch(seconds, tick=lambda: None):
    """Until the queue has been worked off; raises DaemonGone when the daemon dies over it."""
    wait_until(lambda: daemon_pid() or not is_waiting(), PATIENCE, "the daemon's pid file")

    def done():
        if not is_waiting():
            return True
        if not daemon_pid():
            raise DaemonGone
        tick()
        return False

    wait_until(done, seconds, "the batch")


def settle_log():
    """Until everything that has been logged so far is in the file: a mark sent after it has arrived."""
    mark = b"mark %d" % time.monotonic_ns()
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.sendto(mark, "/dev/log")

    def arrived():
        with open(LOG, "rb") as file:
            return mark in file.read()

    wait_until(arrived, PATIENCE, "the log")


def clear_log():
    settle_log()
    os.truncate(LOG, 0)


def log_messages():
    """What was logged, oldest first, without time and program; undecodable bytes as surrogates."""
    settle_log()
    with open(LOG, "rb") as file:
        lines = os.fsdecode(file.read()).split("\n")[:-1]
    return [re.sub(r"^<\d+>\w+ +\d+ [\d:]+ [^:]*: ", "", line) for line in lines if line.startswith("<")]


def open_database(name):
    connection = sqlite3.connect(f"file:{STORE}/{name}.db?mode=ro", uri=True)
    connection.text_factory = os.fsdecode
    connection.row_factory = sqlite3.Row
    return connection


@contextlib.contextmanager
def change(name):
    """A database to be changed as another program does it; committed at the end."""
    connection = sqlite3.connect(f"{STORE}/{name}.db")
    try:
        with connection:
            yield connection
    finally:
        connection.close()


def rows(table):
    """All rows of a table as dictionaries; [] as long as there is no such table."""
    name = "photo" if table in PHOTO_TABLES else "media"
    if not os.path.exists(f"{STORE}/{name}.db"):
        return []
    connection = open_database(name)
    try:
        return [dict(row) for row in connection.execute(f"SELECT * FROM {table}")]
    except sqlite3.OperationalError as error:
        if "no such table" in str(error):
            return []
        raise
    finally:
        connection.close()

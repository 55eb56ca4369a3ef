"""The appliance as the sandbox shows it: the daemon's queue, its log and its databases at their fixed paths."""
import atexit
import contextlib
import glob
import json
import os
import re
import shutil
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
# A machine of the other order of bytes, in an emulator: what its programs share of a database is not for ours.
IS_FOREIGN = os.environ.get("KOLI_MACHINE") == "s390x"
PATIENCE = 120  # seconds: a machine may be slow, and busy with other things
MEDIA_TABLES = ("music", "video", "photo", "playlist", "directory")
PHOTO_TABLES = ("photo_info", "photo_share", "photo_access_right", "video_desc", "video_comment")


ON_SERVER = os.environ.get("KOLI_TEST_ENGINE") == "postgresql"  # the databases, in a server of the sandbox's own
SERVER = os.environ.get("KOLI_TEST_SERVER", "/run/postgresql")  # the folder of its socket
LIBRARY = os.environ.get("KOLI_TEST_LIBRARY", "appliance")
MAPPED = re.compile(rb"\x01[\x01\x02]|\xef[\x9e\x9f][\x80-\xbf]")  # a byte that is no UTF-8, as it is kept there


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


def try_again():
    """So many signals that the daemon tries a batch that it keeps without waiting longer."""
    pid = daemon_pid()
    with contextlib.suppress(ProcessLookupError):
        for _ in range(200 if pid else 0):
            os.kill(pid, signal.SIGUSR1)


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


def database_files(name):
    """With the log, and without what the processes of one machine share."""
    return sorted(path for path in glob.glob(f"{STORE}/{name}.db*") if not path.endswith("-shm"))


def settled_copy(name):
    """The folder of a copy that nobody has written to meanwhile."""
    folder = "/tmp/copied"

    def changes():
        return [(path, os.stat(path).st_mtime_ns) for path in database_files(name)]

    while True:
        with contextlib.suppress(FileNotFoundError):  # the log has just gone
            before = changes()
            shutil.rmtree(folder, ignore_errors=True)
            os.mkdir(folder)
            for path, _ in before:
                shutil.copy(path, folder)
            if changes() == before:
                return folder


def open_database(name):
    folder = settled_copy(name) if IS_FOREIGN else STORE
    connection = sqlite3.connect(f"file:{folder}/{name}.db?mode=ro", uri=True)
    connection.text_factory = os.fsdecode
    connection.row_factory = sqlite3.Row
    return connection


@contextlib.contextmanager
def change(name):
    """A database to be changed as another program does it; committed at the end."""
    if ON_SERVER:
        yield (changes := ServerChange())
        ask_server(";\n".join(("BEGIN", *changes.statements, "COMMIT")))
        return
    connection = sqlite3.connect(f"{STORE}/{name}.db")
    try:
        with connection:
            yield connection
    finally:
        connection.close()


def server_settings(host=SERVER):
    return f'database="postgresql:host={host} user=koli dbname=postgres"\nlibrary="{LIBRARY}"\n'


def server_dump():
    """All of the library, as statements."""
    command = ["pg_dump", "-h", SERVER, "-U", "koli", "-n", LIBRARY, "postgres"]
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False).stdout


def server_restore(dump):
    session = ServerSession(SERVER)  # one of its own: a dump changes settings
    if session.ask(b"DROP SCHEMA IF EXISTS %s CASCADE;\n%s" % (LIBRARY.encode(), dump)) is None:
        raise sqlite3.OperationalError(session.complaint)
    session.psql.communicate()


class ServerSession:
    """A psql that stays connected until a statement fails."""
    END = b"-- all is said --\n"

    def __init__(self, server):
        command = ["psql", "-XqAt", "-v", "ON_ERROR_STOP=1", "-h", server, "-U", "koli", "postgres"]
        self.psql = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                     env={**os.environ, "PGCLIENTENCODING": "UTF8", "PGOPTIONS": "-c client_min_messages=error"})

    def ask(self, statements):
        """What it answers, as bytes; None on failure."""
        lines = []
        with contextlib.suppress(BrokenPipeError):
            self.psql.stdin.write(statements + b"\n;\\echo " + self.END)
            self.psql.stdin.flush()
            for line in self.psql.stdout:
                if line == self.END:
                    return b"".join(lines)
                lines.append(line)
        self.complaint = self.psql.communicate()[1].decode()
        return None


sessions = {}  # by the folder of the server's socket


@atexit.register
def end_sessions():
    """Also for whoever waits for all of this process's children."""
    while sessions:
        sessions.popitem()[1].psql.communicate()


def run_on_server(server, statements):
    """What it answers, as bytes."""
    session = sessions.pop(server, None)
    answer = session.ask(statements) if session else None
    if answer is None:  # the server may have been restarted
        session = ServerSession(server)
        answer = session.ask(statements)
    if answer is None:
        raise sqlite3.OperationalError(session.complaint)
    sessions[server] = session
    return answer


def ask_server(statement):
    return run_on_server(SERVER, f"SET search_path TO {LIBRARY};\n{statement};\n".encode())


def own_byte(mapped):
    *_, middle, last = mapped[0]
    return bytes([last - 1 if middle == 1 else last if middle == 0x9e else last + 0x40])


def own_value(value):
    """A value of a row as SQLite has it."""
    if isinstance(value, bool):
        return "ft"[value]
    return os.fsdecode(MAPPED.sub(own_byte, value.encode())) if isinstance(value, str) else value


class ServerChange:
    def __init__(self):
        self.statements = []

    def execute(self, statement, values=()):
        def quoted(mark):
            value = values[int(mark[1]) - 1] if mark[1] else next(in_turn)
            return "'" + str(value).replace("'", "''") + "'"

        in_turn = iter(values)
        self.statements.append(re.sub(r"\?(\d*)", quoted, statement))


class ServerLock:
    """Keeps a table from being written, until it is closed."""
    def __init__(self, table):
        self.session = subprocess.Popen(["psql", "-XqAt", "-h", SERVER, "-U", "koli", "postgres"], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE)
        self.session.stdin.write(f"BEGIN; LOCK {LIBRARY}.{table} IN SHARE ROW EXCLUSIVE MODE; SELECT 1;\n".encode())
        self.session.stdin.flush()
        self.session.stdout.readline()

    def close(self):
        self.session.communicate()


def row_versions():
    """Of all rows of the media store: another one for whatever was written, be it the same."""
    try:
        return [ask_server(f"SELECT path, xmin, xmax, ctid FROM {table} ORDER BY path") for table in MEDIA_TABLES]
    except sqlite3.OperationalError:
        return None  # there are no tables yet


def database_bytes():
    """Of the media store."""
    contents = []
    for path in database_files("media"):
        with open(path, "rb") as file:
            contents.append(file.read())
    return contents


class MediaWatch:
    """Whether something is written to the media store from now on."""
    def __init__(self):
        self.version = row_versions if ON_SERVER else database_bytes
        self.before = self.version()

    def has_changed(self):
        return self.version() != self.before


def server_rows(table):
    if ask_server(f"SELECT to_regclass('{table}') IS NULL").strip() == b"t":
        return []
    lines = ask_server(f"SELECT row_to_json(t) FROM {table} t").decode().split("\n")[:-1]
    return [{name: own_value(value) for name, value in json.loads(line).items()} for line in lines]


def rows(table):
    """All rows of a table as dictionaries; [] as long as there is no such table."""
    if ON_SERVER:
        return server_rows(table)
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

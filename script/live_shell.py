"""A shell in the sandbox, with the daemon and the watcher at work beside it."""
import os
import shlex
import signal
import subprocess
import sys

import appliance

RC_FILE = "/tmp/shell.rc"
WATCH_LOG = "/run/watch.log"
SECONDS = 15  # until a change is stored: the watcher lets it settle, then the daemon waits for ten quiet seconds


def start_watcher(control, shares):
    """It is at work when it has said so."""
    with open(WATCH_LOG, "wb") as log:
        watcher = subprocess.Popen([control, "watch", *(f"/volume1/{share}" for share in shares)], stdin=subprocess.DEVNULL,
                                   stdout=log, stderr=log)
    appliance.wait_until(lambda: os.path.getsize(WATCH_LOG) or watcher.poll() is not None, appliance.PATIENCE, "the watcher")
    return watcher


def some_file():
    """The shortest path, below the volume, of a file of which something was read, if its name can be typed; or None."""
    rows = (row for table in ("music", "photo", "video") for row in appliance.rows(table))
    paths = (row["path"] for row in rows if row["path"].isprintable() and (row["duration"] or row["width"]))
    return min((path.removeprefix("/volume1/") for path in paths), key=len, default=None)


def suggestions(path):
    """Three commands, each with what it is for."""
    if path is None:
        change, changed = "mkdir music/New", "music/New"
    else:
        changed = f"{path.partition('/')[0]}/Copy{os.path.splitext(path)[1]}"
        change = f"cp {shlex.quote(path)} {changed}"
    return [("what is stored" if path is None else "all that is stored of a file",
             "koliindexctl list" if path is None else f"koliindexctl show {shlex.quote(path)}"),
            ("the daemon, its queue and its databases", "koliindexctl status"),
            ("a change, and what the watcher has made of it", f"{change}; sleep {SECONDS}; koliindexctl show {changed}")]


def greet():
    print("\nThe daemon and the watcher are running, in this private copy of the machine: your\n"
          "files stay as they are, whatever you do here. Ctrl-D ends it. Try:\n")
    for purpose, command in suggestions(some_file()):
        print(f"    # {purpose}\n    {command}")
    print(flush=True)


def run(daemon, shares):
    """Until the shell is left; then the daemon and the watcher end, too."""
    programs = os.path.dirname(os.path.realpath(daemon))
    if appliance.start(daemon).returncode != 0:
        sys.exit("The daemon did not start again")
    watcher = start_watcher(f"{programs}/koliindexctl", shares)
    greet()
    with open(RC_FILE, "w") as file:
        file.write("PS1='[koliindexd] \\w \\$ '\n. <(koliindexctl completion bash)\n")
    environment = {**os.environ, "PATH": f"{programs}:{os.environ['PATH']}", "HISTFILE": "/tmp/history"}
    subprocess.call(["bash", "--rcfile", RC_FILE], cwd="/volume1", env=environment)
    watcher.kill()
    appliance.stop(signal.SIGKILL)

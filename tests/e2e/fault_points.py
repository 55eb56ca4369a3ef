"""Small batches whose order matters, and every point at which one can be hit: by a kill, by a call that fails, by a cut
of the power. However it was hit, the end must be that of the undisturbed run."""
import collections
import errno
import glob
import hashlib
import os
import re
import shutil
import signal
import sqlite3
import subprocess

import harness
import power
from harness import appliance, hand_over, put
from tracer import KILL, Hook, Tracer

P, V, M = "/volume1/photo", "/volume1/video", "/volume1/music"
SHARES = ("/volume1", "/var/services")
ROOTS = (appliance.STORE, "/var/spool", P, V, M)
DUMP = "the server's rows"  # among the files of a state
BATCH_FILES = {appliance.QUEUE, appliance.BATCH}
SAME_FILE = "/var/queue-"  # a batch that a disk brings back is the same file, by its inode; told by its content
PICTURES = [f"photo/Family/IMG_300{number}.jpg" for number in range(3)]
SONG, SUBTITLES = "music/Blue Harbour/01 First Light.mp3", "video/Formats/clip.srt"

# ---- The batches. A generator yields the lines of one batch after the other, the last one is the one that is hit; it
# ---- returns what a person expects: titles of photos by path, and public flag and users of albums.


def album(name, public, user):
    with appliance.change("photo") as database:
        database.execute(f"UPDATE photo_share SET title = 'of {name}', public = '{public}' WHERE sharename = '{name}'")
        database.execute(f"INSERT INTO photo_access_right (userid, shareid) SELECT {user}, shareid FROM photo_share"
                         f" WHERE sharename = '{name}'")


def swapped_folders():
    for name, sample in (("A", PICTURES[0]), ("B", PICTURES[1])):
        put(f"{P}/{name}/x.jpg", sample, f"of {name}")
        put(f"{P}/{name}/sub/y.jpg", sample, f"below {name}")
    yield [f"A:{P}"]
    for values in (("A", "f", 1), ("A/sub", "f", 1), ("B", "t", 2)):
        album(*values)
    moves = (("T", "A"), ("A", "B"), ("B", "T"))
    for new, old in moves:
        os.rename(f"{P}/{old}", f"{P}/{new}")
    put(f"{P}/New/z.jpg", title="new")  # its captions are taken by the rename
    hand_over(f"{P}/New", "PUBLIC", "1\n")
    yield [f"N:{P}/{new}:{P}/{old}" for new, old in (*moves, ("New", "Z"))]
    return ({"A/x.jpg": "of B", "B/x.jpg": "of A", "A/sub/y.jpg": "below B", "B/sub/y.jpg": "below A",
             "New/z.jpg": "new"},
            {"A": ("t", {2}), "A/sub": ("f", set()), "B": ("f", {1}), "B/sub": ("f", {1}), "New": ("t", set())})


def a_truncation():
    for number, sample in enumerate(PICTURES):
        put(f"{P}/T/{number}.jpg", sample)
    yield [f"A:{P}"]
    for number in range(3):
        hand_over(f"{P}/T/{number}.jpg", "TITLE", f"no. {number}")
    yield ["T:photo_info", f"A:{P}"]
    return {f"T/{number}.jpg": f"no. {number}" for number in range(3)}, {}


def names_used_again():
    put(f"{P}/A/x.jpg", title="old")
    put(f"{P}/A/film.mp4", SUBTITLES)
    put(f"{P}/T/a.jpg", title="first")
    yield [f"A:{P}"]
    album("A", "t", 1)
    with appliance.change("photo") as database:
        database.execute(f"INSERT INTO video_desc VALUES ('{P}/A/film.mp4', 'a film', 'hours of it')")
        database.execute(f"INSERT INTO video_comment (path, userid, comment) VALUES ('{P}/A/film.mp4', 1, 'long')")
    os.rename(f"{P}/A", f"{P}/B")
    put(f"{P}/A/x.jpg", PICTURES[1], "new")
    os.rename(f"{P}/T/a.jpg", f"{P}/T/b.jpg")
    put(f"{P}/T/a.jpg", PICTURES[1], "second")
    yield [f"N:{P}/B:{P}/A", f"A:{P}/A", f"N:{P}/T/b.jpg:{P}/T/a.jpg", f"a:{P}/T/a.jpg"]
    return ({"A/x.jpg": "new", "B/x.jpg": "old", "T/a.jpg": "second", "T/b.jpg": "first"},
            {"A": ("f", set()), "B": ("t", {1})})


def removals():
    for name in ("Gone", "Keep"):
        put(f"{P}/{name}/x.jpg", title=name)
        put(f"{P}/{name}/sub/y.jpg", title=f"below {name}")
        put(f"{M}/{name}/song.mp3", SONG)
    yield [f"A:{P}", f"A:{M}"]
    album("Keep", "t", 1)
    for share in (P, M):
        shutil.rmtree(f"{share}/Gone")
    yield [f"D:{share}/{name}" for share in (P, M) for name in ("Gone", "Keep")]
    return {"Keep/x.jpg": "Keep", "Keep/sub/y.jpg": "below Keep"}, {"Keep": ("t", {1}), "Keep/sub": ("f", set())}


def rebuilds():
    samples = ((P, "jpg", PICTURES[0]), (V, "srt", SUBTITLES), (M, "mp3", SONG))
    for share, end, sample in samples:
        put(f"{share}/Gone/x.{end}", sample)
        put(f"{share}/Keep/x.{end}", sample)
    hand_over(f"{P}/Keep/x.jpg", "TITLE", "kept")
    yield [f"A:{share}" for share in (P, V, M)]
    album("Keep", "t", 1)
    for share, end, sample in samples:
        os.rename(f"{share}/Gone", f"{share}/New")
        os.rename(f"{share}/New/x.{end}", f"{share}/New/new.{end}")
    yield ["R:photo", "R:video", "R:music"]
    return {"Keep/x.jpg": "kept", "New/new.jpg": "new"}, {"Keep": ("t", {1}), "New": ("f", set())}


def a_first_index():
    yield ["nothing to do"]
    for number, sample in enumerate(PICTURES):
        put(f"{P}/Trip/{number}.jpg", sample, f"no. {number}")
        put(f"{P}/Trip/song {number}.mp3", SONG)
    hand_over(f"{P}/Trip", "PUBLIC", "1\n")
    yield [f"A:{P}/Trip"]
    return {f"Trip/{number}.jpg": f"no. {number}" for number in range(3)}, {"Trip": ("t", set())}


def new_requests_beside_a_kept_batch():
    put(f"{P}/A/x.jpg", title="first")
    yield [f"A:{P}"]
    album("A", "f", 1)
    os.rename(f"{P}/A", f"{P}/B")
    with open(appliance.BATCH, "w") as kept:
        kept.write(f"N:{P}/B:{P}/A\n")
    put(f"{P}/A/x.jpg", PICTURES[1], "second")
    yield [f"A:{P}/A"]
    return {"A/x.jpg": "second", "B/x.jpg": "first"}, {"A": ("f", set()), "B": ("f", {1})}


BATCHES = {batch.__name__: batch for batch in (
    names_used_again, swapped_folders, a_truncation, removals, rebuilds, a_first_index, new_requests_beside_a_kept_batch)}

# ---- The machine's state


def is_volatile(path):
    return path.endswith("-shm")  # the engine makes it anew


def snapshot(roots=ROOTS):
    """By path: the content (None of a folder) and the time of change."""
    found = {}
    for path in (f"{place}/{name}" for root in roots for place, *inside in os.walk(root) for name in sum(inside, [])):
        if not is_volatile(path):
            content = None
            if os.path.isfile(path):
                with open(path, "rb") as file:
                    content = file.read()
            found[path] = content, os.stat(path).st_mtime_ns
    return found


def whole_state():
    return snapshot() | ({DUMP: (appliance.server_dump(), 0)} if appliance.ON_SERVER else {})


def restore(state):
    for root in ROOTS:
        harness.empty_folder(root)
    for path in glob.glob("/run/koliindexd*"):
        os.unlink(path)
    if appliance.ON_SERVER:
        state = dict(state)
        appliance.server_restore(state.pop(DUMP, (b"", 0))[0])
    for path, (content, _) in sorted(state.items()):
        if content is None:
            os.mkdir(path)
            continue
        if path in BATCH_FILES:
            same = SAME_FILE + hashlib.md5(content).hexdigest()
            with open(same, "ab"):
                os.link(same, path)
        with open(path, "wb") as file:
            file.write(content)
    for path, (_, changed) in state.items():
        os.utime(path, ns=(changed, changed))


def outcome():
    """What is compared: all rows, but ids, times of files and the mark that each resync clears first; all files in the
    shares: covers, captions left; what the converters are asked for."""
    for path in glob.glob(f"{appliance.STORE}/*.db"):  # a reader alone cannot recover a log
        sqlite3.connect(path).execute("PRAGMA user_version")
    names = {row["shareid"]: row["sharename"] for row in appliance.rows("photo_share")}
    found, apart = collections.Counter(), ("id", "shareid", "ctime", "updated")
    for table in appliance.MEDIA_TABLES + appliance.PHOTO_TABLES:
        for row in appliance.rows(table):
            row = {"path": names.get(row.get("shareid")), **row}
            found[(table, *(f"{name}={row[name]}" for name in row if name not in apart))] += 1
    found.update(("file", path, content and hashlib.md5(content).hexdigest())
                 for path, (content, _) in snapshot((P, V, M)).items())
    for path in glob.glob("/var/spool/*.queue"):
        with open(path, errors="surrogateescape") as file:
            found.update({("asked", path, line) for line in file})
    return found


def differences(expected, found):
    """Rows are told by what they are known by. A repeated rebuild may record more of the folders that exist."""
    def told(row):
        is_row = row[0] not in ("file", "asked")
        return " ".join(str(one) for one in row if not is_row or re.match("path|title|public|user|[^=]*$", one))

    more = [row for row in found - expected
            if row[0] != "directory" or not os.path.isdir(row[1].removeprefix("path="))]
    return [f"missing {told(row)}" for row in expected - found] + [f"unexpected {told(row)}" for row in more]


def work_off(binary):
    appliance.start(binary)
    appliance.wait_for_batch(30)
    appliance.stop()


# ---- What is done to a run


class Recorder(Hook):
    """Notes each call, and what becomes of the disk."""
    sees_start = True

    def __init__(self, disk):
        self.calls, self.disk = [], disk

    def entry(self, call):
        self.disk.before(call)
        if self.calls or BATCH_FILES.intersection(call.paths):
            self.calls.append(call)

    def exit(self, call, result):
        if result >= 0:
            self.disk.after(call, result)


class Blow(Hook):
    """Meets the call of this number: with a kill, or, when it is the one that was recorded, with an error."""

    def __init__(self, number, verdict, recorded):
        self.number, self.verdict, self.recorded, self.rounds = number, verdict, recorded, 0

    def entry(self, call):
        self.number -= 1
        is_same = (call.name, call.paths) == (self.recorded.name, self.recorded.paths)
        return self.verdict if self.number == -1 and (self.verdict == KILL or is_same) else None

    def idle(self):
        """What was kept is tried again when a signal comes, after two quiet ticks."""
        self.rounds += 1
        if appliance.is_waiting() and self.rounds % 4 == 1:
            os.kill(appliance.daemon_pid(), signal.SIGUSR1)
        return not appliance.is_waiting() or self.rounds > 12


def errors(call):
    """The errors that this call may well give. Closing does its work in any case."""
    if call.name == "close":
        return []
    is_open = call.name in ("open", "openat")
    takes_space = (is_open and call.arguments[1 if call.name == "open" else 2] & os.O_CREAT
                   or re.match("p?write|f(truncate|allocate|sync|datasync)|syncfs|mkdir|rename", call.name))
    can_wait = is_open or re.match("p?(read|write)|flock|fcntl|f(data)?sync|ftruncate|fallocate|syncfs", call.name)
    return ([errno.EIO, errno.ENOMEM] + [errno.EMFILE] * is_open + [errno.ENOSPC] * bool(takes_space)
            + [errno.EINTR] * bool(can_wait and call.name != "readlink"))


class Points:
    """One batch, and all the ways to hit it."""

    def __init__(self, binary, name):
        self.binary, self.unreached = binary, 0
        with open("/etc/koliinfo.conf", "w") as config:
            config.write("runahead=no\n")  # one call after the other
            config.write(self.settings())
        restore({})
        batch = BATCHES[name]()
        try:
            while True:
                appliance.enqueue(next(batch))
                self.start = whole_state()
                work_off(binary)
        except StopIteration as end:
            wanted = end.value
        restore(self.start)
        self.disk = power.Disk(ROOTS, is_volatile, {path: self.start[path] for path in self.start if path != DUMP})
        recorder = Recorder(self.disk)
        self.watch()
        Tracer(binary, recorder).run()
        self.end_watch()
        self.calls, self.expected = recorder.calls, outcome()
        self.lacks = self.missing(*wanted)
        self.sync()
        self.synced = outcome()

    @staticmethod
    def settings():
        return ""

    def watch(self):
        """Around the undisturbed run."""

    def end_watch(self):
        pass

    def sync(self):
        subprocess.run([os.path.join(os.path.dirname(self.binary), "koliindexctl"), "sync"], capture_output=True,
                       check=False)
        work_off(self.binary)

    @staticmethod
    def missing(titles, albums):
        """What a person misses after the undisturbed run."""
        found = {row["path"]: row["title"] for row in appliance.rows("photo_info")}
        for row in appliance.rows("photo_share"):
            users = {right["userid"] for right in appliance.rows("photo_access_right")
                     if right["shareid"] == row["shareid"]}
            found[row["sharename"]] = row["public"], users
        wanted = {f"{P}/{path}": title for path, title in titles.items()} | albums
        return [f"{key}: {found.get(key)}, not {value}" for key, value in wanted.items() if found.get(key) != value]

    def judge(self, may_sync=False):
        """Until nothing waits any more, then the differences. What of a share could not be read or written for a moment
        is asked for again by a sync."""
        try:
            if appliance.is_waiting():
                work_off(self.binary)
        except (TimeoutError, appliance.DaemonGone) as failure:
            return [f"the batch is not worked off: {failure!r}"]
        found = differences(self.expected, outcome())
        if found and may_sync:
            self.sync()
            found = differences(self.synced, outcome())
        return found + [f"sanitizer: {path}" for path in glob.glob(appliance.SANITIZER_REPORT + "*")]

    def kills(self):
        return [(number, KILL) for number in range(len(self.calls))]

    def faults(self):
        return [(number, error) for number, call in enumerate(self.calls)
                if any(path.startswith(ROOTS + SHARES) for path in call.paths) for error in errors(call)]

    def cuts(self):
        """Those that leave the same on the disk count once."""
        states = {}
        for kept in self.disk.cuts():
            states.setdefault(hashlib.md5(repr(sorted(self.disk.state(kept).items())).encode()).digest(), kept)
        return list(states.values())

    def hit(self, point):
        """The point, and what went astray."""
        number, verdict = point
        call, name = self.calls[number], "kill -9" if verdict == KILL else errno.errorcode[verdict]
        restore(self.start)
        blow = Blow(number, verdict, call)
        end = Tracer(self.binary, blow).run()
        self.unreached += blow.number >= 0  # this run made fewer calls
        is_share = verdict != KILL and any(path.startswith(SHARES) for path in call.paths)
        return (f"{name} at call {number}, {call.name}({', '.join(call.paths)})",
                [f"the daemon {end}"] if end else self.judge(is_share))

    def cut(self, kept):
        restore(self.disk.state(kept))
        last = max(kept, default=0)
        lost = collections.Counter(f"{change.kind} {change.path}" for change in
                                   (self.disk.changes[number] for number in range(last) if number not in kept))
        return f"power cut after change {last} without {dict(lost)}", self.judge()


KINDS = {"kill": (Points.kills, Points.hit), "fault": (Points.faults, Points.hit), "cut": (Points.cuts, Points.cut)}

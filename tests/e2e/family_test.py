#!/usr/bin/python3
"""A family's life in the photo share: whatever is moved, swapped, thrown away and fetched back, captions, rights and
comments stay with what they were given to, and nothing private becomes public.

    script/sandbox -- tests/e2e/family_test.py build/release/bin/koliindexd [--seeds FIRST-LAST] [--batches N]
"""
import os
import pathlib
import random
import signal
import subprocess
import sys
import time

import family_model
import harness
from family_model import BIN, P, Family, is_at, level
from harness import appliance

SEEDS = range(150)
BATCHES = 25
FAILED_ONCE = ()
CONFIG = pathlib.Path("/etc/koliinfo.conf")


def names_of(rows):
    return {row["path"]: row for row in rows}


class Library:
    """What the photo database says."""

    def __init__(self):
        rights = {}
        for row in appliance.rows("photo_access_right"):
            rights.setdefault(row["shareid"], set()).add(row["userid"])
        shares = appliance.rows("photo_share")
        self.pictures = {row["path"]: {"TITLE": row["title"], "DESC": row["description"]}
                         for row in appliance.rows("photo_info")}
        self.albums = {f"{P}/{row['sharename']}": (row["public"] == "t", row["description"],
                                                   frozenset(rights.pop(row["shareid"], ()))) for row in shares}
        self.orphans = rights
        self.texts = {(row["path"], row["title"]) for row in appliance.rows("video_desc")}
        self.comments = [(row["path"], row["comment"]) for row in appliance.rows("video_comment")]
        self.stored = {row["path"] for table in ("photo", "video") for row in appliance.rows(table)}


class Check:
    """Compares; then the family takes for granted what it has seen."""

    def __init__(self, family, default, is_watched, is_settled):
        self.family, self.default, self.is_watched, self.is_settled = family, default, is_watched, is_settled
        self.found, self.library = [], Library()
        seen = [thing for path, thing in sorted(family.things.items()) if not is_at(path, BIN)]
        for thing in seen:
            if thing.pending and thing.mixed and not is_watched:
                self.mix(thing)
        for thing in seen:
            if thing.is_photo:
                self.picture(thing)
            elif thing.is_video:
                self.video(thing)
            elif level(thing.path) < 2:
                self.album(thing)
        if self.library.orphans:
            self.found.append(f"rights of no album: {self.library.orphans}")
        if family.is_swept:
            rows = [*self.library.pictures, *self.library.albums]
            self.found += [f"row of what is gone: {row}" for row in rows
                           if row not in family.things]

    def mix(self, thing):
        """A caption in motion may go to whatever was at its place before."""
        for stream, text in thing.pending.items():
            thing.options.setdefault(stream, []).append(thing.own(stream))
            for visitor in self.family.visitors[thing.path]:
                visitor.options.setdefault(stream, []).append(text)

    def is_due(self, thing):
        return thing.asked or self.is_watched and self.is_settled

    def ghosts(self, thing):
        return [ghost.thing for ghost in self.family.ghosts if thing.path in ghost.paths]

    def picture(self, thing):
        row = self.library.pictures.get(thing.path)
        if row is None or thing.path not in self.library.stored:
            if self.is_due(thing) or thing.known:
                self.found.append(f"no row: {thing.path}")
            return
        for stream, text in row.items():
            accepted = thing.accepted(stream, self.is_due(thing) and not thing.mixed)
            if not thing.known:
                accepted += [ghost.own(stream) for ghost in self.ghosts(thing)]
            if text not in accepted:
                self.found.append(f"{stream} of {thing.path}: {text!r}, not {accepted}")
            handed_over = f"{os.path.dirname(thing.path)}/@eaDir/{os.path.basename(thing.path)}/KOLIPHOTO:{stream}"
            if thing.pending.get(stream) == text or not os.path.exists(handed_over):
                thing.pending.pop(stream, None)
            if text != thing.own(stream):
                thing.texts[stream] = text
        thing.known = True

    def video(self, thing):
        thing.known = thing.known or thing.path in self.library.stored
        text = thing.texts.get("video")
        if text and ((thing.path, text) not in self.library.texts
                     or self.library.comments.count((thing.path, text)) != 2):
            self.found.append(f"texts of {thing.path}: not {text}")

    def fresh(self, thing, flag=None):
        """Of an album that is new, or as good as new."""
        flag = thing.flag if flag is None else flag
        if level(thing.path) == 0:
            return [(self.default if flag is None else flag, "", frozenset())]
        top = self.library.albums.get(os.path.dirname(thing.path))
        if top is None:
            return [(self.default if flag is None else flag, "", frozenset())]
        return [(top[0], "", frozenset() if top[0] else top[2])]

    def album(self, thing):
        row = self.library.albums.get(thing.path)
        if row is None:
            if self.is_due(thing) or thing.known and not thing.deep:
                self.found.append(f"no album: {thing.path}")
            return
        accepted = [thing.album] if thing.known else self.fresh(thing)
        if thing.deep or thing.album is None:
            accepted += self.fresh(thing)
        if not thing.known:
            accepted += [ghost.album for ghost in self.ghosts(thing)]
            visitors = self.family.visitors.get(thing.path, []) if not self.is_watched else []
            accepted += [album for visitor in visitors for album in self.fresh(thing, visitor.flag)]
        if row not in accepted:
            self.found.append(f"album {thing.path}: {row}, not {accepted}")
        thing.album, thing.known, thing.deep, thing.flag = row, True, False, None


class Life(harness.DaemonTest):
    def watch(self):
        self.watcher = subprocess.Popen(self.command("watch", "/var/services/photo"), stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL)
        self.addCleanup(self.watcher.kill)
        self.addCleanup(self.watcher.stdout.close)
        self.assertIn(b"watching", self.watcher.stdout.readline())
        stat = pathlib.Path(f"/proc/{self.watcher.pid}/stat")
        harness.wait_for("the comparison", lambda: stat.read_text().rpartition(")")[2].split()[0] == "S")

    def wait_noticed(self, family):
        """A watcher cannot tell where a file came from that is moved into a folder before it has looked at that."""
        folders = {f"ino:{os.stat(path).st_ino:x}" for path, thing in family.things.items()
                   if thing.is_folder and not is_at(path, BIN)}

        def is_noticed():
            try:
                return folders <= {word for file in pathlib.Path(f"/proc/{self.watcher.pid}/fdinfo").iterdir()
                                   for word in file.read_text().split()}
            except FileNotFoundError:  # just closed
                return False

        harness.wait_for("a watch for each folder", is_noticed)

    def send(self):
        """All that the watcher holds back: it ends."""
        self.watcher.terminate()
        self.watcher.wait(harness.PATIENCE)
        self.assertEqual(self.watcher.returncode, 0)

    def execute(self, killed_after=None):
        self.start()
        if killed_after is not None:
            time.sleep(killed_after)
            appliance.stop(signal.SIGKILL)
            if os.path.exists(appliance.PID_FILE):
                os.unlink(appliance.PID_FILE)
            self.start()
        appliance.wait_for_batch(60)
        appliance.stop()

    def settle(self):
        """The watcher compares when it starts: what it then asks for is executed, until it is content."""
        for _ in range(4):
            self.watch()
            if not os.path.exists(appliance.QUEUE):
                return
            self.send()
            self.asked_at_start += pathlib.Path(appliance.QUEUE).read_text().splitlines()
            self.execute()
        self.fail("the watcher is never content")

    def batch(self, family, chance, is_watched):
        family.begin()
        self.asked_at_start = []
        if is_watched:
            self.settle()
        family.work(chance)
        for _ in range(chance.choice((1, 2, 3, 5))):
            family.act(chance)
        killed_after = chance.random() * 0.02 if chance.random() < 0.2 else None
        if chance.random() < 0.2:
            family.do("resync")
        self.run_batch(family, killed_after, is_watched)

    def run_batch(self, family, killed_after, is_watched):
        if is_watched:
            self.send()
            family.sent = pathlib.Path(appliance.QUEUE).read_text().splitlines() if os.path.exists(appliance.QUEUE) else []
            appliance.enqueue(family.lines[-1:] if family.is_swept else [])
        else:
            family.sent = family.lines
            appliance.enqueue(family.lines)
        self.execute(killed_after)
        if is_watched:
            self.settle()
            self.send()

    def live(self, seed, is_watched, batches=None):
        self.clean()
        CONFIG.write_text(f"albumdefpublic={'yes' if seed % 2 else 'no'}\n")
        self.addCleanup(CONFIG.write_text, "")
        chance = random.Random(seed)
        family = Family(lambda: self.wait_noticed(family) if is_watched else None)
        self.execute()
        for number in range(batches or BATCHES):
            self.batch(family, chance, is_watched)
            found = Check(family, bool(seed % 2), is_watched, True).found
            found = [x for x in found if not x.startswith(os.environ.get("IGNORE", "-"))]
            self.assertEqual(found, [], (seed, number, family.sent))

    def test_with_a_cooperating_program(self):
        for seed in (*FAILED_ONCE, *SEEDS):
            with self.subTest(seed=seed):
                self.live(seed, False)

    def test_watched(self):
        for seed in (*FAILED_ONCE, *SEEDS):
            with self.subTest(seed=seed):
                self.live(seed, True)


if __name__ == "__main__":
    harness.main()

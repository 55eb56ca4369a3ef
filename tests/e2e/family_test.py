#!/usr/bin/python3
"""A family's life in the photo share: whatever is moved, swapped, thrown away and fetched back, captions, rights and
comments stay with what they were given to, and nothing private becomes public.

    script/sandbox -- tests/e2e/family_test.py build/release/bin/koliindexd [--seeds FIRST-LAST] [--batches NUMBER]
                                                                            [--pauses]
With --pauses the watched family sometimes waits for the watcher, which asks for what has settled as it goes on.
"""
import os
import pathlib
import random
import signal
import subprocess
import sys
import time

import harness
from family_model import BIN, P, Family, is_at, level
from harness import appliance

FAILED_ONCE = ()  # seeds
SEEDS, BATCHES, PAUSES = range(8), 25, "--pauses" in sys.argv
CONFIG = pathlib.Path("/etc/koliinfo.conf")

# What a person would not expect, and why it is so. Of a watched family only those in WATCHED may happen.
FORCED = {
    "late": "a request for what has moved on finds nothing: the picture, album or caption comes with the next walk",
    "mixed": "a request is executed on what stands at its path then, and so is what was handed over for that",
    "edited": "what is thrown away and made anew before the batch runs is the old thing changed: it stays what it was",
    "deep": "a folder below the second level is no album: one that comes up again may be as new",
}
WATCHED = ("edited", "deep")


class Library:
    """What the photo database says."""

    def __init__(self):
        users = {}
        for row in appliance.rows("photo_access_right"):
            users.setdefault(row["shareid"], set()).add(row["userid"])
        self.albums = {f"{P}/{row['sharename']}": (row["public"] == "t", row["description"],
                                                   frozenset(users.pop(row["shareid"], ())))
                       for row in appliance.rows("photo_share")}
        self.orphans = users
        self.pictures = {row["path"]: {"TITLE": row["title"], "DESC": row["description"]}
                         for row in appliance.rows("photo_info")}
        self.texts = {(row["path"], row["title"]) for row in appliance.rows("video_desc")}
        self.comments = [(row["path"], row["comment"]) for row in appliance.rows("video_comment")]
        self.stored = {row["path"] for table in ("photo", "video") for row in appliance.rows(table)}


class Check:
    """Compares the library with what the family expects, which then takes for granted what it has seen. What is wrong
    is in `found`."""

    def __init__(self, family, is_public_by_default, is_watched):
        self.family, self.default, self.is_watched = family, is_public_by_default, is_watched
        self.library, self.found = Library(), []
        things = [thing for path, thing in sorted(family.things.items()) if not is_at(path, BIN)]
        for thing in things:
            self.mix(thing)
        for thing in things:  # albums come before those in them
            if thing.is_photo:
                self.picture(thing)
            elif thing.is_video:
                self.video(thing)
            elif thing.is_album():
                self.album(thing)
        self.found += [f"rights without an album: {user}" for user in self.library.orphans]
        if family.is_swept():
            self.found += [f"row of what is gone: {path}" for path in (*self.library.pictures, *self.library.albums)
                           if path not in family.things]

    def forced(self, name, accepted):
        """The further values that a row may have for this reason."""
        return accepted if name in (WATCHED if self.is_watched else FORCED) else []

    def ghosts(self, thing):
        return [ghost.thing for ghost in self.family.ghosts if thing.path in ghost.paths and not thing.known]

    def mix(self, thing):
        """A caption may go to whatever was at its picture's place before, and be lost for the picture."""
        if not thing.mixed:
            return
        for stream, text in thing.pending.items():
            thing.options[stream] = thing.options.get(stream, []) + [thing.own(stream)]
            for visitor in self.family.visitors[thing.path]:
                visitor.options[stream] = visitor.options.get(stream, []) + [text]

    def is_missed(self, what, thing):
        """True when there is nothing of the thing to compare."""
        is_late = not thing.asked and not thing.known and self.forced("late", [True])
        is_late = is_late or not thing.asked and thing.deep and self.forced("deep", [True])
        if what is None and not is_late:
            self.found.append(f"missing: {thing.path}")
        return what is None

    def picture(self, thing):
        row = self.library.pictures.get(thing.path) if thing.path in self.library.stored else None
        is_missed = self.is_missed(row, thing)
        for stream in ("TITLE", "DESC"):
            handed_over, text = thing.pending.get(stream), thing.own(stream) if is_missed else row[stream]
            accepted = [handed_over or thing.own(stream)]
            if not thing.asked:
                accepted += self.forced("late", [thing.own(stream)])
            accepted += self.forced("mixed", thing.options.get(stream, []))
            accepted += self.forced("edited", [ghost.own(stream) for ghost in self.ghosts(thing)])
            if text not in accepted and not is_missed:
                self.found.append(f"{stream} of {thing.path}: {text!r}, not {accepted}")
            if handed_over == text or not os.path.exists(thing.caption_file(stream)):
                thing.pending.pop(stream, None)
            if text != thing.own(stream):
                thing.texts[stream] = text
        thing.known = thing.known or not is_missed

    def video(self, thing):
        thing.known = thing.known or thing.path in self.library.stored
        text = thing.texts.get("video")
        if text and ((thing.path, text) not in self.library.texts
                     or self.library.comments.count((thing.path, text)) != 2):
            self.found.append(f"texts of {thing.path}: not {text}")

    def fresh(self, thing, flags):
        """What an album begins with: a sub-album as its album is, any other one as it was said with one of `flags`."""
        top = self.library.albums.get(os.path.dirname(thing.path))
        if level(thing.path) and top is not None:
            return [(top[0], "", frozenset() if top[0] else top[2])]
        return [(self.default if flag is None else flag, "", frozenset()) for flag in flags]

    def album(self, thing):
        row = self.library.albums.get(thing.path)
        if self.is_missed(row, thing):
            return
        accepted = [thing.album] if thing.known else self.fresh(thing, [thing.flag])
        if not thing.known:
            accepted += self.forced("mixed", self.fresh(thing, self.family.flags))
        accepted += self.forced("edited", [ghost.album for ghost in self.ghosts(thing)])
        if thing.deep:
            accepted += self.forced("deep", self.fresh(thing, [None]))
        if row not in accepted:
            self.found.append(f"album {thing.path}: {row}, not {accepted}")
        thing.album, thing.known, thing.deep, thing.flag = row, True, False, None


class Life(harness.DaemonTest):
    """In `sent` is what was asked for in the last batch."""

    def execute(self, killed_after=None):
        self.sent = []
        if os.path.exists(appliance.QUEUE):
            self.sent = os.fsdecode(pathlib.Path(appliance.QUEUE).read_bytes()).splitlines()
        self.start()
        if killed_after is not None:
            harness.wait_for("the pid file", appliance.daemon_pid)
            time.sleep(killed_after)
            appliance.stop(signal.SIGKILL)
            self.start()
        appliance.wait_for_batch(harness.PATIENCE)
        appliance.stop()

    # --- The watcher

    def watch(self):
        """From the moment at which it has compared everything."""
        self.watcher = subprocess.Popen(self.command("watch", "/var/services/photo"), stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL)
        self.addCleanup(self.watcher.kill)
        self.addCleanup(self.watcher.stdout.close)
        self.assertIn(b"watching", self.watcher.stdout.readline())
        stat = pathlib.Path(f"/proc/{self.watcher.pid}/stat")
        harness.wait_for("the comparison", lambda: stat.read_text().rpartition(")")[2].split()[0] == "S")

    def wait_noticed(self, family):
        """Where a file has come from that is moved into a folder cannot be told before that is watched."""
        folders = {f"ino:{os.stat(path).st_ino:x}" for path, thing in family.things.items()
                   if thing.is_folder and not is_at(path, BIN)}

        def is_noticed():
            try:
                return folders <= {word for file in pathlib.Path(f"/proc/{self.watcher.pid}/fdinfo").iterdir()
                                   for word in file.read_text().split()}
            except FileNotFoundError:  # closed meanwhile
                return False

        harness.wait_for("a watch for each folder", is_noticed)

    def send(self):
        """All that the watcher still has to ask for: it ends."""
        self.watcher.terminate()
        self.assertEqual(self.watcher.wait(harness.PATIENCE), 0)

    def settle(self):
        """What a new watcher finds to differ is executed, until it is content."""
        for _ in range(4):
            self.watch()
            if not os.path.exists(appliance.QUEUE):
                return
            self.send()
            self.execute()
        self.fail(f"never content: {self.sent}")

    # --- One batch after another

    def act(self, family, chance, is_watched):
        family.begin()
        if is_watched:
            self.settle()
        family.work(chance)
        for _ in range(chance.choice((1, 2, 3, 5))):
            family.act(chance)
            if is_watched and PAUSES and chance.random() < 0.2:
                time.sleep(3)
        if chance.random() < 0.2:
            family.do("resync")
        return chance.random() * 0.02 if chance.random() < 0.2 else None

    def run_batch(self, family, killed_after, is_watched):
        if is_watched:
            self.send()
        appliance.enqueue([line for line in family.lines if not is_watched or line in ("R:photo", "U:photo")])
        self.execute(killed_after)
        if is_watched:
            batch = self.sent
            self.settle()
            self.send()
            self.sent = batch
            for thing in family.things.values():
                thing.asked = True

    def live(self, seed, is_watched):
        self.clean()
        CONFIG.write_text(f"albumdefpublic={'yes' if seed % 2 else 'no'}\n")
        self.addCleanup(CONFIG.write_text, "")
        chance = random.Random(seed)
        family = Family(lambda: self.wait_noticed(family) if is_watched else None)
        self.execute()
        for number in range(BATCHES):
            self.run_batch(family, self.act(family, chance, is_watched), is_watched)
            found = Check(family, bool(seed % 2), is_watched).found
            found = [x for x in found if not x.startswith(os.environ.get("IGNORE", "-"))]
            self.assertEqual(found, [], (seed, number, self.sent))

    def test_with_a_cooperating_program(self):
        for seed in (*FAILED_ONCE, *SEEDS):
            with self.subTest(seed=seed):
                self.live(seed, False)

    def test_watched(self):
        for seed in (*FAILED_ONCE, *SEEDS):
            with self.subTest(seed=seed):
                self.live(seed, True)


def option(name, default):
    if name not in sys.argv:
        return default
    position = sys.argv.index(name)
    text = sys.argv.pop(position + 1)
    sys.argv.pop(position)
    return text


if __name__ == "__main__":
    if PAUSES:
        sys.argv.remove("--pauses")
    FIRST, LAST = map(int, option("--seeds", f"{SEEDS[0]}-{SEEDS[-1]}").split("-"))
    SEEDS, BATCHES = range(FIRST, LAST + 1), int(option("--batches", BATCHES))
    harness.main()
